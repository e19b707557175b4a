// The binary tree over the 1024 value symbols of the range coder. It is
// built from the symbol counts at the head of a range-coded stream by
// splitting each range of symbols where its weight divides in half, so that
// frequent symbols sit near the root and cost few binary decisions.
#pragma once

#include <cstdint>

constexpr int split_tree_symbols = 1024;
constexpr int split_tree_nodes = split_tree_symbols - 1;
constexpr int split_tree_weighted_symbols = 256;  // symbols from 256 on have no weight

// An inner node: the left child is the next node in the array, the right one
// is named. Symbols below `split` go left.
struct SplitNode {
    uint16_t right;
    uint16_t split;
};

struct SplitTree {
    SplitNode nodes[split_tree_nodes];
};

// Builds the tree from 256 counts. A tree that does not come out with exactly
// 1023 inner nodes raises std::runtime_error("CreateOptimalTree fail").
void build_split_tree(const uint64_t* counts, SplitTree& tree);

// The decisions of one symbol, root first, as the coders walk them: calls
// `decide(node, bit)` for each inner node passed. For writers.
template <class Decide>
void walk_split_tree(const SplitTree& tree, int symbol, Decide&& decide) {
    int node = 0;
    int low = 0;
    int high = split_tree_symbols;
    while (high - low > 1) {
        const SplitNode n = tree.nodes[node];
        const int bit = symbol >= n.split ? 1 : 0;
        decide(node, bit);
        if (bit) {
            low = n.split;
            node = n.right;
        } else {
            high = n.split;
            node = node + 1;
        }
    }
}
