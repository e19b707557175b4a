// Line and global frequencies against a plain count: every runout dealt by
// hand, both players' strategies multiplied along the path slot by slot,
// card removal by masks. The strategies come from get_strategy; nothing of
// the frequency walk is used here.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <stdexcept>
#include <tuple>

#include "analysis/frequency_reports.h"
#include "analysis/line_reach.h"
#include "analysis_test_support.h"
#include "solver/node_strategy.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"

namespace {

// What the client reads, refusals included.
std::string reply_of(void (*handler)(const Tokens&), const char* name, const std::string& path) {
    current_command = name;
    return replies_of([&] {
        try {
            handler({name, path});
        } catch (const std::runtime_error& error) {
            reply_text(error.what());
        }
    });
}

double value_of(void (*handler)(const Tokens&), const char* name, const std::string& path) {
    const std::string text = reply_of(handler, name, path);
    const std::vector<double> numbers = numbers_of(text);
    EXPECT_EQ(numbers.size(), 1u) << name << " " << path << ": " << text;
    return numbers.empty() ? NAN : numbers[0];
}

double line_freq(const std::string& path) { return value_of(cmd_calc_line_freq, "calc_line_freq", path); }
double global_freq(const std::string& path) { return value_of(cmd_calc_global_freq, "calc_global_freq", path); }

std::vector<std::string> tokens_of(const std::string& path) {
    std::vector<std::string> tokens;
    size_t start = 0;
    for (size_t colon; (colon = path.find(':', start)) != std::string::npos; start = colon + 1)
        tokens.push_back(path.substr(start, colon - start));
    tokens.push_back(path.substr(start));
    return tokens;
}

std::string card_text(Card card) { return cards_to_text(card_bit(card)); }

// One decision on a path and the action it takes.
struct Step {
    int node = 0;
    int action = 0;
    int player = 0;
    int street = 0;
};

// The count by hand. A runout's weight is 1/45 for a dealt turn and 1/44
// for a dealt river; its pairs are every two hands of the ranges that share
// no card with each other or the board.
class NaiveCount {
public:
    explicit NaiveCount(const SubgameEngine& e) : e_(e) {}

    // The share of all deals that reach the end of `path`, over every card
    // of its streets that the path doesn't name, or over every card with
    // `all_runouts`.
    double frequency(const std::string& path, bool all_runouts) {
        std::vector<Step> steps;
        const std::vector<std::string> tokens = tokens_of(path);
        std::string prefix = "r:0";
        Card turn = e_.fixed_turn, river = e_.fixed_river;
        for (size_t i = 2; i < tokens.size(); ++i) {
            const std::string next = prefix + ":" + tokens[i];
            const NodeRef at = parse_path(prefix);
            const NodeRef to = parse_path(next);
            if (to.turn != at.turn) turn = to.turn;
            if (to.river != at.river) river = to.river;
            if (to.node != at.node) {
                int action = 0;
                for (const auto& child : at.node->children) {
                    if (child.second.get() == to.node) break;
                    ++action;
                }
                steps.push_back({at.node->node_index, action, at.node->player, game_street(*at.node)});
            }
            prefix = next;
        }
        const int street = game_street(*parse_path(path).node);
        if (all_runouts) {
            if (first_street == flop_street) turn = -1;
            if (first_street < river_street) river = -1;
        }
        return reaching(steps, street, turn, river) / reaching({}, first_street, e_.fixed_turn, e_.fixed_river);
    }

private:
    double reaching(const std::vector<Step>& steps, int street, Card named_turn, Card named_river) {
        const bool deal_turn = street >= turn_street && first_street == flop_street;
        const bool deal_river = street == river_street && first_street < river_street;
        double total = 0;
        for (Card turn = 0; turn < 52; ++turn) {
            if (deal_turn ? (named_turn >= 0 && turn != named_turn) || (e_.dead & card_bit(turn)) : turn > 0) continue;
            for (Card river = 0; river < 52; ++river) {
                if (deal_river ? (named_river >= 0 && river != named_river) ||
                                     (e_.dead & card_bit(river)) || (deal_turn && river == turn)
                               : river > 0)
                    continue;
                const Card t = deal_turn ? turn : named_turn;
                const Card r = deal_river ? river : named_river;
                const double weight = (deal_turn ? 1.0 / 45 : 1.0) * (deal_river ? 1.0 / 44 : 1.0);
                total += weight * pairs(steps, t, r);
            }
        }
        return total;
    }

