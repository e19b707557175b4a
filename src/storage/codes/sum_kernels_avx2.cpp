// AVX2 strategy-sum kernels: eight hands at a time, the tail of a row by the
// scalar rule.
#include <immintrin.h>

#include "storage/codes/sum_kernels.h"

namespace {

__attribute__((target("avx2"))) inline __m256i load_u16_as_i32(const uint16_t* values) {
    return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(values)));
}

__attribute__((target("avx2"))) inline __m256i load_u32(const uint32_t* values) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values));
}

// Unsigned 32-bit lanes to f32, rounded once as the scalar conversion rounds:
// both halves convert exactly and only their sum rounds.
__attribute__((target("avx2"))) inline __m256 u32_to_f32(__m256i values) {
    const __m256 high = _mm256_cvtepi32_ps(_mm256_srli_epi32(values, 16));
    const __m256 low = _mm256_cvtepi32_ps(_mm256_and_si256(values, _mm256_set1_epi32(0xffff)));
    return _mm256_add_ps(_mm256_mul_ps(high, _mm256_set1_ps(65536.0f)), low);
}

// Eight int32 lanes back to 16 bits, clamped to 0..65535.
__attribute__((target("avx2"))) inline void store_i32_as_u16(uint16_t* target, __m256i values) {
    const __m128i packed =
        _mm_packus_epi32(_mm256_castsi256_si128(values), _mm256_extracti128_si256(values, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target), packed);
}

// All ones in the lanes whose frozen byte is 0.
__attribute__((target("avx2"))) inline __m256i free_lanes(const uint8_t* frozen) {
    const __m256i bytes = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(frozen)));
    return _mm256_cmpeq_epi32(bytes, _mm256_setzero_si256());
}

__attribute__((target("avx2"))) inline __m256 reciprocal(__m256 value) {
    const __m256 estimate = _mm256_rcp_ps(value);
    return _mm256_mul_ps(estimate, _mm256_sub_ps(_mm256_set1_ps(2.0f), _mm256_mul_ps(value, estimate)));
}

__attribute__((target("avx2"))) float scale_reach_avx2(const float* reach, float weight, int hands, float* scaled) {
    const __m256 weights = _mm256_set1_ps(weight);
    // max_ps returns its second operand when the first is NaN, as the scalar rule does.
    __m256 lanes = _mm256_setzero_ps();
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        const __m256 values = _mm256_mul_ps(weights, _mm256_loadu_ps(reach + h));
        _mm256_storeu_ps(scaled + h, values);
        lanes = _mm256_max_ps(values, lanes);
    }
    alignas(32) float parts[8];
    _mm256_store_ps(parts, lanes);
    float largest = 0.0f;
    for (const float part : parts) largest = part > largest ? part : largest;
    for (; h < hands; ++h) largest = sum_rules::scale_reach(reach, weight, h, scaled, largest);
    return largest;
}

// Integer lanes of either width, to add as 32-bit integers and to divide as f32.
__attribute__((target("avx2"))) inline __m256i load_as_i32(const uint16_t* values) { return load_u16_as_i32(values); }
__attribute__((target("avx2"))) inline __m256i load_as_i32(const uint32_t* values) { return load_u32(values); }
__attribute__((target("avx2"))) inline __m256 as_f32(const uint16_t*, __m256i lanes) { return _mm256_cvtepi32_ps(lanes); }
__attribute__((target("avx2"))) inline __m256 as_f32(const uint32_t*, __m256i lanes) { return u32_to_f32(lanes); }

template <class Value>
__attribute__((target("avx2"))) int strategy_blocks(const Value* values, int stride, int actions, int hands,
                                                    float* const* out, float fallback) {
    const __m256 smallest = _mm256_set1_ps(smallest_normal_f32);
    const __m256 defaults = _mm256_set1_ps(fallback);
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        __m256i sum = _mm256_setzero_si256();
        for (int a = 0; a < actions; ++a) sum = _mm256_add_epi32(sum, load_as_i32(values + a * stride + h));
        const __m256 total = as_f32(values, sum);
        const __m256 usable = _mm256_cmp_ps(total, smallest, _CMP_GE_OQ);
        const __m256 inverse = reciprocal(total);
        for (int a = 0; a < actions; ++a) {
            const __m256 share = _mm256_mul_ps(as_f32(values, load_as_i32(values + a * stride + h)), inverse);
            _mm256_storeu_ps(out[a] + h, _mm256_blendv_ps(defaults, share, usable));
        }
    }
    return h;
}

