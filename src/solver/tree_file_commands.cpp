#include "solver/tree_file_commands.h"

#include "shell/protocol/settings.h"
#include "solver/forget.h"
#include "solver/node_locks.h"
#include "solver/node_strategy.h"
#include "storage/file_channel.h"

namespace {

void shown_strategy(SubgameEngine& e, const TreeNode& node, int group, int count, float* out) {
    read_reported_strategy(e, node, group, -1, count, out);
}

}  // namespace

TreeFileHooks solver_tree_file_hooks() {
    TreeFileHooks hooks;
    hooks.shown_strategy = shown_strategy;
    hooks.rebuild_missing_reach = rebuild_frozen_reach;
    return hooks;
}

void cmd_load_tree(const Tokens& tokens) {
    FileReadChannel channel(tokens[1]);
    read_tree_file(channel, solver_tree_file_hooks());
    if (engine) note_loaded_locks(*engine);
    reply("%s ok!\n", tokens[0].c_str());
}

void cmd_dump_tree(const Tokens& tokens) {
    TreeDumpOptions options;
    for (size_t i = 2; i < tokens.size(); ++i) {
        if (tokens[i] == "no_values") {
            options.without_values = true;
        } else {
            throw_argument_error();
        }
    }
    FileWriteChannel channel(tokens[1]);
    write_tree_file(channel, *engine, options, solver_tree_file_hooks());
    channel.commit();
    reply("%s ok!\n", tokens[0].c_str());
}
