// The AVX2 version of the block row code. It gives the same bytes and values
// as the plain version in block_row_code_scalar.cpp.
//
// Groups are coded without branches on their codes: each group's field is
// made by shuffles chosen from small tables by the group code, stored whole,
// and the write position moves by the code's field size. The stores of one
// block may run past its last field, never past the block's worst case, which
// the caller has room for. Readers load whole fields the same way and so take
// the vector path only while a worst-case block still lies before the end of
// the readable bytes; closer to the end the plain reader finishes the row.
#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "storage/codes/block_row_code.h"

namespace {

constexpr int block_values = 32;
constexpr int group_values = 8;
constexpr int worst_block16 = 1 + 4 * 16;
constexpr int worst_block32 = 1 + 4 * 32;

constexpr int field_bytes16[4] = {0, 8, 12, 16};
constexpr int field_bytes32[4] = {0, 8, 16, 32};

// ---- tables, indexed by group code ----------------------------------------

// 16-bit writer: the low byte of each value for code 1, the values as they
// are for code 3; code 2 comes from the 12-bit packing instead.
alignas(16) constexpr int8_t encode16_shuffle[4][16] = {
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
    {0, 2, 4, 6, 8, 10, 12, 14, -1, -1, -1, -1, -1, -1, -1, -1},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
};
alignas(16) constexpr int8_t encode16_take_packed[4][16] = {
    {}, {}, {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}, {}};

// 16-bit reader: bytes into value lanes, then value = (lane × multiplier
// mod 2^16) >> shift. For code 2 the even values sit in the low 12 bits of
// their byte pair and the odd ones in the high 12.
alignas(16) constexpr int8_t decode16_shuffle[4][16] = {
    {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
    {0, -1, 1, -1, 2, -1, 3, -1, 4, -1, 5, -1, 6, -1, 7, -1},
    {0, 1, 1, 2, 3, 4, 4, 5, 6, 7, 7, 8, 9, 10, 10, 11},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
};
alignas(16) constexpr uint16_t decode16_multiplier[4][8] = {
    {1, 1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1, 1, 1}, {16, 1, 16, 1, 16, 1, 16, 1}, {1, 1, 1, 1, 1, 1, 1, 1}};
alignas(16) constexpr int64_t decode16_shift[4][2] = {{0, 0}, {0, 0}, {4, 0}, {0, 0}};

// 32-bit writer: the low byte or the low two bytes of each value, gathered
// per 128-bit lane and then across lanes.
alignas(32) constexpr int8_t encode32_shuffle[4][32] = {
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
    {0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
     0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
    {0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1,
     0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
};
alignas(32) constexpr int32_t encode32_permute[4][8] = {
    {0, 1, 2, 3, 4, 5, 6, 7}, {0, 4, 1, 2, 3, 5, 6, 7}, {0, 1, 4, 5, 2, 3, 6, 7}, {0, 1, 2, 3, 4, 5, 6, 7}};

// 32-bit reader: the field's dwords spread over the two lanes, then bytes or
// byte pairs widened within each lane.
alignas(32) constexpr int32_t decode32_permute[4][8] = {
    {0, 1, 2, 3, 4, 5, 6, 7}, {0, 0, 0, 0, 1, 1, 1, 1}, {0, 1, 0, 0, 2, 3, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7}};
alignas(32) constexpr int8_t decode32_shuffle[4][32] = {
    {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
     -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
    {0, -1, -1, -1, 1, -1, -1, -1, 2, -1, -1, -1, 3, -1, -1, -1,
     0, -1, -1, -1, 1, -1, -1, -1, 2, -1, -1, -1, 3, -1, -1, -1},
    {0, 1, -1, -1, 2, 3, -1, -1, 4, 5, -1, -1, 6, 7, -1, -1,
     0, 1, -1, -1, 2, 3, -1, -1, 4, 5, -1, -1, 6, 7, -1, -1},
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
};

template <class T>
[[gnu::target("avx2")]] __m128i table16(const T* entry) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(entry));
}

template <class T>
[[gnu::target("avx2")]] __m256i table32(const T* entry) {
    return _mm256_load_si256(reinterpret_cast<const __m256i*>(entry));
}

[[gnu::target("avx2")]] __m128i load16(const void* at) {
    return _mm_loadu_si128(static_cast<const __m128i*>(at));
}
[[gnu::target("avx2")]] __m256i load32(const void* at) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(at));
}
[[gnu::target("avx2")]] void store16(void* at, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(at), v); }
[[gnu::target("avx2")]] void store32(void* at, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(at), v); }

