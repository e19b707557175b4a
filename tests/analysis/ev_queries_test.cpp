// Values of each hand at a node against what the evaluating walks report for
// the whole game, and against each other across actions and runouts.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/ev_reports.h"
#include "analysis_test_support.h"
#include "solver/results.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"

namespace {

constexpr double half_pot = 50;  // build_spot's pot is 100

struct Printed {
    std::vector<double> values;   // hand order, half the pot included
    std::vector<double> weights;
};

Printed calc_ev(int player, const std::string& path) {
    const std::string text = replies_of([&] { cmd_calc_ev({"calc_ev", player ? "IP" : "OOP", path}); });
    EXPECT_EQ(text.substr(text.size() - 4), "END\n") << path;
    std::vector<double> numbers = numbers_of(text);
    EXPECT_EQ(numbers.size(), 2u * combo_count) << path << ": " << text.substr(0, 80);
    numbers.resize(2 * combo_count, NAN);
    Printed printed;
    printed.values.assign(numbers.begin(), numbers.begin() + combo_count);
    printed.weights.assign(numbers.begin() + combo_count, numbers.begin() + 2 * combo_count);
    return printed;
}

void solve(int iterations) {
    open_all_storage(*engine);
    for (int i = 0; i < iterations; ++i) run_iteration(*engine);
}

class EvQueries : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void SetUp() override {
        range[0] = class_range(31, 0.5);
        range[1] = class_range(32, 0.5);
    }
    void TearDown() override {
        destroy_engine();
        tree_ready = false;
        skip_values = false;
    }
    RangeVector range[2];
};

struct RootCase {
    const char* name;
    Spot spot;
    int iterations;
};

void PrintTo(const RootCase& root_case, std::ostream* out) { *out << root_case.name; }

class RootValues : public EvQueries, public testing::WithParamInterface<RootCase> {};

TEST_P(RootValues, AverageToThePlayersResultWithNanOutsideTheRangeAndTheBoard) {
    build_spot(GetParam().spot, range[0], range[1]);
    solve(GetParam().iterations);
    for (int player = 0; player < 2; ++player) {
        SCOPED_TRACE(player);
        // "r" is the first node; the query computes the iteration's results.
        const Printed printed = calc_ev(player, "r");
        double weighted = 0, weight = 0;
        for (int index = 0; index < combo_count; ++index) {
            const ComboSlot slot = combo_slot[index];
            const bool absent = range[player][slot] == 0 || (slot_mask[slot] & engine->dead);
            ASSERT_EQ(std::isnan(printed.values[index]), absent) << index;
            ASSERT_EQ(std::isnan(printed.weights[index]), absent) << index;
            if (absent) continue;
            weighted += printed.values[index] * printed.weights[index];
            weight += printed.weights[index];
        }
        const SolverProgressRecord results = calc_results_now();
        EXPECT_NEAR(weighted / weight - half_pot, player ? results.ev_ip : results.ev_oop, 0.01);
    }
}

Spot later_spot(const char* turn, const char* river, bool isomorphic) {
    Spot spot;
    spot.turn = turn;
    spot.river = river;
    spot.lines = *river ? river_lines : turn_lines;
    spot.isomorphic = isomorphic;
    return spot;
}

Spot flop_spot() {
    Spot spot;
    spot.isomorphic = true;
    return spot;
}

// Past iteration 60 the walks play the average strategy.
INSTANTIATE_TEST_SUITE_P(Roots, RootValues,
                         testing::Values(RootCase{"river", later_spot("7c", "8d", false), 70},
                                         RootCase{"turn", later_spot("7c", "", true), 70},
                                         RootCase{"flop", flop_spot(), 3}),
                         [](const auto& info) { return std::string(info.param.name); });

// Weight times value, in chips relative to an even split, per hand.
double mass(const Printed& printed, int index) {
    return printed.weights[index] * (printed.values[index] - half_pot);
}

TEST_F(EvQueries, WeightedValuesAddUpOverActionsAndRunouts) {
    build_spot(flop_spot(), range[0], range[1]);
    solve(3);
    const auto expect_sum = [](const Printed& whole, const std::vector<Printed>& parts, const std::string& where) {
        int compared = 0;
        for (int index = 0; index < combo_count; ++index) {
            if (std::isnan(whole.values[index])) continue;
            double weight = 0, total = 0;
            for (const Printed& part : parts) {
                if (std::isnan(part.values[index])) continue;  // a runout that holds the hand
                weight += part.weights[index];
                total += mass(part, index);
            }
            ASSERT_NEAR(weight, whole.weights[index], 1e-4 * whole.weights[index]) << where << " " << index;
            ASSERT_NEAR(total, mass(whole, index), 1e-4 * (std::fabs(mass(whole, index)) + whole.weights[index]))
                << where << " " << index;
            ++compared;
        }
        EXPECT_GT(compared, 100) << where;
    };
    for (int player = 0; player < 2; ++player) {
        // A decision of each player: the node's weight splits over its actions.
        for (const std::string node : {"r:0", "r:0:b50"}) {
            std::vector<Printed> children;
            const NodeRef ref = parse_path(node);
            for (int child = 0; child < static_cast<int>(ref.node->children.size()); ++child)
                children.push_back(calc_ev(player, node + ":" + action_token(ref, child)));
            expect_sum(calc_ev(player, node), children, node);
        }
        // A street's end over every card that can come, most of them images
        // of a stored card under isomorphism: the turn, and the river after
        // a turn in a suit the flop lacks.
        for (const auto& [split, dead] : {std::pair{std::string("r:0:c:c"), engine->flop},
                                          std::pair{std::string("r:0:c:c:7d:c:c"), engine->flop | parse_cards("7d")}}) {
            std::vector<Printed> runouts;
            for (Card card = 0; card < 52; ++card)
                if (!(card_bit(card) & dead)) runouts.push_back(calc_ev(player, split + ":" + card_text(card)));
            expect_sum(calc_ev(player, split), runouts, split);
        }
    }
}

