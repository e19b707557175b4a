// Strategy reports against rows written into the stores by hand, and the
// engine's lock around every query.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>

#include "analysis/capture_values.h"
#include "analysis/hand_rows.h"
#include "analysis/line_reach.h"
#include "analysis/ranges.h"
#include "analysis_test_support.h"
#include "solver/results.h"

namespace {

class StrategyReports : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void SetUp() override { build_spot(Spot{}, class_range(11, 0.6), class_range(12, 0.6)); }
    void TearDown() override {
        destroy_engine();
        tree_ready = false;
    }
};

// The regret-matched strategy of spread_regret at list index `hand`.
float matched(int action, int hand) {
    const float total = spread_regret(0, hand) + spread_regret(1, hand);
    return total > 0 ? spread_regret(action, hand) / total : 0.5f;
}

TEST_F(StrategyReports, TheAverageShowsFromIteration63WithTheCurrentStrategyForUnreachedHands) {
    const auto sums = [](int action, int hand) { return hand % 5 == 0 ? 0.0f : float(1 + action * 3 + hand % 4); };
    for (const char* path : {"r:0", "r:0:c:c:7c:b50:c:8d"}) {
        SCOPED_TRACE(path);
        const NodeRef ref = parse_path(path);
        const BoardIndex index = board_index(ref.turn, ref.river);
        TreeNode& node = engine->nodes[ref.node->node_index];
        write_node_rows(node, false, index.group, index.row, spread_regret);
        write_node_rows(node, true, index.group, index.row, sums);
        engine->iterations = 62;
        StrategyRows rows = read_strategy_rows(ref.node->node_index, ref.turn, ref.river);
        for (int h = 0; h < rows.board.hand_count; ++h) ASSERT_NEAR(rows.row(1)[h], matched(1, h), 1e-6);
        engine->iterations = 63;
        rows = read_strategy_rows(ref.node->node_index, ref.turn, ref.river);
        for (int h = 0; h < rows.board.hand_count; ++h) {
            const float average = sums(1, h) / (sums(0, h) + sums(1, h));
            ASSERT_NEAR(rows.row(1)[h], h % 5 == 0 ? matched(1, h) : average, 1e-6) << h;
        }
    }
}

// Every query that reads the stores or walks the tree waits for the engine's
// lock, which the solver thread holds through each of its walks.
TEST_F(StrategyReports, QueriesWaitForTheEngineLock) {
    const NodeRef river = parse_path("r:0:c:c:7c:b50:c:8d");
    const std::pair<const char*, std::function<void()>> queries[] = {
        {"strategy", [&] { read_strategy_rows(river.node->node_index, river.turn, river.river); }},
        {"range", [] { range_at(IP, "r:0:c:c:7c:b50"); }},
        {"values", [&] {
             RangeVector values, weights;
             capture_values(OOP, river.node->node_index, river.turn, river.river, values, weights);
         }},
        {"frequency", [&] { line_sum(river.node->node_index, river.turn, river.river); }},
        {"results", [] { calc_results_now(); }},
    };
    for (const auto& [name, query] : queries) {
        std::atomic<bool> done = false;
        engine_lock.lock();  // a walk in progress
        std::thread asker([&] {
            query();
            done = true;
        });
        while (!engine_lock.has_waiters() && !done) std::this_thread::yield();
        EXPECT_FALSE(done) << "the " << name << " query ran without the lock";
        engine_lock.unlock();
        asker.join();
    }
}

TEST(ReportLines, ALineThatOverflowsItsBufferIsRefused) {
    const double values[] = {0.5, NAN, 1.0 / 3.0, -2};
    EXPECT_EQ(values_line(values, "%.12g", "0"), "0.5 0 0.333333333333 -2\n");
    // 23 characters and the newline need 25 bytes with the terminating zero.
    EXPECT_NO_THROW(values_line(values, "%.12g", "0", 25));
    EXPECT_THROW(values_line(values, "%.12g", "0", 24), std::runtime_error);
}

}  // namespace
