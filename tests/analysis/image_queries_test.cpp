// Queries on a game whose root plays a forced strategy that treats a hand and
// its images under suit isomorphism apart: the cards of the suits the board
// lacks are stored once, yet every figure must be the one that the game
// without isomorphism gives.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <sstream>

#include "analysis/equity_reports.h"
#include "analysis/ev_reports.h"
#include "analysis/frequency_reports.h"
#include "analysis/strategy_reports.h"
#include "analysis_test_support.h"
#include "solver/lock_commands.h"

namespace {

const std::map<std::string, void (*)(const Tokens&)> handlers = {
    {"calc_line_freq", cmd_calc_line_freq}, {"calc_global_freq", cmd_calc_global_freq},
    {"calc_eq_node", cmd_calc_eq_node},     {"calc_ev", cmd_calc_ev},
    {"show_range", cmd_show_range},         {"show_probs", cmd_show_probs},
};

// Every number of every reply, in order, with the root forced and locked;
// nothing is trained, so every other node plays its default strategy with
// isomorphism on and off alike.
std::vector<double> numbers_under_a_forced_root(Spot spot, bool isomorphic, const std::vector<Tokens>& queries) {
    spot.isomorphic = isomorphic;
    build_spot(spot, class_range(41, 0.3), class_range(42, 0.3));
    force_random_strategy("r:0", 17);
    EXPECT_EQ(replies_of([] { cmd_lock_node({"lock_node", "r:0"}); }), "lock_node ok!\n");
    std::vector<double> numbers;
    for (const Tokens& query : queries) {
        std::istringstream words(replies_of([&] { handlers.at(query[0])(query); }));
        for (std::string word; words >> word;) {
            char* end = nullptr;
            const double value = strtod(word.c_str(), &end);
            if (*end == '\0' && end != word.c_str()) numbers.push_back(value);
        }
    }
    destroy_engine();
    tree_ready = false;
    return numbers;
}

void expect_the_same_with_isomorphism_on_and_off(const Spot& spot, const std::vector<Tokens>& queries) {
    prepare_tables();
    const std::vector<double> expected = numbers_under_a_forced_root(spot, false, queries);
    const std::vector<double> got = numbers_under_a_forced_root(spot, true, queries);
    ASSERT_GT(expected.size(), 1326 * queries.size() / 2);
    ASSERT_EQ(got.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(std::isnan(got[i]), std::isnan(expected[i])) << i;
        const double tolerance = std::isnan(got[i]) ? INFINITY : 2e-5 * std::max(1.0, std::fabs(expected[i]));
        ASSERT_FALSE(std::fabs(got[i] - expected[i]) > tolerance) << i << ": " << got[i] << " " << expected[i];
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
