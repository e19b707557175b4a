// The entry points and the table of one vector kernel set. Each vector file
// defines write_others and write_fold for its instruction set, then includes
// this file inside a `#pragma GCC target` region of that set, so that every
// function here, and every forced-inline body it takes in, is compiled for
// it. Only the two writers of pass 2 differ between the sets.
#pragma once

#include "solver/kernels/kernels_lanes.h"
#include "solver/kernels/kernels_runout.h"
#include "solver/kernels/kernels_single_entries.h"

namespace {
namespace kernel_set {

using namespace kernel_lanes;
using namespace kernel_single;

// Pass 2 of a single leaf: record by record, the live hands step up to a tie,
// the list hands take their values, and the live hands step up to a win.
void run_single(SingleSweep& sweep, const uint16_t* hand_cards, float* out) {
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
        kernel_set::run_single(sweep, hand_cards, out);
    }
    [[gnu::always_inline]] static void write_fold(float* out, const float* reach, int count,
                                                  const uint16_t* hand_cards, const float* card_sum, float total,
                                                  float payoff) {
        ::write_fold(out, reach, count, hand_cards, card_sum, total, payoff);
    }
};

bool fold_1(float* out, const float* reach, int count, const uint16_t* hand_cards, float payoff) {
    return fold_1_entry<Writers>(out, reach, count, hand_cards, payoff);
}

template <int N>
bool fold_n(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
            const float* payoffs) {
    return fold_lanes<N>(outs, reaches, count, hand_cards, payoffs);
}

bool showdown_1(float* out, const float* reach, const ShowdownList& list, float payoff) {
    return showdown_1_entry<Writers>(out, reach, list, payoff);
}

template <int N>
bool showdown_n(float* const* outs, const float* const* reaches, const ShowdownList& list, const float* payoffs) {
    return showdown_lanes<N>(outs, reaches, list, payoffs);
}

bool river_pair(float* out_showdown, float* out_fold, const float* reach, const ShowdownList& list,
                float payoff_showdown, float payoff_fold) {
    return river_pair_entry<Writers>(out_showdown, out_fold, reach, list, payoff_showdown, payoff_fold);
}

bool river_pair_2(float* out_showdown, float* out_fold, const float* reach_showdown, const float* reach_fold,
                  const ShowdownList& list, float payoff_showdown, float payoff_fold) {
    return river_pair_2_entry<Writers>(out_showdown, out_fold, reach_showdown, reach_fold, list, payoff_showdown,
                                       payoff_fold);
}

bool runout(float* out, const float* reach, int count, const int8_t* wins, float payoff) {
    return kernel_runout::runout_body(out, reach, count, wins, payoff);
}

constexpr EvalKernels table = {
    fold_1,
    {nullptr, nullptr, fold_n<2>, fold_n<3>, fold_n<4>},
    showdown_1,
    {nullptr, nullptr, showdown_n<2>, showdown_n<3>, showdown_n<4>, showdown_n<5>, showdown_n<6>, showdown_n<7>,
     showdown_n<8>},
    river_pair,
    river_pair_2,
    runout,
};

}  // namespace kernel_set
}  // namespace
