// Different roads through the walk to the same game: the flop dealt with suit
// isomorphism (one board standing for up to four, values spread back through
// image tables) or without, on one thread or several.
#include <gtest/gtest.h>

#include "solver/results.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"
#include "solver_test_support.h"
#include "tree/boards.h"

namespace {

// Trains the built game and gives its results; the tree goes afterwards.
SolverProgressRecord train_and_evaluate(int iterations) {
    open_all_storage(*engine);
    for (int i = 0; i < iterations; ++i) run_iteration(*engine);
    const SolverProgressRecord results = calc_results_now();
    destroy_engine();
    return results;
}

void expect_same_results(const SolverProgressRecord& a, const SolverProgressRecord& b, double tolerance) {
    EXPECT_NEAR(a.ev_oop, b.ev_oop, tolerance);
    EXPECT_NEAR(a.ev_ip, b.ev_ip, tolerance);
    EXPECT_NEAR(a.mes_oop, b.mes_oop, tolerance);
    EXPECT_NEAR(a.mes_ip, b.mes_ip, tolerance);
}

SolverProgressRecord solve_flop(bool isomorphic, int thread_count, int iterations) {
    isomorphism_by_street[flop_street] = isomorphic;
    threads = thread_count;
    build_test_game(flop_game());
    EXPECT_EQ((engine->flags & isomorphism_on_flag) != 0, isomorphic);
    return train_and_evaluate(iterations);
}

TEST(WalkPaths, FlopWithAndWithoutIsomorphismAgree) {
    prepare_solver_tables();
    // Symmetric ranges on a two-suited flop: the isomorphic walk solves the
    // same game with fewer boards, so the numbers agree up to f32 rounding.
    const SolverProgressRecord folded = solve_flop(true, 1, 8);
    const SolverProgressRecord plain = solve_flop(false, 2, 8);
    isomorphism_by_street[flop_street] = true;
    threads = 2;
    expect_same_results(folded, plain, 0.02);
    EXPECT_NEAR(folded.ev_oop + folded.ev_ip, 0.0, 0.01);
    // The game is far from solved after eight iterations: agreement is not
    // a matter of both being near the equilibrium.
    EXPECT_GT(folded.exploitable, 0.5);
}

// All-in showdowns before the river: played out from the turn boards' runout
// tables, or without them card by card through the river chance nodes. In a
// flop tree they run inside the turn tasks, in a turn tree in the ascent.
SolverProgressRecord solve_with_runouts(const TestGame& game, bool tables, int iterations) {
    build_test_game(game);
    bool any_table = false;
    for (RunoutBoard& turn : engine->root_board->turns) {
        any_table |= !turn.runout_wins.empty();
        if (!tables) turn.runout_wins.clear();
    }
    EXPECT_TRUE(any_table) << "the game should have all-in lines before the river";
    return train_and_evaluate(iterations);
}

TEST(WalkPaths, RunoutTablesAgreeWithWalkingTheRiverCards) {
    prepare_solver_tables();
    threads = 2;
    // Past iteration 60 the turn game's results read strategy sums too.
    for (const auto& [game, iterations] : {std::pair{turn_game(), 64}, std::pair{flop_game(), 12}}) {
        const SolverProgressRecord folded = solve_with_runouts(game, true, iterations);
        const SolverProgressRecord walked = solve_with_runouts(game, false, iterations);
        SCOPED_TRACE(game.turn.empty() ? "flop game" : "turn game");
        expect_same_results(folded, walked, 0.01);
    }
}

struct CapturedRoot {
    std::vector<float> value;
    std::vector<float> own_reach;
    int visits = 0;
};

void keep_root(CaptureRequest& request, const WalkFrame& frame) {
    auto& kept = *static_cast<CapturedRoot*>(request.context);
    ++kept.visits;
    kept.value.assign(frame.value.count, 0.0f);
    if (frame.value.data) kept.value.assign(frame.value.data, frame.value.data + frame.value.count);
    kept.own_reach.assign(frame.own_reach.data, frame.own_reach.data + frame.own_reach.count);
}

TEST(WalkPaths, CaptureAtTheRootSeesTheEvaluatedValues) {
    prepare_solver_tables();
    build_test_game(river_game());
    open_all_storage(*engine);
    for (int i = 0; i < 5; ++i) run_iteration(*engine);
    const SolverProgressRecord results = calc_results_now();
    for (int player = 0; player < 2; ++player) {
        CapturedRoot kept;
        CaptureRequest request;
        request.node = &engine->nodes[0];
        request.turn = engine->root_turn_group;
        request.river = engine->root_river_row;
        request.capture = keep_root;
        request.context = &kept;
        walk_capture(*engine, player, request);
        EXPECT_EQ(engine->capture_request, nullptr);
        // After the descent only: the ascent's one visit.
        EXPECT_EQ(kept.visits, 1);
        ASSERT_EQ(kept.value.size(), engine->root_reach[player].size());
        EXPECT_EQ(kept.own_reach, engine->root_weights[player]);
        double ev = 0;
        for (size_t h = 0; h < kept.value.size(); ++h) ev += double(kept.value[h]) * engine->root_reach[player][h];
        EXPECT_NEAR(ev, player == 0 ? results.ev_oop : results.ev_ip, 1e-3);
    }
    destroy_engine();
}

}  // namespace
