// Building blocks of the single-leaf kernels (one showdown or fold, and the
// river pair). Written with AVX instructions only and forced inline, like
// kernels_lanes.h, so the AVX2 and AVX-512 files compile them for their own
// target and add only the step that differs: writing the values of a run of
// hands, which they do with gathers of the per-card sums.
//
// With one leaf a hand's value is a single float, and the per-card sums are
// one row of 52. Pass 1 keeps, for each strength group with live hands, the
// sums of its live values at each card (its card delta). In pass 2 a group
// then moves from loss to tie and from tie to win by adding its delta row to
// the card sums: a few vector additions per group instead of two additions
// per live hand, each of which would wait on the last one that touched the
// same card.
#pragma once

#include <immintrin.h>

#include "solver/kernels/kernels_common.h"

namespace {
namespace kernel_single {

using kernel_rules::has_reach;
using kernel_rules::high_card;
using kernel_rules::low_card;

// 52 cards padded to whole 8-float vectors; the pad stays 0.
constexpr int card_slots = 56;

[[gnu::always_inline]] inline void zero_cards(float* row) {
    for (int c = 0; c < card_slots; c += 8) _mm256_store_ps(row + c, _mm256_setzero_ps());
}
[[gnu::always_inline]] inline void add_cards(float* row, const float* delta) {
    for (int c = 0; c < card_slots; c += 8)
        _mm256_store_ps(row + c, _mm256_add_ps(_mm256_load_ps(row + c), _mm256_load_ps(delta + c)));
}
[[gnu::always_inline]] inline void sub_cards(float* row, const float* delta) {
    for (int c = 0; c < card_slots; c += 8)
        _mm256_store_ps(row + c, _mm256_sub_ps(_mm256_load_ps(row + c), _mm256_load_ps(delta + c)));
}
// Every value sits in a row at both cards of its hand, so half the row's sum
// is the sum of the values: no running total has to wait on each hand.
[[gnu::always_inline]] inline float half_row_sum(const float* row) {
    __m256 sum = _mm256_load_ps(row);
    for (int c = 8; c < card_slots; c += 8) sum = _mm256_add_ps(sum, _mm256_load_ps(row + c));
    __m128 half = _mm_add_ps(_mm256_castps256_ps128(sum), _mm256_extractf128_ps(sum, 1));
    half = _mm_add_ps(half, _mm_movehl_ps(half, half));
    half = _mm_add_ss(half, _mm_movehdup_ps(half));
    return 0.5f * _mm_cvtss_f32(half);
}
[[gnu::always_inline]] inline void scale_cards(float* row, float factor) {
    for (int c = 0; c < card_slots; c += 8)
        _mm256_store_ps(row + c, _mm256_mul_ps(_mm256_load_ps(row + c), _mm256_set1_ps(factor)));
}

// The sums of a single fold leaf, branch-free: a hand without reach adds 0.
// The sums are kept in four copies, one for each hand of a block of four,
// since neighbouring hands of a list often share a card and one copy would
// chain every addition on the one before. Returns the total, half the sum of
// the card sums.
[[gnu::always_inline]] inline float fold_card_sums(const float* reach, int count, const uint16_t* hand_cards,
                                                   float payoff, float* card_sum) {
    alignas(32) float copies[4][card_slots];
    for (auto& copy : copies) zero_cards(copy);
    int h = 0;
    for (; h + 4 <= count; h += 4) {
        for (int k = 0; k < 4; ++k) {
            const float value = has_reach(reach[h + k]) ? payoff * reach[h + k] : 0.0f;
            const uint16_t cards = hand_cards[h + k];
            copies[k][low_card(cards)] += value;
            copies[k][high_card(cards)] += value;
        }
    }
    for (; h < count; ++h) {
        const float value = has_reach(reach[h]) ? payoff * reach[h] : 0.0f;
        copies[0][low_card(hand_cards[h])] += value;
        copies[0][high_card(hand_cards[h])] += value;
    }
    for (int c = 0; c < card_slots; c += 8) {
        const __m256 low = _mm256_add_ps(_mm256_load_ps(copies[0] + c), _mm256_load_ps(copies[1] + c));
        const __m256 high = _mm256_add_ps(_mm256_load_ps(copies[2] + c), _mm256_load_ps(copies[3] + c));
        _mm256_store_ps(card_sum + c, _mm256_add_ps(low, high));
    }
    return half_row_sum(card_sum);
}

// The sweep state of a single showdown leaf, or of the showdown half of a
// river pair.
struct SingleSweep {
    alignas(32) float card_sum[card_slots];
    float total;
    kernel_rules::SweepRecord records[max_strength_groups];
    // Per record with live hands, in order: the sum of its live values, and
    // the sums of its live values at each card.
    float record_sum[max_strength_groups];
    alignas(32) float card_delta[max_strength_groups][card_slots];
    int record_count;
    int live_records;
};

// The fold half of a river pair: payoff times the reach at each card, and
// in total. The sweep leaves it as it is.
struct FoldHalf {
    alignas(32) float card_sum[card_slots];
    float total;
};

// Pass 1: live values payoff * reach into the card deltas of their groups;
// afterwards every live hand counts as stronger than any hand of the list,
// `total` and `card_sum` being minus the sums of live values. Groups of at
// most 16 hands are walked by the bits of their mask word; in larger ones,
// and in all of them without a mask, eight reaches are tested at once and
// only live hands are visited.
//
// With a fold reach (a river pair with two reaches), a hand is live when
// either reach is, and the fold's unscaled sums are gathered in the same walk.
template <bool with_fold>
[[gnu::always_inline]] inline void build_single(SingleSweep& sweep, FoldHalf* fold, const float* reach,
                                                const float* fold_reach, const ShowdownList& list, float payoff) {
    zero_cards(sweep.card_sum);
    sweep.total = 0.0f;
    sweep.record_count = 0;
    sweep.live_records = 0;
    if constexpr (with_fold) {
        zero_cards(fold->card_sum);
        fold->total = 0.0f;
    }
    const uint16_t* hand_cards = list.hand_cards;
    int first = 0;
    for (size_t g = 0; g < list.strength_groups.size(); ++g) {
        const int length = list.strength_groups[g];
        const int end = first + length;
        const bool masked = list.group_mask != nullptr;
        const uint16_t word = masked ? list.group_mask[g] : 0;
        if (masked && word == 0) {
            kernel_rules::add_empty_group(sweep.records, sweep.record_count, length);
            first = end;
            continue;
        }
        float* delta = sweep.card_delta[sweep.live_records];
        zero_cards(delta);
        int live = 0;
        const auto take = [&](int h) __attribute__((always_inline)) {
            const float value = payoff * reach[h];
            const uint16_t cards = hand_cards[h];
            delta[low_card(cards)] += value;
            delta[high_card(cards)] += value;
            if constexpr (with_fold) {
                fold->card_sum[low_card(cards)] += fold_reach[h];
                fold->card_sum[high_card(cards)] += fold_reach[h];
            }
            ++live;
        };
        if (!masked || length > small_group_limit) {
            // The last block of a group may read the first hands of the next
            // one, never past the list, and drops their bits.
            int h = first;
            for (; h < end && h + 8 <= list.count; h += 8) {
                const __m256 smallest = _mm256_set1_ps(smallest_normal_f32);
                __m256 live_lanes = _mm256_cmp_ps(_mm256_loadu_ps(reach + h), smallest, _CMP_GE_OQ);
                if constexpr (with_fold)
                    live_lanes = _mm256_or_ps(live_lanes,
                                              _mm256_cmp_ps(_mm256_loadu_ps(fold_reach + h), smallest, _CMP_GE_OQ));
                uint32_t bits = static_cast<uint32_t>(_mm256_movemask_ps(live_lanes));
                if (end - h < 8) bits &= (1u << (end - h)) - 1;
                for (; bits != 0; bits &= bits - 1) take(h + __builtin_ctz(bits));
            }
            for (; h < end; ++h)
                if (has_reach(reach[h]) || (with_fold && has_reach(fold_reach[h]))) take(h);
        } else {
            for (uint32_t bits = word; bits != 0; bits &= bits - 1) take(first + __builtin_ctz(bits));
        }
        if (live > 0) {
            sweep.records[sweep.record_count++] = {static_cast<uint16_t>(live), static_cast<uint16_t>(length)};
            ++sweep.live_records;
        } else {
            kernel_rules::add_empty_group(sweep.records, sweep.record_count, length);
        }
        first = end;
    }
    // Read the delta rows as vectors only now: straight after the scalar
    // additions, a wide load would wait for all of them to reach the cache.
    for (int k = 0; k < sweep.live_records; ++k) {
        sweep.record_sum[k] = half_row_sum(sweep.card_delta[k]);
        sweep.total -= sweep.record_sum[k];
        sub_cards(sweep.card_sum, sweep.card_delta[k]);
    }
    if constexpr (with_fold) fold->total = half_row_sum(fold->card_sum);
}

// Scales a sweep built on unscaled reach by the showdown's payoff.
[[gnu::always_inline]] inline void scale_sweep(SingleSweep& sweep, float payoff) {
    scale_cards(sweep.card_sum, payoff);
    sweep.total *= payoff;
    for (int k = 0; k < sweep.live_records; ++k) scale_cards(sweep.card_delta[k], payoff);
    for (int k = 0; k < sweep.live_records; ++k) sweep.record_sum[k] *= payoff;
}

// A river pair with one reach: pass 1 ran once on the unscaled reach; the
// fold takes the negated sums times its payoff, the sweep goes on with the
// showdown's.
[[gnu::always_inline]] inline void split_pair(SingleSweep& sweep, FoldHalf& fold, float payoff_showdown,
                                              float payoff_fold) {
    for (int c = 0; c < card_slots; ++c) fold.card_sum[c] = -(sweep.card_sum[c] * payoff_fold);
    fold.total = -(sweep.total * payoff_fold);
    scale_sweep(sweep, payoff_showdown);
}

// A river pair with two reaches: the fold's sums were gathered unscaled in
// the same walk.
[[gnu::always_inline]] inline void scale_pair(SingleSweep& sweep, FoldHalf& fold, float payoff_showdown,
                                              float payoff_fold) {
    scale_cards(fold.card_sum, payoff_fold);
    fold.total *= payoff_fold;
    scale_sweep(sweep, payoff_showdown);
}

// Moves one record's live hands up a step: from loss to tie, or tie to win.
[[gnu::always_inline]] inline void raise_record(SingleSweep& sweep, int live_record) {
    add_cards(sweep.card_sum, sweep.card_delta[live_record]);
    sweep.total += sweep.record_sum[live_record];
}

}  // namespace kernel_single
}  // namespace
