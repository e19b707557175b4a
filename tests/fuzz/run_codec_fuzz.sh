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

codes="$root/src/storage/codes"
protocol="$root/src/shell/protocol"
sources=("$root/tests/fuzz/codec_fuzz.cpp"
  "$codes"/{codec,entropy_coder,fse,fse_table,memory_blocks,range_coder,row_transform,run_coder,split_tree}.cpp
  "$codes/transformed_row_reader.cpp" "$protocol"/{cpu_info,processor,reply,settings,tokens,game_setup}.cpp)
binary="$work/codec_fuzz"
"$cxx" -std=c++20 -O1 -g -mavx -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
  -I"$root/src" -I"$root/tests" "${sources[@]}" -ltbbmalloc -o "$binary"

cd "$work"
"$binary" -max_total_time="$seconds" -max_len=16384 -timeout=10 -print_final_stats=1 "$@" corpus
