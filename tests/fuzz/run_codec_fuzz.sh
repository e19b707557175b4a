#!/usr/bin/env bash
# Builds the coder fuzz target with clang and libFuzzer (with address and
# undefined-behaviour checks) and runs it for a while.
#
#   tests/fuzz/run_codec_fuzz.sh [seconds] [extra libFuzzer options...]
#
# Seconds default to 60. The corpus lives in $FUZZ_WORK (default
# /tmp/tavrek-codec-fuzz) and grows from run to run; a crash leaves its input
# there as crash-* and the script exits non-zero.
set -euo pipefail
seconds="${1:-60}"
shift || true
root="$(cd "$(dirname "$0")/../.." && pwd)"
work="${FUZZ_WORK:-/tmp/tavrek-codec-fuzz}"
mkdir -p "$work/corpus"
cxx="${CXX_FUZZ:-clang++-14}"

sources=(
  "$root/tests/fuzz/codec_fuzz.cpp"
  "$root/tests/storage/legacy_coder_writers.cpp"
  "$root/src/storage/codes/codec.cpp"
  "$root/src/storage/codes/entropy_coder.cpp"
  "$root/src/storage/codes/fse.cpp"
  "$root/src/storage/codes/fse_table.cpp"
  "$root/src/storage/codes/memory_blocks.cpp"
  "$root/src/storage/codes/range_coder.cpp"
  "$root/src/storage/codes/row_transform.cpp"
  "$root/src/storage/codes/run_coder.cpp"
  "$root/src/storage/codes/split_tree.cpp"
  "$root/src/storage/codes/transformed_row_reader.cpp"
  "$root/src/shell/protocol/cpu_info.cpp"
  "$root/src/shell/protocol/processor.cpp"
  "$root/src/shell/protocol/reply.cpp"
  "$root/src/shell/protocol/settings.cpp"
  "$root/src/shell/protocol/tokens.cpp"
  "$root/src/shell/protocol/game_setup.cpp"
)
binary="$work/codec_fuzz"
"$cxx" -std=c++20 -O1 -g -mavx -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
  -I"$root/src" -I"$root/tests" "${sources[@]}" -ltbbmalloc -o "$binary"

cd "$work"
"$binary" -max_total_time="$seconds" -max_len=16384 -timeout=10 -print_final_stats=1 "$@" corpus
