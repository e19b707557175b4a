// The runout kernel's body for the vector files: AVX2 instructions, forced
// inline, so each file compiles it for its own target. Rows of four live
// opposing hands are added at a time, so the values are loaded and stored
// once per four rows.
#pragma once

#include <immintrin.h>

#include "solver/kernels/kernels_common.h"

namespace {
namespace kernel_runout {

// Turn lists hold at most two of the 48 unseen cards.
constexpr int max_turn_hands = 1128;

[[gnu::always_inline, gnu::target("avx2,fma")]] inline __m256 row_values(const int8_t* row, int x) {
    return _mm256_cvtepi32_ps(_mm256_cvtepi8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(row + x))));
}

template <int Rows>
[[gnu::always_inline, gnu::target("avx2,fma")]] inline void add_rows(float* out, int count, const int8_t* const* rows, const float* weights) {
    __m256 scale[Rows];
    for (int k = 0; k < Rows; ++k) scale[k] = _mm256_set1_ps(weights[k]);
    int x = 0;
    for (; x + 8 <= count; x += 8) {
        __m256 sum = _mm256_loadu_ps(out + x);
        for (int k = 0; k < Rows; ++k) sum = _mm256_fmadd_ps(scale[k], row_values(rows[k], x), sum);
        _mm256_storeu_ps(out + x, sum);
    }
    for (; x < count; ++x)
        for (int k = 0; k < Rows; ++k) out[x] += weights[k] * static_cast<float>(rows[k][x]);
}

[[gnu::always_inline, gnu::target("avx2,fma")]] inline bool runout_body(float* out, const float* reach, int count, const int8_t* wins,
                                               float payoff) {
    if (!reach) return kernel_rules::fill_zeros(out, count);
    const int8_t* rows[max_turn_hands];
    float weights[max_turn_hands];
    int live = 0;
    for (int o = 0; o < count; ++o) {
        if (!kernel_rules::has_reach(reach[o])) continue;
        rows[live] = wins + static_cast<size_t>(o) * count;
        weights[live++] = payoff * reach[o];
    }
    kernel_rules::fill_zeros(out, count);
    if (live == 0) return false;
    int k = 0;
    for (; k + 4 <= live; k += 4) add_rows<4>(out, count, rows + k, weights + k);
    switch (live - k) {
    case 3: add_rows<3>(out, count, rows + k, weights + k); break;
    case 2: add_rows<2>(out, count, rows + k, weights + k); break;
    case 1: add_rows<1>(out, count, rows + k, weights + k); break;
    default: break;
    }
    return true;
}

}  // namespace kernel_runout
}  // namespace
