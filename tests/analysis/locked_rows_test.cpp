// A locked row keeps its forced strategy through a solve, bit for bit, in
// every store the compression levels choose and with suit isomorphism on and
// off; the forced weights come back in the client's suits. Locks sent while
// the solver thread runs take hold at its next iteration.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <thread>
#include <tuple>

#include "analysis_test_support.h"
#include "solver/solver_driver.h"

namespace {

// Every action's strategy at the path, 1326 values each in memory order.
std::vector<RangeVector> shown(const std::string& path) {
    const NodeRef ref = parse_path(path);
    std::vector<RangeVector> rows;
    for (size_t a = 0; a < ref.node->children.size(); ++a)
        rows.push_back(get_strategy(ref.node->node_index, static_cast<int>(a), ref.turn, ref.river));
    return rows;
}

bool same_bits(double a, double b) { return (std::isnan(a) && std::isnan(b)) || a == b; }

// Waits for two more iterations of the solver thread.
void let_the_solver_iterate() {
    const int from = engine->iterations;
    while (engine->iterations < from + 2 && solver_running()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ASSERT_TRUE(solver_running());
}

class LockedRows : public testing::TestWithParam<std::tuple<int, bool>> {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void TearDown() override {
        request_solver_stop();
        wait_for_solver_end();
        destroy_engine();
        tree_ready = false;
    }
};

TEST_P(LockedRows, KeepTheirStrategyThroughASolve) {
    const auto [level, isomorphic] = GetParam();
    build_spot(Spot{.isomorphic = isomorphic, .compression = level}, class_range(41, 0.5), class_range(42, 0.5));
    // Before the first iteration (the river's tied hands are pooled in the
    // first iterations at some levels): a flop row and a river row with every
    // other hand locked.
    const std::vector<std::string> halves = {"r:0", "r:0:c:c:7c:c:c:8d:c"};
    std::vector<std::vector<RangeVector>> halves_before, whole_before;
    for (const std::string& half : halves) {
        force_random_strategy(half, 60);
        Tokens flags = {"combo_lock_node", half};
        for (int i = 0; i < combo_count; ++i) flags.push_back(i % 2 ? "1" : "0");
        EXPECT_EQ(replies_of([&] { cmd_combo_lock_node(flags); }), "combo_lock_node ok!\n");
        halves_before.push_back(shown(half));
    }
    ASSERT_TRUE(start_solver(0, false));
    let_the_solver_iterate();
    // While it runs: a flop row, a turn in a suit the flop lacks (stored as
    // its sibling under isomorphism), a river row in the streams, all locked
    // as a whole. Locked first, so that no iteration moves a row half forced.
    const std::vector<std::string> whole = {"r:0:b50", "r:0:c:c:7d", "r:0:c:c:7c:b50:c:8d"};
    std::vector<ForcedWeights> forced;
    for (size_t i = 0; i < whole.size(); ++i) {
        EXPECT_EQ(replies_of([&] { cmd_lock_node({"lock_node", whole[i]}); }), "lock_node ok!\n");
        forced.push_back(force_random_strategy(whole[i], 50 + static_cast<unsigned>(i)));
        whole_before.push_back(shown(whole[i]));
    }
    let_the_solver_iterate();
    request_solver_stop();
    wait_for_solver_end();

    for (size_t i = 0; i < whole.size(); ++i) {
        SCOPED_TRACE(whole[i]);
        const std::vector<RangeVector> after = shown(whole[i]);
        int compared = 0;
        for (size_t a = 0; a < after.size(); ++a) {
            for (int slot = 0; slot < combo_count; ++slot) {
                ASSERT_TRUE(same_bits(after[a][slot], whole_before[i][a][slot])) << a << " " << slot;
                if (std::isnan(after[a][slot]) || after[a][slot] == 0) continue;
                // The client's weights, shares of their sum, in the client's suits.
                const int index = combo_index[slot];
                double sum = 0;
                for (size_t b = 0; b < after.size(); ++b) sum += forced[i][b][index];
                ASSERT_NEAR(after[a][slot], forced[i][a][index] / sum, 0.01) << a << " " << slot;
                ++compared;
            }
        }
        EXPECT_GT(compared, 50);
    }
    for (size_t i = 0; i < halves.size(); ++i) {
        SCOPED_TRACE(halves[i]);
        const std::vector<RangeVector> after = shown(halves[i]);
        int kept = 0, learnt = 0;
        for (int slot = 0; slot < combo_count; ++slot) {
            if (!(after[0][slot] + after[1][slot] > 0)) continue;
            const bool locked = combo_index[slot] % 2 == 1;
            const bool same = same_bits(after[0][slot], halves_before[i][0][slot]);
            ASSERT_TRUE(same || !locked) << slot;
            kept += locked;
            learnt += !locked && !same;
        }
        EXPECT_GT(kept, 20);
        EXPECT_GT(learnt, 0);  // the other hands went on learning
    }
}

INSTANTIATE_TEST_SUITE_P(EveryLevel, LockedRows, testing::Combine(testing::Values(0, 1, 2, 3, 4, 5), testing::Bool()));

}  // namespace
