// The reference implementation of the evaluation kernels: the two-pass sweep
// written out plainly, one lane per leaf, so that the vector variants have
// something simple to be compared with. It is also what runs on a processor
// with AVX alone, where the compiler vectorises the lane loops by itself.
#include <cmath>

#include "solver/kernels/kernels_common.h"

using namespace kernel_rules;

namespace {

template <int N>
struct LaneSums {
    float lane[N];
};

// Value of every hand at N fold leaves: the total of the live opposing reach
// less the reach holding either of the hand's cards, plus the hand itself,
// which was taken off twice.
template <int N>
bool fold_lanes(float* const* outs, const float* const* reaches, int count, const uint16_t* hand_cards,
                const float* payoffs) {
    alignas(64) float card_sum[52][N] = {};
    float total[N] = {};
    for (int h = 0; h < count; ++h) {
        const int c1 = low_card(hand_cards[h]);
        const int c2 = high_card(hand_cards[h]);
        for (int i = 0; i < N; ++i) {
            // One leaf skips hands without reach; several lanes take every hand.
            if (N == 1 && !has_reach(reaches[i][h])) continue;
            const float v = payoffs[i] * reaches[i][h];
            total[i] += v;
            card_sum[c1][i] += v;
            card_sum[c2][i] += v;
        }
    }
    bool any_total = false;
    for (int i = 0; i < N; ++i) any_total |= std::fabs(total[i]) > smallest_normal_f32;
    if (!any_total) return fill_zeros(outs, N, count);

    for (int h = 0; h < count; ++h) {
        const int c1 = low_card(hand_cards[h]);
        const int c2 = high_card(hand_cards[h]);
        for (int i = 0; i < N; ++i) {
            const float self = N == 1 && !has_reach(reaches[i][h]) ? 0.0f : payoffs[i] * reaches[i][h];
            outs[i][h] = (total[i] - card_sum[c1][i] - card_sum[c2][i]) + self;
        }
    }
    return true;
}

// Pass 1 of the showdown sweep over N reach lanes, each scaled by its payoff.
// Afterwards every live hand counts as stronger than any hand of the list:
// `total` and `card_sum` hold minus the sums of live values.
template <int N>
struct ShowdownSweep {
    float card_sum[52][N] = {};
    float total[N] = {};
    LaneSums<N> live_value[kernel_hand_capacity];
    uint16_t live_cards[kernel_hand_capacity];
    SweepRecord records[max_strength_groups];
    LaneSums<N> record_sum[max_strength_groups];
    int live_count = 0;
    int record_count = 0;

    void take(const float* const* reaches, const float* payoffs, const uint16_t* hand_cards, int h,
              LaneSums<N>& group_sum) {
        const int c1 = low_card(hand_cards[h]);
        const int c2 = high_card(hand_cards[h]);
        for (int i = 0; i < N; ++i) {
            const float v = payoffs[i] * reaches[i][h];
            group_sum.lane[i] += v;
            card_sum[c1][i] -= v;
            card_sum[c2][i] -= v;
            live_value[live_count].lane[i] = v;
        }
        live_cards[live_count++] = hand_cards[h];
    }

    void build(const float* const* reaches, const ShowdownList& list, const float* payoffs) {
        int first = 0;
        for (size_t g = 0; g < list.strength_groups.size(); ++g) {
            const int length = list.strength_groups[g];
            const uint16_t word = list.group_mask ? list.group_mask[g] : 0;
            LaneSums<N> group_sum{};
            const int live_before = live_count;
            if (!list.group_mask || (word != 0 && length > small_group_limit)) {
                for (int h = first; h < first + length; ++h) {
                    bool live = false;
                    for (int i = 0; i < N; ++i) live |= has_reach(reaches[i][h]);
                    if (live) take(reaches, payoffs, list.hand_cards, h, group_sum);
                }
            } else {
                for (uint32_t bits = word; bits != 0; bits &= bits - 1)
                    take(reaches, payoffs, list.hand_cards, first + __builtin_ctz(bits), group_sum);
            }
            if (live_count > live_before) {
                record_sum[record_count] = group_sum;
                records[record_count++] = {static_cast<uint16_t>(live_count - live_before),
                                           static_cast<uint16_t>(length)};
                for (int i = 0; i < N; ++i) total[i] -= group_sum.lane[i];
            } else {
                add_empty_group(records, record_count, length);
            }
            first += length;
        }
    }

    bool all_totals_zero() const {
        for (int i = 0; i < N; ++i)
            if (total[i] != 0.0f) return false;
        return true;
    }

