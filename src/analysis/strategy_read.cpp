#include "analysis/strategy_read.h"

#include <algorithm>
#include <mutex>

#include "shell/protocol/processor.h"
#include "shell/protocol/reply.h"
#include "solver/river_rows.h"
#include "solver/walk.h"

namespace {

[[noreturn]] void throw_incorrect_path() { throw_command_error("incorrect path"); }

const TreeNode& first_of_street(const TreeNode& node) {
    const TreeNode* first = &node;
    while (!is_first_of_street(*first)) first = first->parent_node;
    return *first;
}

// The average is shown once enough iterations have added to it, and only
// where sums are kept and still grow.
bool reads_average(const SubgameEngine& e, const TreeNode& node) {
    if (e.iterations < average_report_iterations || !node.strategy_sums) return false;
    return !(node.street == river_street && !river_strategy_enabled);
}

QueryBoard node_board(const SubgameEngine& e, const TreeNode& node, Card turn, Card river) {
    if (node.street == flop_street) {
        turn = -1;
        river = -1;
    } else if (turn < 0 || (node.street == river_street && river < 0)) {
        // The rows of a later street belong to its cards: without them there
        // is nothing to show.
        throw_incorrect_path();
    } else if (node.street == turn_street) {
        river = -1;
    }
    QueryBoard board;
    if (!find_query_board(e, turn, river, board)) throw_incorrect_path();
    return board;
}

void read_node_rows(const SubgameEngine& e, const TreeNode& node, StrategyRows& rows) {
    const int actions = rows.actions;
    const int hands = rows.board.hand_count;
    const int group = rows.board.turn_index;
    const int row = rows.board.river_index;
    const std::vector<float> uniform(size_t(actions), 1.0f / static_cast<float>(actions));
    std::vector<float*> out(static_cast<size_t>(actions));
    for (int a = 0; a < actions; ++a) out[a] = rows.values.data() + size_t(a) * hands;
    if (!node.regrets) {
        // A forgotten street keeps no rows: nothing learnt, play uniformly.
        std::fill(rows.values.begin(), rows.values.end(), uniform[0]);
        return;
    }
    if (!reads_average(e, node)) {
        node.regrets->read_strategy(out.data(), group, row, uniform);
        return;
    }
    // The average; hands whose sums are all zero were never reached, and show
    // the current strategy instead.
    node.strategy_sums->read_strategy(out.data(), group, row, {});
    std::vector<float> current(rows.values.size());
    std::vector<float*> current_out(static_cast<size_t>(actions));
    for (int a = 0; a < actions; ++a) current_out[a] = current.data() + size_t(a) * hands;
    node.regrets->read_strategy(current_out.data(), group, row, uniform);
    for (int h = 0; h < hands; ++h) {
        float total = 0;
        for (int a = 0; a < actions; ++a) total += out[a][h];
        if (total != 0.0f) continue;
        for (int a = 0; a < actions; ++a) out[a][h] = current_out[a][h];
    }
}

}  // namespace

bool open_storages(SubgameEngine& e) {
    std::lock_guard lock(engine_lock);
    return open_all_storage(e);
}

StrategyRows read_strategy_rows(int node_index, Card turn, Card river) {
    SubgameEngine& e = *engine;
    const TreeNode& node = e.nodes[node_index];
    if (node.kind != decision_node || node.children.empty()) throw_incorrect_path();
    StrategyRows rows;
    rows.board = node_board(e, node, turn, river);
    rows.actions = static_cast<int32_t>(node.children.size());
    rows.values.resize(size_t(rows.actions) * rows.board.hand_count);

    std::lock_guard lock(engine_lock);
    // A store that could not be opened reads as rows of zeros: the defaults.
    open_all_storage(e);
    // Compressed river rows live in a stream shared by the river subtree of
    // this turn card; they are expanded for the read and dropped unchanged.
    const bool streamed = node.street == river_street && node.regrets;
    RiverNodes subtree;
    if (streamed) collect_river_nodes(e, first_of_street(node), subtree);
    OpenRiverRows open;
    if (streamed) open_river_rows(subtree, rows.board.turn_index, reads_average(e, node), open);
    read_node_rows(e, node, rows);
    if (streamed) {
        const bool unchanged[2] = {false, false};
        close_river_rows(subtree, rows.board.turn_index, unchanged, unchanged, open);
    }
    return rows;
}

std::vector<float> get_strategy_row(int node_index, int action, Card turn, Card river) {
    const StrategyRows rows = read_strategy_rows(node_index, turn, river);
    return std::vector<float>(rows.row(action), rows.row(action) + rows.board.hand_count);
}

RangeVector expand_strategy(const StrategyRows& rows, int action, int player) {
    RangeVector values = expand_row(*engine, rows.board, rows.row(action));
    const RangeVector& range = engine->range[player];
    for (int slot = 0; slot < combo_count; ++slot)
        if (range[slot] == 0) values[slot] = 0;
    return values;
}

RangeVector get_strategy(int node_index, int action, Card turn, Card river) {
    return expand_strategy(read_strategy_rows(node_index, turn, river), action, engine->nodes[node_index].player);
}
