// Each hand's value at the root, weighted by its weight, against the
// player's result that the evaluating walks report for the whole game.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/ev_reports.h"
#include "analysis_test_support.h"
#include "solver/results.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"

namespace {

struct RootCase {
    const char* name;
    Spot spot;
    int iterations;
};

class RootValues : public testing::TestWithParam<RootCase> {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void TearDown() override {
        destroy_engine();
        tree_ready = false;
    }
};

TEST_P(RootValues, AverageToThePlayersResultWithNanOutsideTheRangeAndTheBoard) {
    const RangeVector range[2] = {class_range(31, 0.5), class_range(32, 0.5)};
    build_spot(GetParam().spot, range[0], range[1]);
    open_all_storage(*engine);
    for (int i = 0; i < GetParam().iterations; ++i) run_iteration(*engine);
    for (int player = 0; player < 2; ++player) {
        SCOPED_TRACE(player);
        // "r" is the first node; the query computes the iteration's results.
        const std::vector<double> printed =
            numbers_of(replies_of([&] { cmd_calc_ev({"calc_ev", player ? "IP" : "OOP", "r"}); }));
        ASSERT_EQ(printed.size(), 2u * combo_count);  // values, then weights, in hand order
        double weighted = 0, weight = 0;
        for (int index = 0; index < combo_count; ++index) {
            const ComboSlot slot = combo_slot[index];
            const bool absent = range[player][slot] == 0 || (slot_mask[slot] & engine->dead);
            const double value = printed[index], hand_weight = printed[combo_count + index];
            ASSERT_EQ(std::isnan(value), absent) << index;
            ASSERT_EQ(std::isnan(hand_weight), absent) << index;
            if (absent) continue;
            weighted += value * hand_weight;
            weight += hand_weight;
        }
        const SolverProgressRecord results = calc_results_now();
        // The values include half the pot of 100.
        EXPECT_NEAR(weighted / weight - 50, player ? results.ev_ip : results.ev_oop, 0.01);
    }
}

// Past iteration 60 the walks play the average strategy. A river tree never
// has isomorphism.
INSTANTIATE_TEST_SUITE_P(
    Roots, RootValues,
    testing::Values(RootCase{"river", Spot{.turn = "7c", .river = "8d", .lines = river_lines}, 70},
                    RootCase{"turn", Spot{.turn = "7c", .isomorphic = true, .lines = turn_lines}, 70},
                    RootCase{"flop", Spot{.isomorphic = true}, 3}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
