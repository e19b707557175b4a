#include "storage/codes/split_tree.h"

#include <algorithm>
#include <stdexcept>

namespace {

uint64_t saturating_add(uint64_t a, uint64_t b) { return a + b < a ? UINT64_MAX : a + b; }

struct TreeBuilder {
    const uint64_t* counts;
    SplitTree& tree;
    int next = 0;
    bool overflow = false;

    uint64_t count(int symbol) const { return symbol < split_tree_weighted_symbols ? counts[symbol] : 0; }

    int take_node() {
        if (next >= split_tree_nodes) {
            overflow = true;
            return -1;
        }
        return next++;
    }

    // Builds the range [a, b) of weight `weight`. The right part of each
    // split continues in the loop, so only left parts nest.
    void build(int a, int b, uint64_t weight) {
        while (!overflow) {
            if (b - a <= 1) return;
            if (b - a == 2) {
                const int node = take_node();
                if (node >= 0) tree.nodes[node] = {0, static_cast<uint16_t>(a + 1)};
                return;
            }
            int split;
            uint64_t left_weight = 0;
            if (weight >= 1 && a < split_tree_weighted_symbols - 1) {
                // The first split from which the weight on the left reaches
                // half, keeping one symbol on the right at least.
                const int last = std::min(b - 1, split_tree_weighted_symbols - 1);
                const uint64_t half = weight / 2 + (weight & 1);
                split = a;
                while (split < last && left_weight < half) left_weight = saturating_add(left_weight, count(split++));
            } else {
                split = a + (b - a) / 2;
            }
            const int node = take_node();
            if (node < 0) return;
            build(a, split, left_weight);
            tree.nodes[node] = {static_cast<uint16_t>(next), static_cast<uint16_t>(split)};
            a = split;
            weight = weight > left_weight ? weight - left_weight : 0;
        }
    }
};

}  // namespace

void build_split_tree(const uint64_t* counts, SplitTree& tree) {
    TreeBuilder builder{counts, tree};
    uint64_t total = 0;
    for (int s = 0; s < split_tree_weighted_symbols; ++s) total = saturating_add(total, counts[s]);
    builder.build(0, split_tree_symbols, total);
    if (builder.overflow || builder.next != split_tree_nodes) throw std::runtime_error("CreateOptimalTree fail");
}
