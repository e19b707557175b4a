// The block row code: a row of unsigned integers as control bytes and runs of
// narrow fields. Rows are coded alone, in one pass, with no table and no state
// across rows, so the code can run on every visit of a river subtree.
//
// A row of n values (n is known to the reader; the code has no length field):
//   1. Blocks of 32 values while at least 32 remain: one control byte, two bits
//      per group of 8 (group 0 in the low bits), then the fields of the groups
//      in order. Code 0 has no field: the group is all zero.
//   2. The rest, fewer than 32 values, in groups of 8 and a last short group:
//      one mode byte, then the group's values.
//
//   width  | code 1  | code 2            | code 3   | choice by the group's largest m
//   16-bit | 8 × u8  | 8 × 12 bits (12B) | 8 × u16  | 0: 0, <256: 1, <=4095: 2, else 3
//   32-bit | 8 × u8  | 8 × u16           | 8 × u32  | 0: 0, <256: 1, <=65535: 2, else 3
//   24-bit | 8 × u8  | 8 × u16           | 8 × 3B   | as 32-bit
//
//   Rest modes. 16-bit: 1 one byte per value, 3 (any other when reading) two.
//   32-bit: 0 one byte, 1 two bytes, 2 or 3 four bytes (the writer sets bit 0
//   when some value lies in 256..65535 and bit 1 when some value is above
//   65535). 24-bit: 0 one byte, 1 two bytes, any other three bytes.
//
// Writers need room for the worst case (the bound functions below) from where
// they start, and may store garbage up to that bound beyond the bytes they
// report. Readers are given the end of the readable bytes and never look past
// it; a code that would run past it makes the reader report failure.
#pragma once

#include <cstdint>

// Largest coded size of a row of `count` values: every group at the widest
// code, a control byte per block and a mode byte per group of the rest.
constexpr int block_row_bound(int count, int value_bytes) {
    const int rest = count % 32;
    return count * value_bytes + count / 32 + (rest + 7) / 8;
}
constexpr int block_row_bound16(int count) { return block_row_bound(count, 2); }
constexpr int block_row_bound24(int count) { return block_row_bound(count, 3); }
constexpr int block_row_bound32(int count) { return block_row_bound(count, 4); }

// One implementation of the 16- and 32-bit code. Encoders return the bytes
// written; decoders the bytes read, or -1 when the code runs past `end`.
struct BlockRowCodec {
    const char* name;
    int (*encode16)(const uint16_t* row, int count, uint8_t* out);
    int (*decode16)(const uint8_t* in, const uint8_t* end, int count, uint16_t* row);
    int (*encode32)(const uint32_t* row, int count, uint8_t* out);
    int (*decode32)(const uint8_t* in, const uint8_t* end, int count, uint32_t* row);
};

// The plain reference, and the AVX2 version that must give the same bytes.
extern const BlockRowCodec scalar_block_row_codec;
extern const BlockRowCodec avx2_block_row_codec;

// The version the program uses: AVX2 when it runs here (avx2_runs).
const BlockRowCodec& block_row_codec();

inline int encode_block_row16(const uint16_t* row, int count, uint8_t* out) {
    return block_row_codec().encode16(row, count, out);
}
inline int decode_block_row16(const uint8_t* in, const uint8_t* end, int count, uint16_t* row) {
    return block_row_codec().decode16(in, end, count, row);
}
inline int encode_block_row32(const uint32_t* row, int count, uint8_t* out) {
    return block_row_codec().encode32(row, count, out);
}
inline int decode_block_row32(const uint8_t* in, const uint8_t* end, int count, uint32_t* row) {
    return block_row_codec().decode32(in, end, count, row);
}

// The 24-bit width only travels in tree files, so it has one plain version.
// Values are taken modulo 2^24.
int encode_block_row24(const uint32_t* row, int count, uint8_t* out);
int decode_block_row24(const uint8_t* in, const uint8_t* end, int count, uint32_t* row);
