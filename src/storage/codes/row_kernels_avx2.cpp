// AVX2 row kernels: eight hands at a time, the tail of a row by the scalar
// rule. Only the strategy reads differ from the reference, by using a
// reciprocal estimate with one Newton step in place of a division.
#include <immintrin.h>

#include "storage/codes/row_kernels.h"
#include "storage/codes/row_kernels_hand.h"

namespace {

__attribute__((target("avx2"))) inline __m256 load_u16_as_f32(const uint16_t* values) {
    const __m128i words = _mm_loadu_si128(reinterpret_cast<const __m128i*>(values));
    return _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(words));
}

__attribute__((target("avx2"))) inline __m256i load_u16_as_i32(const uint16_t* values) {
    return _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(values)));
}

// Eight int32 lanes known to lie in 0..65535, back to 16 bits.
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

__attribute__((target("avx2"))) inline __m256 three_quarter_power(__m256 magnitude) {
    const __m256 root = _mm256_sqrt_ps(magnitude);
    return _mm256_mul_ps(root, _mm256_sqrt_ps(root));
}

__attribute__((target("avx2"))) inline __m256 difference(const float* action, const float* node, int h) {
    const __m256 value = action ? _mm256_loadu_ps(action + h) : _mm256_setzero_ps();
    return _mm256_sub_ps(value, _mm256_loadu_ps(node + h));
}

// Regret matching for a node of N actions, N known when compiled: the rows,
// their defaults and the output pointers stay in registers across the row.
// Sums are taken in action order, as in the general loops, so the results
// are the same bits.
template <int N>
__attribute__((target("avx2"))) void strategy_f32_fixed(const float* values, int stride, int hands, float* const* out,
                                                       std::span<const float> defaults) {
    const __m256 smallest = _mm256_set1_ps(smallest_normal_f32);
    __m256 fallback[N];
    for (int a = 0; a < N; ++a) fallback[a] = _mm256_set1_ps(row_rules::default_of(defaults, a));
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        __m256 row[N];
        for (int a = 0; a < N; ++a) row[a] = _mm256_loadu_ps(values + a * stride + h);
        __m256 sum = row[0];
        for (int a = 1; a < N; ++a) sum = _mm256_add_ps(sum, row[a]);
        const __m256 usable = _mm256_cmp_ps(sum, smallest, _CMP_GE_OQ);
        const __m256 inverse = reciprocal(sum);
        for (int a = 0; a < N; ++a)
            _mm256_storeu_ps(out[a] + h, _mm256_blendv_ps(fallback[a], _mm256_mul_ps(row[a], inverse), usable));
    }
    for (; h < hands; ++h) row_rules::strategy_f32(values, stride, N, h, out, defaults);
}

template <int N>
__attribute__((target("avx2"))) void strategy_u16_fixed(const uint16_t* values, int stride, int hands, float* const* out,
                                                       std::span<const float> defaults) {
    __m256 fallback[N];
    for (int a = 0; a < N; ++a) fallback[a] = _mm256_set1_ps(row_rules::default_of(defaults, a));
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        // Integer sums of up to 256 rows stay below 2^24, so the f32 sum is exact.
        __m256 row[N];
        for (int a = 0; a < N; ++a) row[a] = load_u16_as_f32(values + a * stride + h);
        __m256 sum = row[0];
        for (int a = 1; a < N; ++a) sum = _mm256_add_ps(sum, row[a]);
        const __m256 usable = _mm256_cmp_ps(sum, _mm256_setzero_ps(), _CMP_GT_OQ);
        const __m256 inverse = reciprocal(sum);
        for (int a = 0; a < N; ++a)
            _mm256_storeu_ps(out[a] + h, _mm256_blendv_ps(fallback[a], _mm256_mul_ps(row[a], inverse), usable));
    }
    for (; h < hands; ++h) row_rules::strategy_u16(values, stride, N, h, out, defaults);
}

__attribute__((target("avx2"))) void strategy_f32_any(const float* values, int stride, int actions, int hands,
                                                     float* const* out, std::span<const float> defaults) {
    const __m256 smallest = _mm256_set1_ps(smallest_normal_f32);
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        __m256 sum = _mm256_loadu_ps(values + h);
        for (int a = 1; a < actions; ++a) sum = _mm256_add_ps(sum, _mm256_loadu_ps(values + a * stride + h));
        const __m256 usable = _mm256_cmp_ps(sum, smallest, _CMP_GE_OQ);
        const __m256 inverse = reciprocal(sum);
        for (int a = 0; a < actions; ++a) {
            const __m256 share = _mm256_mul_ps(_mm256_loadu_ps(values + a * stride + h), inverse);
            const __m256 fallback = _mm256_set1_ps(row_rules::default_of(defaults, a));
            _mm256_storeu_ps(out[a] + h, _mm256_blendv_ps(fallback, share, usable));
        }
    }
    for (; h < hands; ++h) row_rules::strategy_f32(values, stride, actions, h, out, defaults);
}

