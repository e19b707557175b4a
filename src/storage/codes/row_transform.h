// The row transform in front of the coders.
//
// Neighbouring hands of a row tend to hold similar values, and so do the same
// hands under neighbouring river cards. A row is therefore coded as the
// differences of neighbouring values, or, when that leaves fewer non-zero
// values, as the change of those differences against the previous row. The
// differences are folded to unsigned numbers with zigzag, so that small
// changes of either sign become small codes and zero stays zero.
#pragma once

#include <cstdint>

inline uint32_t zigzag(int32_t x) { return (static_cast<uint32_t>(x) << 1) ^ static_cast<uint32_t>(x >> 31); }
inline int32_t unzigzag(uint32_t u) { return static_cast<int32_t>((u >> 1) ^ (0u - (u & 1))); }

// A row in its coded form: the values to give the coder and the flag that
// tells which form they are (0: differences along the row, 1: differences to
// the previous row as well).
struct TransformedRow {
    const uint32_t* values;
    int flag;
};

// Transforms `count` values (at most max_row_values, else the process ends
// with "fail"). `previous` may be null. Both scratch arrays hold `count`
// values; the result points into one of them. With a previous row the second
// form is taken only when it has fewer non-zero values; a tie keeps flag 0.
TransformedRow transform_row32(const uint32_t* row, const uint32_t* previous, int count,
                               uint32_t* scratch, uint32_t* second_scratch);
TransformedRow transform_row16(const uint16_t* row, const uint16_t* previous, int count,
                               uint32_t* scratch, uint32_t* second_scratch);

// The inverse: prefix sums of the zigzag-decoded values, plus the previous
// row's first value (flag 0) or the whole previous row (flag 1). Flag 1
// needs `previous`. 16-bit rows keep the low 16 bits of each sum.
void untransform_row32(const uint32_t* coded, int flag, const uint32_t* previous, int count, uint32_t* row);
void untransform_row16(const uint32_t* coded, int flag, const uint16_t* previous, int count, uint16_t* row);
