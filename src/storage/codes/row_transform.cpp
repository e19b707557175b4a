#include "storage/codes/row_transform.h"

#include <immintrin.h>

#include "shell/protocol/processor.h"
#include "shell/protocol/reply.h"
#include "storage/codes/codec.h"

namespace {

void check_row_length(int count) {
    if (count > max_row_values) fail("");
}

// Both forms in one pass. The loops are simple enough for the compiler to
// vectorise, and the same body is compiled once per instruction set below.
template <class Value>
[[gnu::always_inline]] inline TransformedRow transform_body(const Value* row, const Value* previous, int count,
                                                            uint32_t* plain, uint32_t* against_previous) {
    if (count <= 0) return {plain, 0};
    if (!previous) {
        plain[0] = zigzag(static_cast<int32_t>(row[0]));
        for (int i = 1; i < count; ++i) {
            plain[i] = zigzag(static_cast<int32_t>(static_cast<uint32_t>(row[i]) - static_cast<uint32_t>(row[i - 1])));
        }
        return {plain, 0};
    }
    const uint32_t first = zigzag(static_cast<int32_t>(static_cast<uint32_t>(row[0]) - static_cast<uint32_t>(previous[0])));
    plain[0] = first;
    against_previous[0] = first;
    // Position 0 is the same in both forms, so only the rest is counted.
    int plain_nonzero = 0;
    int against_nonzero = 0;
    for (int i = 1; i < count; ++i) {
        const uint32_t step = static_cast<uint32_t>(row[i]) - static_cast<uint32_t>(row[i - 1]);
        const uint32_t previous_step = static_cast<uint32_t>(previous[i]) - static_cast<uint32_t>(previous[i - 1]);
        const uint32_t a = zigzag(static_cast<int32_t>(step));
        const uint32_t b = zigzag(static_cast<int32_t>(step - previous_step));
        plain[i] = a;
        against_previous[i] = b;
        plain_nonzero += a != 0;
        against_nonzero += b != 0;
    }
    if (against_nonzero < plain_nonzero) return {against_previous, 1};
    return {plain, 0};
}

TransformedRow transform32_avx(const uint32_t* row, const uint32_t* previous, int count, uint32_t* a, uint32_t* b) {
    return transform_body(row, previous, count, a, b);
}
[[gnu::target("avx2")]] TransformedRow transform32_avx2(const uint32_t* row, const uint32_t* previous, int count,
                                                        uint32_t* a, uint32_t* b) {
    return transform_body(row, previous, count, a, b);
}
TransformedRow transform16_avx(const uint16_t* row, const uint16_t* previous, int count, uint32_t* a, uint32_t* b) {
    return transform_body(row, previous, count, a, b);
}
[[gnu::target("avx2")]] TransformedRow transform16_avx2(const uint16_t* row, const uint16_t* previous, int count,
                                                        uint32_t* a, uint32_t* b) {
    return transform_body(row, previous, count, a, b);
}

// ---------------------------------------------------------------------------
// Inverse: a running sum four lanes at a time.

inline __m128i unzigzag4(__m128i u) {
    const __m128i sign = _mm_sub_epi32(_mm_setzero_si128(), _mm_and_si128(u, _mm_set1_epi32(1)));
    return _mm_xor_si128(_mm_srli_epi32(u, 1), sign);
}

// Running sum of four lanes, with `carry` (the sum so far in every lane) added.
inline __m128i running_sum4(__m128i x, __m128i carry) {
    x = _mm_add_epi32(x, _mm_slli_si128(x, 4));
    x = _mm_add_epi32(x, _mm_slli_si128(x, 8));
    return _mm_add_epi32(x, carry);
}

inline __m128i last_lane(__m128i x) { return _mm_shuffle_epi32(x, 0xff); }

inline __m128i load_previous4(const uint32_t* previous) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(previous));
}
inline __m128i load_previous4(const uint16_t* previous) {
    return _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(previous)));
}

inline void store4(uint32_t* row, __m128i x) { _mm_storeu_si128(reinterpret_cast<__m128i*>(row), x); }
inline void store4(uint16_t* row, __m128i x) {
    // Low halves of the four lanes: truncation, as the narrow row keeps them.
    const __m128i low_halves = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(row), _mm_shuffle_epi8(x, low_halves));
}

template <class Value>
void untransform_body(const uint32_t* coded, int flag, const Value* previous, int count, Value* row) {
    if (count <= 0) return;
    // Without the second form the whole row is offset by the previous row's
    // first value; with it, by the previous row value for value.
    const bool add_previous_row = flag != 0 && previous;
    const uint32_t offset = (!add_previous_row && previous) ? static_cast<uint32_t>(previous[0]) : 0;
    const __m128i offset4 = _mm_set1_epi32(static_cast<int>(offset));
    __m128i carry = _mm_setzero_si128();
    int i = 0;
    for (; i + 4 <= count; i += 4) {
        const __m128i sums =
            running_sum4(unzigzag4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(coded + i))), carry);
        carry = last_lane(sums);
        const __m128i base = add_previous_row ? load_previous4(previous + i) : offset4;
        store4(row + i, _mm_add_epi32(sums, base));
    }
    uint32_t sum = static_cast<uint32_t>(_mm_cvtsi128_si32(carry));
    for (; i < count; ++i) {
        sum += static_cast<uint32_t>(unzigzag(coded[i]));
        const uint32_t base = add_previous_row ? static_cast<uint32_t>(previous[i]) : offset;
        row[i] = static_cast<Value>(sum + base);
    }
}

}  // namespace

TransformedRow transform_row32(const uint32_t* row, const uint32_t* previous, int count, uint32_t* scratch,
                               uint32_t* second_scratch) {
    check_row_length(count);
    if (avx2_runs()) return transform32_avx2(row, previous, count, scratch, second_scratch);
    return transform32_avx(row, previous, count, scratch, second_scratch);
}

TransformedRow transform_row16(const uint16_t* row, const uint16_t* previous, int count, uint32_t* scratch,
                               uint32_t* second_scratch) {
    check_row_length(count);
    if (avx2_runs()) return transform16_avx2(row, previous, count, scratch, second_scratch);
    return transform16_avx(row, previous, count, scratch, second_scratch);
}

void untransform_row32(const uint32_t* coded, int flag, const uint32_t* previous, int count, uint32_t* row) {
    check_row_length(count);
    untransform_body(coded, flag, previous, count, row);
}

void untransform_row16(const uint32_t* coded, int flag, const uint16_t* previous, int count, uint16_t* row) {
    check_row_length(count);
    untransform_body(coded, flag, previous, count, row);
}
