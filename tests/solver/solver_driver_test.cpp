// The solver thread's run control: its stop rules and the words it gives for
// them, its result records, and what a run keeps from the one before.
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "solver_test_support.h"

namespace {

// What the solver thread told its listener during one run.
struct Heard {
    bool started = false;
    std::vector<SolverReport> reports;
    std::optional<SolverStop> stop;
};
Heard heard;

void listen() {
    SolverListener listener;
    listener.started = [] { heard.started = true; };
    listener.progress = [](const SolverReport& report) { heard.reports.push_back(report); };
    listener.stopped = [](SolverStop reason) { heard.stop = reason; };
    set_solver_listener(listener);
}

class SolverDriverTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        prepare_tables();
        listen();
    }
    void SetUp() override {
        threads = 2;
        accuracy = 0;
        build_test_game(river_game());
    }
    void TearDown() override {
        request_solver_stop();
        wait_for_solver_end();
        accuracy = 0;
        destroy_engine();
    }

    // Runs to the end and returns what the thread told.
    static Heard run(int32_t limit, bool steps) {
        heard = Heard{};
        EXPECT_TRUE(start_solver(limit, steps));
        wait_for_solver_end();
        return heard;
    }
};

TEST_F(SolverDriverTest, StepsCountFromWhereTheLastRunEnded) {
    const Heard output = run(30, true);
    EXPECT_TRUE(output.started);
    EXPECT_EQ(output.stop, SolverStop::steps_done);
    EXPECT_EQ(engine->iterations, 30);
    // The first result comes at iteration 25, and is reported.
    ASSERT_EQ(output.reports.size(), 1u);
    EXPECT_EQ(output.reports[0].record.iterations, 25);
    run(30, true);
    EXPECT_EQ(engine->iterations, 60);
    // Zero steps still run one iteration: the limit is checked after it.
    run(0, true);
    EXPECT_EQ(engine->iterations, 61);
}

TEST_F(SolverDriverTest, AccuracyStopsAtTheFirstResultAndAnIncompleteTreeNeverStarts) {
    engine->flags |= incomplete_tree_flag;
    EXPECT_FALSE(start_solver(10, true));
    EXPECT_FALSE(solver_running());
    engine->flags &= ~incomplete_tree_flag;
    accuracy = 1000;
    EXPECT_EQ(run(0, false).stop, SolverStop::accuracy_reached);
    EXPECT_EQ(engine->iterations, 25);
}

// This game runs thousands of iterations a second: neither the ceiling nor a
// rounding-negative exploitability may end a timed run first.
TEST_F(SolverDriverTest, TimeoutAfterTheSeconds) {
    engine->max_iterations = INT32_MAX;
    accuracy = -1;
    const uint64_t start = clock_ns();
    EXPECT_EQ(run(1, false).stop, SolverStop::timeout);
    EXPECT_GE(clock_ns() - start, 1000000000u);
}

TEST_F(SolverDriverTest, StopAndTheIterationCeilingAreRequests) {
    heard = Heard{};
    ASSERT_TRUE(start_solver(0, false));
    EXPECT_FALSE(start_solver(0, false));  // one run at a time
    request_solver_stop();
    wait_for_solver_end();
    EXPECT_EQ(heard.stop, SolverStop::requested);
    EXPECT_FALSE(solver_running());
    wait_for_solver_end();  // returns at once with nothing running

    engine->max_iterations = engine->iterations + 3;
    EXPECT_EQ(run(0, false).stop, SolverStop::requested);
    EXPECT_EQ(engine->iterations, engine->max_iterations);
    // At the ceiling a run starts and stops without an iteration.
    const Heard at_ceiling = run(100, true);
    EXPECT_TRUE(at_ceiling.started);
    EXPECT_EQ(at_ceiling.stop, SolverStop::requested);
    EXPECT_EQ(engine->iterations, engine->max_iterations);
}

// Strategy sums of the root (OOP acts there, IP's walks add to them).
float root_sum_total() {
    const TreeNode& root = engine->nodes[0];
    const int actions = static_cast<int>(root.children.size());
    const int count = root.regrets->row_length(engine->root_turn_group, engine->root_river_row);
    std::vector<std::vector<float>> rows(actions, std::vector<float>(count));
    std::vector<float*> pointers;
    for (auto& row : rows) pointers.push_back(row.data());
    root.strategy_sums->read_strategy(pointers.data(), engine->root_turn_group, engine->root_river_row, {});
    float total = 0;
    for (const auto& row : rows)
        for (const float value : row) total += value;
    return total;
}

TEST_F(SolverDriverTest, StrategySumsStartAfterIterationSixty) {
    train(61);
    EXPECT_EQ(root_sum_total(), 0.0f);
    train(1);
    EXPECT_GT(root_sum_total(), 0.0f);
}

}  // namespace
