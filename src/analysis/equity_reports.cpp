#include "analysis/equity_reports.h"

#include <cmath>
#include <string>

#include "analysis/equity.h"
#include "analysis/hand_rows.h"
#include "analysis/ranges.h"
#include "shell/protocol/settings.h"
#include "tree/paths.h"

namespace {

// Equity as a share of the pot, 0 to 1.
void as_pot_share(RangeVector& equities) {
    for (double& x : equities) x = 0.5 * (1.0 + x);
}

// Equities at the tree's root, on the board's own cards.
EquityVectors root_equities(Player player) {
    EquityVectors result = equity_vectors(engine->fixed_turn, engine->fixed_river, range_at(1 - player, std::string()));
    as_pot_share(result.equities);
    return result;
}

void reply_equity_lines(const EquityVectors& result) {
    reply_text(values_line(in_hand_order(result.equities), "%.9g", "nan"));
    reply_text(values_line(in_hand_order(result.matchups), "%.9g", "nan"));
}

}  // namespace

void cmd_calc_eq(const Tokens& tokens) {
    const EquityVectors result = root_equities(player_argument(tokens[1]));
    reply_equity_lines(result);
    reply("END\n");
}

void cmd_calc_eq_pp(const Tokens& tokens) {
    const EquityVectors result = root_equities(player_argument(tokens[1]));
    for (const ComboIndex hand : hands_by_equity("r:0")) {
        const ComboSlot slot = combo_slot[hand];
        reply("%s: %.2f; %.2f\n", combo_text(slot).c_str(), 100.0 * result.equities[slot], result.matchups[slot]);
    }
    reply("END\n");
}

void cmd_calc_eq_node(const Tokens& tokens) {
    const Player player = player_argument(tokens[1]);
    const NodeRef ref = parse_path(tokens[2] == "r" ? "r:0" : tokens[2]);
    EquityVectors result = equity_vectors(ref.turn, ref.river, range_at(1 - player, ref));
    as_pot_share(result.equities);
    // The equity of the whole range: each hand weighted by what it meets.
    double weighted = 0, met = 0;
    for (int slot = 0; slot < combo_count; ++slot) {
        if (!std::isnan(result.equities[slot])) weighted += result.matchups[slot] * result.equities[slot];
        if (!std::isnan(result.matchups[slot])) met += result.matchups[slot];
    }
    reply_equity_lines(result);
    // A range that meets no hand there has no equity to share out.
    reply("%.9g\n", met > 0 ? weighted / met : 0.0);
    reply("END\n");
}