    // Both players' reach by slot on the board with t and r, paired.
    double pairs(const std::vector<Step>& steps, Card t, Card r) {
        CardMask board = e_.dead;
        if (t >= 0) board |= card_bit(t);
        if (r >= 0) board |= card_bit(r);
        std::vector<std::pair<CardMask, double>> reach[2];
        for (int player = 0; player < 2; ++player) {
            for (int slot = 0; slot < combo_count; ++slot) {
                double value = e_.range[player][slot];
                if (value == 0 || (slot_mask[slot] & board)) continue;
                for (const Step& step : steps)
                    if (step.player == player) value *= strategy(step, t, r)[slot];
                if (value != 0) reach[player].push_back({slot_mask[slot], value});
            }
        }
        double sum = 0;
        for (const auto& [own, own_reach] : reach[0])
            for (const auto& [other, other_reach] : reach[1])
                if (!(own & other)) sum += own_reach * other_reach;
        return sum;
    }

    const RangeVector& strategy(const Step& step, Card t, Card r) {
        const Card turn = step.street >= turn_street ? t : -1;
        const Card river = step.street == river_street ? r : -1;
        const auto key = std::make_tuple(step.node, step.action, turn, river);
        auto found = strategies_.find(key);
        if (found == strategies_.end())
            found = strategies_.emplace(key, get_strategy(step.node, step.action, turn, river)).first;
        return found->second;
    }

    const SubgameEngine& e_;
    std::map<std::tuple<int, int, Card, Card>, RangeVector> strategies_;
};

void expect_relative(double actual, double expected, const std::string& what) {
    EXPECT_GT(expected, 1e-6) << what << ": pick a line that is played";
    EXPECT_NEAR(actual, expected, 1e-6 * expected) << what;
}

class LineFrequency : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void SetUp() override {
        // Few hands, so that the count by pairs stays quick.
        range[0] = class_range(41, 0.9);
        range[1] = class_range(42, 0.9);
        threads = 2;
    }
    void TearDown() override {
        destroy_engine();
        tree_ready = false;
        threads = 1;
    }

    void solve(int iterations) {
        open_all_storage(*engine);
        for (int i = 0; i < iterations; ++i) run_iteration(*engine);
    }

    // Both commands against the count at a node.
    void expect_counted(const std::string& path) {
        NaiveCount naive(*engine);
        expect_relative(line_freq(path), naive.frequency(path, true), "calc_line_freq " + path);
        expect_relative(global_freq(path), naive.frequency(path, false), "calc_global_freq " + path);
    }

    RangeVector range[2];
};

Spot flop_spot(int compression) {
    Spot spot;
    spot.isomorphic = true;
    spot.compression = compression;
    return spot;
}

Spot turn_spot() {
    Spot spot;
    spot.turn = "7c";
    spot.lines = turn_lines;
    spot.isomorphic = true;
    return spot;
}

Spot river_spot() {
    Spot spot;
    spot.turn = "7c";
    spot.river = "8d";
    spot.lines = river_lines;
    return spot;
}

class FlopGame : public LineFrequency, public testing::WithParamInterface<int> {};

// 7d and 8c are in suits the flop lacks: their rows are stored under
// other cards.
TEST_P(FlopGame, BothCommandsEqualTheCountAtFlopTurnAndRiverNodes) {
    build_spot(flop_spot(GetParam()), range[0], range[1]);
    // Compressed, the reads show the average: the river opens the streams of
    // the strategy sums too.
    solve(GetParam() == 0 ? 4 : report_average_from);
    expect_counted("r:0:c");
    expect_counted("r:0:c:c:7d:b50");
    expect_counted("r:0:c:c:Ah:b50:c");
    expect_counted("r:0:c:c:7d:c:c:8c:c:b50");
    expect_counted("r:0:c:c:Ah:b50:c:3s:b50");
    // A river line whose turn is named and whose river isn't.
    expect_counted("r:0:c:c:7d:c:c:c:b50");
}

