// The built node array against the lines it came from.
#include <gtest/gtest.h>

#include <vector>

#include "reference/boards.h"
#include "model/lines.h"
#include "shell/protocol/settings.h"
#include "tree/boards.h"
#include "tree/build.h"
#include "tree/engine.h"

namespace {

class BuildTest : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void SetUp() override {
        player_range[0] = class_range(1, 0.5);
        player_range[1] = class_range(2, 0.5);
        flop_mask = parse_cards("Qs Jh 2h");
        turn_mask = river_mask = 0;
        pot = 100;
        compression_set = 0;
        schematic_tree = make_schematic_tree();
    }
    void TearDown() override { destroy_engine(); }

    void add(std::vector<double> amounts) { merge_line(*schematic_tree, amounts, LineMerge::Add); }
};

TEST_F(BuildTest, CheckBehindOnTheFlopIsAShowdownOnTheRiver) {
    add({0, 0});
    build_game(true);
    const auto& nodes = engine->nodes;
    ASSERT_EQ(nodes.size(), 3u);
    EXPECT_EQ(nodes[0].kind, decision_node);
    EXPECT_EQ(nodes[1].kind, decision_node);
    EXPECT_EQ(nodes[1].player, 1);
    EXPECT_EQ(nodes[2].kind, showdown_node);
    EXPECT_EQ(nodes[2].street, river_street);
    EXPECT_EQ(nodes[2].player, 1);  // the player of the last action
    EXPECT_DOUBLE_EQ(nodes[2].value, 50);
    EXPECT_EQ(nodes[2].parent_node, &nodes[1]);
    EXPECT_EQ(engine->max_actions, 1);
    for (const TreeNode& node : nodes) {
        EXPECT_FALSE(node.card_locks);  // no turn node at all
        EXPECT_EQ(node.regrets != nullptr, node.kind == decision_node);
    }
}

TEST_F(BuildTest, NodesFollowTheLinesInActionOrder) {
    add({0, 50, 150, 150});
    add({0, 50, 50});
    add({50, 50});
    build_game(true);
    const auto& nodes = engine->nodes;
    // Children keep key order: fold, call, then bets by size.
    for (const TreeNode& node : nodes) {
        for (size_t i = 1; i < node.children.size(); ++i) EXPECT_LT(node.children[i - 1], node.children[i]);
        for (int child : node.children) EXPECT_EQ(nodes[child].parent_node, &node);
    }
    const TreeNode& root = nodes[0];
    ASSERT_EQ(root.children.size(), 2u);
    const TreeNode& bet = nodes[root.children[1]];  // r:0:b50
    ASSERT_EQ(bet.children.size(), 2u);
    const TreeNode& fold = nodes[bet.children[0]];
    const TreeNode& call = nodes[bet.children[1]];
    EXPECT_EQ(fold.kind, fold_node);
    EXPECT_EQ(fold.street, flop_street);  // a fold stays on its street
    EXPECT_EQ(fold.player, 1);
    EXPECT_DOUBLE_EQ(fold.value, 50);     // half the pot plus what the folder's opponent put in
    EXPECT_EQ(call.kind, showdown_node);
    EXPECT_DOUBLE_EQ(call.value, 100);
    EXPECT_DOUBLE_EQ(engine->largest_value, 200);
    EXPECT_EQ(effective_stack, 150);
    EXPECT_EQ(engine->max_actions, 3);  // facing the bet: fold, call, raise
}

TEST_F(BuildTest, FirstNodesOfLaterStreetsGetLocksAndCaches) {
    add({0, 0, 0, 0, 0, 0});
    add({0, 0, 50, 50, 50, 50});
    build_game(true);
    int turn_firsts = 0, river_firsts = 0;
    for (const TreeNode& node : engine->nodes) {
        const bool first = is_first_of_street(node);
        if (node.street == turn_street && first) {
            ++turn_firsts;
            EXPECT_TRUE(node.card_locks);
            EXPECT_EQ(node.cache != nullptr, node.kind == decision_node);
        } else if (node.street == river_street && first && node.kind == decision_node) {
            ++river_firsts;
            EXPECT_TRUE(node.cache);
            EXPECT_FALSE(node.card_locks);
        } else {
            EXPECT_FALSE(node.card_locks);
            EXPECT_FALSE(node.cache);
        }
    }
    EXPECT_EQ(turn_firsts, 1);
    EXPECT_EQ(river_firsts, 2);
}

TEST_F(BuildTest, RiverLayoutsAndEstimateFollowTheBoards) {
    add({0, 0, 0, 0, 0, 0});
    add({0, 0, 0, 0, 50, 50});
    build_game(true);
    const RootBoard& root = *engine->root_board;
    ASSERT_EQ(engine->layouts.size(), 3u);
    for (int actions = 1; actions <= 2; ++actions) {
        const RowLayout& layout = *engine->layouts[actions];
        EXPECT_EQ(layout.group_count, static_cast<int>(root.turns.size()));
        int64_t values = 0;
        for (const auto& counts : root.river_hand_counts)
            for (int hands : counts) values += static_cast<int64_t>(hands) * actions;
        EXPECT_EQ(layout.value_count, values);
    }
    // River regrets at level none: every river decision holds its layout's values.
    int64_t expected = 0;
    for (const TreeNode& node : engine->nodes)
        if (node.kind == decision_node && node.street == river_street)
            expected += engine->layouts[node.children.size()]->value_count;
    EXPECT_EQ(engine->street_values[river_street], expected);
    EXPECT_EQ(engine->street_bytes[river_street], expected * 6);
}

TEST_F(BuildTest, RefusedBuildKeepsTheOldTree) {
    add({0, 0});
    build_game(true);
    const SubgameEngine* before = engine.get();
    turn_mask = parse_cards("8d");
    add({0, 0, 0, 0, 0, 0, 0, 0});  // past the river on a turn tree
    EXPECT_THROW(build_game(true), std::runtime_error);
    EXPECT_EQ(engine.get(), before);
    EXPECT_EQ(first_street, flop_street);
}

TEST_F(BuildTest, RiverRootUsesItsOwnWeightCurve) {
    turn_mask = parse_cards("8d");
    river_mask = parse_cards("3c");
    add({0, 0});
    build_game(true);
    EXPECT_EQ(first_street, river_street);
    EXPECT_DOUBLE_EQ(engine->weight_exponent, 4.0);
    EXPECT_EQ(engine->root_turn_group, 0);
    EXPECT_EQ(engine->root_river_row, 0);
    EXPECT_EQ(engine->root_weights[0].size(), engine->root_board->turns[0].rivers[0].hands.size());
}

}  // namespace
