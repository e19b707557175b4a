#include "analysis/frequency_reports.h"

#include "analysis/line_reach.h"
#include "tree/engine.h"
#include "tree/paths.h"

namespace {

// The bare root "r" stands for its first node.
NodeRef query_position(const std::string& text) { return parse_path(text == "r" ? "r:0" : text); }

// The joint reach of the root: the weighted number of deals.
double all_deals() { return line_sum(0, engine->fixed_turn, engine->fixed_river); }

}  // namespace

void cmd_calc_line_freq(const Tokens& tokens) {
    // Rows of a forgotten street are gone, and with them the line's share:
    // clients are told 1.
    if (tree_has_forgotten_streets(*engine)) {
        reply("1\n");
        return;
    }
    const double deals = all_deals();
    const NodeRef ref = query_position(tokens[1]);
    reply("%.9g\n", line_sum(ref.node->node_index, -1, -1) / deals);
}

void cmd_calc_global_freq(const Tokens& tokens) {
    const double deals = all_deals();
    const NodeRef ref = query_position(tokens[1]);
    reply("%.9g\n", line_sum(ref.node->node_index, ref.turn, ref.river) / deals);
}
