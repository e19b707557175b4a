// A deliberately plain hand scorer that the table evaluator is checked against:
// count ranks and suits, look for the flush and the straight by hand, list the
// ranks by how often they occur, and for more than five cards try every
// five-card subset. Slow and obvious on purpose.
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

// Any number of cards from three to seven, given in ascending order: the best
// of all five-card subsets.
inline HandValue reference_hand_value(const Card* cards, int count) {
    if (count <= 5) return reference_small_hand_value(cards, count);
    HandValue best = 0;
    for (unsigned chosen = 0; chosen < 1u << count; ++chosen) {
        if (__builtin_popcount(chosen) != 5) continue;
        Card five[5];
        int taken = 0;
        for (int i = 0; i < count; ++i)
            if (chosen >> i & 1) five[taken++] = cards[i];
        best = std::max(best, reference_small_hand_value(five, 5));
    }
    return best;
}

inline HandValue reference_hand_value(CardMask mask) {
    Card cards[7];
    int count = 0;
    for (; mask && count < 7; mask &= mask - 1) cards[count++] = __builtin_ctzll(mask);
    return reference_hand_value(cards, count);
}
