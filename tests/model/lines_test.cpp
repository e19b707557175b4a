#include "model/lines.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <stdexcept>
#include <vector>

namespace {

void add(SchematicNode& root, std::initializer_list<double> amounts, LineMerge mode = LineMerge::Add) {
    const std::vector<double> line(amounts);
    merge_line(root, line, mode);
}

// The node a line of plain keys leads to (folds written as -1); fails the test
// if it is missing.
const SchematicNode& at(const SchematicNode& root, std::initializer_list<double> keys) {
    const SchematicNode* node = &root;
    for (const double key : keys) {
        node = find_child(*node, key);
        if (!node) throw std::logic_error("path leaves the tree");
    }
    return *node;
}

std::vector<double> keys_of(const SchematicNode& node) {
    std::vector<double> keys;
    for (const auto& [key, child] : node.children) keys.push_back(key);
    return keys;
}

struct Expected {
    int player, street, bets;
    double amount, oop, ip;
};

void expect_node(const SchematicNode& node, const Expected& expected) {
    EXPECT_EQ(node.player, expected.player);
    EXPECT_EQ(node.street, expected.street);
    EXPECT_EQ(node.bets, expected.bets);
    EXPECT_EQ(node.amount, expected.amount);
    EXPECT_EQ(node.committed[0], expected.oop);
    EXPECT_EQ(node.committed[1], expected.ip);
}

TEST(LinesTest, ChecksGetTheirCheckBehindAndStreetsAdvance) {
    SchematicTree tree = make_schematic_tree();
    add(*tree, {0});
    // The implicit check behind stands on the street as it stood.
    expect_node(at(*tree, {0}), {1, 0, 0, 0, 0, 0});
    expect_node(at(*tree, {0, 0}), {0, 0, 0, 0, 0, 0});
    EXPECT_EQ(keys_of(at(*tree, {0})), std::vector<double>{0});

    // A longer line through the implicit node rewrites it as a street end.
    add(*tree, {0, 0});
    expect_node(at(*tree, {0, 0}), {0, 1, 0, 0, 0, 0});
    EXPECT_TRUE(at(*tree, {0, 0}).children.empty());
}

TEST(LinesTest, BetsGetCallAndFoldWithTheAmountsBeforeTheBet) {
    SchematicTree tree = make_schematic_tree();
    add(*tree, {50});
    EXPECT_EQ(keys_of(*tree), std::vector<double>{50});
    expect_node(at(*tree, {50}), {1, 0, 1, 50, 50, 0});
    EXPECT_EQ(keys_of(at(*tree, {50})), (std::vector<double>{fold_key, 50}));
    expect_node(at(*tree, {50, -1}), {0, 0, 0, 0, 50, 0});
    expect_node(at(*tree, {50, 50}), {0, 0, 0, 50, 50, 50});

    // Bet, raise, call: the raise has its own fold, where OOP gives up his 50.
    add(*tree, {50, 100, 100});
    expect_node(at(*tree, {50, 100}), {0, 0, 2, 100, 50, 100});
    EXPECT_EQ(keys_of(at(*tree, {50, 100})), (std::vector<double>{fold_key, 100}));
    expect_node(at(*tree, {50, 100, -1}), {0, 0, 0, 50, 50, 100});
    expect_node(at(*tree, {50, 100, 100}), {0, 1, 0, 100, 100, 100});

    // A check-raise: IP folds keeping his bet of 40, not OOP's check.
    add(*tree, {0, 40, 120});
    expect_node(at(*tree, {0, 40}), {0, 0, 1, 40, 0, 40});
    expect_node(at(*tree, {0, 40, -1}), {0, 0, 0, 0, 0, 40});
    expect_node(at(*tree, {0, 40, 120, -1}), {0, 0, 0, 40, 120, 40});
    EXPECT_EQ(largest_line_amount(*tree), 120);
}

TEST(LinesTest, LaterStreetsRepeatTheTotal) {
    SchematicTree tree = make_schematic_tree();
    add(*tree, {0, 0, 50, 50, 50, 50});
    const SchematicNode& turn_bet = at(*tree, {0, 0, 50});
    expect_node(turn_bet, {1, 1, 1, 50, 50, 0});
    // The turn's fold leaves IP with what he had after the flop: nothing.
    expect_node(at(turn_bet, {-1}), {0, 1, 0, 0, 50, 0});
    expect_node(at(turn_bet, {50}), {0, 2, 0, 50, 50, 50});
    expect_node(at(turn_bet, {50, 50}), {1, 2, 0, 50, 50, 50});
    expect_node(at(turn_bet, {50, 50, 50}), {0, 3, 0, 50, 50, 50});
    EXPECT_TRUE(at(turn_bet, {50, 50, 50}).children.empty());

    // A bet and call on the flop: the turn's first check gets its check behind.
    add(*tree, {30, 30, 30});
    expect_node(at(*tree, {30, 30, 30}), {1, 1, 0, 30, 30, 30});
    expect_node(at(*tree, {30, 30, 30, 30}), {0, 1, 0, 30, 30, 30});
    EXPECT_EQ(largest_line_amount(*tree), 50);
}

}  // namespace
