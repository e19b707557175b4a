// The solver's results against a plain recursive evaluation of the same
// strategies (naive_evaluator.h).
#include <gtest/gtest.h>

#include "naive_evaluator.h"
#include "shell/protocol/processor.h"
#include "solver/results.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"
#include "solver_test_support.h"

namespace {

class IndependentResultsTest : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_solver_tables(); }
    void SetUp() override {
        threads = 2;
        simd_level = 8;
    }
    void TearDown() override {
        destroy_engine();
        simd_level = 8;
    }

    void train(int iterations) {
        open_all_storage(*engine);
        for (int i = 0; i < iterations; ++i) run_iteration(*engine);
    }

    // calc_results against the plain evaluation, both players.
    void expect_results_match(const char* stage) {
        const SolverProgressRecord results = calc_results_now();
        NaiveEvaluator naive(*engine);
        SCOPED_TRACE(stage);
        const double exploitable = expect_matches_naive(results, naive, 0.01);
        EXPECT_GE(results.mes_oop, results.ev_oop - 0.01);
        EXPECT_GE(results.mes_ip, results.ev_ip - 0.01);
        EXPECT_NEAR(results.exploitable, exploitable, 0.01);
    }
};

TEST_F(IndependentResultsTest, RiverGameFromUniformToAverage) {
    build_test_game(river_game());
    expect_results_match("uniform strategy after the build");
    train(12);
    expect_results_match("current strategy at iteration 12");
    train(70);
    expect_results_match("average strategy at iteration 82");
}

TEST_F(IndependentResultsTest, TurnGameFromUniformToAverage) {
    build_test_game(turn_game());
    expect_results_match("uniform strategy after the build");
    train(9);
    expect_results_match("current strategy at iteration 9");
    train(60);
    expect_results_match("average strategy at iteration 69");
}

TEST_F(IndependentResultsTest, TurnGameWithThePlainRiverWalk) {
    // simd level 1 walks river nodes one by one with the pair kernel instead
    // of the batch: another code path to the same numbers.
    simd_level = 1;
    build_test_game(turn_game());
    train(65);
    expect_results_match("plain river walk at iteration 65");
}

}  // namespace