int code_from_largest32(uint32_t m) { return (m != 0) + (m > 255) + (m > 65535); }

// Bitwise or of the 8 values of a group: the code thresholds are powers of
// two, so the or crosses them exactly when the largest value does.
[[gnu::target("avx2")]] uint32_t or_of_group16(__m128i v) {
    v = _mm_or_si128(v, _mm_srli_si128(v, 8));
    v = _mm_or_si128(v, _mm_srli_si128(v, 4));
    v = _mm_or_si128(v, _mm_srli_si128(v, 2));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(v)) & 0xffff;
}

[[gnu::target("avx2")]] uint32_t or_of_group32(__m256i v) {
    __m128i x = _mm_or_si128(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    x = _mm_or_si128(x, _mm_shuffle_epi32(x, 0x4e));
    x = _mm_or_si128(x, _mm_shuffle_epi32(x, 0xb1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(x));
}

// ---- 16-bit rows -----------------------------------------------------------

// Word 0 of each 128-bit lane becomes the or of the lane's 8 values.
[[gnu::target("avx2")]] __m256i or_within_lanes16(__m256i v) {
    v = _mm256_or_si256(v, _mm256_srli_si256(v, 8));
    v = _mm256_or_si256(v, _mm256_srli_si256(v, 4));
    return _mm256_or_si256(v, _mm256_srli_si256(v, 2));
}

// The control byte of a block of 32 values: the four groups' ors are formed
// side by side, and each group's code is the count of the thresholds 1, 256
// and 4096 that its or reaches.
[[gnu::target("avx2")]] uint32_t block_codes16(__m256i low, __m256i high) {
    // Word 0 of the low lane: groups 0 and 2; of the high lane: groups 1 and 3.
    const __m256i ors = _mm256_unpacklo_epi16(or_within_lanes16(low), or_within_lanes16(high));
    const __m256i one = _mm256_set1_epi16(1);
    const __m256i codes = _mm256_add_epi16(
        _mm256_add_epi16(_mm256_min_epu16(ors, one), _mm256_min_epu16(_mm256_srli_epi16(ors, 8), one)),
        _mm256_min_epu16(_mm256_srli_epi16(ors, 12), one));
    const uint32_t even = static_cast<uint32_t>(_mm256_cvtsi256_si32(codes));
    const uint32_t odd = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm256_extracti128_si256(codes, 1)));
    return (even & 3) | (odd & 3) << 2 | (even >> 16) << 4 | (odd >> 16) << 6;
}

// Writes one group's field for its code and returns the field's size.
[[gnu::target("avx2")]] int put_group16(__m128i v, int code, uint8_t* out) {
    // 12-bit packing: pairs a | b << 12 in 32-bit lanes, then their low
    // three bytes back to back.
    const __m128i pairs = _mm_madd_epi16(v, _mm_set1_epi32(1 | 4096 << 16));
    const __m128i packed = _mm_shuffle_epi8(pairs, _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
    const __m128i picked = _mm_shuffle_epi8(v, table16(encode16_shuffle[code]));
    store16(out, _mm_blendv_epi8(picked, packed, table16(encode16_take_packed[code])));
    return field_bytes16[code];
}

[[gnu::target("avx2")]] __m128i get_group16(const uint8_t* in, int code) {
    const __m128i lanes = _mm_shuffle_epi8(load16(in), table16(decode16_shuffle[code]));
    const __m128i scaled = _mm_mullo_epi16(lanes, table16(decode16_multiplier[code]));
    return _mm_srl_epi16(scaled, table16(decode16_shift[code]));
}

[[gnu::target("avx2")]] int encode16(const uint16_t* row, int count, uint8_t* out) {
    uint8_t* p = out;
    int i = 0;
    for (; i + block_values <= count; i += block_values) {
        const __m256i low = load32(row + i);
        const __m256i high = load32(row + i + 16);
        if (_mm256_testz_si256(_mm256_or_si256(low, high), _mm256_or_si256(low, high))) {
            *p++ = 0;
            continue;
        }
        const __m128i groups[4] = {_mm256_castsi256_si128(low), _mm256_extracti128_si256(low, 1),
                                   _mm256_castsi256_si128(high), _mm256_extracti128_si256(high, 1)};
        const uint32_t codes = block_codes16(low, high);
        *p++ = static_cast<uint8_t>(codes);
        for (int g = 0; g < 4; ++g) p += put_group16(groups[g], codes >> (2 * g) & 3, p);
    }
    // The rest is written to the byte: the bound leaves no room after the
    // field of a group of the rest.
    for (; i + group_values <= count; i += group_values) {
        const __m128i v = load16(row + i);
        if (or_of_group16(v) < 256) {
            *p++ = 1;
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packus_epi16(v, v));
            p += 8;
        } else {
            *p++ = 3;
            store16(p, v);
            p += 16;
        }
    }
    if (i < count) {
        const bool narrow = std::all_of(row + i, row + count, [](uint16_t v) { return v < 256; });
        *p++ = narrow ? 1 : 3;
        for (; i < count; ++i) {
            if (narrow) {
                *p++ = static_cast<uint8_t>(row[i]);
            } else {
                std::memcpy(p, row + i, 2);
                p += 2;
            }
        }
    }
    return static_cast<int>(p - out);
}

