#include "analysis/strategy_read.h"

#include <algorithm>
#include <mutex>

#include "shell/protocol/reply.h"
#include "solver/node_strategy.h"
#include "solver/subgame_solve.h"
#include "solver/walk.h"

namespace {

[[noreturn]] void throw_incorrect_path() { throw_command_error("incorrect path"); }

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
    rows.board = node_query_board(e, node, turn, river);
    rows.actions = static_cast<int32_t>(node.children.size());
    rows.values.resize(size_t(rows.actions) * rows.board.hand_count);
    // A node of a forgotten street has rows only once its subgame is solved.
    solve_on_demand(e, node_index, rows.board.turn_index, rows.board.river_index);

    read_reported_strategy(e, node, rows.board.turn_index, rows.board.river_index, rows.board.hand_count,
                           rows.values.data());
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
