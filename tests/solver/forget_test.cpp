// Forgetting a street and solving its subgames again from the frozen reach,
// checked against the full solve of the same game.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "solver/forget.h"
#include "solver/node_strategy.h"
#include "solver/results.h"
#include "solver/solver_driver.h"
#include "solver/subgame_solve.h"
#include "solver/walk.h"
#include "shell/protocol/hand_vector.h"
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
    return static_cast<int>(engine->root_board->turns[spot.turn].rivers[spot.river].hands.size());
}

std::vector<float> strategy_at(const RiverSpot& spot) {
    const TreeNode& node = engine->nodes[spot.node];
    const int count = hand_count(spot);
    std::vector<float> out(node.children.size() * size_t(count));
    read_reported_strategy(*engine, node, spot.turn, spot.river, count, out.data());
    return out;
}

std::vector<float> flop_or_turn_strategy(int node_index) {
    const TreeNode& node = engine->nodes[node_index];
    const int count = static_cast<int>(engine->root_board->turns[turn_group()].hands.size());
    std::vector<float> out(node.children.size() * size_t(count));
    read_reported_strategy(*engine, node, turn_group(), -1, count, out.data());
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
        prepare_solver_tables();
        threads = 2;
        build_test_game(turn_game());
        open_all_storage(*engine);
    }
    void TearDown() override {
        destroy_engine();
        std::fill(std::begin(recalc_accuracy), std::end(recalc_accuracy), 0.0);
    }
    void train(int iterations) {
        for (int i = 0; i < iterations; ++i) run_iteration(*engine);
    }
};

TEST_F(ForgetTest, RiverSubgamesFromFrozenReachMatchTheFullSolve) {
    train(600);
    const SolverProgressRecord before = calc_results_now();
    ASSERT_LT(before.exploitable, 0.1);
    const std::vector<RiverSpot> spots = river_spots(3);
    ASSERT_FALSE(spots.empty());
    std::vector<std::vector<float>> full;
    for (const RiverSpot& spot : spots) full.push_back(strategy_at(spot));
    const std::vector<float> root_before = flop_or_turn_strategy(0);
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
    EXPECT_EQ(engine->forgotten_from, river_street);
    EXPECT_EQ(engine->street_bytes[river_street], 0);
    for (const TreeNode& node : engine->nodes) {
        if (node.street == river_street) {
            EXPECT_FALSE(node.regrets);
        }
    }
    // The kept street reads as before and the results stand.
    EXPECT_EQ(flop_or_turn_strategy(0), root_before);
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
        const std::vector<float> again = strategy_at(spot);
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

TEST_F(ForgetTest, RebuiltTurnTreesSolveTheirRiversAgain) {
    train(100);
    const SolverProgressRecord before = calc_results_now();
    const int32_t iterations = engine->iterations;
    forget_street(*engine, river_street);
    // Forgetting twice changes nothing.
    forget_street(*engine, river_street);
    EXPECT_EQ(engine->forgotten_from, river_street);
    int valid = 0;
    for (const TreeNode& node : engine->nodes) {
        if (!node.cache || node.street != river_street) continue;
        const SubgameCache& entry = node.cache[turn_group()];
        EXPECT_TRUE(entry.frozen);
        for (int p = 0; p < 2; ++p) {
            if (!entry.reach_valid[p]) {
                EXPECT_FALSE(entry.reach_sum[p].data);
                continue;
            }
            ++valid;
            double sum = 0;
            for (int h = 0; h < entry.reach_sum[p].count; ++h) sum += entry.reach_sum[p].data[h];
            EXPECT_NEAR(sum, 200.0, 1e-3);
        }
    }
    EXPECT_GT(valid, 2);
    // A partial solve that nobody asked about is no solve: nothing forgotten at the root.
    EXPECT_EQ(partial_solve_at(*engine, 0, turn_group(), -1), 0.0);

    rebuild_streets(*engine);
    EXPECT_FALSE(engine->flags & incomplete_tree_flag);
    EXPECT_GT(engine->street_bytes[river_street], 0);
    for (const TreeNode& node : engine->nodes) {
        if (node.kind == decision_node && node.street == river_street) {
            EXPECT_TRUE(node.regrets && node.opened);
        }
    }
    SolveSubgames(*engine, river_street);
    EXPECT_EQ(engine->forgotten_from, -1);
    EXPECT_EQ(engine->iterations, iterations);
    const SolverProgressRecord resolved = calc_results_now();
    EXPECT_LT(resolved.exploitable, before.exploitable * 1.1 + 0.05);
}

TEST(ForgetTurns, FlopStaysAndTurnSubgamesSolveFromTheRootList) {
    prepare_solver_tables();
    threads = 2;
    build_test_game(flop_game());
    open_all_storage(*engine);
    for (int i = 0; i < 20; ++i) run_iteration(*engine);
    const SolverProgressRecord before = calc_results_now();
    const int root_count = static_cast<int>(engine->root_board->hands.size());
    const auto root_strategy = [&] {
        std::vector<float> out(engine->nodes[0].children.size() * size_t(root_count));
        read_reported_strategy(*engine, engine->nodes[0], -1, -1, root_count, out.data());
        return out;
    };
    const std::vector<float> flop_before = root_strategy();

    forget_street(*engine, turn_street);
    EXPECT_EQ(engine->forgotten_from, turn_street);
    int first_turn = -1;
    for (size_t i = 0; i < engine->nodes.size(); ++i) {
        const TreeNode& node = engine->nodes[i];
        if (node.street >= turn_street) {
            EXPECT_FALSE(node.regrets);
        }
        if (first_turn < 0 && node.cache && node.street == turn_street && node.cache[0].reach_valid[0])
            first_turn = static_cast<int>(i);
    }
    ASSERT_GE(first_turn, 0);
    // A turn entry holds the reach in the root's list.
    EXPECT_EQ(engine->nodes[first_turn].cache[0].reach_sum[0].count, root_count);
    EXPECT_EQ(root_strategy(), flop_before);
    EXPECT_EQ(calc_results_now().exploitable, before.exploitable);

    recalc_accuracy[turn_street - 1] = 5.0;
    const double exploitability = solve_on_demand(*engine, first_turn, 0, -1);
    EXPECT_TRUE(exploitability <= 5.0) << exploitability;
    EXPECT_EQ(solve_on_demand(*engine, first_turn, 0, -1), 0.0);
    // The subgame's root got its rows back with the solve.
    EXPECT_TRUE(engine->nodes[first_turn].regrets);
    EXPECT_EQ(root_strategy(), flop_before);

    rebuild_streets(*engine);
    for (const TreeNode& node : engine->nodes) {
        if (node.kind == decision_node && !node.children.empty()) {
            EXPECT_TRUE(node.regrets && node.opened);
        }
    }
    SolveSubgames(*engine, turn_street);
    EXPECT_EQ(engine->forgotten_from, -1);
    EXPECT_EQ(engine->iterations, 20);
    destroy_engine();
    recalc_accuracy[turn_street - 1] = 0;
}

}  // namespace