[[gnu::target("avx2")]] int decode16(const uint8_t* in, const uint8_t* end, int count, uint16_t* row) {
    const uint8_t* p = in;
    int i = 0;
    for (; i + block_values <= count; i += block_values) {
        if (end - p < worst_block16) {
            const int tail = scalar_block_row_codec.decode16(p, end, count - i, row + i);
            return tail < 0 ? -1 : static_cast<int>(p - in) + tail;
        }
        const int codes = *p++;
        if (codes == 0) {
            store32(row + i, _mm256_setzero_si256());
            store32(row + i + 16, _mm256_setzero_si256());
        } else if (codes == 0x55) {
            store32(row + i, _mm256_cvtepu8_epi16(load16(p)));
            store32(row + i + 16, _mm256_cvtepu8_epi16(load16(p + 16)));
            p += 32;
        } else {
            for (int g = 0; g < 4; ++g) {
                const int code = codes >> (2 * g) & 3;
                store16(row + i + g * group_values, get_group16(p, code));
                p += field_bytes16[code];
            }
        }
    }
    for (; i < count; i += group_values) {
        const int k = std::min(group_values, count - i);
        if (p >= end) return -1;
        const int width = *p++ == 1 ? 1 : 2;
        if (end - p < k * width) return -1;
        if (k == group_values) {
            const __m128i v = width == 1 ? _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)))
                                         : load16(p);
            store16(row + i, v);
            p += group_values * width;
        } else {
            for (int j = 0; j < k; ++j, p += width) row[i + j] = static_cast<uint16_t>(width == 1 ? p[0] : p[0] | p[1] << 8);
        }
    }
    return static_cast<int>(p - in);
}

// ---- 32-bit rows -----------------------------------------------------------

[[gnu::target("avx2")]] __m256i narrow_values32(__m256i v, int code) {
    return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(v, table32(encode32_shuffle[code])),
                                       table32(encode32_permute[code]));
}

[[gnu::target("avx2")]] __m256i widen_field32(const uint8_t* in, int code) {
    return _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(load32(in), table32(decode32_permute[code])),
                               table32(decode32_shuffle[code]));
}

// The rest's mode: 0 for bytes, 1 for byte pairs, else 2 with bit 0 set when
// some value lies in 256..65535.
[[gnu::target("avx2")]] int rest_mode32(__m256i v) {
    const uint32_t m = or_of_group32(v);
    if (m < 256) return 0;
    if (m <= 65535) return 1;
    const __m256i zero = _mm256_setzero_si256();
    const __m256i fits16 = _mm256_cmpeq_epi32(_mm256_and_si256(v, _mm256_set1_epi32(int32_t(0xffff0000))), zero);
    const __m256i below256 = _mm256_cmpeq_epi32(_mm256_and_si256(v, _mm256_set1_epi32(0xff00)), zero);
    return 2 | (_mm256_movemask_epi8(_mm256_andnot_si256(below256, fits16)) != 0);
}

