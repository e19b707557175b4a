// A locked row keeps its forced strategy through a solve, bit for bit, in
// every store the compression levels choose and with suit isomorphism on and
// off; the forced weights come back in the client's suits.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>

#include "analysis/strategy_read.h"
#include "analysis/strategy_reports.h"
#include "analysis_test_support.h"
#include "solver/lock_commands.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"

namespace {

// Weights in hand order per action, as the client sent them.
using Weights = std::vector<std::vector<double>>;

class LockedRows : public testing::TestWithParam<std::tuple<int, bool>> {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void TearDown() override {
        destroy_engine();
        tree_ready = false;
    }

    // Random weights (0.1..1) for every action of the node, set one action
    // at a time.
    static Weights force(const std::string& path, unsigned seed) {
        const NodeRef ref = parse_path(path);
        const size_t actions = engine->nodes[ref.node->node_index].children.size();
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> draw(0.1, 1.0);
        Weights weights(actions, std::vector<double>(combo_count));
        for (size_t a = 0; a < actions; ++a) {
            Tokens tokens = {"set_strategy", path, std::to_string(a)};
            for (double& w : weights[a]) {
                w = draw(random);
                tokens.push_back(std::to_string(w));
            }
            EXPECT_EQ(replies_of([&] { cmd_set_strategy(tokens); }), "set_strategy ok!\n");
        }
        return weights;
    }

    // Every action's strategy at the path, 1326 values each in memory order.
    static std::vector<RangeVector> shown(const std::string& path) {
        const NodeRef ref = parse_path(path);
        const int node = ref.node->node_index;
        std::vector<RangeVector> rows;
        for (size_t a = 0; a < engine->nodes[node].children.size(); ++a)
            rows.push_back(get_strategy(node, static_cast<int>(a), ref.turn, ref.river));
        return rows;
    }
};

bool same_bits(double a, double b) { return (std::isnan(a) && std::isnan(b)) || a == b; }

TEST_P(LockedRows, KeepTheirStrategyThroughASolve) {
    const auto [level, isomorphic] = GetParam();
    Spot spot;
    spot.compression = level;
    spot.isomorphic = isomorphic;
    build_spot(spot, class_range(41, 0.5), class_range(42, 0.5));

    // A flop row, a turn in a suit the flop lacks (stored as its sibling under
    // isomorphism), a river row in the streams; all locked as a whole. And a
    // flop row and a river row with every other hand locked (the river's
    // tied hands are pooled in the first iterations at some levels).
    const std::vector<std::string> whole = {"r:0:b50", "r:0:c:c:7d", "r:0:c:c:7c:b50:c:8d"};
    const std::vector<std::string> halves = {"r:0", "r:0:c:c:7c:c:c:8d:c"};
    std::vector<Weights> forced;
    for (size_t i = 0; i < whole.size(); ++i) {
        forced.push_back(force(whole[i], 50 + static_cast<unsigned>(i)));
        EXPECT_EQ(replies_of([&] { cmd_lock_node({"lock_node", whole[i]}); }), "lock_node ok!\n");
    }
    for (const std::string& half : halves) {
        force(half, 60);
        Tokens flags = {"combo_lock_node", half};
        for (int i = 0; i < combo_count; ++i) flags.push_back(i % 2 ? "1" : "0");
        EXPECT_EQ(replies_of([&] { cmd_combo_lock_node(flags); }), "combo_lock_node ok!\n");
    }

    std::vector<std::vector<RangeVector>> before, halves_before;
    for (const std::string& path : whole) before.push_back(shown(path));
    for (const std::string& path : halves) halves_before.push_back(shown(path));

    open_all_storage(*engine);
    for (int i = 0; i < 3; ++i) run_iteration(*engine);

    for (size_t i = 0; i < whole.size(); ++i) {
        SCOPED_TRACE(whole[i]);
        const std::vector<RangeVector> after = shown(whole[i]);
        int compared = 0;
        for (size_t a = 0; a < after.size(); ++a) {
            for (int slot = 0; slot < combo_count; ++slot) {
                ASSERT_TRUE(same_bits(after[a][slot], before[i][a][slot])) << a << " " << slot;
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
        ASSERT_GE(after.size(), 2u);
        int kept = 0, learnt = 0;
        for (int slot = 0; slot < combo_count; ++slot) {
            double held = 0;
            for (const RangeVector& action : after) held += action[slot];
            if (std::isnan(held) || held == 0) continue;
            const bool locked = combo_index[slot] % 2 == 1;
            const bool same = same_bits(after[0][slot], halves_before[i][0][slot]);
            if (locked) {
                ASSERT_TRUE(same) << slot;
            }
            kept += locked;
            learnt += !locked && !same;
        }
        EXPECT_GT(kept, 20);
        EXPECT_GT(learnt, 0);  // the other hands went on learning
    }
}

INSTANTIATE_TEST_SUITE_P(EveryLevel, LockedRows,
                         testing::Combine(testing::Values(0, 1, 2, 3, 4, 5), testing::Bool()));

}  // namespace
