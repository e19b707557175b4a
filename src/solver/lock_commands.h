// The commands that force strategies, lock nodes and bias training: lock_node,
// unlock_node, set_strategy, combo_lock_node and set_ev_boost. They run while
// the solver does.
#pragma once

#include <string>

#include "shell/protocol/reply.h"
#include "solver/node_locks.h"
#include "tree/board_rows.h"

// The decision node a path names, on the board of its cards, with that
// board's list. Anything else is the command error "incorrect path".
struct PathRow {
    NodeRow row;
    QueryBoard board;
};
PathRow path_row(const std::string& path);

void cmd_lock_node(const Tokens& tokens);
void cmd_unlock_node(const Tokens& tokens);
void cmd_set_strategy(const Tokens& tokens);
void cmd_combo_lock_node(const Tokens& tokens);
void cmd_set_ev_boost(const Tokens& tokens);
