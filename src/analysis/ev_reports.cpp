#include "analysis/ev_reports.h"

#include <array>
#include <cmath>
#include <string>

#include "analysis/capture_values.h"
#include "analysis/equity.h"
#include "analysis/hand_rows.h"
#include "tree/paths.h"

namespace {

// The path of a query; the bare root "r" stands for its first node.
std::string query_path(const std::string& text) { return text == "r" ? "r:0" : text; }

struct HandValues {
    RangeVector values;   // in chips, half the pot included
    RangeVector weights;  // matchups times own reach
};

HandValues values_at(const Tokens& tokens) {
    const Player player = player_argument(tokens[1]);
    const NodeRef ref = parse_path(query_path(tokens[2]));
    HandValues result;
    capture_values(player, ref.node->node_index, ref.turn, ref.river, result.values, result.weights);
    // Inside, values are relative to an even split of the pot; the client
    // reads a share of it.
    const double half_pot = pot * 0.5;
    for (double& value : result.values) {
        if (std::isnan(value)) continue;
        value = skip_values ? 0.0 : value + half_pot;
    }
    return result;
}

}  // namespace

void cmd_calc_ev(const Tokens& tokens) {
    const HandValues result = values_at(tokens);
    reply_text(values_line(in_hand_order(result.values), "%.9g", "nan"));
    reply_text(values_line(in_hand_order(result.weights), "%.9g", "nan"));
    reply("END\n");
}

void cmd_calc_ev_pp(const Tokens& tokens) {
    const HandValues result = values_at(tokens);
    for (const ComboIndex hand : hands_by_equity(tokens[2])) {
        const ComboSlot slot = combo_slot[hand];
        reply("%s: %.2f; %.2f\n", combo_text(slot).c_str(), result.values[slot], result.weights[slot]);
    }
    reply("END\n");
}

// Clients send it and read these two constant lines back; the engine is not
// asked anything, so it answers even without a tree.
void cmd_calc_ev_line(const Tokens& tokens) {
    player_argument(tokens[1]);
    std::array<double, combo_count> line;
    line.fill(0.0);
    reply_text(values_line(line, "%.9g", "nan"));
    line.fill(1.0);
    reply_text(values_line(line, "%.9g", "nan"));
    reply("END\n");
}