    // Moves one record's live hands up by one step: loss to tie, tie to win.
    void raise(const SweepRecord& record, const LaneSums<N>& sum, int live_first) {
        for (int k = live_first; k < live_first + record.live; ++k) {
            const int c1 = low_card(live_cards[k]);
            const int c2 = high_card(live_cards[k]);
            for (int i = 0; i < N; ++i) {
                card_sum[c1][i] += live_value[k].lane[i];
                card_sum[c2][i] += live_value[k].lane[i];
            }
        }
        for (int i = 0; i < N; ++i) total[i] += sum.lane[i];
    }
};

template <int N>
bool showdown_lanes(float* const* outs, const float* const* reaches, const ShowdownList& list,
                    const float* payoffs) {
    ShowdownSweep<N> sweep;
    sweep.build(reaches, list, payoffs);
    if (sweep.all_totals_zero()) return fill_zeros(outs, N, list.count);

    int h = 0;
    int live_first = 0;
    for (int r = 0; r < sweep.record_count; ++r) {
        const SweepRecord& record = sweep.records[r];
        if (record.live) sweep.raise(record, sweep.record_sum[r], live_first);
        for (const int end = h + record.hands; h < end; ++h) {
            const int c1 = low_card(list.hand_cards[h]);
            const int c2 = high_card(list.hand_cards[h]);
            for (int i = 0; i < N; ++i)
                outs[i][h] = sweep.total[i] - sweep.card_sum[c1][i] - sweep.card_sum[c2][i];
        }
        if (record.live) sweep.raise(record, sweep.record_sum[r], live_first);
        live_first += record.live;
    }
    return true;
}

// A showdown and a fold from one sweep. Pass 1 runs on unscaled reach, lane 0
// the showdown child's and lane 1 the fold child's; the sums are then scaled:
// lane 0 by the showdown payoff for the sweep, lane 1 by the fold payoff as a
// fixed per-card correction of the fold total.
bool river_pair_lanes(float* out_showdown, float* out_fold, const float* reach_showdown, const float* reach_fold,
                      const ShowdownList& list, float payoff_showdown, float payoff_fold) {
    const float* const reaches[2] = {reach_showdown, reach_fold};
    const float unscaled[2] = {1.0f, 1.0f};
    ShowdownSweep<2> sweep;
    sweep.build(reaches, list, unscaled);
    if (sweep.all_totals_zero()) {
        fill_zeros(out_showdown, list.count);
        return fill_zeros(out_fold, list.count);
    }

    float fold_card[52];
    for (int c = 0; c < 52; ++c) {
        fold_card[c] = sweep.card_sum[c][1] * payoff_fold;
        sweep.card_sum[c][0] *= payoff_showdown;
    }
    const float fold_total = -sweep.total[1] * payoff_fold;
    sweep.total[0] *= payoff_showdown;
    for (int k = 0; k < sweep.live_count; ++k) sweep.live_value[k].lane[0] *= payoff_showdown;
    for (int r = 0; r < sweep.record_count; ++r) sweep.record_sum[r].lane[0] *= payoff_showdown;

    int h = 0;
    int live_first = 0;
    for (int r = 0; r < sweep.record_count; ++r) {
        const SweepRecord& record = sweep.records[r];
        if (record.live) sweep.raise(record, sweep.record_sum[r], live_first);
        for (const int end = h + record.hands; h < end; ++h) {
            const int c1 = low_card(list.hand_cards[h]);
            const int c2 = high_card(list.hand_cards[h]);
            out_showdown[h] = sweep.total[0] - sweep.card_sum[c1][0] - sweep.card_sum[c2][0];
            // Hands of an empty record have no reach to give back.
            const float self = record.live ? payoff_fold * reach_fold[h] : 0.0f;
            out_fold[h] = fold_total + fold_card[c1] + fold_card[c2] + self;
        }
        if (record.live) sweep.raise(record, sweep.record_sum[r], live_first);
        live_first += record.live;
    }
    return true;
}

bool fold_1(float* out, const float* reach, int count, const uint16_t* hand_cards, float payoff) {
    if (!reach) return fill_zeros(out, count);
    return fold_lanes<1>(&out, &reach, count, hand_cards, &payoff);
}

bool showdown_1(float* out, const float* reach, const ShowdownList& list, float payoff) {
    if (!reach) return fill_zeros(out, list.count);
    return showdown_lanes<1>(&out, &reach, list, &payoff);
}

bool river_pair(float* out_showdown, float* out_fold, const float* reach, const ShowdownList& list,
                float payoff_showdown, float payoff_fold) {
    if (!reach) {
        fill_zeros(out_showdown, list.count);
        return fill_zeros(out_fold, list.count);
    }
    return river_pair_lanes(out_showdown, out_fold, reach, reach, list, payoff_showdown, payoff_fold);
}

// The runout: each live opposing hand adds its row of the table.
bool runout(float* out, const float* reach, int count, const int8_t* wins, float payoff) {
    if (!reach) return fill_zeros(out, count);
    fill_zeros(out, count);
    bool live = false;
    for (int o = 0; o < count; ++o) {
        if (!has_reach(reach[o])) continue;
        live = true;
        const float value = payoff * reach[o];
        const int8_t* row = wins + static_cast<size_t>(o) * count;
        for (int x = 0; x < count; ++x) out[x] += value * static_cast<float>(row[x]);
    }
    return live;
}

}  // namespace

const EvalKernels scalar_eval_kernels = {
    fold_1,
    {nullptr, nullptr, fold_lanes<2>, fold_lanes<3>, fold_lanes<4>},
    showdown_1,
    {nullptr, nullptr, showdown_lanes<2>, showdown_lanes<3>, showdown_lanes<4>, showdown_lanes<5>, showdown_lanes<6>,
     showdown_lanes<7>, showdown_lanes<8>},
    river_pair,
    river_pair_lanes,
    runout,
};
