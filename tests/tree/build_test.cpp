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

}  // namespace
