// The public kernel entry points: each asks kernel_isa() on every call, so a
// change of enable_avx512 takes effect at the next leaf, and the batches split
// their leaves into blocks by simd_level.
#include <algorithm>

#include "solver/kernels/kernels_common.h"

const EvalKernels& eval_kernels_for(VectorIsa isa) {
    switch (isa) {
    case VectorIsa::avx512: return avx512_eval_kernels;
    case VectorIsa::avx2: return avx2_eval_kernels;
    case VectorIsa::avx: break;
    }
    return scalar_eval_kernels;
}

namespace {

const EvalKernels& current() { return eval_kernels_for(kernel_isa()); }

}  // namespace

bool eval_fold_1(float* out, const float* reach, int count, const uint16_t* hand_cards, float payoff) {
    return current().fold_1(out, reach, count, hand_cards, payoff);
}
bool eval_fold_2(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
                 const float* payoffs) {
    return current().fold_n[2](outs, reaches, count, hand_cards, payoffs);
}
bool eval_fold_3(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
                 const float* payoffs) {
    return current().fold_n[3](outs, reaches, count, hand_cards, payoffs);
}
bool eval_fold_4(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
                 const float* payoffs) {
    return current().fold_n[4](outs, reaches, count, hand_cards, payoffs);
}

bool eval_showdown_1(float* out, const float* reach, const ShowdownList& list, float payoff) {
    return current().showdown_1(out, reach, list, payoff);
}
bool eval_showdown_2(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs) {
    return current().showdown_n[2](outs, reaches, list, payoffs);
}
bool eval_showdown_3(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs) {
    return current().showdown_n[3](outs, reaches, list, payoffs);
}
bool eval_showdown_4(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs) {
    return current().showdown_n[4](outs, reaches, list, payoffs);
}
bool eval_showdown_6(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs) {
    return current().showdown_n[6](outs, reaches, list, payoffs);
}
bool eval_showdown_8(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs) {
    return current().showdown_n[8](outs, reaches, list, payoffs);
}

bool eval_river_pair(float* out_showdown, float* out_fold, const float* reach, const ShowdownList& list,
                     float payoff_showdown, float payoff_fold) {
    return current().river_pair(out_showdown, out_fold, reach, list, payoff_showdown, payoff_fold);
}
bool eval_river_pair_2(float* out_showdown, float* out_fold, const float* reach_showdown,
                       const float* reach_fold, const ShowdownList& list, float payoff_showdown,
                       float payoff_fold) {
    const EvalKernels& kernels = current();
    if (!reach_showdown || !reach_fold) {
        // Nothing to share: each half on its own, where a null reach gives zeros.
        const bool showdown = kernels.showdown_1(out_showdown, reach_showdown, list, payoff_showdown);
        const bool fold = kernels.fold_1(out_fold, reach_fold, list.count, list.hand_cards, payoff_fold);
        return showdown || fold;
    }
    return kernels.river_pair_2(out_showdown, out_fold, reach_showdown, reach_fold, list, payoff_showdown,
                                payoff_fold);
}

bool eval_runout(float* out, const float* reach, int count, const int8_t* wins, float payoff) {
    return current().runout(out, reach, count, wins, payoff);
}

void eval_showdown_batch(float* const* outs, const float* const* reaches, const float* payoffs, int leaves,
                         const ShowdownList& list, bool* nonzero, int level) {
    const EvalKernels& kernels = current();
    for (int first = 0; first < leaves;) {
        const int width = showdown_block_width(leaves - first, level);
        const bool written = width == 1 ? kernels.showdown_1(outs[first], reaches[first], list, payoffs[first])
                                        : kernels.showdown_n[width](outs + first, reaches + first, list,
                                                                    payoffs + first);
        if (nonzero) std::fill_n(nonzero + first, width, written);
        first += width;
    }
}

void eval_fold_batch(float* const* outs, const float* const* reaches, const float* payoffs, int leaves,
                     int count, const uint16_t* hand_cards, bool* nonzero, int level) {
    const EvalKernels& kernels = current();
    for (int first = 0; first < leaves;) {
        const int width = fold_block_width(leaves - first, level);
        const bool written =
            width == 1 ? kernels.fold_1(outs[first], reaches[first], count, hand_cards, payoffs[first])
                       : kernels.fold_n[width](outs + first, reaches + first, count, hand_cards, payoffs + first);
        if (nonzero) std::fill_n(nonzero + first, width, written);
        first += width;
    }
}
