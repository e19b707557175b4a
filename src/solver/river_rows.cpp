#include "solver/river_rows.h"

#include <vector>

#include "solver/walk.h"

void collect_river_nodes(const SubgameEngine& e, const TreeNode& first, RiverNodes& nodes) {
    thread_local std::vector<const TreeNode*> stack;
    nodes.clear();
    stack.clear();
    stack.push_back(&first);
    while (!stack.empty()) {
        const TreeNode* node = stack.back();
        stack.pop_back();
        if (node->kind != decision_node) continue;
        nodes.push_back(node);
        for (auto child = node->children.rbegin(); child != node->children.rend(); ++child)
            stack.push_back(&e.nodes[*child]);
    }
}

void prefetch_river_rows(const SubgameEngine& e, const RiverNodes& nodes, int turn, int river, bool with_sums) {
    const bool training = e.mode == mode_train;
    for (const TreeNode* node : nodes) {
        if (node->regrets) node->regrets->prefetch_row(turn, river);
        if (with_sums && node->strategy_sums && !(training && node->player == e.traverser))
            node->strategy_sums->prefetch_row(turn, river);
    }
}

namespace {

int64_t reserve_values(const RiverNodes& nodes, int player, int turn, bool sums) {
    int64_t values = 0;
    for (const TreeNode* node : nodes) {
        const Storage* store = sums ? node->strategy_sums.get() : node->regrets.get();
        if (node->player == player && store) values += store->value_count(turn);
    }
    return values;
}

RowStream* open_chain(const RiverNodes& nodes, int player, int turn, bool sums) {
    const int64_t reserve = reserve_values(nodes, player, turn, sums);
    RowStream* stream = nullptr;
    for (const TreeNode* node : nodes) {
        Storage* store = sums ? node->strategy_sums.get() : node->regrets.get();
        if (node->player == player && store) stream = store->open_group(stream, turn, reserve);
    }
    return stream;
}

void close_chain(const RiverNodes& nodes, int player, int turn, bool sums, bool modified) {
    RowStream* stream = nullptr;
    for (const TreeNode* node : nodes) {
        Storage* store = sums ? node->strategy_sums.get() : node->regrets.get();
        if (node->player == player && store) stream = store->close_group(stream, turn, modified);
    }
    if (stream && modified) stream->end_write();
}

}  // namespace

void open_river_rows(const RiverNodes& nodes, int turn, bool with_sums, OpenRiverRows& rows) {
    rows.sums_open = with_sums;
    for (int player = 0; player < 2; ++player) {
        rows.regret_streams[player] = open_chain(nodes, player, turn, false);
        if (with_sums) rows.sum_streams[player] = open_chain(nodes, player, turn, true);
    }
    // Every row is in its open buffer now: the streams' read passes end, so
    // that the closing can write them.
    for (int player = 0; player < 2; ++player) {
        RowStream* regrets = rows.regret_streams[player];
        rows.regrets_read[player] = regrets && regrets->has_data();
        if (rows.regrets_read[player]) regrets->end_read();
        RowStream* sums = rows.sum_streams[player];
        rows.sums_read[player] = sums && sums->has_data();
        if (rows.sums_read[player]) sums->end_read();
    }
}

void close_river_rows(const RiverNodes& nodes, int turn, const bool regrets_modified[2], const bool sums_modified[2],
                      OpenRiverRows& rows) {
    for (int player = 0; player < 2; ++player) {
        close_chain(nodes, player, turn, false, regrets_modified[player]);
        if (rows.sums_open) close_chain(nodes, player, turn, true, sums_modified[player]);
    }
    rows = OpenRiverRows{};
}

CommandRiverRows::CommandRiverRows(const SubgameEngine& e, const TreeNode& node, int turn, bool with_sums)
    : turn_(turn), active_(node.street == river_street && node.regrets && turn >= 0) {
    if (!active_) return;
    const TreeNode* first = &node;
    while (!is_first_of_street(*first)) first = first->parent_node;
    collect_river_nodes(e, *first, nodes_);
    open_river_rows(nodes_, turn_, with_sums, open_);
}

CommandRiverRows::~CommandRiverRows() {
    if (active_) close_river_rows(nodes_, turn_, regrets_modified_, sums_modified_, open_);
}
