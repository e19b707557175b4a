// Which version of the block row code runs.
#include "storage/codes/block_row_code.h"

#include "shell/protocol/processor.h"

const BlockRowCodec& block_row_codec() { return avx2_runs() ? avx2_block_row_codec : scalar_block_row_codec; }
