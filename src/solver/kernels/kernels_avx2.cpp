// The evaluation kernels for processors with AVX2 and FMA: the shared bodies
// of kernels_set.h compiled for this target, with single-leaf values written
// eight hands at a time, gathering the per-card sums at both cards of each
// hand.
#include <immintrin.h>

#include <cmath>

#include "solver/kernels/kernels_single.h"

using namespace kernel_single;
using kernel_rules::fill_zeros;
using kernel_rules::has_reach;
using kernel_rules::high_card;
using kernel_rules::low_card;

namespace {

[[gnu::target("avx2,fma")]] inline void split_cards(const uint16_t* hand_cards, int h, __m256i& low, __m256i& high) {
    const __m256i words = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(hand_cards + h)));
    low = _mm256_and_si256(words, _mm256_set1_epi32(0xFF));
    high = _mm256_srli_epi32(words, 8);
}

// out[h] = total - card_sum[c1] - card_sum[c2] for the hands [h, end).
[[gnu::target("avx2,fma")]] inline void write_others(float* out, const uint16_t* hand_cards, int h, int end,
                                                     const float* card_sum, float total) {
    const __m256 totals = _mm256_set1_ps(total);
    for (; h + 8 <= end; h += 8) {
        __m256i low, high;
        split_cards(hand_cards, h, low, high);
        const __m256 others = _mm256_sub_ps(totals, _mm256_i32gather_ps(card_sum, low, 4));
        _mm256_storeu_ps(out + h, _mm256_sub_ps(others, _mm256_i32gather_ps(card_sum, high, 4)));
    }
    for (; h < end; ++h) out[h] = total - card_sum[low_card(hand_cards[h])] - card_sum[high_card(hand_cards[h])];
}

// A fold's values: out = (total - card_sum[c1] - card_sum[c2]) + payoff * reach,
// the last term giving back the hand itself, which was taken off twice.
[[gnu::target("avx2,fma")]] void write_fold(float* out, const float* reach, int count, const uint16_t* hand_cards,
                                            const float* card_sum, float total, float payoff) {
    const __m256 totals = _mm256_set1_ps(total);
    const __m256 payoffs = _mm256_set1_ps(payoff);
    const __m256 smallest = _mm256_set1_ps(smallest_normal_f32);
    int h = 0;
    for (; h + 8 <= count; h += 8) {
        __m256i low, high;
        split_cards(hand_cards, h, low, high);
        const __m256 others = _mm256_sub_ps(_mm256_sub_ps(totals, _mm256_i32gather_ps(card_sum, low, 4)),
                                            _mm256_i32gather_ps(card_sum, high, 4));
        const __m256 r = _mm256_loadu_ps(reach + h);
        const __m256 live = _mm256_and_ps(r, _mm256_cmp_ps(r, smallest, _CMP_GE_OQ));
        _mm256_storeu_ps(out + h, _mm256_fmadd_ps(payoffs, live, others));
    }
    for (; h < count; ++h) {
        const float self = has_reach(reach[h]) ? payoff * reach[h] : 0.0f;
        out[h] = (total - card_sum[low_card(hand_cards[h])] - card_sum[high_card(hand_cards[h])]) + self;
    }
}

}  // namespace

#pragma GCC push_options
#pragma GCC target("avx2,fma")
#include "solver/kernels/kernels_set.h"
#pragma GCC pop_options

const EvalKernels avx2_eval_kernels = kernel_set::table;
