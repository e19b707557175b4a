// The evaluation kernels for processors with AVX2 and FMA. The wide kernels
// are the shared lane code of kernels_lanes.h compiled for this target; the
// single-leaf kernels write their values eight hands at a time, gathering the
// per-card sums at both cards of each hand.
#include <immintrin.h>

#include <cmath>

#include "solver/kernels_lanes.h"
#include "solver/kernels_runout.h"
#include "solver/kernels_single_entries.h"

using namespace kernel_lanes;
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

// Pass 2 of a single leaf: record by record, the live hands step up to a tie,
// the list hands take their values, and the live hands step up to a win.
[[gnu::target("avx2,fma")]] void run_single(SingleSweep& sweep, const uint16_t* hand_cards, float* out) {
    int h = 0;
    int delta = 0;
    for (int r = 0; r < sweep.record_count; ++r) {
        const kernel_rules::SweepRecord record = sweep.records[r];
        if (record.live) raise_record(sweep, delta);
        write_others(out, hand_cards, h, h + record.hands, sweep.card_sum, sweep.total);
        h += record.hands;
        if (record.live) raise_record(sweep, delta++);
    }
}

// Pass 2's writers of this instruction set, for the shared single-leaf bodies.
struct Writers {
    [[gnu::always_inline]] static void run_single(SingleSweep& sweep, const uint16_t* hand_cards, float* out) {
        ::run_single(sweep, hand_cards, out);
    }
    [[gnu::always_inline]] static void write_fold(float* out, const float* reach, int count, const uint16_t* hand_cards,
                           const float* card_sum, float total, float payoff) {
        ::write_fold(out, reach, count, hand_cards, card_sum, total, payoff);
    }
};

[[gnu::target("avx2,fma")]] bool fold_1(float* out, const float* reach, int count, const uint16_t* hand_cards, float payoff) {
    return fold_1_entry<Writers>(out, reach, count, hand_cards, payoff);
}

template <int N>
[[gnu::target("avx2,fma")]] bool fold_n(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
                const float* payoffs) {
    return fold_lanes<N>(outs, reaches, count, hand_cards, payoffs);
}

[[gnu::target("avx2,fma")]] bool showdown_1(float* out, const float* reach, const ShowdownList& list, float payoff) {
    return showdown_1_entry<Writers>(out, reach, list, payoff);
}

template <int N>
[[gnu::target("avx2,fma")]] bool showdown_n(float* const* outs, const float* const* reaches, const ShowdownList& list, const float* payoffs) {
    return showdown_lanes<N>(outs, reaches, list, payoffs);
}

[[gnu::target("avx2,fma")]] bool river_pair(float* out_showdown, float* out_fold, const float* reach, const ShowdownList& list,
                    float payoff_showdown, float payoff_fold) {
    return river_pair_entry<Writers>(out_showdown, out_fold, reach, list, payoff_showdown, payoff_fold);
}

[[gnu::target("avx2,fma")]] bool river_pair_2(float* out_showdown, float* out_fold, const float* reach_showdown, const float* reach_fold,
                      const ShowdownList& list, float payoff_showdown, float payoff_fold) {
    return river_pair_2_entry<Writers>(out_showdown, out_fold, reach_showdown, reach_fold, list, payoff_showdown,
                                       payoff_fold);
}

[[gnu::target("avx2,fma")]] bool runout(float* out, const float* reach, int count, const int8_t* wins, float payoff) {
    return kernel_runout::runout_body(out, reach, count, wins, payoff);
}

}  // namespace

const EvalKernels avx2_eval_kernels = {
    fold_1,
    {nullptr, nullptr, fold_n<2>, fold_n<3>, fold_n<4>},
    showdown_1,
    {nullptr, nullptr, showdown_n<2>, showdown_n<3>, showdown_n<4>, showdown_n<5>, showdown_n<6>, showdown_n<7>,
     showdown_n<8>},
    river_pair,
    river_pair_2,
    runout,
};
