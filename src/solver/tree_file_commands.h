// load_tree and dump_tree: tree files from the protocol.
#pragma once

#include "shell/protocol/reply.h"
#include "tree/tree_file.h"

// What the tree files take from the solver: the strategy a report shows.
TreeFileHooks solver_tree_file_hooks();

// load_tree <path>
void cmd_load_tree(const Tokens& tokens);
// dump_tree <path> [no_values]
void cmd_dump_tree(const Tokens& tokens);
