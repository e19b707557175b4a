// The integer forms of a stored value and the conversions between them:
// f32 rows truncated to u16, the 12-bit field of the block row code, and the
// little-endian 3-byte form of wide strategy-sum groups. The vector versions
// need nothing beyond the AVX baseline; each has a scalar reference beside it.
#pragma once

#include <cstdint>
#include <cstring>

// ---- f32 rows to u16 -------------------------------------------------------

// Truncates toward zero and clamps to 0..65535. A value outside the range of
// a 32-bit integer (or NaN) becomes 0, as the processor's conversion gives.
void convert_row_to_u16(const float* row, int count, uint16_t* out);
// Reference: truncates toward zero and keeps the low 16 bits.
void convert_row_to_u16_scalar(const float* row, int count, uint16_t* out);

// ---- 12-bit fields ---------------------------------------------------------

// Eight values below 4096 in 12 bytes: value i occupies bits 12i..12i+11 of
// the little-endian field.
void pack_12bit_fields(const uint16_t* values, uint8_t* field);
void unpack_12bit_fields(const uint8_t* field, uint16_t* values);

// ---- 3-byte integers -------------------------------------------------------
//
// Value i of a block stands in bytes 3i to 3i+2. Readers load 32 bits and mask,
// and writers of the last values of a row rewrite the byte after them with its
// own value, so a block carries `three_byte_slack` bytes beyond its values.

constexpr int three_byte_slack = 11;
constexpr uint32_t three_byte_mask = 0xffffff;

inline uint32_t load_three_byte(const uint8_t* block, int index) {
    uint32_t word;
    std::memcpy(&word, block + 3 * index, 4);
    return word & three_byte_mask;
}

inline void store_three_byte(uint8_t* block, int index, uint32_t value) {
    uint32_t word;
    std::memcpy(&word, block + 3 * index, 4);
    word = (word & ~three_byte_mask) | (value & three_byte_mask);
    std::memcpy(block + 3 * index, &word, 4);
}

// Widens a 16-bit group to the 3-byte form.
void widen_to_three_byte(const uint16_t* values, int count, uint8_t* block);
void widen_to_three_byte_scalar(const uint16_t* values, int count, uint8_t* block);

// One row of 3-byte values to 32 bits and back. Packing keeps the low 24 bits
// of each value and leaves the byte after the row as it was.
void unpack_three_byte_row(const uint8_t* block, int count, uint32_t* values);
void unpack_three_byte_row_scalar(const uint8_t* block, int count, uint32_t* values);
void pack_three_byte_row(const uint32_t* values, int count, uint8_t* block);
void pack_three_byte_row_scalar(const uint32_t* values, int count, uint8_t* block);
