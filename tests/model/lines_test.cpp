#include "model/lines.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "model/line_commands.h"

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

// Every field of every node in pre-order, parent links checked on the way.
std::string dump(const SchematicNode& node) {
    std::string text = std::to_string(node.player) + "/" + std::to_string(node.street) + "/" +
                       std::to_string(node.bets) + "/" + std::to_string(node.amount) + "/" +
                       std::to_string(node.committed[0]) + "/" + std::to_string(node.committed[1]) + "{";
    for (const auto& [key, child] : node.children) {
        EXPECT_EQ(child->parent, &node);
        text += std::to_string(key) + ":" + dump(*child) + ",";
    }
    return text + "}";
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

TEST(LinesTest, MergingIsIdempotentAndKeepsWhatWasMergedBeforeARefusal) {
    SchematicTree tree = make_schematic_tree();
    add(*tree, {0, 40, 120, 120, 200});
    add(*tree, {50});
    const std::string once = dump(*tree);
    add(*tree, {0, 40, 120, 120, 200});
    add(*tree, {50});
    EXPECT_EQ(dump(*tree), once);

    EXPECT_THROW(add(*tree, {50, 20}), std::runtime_error);
    EXPECT_EQ(dump(*tree), once);
    EXPECT_THROW(add(*tree, {75, 100, 20}), std::runtime_error);
    expect_node(at(*tree, {75, 100}), {0, 0, 2, 100, 75, 100});
    EXPECT_EQ(keys_of(*tree), (std::vector<double>{0, 50, 75}));

    // An empty line merges nothing.
    add(*tree, {});
    EXPECT_EQ(keys_of(*tree), (std::vector<double>{0, 50, 75}));
}

TEST(LinesTest, ForceLineKeepsOnlyItsOwnPath) {
    SchematicTree tree = make_schematic_tree();
    add(*tree, {25});
    add(*tree, {50, 150});
    add(*tree, {100});
    add(*tree, {50}, LineMerge::Force);
    EXPECT_EQ(keys_of(*tree), std::vector<double>{50});
    EXPECT_EQ(keys_of(at(*tree, {50})), (std::vector<double>{fold_key, 50, 150}));

    // Going on past the bet prunes its call and fold too.
    add(*tree, {50, 150, 150}, LineMerge::Force);
    EXPECT_EQ(keys_of(at(*tree, {50})), std::vector<double>{150});
    EXPECT_EQ(keys_of(at(*tree, {50, 150})), std::vector<double>{150});
    // Passing through existing nodes adds no answers back.
    add(*tree, {50, 150});
    EXPECT_EQ(keys_of(at(*tree, {50})), std::vector<double>{150});
    EXPECT_EQ(keys_of(at(*tree, {50, 150})), std::vector<double>{150});

    // A new node made by force still gets its answers.
    add(*tree, {50, 400}, LineMerge::Force);
    EXPECT_EQ(keys_of(at(*tree, {50})), std::vector<double>{400});
    EXPECT_EQ(keys_of(at(*tree, {50, 400})), (std::vector<double>{fold_key, 400}));
}

TEST(LinesTest, RemoveLineReadsZeroAfterABetAsTheFold) {
    SchematicTree tree = make_schematic_tree();
    add(*tree, {0, 0});
    add(*tree, {50, 100});
    const std::vector<double> fold_of_bet{50, 0};
    remove_line(*tree, fold_of_bet);
    EXPECT_EQ(keys_of(at(*tree, {50})), (std::vector<double>{50, 100}));

    const std::vector<double> call_of_bet{50, 50};
    remove_line(*tree, call_of_bet);
    EXPECT_EQ(keys_of(at(*tree, {50})), std::vector<double>{100});

    const std::string before = dump(*tree);
    for (const std::vector<double>& unknown : {std::vector<double>{75}, {50, 75, 100}, {}}) {
        remove_line(*tree, unknown);
        EXPECT_EQ(dump(*tree), before);
    }

    const std::vector<double> first_check{0};
    remove_line(*tree, first_check);
    EXPECT_EQ(keys_of(*tree), std::vector<double>{50});
}

// The handlers read the tokens in order and the first failure decides the
// reply; an amount that isn't finite refuses the whole line.
TEST(LineCommandsTest, BadNumbersStopTheLineWhereTheWalkMeetsThem) {
    cmd_clear_lines({"clear_lines"});
    EXPECT_THROW(cmd_add_line({"add_line", "50", "abc", "100"}), std::invalid_argument);
    EXPECT_EQ(keys_of(at(*schematic_tree, {50})), (std::vector<double>{fold_key, 50}));

    EXPECT_THROW(cmd_add_line({"add_line", "80", "inf"}), std::invalid_argument);
    EXPECT_THROW(cmd_force_line({"force_line", "50", "nan"}), std::invalid_argument);
    EXPECT_EQ(keys_of(*schematic_tree), std::vector<double>{50});
    EXPECT_EQ(keys_of(at(*schematic_tree, {50})), (std::vector<double>{fold_key, 50}));

    // The amount below the greatest one is met before the infinite one.
    EXPECT_THROW(cmd_add_line({"add_line", "80", "20", "inf"}), std::runtime_error);
    EXPECT_EQ(keys_of(*schematic_tree), (std::vector<double>{50, 80}));

    // A path that has left the tree never reads its bad token.
    EXPECT_NO_THROW(cmd_remove_line({"remove_line", "999", "abc"}));
    EXPECT_THROW(cmd_remove_line({"remove_line", "50", "nan"}), std::invalid_argument);
    EXPECT_THROW(cmd_remove_line({"remove_line", "80", "-inf"}), std::invalid_argument);
    EXPECT_EQ(keys_of(at(*schematic_tree, {80})), (std::vector<double>{fold_key, 80}));

    cmd_remove_line({"remove_line", "80"});
    EXPECT_EQ(keys_of(*schematic_tree), std::vector<double>{50});
    cmd_clear_lines({"free_schematic_tree"});
    EXPECT_TRUE(schematic_tree->children.empty());
}

}  // namespace