INSTANTIATE_TEST_SUITE_P(Compression, FlopGame, testing::Values(0, 4));

TEST_F(LineFrequency, BothCommandsEqualTheCountOnATurnTreeShowingTheAverage) {
    build_spot(turn_spot(), range[0], range[1]);
    // From iteration 63 on the reports, and so the frequencies, read the
    // average strategy.
    solve(66);
    expect_counted("r:0:b50");
    expect_counted("r:0:c:c:3d:b50");
    expect_counted("r:0:c:c:Ad:c");
    expect_counted("r:0:b50:c:Kc:b50");

    // The river cards of a turn tree add up to the line, which is the same
    // whichever river the path names.
    double sum = 0;
    for (Card card = 0; card < 52; ++card)
        if (!(engine->dead & card_bit(card))) sum += global_freq("r:0:b50:c:" + card_text(card));
    EXPECT_NEAR(sum, line_freq("r:0:b50:c"), 1e-6 * sum);
    EXPECT_NEAR(sum, line_freq("r:0:b50:c:Kc"), 1e-6 * sum);
}

TEST_F(LineFrequency, SharesAddUpOverActionsAndOverCards) {
    build_spot(flop_spot(0), range[0], range[1]);
    solve(4);
    const auto sum_over_actions = [](const std::string& path) {
        const NodeRef ref = parse_path(path);
        double sum = 0;
        for (size_t i = 0; i < ref.node->children.size(); ++i)
            sum += global_freq(path + ":" + action_token(ref, static_cast<int>(i)));
        return sum;
    };
    for (const std::string path : {"r:0", "r:0:c", "r:0:c:c:7d", "r:0:c:c:Ah:b50", "r:0:c:c:7d:c:c:8c:c"}) {
        const double whole = global_freq(path);
        EXPECT_NEAR(sum_over_actions(path), whole, 1e-6 * whole) << path;
    }
    EXPECT_EQ(global_freq("r:0"), 1.0);

    // Over the cards at a chance point: every turn, and every river under a
    // named turn. Without its card the path means all of them.
    const auto sum_over_cards = [](const std::string& path, CardMask dead) {
        double sum = 0;
        for (Card card = 0; card < 52; ++card)
            if (!(dead & card_bit(card))) sum += global_freq(path + ":" + card_text(card));
        return sum;
    };
    const double turns = sum_over_cards("r:0:c:c", engine->dead);
    EXPECT_NEAR(turns, line_freq("r:0:c:c"), 1e-6 * turns);
    EXPECT_NEAR(turns, global_freq("r:0:c:c"), 1e-6 * turns);
    const double rivers = sum_over_cards("r:0:c:c:7d:c:c", engine->dead | card_bit(card_of("7d")));
    EXPECT_NEAR(rivers, global_freq("r:0:c:c:7d:c:c"), 1e-6 * rivers);

    // The grouped sum over a few runouts, two of them under one turn card
    // whose stored board another turn card shares.
    const std::string river_node = "r:0:c:c:7d:c:c:8c:c";
    const auto item = [](const char* turn, const char* river) {
        return static_cast<uint16_t>(card_of(turn) * 256 + card_of(river));
    };
    const RunoutGroups groups = {{item("7d", "8c"), item("7d", "Ah")}, {item("7c", "Ah")}, {item("Kc", "3s")}};
    double runouts = 0;
    for (const char* cards : {"7d:c:c:8c", "7d:c:c:Ah", "7c:c:c:Ah", "Kc:c:c:3s"})
        runouts += global_freq("r:0:c:c:" + std::string(cards) + ":c");
    const double grouped = libsubgame_calc_river_line_freq(parse_path(river_node).node->node_index, groups) /
                           line_sum(0, -1, -1);
    EXPECT_NEAR(grouped, runouts, 1e-6 * runouts);
}

