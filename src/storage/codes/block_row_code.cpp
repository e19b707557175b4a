// Which version of the block row code runs.
#include "storage/codes/block_row_code.h"

bool block_row_avx2_available() {
    static const bool available = __builtin_cpu_supports("avx2");
    return available;
}

const BlockRowCodec& block_row_codec() {
    return block_row_avx2_available() ? avx2_block_row_codec : scalar_block_row_codec;
}
