// Queries, setting changes and stop/go cycles while the solver thread runs:
// nothing may crash, hang or leave a run without its end.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "solver/results.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"
#include "solver_test_support.h"

namespace {

int occurrences(const std::string& text, const std::string& pattern) {
    int count = 0;
    for (size_t at = text.find(pattern); at != std::string::npos; at = text.find(pattern, at + 1)) ++count;
    return count;
}

TEST(SolverSoak, QueriesAndRestartsWhileSolving) {
    prepare_solver_tables();
    build_test_game(flop_game());
    accuracy = 0;
    testing::internal::CaptureStdout();
    int runs = 0;
    for (int cycle = 0; cycle < 12; ++cycle) {
        threads = 1 + cycle % 3;
        ASSERT_TRUE(start_solver(cycle % 4 == 3 ? 2 : 0, true));
        ++runs;
        EXPECT_FALSE(start_solver(0, false));
        for (int query = 0; query < 2; ++query) {
            // The two walks may see the strategies of two different
            // iterations, so the values need not add up to zero here.
            const SolverProgressRecord results = calc_results_now();
            EXPECT_TRUE(std::isfinite(results.exploitable));
            int count = 0;
            copy_history(count);
        }
        if (cycle % 3 == 1) {
            // New stores while the run goes on, as a new compression level
            // makes them: the next walk opens them and carries on.
            std::lock_guard lock(engine_lock);
            assign_storage({0, 0});
            clear_solver_history();
        }
        if (cycle % 2 == 0) request_solver_stop();
        if (cycle % 4 != 3) request_solver_stop();
        wait_for_solver_end();
        EXPECT_FALSE(solver_running());
    }
    const std::string output = testing::internal::GetCapturedStdout();
    // Failures while capturing went into the capture.
    if (HasFailure()) std::fputs(output.c_str(), stderr);
    EXPECT_EQ(occurrences(output, "SOLVER: started\n"), runs);
    EXPECT_EQ(occurrences(output, "SOLVER: stopped ("), runs);
    const SolverProgressRecord results = calc_results_now();
    EXPECT_NEAR(results.ev_oop + results.ev_ip, 0.0, 0.05);
    threads = 2;
    destroy_engine();
}

}  // namespace
