// RiverBatch: a training walk of one river card's subtree in three flat passes,
// so that leaves of the same list share one sweep of the wide kernels.
//
// 1. Gather: down the subtree, depth first, children in order. The opponent's
//    nodes turn the reach into one row per action (and add strategy sums);
//    every leaf records its payoff and which reach row it reads.
// 2. Evaluate: all showdown leaves in blocks of the widest kernel, then all
//    fold leaves.
// 3. Ascend: down the same order again, taking leaf values in turn, mixing
//    them at the traverser's nodes and learning regrets there.
#include <algorithm>
#include <vector>

#include "shell/protocol/processor.h"
#include "solver/vector_ops.h"
#include "solver/walk_internal.h"

namespace {

struct Batch {
    SubgameEngine& e;
    ThreadScratch& scratch;
    int turn;
    int river;
    int count;
};

int add_reach_row(ThreadScratch& s, const float* row) {
    s.leaf_reach.push_back(row);
    return static_cast<int>(s.leaf_reach.size()) - 1;
}

// `reach` indexes leaf_reach; its row may be null.
void gather(Batch& b, const TreeNode& node, int reach) {
    ThreadScratch& s = b.scratch;
    SubgameEngine& e = b.e;
    if (node.kind != decision_node) {
        LeafEntry leaf;
        leaf.value = terminal_payoff(e, node);
        leaf.kind = node.kind;
        leaf.reach = reach;
        s.leaves.push_back(leaf);
        return;
    }
    const int actions = static_cast<int>(node.children.size());
    if (node.player == e.traverser || !s.leaf_reach[reach]) {
        // The traverser's choice doesn't change the opponent's reach.
        for (int a = 0; a < actions; ++a) gather(b, e.nodes[node.children[a]], reach);
        return;
    }
    WalkFrame frame;
    frame.engine = &e;
    frame.node = const_cast<TreeNode*>(&node);
    frame.turn = b.turn;
    frame.river = b.river;
    frame.reach.count = b.count;
    ActionRows strategy(actions);
    read_node_strategy(frame, strategy, true);
    const float* reach_row = s.leaf_reach[reach];
    // Unlike the plain walk, the batch adds in the descent too (on a tree
    // whose root is on the river, the descent reaches it).
    add_strategy_sums(e, node, b.turn, b.river, strategy, reach_row);
    int row_of_stack[16];
    std::vector<int> row_of_heap;
    int* row_of = row_of_stack;
    if (actions > 16) {
        row_of_heap.resize(static_cast<size_t>(actions));
        row_of = row_of_heap.data();
    }
    for (int a = 0; a < actions; ++a) {
        HandVector& row = strategy[a];
        if (vec::multiply_in_place_sum(row.data, reach_row, b.count) < smallest_normal) {
            row_of[a] = add_reach_row(s, nullptr);
            continue;
        }
        row_of[a] = add_reach_row(s, row.data);
        s.reach_rows.push_back(std::move(row));
    }
    for (int a = 0; a < actions; ++a) gather(b, e.nodes[node.children[a]], row_of[a]);
}

void ensure_nonzero_capacity(ThreadScratch& s, size_t leaves) {
    if (s.nonzero_capacity >= leaves) return;
    s.nonzero_capacity = std::max<size_t>(leaves, 2 * s.nonzero_capacity);
    s.nonzero = std::make_unique<bool[]>(s.nonzero_capacity);
}

// Evaluates the leaves of one kind listed in `indices`.
void evaluate_kind(Batch& b, const std::vector<int32_t>& indices, bool showdown) {
    ThreadScratch& s = b.scratch;
    const size_t n = indices.size();
    if (n == 0) return;
    s.outs.clear();
    s.reaches.clear();
    s.payoffs.clear();
    for (const int32_t leaf : indices) {
        HandVector& out = s.leaf_value[leaf];
        out.resize(b.count, true);
        s.outs.push_back(out.data);
        s.reaches.push_back(s.leaf_reach[s.leaves[leaf].reach]);
        s.payoffs.push_back(static_cast<float>(s.leaves[leaf].value));
    }
    ensure_nonzero_capacity(s, n);
    const RunoutBoard& board = river_board(b.e, b.turn, b.river);
    if (showdown) {
        eval_showdown_batch(s.outs.data(), s.reaches.data(), s.payoffs.data(), static_cast<int>(n),
                            showdown_list(board, s.group_mask), s.nonzero.get());
    } else {
        eval_fold_batch(s.outs.data(), s.reaches.data(), s.payoffs.data(), static_cast<int>(n), b.count,
                        board.hand_cards.data(), s.nonzero.get());
    }
    for (size_t i = 0; i < n; ++i)
        if (!s.nonzero[i]) s.leaf_value[indices[i]].set_zero(b.count);
}

void evaluate_leaves(Batch& b) {
    ThreadScratch& s = b.scratch;
    const size_t leaves = s.leaves.size();
    s.leaf_value.resize(leaves);
    s.showdown_leaves.clear();
    s.fold_leaves.clear();
    for (size_t i = 0; i < leaves; ++i) {
        const LeafEntry& leaf = s.leaves[i];
        s.leaf_value[i].set_zero(b.count);
        if (!s.leaf_reach[leaf.reach] || leaf.value == 0.0) continue;
        (leaf.kind == showdown_node ? s.showdown_leaves : s.fold_leaves).push_back(static_cast<int32_t>(i));
    }
    evaluate_kind(b, s.showdown_leaves, true);
    evaluate_kind(b, s.fold_leaves, false);
    // The reach rows are spent.
    s.reach_rows.clear();
    s.leaf_reach.clear();
}

HandVector ascend(Batch& b, const TreeNode& node) {
    ThreadScratch& s = b.scratch;
    SubgameEngine& e = b.e;
    if (node.kind != decision_node) return std::move(s.leaf_value[s.next_leaf++]);
    const int actions = static_cast<int>(node.children.size());
    HandVector value(b.count);
    if (node.player != e.traverser) {
        for (int a = 0; a < actions; ++a) {
            HandVector child = ascend(b, e.nodes[node.children[a]]);
            if (!child.data) continue;
            if (!value.data) {
                value = std::move(child);
            } else {
                vec::add(value.data, child.data, b.count);
            }
        }
        return value;
    }
    WalkFrame frame;
    frame.engine = &e;
    frame.node = const_cast<TreeNode*>(&node);
    frame.turn = b.turn;
    frame.river = b.river;
    frame.reach.count = b.count;
    ActionRows strategy(actions);
    read_node_strategy(frame, strategy, true);
    ActionRows values(actions);
    for (int a = 0; a < actions; ++a) {
        const TreeNode& child = e.nodes[node.children[a]];
        values[a] = ascend(b, child);
        apply_boost(values[a], node, child);
        const HandVector& child_value = values[a];
        if (!child_value.data) continue;
        if (!value.data) {
            value.resize(b.count, true);
            vec::multiply(value.data, child_value.data, strategy[a].data, b.count);
        } else {
            vec::add_product(value.data, child_value.data, strategy[a].data, b.count);
        }
    }
    if (value.data) update_node_regrets(frame, value, values);
    return value;
}

}  // namespace

void river_batch(WalkFrame& f) {
    SubgameEngine& e = *f.engine;
    const int count = f.reach.count;
    if (!f.reach.data) {
        f.value.set_zero(count);
        return;
    }
    Batch b{e, thread_scratch(), f.turn, f.river, count};
    ThreadScratch& s = b.scratch;
    s.clear_lists();
    // The frame keeps its reach: the caller's siblings read it after us.
    gather(b, *f.node, add_reach_row(s, f.reach.data));
    evaluate_leaves(b);
    s.next_leaf = 0;
    f.value = ascend(b, *f.node);
    f.value.count = count;
    s.clear_lists();
}
