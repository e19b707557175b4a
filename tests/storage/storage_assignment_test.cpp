// The class table of the stores, the constants of a level and the automatic
// choice of a level.
#include <gtest/gtest.h>

#include <vector>

#include "storage/arena_storage.h"
#include "storage/float_row_storage.h"
#include "storage/storage_assignment.h"

namespace {

NodeStorageRequest river_request(int first_street, CompressionPair pair, int version = 7) {
    NodeStorageRequest request;
    request.street = 3;
    request.first_street = first_street;
    request.format_version = version;
    request.pair = pair;
    return request;
}

TEST(StorageAssignment, PairsOutsideTheLevelsAndLaterRootsAreFlat) {
    EXPECT_EQ(compression_pair(4), (CompressionPair{2, 2}));
    EXPECT_EQ(compression_pair(-1), (CompressionPair{0, 0}));
    EXPECT_EQ(compression_pair(6), (CompressionPair{0, 0}));
    EXPECT_EQ(effective_compression({2, 2}, 1), (CompressionPair{2, 2}));
    EXPECT_EQ(effective_compression({2, 2}, 2), (CompressionPair{0, 0}));
    EXPECT_EQ(effective_compression({0, 3}, 3), (CompressionPair{0, 0}));
}

TEST(StorageAssignment, RiverClassesFollowRootVersionAndPair) {
    using C = StorageClass;
    // Flop trees: the pair decides.
    EXPECT_EQ(regret_storage_choice(river_request(1, {0, 0})), (StorageChoice{C::word_arena}));
    EXPECT_EQ(regret_storage_choice(river_request(1, {1, 2})), (StorageChoice{C::packed, 1, true}));
    EXPECT_EQ(regret_storage_choice(river_request(1, {2, 2})), (StorageChoice{C::packed, 2, true}));
    EXPECT_EQ(strategy_storage_choice(river_request(1, {0, 0})), (StorageChoice{C::float_arena}));
    EXPECT_EQ(strategy_storage_choice(river_request(1, {0, 1})), (StorageChoice{C::packed, 1, false}));
    EXPECT_EQ(strategy_storage_choice(river_request(1, {1, 2})), (StorageChoice{C::packed, 2, false}));
    EXPECT_EQ(strategy_storage_choice(river_request(1, {0, 3})), (StorageChoice{C::widening}));

    // Later roots are flat whatever the level; turn trees from before version 5
    // keep 16-bit regrets.
    EXPECT_EQ(regret_storage_choice(river_request(3, {2, 2})), (StorageChoice{C::float_arena}));
    EXPECT_EQ(regret_storage_choice(river_request(2, {2, 2}, 5)), (StorageChoice{C::float_arena}));
    EXPECT_EQ(regret_storage_choice(river_request(2, {2, 2}, 4)), (StorageChoice{C::word_arena}));
    EXPECT_EQ(strategy_storage_choice(river_request(2, {0, 3})), (StorageChoice{C::float_arena}));

    // No sums without accumulation, nor on the river without river strategies.
    NodeStorageRequest request = river_request(1, {0, 0});
    request.river_strategy = false;
    EXPECT_EQ(strategy_storage_choice(request).storage_class, C::none);
    request.street = 2;
    EXPECT_EQ(strategy_storage_choice(request).storage_class, C::turn_row);
    request.accumulate = false;
    EXPECT_EQ(strategy_storage_choice(request).storage_class, C::none);
    EXPECT_EQ(regret_storage_choice(request).storage_class, C::turn_row);
    request.street = 1;
    EXPECT_EQ(regret_storage_choice(request).storage_class, C::float_row);
}

TEST(StorageAssignment, CreatedStoresHaveTheShapeOfTheirNode) {
    const std::vector<int> first = {5, 9}, second = {12};
    const std::vector<std::span<const int>> groups = {first, second};
    const RowLayout layout = make_row_layout(3, groups);
    const std::vector<int> turn_hands = {40, 41};
    NodeShape shape{3, 45, turn_hands, &layout};

    NodeStorageRequest request;
    request.street = 1;
    NodeStorage flop = create_node_storage(request, shape);
    ASSERT_NE(dynamic_cast<FloatRowStorage*>(flop.regrets.get()), nullptr);
    ASSERT_NE(dynamic_cast<FloatRowStorage*>(flop.strategy_sums.get()), nullptr);
    EXPECT_EQ(flop.regrets->value_count(-1), 3 * 45);

    request.street = 2;
    NodeStorage turn = create_node_storage(request, shape);
    ASSERT_NE(dynamic_cast<TurnRowStorage*>(turn.regrets.get()), nullptr);
    EXPECT_EQ(turn.regrets->value_count(-1), 3 * (40 + 41));

    request.street = 3;
    NodeStorage river = create_node_storage(request, shape);
    ASSERT_NE(dynamic_cast<WordArenaStorage*>(river.regrets.get()), nullptr);
    ASSERT_NE(dynamic_cast<FloatArenaStorage*>(river.strategy_sums.get()), nullptr);
    EXPECT_EQ(river.regrets->value_count(-1), 3 * (5 + 9 + 12));

    request.accumulate = false;
    EXPECT_EQ(create_node_storage(request, shape).strategy_sums, nullptr);
}

TEST(StorageAssignment, AutomaticLevelByFractionsOfTheEstimate) {
    const int64_t estimate = 1000000;
    EXPECT_EQ(auto_compression_level(estimate, estimate + 1, 3), 0);
    EXPECT_EQ(auto_compression_level(estimate, estimate, 3), 1);  // not below: compress
    EXPECT_EQ(auto_compression_level(estimate, 580001, 2), 1);
    EXPECT_EQ(auto_compression_level(estimate, 580000, 2), 2);  // exactly 0.58 is not above
    // The same memory: level 3 on a two-suited flop, 2 on a rainbow one.
    EXPECT_EQ(auto_compression_level(estimate, 350000, 2), 3);
    EXPECT_EQ(auto_compression_level(estimate, 350000, 1), 3);
    EXPECT_EQ(auto_compression_level(estimate, 350000, 3), 2);
    EXPECT_EQ(auto_compression_level(estimate, 290000, 2), 4);
    EXPECT_EQ(auto_compression_level(estimate, 250000, 3), 3);
    EXPECT_EQ(auto_compression_level(estimate, 232000, 3), 4);
    EXPECT_EQ(auto_compression_level(estimate, 0, 3), 4);
}

}  // namespace
