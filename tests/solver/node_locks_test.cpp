// Forced strategies and locks against a plain recursive evaluation that plays
// the forced weights itself (naive_evaluator.h): the other player's value and
// both best responses must be those of the game in which the locked player
// may not deviate. The EV boost, which changes training and not evaluation.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "naive_evaluator.h"
#include "shell/protocol/processor.h"
#include "shell/protocol/reply.h"
#include "solver/lock_commands.h"
#include "solver/results.h"
#include "solver/solver_driver.h"
#include "solver/tree_file_commands.h"
#include "solver/walk.h"
#include "solver_test_support.h"
#include "tree/paths.h"

namespace {

// Runs a handler as the interpreter would and drops its reply.
void run(void (*handler)(const Tokens&), const Tokens& tokens) {
    testing::internal::CaptureStdout();
    handler(tokens);
    flush_replies();
    fflush(stdout);
    testing::internal::GetCapturedStdout();
}

// 1326 numbers in hand order, as a client sends them, after `prefix`.
Tokens with_values(Tokens prefix, const std::vector<double>& by_index) {
    for (const double value : by_index) prefix.push_back(std::to_string(value));
    return prefix;
}

class NodeLocksTest : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_solver_tables(); }
    void SetUp() override {
        threads = 2;
        simd_level = 8;
    }
    void TearDown() override { destroy_engine(); }

    void train(int iterations) {
        open_all_storage(*engine);
        for (int i = 0; i < iterations; ++i) run_iteration(*engine);
    }

    // Forces random weights (each in 0.1..1, so no hand is left on the
    // default) on every action of the node at `path`, and records them for
    // the plain evaluation. `naive_turn`/`naive_river` are the cards that
    // evaluation deals to reach the node (-1 where none is dealt).
    ForcedStrategy force(const std::string& path, Card naive_turn, Card naive_river, unsigned seed) {
        const NodeRef ref = parse_path(path);
        const TreeNode& node = engine->nodes[ref.node->node_index];
        ForcedStrategy forced{&node, naive_turn, naive_river, {}, std::vector<bool>(combo_count, true)};
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> draw(0.1, 1.0);
        for (size_t child = 0; child < node.children.size(); ++child) {
            std::vector<double> by_index(combo_count);
            for (double& weight : by_index) weight = draw(random);
            run(cmd_set_strategy, with_values({"set_strategy", path, std::to_string(child)}, by_index));
            Row by_slot(combo_count);
            for (int slot = 0; slot < combo_count; ++slot) by_slot[slot] = by_index[combo_index[slot]];
            forced.weights.push_back(by_slot);
        }
        return forced;
    }

    // Locks every other hand (by hand order) instead of the whole row.
    static void lock_half(const std::string& path, ForcedStrategy& forced) {
        std::vector<double> flags(combo_count);
        for (int i = 0; i < combo_count; ++i) flags[i] = i % 2;
        run(cmd_combo_lock_node, with_values({"combo_lock_node", path}, flags));
        for (int slot = 0; slot < combo_count; ++slot) forced.locked[slot] = combo_index[slot] % 2 == 1;
    }

    static void expect_results_match(const std::vector<ForcedStrategy>& forced, const char* stage) {
        const SolverProgressRecord results = calc_results_now();
        NaiveEvaluator naive(*engine, forced);
        SCOPED_TRACE(stage);
        expect_matches_naive(results, naive, 1e-4);
    }

    // The same, and the check has teeth: the free best response of the
    // locked player is worth more than the one held to the lock.
    static void expect_lock_binds(const std::vector<ForcedStrategy>& forced, int locked_player) {
        NaiveEvaluator held(*engine, forced);
        // With nothing locked the evaluation plays the stored rows, which are
        // the forced weights; only the best response changes.
        NaiveEvaluator unheld(*engine);
        EXPECT_GT(unheld.evaluate(locked_player).second, held.evaluate(locked_player).second + 0.01);
    }
};

TEST_F(NodeLocksTest, RiverGameAgainstAForcedStrategy) {
    build_test_game(river_game());
    train(10);
    // IP after OOP's check: every hand plays the client's weights.
    std::vector<ForcedStrategy> forced = {force("r:0:c", -1, -1, 7)};
    run(cmd_lock_node, {"lock_node", "r:0:c"});
    expect_results_match(forced, "locked before training on");
    train(72);
    expect_results_match(forced, "average strategy at iteration 82");
    expect_lock_binds(forced, 1);
}

