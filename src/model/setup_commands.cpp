#include "model/setup_commands.h"

#include <atomic>
#include <bit>
#include <cfloat>
#include <cmath>

#include "model/cards.h"
#include "shell/protocol/settings.h"
#include "shell/protocol/tokens.h"

namespace {

// Weights this small are noise from the client's rounding; they count as
// absent so that no hand is carried through the tree for nothing.
constexpr double weight_floor = 1e-5;

void reply_ok(const Tokens& tokens) { reply("%s ok!\n", tokens[0].c_str()); }

// The one card of a turn or river token.
CardMask single_card(const std::string& token) {
    const CardMask mask = parse_cards(token);
    if (std::popcount(mask) != 1) throw_argument_error();
    return mask;
}

}  // namespace

std::string board_text() {
    std::string text = cards_to_text(flop_mask);
    for (const CardMask later : {turn_mask, river_mask}) {
        if (!later) continue;
        text.push_back(' ');
        text += cards_to_text(later);
    }
    return text;
}

void cmd_set_range(const Tokens& tokens) {
    const std::optional<Player> player = player_from_name(tokens[1]);
    if (!player) throw_command_error("incorrect player name");
    // All weights are read before anything is stored, so a bad one leaves the
    // old range in place.
    RangeVector by_index;
    for (int i = 0; i < combo_count; ++i) by_index[i] = parse_finite_double(tokens[i + 2]);
    RangeVector& range = player_range[*player].emplace();
    double min = DBL_MAX;
    double max = -DBL_MAX;
    for (int slot = 0; slot < combo_count; ++slot) {
        double weight = by_index[combo_index[slot]];
        if (weight < weight_floor) weight = 0.0;
        range[slot] = weight;
        min = std::min(min, weight);
        max = std::max(max, weight);
    }
    range_min[*player] = min;
    range_max[*player] = max;
    if (verbosity > 0) reply("[set_range min %.8g max %.8g]\n", min, max);
    reply_ok(tokens);
}

void cmd_set_board(const Tokens& tokens) {
    if (tokens.size() < 4 || tokens.size() > 6) throw_argument_error();
    // A token may hold several cards or none, as long as the flop has three.
    const CardMask flop = parse_cards(tokens[1]) | parse_cards(tokens[2]) | parse_cards(tokens[3]);
    if (std::popcount(flop) != 3) throw_argument_error();
    const CardMask turn = tokens.size() >= 5 ? single_card(tokens[4]) : 0;
    const CardMask river = tokens.size() >= 6 ? single_card(tokens[5]) : 0;
    // Stored before the duplicate test: clients see the refused board in
    // show_tree_params until the next set_board, and rely on that.
    flop_mask = flop;
    turn_mask = turn;
    river_mask = river;
    if (static_cast<size_t>(std::popcount(flop | turn | river)) != tokens.size() - 1)
        throw_command_error("duplicate cards");
    reply_ok(tokens);
}

void cmd_set_pot(const Tokens& tokens) {
    const int first = parse_int(tokens[1]);
    const int second = parse_int(tokens[2]);
    const int chips = parse_int(tokens[3]);
    pot_first = first;
    pot_second = second;
    // Atomic: the solver thread reads the pot for its progress lines.
    std::atomic_ref<double>(pot).store(chips, std::memory_order_relaxed);
    update_accuracy_target();
    reply_ok(tokens);
}

// The effective stack follows from the lines; the value is only accepted.
void cmd_set_eff_stack(const Tokens& tokens) { reply_ok(tokens); }

void cmd_show_effective_stack(const Tokens&) {
    reply("%d\n", effective_stack);
}

// Clients parse these fixed lines; only the board and the pot are live.
void cmd_show_tree_params(const Tokens&) {
    reply_text("board: " + board_text() + "\n");
    reply("pot: %g %g %g\n", 0.0, 0.0, pot);
    reply("bet_sizes: \n");
    reply("donk_bet: FALSE\n");
    reply("END\n");
}

void cmd_set_rake(const Tokens& tokens) {
    // Written as negated ranges so that an undefined number is refused too.
    const double fraction = parse_double(tokens[1]);
    if (!(fraction >= 0 && fraction <= 1)) throw_argument_error();
    const double cap = parse_double(tokens[2]);
    if (!(cap >= 0)) throw_argument_error();
    rake_fraction = fraction;
    rake_cap = cap;
    reply_ok(tokens);
}
