// The runout tables against their definition, counted card by card with the
// hand evaluator: over every river card that neither hand holds, the rivers
// one hand wins less those it loses, and nothing for hands that share a card.
#include <gtest/gtest.h>

#include "reference/boards.h"
#include "tree/boards.h"
#include "tree/isomorphism.h"

namespace {

class RunoutTables : public ::testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
};

int counted_wins(CardMask board, CardMask hand, CardMask opponent) {
    if (hand & opponent) return 0;
    const LaneMask lanes = lane_mask_of(board);
    int wins = 0;
    for (Card river = 0; river < 52; ++river) {
        const CardMask card = card_bit(river);
        if ((board | hand | opponent) & card) continue;
        const HandValue mine = hand_value_7(lanes | lane_mask_of(card | hand));
        const HandValue theirs = hand_value_7(lanes | lane_mask_of(card | opponent));
        wins += (mine > theirs) - (mine < theirs);
    }
    return wins;
}

void expect_table_counts(const RunoutBoard& turn) {
    const size_t count = turn.hands.size();
    ASSERT_EQ(turn.runout_wins.size(), count * count);
    for (size_t o = 0; o < count; ++o)
        for (size_t x = 0; x < count; ++x)
            ASSERT_EQ(turn.runout_wins[o * count + x], counted_wins(turn.mask, turn.hands[x], turn.hands[o]))
                << "turn card " << turn.card << ", hands " << x << " against " << o;
}

// Stored river cards stand for up to four real ones under suit isomorphism;
// the table must count every real card all the same, in the plain form and
// the AVX2 one. Turns of a suit the flop lacks (stored once for two suits
// under isomorphism), turns that pair the board, third hearts; and a turn
// tree's one stored turn, whose river cards are all stored.
TEST_F(RunoutTables, CountEveryRealRiverWithAndWithoutIsomorphism) {
    const RangeVector oop = class_range(11, 0.85);
    const RangeVector ip = class_range(12, 0.85);
    for (const bool isomorphic : {true, false}) {
        for (const bool fixed_turn : {false, true}) {
            // The boards of an isomorphic tree are kept in canonical suits.
            CardMask flop = parse_cards(fixed_turn ? "7c 7d 2s" : "Qs Jh 2h"), no_river = 0;
            CardMask turn = fixed_turn ? parse_cards("Ks") : 0;
            SuitOrder order = identity_suit_order();
            if (isomorphic) canonical_suits(order, flop, turn, no_river);
            auto root = make_boards(flop, fixed_turn ? __builtin_ctzll(turn) : -1, -1, isomorphic);
            SetHoles(*root, oop.data(), ip.data());
            for (const bool vector : {true, false}) {
                build_runout_tables(*root, vector);
                for (const char* card : {"5c", "5d", "Qc", "9h", "Ks"}) {
                    const int stored = fixed_turn ? 0 : root->turn_of_card[order_card(card_of(card), order)];
                    if (stored < 0 || (fixed_turn && card != std::string("Ks"))) continue;  // stored as its image
                    SCOPED_TRACE(std::string(card) + (isomorphic ? " isomorphic" : " plain") + (vector ? " avx2" : ""));
                    expect_table_counts(root->turns[stored]);
                }
            }
        }
    }
}

}  // namespace
