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
  "$root/src/storage/codec.cpp"
  "$root/src/storage/entropy_coder.cpp"
  "$root/src/storage/fse.cpp"
  "$root/src/storage/fse_table.cpp"
  "$root/src/storage/memory_blocks.cpp"
  "$root/src/storage/range_coder.cpp"
  "$root/src/storage/row_transform.cpp"
  "$root/src/storage/run_coder.cpp"
  "$root/src/storage/split_tree.cpp"
  "$root/src/storage/transformed_row_reader.cpp"
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
