#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite, then, built with the address
# and undefined-behaviour sanitizers, the damaged tree file test with the file
# channel's tests and the protocol fuzzer for a minute against the program.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/build.sh"
cd "$root/build"
ctest --output-on-failure -j"$(nproc)" --timeout 600
# The Python package and tools, with Debian's Python (the one that sees python3-* packages).
cd "$root/python"
# A test that hangs prints every thread's stack after five minutes; the run
# as a whole is ended after twenty, so a hang can never hold CI to its limit.
TAVREK_ENGINE="$root/build/tavrek" timeout --kill-after=30 1200 \
    /usr/bin/python3 -m pytest -q -p no:cacheprovider -o faulthandler_timeout=300 tests
cmake -S "$root" -B "$root/build-asan" -DTAVREK_SANITIZE=ON > /dev/null
cmake --build "$root/build-asan" -j"$(nproc)" --target tavrek test_tree_file
# Cut, flipped and oversized tree files, loaded in process: any read out of
# bounds or undefined behaviour ends the run, as does a single allocation
# beyond what such small files could ask for.
ASAN_OPTIONS="halt_on_error=1:max_allocation_size_mb=1024" UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1" \
    timeout --kill-after=30 600 "$root/build-asan/tests/test_tree_file" --gtest_brief=1 \
    --gtest_filter='TreeFileTest.DamagedFilesLeaveTheTreeAlone:FileChannelTest.*'
/usr/bin/python3 "$root/tests/fuzz/protocol_fuzz.py" --binary "$root/build-asan/tavrek" --seconds 60

