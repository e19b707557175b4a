// The evaluation kernels for processors with AVX-512 (F, VL, BW, DQ), used
// when enable_avx512 is on. Single-leaf values are written sixteen hands at a
// time under a lane mask, so a small strength group is one masked step and no
// run needs a scalar tail. The wide kernels are the shared lane code compiled
// for this target.
#include <immintrin.h>

#include <cmath>

#include "solver/kernels_lanes.h"
#include "solver/kernels_runout.h"
#include "solver/kernels_single_entries.h"

using namespace kernel_lanes;
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

// Pass 2 of a single leaf: record by record, the live hands step up to a tie,
// the list hands take their values, and the live hands step up to a win.
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] void run_single(SingleSweep& sweep,
                                                                               const uint16_t* hand_cards,
                                                                               float* out) {
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

[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] bool fold_1(float* out, const float* reach, int count, const uint16_t* hand_cards, float payoff) {
    return fold_1_entry<Writers>(out, reach, count, hand_cards, payoff);
}

template <int N>
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] bool fold_n(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
                const float* payoffs) {
    return fold_lanes<N>(outs, reaches, count, hand_cards, payoffs);
}

[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] bool showdown_1(float* out, const float* reach, const ShowdownList& list, float payoff) {
    return showdown_1_entry<Writers>(out, reach, list, payoff);
}

template <int N>
[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] bool showdown_n(float* const* outs, const float* const* reaches, const ShowdownList& list, const float* payoffs) {
    return showdown_lanes<N>(outs, reaches, list, payoffs);
}

[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] bool river_pair(float* out_showdown, float* out_fold, const float* reach, const ShowdownList& list,
                    float payoff_showdown, float payoff_fold) {
    return river_pair_entry<Writers>(out_showdown, out_fold, reach, list, payoff_showdown, payoff_fold);
}

[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] bool river_pair_2(float* out_showdown, float* out_fold, const float* reach_showdown, const float* reach_fold,
                      const ShowdownList& list, float payoff_showdown, float payoff_fold) {
    return river_pair_2_entry<Writers>(out_showdown, out_fold, reach_showdown, reach_fold, list, payoff_showdown,
                                       payoff_fold);
}

[[gnu::target("avx512f,avx512vl,avx512bw,avx512dq,avx2,fma")]] bool runout(float* out, const float* reach, int count, const int8_t* wins, float payoff) {
    return kernel_runout::runout_body(out, reach, count, wins, payoff);
}

}  // namespace

const EvalKernels avx512_eval_kernels = {
    fold_1,
    {nullptr, nullptr, fold_n<2>, fold_n<3>, fold_n<4>},
    showdown_1,
    {nullptr, nullptr, showdown_n<2>, showdown_n<3>, showdown_n<4>, showdown_n<5>, showdown_n<6>, showdown_n<7>,
     showdown_n<8>},
    river_pair,
    river_pair_2,
    runout,
};
