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
#include "solver/tree_file_commands.h"
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

// Forces random weights (each in 0.1..1, so no hand is left on the default)
// on every action of the node at `path`, and records them for the plain
// evaluation, which deals `river` to reach the node (-1: none). Locks the
// node, or every other hand by hand order.
ForcedStrategy force_and_lock(const std::string& path, Card river, bool half, unsigned seed) {
    const TreeNode& node = engine->nodes[parse_path(path).node->node_index];
    ForcedStrategy forced{&node, -1, river, {}, std::vector<bool>(combo_count, true)};
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
    if (!half) {
        run(cmd_lock_node, {"lock_node", path});
        return forced;
    }
    std::vector<double> flags(combo_count);
    for (int i = 0; i < combo_count; ++i) flags[i] = i % 2;
    run(cmd_combo_lock_node, with_values({"combo_lock_node", path}, flags));
    for (int slot = 0; slot < combo_count; ++slot) forced.locked[slot] = combo_index[slot] % 2 == 1;
    return forced;
}

class NodeLocksTest : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void SetUp() override {
        threads = 2;
        simd_level = 8;
    }
    void TearDown() override { destroy_engine(); }
};

// Each case is checked right after the lock, after training on, and read back
// from a tree file, which keeps the rows and the locks.
TEST_F(NodeLocksTest, LockedGamesMatchThePlainEvaluation) {
    TestGame iso_flop = flop_game();
    // Canonical suits as given: hearts and spades are missing, and each
    // stored turn in hearts stands for the spade of its rank too.
    iso_flop.flop = "Kc 7c 2d";
    iso_flop.share = 0.08;
    struct Case {
        const char* name;
        TestGame game;
        int before, after;  // iterations before the lock and after
        const char* path;
        Card river;  // that the plain evaluation deals to reach the node
        bool half;
    };
    const Case cases[] = {
        {"IP after OOP's check", river_game(), 10, 72, "r:0:c", -1, false},
        // Sums have begun: the forced actions' sums are zeroed, so the locked
        // hands' average falls back on the forced weights.
        {"OOP's root, half locked", river_game(), 70, 12, "r:0", -1, true},
        {"a river row that streams", turn_game(), 8, 62, "r:0:c:c:7c", card_of("7c"), false},
        {"IP facing a turn bet, half locked", turn_game(), 65, 10, "r:0:b50", -1, true},
        // A hand and its image in the other missing suit are often locked
        // apart, so the reach into a stored turn differs from that into the
        // turn it stands for.
        {"flop root under isomorphism, half locked", iso_flop, 3, 4, "r:0", -1, true},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(c.name);
        build_test_game(c.game);
        train(c.before);
        std::vector<ForcedStrategy> forced = {force_and_lock(c.path, c.river, c.half, unsigned(7 + i))};
        const auto check = [&](const char* stage) {
            SCOPED_TRACE(stage);
            NaiveEvaluator naive(*engine, forced);
            expect_matches_naive(naive, 1e-4);
        };
        check("locked");
        train(c.after);
        check("trained on");
        const std::string file = testing::TempDir() + "locked.tree";
        const ptrdiff_t node = forced[0].node - engine->nodes.data();
        run(cmd_dump_tree, {"dump_tree", file});
        run(cmd_load_tree, {"load_tree", file});
        std::remove(file.c_str());
        forced[0].node = &engine->nodes[node];
        check("read back from a tree file");
        if (i == 0) {
            // The check has teeth: the locked player's free best response is
            // worth more than the one held to the lock. With nothing forced
            // the evaluation plays the stored rows, which are the forced weights.
            NaiveEvaluator held(*engine, forced), unheld(*engine);
            EXPECT_GT(unheld.evaluate(1).second, held.evaluate(1).second + 0.01);
        }
        destroy_engine();
    }
}

TEST_F(NodeLocksTest, BoostRaisesTheActionInTrainingOnly) {
    // Runs of the same river game with a boost on OOP's bet.
    auto bet_share = [&](double boost) {
        build_test_game(river_game());
        train(5);
        const SolverProgressRecord before = calc_results_now();
        run(cmd_set_ev_boost, {"set_ev_boost", "r:0:b50", std::to_string(boost)});
        const SolverProgressRecord after = calc_results_now();
        // An evaluation of the same strategy is as it was.
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
    EXPECT_GT(bet_share(1.0), plain + 0.05);
    EXPECT_LT(bet_share(-0.99), 0.5 * plain);
}

}  // namespace
