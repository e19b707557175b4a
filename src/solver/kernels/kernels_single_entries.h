// The single-leaf kernels (one fold, one showdown, the river pair) as the
// vector files compile them. Only the two writers of pass 2 differ between
// instruction sets, so each file hands its own in as `Writers`: a type with
// static run_single(sweep, hand_cards, out) and write_fold(out, reach,
// count, hand_cards, card_sum, total, payoff). Forced inline, so each file's
// entry points take the bodies with their own target.
#pragma once

#include <cmath>

#include "solver/kernels/kernels_single.h"

namespace {
namespace kernel_single {

template <class Writers>
[[gnu::always_inline]] inline bool fold_1_entry(float* out, const float* reach, int count, const uint16_t* hand_cards,
                                                float payoff) {
    if (!reach) return kernel_rules::fill_zeros(out, count);
    alignas(32) float card_sum[card_slots];
    const float total = fold_card_sums(reach, count, hand_cards, payoff, card_sum);
    if (!(std::fabs(total) > smallest_normal_f32)) return kernel_rules::fill_zeros(out, count);
    Writers::write_fold(out, reach, count, hand_cards, card_sum, total, payoff);
    return true;
}

template <class Writers>
[[gnu::always_inline]] inline bool showdown_1_entry(float* out, const float* reach, const ShowdownList& list,
                                                    float payoff) {
    if (!reach) return kernel_rules::fill_zeros(out, list.count);
    SingleSweep sweep;
    build_single<false>(sweep, nullptr, reach, nullptr, list, payoff);
    if (sweep.total == 0.0f) return kernel_rules::fill_zeros(out, list.count);
    Writers::run_single(sweep, list.hand_cards, out);
    return true;
}

template <class Writers>
[[gnu::always_inline]] inline bool river_pair_entry(float* out_showdown, float* out_fold, const float* reach,
                                                    const ShowdownList& list, float payoff_showdown,
                                                    float payoff_fold) {
    SingleSweep sweep;
    if (reach) build_single<false>(sweep, nullptr, reach, nullptr, list, 1.0f);
    if (!reach || sweep.total == 0.0f) {
        kernel_rules::fill_zeros(out_showdown, list.count);
        return kernel_rules::fill_zeros(out_fold, list.count);
    }
    FoldHalf fold;
    split_pair(sweep, fold, payoff_showdown, payoff_fold);
    Writers::run_single(sweep, list.hand_cards, out_showdown);
    Writers::write_fold(out_fold, reach, list.count, list.hand_cards, fold.card_sum, fold.total, payoff_fold);
    return true;
}

template <class Writers>
[[gnu::always_inline]] inline bool river_pair_2_entry(float* out_showdown, float* out_fold, const float* reach_showdown,
                                                      const float* reach_fold, const ShowdownList& list,
                                                      float payoff_showdown, float payoff_fold) {
    SingleSweep sweep;
    FoldHalf fold;
    build_single<true>(sweep, &fold, reach_showdown, reach_fold, list, 1.0f);
    if (sweep.total == 0.0f && fold.total == 0.0f) {
        kernel_rules::fill_zeros(out_showdown, list.count);
        return kernel_rules::fill_zeros(out_fold, list.count);
    }
    scale_pair(sweep, fold, payoff_showdown, payoff_fold);
    Writers::run_single(sweep, list.hand_cards, out_showdown);
    Writers::write_fold(out_fold, reach_fold, list.count, list.hand_cards, fold.card_sum, fold.total, payoff_fold);
    return true;
}

}  // namespace kernel_single
}  // namespace