TEST_F(NodeLocksTest, RiverGameWithHalfTheHandsLocked) {
    build_test_game(river_game());
    train(70);
    // Sums have begun: the forced actions' sums are zeroed, so the locked
    // hands' average falls back on the forced weights.
    std::vector<ForcedStrategy> forced = {force("r:0", -1, -1, 8)};
    lock_half("r:0", forced[0]);
    train(12);
    expect_results_match(forced, "OOP's root, odd hands locked");
}

TEST_F(NodeLocksTest, TurnGameLockedOnAStreamedRiverRow) {
    build_test_game(turn_game());
    train(8);
    // OOP's first river decision under 7c: a row of the river streams.
    std::vector<ForcedStrategy> forced = {force("r:0:c:c:7c", -1, __builtin_ctzll(parse_cards("7c")), 9)};
    run(cmd_lock_node, {"lock_node", "r:0:c:c:7c"});
    train(62);
    expect_results_match(forced, "river row locked, average at iteration 70");
}

TEST_F(NodeLocksTest, TurnGameWithHalfATurnNodeLocked) {
    build_test_game(turn_game());
    train(65);
    std::vector<ForcedStrategy> forced = {force("r:0:b50", -1, -1, 10)};
    lock_half("r:0:b50", forced[0]);
    train(10);
    expect_results_match(forced, "IP facing a bet, odd hands locked");
}

TEST_F(NodeLocksTest, FlopGameWithHalfTheRootLockedUnderIsomorphism) {
    TestGame game = flop_game();
    // Canonical suits as given: hearts and spades are missing, and each
    // stored turn in hearts stands for the spade of its rank too.
    game.flop = "Kc 7c 2d";
    game.share = 0.08;
    build_test_game(game);
    ASSERT_EQ(engine->root_board->mask, engine->dead);
    ASSERT_EQ(engine->root_board->turns.back().multiplicity, 2);
    train(3);
    // Every other hand by hand order: a hand and its image in the other
    // missing suit are often locked apart, so the reach into a stored turn
    // differs from that into the turn it stands for.
    std::vector<ForcedStrategy> forced = {force("r:0", -1, -1, 11)};
    lock_half("r:0", forced[0]);
    expect_results_match(forced, "flop root, odd hands locked, before training on");
    train(4);
    expect_results_match(forced, "flop root, odd hands locked, at iteration 7");
    // A tree file keeps the rows and the locks, and is walked the same way.
    const std::string file = testing::TempDir() + "locked_flop.tree";
    run(cmd_dump_tree, {"dump_tree", file});
    run(cmd_load_tree, {"load_tree", file});
    std::remove(file.c_str());
    forced[0].node = &engine->nodes[0];
    expect_results_match(forced, "read back from a tree file");
}

TEST_F(NodeLocksTest, BoostRaisesTheActionInTrainingOnly) {
    // Two runs of the same river game, one with a boost on OOP's bet.
    auto bet_share = [&](double boost) {
        build_test_game(river_game());
        train(5);
        const SolverProgressRecord before = calc_results_now();
        run(cmd_set_ev_boost, {"set_ev_boost", "r:0:b50", std::to_string(boost)});
        const SolverProgressRecord after = calc_results_now();
        // The boost leaves an evaluation of the same strategy as it was.
        EXPECT_EQ(before.ev_oop, after.ev_oop);
        EXPECT_EQ(before.mes_ip, after.mes_ip);
        train(40);
        const TreeNode& root = engine->nodes[0];
        const BoardIndex board = board_index(engine->fixed_turn, engine->fixed_river);
        const int count = root.regrets->row_length(board.group, board.row);
        std::vector<std::vector<float>> rows(root.children.size(), std::vector<float>(count));
        std::vector<float*> out;
        for (auto& row : rows) out.push_back(row.data());
        const std::vector<float> uniform(root.children.size(), 1.0f / root.children.size());
        root.regrets->read_strategy(out.data(), board.group, board.row, uniform);
        double bets = 0;
        for (const float share : rows[1]) bets += share;
        destroy_engine();
        return bets / count;
    };
    const double plain = bet_share(0.0);
    const double boosted = bet_share(1.0);
    const double damped = bet_share(-0.99);
    EXPECT_GT(boosted, plain + 0.05);
    EXPECT_LT(damped, 0.5 * plain);
}

}  // namespace
