// Equities over the tree of boards against plain enumeration.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/equity.h"
#include "analysis_test_support.h"
#include "model/hand_strength.h"

namespace {

class Equity : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void TearDown() override {
        destroy_engine();
        tree_ready = false;
    }
    const RangeVector oop = class_range(21, 0.7), ip = class_range(22, 0.7);
};

HandValue strength(CardMask cards_mask) {
    Card cards[7];
    int count = 0;
    for (CardMask rest = cards_mask; rest; rest &= rest - 1) cards[count++] = __builtin_ctzll(rest);
    return hand_value(cards, count);
}

// Every equity of `result` against the hand-by-hand count over every river
// that can come on `board` and every unblocked opposing hand; a hand that
// meets nobody has none.
void expect_pairwise(CardMask board, const EquityVectors& result, const RangeVector& opponent, int stride) {
    const int rivers = __builtin_popcountll(board) == 5 ? 1 : 44;
    int compared = 0;
    for (int slot = 0; slot < combo_count; slot += stride) {
        const CardMask own = slot_mask[slot];
        ASSERT_TRUE(!(own & board) || std::isnan(result.matchups[slot])) << slot;
        if (std::isnan(result.matchups[slot])) continue;  // on the board, or in neither range
        double wins = 0, met = 0;
        for (int other = 0; other < combo_count; ++other) {
            if (opponent[other] == 0 || (slot_mask[other] & (own | board))) continue;
            for (Card river = 0; river < 52; ++river) {
                const CardMask full = rivers == 1 ? board : board | card_bit(river);
                if ((rivers > 1 && (board & card_bit(river))) || (full & (own | slot_mask[other]))) continue;
                const HandValue mine = strength(full | own), theirs = strength(full | slot_mask[other]);
                wins += opponent[other] * ((mine > theirs) - (mine < theirs));
                met += opponent[other];
                if (rivers == 1) break;
            }
        }
        ASSERT_NEAR(result.matchups[slot], met / rivers, 1e-4 * met / rivers + 1e-6) << slot;
        if (met == 0) {
            ASSERT_TRUE(std::isnan(result.equities[slot])) << slot;  // meets nobody
            continue;
        }
        ASSERT_NEAR(result.equities[slot], wins / met, 1e-5) << slot;
        ++compared;
    }
    EXPECT_GT(compared, 10);
}

TEST_F(Equity, OnRiverAndTurnBoardsEveryHandMeetsEveryUnblockedOpposingHand) {
    for (const bool river_root : {true, false}) {
        Spot spot;
        spot.turn = "7c";
        spot.river = river_root ? "8d" : "";
        spot.lines = river_root ? river_lines : turn_lines;
        build_spot(spot, oop, ip);
        const EquityVectors result = equity_vectors(engine->fixed_turn, engine->fixed_river, ip);
        expect_pairwise(engine->dead, result, ip, river_root ? 1 : 7);
    }
}

}  // namespace
