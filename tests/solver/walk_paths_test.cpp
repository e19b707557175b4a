// The walk's results against a plain evaluation of the same strategies, and
// different roads through the walk to the same game: suit isomorphism or not,
// one thread or several, runout tables or river cards, the batch or the
// plain river walk.
#include <gtest/gtest.h>

#include "naive_evaluator.h"
#include "shell/protocol/processor.h"
#include "solver/results.h"
#include "solver_test_support.h"

namespace {

class WalkPaths : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void SetUp() override { threads = 2; }
    void TearDown() override {
        destroy_engine();
        simd_level = 8;
        isomorphism_by_street[flop_street] = true;
    }
};

// From the uniform strategy after the build, through the current one, to the
// average (past iteration 60); simd level 1 walks river nodes one by one with
// the pair kernel instead of the batch.
TEST_F(WalkPaths, ResultsMatchThePlainEvaluation) {
    struct Case {
        TestGame game;
        int simd_level;
        std::vector<int> stages;  // iterations before each check
    };
    for (const Case& c : {Case{river_game(), 8, {0, 12, 70}}, Case{turn_game(), 8, {0, 9, 60}},
                          Case{turn_game(), 1, {65}}}) {
        SCOPED_TRACE(c.game.river.empty() ? "turn game" : "river game");
        simd_level = c.simd_level;
        build_test_game(c.game);
        for (const int iterations : c.stages) {
            train(iterations);
            SCOPED_TRACE("iteration " + std::to_string(engine->iterations));
            NaiveEvaluator naive(*engine);
            expect_matches_naive(naive, 0.01);
        }
        destroy_engine();
    }
}

void expect_same_results(const SolverProgressRecord& a, const SolverProgressRecord& b, double tolerance) {
    EXPECT_NEAR(a.ev_oop, b.ev_oop, tolerance);
    EXPECT_NEAR(a.ev_ip, b.ev_ip, tolerance);
    EXPECT_NEAR(a.mes_oop, b.mes_oop, tolerance);
    EXPECT_NEAR(a.mes_ip, b.mes_ip, tolerance);
}

// Trains the built game and gives its results; the tree goes afterwards.
SolverProgressRecord train_and_evaluate(int iterations) {
    train(iterations);
    const SolverProgressRecord results = calc_results_now();
    destroy_engine();
    return results;
}

TEST_F(WalkPaths, FlopWithAndWithoutIsomorphismAgree) {
    // Symmetric ranges on a two-suited flop: the isomorphic walk solves the
    // same game with fewer boards (values spread back through image tables).
    SolverProgressRecord results[2];
    for (const bool isomorphic : {true, false}) {
        isomorphism_by_street[flop_street] = isomorphic;
        threads = isomorphic ? 1 : 2;
        build_test_game(flop_game());
        EXPECT_EQ((engine->flags & isomorphism_on_flag) != 0, isomorphic);
        results[isomorphic] = train_and_evaluate(8);
    }
    expect_same_results(results[0], results[1], 0.02);
    EXPECT_NEAR(results[1].ev_oop + results[1].ev_ip, 0.0, 0.01);
    // Far from solved: agreement is not a matter of both being near the equilibrium.
    EXPECT_GT(results[1].exploitable, 0.5);
}

// All-in showdowns before the river: played out from the turn boards' runout
// tables, or card by card through the river chance nodes. In a flop tree they
// run inside the turn tasks, in a turn tree in the ascent.
TEST_F(WalkPaths, RunoutTablesAgreeWithWalkingTheRiverCards) {
    // Past iteration 60 the turn game's results read strategy sums too.
    for (const auto& [game, iterations] : {std::pair{turn_game(), 64}, std::pair{flop_game(), 12}}) {
        SCOPED_TRACE(game.turn.empty() ? "flop game" : "turn game");
        SolverProgressRecord results[2];
        for (const bool tables : {true, false}) {
            build_test_game(game);
            bool any_table = false;
            for (RunoutBoard& turn : engine->root_board->turns) {
                any_table |= !turn.runout_wins.empty();
                if (!tables) turn.runout_wins.clear();
            }
            EXPECT_TRUE(any_table) << "the game should have all-in lines before the river";
            results[tables] = train_and_evaluate(iterations);
        }
        expect_same_results(results[0], results[1], 0.01);
    }
}

}  // namespace
