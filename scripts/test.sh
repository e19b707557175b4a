#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bash "$root/scripts/build.sh"
cd "$root/build"
ctest --output-on-failure -j"$(nproc)" --timeout 600
# The Python package and tools, with Debian's Python (the one that sees python3-* packages).
cd "$root/python"
TAVREK_ENGINE="$root/build/tavrek" /usr/bin/python3 -m pytest -q -p no:cacheprovider tests
