// A deliberately plain poker-hand scorer that the table evaluator is checked
// against: count ranks and suits, look for the flush and the straight by hand,
// list the ranks by how often they occur, and for more than five cards try
// every five-card subset. Slow and obvious on purpose.
#pragma once

#include <algorithm>
#include <vector>

#include "model/cards.h"
#include "model/hand_strength.h"

// Up to five cards. Fewer than five keep their ranks left-justified.
inline HandValue reference_small_hand_value(const Card* cards, int count) {
    int rank_counts[13] = {};
    int suit_counts[4] = {};
    for (int i = 0; i < count; ++i) {
        ++rank_counts[card_rank(cards[i])];
        ++suit_counts[card_suit(cards[i])];
    }
    const bool flush = count == 5 && std::count(suit_counts, suit_counts + 4, 5) == 1;

    int straight_top = -1;
    for (int top = 12; top >= 4 && straight_top < 0 && count == 5; --top) {
        bool run = true;
        for (int rank = top - 4; rank <= top; ++rank) run = run && rank_counts[rank] == 1;
        if (run) straight_top = top;
    }
    if (count == 5 && straight_top < 0 && rank_counts[12] == 1 && rank_counts[0] == 1 &&
        rank_counts[1] == 1 && rank_counts[2] == 1 && rank_counts[3] == 1)
        straight_top = 3;

    int quads = 0, trips = 0, pairs = 0;
    for (int rank = 0; rank < 13; ++rank) {
        quads += rank_counts[rank] == 4;
        trips += rank_counts[rank] == 3;
        pairs += rank_counts[rank] == 2;
    }

    // Ranks by multiplicity, then by rank, from bits 16-19 down.
    HandValue nibbles = 0;
    int shift = 16;
    for (int times = 4; times >= 1; --times) {
        for (int rank = 12; rank >= 0; --rank) {
            if (rank_counts[rank] != times) continue;
            nibbles |= static_cast<HandValue>(rank) << shift;
            shift -= 4;
        }
    }

    auto with_category = [](uint32_t category, HandValue rest) { return category << 24 | rest; };
    if (flush && straight_top >= 0) return with_category(8, straight_top << 16);
    if (quads) return with_category(7, nibbles);
    if (trips && pairs) return with_category(6, nibbles);
    if (flush) return with_category(5, nibbles);
    if (straight_top >= 0) return with_category(4, straight_top << 16);
    if (trips) return with_category(3, nibbles);
    if (pairs == 2) return with_category(2, nibbles);
    if (pairs == 1) return with_category(1, nibbles);
    return with_category(0, nibbles);
}

// Place of a five-card hand, cards ascending, among all 2,598,960: the sum of
// C(card_i, i + 1), so the plain scores can sit in one array.
inline int five_card_hand_place(const Card* five) {
    static const auto binomial = [] {
        std::vector<int> table(52 * 6, 0);
        for (int n = 0; n < 52; ++n) {
            table[n * 6] = 1;
            for (int k = 1; k <= 5 && n > 0; ++k)
                table[n * 6 + k] = table[(n - 1) * 6 + k - 1] + table[(n - 1) * 6 + k];
        }
        return table;
    }();
    int place = 0;
    for (int i = 0; i < 5; ++i) place += binomial[five[i] * 6 + i + 1];
    return place;
}

// The plain score of every five-card hand, computed once.
inline const std::vector<HandValue>& reference_five_card_values() {
    static const std::vector<HandValue> values = [] {
        std::vector<HandValue> all(2598960);
        Card five[5];
        for (five[0] = 0; five[0] < 52; ++five[0])
            for (five[1] = five[0] + 1; five[1] < 52; ++five[1])
                for (five[2] = five[1] + 1; five[2] < 52; ++five[2])
                    for (five[3] = five[2] + 1; five[3] < 52; ++five[3])
                        for (five[4] = five[3] + 1; five[4] < 52; ++five[4])
                            all[five_card_hand_place(five)] = reference_small_hand_value(five, 5);
        return all;
    }();
    return values;
}

// Any number of cards from three to seven, given in ascending order: the best
// of all five-card subsets.
inline HandValue reference_hand_value(const Card* cards, int count) {
    if (count <= 5) return reference_small_hand_value(cards, count);
    const std::vector<HandValue>& five_card_values = reference_five_card_values();
    HandValue best = 0;
    for (unsigned chosen = 0; chosen < 1u << count; ++chosen) {
        if (__builtin_popcount(chosen) != 5) continue;
        Card five[5];
        int taken = 0;
        for (int i = 0; i < count; ++i)
            if (chosen >> i & 1) five[taken++] = cards[i];
        best = std::max(best, five_card_values[five_card_hand_place(five)]);
    }
    return best;
}

inline HandValue reference_hand_value(CardMask mask) {
    Card cards[7];
    int count = 0;
    for (; mask && count < 7; mask &= mask - 1) cards[count++] = __builtin_ctzll(mask);
    return reference_hand_value(cards, count);
}
