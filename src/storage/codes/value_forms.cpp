#include "storage/codes/value_forms.h"

#include <immintrin.h>

#include <algorithm>

namespace {

// What the processor's truncating conversion gives: values that do not fit a
// 32-bit integer, and NaN, become the "integer indefinite" 0x80000000.
int32_t truncate_to_int32(float value) {
    if (value > -2147483648.0f && value < 2147483648.0f) return static_cast<int32_t>(value);
    return INT32_MIN;
}

uint16_t clamp_to_u16(float value) {
    return static_cast<uint16_t>(std::clamp<int32_t>(truncate_to_int32(value), 0, 65535));
}

uint32_t load_word(const uint8_t* bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, 4);
    return word;
}

void store_word(uint8_t* bytes, uint32_t word) { std::memcpy(bytes, &word, 4); }

// Four values a to d as three little-endian words: a | b << 24,
// b >> 8 | c << 16, c >> 16 | d << 8.
void pack_four_scalar(uint32_t a, uint32_t b, uint32_t c, uint32_t d, uint8_t* out) {
    a &= three_byte_mask;
    b &= three_byte_mask;
    c &= three_byte_mask;
    d &= three_byte_mask;
    store_word(out, a | b << 24);
    store_word(out + 4, b >> 8 | c << 16);
    store_word(out + 8, c >> 16 | d << 8);
}

// Shuffle masks are made where they are used rather than as globals, so that
// no vector instruction runs in static initialisation, before the processor
// check. The compiler keeps them in registers across the loops.

// Byte positions of four 32-bit lanes' low three bytes, back to back.
__m128i compact_three_bytes() { return _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1); }
// The inverse: four 3-byte values into 32-bit lanes.
__m128i spread_three_bytes() { return _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1); }
// Four u16 values into 3-byte form with a zero high byte each.
__m128i widen_four_words() { return _mm_setr_epi8(0, 1, -1, 2, 3, -1, 4, 5, -1, 6, 7, -1, -1, -1, -1, -1); }

// Writes the low 12 bytes of a vector and nothing after them.
void store_twelve_bytes(uint8_t* out, __m128i bytes) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), bytes);
    store_word(out + 8, static_cast<uint32_t>(_mm_extract_epi32(bytes, 2)));
}

}  // namespace

void convert_row_to_u16(const float* row, int count, uint16_t* out) {
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256i whole = _mm256_cvttps_epi32(_mm256_loadu_ps(row + i));
        // Unsigned saturation does the clamp; the "indefinite" value is
        // negative and so lands on 0.
        const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(whole), _mm256_extractf128_si256(whole, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), words);
    }
    for (; i < count; ++i) out[i] = clamp_to_u16(row[i]);
}

void convert_row_to_u16_scalar(const float* row, int count, uint16_t* out) {
    for (int i = 0; i < count; ++i) out[i] = static_cast<uint16_t>(truncate_to_int32(row[i]));
}

void pack_12bit_fields(const uint16_t* v, uint8_t* field) {
    const uint32_t a = v[0] & 0xfff, b = v[1] & 0xfff, c = v[2] & 0xfff, d = v[3] & 0xfff;
    const uint32_t e = v[4] & 0xfff, f = v[5] & 0xfff, g = v[6] & 0xfff, h = v[7] & 0xfff;
    store_word(field, a | b << 12 | c << 24);
    store_word(field + 4, c >> 8 | d << 4 | e << 16 | f << 28);
    store_word(field + 8, f >> 4 | g << 8 | h << 20);
}

void unpack_12bit_fields(const uint8_t* field, uint16_t* v) {
    const uint32_t first = load_word(field), second = load_word(field + 4), third = load_word(field + 8);
    v[0] = static_cast<uint16_t>(first & 0xfff);
    v[1] = static_cast<uint16_t>(first >> 12 & 0xfff);
    v[2] = static_cast<uint16_t>((first >> 24 | second << 8) & 0xfff);
    v[3] = static_cast<uint16_t>(second >> 4 & 0xfff);
    v[4] = static_cast<uint16_t>(second >> 16 & 0xfff);
    v[5] = static_cast<uint16_t>((second >> 28 | third << 4) & 0xfff);
    v[6] = static_cast<uint16_t>(third >> 8 & 0xfff);
    v[7] = static_cast<uint16_t>(third >> 20 & 0xfff);
}

void widen_to_three_byte_scalar(const uint16_t* values, int count, uint8_t* block) {
    int i = 0;
    for (; i + 4 <= count; i += 4) pack_four_scalar(values[i], values[i + 1], values[i + 2], values[i + 3], block + 3 * i);
    for (; i < count; ++i) store_three_byte(block, i, values[i]);
}

void widen_to_three_byte(const uint16_t* values, int count, uint8_t* block) {
    int i = 0;
    for (; i + 4 <= count; i += 4) {
        const __m128i words = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(values + i));
        store_twelve_bytes(block + 3 * i, _mm_shuffle_epi8(words, widen_four_words()));
    }
    for (; i < count; ++i) store_three_byte(block, i, values[i]);
}

void unpack_three_byte_row_scalar(const uint8_t* block, int count, uint32_t* values) {
    for (int i = 0; i < count; ++i) values[i] = load_three_byte(block, i);
}

void unpack_three_byte_row(const uint8_t* block, int count, uint32_t* values) {
    int i = 0;
    // A 16-byte load for four values reaches 4 bytes past them: within the
    // next values or the block's slack.
    for (; i + 4 <= count; i += 4) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + 3 * i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(values + i), _mm_shuffle_epi8(bytes, spread_three_bytes()));
    }
    for (; i < count; ++i) values[i] = load_three_byte(block, i);
}

void pack_three_byte_row_scalar(const uint32_t* values, int count, uint8_t* block) {
    int i = 0;
    for (; i + 4 <= count; i += 4) pack_four_scalar(values[i], values[i + 1], values[i + 2], values[i + 3], block + 3 * i);
    for (; i < count; ++i) store_three_byte(block, i, values[i]);
}

void pack_three_byte_row(const uint32_t* values, int count, uint8_t* block) {
    int i = 0;
    // While another group of four follows, a whole 16-byte store is safe: its
    // last 4 bytes are rewritten by that group.
    for (; i + 8 <= count; i += 4) {
        const __m128i lanes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(values + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(block + 3 * i), _mm_shuffle_epi8(lanes, compact_three_bytes()));
    }
    for (; i + 4 <= count; i += 4) {
        const __m128i lanes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(values + i));
        store_twelve_bytes(block + 3 * i, _mm_shuffle_epi8(lanes, compact_three_bytes()));
    }
    for (; i < count; ++i) store_three_byte(block, i, values[i]);
}