__attribute__((target("avx2"))) void strategy_f32_avx2(const float* values, int stride, int actions, int hands,
                                                      float* const* out, std::span<const float> defaults) {
    switch (actions) {
        case 2: return strategy_f32_fixed<2>(values, stride, hands, out, defaults);
        case 3: return strategy_f32_fixed<3>(values, stride, hands, out, defaults);
        case 4: return strategy_f32_fixed<4>(values, stride, hands, out, defaults);
        case 5: return strategy_f32_fixed<5>(values, stride, hands, out, defaults);
        case 6: return strategy_f32_fixed<6>(values, stride, hands, out, defaults);
        default: return strategy_f32_any(values, stride, actions, hands, out, defaults);
    }
}

__attribute__((target("avx2"))) void strategy_u16_pair_avx2(const uint16_t* values, int stride, int hands, float* const* out,
                                        float first_default) {
    const __m256 fallback = _mm256_set1_ps(first_default);
    const __m256 one = _mm256_set1_ps(1.0f);
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        const __m256 first = load_u16_as_f32(values + h);
        const __m256 sum = _mm256_add_ps(first, load_u16_as_f32(values + stride + h));
        const __m256 usable = _mm256_cmp_ps(sum, _mm256_setzero_ps(), _CMP_GT_OQ);
        const __m256 share = _mm256_blendv_ps(fallback, _mm256_mul_ps(first, reciprocal(sum)), usable);
        _mm256_storeu_ps(out[0] + h, share);
        _mm256_storeu_ps(out[1] + h, _mm256_sub_ps(one, share));
    }
    for (; h < hands; ++h) row_rules::strategy_u16_pair(values, stride, h, out, first_default);
}

__attribute__((target("avx2"))) void strategy_u16_any(const uint16_t* values, int stride, int actions, int hands,
                                                     float* const* out, std::span<const float> defaults) {
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        __m256 sum = load_u16_as_f32(values + h);
        for (int a = 1; a < actions; ++a) sum = _mm256_add_ps(sum, load_u16_as_f32(values + a * stride + h));
        const __m256 usable = _mm256_cmp_ps(sum, _mm256_setzero_ps(), _CMP_GT_OQ);
        const __m256 inverse = reciprocal(sum);
        for (int a = 0; a < actions; ++a) {
            const __m256 share = _mm256_mul_ps(load_u16_as_f32(values + a * stride + h), inverse);
            const __m256 fallback = _mm256_set1_ps(row_rules::default_of(defaults, a));
            _mm256_storeu_ps(out[a] + h, _mm256_blendv_ps(fallback, share, usable));
        }
    }
    for (; h < hands; ++h) row_rules::strategy_u16(values, stride, actions, h, out, defaults);
}

__attribute__((target("avx2"))) void strategy_u16_avx2(const uint16_t* values, int stride, int actions, int hands,
                                                      float* const* out, std::span<const float> defaults) {
    switch (actions) {
        case 2: return strategy_u16_pair_avx2(values, stride, hands, out, row_rules::default_of(defaults, 0));
        case 3: return strategy_u16_fixed<3>(values, stride, hands, out, defaults);
        case 4: return strategy_u16_fixed<4>(values, stride, hands, out, defaults);
        case 5: return strategy_u16_fixed<5>(values, stride, hands, out, defaults);
        case 6: return strategy_u16_fixed<6>(values, stride, hands, out, defaults);
        default: return strategy_u16_any(values, stride, actions, hands, out, defaults);
    }
}

// The update loops come in two forms, chosen once per row: without a mask
// they have no blend and no test per hand.
template <bool masked>
__attribute__((target("avx2"))) void update_f32_rows(float* row, const float* action, const float* node, int hands,
                                                    const uint8_t* frozen) {
    const __m256 smallest = _mm256_set1_ps(smallest_normal_f32);
    const __m256 sign = _mm256_set1_ps(-0.0f);
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        const __m256 d = difference(action, node, h);
        const __m256 magnitude = _mm256_andnot_ps(sign, d);
        __m256 step = three_quarter_power(magnitude);
        const __m256 negative = _mm256_cmp_ps(d, _mm256_setzero_ps(), _CMP_LT_OQ);
        step = _mm256_blendv_ps(step, _mm256_xor_ps(step, sign), negative);
        const __m256 old = _mm256_loadu_ps(row + h);
        __m256 next = _mm256_add_ps(old, step);
        next = _mm256_andnot_ps(_mm256_cmp_ps(next, smallest, _CMP_LT_OQ), next);
        if constexpr (masked) next = _mm256_blendv_ps(old, next, _mm256_castsi256_ps(free_lanes(frozen + h)));
        _mm256_storeu_ps(row + h, next);
    }
    each_unfrozen_hand(h, hands, masked ? frozen : nullptr, [&](int x) { row_rules::update_f32(row, action, node, x); });
}