TEST_F(LineFrequency, TheRootIsOneAndALineNeverTakenIsZero) {
    for (const Spot& spot : {flop_spot(2), turn_spot(), river_spot()}) {
        build_spot(spot, range[0], range[1]);
        SCOPED_TRACE(spot.turn + spot.river);
        for (const char* root : {"r", "r:0"}) {
            EXPECT_EQ(reply_of(cmd_calc_line_freq, "calc_line_freq", root), "1\n");
            EXPECT_EQ(reply_of(cmd_calc_global_freq, "calc_global_freq", root), "1\n");
        }
        // OOP never checks first: all regret on the bet.
        write_node_rows(engine->nodes[0], false, engine->root_turn_group, engine->root_river_row,
                        [](int action, int) { return action == 1 ? 100.0f : 0.0f; });
        EXPECT_EQ(line_freq("r:0:b50"), 1.0);
        const std::string never = first_street == river_street ? "r:0:c:b50" : "r:0:c:c";
        EXPECT_EQ(line_freq(never), 0.0);
        EXPECT_EQ(global_freq(never), 0.0);
        const std::string below = first_street == flop_street ? never + ":Kc:b50" : never + ":c";
        EXPECT_EQ(line_freq(below), 0.0) << below;
        EXPECT_EQ(global_freq(below), 0.0) << below;
    }
}

TEST_F(LineFrequency, TerminalsSplitsAndImpossibleCardsAnswerWithoutHarm) {
    build_spot(flop_spot(2), range[0], range[1]);
    solve(3);
    // A fold and a river showdown are reached like any node; a split counts
    // every card of the street it opens.
    const double bet = global_freq("r:0:b50");
    EXPECT_NEAR(global_freq("r:0:b50:f") + global_freq("r:0:b50:c") + global_freq("r:0:b50:b150"), bet, 1e-6 * bet);
    EXPECT_NEAR(line_freq("r:0:b50:c"), global_freq("r:0:b50:c"), 1e-6 * bet);
    const double river_call = line_freq("r:0:c:c:7d:c:c:8c:c:b50:c");
    EXPECT_GT(river_call, 0.0);
    EXPECT_LT(river_call, line_freq("r:0:c:c:7d:c:c:8c:c:b50"));
    // A river that repeats the turn: no such board for the global share,
    // while the line counts every runout whatever cards the path names.
    EXPECT_EQ(reply_of(cmd_calc_global_freq, "calc_global_freq", "r:0:c:c:7d:c:c:7d"),
              "ERROR: calc_global_freq incorrect path\n");
    EXPECT_EQ(line_freq("r:0:c:c:7d:c:c:7d:c"), line_freq("r:0:c:c:7d:c:c:8c:c"));
}

TEST_F(LineFrequency, AForgottenTreeCountsEveryLineAsOne) {
    build_spot(flop_spot(0), range[0], range[1]);
    engine->forgotten_from = river_street;
    for (const char* path : {"r:0", "r:0:c:c:7d:c:c:8c:c", "r:0:x"})
        EXPECT_EQ(reply_of(cmd_calc_line_freq, "calc_line_freq", path), "1\n") << path;
    engine->forgotten_from = -1;
}

TEST_F(LineFrequency, OneAndTwoThreadsGiveTheSameReplies) {
    build_spot(flop_spot(4), range[0], range[1]);
    solve(3);
    const std::vector<std::string> paths = {"r:0:c:c:7d:c:c:8c:c:b50", "r:0:b50:c:Ah:b50:c", "r:0:c:c:Kc",
                                            "r:0:c:c:7d:c:c:c:b50"};
    std::vector<std::string> replies[2];
    for (const int team : {1, 2}) {
        threads = team;
        for (const std::string& path : paths) {
            replies[team - 1].push_back(reply_of(cmd_calc_line_freq, "calc_line_freq", path));
            replies[team - 1].push_back(reply_of(cmd_calc_global_freq, "calc_global_freq", path));
        }
    }
    EXPECT_EQ(replies[0], replies[1]);
}

}  // namespace
