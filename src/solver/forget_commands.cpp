#include "solver/forget_commands.h"

#include "solver/forget.h"
#include "solver/subgame_solve.h"
#include "tree/paths.h"
#include "tree/street_storage.h"

namespace {

// "rivers" or "turns", a street after the root's; anything else is the
// argument error and changes nothing.
int street_argument(const std::string& word) {
    int street = 0;
    if (word == "rivers") {
        street = river_street;
    } else if (word == "turns") {
        street = turn_street;
    } else {
        throw_argument_error();
    }
    if (street <= first_street) throw_argument_error();
    return street;
}

double solve_at_path(const std::string& path) {
    SubgameEngine& e = *engine;
    const NodeRef ref = parse_path(path);
    const int node_index = ref.node ? ref.node->node_index : 0;
    BoardIndex index = board_index(ref.turn, ref.river);
    if (index.group < 0) index.group = e.root_turn_group;
    if (index.row < 0) index.row = e.root_river_row;
    return partial_solve_at(e, node_index, index.group, index.row);
}

}  // namespace

void cmd_forget(const Tokens& tokens) {
    forget_street(*engine, street_argument(tokens[1]));
    reply("%s ok!\n", tokens[0].c_str());
}

void cmd_rebuild_forgotten_streets(const Tokens& tokens) {
    std::lock_guard lock(engine_lock);
    rebuild_streets(*engine);
    engine->capture_cache.clear();
    reply("%s ok!\n", tokens[0].c_str());
}

void cmd_solve_all_splits(const Tokens& tokens) {
    const int street = street_argument(tokens[1]);
    // Forgotten rows must be made again first: a walk needs rows to train.
    if (engine->flags & incomplete_tree_flag) throw_command_error("incomplete tree");
    SolveSubgames(*engine, street);
    reply("%s ok!\n", tokens[0].c_str());
}

void cmd_solve_partial(const Tokens& tokens) {
    solve_at_path(tokens[1]);
    reply("%s ok!\n", tokens[0].c_str());
}

void cmd_explo_partial(const Tokens& tokens) { reply("%.6g\n", solve_at_path(tokens[1])); }
