// The client's betting lines, merged into one prefix tree.
//
// A line is a list of cumulative amounts: each number is the total the acting
// player has put in on top of the starting pot after his action. The action is
// read from how the number compares with the greatest total so far, so a tree
// holds exactly the bet sizes the client typed. Every bet gets a call and a
// fold and every first check a check behind, added here, so that the tree
// builder only has to flatten the tree and classify its leaves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <span>

struct SchematicNode;

// The key of a fold among a node's children; every real amount is at least 0,
// so folds come first in key order, then the check or call, then bets.
constexpr double fold_key = -1.0;

// Children by the amount of the action that leads to them, ascending. The
// builder keeps this order, so a child's place in the map is its action number.
using SchematicChildren = std::map<double, std::unique_ptr<SchematicNode>>;

struct SchematicNode {
    SchematicNode* parent = nullptr;
    SchematicChildren children;
    int32_t player = 0;      // who acts next: 0 OOP, 1 IP
    int32_t street = 0;      // streets ended since the tree's first street
    int32_t bets = 0;        // bets and raises so far on this street
    int32_t node_index = 0;  // the built TreeNode, written by the tree builder
    double amount = 0;       // the action's number; for a fold, the parent's amount
    double committed[2] = {0, 0};  // each player's total after this action
};

// The whole tree, owned through its root.
using SchematicTree = std::unique_ptr<SchematicNode>;

// The process's one tree. Replaced as a whole by clear_lines and load_tree.
extern SchematicTree schematic_tree;

SchematicTree make_schematic_tree();

// A deep copy of the tree below `root`, with its own parent links.
SchematicTree copy_schematic_tree(const SchematicNode& root);

// The most amounts one line may hold. Real lines have a few dozen; the bound
// keeps the tree, and every walk that recurses through it, shallow.
constexpr size_t max_line_amounts = 256;

// The child reached by the action with this key, or null.
SchematicNode* find_child(const SchematicNode& node, double key);

enum class LineMerge { Add, Force };

// Merges a line into the tree below `root`. With Force, every sibling of each
// node on the line's path is removed first, so only this line stays along it.
// An amount below the greatest one before it refuses with the argument error;
// the amounts before it stay merged.
void merge_line(SchematicNode& root, std::span<const double> amounts, LineMerge mode);

// The node a line leads to, or null where the path leaves the tree; the root
// for an empty line. On this path a 0 after a positive amount is the fold,
// since no real action can fall back to 0.
SchematicNode* find_line_node(SchematicNode& root, std::span<const double> amounts);

// Detaches a node from its parent and releases it with its subtree.
void remove_node(SchematicNode& node);

// Removes the node a line leads to, with its subtree. A path that leaves the
// tree, or an empty one, removes nothing.
void remove_line(SchematicNode& root, std::span<const double> amounts);

// The greatest action key anywhere below `root`, 0 for an empty tree. The
// lines imply the effective stack: all-in is the largest number written.
double largest_line_amount(const SchematicNode& root);
