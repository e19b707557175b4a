// Queries on a game whose root plays a forced strategy that treats a hand and
// its images under suit isomorphism apart: the cards of the suits the board
// lacks are stored once, yet every figure must be the one that the game
// without isomorphism gives.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>

#include "analysis/equity_reports.h"
#include "analysis/ev_reports.h"
#include "analysis/frequency_reports.h"
#include "analysis/strategy_reports.h"
#include "analysis_test_support.h"
#include "solver/lock_commands.h"
#include "solver/solver_driver.h"

namespace {

const std::map<std::string, void (*)(const Tokens&)> handlers = {
    {"calc_line_freq", cmd_calc_line_freq}, {"calc_global_freq", cmd_calc_global_freq},
    {"calc_eq_node", cmd_calc_eq_node},     {"calc_ev", cmd_calc_ev},
    {"show_range", cmd_show_range},         {"show_probs", cmd_show_probs},
    {"set_strategy", cmd_set_strategy},     {"lock_node", cmd_lock_node},
};

std::string reply_to(const Tokens& tokens) {
    current_command = tokens[0];
    return replies_of([&] {
        try {
            handlers.at(tokens[0])(tokens);
        } catch (const std::runtime_error& error) {
            reply_text(error.what());
        }
    });
}

// Builds the game, forces random weights per hand at the root and locks it;
// nothing is trained, so every other node plays its default strategy with
// isomorphism on and off alike. The replies of every query, in order.
std::vector<std::string> replies_under_a_forced_root(Spot spot, bool isomorphic, const std::vector<Tokens>& queries) {
    spot.isomorphic = isomorphic;
    build_spot(spot, class_range(41, 0.3), class_range(42, 0.3));
    std::mt19937 random(17);
    std::uniform_real_distribution<double> draw(0.05, 1.0);
    for (size_t action = 0; action < engine->nodes[0].children.size(); ++action) {
        Tokens tokens = {"set_strategy", "r:0", std::to_string(action)};
        for (int hand = 0; hand < combo_count; ++hand) tokens.push_back(std::to_string(draw(random)));
        EXPECT_EQ(reply_to(tokens), "set_strategy ok!\n");
    }
    EXPECT_EQ(reply_to({"lock_node", "r:0"}), "lock_node ok!\n");
    std::vector<std::string> replies;
    for (const Tokens& query : queries) replies.push_back(reply_to(query));
    destroy_engine();
    tree_ready = false;
    return replies;
}

// The numbers of a reply, every line of it; words are left out.
std::vector<double> all_numbers(const std::string& text) {
    std::vector<double> values;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        char* end = nullptr;
        const double value = strtod(word.c_str(), &end);
        if (*end == '\0' && end != word.c_str()) values.push_back(value);
    }
    return values;
}

void expect_the_same_with_isomorphism_on_and_off(const Spot& spot, const std::vector<Tokens>& queries) {
    prepare_tables();
    const std::vector<std::string> plain = replies_under_a_forced_root(spot, false, queries);
    const std::vector<std::string> folded = replies_under_a_forced_root(spot, true, queries);
    for (size_t q = 0; q < queries.size(); ++q) {
        const std::string what = queries[q].front() + " " + queries[q].back();
        const std::vector<double> expected = all_numbers(plain[q]);
        const std::vector<double> got = all_numbers(folded[q]);
        ASSERT_GT(expected.size(), 0u) << what << ": " << plain[q];
        ASSERT_EQ(got.size(), expected.size()) << what << ": " << folded[q];
        int differing = 0;
        for (size_t i = 0; i < expected.size(); ++i) {
            if (std::isnan(expected[i]) || std::isnan(got[i])) {
                differing += std::isnan(expected[i]) != std::isnan(got[i]);
                continue;
            }
            differing += std::fabs(got[i] - expected[i]) > 2e-5 * std::max(1.0, std::fabs(expected[i]));
        }
        EXPECT_EQ(differing, 0) << what;
    }
}

// A turn board of two suits: the rivers of the other two are one stored card
// (clubs) and its image. Lines on both, and a line over every river.
TEST(ImageQueries, TurnGameUnderAForcedRootAgreesWithIsomorphismOnAndOff) {
    Spot spot;
    spot.flop = "Ks 9s 5h";
    spot.turn = "2h";
    spot.lines = turn_lines;
    expect_the_same_with_isomorphism_on_and_off(
        spot, {{"calc_line_freq", "r:0:c:c:7d:c"}, {"calc_line_freq", "r:0:c:c:7c:b50"},
               {"calc_line_freq", "r:0:c:c:c"}, {"calc_global_freq", "r:0:c:c:7d:c"},
               {"calc_eq_node", "IP", "r:0:c"}, {"calc_ev", "OOP", "r:0:c:c:7d"}, {"calc_ev", "IP", "r:0:c:c:7c:c"},
               {"show_range", "OOP", "r:0:c:c:7d"}, {"show_probs", "r:0:c:c:7d"}});
}

// A flop of one suit: the turn's clubs stand for diamonds and hearts too.
// Under the diamond, the hearts river is an image of the stored river (clubs
// in the stored turn's suits). Under the heart, the order of the real cards
// and the suits the walk deals it in part.
TEST(ImageQueries, FlopGameUnderAForcedRootAgreesWithIsomorphismOnAndOff) {
    Spot spot;
    spot.flop = "Qs Js 2s";
    expect_the_same_with_isomorphism_on_and_off(
        spot, {{"calc_line_freq", "r:0:c:c:7d:c"}, {"calc_line_freq", "r:0:c:c:7d:c:c:8h:c"},
               {"calc_line_freq", "r:0:c:c:c:c:c"}, {"calc_eq_node", "IP", "r:0:c"},
               {"calc_eq_node", "OOP", "r:0:c:c:7d"}, {"calc_eq_node", "OOP", "r:0:c:c:7h:c:c:8d"},
               {"calc_ev", "OOP", "r:0:c:c:7d"}, {"calc_ev", "IP", "r:0:c:c:7d:c:c:8h:c"},
               {"calc_ev", "OOP", "r:0:c:c:7h"}, {"calc_ev", "IP", "r:0:c:c:7h:c:c:8c:c"},
               {"show_range", "OOP", "r:0:c:c:7d:c:c:8h"}});
}

}  // namespace
