// Terminal evaluation: the traverser's value of every hand of a list, from the
// opponent's reach, at a fold or a showdown leaf.
//
// A hand's value is the sum, over the opposing hands that share no card with
// it, of reach times payoff times the sign of the comparison (+1 at a fold).
// Doing that pairwise is quadratic; every kernel here is linear instead. Pass 1
// adds each live hand's reach times payoff into a 52-entry per-card sum and a
// total; a hand's value is then the total less the sums at its two cards. At a
// showdown the list is sorted by strength, so a sweep over its runs of tied
// hands moves each run from "counted as a loss" through "tie" to "counted as a
// win" while it writes the values.
//
// Wide kernels put one leaf in each vector lane: all leaves of a river card
// share one hand order, so the table walks and the card indexing are paid once
// for up to 8 leaves. The traverser's and the opponent's lists are the same
// list, so value index and reach index coincide.
//
// Each kernel returns false when its zero test made all outs zero (no live
// reach), so the caller may hold the result as a null HandVector instead.
#pragma once

#include <cstdint>
#include <span>

#include "shell/protocol/processor.h"
#include "tree/boards.h"

// Sizes of the kernels' stack buffers: the largest river list, rounded up to a
// whole number of 16-hand blocks, and the most strength groups one can hold.
constexpr int kernel_hand_capacity = 1088;
constexpr int max_strength_groups = 136;
constexpr int max_showdown_width = 8;
constexpr int max_fold_width = 4;

// What a showdown sweep reads of one river list. `group_mask` has a word per
// strength group, made by fill_group_mask at the first river node of the path:
// the sweep walks only the hands it marks in small groups and skips groups
// whose word is 0, so it must cover every hand whose reach may be non-zero.
// Without a mask (null) the sweep tests every hand's reach itself: cheaper
// for a lone leaf than making a mask first.
struct ShowdownList {
    int32_t count = 0;                          // hands in the list
    std::span<const int16_t> strength_groups;   // run lengths, weakest first
    const uint16_t* hand_cards = nullptr;       // low card | high card << 8
    const uint16_t* group_mask = nullptr;       // one word per strength group
};

ShowdownList showdown_list(const RunoutBoard& river, const uint16_t* group_mask);

// One word per strength group of a river board: for a group of at most 16
// hands bit i is set when hand i of the group has reach (at least the smallest
// normal f32); for a larger group the word is 1 when any of its hands has. A
// null reach clears every word. `group_mask` needs strength_groups.size()
// entries (at most max_strength_groups).
void fill_group_mask(uint16_t* group_mask, const float* reach, const RunoutBoard& river);

// ---- Fold leaves -----------------------------------------------------------
// `payoff` is the node's value signed for the traverser (negative when the
// traverser folded). A null reach gives all zeros.
bool eval_fold_1(float* out, const float* reach, int count, const uint16_t* hand_cards, float payoff);
// N leaves of one list: outs[i], reaches[i] (non-null), payoffs[i].
bool eval_fold_2(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
                 const float* payoffs);
bool eval_fold_3(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
                 const float* payoffs);
bool eval_fold_4(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
                 const float* payoffs);

// ---- Showdown leaves -------------------------------------------------------
// `payoff` is the node's value, what the stronger hand wins. A null reach gives
// all zeros.
bool eval_showdown_1(float* out, const float* reach, const ShowdownList& list, float payoff);
bool eval_showdown_2(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs);
bool eval_showdown_3(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs);
bool eval_showdown_4(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs);
bool eval_showdown_6(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs);
bool eval_showdown_8(float* const* outs, const float* const* reaches, const ShowdownList& list,
                     const float* payoffs);

// ---- The last two children of a river node: a showdown (call), then a fold --
// Both from one sweep. One reach for both (a node of the traverser)...
bool eval_river_pair(float* out_showdown, float* out_fold, const float* reach, const ShowdownList& list,
                     float payoff_showdown, float payoff_fold);
// ...or the showdown child's and the fold child's reach (a node of the
// opponent). A null reach gives zeros for its half.
bool eval_river_pair_2(float* out_showdown, float* out_fold, const float* reach_showdown,
                       const float* reach_fold, const ShowdownList& list, float payoff_showdown,
                       float payoff_fold);

// ---- An all-in showdown over every river card of a turn ---------------------
// `wins` is the turn board's runout table (RunoutBoard::runout_wins) and
// `reach` the opponent's reach over the turn list: each hand's value is the
// sum over live opposing hands of payoff times reach times the table's entry,
// that is the sum of the showdowns on every river card, before the chance
// factor. Returns false (all zeros) when no opposing hand has reach.
bool eval_runout(float* out, const float* reach, int count, const int8_t* wins, float payoff);

// ---- Batches of leaves of one river card (RiverBatch) ----------------------
// Takes the leaves from the front in blocks of the widest kernel that fits the
// remaining count and `level` (showdown: 8 down to 2, else 1; fold: 4, 3, 2,
// else 1). Every reach must be non-null; outs are written in full. Returns,
// per leaf, whether its out may hold non-zero values (in `nonzero`, may be
// null).
void eval_showdown_batch(float* const* outs, const float* const* reaches, const float* payoffs, int leaves,
                         const ShowdownList& list, bool* nonzero = nullptr, int level = simd_level);
void eval_fold_batch(float* const* outs, const float* const* reaches, const float* payoffs, int leaves,
                     int count, const uint16_t* hand_cards, bool* nonzero = nullptr, int level = simd_level);

// ---- Implementations ---------------------------------------------------------
// The public functions above pick one of these on every call by kernel_isa():
// the scalar reference (which is also what runs with AVX alone), AVX2 with
// FMA, or AVX-512. Tests compare the vector sets against the reference.
// Unlike the public function, a set's river_pair_2 needs both reaches.
struct EvalKernels {
    bool (*fold_1)(float*, const float*, int, const uint16_t*, float);
    bool (*fold_n[max_fold_width + 1])(float* const*, const float* const*, int, const uint16_t*, const float*);
    bool (*showdown_1)(float*, const float*, const ShowdownList&, float);
    // Indexed by width, 2 to 8.
    bool (*showdown_n[max_showdown_width + 1])(float* const*, const float* const*, const ShowdownList&,
                                                const float*);
    bool (*river_pair)(float*, float*, const float*, const ShowdownList&, float, float);
    bool (*river_pair_2)(float*, float*, const float*, const float*, const ShowdownList&, float, float);
    bool (*runout)(float*, const float*, int, const int8_t*, float);
};

extern const EvalKernels scalar_eval_kernels;
extern const EvalKernels avx2_eval_kernels;    // needs AVX2 and FMA
extern const EvalKernels avx512_eval_kernels;  // needs AVX-512 F, VL, DQ, BW

const EvalKernels& eval_kernels_for(VectorIsa isa);
