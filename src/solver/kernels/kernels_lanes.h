// Building blocks of the wide kernels, where each vector lane holds one leaf.
// Written with AVX instructions only and forced inline, so the AVX2 and
// AVX-512 files can build their kernels from them: inlined into a function of
// a wider target they are compiled for that target. Internal linkage keeps
// each file's copies its own.
//
// Lanes are padded: widths 2 to 4 use a 16-byte vector per hand, 5 to 8 a
// 32-byte one. A sweep costs the same whether its vector is full or not, so
// a batch of 7 leaves is cheaper as one 8-lane sweep with a lane to spare
// than as 6 lanes and a single leaf.
#pragma once

#include <immintrin.h>

#include "solver/kernels/kernels_common.h"

namespace {
namespace kernel_lanes {

template <bool Wide>
struct LaneVectorOf {
    using type = __m128;
};
template <>
struct LaneVectorOf<true> {
    using type = __m256;
};
template <int N>
using LaneVector = typename LaneVectorOf<(N > 4)>::type;

[[gnu::always_inline]] inline __m128 add(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
[[gnu::always_inline]] inline __m256 add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
[[gnu::always_inline]] inline __m128 sub(__m128 a, __m128 b) { return _mm_sub_ps(a, b); }
[[gnu::always_inline]] inline __m256 sub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
[[gnu::always_inline]] inline __m128 mul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
[[gnu::always_inline]] inline __m256 mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }

template <class V>
[[gnu::always_inline]] inline V zero() {
    if constexpr (sizeof(V) == 16) return _mm_setzero_ps();
    else return _mm256_setzero_ps();
}

// Bit i set when lane i is at least the smallest normal f32.
[[gnu::always_inline]] inline int reach_lanes(__m128 v) {
    return _mm_movemask_ps(_mm_cmp_ps(v, _mm_set1_ps(smallest_normal_f32), _CMP_GE_OQ));
}
[[gnu::always_inline]] inline int reach_lanes(__m256 v) {
    return _mm256_movemask_ps(_mm256_cmp_ps(v, _mm256_set1_ps(smallest_normal_f32), _CMP_GE_OQ));
}
[[gnu::always_inline]] inline bool any_nonzero(__m128 v) {
    return _mm_movemask_ps(_mm_cmp_ps(v, _mm_setzero_ps(), _CMP_NEQ_UQ));
}
[[gnu::always_inline]] inline bool any_nonzero(__m256 v) {
    return _mm256_movemask_ps(_mm256_cmp_ps(v, _mm256_setzero_ps(), _CMP_NEQ_UQ));
}
[[gnu::always_inline]] inline bool any_above_smallest(__m128 v) {
    const __m128 magnitude = _mm_andnot_ps(_mm_set1_ps(-0.0f), v);
    return _mm_movemask_ps(_mm_cmp_ps(magnitude, _mm_set1_ps(smallest_normal_f32), _CMP_GT_OQ));
}

// The N payoffs (or reaches of hand h) in the low lanes, zeros above.
template <int N>
[[gnu::always_inline]] inline LaneVector<N> load_lanes(const float* values) {
    if constexpr (N == 2) return _mm_setr_ps(values[0], values[1], 0.0f, 0.0f);
    else if constexpr (N == 3) return _mm_setr_ps(values[0], values[1], values[2], 0.0f);
    else if constexpr (N == 4) return _mm_loadu_ps(values);
    else if constexpr (N == 5) return _mm256_setr_ps(values[0], values[1], values[2], values[3], values[4], 0, 0, 0);
    else if constexpr (N == 6)
        return _mm256_setr_ps(values[0], values[1], values[2], values[3], values[4], values[5], 0.0f, 0.0f);
    else if constexpr (N == 7)
        return _mm256_setr_ps(values[0], values[1], values[2], values[3], values[4], values[5], values[6], 0.0f);
    else return _mm256_loadu_ps(values);
}
template <int N>
[[gnu::always_inline]] inline LaneVector<N> load_lanes(const float* const* arrays, int h) {
    if constexpr (N == 2) return _mm_setr_ps(arrays[0][h], arrays[1][h], 0.0f, 0.0f);
    else if constexpr (N == 3) return _mm_setr_ps(arrays[0][h], arrays[1][h], arrays[2][h], 0.0f);
    else if constexpr (N == 4) return _mm_setr_ps(arrays[0][h], arrays[1][h], arrays[2][h], arrays[3][h]);
    else if constexpr (N == 5)
        return _mm256_setr_ps(arrays[0][h], arrays[1][h], arrays[2][h], arrays[3][h], arrays[4][h], 0.0f, 0.0f, 0.0f);
    else if constexpr (N == 6)
        return _mm256_setr_ps(arrays[0][h], arrays[1][h], arrays[2][h], arrays[3][h], arrays[4][h], arrays[5][h],
                              0.0f, 0.0f);
    else if constexpr (N == 7)
        return _mm256_setr_ps(arrays[0][h], arrays[1][h], arrays[2][h], arrays[3][h], arrays[4][h], arrays[5][h],
                              arrays[6][h], 0.0f);
    else
        return _mm256_setr_ps(arrays[0][h], arrays[1][h], arrays[2][h], arrays[3][h], arrays[4][h], arrays[5][h],
                              arrays[6][h], arrays[7][h]);
}

// Writes lane i of one hand's vector to arrays[i][h], for the first N lanes.
template <int N>
[[gnu::always_inline]] inline void store_lanes(float* const* arrays, int h, LaneVector<N> v) {
    alignas(32) float lanes[8];
    if constexpr (N <= 4) _mm_store_ps(lanes, v);
    else _mm256_store_ps(lanes, v);
    for (int i = 0; i < N; ++i) arrays[i][h] = lanes[i];
}

// rows[i] = lane i of columns[0..3]: a 4 x 4 transpose.
[[gnu::always_inline]] inline void transpose4(__m128& a, __m128& b, __m128& c, __m128& d) {
    const __m128 ab_low = _mm_unpacklo_ps(a, b);
    const __m128 cd_low = _mm_unpacklo_ps(c, d);
    const __m128 ab_high = _mm_unpackhi_ps(a, b);
    const __m128 cd_high = _mm_unpackhi_ps(c, d);
    a = _mm_movelh_ps(ab_low, cd_low);
    b = _mm_movehl_ps(cd_low, ab_low);
    c = _mm_movelh_ps(ab_high, cd_high);
    d = _mm_movehl_ps(cd_high, ab_high);
}

// An 8 x 8 transpose in place.
[[gnu::always_inline]] inline void transpose8(__m256* v) {
    __m256 t[8];
    for (int i = 0; i < 8; i += 2) {
        t[i] = _mm256_unpacklo_ps(v[i], v[i + 1]);
        t[i + 1] = _mm256_unpackhi_ps(v[i], v[i + 1]);
    }
    __m256 u[8];
    for (int i = 0; i < 8; i += 4) {
        u[i] = _mm256_shuffle_ps(t[i], t[i + 2], _MM_SHUFFLE(1, 0, 1, 0));
        u[i + 1] = _mm256_shuffle_ps(t[i], t[i + 2], _MM_SHUFFLE(3, 2, 3, 2));
        u[i + 2] = _mm256_shuffle_ps(t[i + 1], t[i + 3], _MM_SHUFFLE(1, 0, 1, 0));
        u[i + 3] = _mm256_shuffle_ps(t[i + 1], t[i + 3], _MM_SHUFFLE(3, 2, 3, 2));
    }
    for (int i = 0; i < 4; ++i) {
        v[i] = _mm256_permute2f128_ps(u[i], u[i + 4], 0x20);
        v[i + 4] = _mm256_permute2f128_ps(u[i], u[i + 4], 0x31);
    }
}

// Stores a buffer of per-hand lane vectors as N arrays of hands.
template <int N>
[[gnu::always_inline]] inline void store_transposed(float* const* outs, const LaneVector<N>* buffer, int count) {
    int h = 0;
    if constexpr (N <= 4) {
        for (; h + 4 <= count; h += 4) {
            __m128 rows[4] = {buffer[h], buffer[h + 1], buffer[h + 2], buffer[h + 3]};
            transpose4(rows[0], rows[1], rows[2], rows[3]);
            for (int i = 0; i < N; ++i) _mm_storeu_ps(outs[i] + h, rows[i]);
        }
    } else {
        for (; h + 8 <= count; h += 8) {
            __m256 rows[8];
            for (int k = 0; k < 8; ++k) rows[k] = buffer[h + k];
            transpose8(rows);
            for (int i = 0; i < N; ++i) _mm256_storeu_ps(outs[i] + h, rows[i]);
        }
    }
    for (; h < count; ++h) store_lanes<N>(outs, h, buffer[h]);
}

// Pass 1 of a showdown over N leaves: every live hand counted as stronger
// than any hand of the list. Afterwards `total` and `card_sum` are minus the
// sums of the live values, and the records say, run by run, how many live and
// how many list hands each has.
template <int N>
struct WideSweep {
    using V = LaneVector<N>;
    alignas(64) V card_sum[52];
    V total;
    alignas(64) V live_value[kernel_hand_capacity];
    uint16_t live_cards[kernel_hand_capacity];
    kernel_rules::SweepRecord records[max_strength_groups];
    V record_sum[max_strength_groups];
    int live_count;
    int record_count;
};

template <int N>
[[gnu::always_inline]] inline void take_hand(WideSweep<N>& sweep, LaneVector<N> value, uint16_t cards) {
    using kernel_rules::high_card;
    using kernel_rules::low_card;
    sweep.card_sum[low_card(cards)] = sub(sweep.card_sum[low_card(cards)], value);
    sweep.card_sum[high_card(cards)] = sub(sweep.card_sum[high_card(cards)], value);
    sweep.live_value[sweep.live_count] = value;
    sweep.live_cards[sweep.live_count++] = cards;
}

template <int N>
[[gnu::always_inline]] inline void build_sweep(WideSweep<N>& sweep, const float* const* reaches,
                                               const ShowdownList& list, LaneVector<N> payoffs) {
    using V = LaneVector<N>;
    for (V& sum : sweep.card_sum) sum = zero<V>();
    sweep.total = zero<V>();
    sweep.live_count = 0;
    sweep.record_count = 0;
    const uint16_t* hand_cards = list.hand_cards;
    int first = 0;
    for (size_t g = 0; g < list.strength_groups.size(); ++g) {
        const int length = list.strength_groups[g];
        const uint16_t word = list.group_mask ? list.group_mask[g] : 0;
        const int live_before = sweep.live_count;
        if (!list.group_mask || (word != 0 && length > small_group_limit)) {
            for (int h = first; h < first + length; ++h) {
                const V reach = load_lanes<N>(reaches, h);
                if (reach_lanes(reach)) take_hand<N>(sweep, mul(payoffs, reach), hand_cards[h]);
            }
        } else {
            for (uint32_t bits = word; bits != 0; bits &= bits - 1) {
                const int h = first + __builtin_ctz(bits);
                take_hand<N>(sweep, mul(payoffs, load_lanes<N>(reaches, h)), hand_cards[h]);
            }
        }
        if (sweep.live_count > live_before) {
            sweep.records[sweep.record_count++] = {static_cast<uint16_t>(sweep.live_count - live_before),
                                                   static_cast<uint16_t>(length)};
        } else {
            kernel_rules::add_empty_group(sweep.records, sweep.record_count, length);
        }
        first += length;
    }
    // The groups' sums in a pass of their own, over two accumulators: summed
    // hand by hand above, every live hand would wait on the one before.
    int live_first = 0;
    for (int r = 0; r < sweep.record_count; ++r) {
        const int live_end = live_first + sweep.records[r].live;
        V sums[2] = {zero<V>(), zero<V>()};
        int k = live_first;
        for (; k + 2 <= live_end; k += 2) {
            sums[0] = add(sums[0], sweep.live_value[k]);
            sums[1] = add(sums[1], sweep.live_value[k + 1]);
        }
        if (k < live_end) sums[0] = add(sums[0], sweep.live_value[k]);
        sweep.record_sum[r] = add(sums[0], sums[1]);
        sweep.total = sub(sweep.total, sweep.record_sum[r]);
        live_first = live_end;
    }
}

// Moves one record's live hands up a step: from loss to tie, or tie to win.
template <int N>
[[gnu::always_inline]] inline void raise_record(WideSweep<N>& sweep, int record, int live_first) {
    using kernel_rules::high_card;
    using kernel_rules::low_card;
    const int live_end = live_first + sweep.records[record].live;
    for (int k = live_first; k < live_end; ++k) {
        const uint16_t cards = sweep.live_cards[k];
        sweep.card_sum[low_card(cards)] = add(sweep.card_sum[low_card(cards)], sweep.live_value[k]);
        sweep.card_sum[high_card(cards)] = add(sweep.card_sum[high_card(cards)], sweep.live_value[k]);
    }
    sweep.total = add(sweep.total, sweep.record_sum[record]);
}

// Pass 2: the sweep, weakest record first, writing each hand's lane vector.
template <int N>
[[gnu::always_inline]] inline void run_sweep(WideSweep<N>& sweep, const uint16_t* hand_cards, LaneVector<N>* out) {
    using kernel_rules::high_card;
    using kernel_rules::low_card;
    int h = 0;
    int live_first = 0;
    for (int r = 0; r < sweep.record_count; ++r) {
        const kernel_rules::SweepRecord record = sweep.records[r];
        if (record.live) raise_record<N>(sweep, r, live_first);
        for (const int end = h + record.hands; h < end; ++h) {
            const uint16_t cards = hand_cards[h];
            out[h] = sub(sub(sweep.total, sweep.card_sum[low_card(cards)]), sweep.card_sum[high_card(cards)]);
        }
        if (record.live) raise_record<N>(sweep, r, live_first);
        live_first += record.live;
    }
}

// ---- Folds over up to 4 leaves ---------------------------------------------
// Reach is read four hands at a time from each leaf's array and transposed
// into one lane vector per hand. The per-card sums are kept in four copies,
// one per hand of a block, since neighbouring hands of a list often share a
// card and one copy would chain every addition on the one before.

template <int N>
[[gnu::always_inline]] inline void load_hand_block(const float* const* reaches, int h, __m128 (&hands)[4]) {
    for (int i = 0; i < 4; ++i) hands[i] = i < N ? _mm_loadu_ps(reaches[i] + h) : _mm_setzero_ps();
    transpose4(hands[0], hands[1], hands[2], hands[3]);
}

// Fills card_sum with the sums of payoff times reach of the hands holding
// each card, and returns the total.
template <int N>
[[gnu::always_inline]] inline __m128 fold_card_sums(const float* const* reaches, int count, const uint16_t* hand_cards,
                                                    __m128 payoffs, __m128* card_sum) {
    using kernel_rules::high_card;
    using kernel_rules::low_card;
    alignas(64) __m128 copies[4][52];
    for (auto& copy : copies)
        for (__m128& sum : copy) sum = _mm_setzero_ps();
    __m128 totals[4] = {_mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps()};
    int h = 0;
    for (; h + 4 <= count; h += 4) {
        __m128 hands[4];
        load_hand_block<N>(reaches, h, hands);
        for (int k = 0; k < 4; ++k) {
            const __m128 value = mul(payoffs, hands[k]);
            const uint16_t cards = hand_cards[h + k];
            totals[k] = add(totals[k], value);
            copies[k][low_card(cards)] = add(copies[k][low_card(cards)], value);
            copies[k][high_card(cards)] = add(copies[k][high_card(cards)], value);
        }
    }
    for (; h < count; ++h) {
        const __m128 value = mul(payoffs, load_lanes<N>(reaches, h));
        const uint16_t cards = hand_cards[h];
        totals[0] = add(totals[0], value);
        copies[0][low_card(cards)] = add(copies[0][low_card(cards)], value);
        copies[0][high_card(cards)] = add(copies[0][high_card(cards)], value);
    }
    for (int c = 0; c < 52; ++c) card_sum[c] = add(add(copies[0][c], copies[1][c]), add(copies[2][c], copies[3][c]));
    return add(add(totals[0], totals[1]), add(totals[2], totals[3]));
}

// out = total - sum at each card + the hand itself, four hands at a time.
template <int N>
[[gnu::always_inline]] inline void fold_values(float* const* outs, const float* const* reaches, int count,
                                               const uint16_t* hand_cards, __m128 payoffs, const __m128* card_sum,
                                               __m128 total) {
    using kernel_rules::high_card;
    using kernel_rules::low_card;
    int h = 0;
    for (; h + 4 <= count; h += 4) {
        __m128 hands[4];
        load_hand_block<N>(reaches, h, hands);
        for (int k = 0; k < 4; ++k) {
            const uint16_t cards = hand_cards[h + k];
            const __m128 others = sub(sub(total, card_sum[low_card(cards)]), card_sum[high_card(cards)]);
            hands[k] = add(others, mul(payoffs, hands[k]));
        }
        transpose4(hands[0], hands[1], hands[2], hands[3]);
        for (int i = 0; i < N; ++i) _mm_storeu_ps(outs[i] + h, hands[i]);
    }
    for (; h < count; ++h) {
        const uint16_t cards = hand_cards[h];
        const __m128 others = sub(sub(total, card_sum[low_card(cards)]), card_sum[high_card(cards)]);
        store_lanes<N>(outs, h, add(others, mul(payoffs, load_lanes<N>(reaches, h))));
    }
}

template <int N>
[[gnu::always_inline]] inline bool fold_lanes(float* const* outs, const float* const* reaches, int count,
                                              const uint16_t* hand_cards, const float* payoff_values) {
    const __m128 payoffs = load_lanes<N>(payoff_values);
    alignas(64) __m128 card_sum[52];
    const __m128 total = fold_card_sums<N>(reaches, count, hand_cards, payoffs, card_sum);
    if (!any_above_smallest(total)) return kernel_rules::fill_zeros(outs, N, count);
    fold_values<N>(outs, reaches, count, hand_cards, payoffs, card_sum, total);
    return true;
}

template <int N>
[[gnu::always_inline]] inline bool showdown_lanes(float* const* outs, const float* const* reaches,
                                                  const ShowdownList& list, const float* payoff_values) {
    WideSweep<N> sweep;
    build_sweep<N>(sweep, reaches, list, load_lanes<N>(payoff_values));
    if (!any_nonzero(sweep.total)) return kernel_rules::fill_zeros(outs, N, list.count);
    alignas(64) LaneVector<N> values[kernel_hand_capacity];
    run_sweep<N>(sweep, list.hand_cards, values);
    store_transposed<N>(outs, values, list.count);
    return true;
}

}  // namespace kernel_lanes
}  // namespace
