// Forgetting a street and solving its subgames again from the frozen reach,
// checked against the full solve of the same game.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "solver/forget.h"
#include "solver/node_strategy.h"
#include "solver/results.h"
#include "solver/subgame_solve.h"
#include "solver/walk.h"
#include "solver_test_support.h"
#include "tree/boards.h"
#include "tree/street_storage.h"

namespace {

struct RiverSpot {
    int node = -1;
    int turn = -1;
    int river = -1;
};

int turn_group() { return engine->root_turn_group; }

// The first river decision nodes, each with the first few river cards.
std::vector<RiverSpot> river_spots(int cards) {
    std::vector<RiverSpot> spots;
    for (size_t i = 0; i < engine->nodes.size(); ++i) {
        const TreeNode& node = engine->nodes[i];
        if (node.kind != decision_node || node.street != river_street || !is_first_of_street(node)) continue;
        for (int r = 0; r < cards; ++r) spots.push_back({static_cast<int>(i), turn_group(), r});
    }
    return spots;
}

int hand_count(const RiverSpot& spot) {
    const RunoutBoard& turn = engine->root_board->turns[spot.turn];
    return static_cast<int>(spot.river >= 0 ? turn.rivers[spot.river].hands.size() : turn.hands.size());
}

// The strategy a client is shown at the spot.
std::vector<float> shown(const RiverSpot& spot) {
    const TreeNode& node = engine->nodes[spot.node];
    const int count = spot.turn >= 0 ? hand_count(spot) : static_cast<int>(engine->root_board->hands.size());
    std::vector<float> out(node.children.size() * size_t(count));
    read_reported_strategy(*engine, node, spot.turn, spot.river, count, out.data());
    return out;
}

// The acting player's frozen reach at the spot, in the river card's list.
std::vector<float> acting_reach(const RiverSpot& spot) {
    const TreeNode& node = engine->nodes[spot.node];
    const HandVector& sum = node.cache[spot.turn].reach_sum[node.player];
    const RunoutBoard& river = engine->root_board->turns[spot.turn].rivers[spot.river];
    std::vector<float> reach(river.hands.size(), 0.0f);
    if (!sum.data) return reach;
    for (size_t h = 0; h < reach.size(); ++h) reach[h] = sum.data[river.image_tables[0][h]];
    return reach;
}

// The acting player's value of each action at the spot, per hand, against
// the strategies in place and the opponent's entry reach: per unit of the
// opposing reach the hand meets, so in chips. One row per action.
std::vector<std::vector<double>> action_values(const RiverSpot& spot) {
    SubgameEngine& e = *engine;
    TreeNode& node = e.nodes[spot.node];
    const int player = node.player;
    const RunoutBoard& river = e.root_board->turns[spot.turn].rivers[spot.river];
    const int count = hand_count(spot);
    const HandVector& sum = node.cache[spot.turn].reach_sum[1 - player];
    HandVector reach(count);
    reach.resize(count, true);
    for (int h = 0; h < count; ++h) reach.data[h] = sum.data[river.image_tables[0][h]];
    ensure_vector_pool(static_cast<int>(e.root_weights[0].size()));
    e.mode = mode_evaluate;
    e.traverser = player;
    e.phase = phase_subgames;
    const auto walk_at = [&](TreeNode& at) {
        WalkFrame frame;
        frame.engine = &e;
        frame.node = &at;
        frame.turn = spot.turn;
        frame.river = spot.river;
        frame.reach = reach.clone(true);
        walk(frame);
        std::vector<double> value(count, 0.0);
        for (int h = 0; h < count && frame.value.data; ++h) value[h] = frame.value.data[h];
        return value;
    };
    // The node itself first: it sets the showdown masks its subtree reads.
    walk_at(node);
    std::vector<std::vector<double>> values;
    for (const int32_t child : node.children) values.push_back(walk_at(e.nodes[child]));
    for (int h = 0; h < count; ++h) {
        double met = 0;
        for (int o = 0; o < count; ++o)
            if (!(river.hands[o] & river.hands[h])) met += reach.data[o];
        for (auto& row : values) row[h] = met > 0 ? row[h] / met : 0.0;
    }
    e.phase = phase_descent;
    return values;
}

class ForgetTest : public ::testing::Test {
protected:
    void SetUp() override {
        prepare_tables();
        threads = 2;
        build_test_game(turn_game());
    }
    void TearDown() override {
        destroy_engine();
        std::fill(std::begin(recalc_accuracy), std::end(recalc_accuracy), 0.0);
    }
};

TEST_F(ForgetTest, RiverSubgamesFromFrozenReachMatchTheFullSolve) {
    train(600);
    const SolverProgressRecord before = calc_results_now();
    ASSERT_LT(before.exploitable, 0.1);
    const std::vector<RiverSpot> spots = river_spots(3);
    ASSERT_FALSE(spots.empty());
    std::vector<std::vector<float>> full;
    for (const RiverSpot& spot : spots) full.push_back(shown(spot));
    const RiverSpot root{0, turn_group(), -1};
    const std::vector<float> root_before = shown(root);
    // The reach the enumeration freezes is what the full solve played
    // against: its river strategy is already an equilibrium of each subgame.
    enumerate_subgames(*engine, river_street);
    std::vector<std::vector<std::vector<double>>> values;
    for (const RiverSpot& spot : spots) {
        EXPECT_LT(subgame_exploitability(*engine, engine->nodes[spot.node], spot.turn, spot.river), 0.005);
        values.push_back(action_values(spot));
    }

    forget_street(*engine, river_street);
    EXPECT_TRUE(engine->flags & incomplete_tree_flag);
    EXPECT_EQ(engine->street_bytes[river_street], 0);
    // The kept street reads as before and the results stand.
    EXPECT_EQ(shown(root), root_before);
    const SolverProgressRecord after = calc_results_now();
    EXPECT_EQ(after.exploitable, before.exploitable);
    EXPECT_EQ(after.ev_oop, before.ev_oop);

    // A subgame may have many equilibria, and a hand indifferent between two
    // actions mixes them one way in one and another way in the next. A hand
    // whose best action, against the full solve, beats its next by 3 chips
    // plays it in every one: there both solves must agree to a hundredth.
    constexpr double separated_chips = 3.0;
    recalc_accuracy[river_street - 1] = 0.001;
    int reached = 0, compared = 0, agreeing = 0;
    for (size_t s = 0; s < spots.size(); ++s) {
        const RiverSpot& spot = spots[s];
        // Within the 1000 passes; most stop at 0.001.
        EXPECT_LE(solve_on_demand(*engine, spot.node, spot.turn, spot.river), 0.005);
        // A second query on the card solves nothing.
        EXPECT_EQ(solve_on_demand(*engine, spot.node, spot.turn, spot.river), 0.0);
        const std::vector<float> again = shown(spot);
        const std::vector<float> reach = acting_reach(spot);
        const float largest = *std::max_element(reach.begin(), reach.end());
        const int count = hand_count(spot);
        const size_t actions = engine->nodes[spot.node].children.size();
        for (int h = 0; h < count; ++h) {
            if (!(reach[h] > 0.05f * largest)) continue;
            reached += static_cast<int>(actions);
            std::vector<double> value;
            for (size_t a = 0; a < actions; ++a) value.push_back(values[s][a][h]);
            std::sort(value.rbegin(), value.rend());
            if (value[0] - value[1] < separated_chips) continue;
            for (size_t a = 0; a < actions; ++a) {
                ++compared;
                agreeing += std::fabs(again[a * count + h] - full[s][a * count + h]) <= 0.01f;
            }
        }
    }
    EXPECT_EQ(agreeing, compared);
    // Most reached hands are that clear (1358 of 2192 shares): the check is
    // no small sample.
    EXPECT_GT(compared, reached / 2) << compared << " of " << reached << " shares";
    EXPECT_TRUE(engine->flags & incomplete_tree_flag);
}

// Turns forgotten on a flop tree: the flop stays, and a turn subgame solves
// from the reach kept in the root's list.
TEST(ForgetTurns, FlopStaysAndTurnSubgamesSolveFromTheRootList) {
    prepare_tables();
    threads = 2;
    build_test_game(flop_game());
    train(20);
    const double exploitable = calc_results_now().exploitable;
    const RiverSpot root{0, -1, -1};
    const std::vector<float> flop_before = shown(root);
    forget_street(*engine, turn_street);
    int first_turn = -1;
    for (size_t i = 0; i < engine->nodes.size() && first_turn < 0; ++i) {
        const TreeNode& node = engine->nodes[i];
        if (node.cache && node.street == turn_street && node.cache[0].reach_valid[0]) first_turn = int(i);
    }
    ASSERT_GE(first_turn, 0);
    EXPECT_EQ(engine->nodes[first_turn].cache[0].reach_sum[0].count, int(engine->root_board->hands.size()));
    EXPECT_EQ(calc_results_now().exploitable, exploitable);
    recalc_accuracy[turn_street - 1] = 5.0;
    EXPECT_LE(solve_on_demand(*engine, first_turn, 0, -1), 5.0);
    EXPECT_EQ(solve_on_demand(*engine, first_turn, 0, -1), 0.0);  // solved once
    EXPECT_TRUE(engine->nodes[first_turn].regrets);
    EXPECT_EQ(shown(root), flop_before);
    rebuild_streets(*engine);
    SolveSubgames(*engine, turn_street);
    EXPECT_EQ(engine->forgotten_from, -1);
    EXPECT_EQ(engine->iterations, 20);
    destroy_engine();
    recalc_accuracy[turn_street - 1] = 0;
}

}  // namespace