int rest_mode32_plain(const uint32_t* v, int k) {
    const uint32_t m = *std::max_element(v, v + k);
    if (m < 256) return 0;
    if (m <= 65535) return 1;
    return 2 | std::any_of(v, v + k, [](uint32_t x) { return x >= 256 && x <= 65535; });
}

int width_of_mode32(int mode) { return mode == 0 ? 1 : mode == 1 ? 2 : 4; }

[[gnu::target("avx2")]] int encode32(const uint32_t* row, int count, uint8_t* out) {
    uint8_t* p = out;
    int i = 0;
    for (; i + block_values <= count; i += block_values) {
        const __m256i groups[4] = {load32(row + i), load32(row + i + 8), load32(row + i + 16), load32(row + i + 24)};
        const __m256i any = _mm256_or_si256(_mm256_or_si256(groups[0], groups[1]), _mm256_or_si256(groups[2], groups[3]));
        if (_mm256_testz_si256(any, any)) {
            *p++ = 0;
            continue;
        }
        uint8_t* control = p++;
        int codes = 0;
        for (int g = 0; g < 4; ++g) {
            const int code = code_from_largest32(or_of_group32(groups[g]));
            store32(p, narrow_values32(groups[g], code));
            p += field_bytes32[code];
            codes |= code << (2 * g);
        }
        *control = static_cast<uint8_t>(codes);
    }
    for (; i + group_values <= count; i += group_values) {
        const __m256i v = load32(row + i);
        const int mode = rest_mode32(v);
        *p++ = static_cast<uint8_t>(mode);
        const __m256i field = narrow_values32(v, mode == 0 ? 1 : mode == 1 ? 2 : 3);
        if (mode == 0) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(field));
        } else if (mode == 1) {
            store16(p, _mm256_castsi256_si128(field));
        } else {
            store32(p, field);
        }
        p += group_values * width_of_mode32(mode);
    }
    if (i < count) {
        const int k = count - i;
        const int mode = rest_mode32_plain(row + i, k);
        const int width = width_of_mode32(mode);
        *p++ = static_cast<uint8_t>(mode);
        for (; i < count; ++i, p += width) std::memcpy(p, row + i, width);
    }
    return static_cast<int>(p - out);
}

[[gnu::target("avx2")]] int decode32(const uint8_t* in, const uint8_t* end, int count, uint32_t* row) {
    const uint8_t* p = in;
    int i = 0;
    for (; i + block_values <= count; i += block_values) {
        if (end - p < worst_block32) {
            const int tail = scalar_block_row_codec.decode32(p, end, count - i, row + i);
            return tail < 0 ? -1 : static_cast<int>(p - in) + tail;
        }
        const int codes = *p++;
        if (codes == 0) {
            for (int g = 0; g < 4; ++g) store32(row + i + g * group_values, _mm256_setzero_si256());
        } else if (codes == 0x55) {
            for (int g = 0; g < 4; ++g) {
                store32(row + i + g * group_values,
                        _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + 8 * g))));
            }
            p += 32;
        } else {
            for (int g = 0; g < 4; ++g) {
                const int code = codes >> (2 * g) & 3;
                store32(row + i + g * group_values, widen_field32(p, code));
                p += field_bytes32[code];
            }
        }
    }
    for (; i < count; i += group_values) {
        const int k = std::min(group_values, count - i);
        if (p >= end) return -1;
        const int width = width_of_mode32(std::min<int>(*p++, 2));
        if (end - p < k * width) return -1;
        if (k == group_values) {
            __m256i v;
            if (width == 1) {
                v = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
            } else if (width == 2) {
                v = _mm256_cvtepu16_epi32(load16(p));
            } else {
                v = load32(p);
            }
            store32(row + i, v);
            p += group_values * width;
        } else {
            for (int j = 0; j < k; ++j, p += width) {
                uint32_t value = 0;
                std::memcpy(&value, p, width);
                row[i + j] = value;
            }
        }
    }
    return static_cast<int>(p - in);
}

}  // namespace

const BlockRowCodec avx2_block_row_codec = {"avx2", encode16, decode16, encode32, decode32};
