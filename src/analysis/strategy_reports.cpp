#include "analysis/strategy_reports.h"

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "analysis/equity.h"
#include "analysis/hand_rows.h"
#include "analysis/ranges.h"
#include "analysis/strategy_read.h"
#include "solver/lock_commands.h"
#include "solver/subgame_solve.h"
#include "tree/paths.h"

namespace {

// The decision node of a path; anything else has no strategy to show.
NodeRef decision_at(const std::string& path) {
    const NodeRef ref = parse_path(path);
    if (!is_decision(ref)) throw_command_error("incorrect path");
    return ref;
}

// Every action's row at the node, in hand order.
std::vector<std::array<double, combo_count>> strategy_in_hand_order(const NodeRef& ref) {
    const StrategyRows rows = read_strategy_rows(ref.node->node_index, ref.turn, ref.river);
    std::vector<std::array<double, combo_count>> actions;
    for (int a = 0; a < rows.actions; ++a) actions.push_back(in_hand_order(expand_strategy(rows, a, ref.node->player)));
    return actions;
}

}  // namespace

void cmd_show_strategy(const Tokens& tokens) {
    const NodeRef ref = decision_at(tokens[1]);
    for (const auto& action : strategy_in_hand_order(ref)) reply_text(values_line(action, "%.12g", "0"));
    reply("END\n");
}

void cmd_show_locked_combos(const Tokens& tokens) {
    const PathRow target = path_row(tokens[1]);
    const NodeRow& row = target.row;
    // A node of a forgotten street has rows only once its subgame is solved.
    solve_on_demand(*engine, static_cast<int>(row.node - engine->nodes.data()), row.turn, row.river);
    const std::vector<float> hands = locked_hands_row(*engine, row);
    reply_text(values_line(in_hand_order(expand_row(*engine, target.board, hands.data())), "%.12g", "0"));
}

void cmd_show_strategy_pp(const Tokens& tokens) {
    const NodeRef ref = decision_at(tokens[1]);
    const auto actions = strategy_in_hand_order(ref);
    char number[64];
    for (const ComboIndex hand : hands_by_equity(tokens[1])) {
        std::string line = combo_text(combo_slot[hand]) + ": ";
        for (const auto& action : actions) {
            snprintf(number, sizeof number, "  %.6f", action[hand]);
            line += number;
        }
        line += '\n';
        reply_text(line);
    }
    reply("END\n");
}

void cmd_show_range(const Tokens& tokens) {
    const Player player = player_argument(tokens[1]);
    const RangeVector range = range_at(player, tokens.size() > 2 ? tokens[2] : std::string());
    reply_text(values_line(in_hand_order(range), "%.12g", "0"));
}

void cmd_show_probs(const Tokens& tokens) {
    const std::string& path = tokens[1];
    const double reached[2] = {range_mass_ratio(OOP, path), range_mass_ratio(IP, path)};
    const NodeRef ref = parse_path(path);
    std::string shares;
    if (!ref.split && ref.node && !ref.node->children.empty()) {
        const int acting = ref.node->player;
        // A player who never gets here has no shares to split.
        if (reached[acting] > 0) {
            char item[96];
            for (size_t child = 0; child < ref.node->children.size(); ++child) {
                const std::string token = action_token(ref, static_cast<int>(child));
                const double share = range_mass_ratio(acting, path + ":" + token) / reached[acting];
                snprintf(item, sizeof item, "%s%s %.12g", shares.empty() ? "" : " ", token.c_str(), share);
                shares += item;
            }
        }
    }
    reply("OOP %.12g IP %.12g %s\n", reached[OOP], reached[IP], shares.c_str());
}
