// The evaluation kernels for processors with AVX-512 (F, VL, BW, DQ), used
// when enable_avx512 is on: the shared bodies of kernels_set.h compiled for
// this target. Single-leaf values are written sixteen hands at a time under a
// lane mask, so a small strength group is one masked step and no run needs a
// scalar tail.
#include <immintrin.h>

#include <cmath>

#include "solver/kernels/kernels_single.h"

using namespace kernel_single;
using kernel_rules::fill_zeros;

namespace {

// Lanes 0 .. n-1 of sixteen.
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] inline __mmask16 first_lanes(int n) {
    return n >= 16 ? __mmask16{0xFFFF} : static_cast<__mmask16>((1u << n) - 1);
}

// The sums at both cards of hands h .. h+15, lanes outside `lanes` zero.
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] inline __m512 card_sums_of(
    const uint16_t* hand_cards, int h, __mmask16 lanes, const float* card_sum) {
    // The zero-masked forms: the plain ones start from an undefined register.
    const __m512i words = _mm512_maskz_cvtepu16_epi32(lanes, _mm256_maskz_loadu_epi16(lanes, hand_cards + h));
    const __m512i low = _mm512_and_si512(words, _mm512_set1_epi32(0xFF));
    const __m512i high = _mm512_maskz_srli_epi32(lanes, words, 8);
    const __m512 at_low = _mm512_mask_i32gather_ps(_mm512_setzero_ps(), lanes, low, card_sum, 4);
    const __m512 at_high = _mm512_mask_i32gather_ps(_mm512_setzero_ps(), lanes, high, card_sum, 4);
    return _mm512_add_ps(at_low, at_high);
}

// out[h] = total - card_sum[c1] - card_sum[c2] for the hands [h, end).
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] inline void write_others(
    float* out, const uint16_t* hand_cards, int h, int end, const float* card_sum, float total) {
    const __m512 totals = _mm512_set1_ps(total);
    for (; h < end; h += 16) {
        const __mmask16 lanes = first_lanes(end - h);
        _mm512_mask_storeu_ps(out + h, lanes, _mm512_sub_ps(totals, card_sums_of(hand_cards, h, lanes, card_sum)));
    }
}

// A fold's values: out = (total - card_sum[c1] - card_sum[c2]) + payoff * reach,
// the last term giving back the hand itself, which was taken off twice.
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] void write_fold(
    float* out, const float* reach, int count, const uint16_t* hand_cards, const float* card_sum, float total,
    float payoff) {
    const __m512 totals = _mm512_set1_ps(total);
    const __m512 payoffs = _mm512_set1_ps(payoff);
    const __m512 smallest = _mm512_set1_ps(smallest_normal_f32);
    for (int h = 0; h < count; h += 16) {
        const __mmask16 lanes = first_lanes(count - h);
        const __m512 others = _mm512_sub_ps(totals, card_sums_of(hand_cards, h, lanes, card_sum));
        const __m512 r = _mm512_maskz_loadu_ps(lanes, reach + h);
        const __m512 live = _mm512_maskz_mov_ps(_mm512_cmp_ps_mask(r, smallest, _CMP_GE_OQ), r);
        _mm512_mask_storeu_ps(out + h, lanes, _mm512_fmadd_ps(payoffs, live, others));
    }
}

}  // namespace

#pragma GCC push_options
#pragma GCC target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")
#include "solver/kernels/kernels_set.h"
#pragma GCC pop_options

const EvalKernels avx512_eval_kernels = kernel_set::table;
