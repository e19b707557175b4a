// Line and global frequencies against a plain count: every runout dealt by
// hand, each player's reach as show_range gives it (his root range times his
// strategies on the path), card removal by masks. Nothing of the frequency
// walk is used here.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/frequency_reports.h"
#include "analysis/ranges.h"
#include "analysis_test_support.h"
#include "solver/node_strategy.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"

namespace {

double reply_value(void (*handler)(const Tokens&), const std::string& path) {
    const std::vector<double> numbers = numbers_of(replies_of([&] { handler({"", path}); }));
    EXPECT_EQ(numbers.size(), 1u) << path;
    return numbers.empty() ? NAN : numbers[0];
}

// Every two hands that reach the position and share no card with each other
// or the board, weighted by both reaches.
double pairs(const NodeRef& at, CardMask board) {
    const RangeVector oop = range_at(OOP, at), ip = range_at(IP, at);
    std::vector<std::pair<CardMask, double>> ip_hands;
    for (int slot = 0; slot < combo_count; ++slot)
        if (ip[slot] > 0 && !(slot_mask[slot] & board)) ip_hands.push_back({slot_mask[slot], ip[slot]});
    double sum = 0;
    for (int slot = 0; slot < combo_count; ++slot) {
        if (!(oop[slot] > 0) || (slot_mask[slot] & board)) continue;
        for (const auto& [cards, reach] : ip_hands)
            if (!(cards & slot_mask[slot])) sum += oop[slot] * reach;
    }
    return sum;
}

// The share of all deals that reach `path`: over the runouts that agree with
// the cards it names, or over every runout. A dealt turn weighs 1/45, a
// dealt river 1/44.
double counted(const std::string& path, bool every_runout) {
    const SubgameEngine& e = *engine;
    NodeRef at = parse_path(path);
    const int street = game_street(*at.node);
    const bool deal_turn = street >= turn_street && first_street == flop_street;
    const bool deal_river = street == river_street && first_street < river_street;
    const Card named_turn = every_runout ? -1 : at.turn, named_river = every_runout ? -1 : at.river;
    double total = 0;
    for (Card turn = 0; turn < 52; ++turn) {
        if (deal_turn ? (named_turn >= 0 && turn != named_turn) || (e.dead & card_bit(turn)) : turn > 0) continue;
        for (Card river = 0; river < 52; ++river) {
            if (deal_river ? (named_river >= 0 && river != named_river) || (e.dead & card_bit(river)) ||
                                 (deal_turn && river == turn)
                           : river > 0)
                continue;
            at.turn = deal_turn ? turn : e.fixed_turn;
            at.river = deal_river ? river : e.fixed_river;
            CardMask board = e.dead;
            for (const Card card : {at.turn, at.river})
                if (card >= 0) board |= card_bit(card);
            total += (deal_turn ? 1.0 / 45 : 1.0) * (deal_river ? 1.0 / 44 : 1.0) * pairs(at, board);
        }
    }
    return total / pairs(NodeRef{}, e.dead);
}

class LineFrequency : public testing::TestWithParam<int> {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void SetUp() override { threads = 2; }
    void TearDown() override {
        destroy_engine();
        tree_ready = false;
        threads = 1;
    }

    // Few hands, so that the count by pairs stays quick.
    void solve(const Spot& spot, int iterations) {
        build_spot(spot, class_range(41, 0.9), class_range(42, 0.9));
        open_all_storage(*engine);
        for (int i = 0; i < iterations; ++i) run_iteration(*engine);
    }

    // Both commands against the count, and the same replies at one thread.
    void expect_counted(const std::string& path) {
        SCOPED_TRACE(path);
        const double line = reply_value(cmd_calc_line_freq, path), global = reply_value(cmd_calc_global_freq, path);
        for (const auto& [shown, expected] : {std::pair{line, counted(path, true)}, {global, counted(path, false)}}) {
            EXPECT_GT(expected, 1e-6) << "pick a line that is played";
            EXPECT_NEAR(shown, expected, 1e-6 * expected);
        }
        threads = 1;
        EXPECT_EQ(reply_value(cmd_calc_line_freq, path), line);
        EXPECT_EQ(reply_value(cmd_calc_global_freq, path), global);
        threads = 2;
    }
};

// 7d and 8c are in suits the flop lacks: their rows are stored under other
// cards. Compressed, the river opens the streams of the strategy sums too.
TEST_P(LineFrequency, OnAFlopTreeBothCommandsEqualTheCount) {
    solve(Spot{.isomorphic = true, .compression = GetParam()}, GetParam() == 0 ? 4 : report_average_from);
    for (const char* path : {"r:0:c", "r:0:c:c:7d:b50", "r:0:c:c:Ah:b50:c", "r:0:c:c:7d:c:c:8c:c:b50",
                             "r:0:c:c:Ah:b50:c:3s:b50",
                             // a river line whose turn is named and whose river isn't
                             "r:0:c:c:7d:c:c:c:b50"})
        expect_counted(path);
}

INSTANTIATE_TEST_SUITE_P(Compression, LineFrequency, testing::Values(0, 4));

using TurnTree = LineFrequency;

// From iteration 63 on the reports, and so the frequencies, read the average.
TEST_F(TurnTree, ShowingTheAverageBothCommandsEqualTheCount) {
    solve(Spot{.turn = "7c", .isomorphic = true, .lines = turn_lines}, 66);
    for (const char* path : {"r:0:b50", "r:0:c:c:3d:b50", "r:0:c:c:Ad:c", "r:0:b50:c:Kc:b50"}) expect_counted(path);
}

}  // namespace