__attribute__((target("avx2"))) void update_f32_avx2(float* row, const float* action, const float* node, int hands,
                                                    const uint8_t* frozen) {
    if (frozen) {
        update_f32_rows<true>(row, action, node, hands, frozen);
    } else {
        update_f32_rows<false>(row, action, node, hands, nullptr);
    }
}

template <bool masked>
__attribute__((target("avx2"))) void update_u16_rows(uint16_t* row, const float* action, const float* node, int hands,
                                                    const uint8_t* frozen, float gain, float threshold) {
    const __m256 gains = _mm256_set1_ps(gain);
    const __m256 upper = _mm256_set1_ps(threshold);
    const __m256 lower = _mm256_set1_ps(-threshold);
    const __m256 sign = _mm256_set1_ps(-0.0f);
    const __m256i low_half = _mm256_set1_epi32(0xffff);
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        const __m256 d = difference(action, node, h);
        const __m256 root = _mm256_sqrt_ps(_mm256_andnot_ps(sign, d));
        const __m256 step = _mm256_mul_ps(_mm256_mul_ps(gains, root), _mm256_sqrt_ps(root));
        const __m256i old = load_u16_as_i32(row + h);
        const __m256i raised = _mm256_and_si256(_mm256_add_epi32(old, _mm256_cvttps_epi32(step)), low_half);
        const __m256i lowered = _mm256_max_epi32(
            _mm256_add_epi32(old, _mm256_cvttps_epi32(_mm256_xor_ps(step, sign))), _mm256_setzero_si256());
        const __m256i up = _mm256_castps_si256(_mm256_cmp_ps(d, upper, _CMP_GE_OQ));
        const __m256i down = _mm256_castps_si256(_mm256_cmp_ps(d, lower, _CMP_LE_OQ));
        __m256i next = _mm256_blendv_epi8(old, raised, up);
        next = _mm256_blendv_epi8(next, lowered, down);
        if constexpr (masked) next = _mm256_blendv_epi8(old, next, free_lanes(frozen + h));
        store_i32_as_u16(row + h, next);
    }
    each_unfrozen_hand(h, hands, masked ? frozen : nullptr,
                       [&](int x) { row_rules::update_u16(row, action, node, x, gain, threshold); });
}

__attribute__((target("avx2"))) void update_u16_avx2(uint16_t* row, const float* action, const float* node, int hands,
                                                    const uint8_t* frozen, float gain, float threshold) {
    if (frozen) {
        update_u16_rows<true>(row, action, node, hands, frozen, gain, threshold);
    } else {
        update_u16_rows<false>(row, action, node, hands, nullptr, gain, threshold);
    }
}

template <bool masked>
__attribute__((target("avx2"))) void add_strategy_f32_rows(float* sums, const float* strategy, const float* reach,
                                                          float weight, int hands, const uint8_t* frozen) {
    const __m256 weights = _mm256_set1_ps(weight);
    int h = 0;
    for (; h + 8 <= hands; h += 8) {
        const __m256 scaled = _mm256_mul_ps(weights, _mm256_loadu_ps(reach + h));
        const __m256 old = _mm256_loadu_ps(sums + h);
        __m256 next = _mm256_add_ps(old, _mm256_mul_ps(_mm256_loadu_ps(strategy + h), scaled));
        if constexpr (masked) next = _mm256_blendv_ps(old, next, _mm256_castsi256_ps(free_lanes(frozen + h)));
        _mm256_storeu_ps(sums + h, next);
    }
    each_unfrozen_hand(h, hands, masked ? frozen : nullptr,
                       [&](int x) { row_rules::add_strategy(sums, strategy, reach, weight, x); });
}

__attribute__((target("avx2"))) void add_strategy_f32_avx2(float* sums, const float* strategy, const float* reach,
                                                          float weight, int hands, const uint8_t* frozen) {
    if (frozen) {
        add_strategy_f32_rows<true>(sums, strategy, reach, weight, hands, frozen);
    } else {
        add_strategy_f32_rows<false>(sums, strategy, reach, weight, hands, nullptr);
    }
}

}  // namespace

const RowKernels avx2_row_kernels = {
    strategy_f32_avx2, strategy_u16_avx2, update_f32_avx2, update_u16_avx2, add_strategy_f32_avx2,
};
