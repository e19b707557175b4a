#include "solver/lock_commands.h"

#include <algorithm>
#include <cfloat>
#include <stdexcept>
#include <vector>

#include "model/cards.h"
#include "shell/protocol/tokens.h"
#include "tree/paths.h"

namespace {

// Forced weights go into the regret rows in this unit: shares of 1 become
// regrets that even 16-bit rows keep to three digits.
constexpr double forced_weight_unit = 1000.0;

// The boosts a client may set. A boost b scales a gain by 1 + b (and a fold's
// values by 1 - b): at -0.99 a gain keeps a hundredth of its worth.
constexpr double lowest_boost = -0.99;
constexpr double highest_boost = 1.0;

void reply_ok(const Tokens& tokens) { reply("%s ok!\n", tokens[0].c_str()); }

// 1326 numbers from token `first` on, in the client's hand order, to memory
// order. Every one is read before anything changes: a bad one leaves all
// as it was.
RangeVector read_combo_values(const Tokens& tokens, size_t first) {
    RangeVector by_index;
    for (int i = 0; i < combo_count; ++i) by_index[i] = parse_finite_double(tokens[first + i]);
    RangeVector by_slot;
    for (int slot = 0; slot < combo_count; ++slot) by_slot[slot] = by_index[combo_index[slot]];
    return by_slot;
}

// The row's values on its list.
std::vector<float> list_values(const PathRow& target, const RangeVector& values) {
    expect_hands_set_apart(*engine, *target.row.node);
    std::vector<float> row(static_cast<size_t>(target.board.hand_count));
    gather_row(*engine, target.board, values, row.data());
    return row;
}

// A row the commands can change: a street forgotten has no stores to hold it.
PathRow changeable_row(const std::string& path) {
    PathRow target = path_row(path);
    if (!target.row.node->regrets) throw_command_error("incomplete tree");
    return target;
}

}  // namespace

PathRow path_row(const std::string& path) {
    const NodeRef ref = parse_path(path);
    if (!is_decision(ref)) throw_command_error("incorrect path");
    TreeNode& node = engine->nodes[ref.node->node_index];
    PathRow target;
    target.board = node_query_board(*engine, node, ref.turn, ref.river);
    target.row = {&node, target.board.turn_index, target.board.river_index, target.board.hand_count};
    return target;
}

void cmd_lock_node(const Tokens& tokens) {
    set_node_lock(*engine, changeable_row(tokens[1]).row, true);
    reply_ok(tokens);
}

void cmd_unlock_node(const Tokens& tokens) {
    set_node_lock(*engine, changeable_row(tokens[1]).row, false);
    reply_ok(tokens);
}

void cmd_set_strategy(const Tokens& tokens) {
    const PathRow target = changeable_row(tokens[1]);
    const int child = parse_int(tokens[2]);
    if (child < 0 || child >= static_cast<int>(target.row.node->children.size()))
        throw_command_error("invalid child index");
    RangeVector weights = read_combo_values(tokens, 3);
    for (double& weight : weights) {
        // A negative weight is no weight; one too large for a stored number
        // is no number.
        weight = std::max(weight, 0.0) * forced_weight_unit;
        if (weight > FLT_MAX) throw std::invalid_argument("weight out of range");
    }
    if (!set_strategy_row(*engine, target.row, child, list_values(target, weights).data()))
        throw_command_error("out of memory");
    reply_ok(tokens);
}

void cmd_combo_lock_node(const Tokens& tokens) {
    const PathRow target = changeable_row(tokens[1]);
    RangeVector flags = read_combo_values(tokens, 2);
    // Any number but 0 locks its hand, however small.
    for (double& flag : flags) flag = flag != 0.0 ? 1.0 : 0.0;
    combo_lock_row(*engine, target.row, list_values(target, flags).data());
    reply_ok(tokens);
}

void cmd_set_ev_boost(const Tokens& tokens) {
    const NodeRef ref = parse_path(tokens[1]);
    if (!ref.node) throw_command_error("incorrect path");
    const double boost = parse_finite_double(tokens[2]);
    if (boost < lowest_boost || boost > highest_boost) throw_argument_error();
    set_node_boost(*engine, engine->nodes[ref.node->node_index], static_cast<float>(boost));
    reply_ok(tokens);
}
