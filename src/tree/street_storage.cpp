#include "tree/street_storage.h"

#include "shell/protocol/processor.h"
#include "storage/codes/memory_blocks.h"
#include "storage/storage_assignment.h"
#include "tree/boards.h"

namespace {

NodeStorage new_node_storage(const SubgameEngine& e, const TreeNode& node) {
    NodeStorageRequest request;
    request.street = node.street;
    request.first_street = first_street;
    request.format_version = e.format_version;
    request.pair = CompressionPair{e.regret_compression, e.strategy_compression};
    request.accumulate = e.average_strategy_mode != 0;
    request.river_strategy = river_strategy_enabled;
    NodeShape shape;
    shape.action_count = static_cast<int>(node.children.size());
    shape.root_hand_count = static_cast<int>(e.root_board->hands.size());
    shape.turn_hand_counts = e.root_board->turn_hand_counts;
    shape.layout = e.layouts[shape.action_count].get();
    return create_node_storage(request, shape);
}

bool open_node(TreeNode& node) {
    if (node.opened) return true;
    if (!node.regrets->open()) return false;
    if (node.strategy_sums && !node.strategy_sums->open()) return false;
    node.opened = 1;
    return true;
}

}  // namespace

bool street_forgotten(const SubgameEngine& e, int street) {
    return e.forgotten_from >= 0 && street >= e.forgotten_from;
}

void drop_street_storage(SubgameEngine& e, int street) {
    for (TreeNode& node : e.nodes) {
        if (node.street < street) continue;
        node.regrets.reset();
        node.strategy_sums.reset();
        node.opened = 0;
    }
    for (int s = street; s <= river_street; ++s) {
        e.street_values[s] = 0;
        e.street_bytes[s] = 0;
    }
    // The allocator keeps freed pages for reuse; the point of forgetting is
    // that the process becomes small, so hand them back now.
    return_free_memory();
}

bool give_node_storage(SubgameEngine& e, TreeNode& node) {
    if (node.kind != decision_node || node.children.empty()) return true;
    if (!node.regrets) {
        NodeStorage stores = new_node_storage(e, node);
        node.regrets = std::move(stores.regrets);
        node.strategy_sums = std::move(stores.strategy_sums);
        node.opened = 0;
    }
    return open_node(node);
}

void rebuild_streets(SubgameEngine& e) {
    if (e.forgotten_from < 0) return;
    if (e.forgotten_from <= river_street) {
        for (int street = e.forgotten_from; street <= river_street; ++street) {
            e.street_values[street] = 0;
            for (TreeNode& node : e.nodes) {
                if (node.street != street || node.kind != decision_node || node.children.empty()) continue;
                // Nodes a partial solve gave rows keep them.
                if (!node.regrets) {
                    NodeStorage stores = new_node_storage(e, node);
                    node.regrets = std::move(stores.regrets);
                    node.strategy_sums = std::move(stores.strategy_sums);
                }
                e.street_values[street] += node.regrets->value_count(-1);
                open_node(node);  // a store that can't open stays closed, without a word
            }
            e.street_bytes[street] = street_bytes(e.street_values[street], e.average_strategy_mode != 0);
        }
    }
    e.flags &= ~incomplete_tree_flag;
}