__attribute__((target("avx2"))) void strategy_u16_avx2(const uint16_t* values, int stride, int actions, int hands,
                                                       float* const* out, float fallback) {
    for (int h = strategy_blocks(values, stride, actions, hands, out, fallback); h < hands; ++h)
        sum_rules::strategy_u16(values, stride, actions, h, out, fallback);
}

__attribute__((target("avx2"))) void strategy_u32_avx2(const uint32_t* values, int stride, int actions, int hands,
                                                       float* const* out, float fallback) {
    for (int h = strategy_blocks(values, stride, actions, hands, out, fallback); h < hands; ++h)
        sum_rules::strategy_u32(values, stride, actions, h, out, fallback);
}

// Two forms of each update, chosen once per row: without a mask there is no
// blend and no test per hand.
template <bool masked>
__attribute__((target("avx2"))) void add_u16_rows(uint16_t* sums, const float* strategy, const float* scaled,
                                                 int hands, const uint8_t* frozen) {
    const __m256 half = _mm256_set1_ps(0.5f);
    const __m256 largest_gain = _mm256_set1_ps(65536.0f);
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        const __m256 gain = _mm256_add_ps(half, _mm256_mul_ps(_mm256_loadu_ps(strategy + h), _mm256_loadu_ps(scaled + h)));
        const __m256i old = load_u16_as_i32(sums + h);
        // min_ps gives its second operand for a NaN, as the scalar rule does.
        __m256i next = _mm256_add_epi32(old, _mm256_cvttps_epi32(_mm256_min_ps(gain, largest_gain)));
        if constexpr (masked) next = _mm256_blendv_epi8(old, next, free_lanes(frozen + h));
        store_i32_as_u16(sums + h, next);
    }
    each_unfrozen_hand(h, hands, masked ? frozen : nullptr, [&](int x) { sum_rules::add_u16(sums, strategy, scaled, x); });
}

__attribute__((target("avx2"))) void add_u16_avx2(uint16_t* sums, const float* strategy, const float* scaled,
                                                 int hands, const uint8_t* frozen) {
    if (frozen) {
        add_u16_rows<true>(sums, strategy, scaled, hands, frozen);
    } else {
        add_u16_rows<false>(sums, strategy, scaled, hands, nullptr);
    }
}

template <bool masked>
__attribute__((target("avx2"))) void add_u32_rows(uint32_t* sums, const float* strategy, const float* scaled,
                                                 int hands, const uint8_t* frozen, uint32_t ceiling) {
    const __m256 half = _mm256_set1_ps(0.5f);
    const __m256i top = _mm256_set1_epi32(static_cast<int32_t>(ceiling));
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        const __m256i old = load_u32(sums + h);
        const __m256 gain = _mm256_add_ps(half, _mm256_mul_ps(_mm256_loadu_ps(strategy + h), _mm256_loadu_ps(scaled + h)));
        const __m256 next_value = _mm256_add_ps(gain, u32_to_f32(old));
        __m256i next = _mm256_min_epu32(_mm256_cvttps_epi32(next_value), top);
        if constexpr (masked) next = _mm256_blendv_epi8(old, next, free_lanes(frozen + h));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + h), next);
    }
    each_unfrozen_hand(h, hands, masked ? frozen : nullptr,
                       [&](int x) { sum_rules::add_u32(sums, strategy, scaled, x, ceiling); });
}

__attribute__((target("avx2"))) void add_u32_avx2(uint32_t* sums, const float* strategy, const float* scaled,
                                                 int hands, const uint8_t* frozen, uint32_t ceiling) {
    if (frozen) {
        add_u32_rows<true>(sums, strategy, scaled, hands, frozen, ceiling);
    } else {
        add_u32_rows<false>(sums, strategy, scaled, hands, nullptr, ceiling);
    }
}

}  // namespace

const SumKernels avx2_sum_kernels = {
    scale_reach_avx2, strategy_u16_avx2, strategy_u32_avx2, add_u16_avx2, add_u32_avx2,
};
