// Equities over the tree of boards against plain enumeration.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/equity.h"
#include "analysis/equity_reports.h"
#include "analysis_test_support.h"
#include "model/hand_strength.h"

namespace {

class Equity : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void SetUp() override {
        oop = class_range(21, 0.7);
        ip = class_range(22, 0.7);
    }
    void TearDown() override {
        destroy_engine();
        tree_ready = false;
    }

    RangeVector oop, ip;
};

HandValue strength(CardMask cards_mask) {
    Card cards[7];
    int count = 0;
    for (CardMask rest = cards_mask; rest; rest &= rest - 1) cards[count++] = __builtin_ctzll(rest);
    return hand_value(cards, count);
}

// Every equity of `result` against the hand-by-hand count over every river
// that can come on `board` and every unblocked opposing hand.
void expect_pairwise(CardMask board, const EquityVectors& result, const RangeVector& opponent, int stride) {
    const int rivers = __builtin_popcountll(board) == 5 ? 1 : 44;
    int compared = 0;
    for (int slot = 0; slot < combo_count; slot += stride) {
        if (std::isnan(result.equities[slot])) continue;
        const CardMask own = slot_mask[slot];
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
        ASSERT_NEAR(result.matchups[slot], met / rivers, 1e-4 * met / rivers) << slot;
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
        for (int slot = 0; slot < combo_count; ++slot) {
            if (!(slot_mask[slot] & engine->dead)) continue;
            EXPECT_TRUE(std::isnan(result.matchups[slot]));  // on the board
        }
    }
}

TEST_F(Equity, AFlopWithIsomorphismGivesWhatTheFullTreeOfBoardsGives) {
    Spot spot;
    spot.lines = {{0, 0}};
    const Card diamond_turn = card_of("7d");  // a missing suit: stored as its club sibling
    EquityVectors results[2][2];
    for (const bool isomorphic : {true, false}) {
        spot.isomorphic = isomorphic;
        build_spot(spot, oop, ip);
        EXPECT_EQ(engine->root_board->turns.size() < 49, isomorphic);
        results[isomorphic][0] = equity_vectors(-1, -1, ip);
        results[isomorphic][1] = equity_vectors(diamond_turn, -1, ip);
    }
    for (int turn = 0; turn < 2; ++turn) {
        const EquityVectors &folded = results[1][turn], &full = results[0][turn];
        for (int slot = 0; slot < combo_count; ++slot) {
            ASSERT_EQ(std::isnan(folded.equities[slot]), std::isnan(full.equities[slot])) << slot;
            if (std::isnan(full.equities[slot])) continue;
            ASSERT_NEAR(folded.equities[slot], full.equities[slot], 1e-5) << turn << " " << slot;
            ASSERT_NEAR(folded.matchups[slot], full.matchups[slot], 1e-4) << turn << " " << slot;
        }
    }
    expect_pairwise(engine->flop | card_bit(diamond_turn), results[0][1], ip, 37);
}

TEST_F(Equity, AHandThatMeetsNoOpposingHandHasNoEquity) {
    Spot spot;
    spot.turn = "7c";
    spot.river = "8d";
    spot.lines = river_lines;
    RangeVector single{};
    single[slot_of_hand(parse_cards("AsKs"))] = 1;
    const ComboSlot blocked = slot_of_hand(parse_cards("AsQd")), free = slot_of_hand(parse_cards("QdQc"));
    oop[blocked] = oop[free] = 1;
    build_spot(spot, oop, single);
    const EquityVectors result = equity_vectors(engine->fixed_turn, engine->fixed_river, single);
    EXPECT_EQ(result.matchups[blocked], 0.0);
    EXPECT_TRUE(std::isnan(result.equities[blocked]));
    EXPECT_EQ(result.matchups[free], 1.0);
    EXPECT_EQ(result.equities[free], 1.0);  // three queens against ace high
}

TEST_F(Equity, TheLastLineOfANodesEquitiesIsTheirMeanWeightedByTheMatchups) {
    build_spot(Spot{}, oop, ip);
    write_node_rows(engine->nodes[0], false, -1, -1, spread_regret);
    const std::string text = replies_of([] { cmd_calc_eq_node({"calc_eq_node", "IP", "r:0:b50"}); });
    const std::vector<double> numbers = numbers_of(text);  // "nan" reads as NaN
    ASSERT_EQ(numbers.size(), 2u * 1326 + 1);
    EXPECT_EQ(text.substr(text.size() - 4), "END\n");
    double weighted = 0, met = 0;
    for (int i = 0; i < combo_count; ++i) {
        const double equity = numbers[i], matchups = numbers[combo_count + i];
        if (!std::isnan(equity)) weighted += equity * matchups;
        if (!std::isnan(matchups)) met += matchups;
    }
    EXPECT_NEAR(numbers.back(), weighted / met, 1e-7);
    // The matchups are those of OOP's betting range, below his root range.
    double root_met = 0;
    for (const double m : equity_vectors(-1, -1, oop).matchups) root_met += std::isnan(m) ? 0 : m;
    EXPECT_LT(met, 0.9 * root_met);
}

}  // namespace