TEST_F(EvQueries, ASecondQueryInOneIterationIsAnsweredFromTheCache) {
    build_spot(later_spot("7c", "", false), range[0], range[1]);
    solve(5);
    const std::string path = "r:0:c:c:8d";
    const Printed first = calc_ev(IP, path);
    const NodeRef ref = parse_path(path);
    QueryBoard board;
    ASSERT_TRUE(find_query_board(*engine, ref.turn, ref.river, board));
    const CaptureKey key{&engine->nodes[ref.node->node_index], board.turn_index, board.river_index, IP};
    ASSERT_NE(engine->capture_cache.find(key, engine->iterations), nullptr);
    EXPECT_EQ(engine->capture_cache.size(), 1u);
    EXPECT_EQ(engine->results_iteration, engine->iterations);

    // Marked entries and results: a repeated walk would overwrite them.
    const int hands = board.hand_count;
    CapturedValues& marked = engine->capture_cache.store(key, engine->iterations);
    marked.values.resize(hands);
    marked.weights = HandVector(hands);
    for (int h = 0; h < hands; ++h) marked.values.data[h] = 7.0f;
    engine->ev_oop = 1234.5;
    const Printed again = calc_ev(IP, path);
    calc_ev(OOP, path);
    EXPECT_EQ(engine->ev_oop, 1234.5);
    int marked_hands = 0;
    for (int i = 0; i < combo_count; ++i) {
        ASSERT_EQ(std::isnan(again.values[i]), std::isnan(first.values[i])) << i;
        if (std::isnan(first.values[i])) continue;
        ASSERT_EQ(again.values[i], 7.0 + half_pot) << i;
        ASSERT_EQ(again.weights[i], 0.0) << i;
        ++marked_hands;
    }
    EXPECT_GT(marked_hands, 100);
    EXPECT_EQ(engine->capture_cache.size(), 2u);  // one entry per player

    // The next iteration starts afresh and reproduces the first answer's form.
    solve(1);
    const Printed next = calc_ev(IP, path);
    EXPECT_EQ(engine->capture_cache.size(), 1u);
    EXPECT_EQ(engine->capture_cache.iteration(), engine->iterations);
    for (int i = 0; i < combo_count; ++i) {
        if (std::isnan(next.values[i])) continue;
        ASSERT_NE(next.values[i], 7.0 + half_pot) << i;
    }
}

TEST_F(EvQueries, AFoldIsWorthThePotToTheWinnerAndNothingToTheFolder) {
    build_spot(later_spot("7c", "8d", false), range[0], range[1]);
    solve(10);
    // OOP bets and IP folds; then IP bets and OOP folds.
    for (const auto& [path, winner] : {std::pair{"r:0:b50:f", OOP}, std::pair{"r:0:c:b50:f", IP}}) {
        for (int player = 0; player < 2; ++player) {
            SCOPED_TRACE(std::string(path) + (player ? " IP" : " OOP"));
            const Printed printed = calc_ev(player, path);
            int met = 0;
            for (int i = 0; i < combo_count; ++i) {
                if (!(printed.weights[i] > 0)) continue;  // meets nobody, or NaN
                ASSERT_NEAR(printed.values[i], player == winner ? 100.0 : 0.0, 1e-4) << i;
                ++met;
            }
            EXPECT_GT(met, 50);
        }
    }
    // Without value rows the values are 0, and the weights stay.
    const Printed shown = calc_ev(OOP, "r:0");
    skip_values = true;
    const Printed skipped = calc_ev(OOP, "r:0");
    for (int i = 0; i < combo_count; ++i) {
        ASSERT_EQ(std::isnan(skipped.values[i]), std::isnan(shown.values[i]));
        if (std::isnan(shown.values[i])) continue;
        ASSERT_EQ(skipped.values[i], 0.0);
        ASSERT_EQ(skipped.weights[i], shown.weights[i]);
    }
}

}  // namespace
