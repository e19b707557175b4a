// Strategy, range and probability reports against rows written into the
// stores by hand.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <thread>

#include "analysis/capture_values.h"
#include "analysis/hand_rows.h"
#include "analysis/ranges.h"
#include "analysis/strategy_reports.h"
#include "analysis_test_support.h"
#include "solver/results.h"
#include "tree/engine.h"

namespace {

class StrategyReports : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
    void SetUp() override {
        oop = class_range(11, 0.6);
        ip = class_range(12, 0.6);
    }
    void TearDown() override {
        destroy_engine();
        tree_ready = false;
    }

    // Writes spread_regret at the path's node and returns its index.
    int write_regrets(const std::string& path) {
        const NodeRef ref = parse_path(path);
        const BoardIndex index = board_index(ref.turn, ref.river);
        write_node_rows(engine->nodes[ref.node->node_index], false, index.group, index.row, spread_regret);
        return ref.node->node_index;
    }

    RangeVector oop, ip;
};

// The regret-matched strategy of spread_regret at list index `hand`.
float matched(int action, int hand, int actions) {
    float total = 0;
    for (int a = 0; a < actions; ++a) total += spread_regret(a, hand);
    return total > 0 ? spread_regret(action, hand) / total : 1.0f / static_cast<float>(actions);
}

class StrategyAtEveryStreet : public StrategyReports, public testing::WithParamInterface<int> {};

TEST_P(StrategyAtEveryStreet, RowsComeBackRegretMatchedAndSumToOne) {
    Spot spot;
    spot.compression = GetParam();
    build_spot(spot, oop, ip);
    // Before any iteration the stores open on the first read, all zero.
    const RangeVector uniform = get_strategy(0, 1, -1, -1);
    EXPECT_TRUE(engine->storage_open);
    for (int slot = 0; slot < combo_count; ++slot) {
        if (oop[slot] == 0 || engine->root_board->hand_of_slot[slot] < 0) continue;
        ASSERT_EQ(uniform[slot], 0.5);
    }
    // One decision of each player on each street.
    for (const char* path : {"r:0", "r:0:b50", "r:0:c:c:7c", "r:0:c:c:7c:b50", "r:0:c:c:7c:b50:c:8d",
                             "r:0:c:c:7c:c:c:8d:c"}) {
        SCOPED_TRACE(path);
        const int node = write_regrets(path);
        const NodeRef ref = parse_path(path);
        const int actions = static_cast<int>(engine->nodes[node].children.size());
        const StrategyRows rows = read_strategy_rows(node, ref.turn, ref.river);
        for (int h = 0; h < rows.board.hand_count; ++h)
            for (int a = 0; a < actions; ++a) ASSERT_NEAR(rows.row(a)[h], matched(a, h, actions), 1e-6) << h;
        const RangeVector& acting = ref.node->player == 0 ? oop : ip;
        int shown = 0;
        for (int slot = 0; slot < combo_count; ++slot) {
            if (std::isnan(expand_strategy(rows, 0, ref.node->player)[slot])) continue;
            double total = 0;
            for (int a = 0; a < actions; ++a) total += expand_strategy(rows, a, ref.node->player)[slot];
            ASSERT_NEAR(total, acting[slot] == 0 ? 0.0 : 1.0, 1e-6) << slot;
            shown += acting[slot] != 0;
        }
        EXPECT_GT(shown, 50);
    }
}

// Flat river rows, and rows in block and entropy coded streams.
INSTANTIATE_TEST_SUITE_P(Compression, StrategyAtEveryStreet, testing::Values(0, 2, 4));

TEST_F(StrategyReports, TheAverageShowsFromIteration63WithTheCurrentStrategyForUnreachedHands) {
    build_spot(Spot{}, oop, ip);
    const auto sums = [](int action, int hand) { return hand % 5 == 0 ? 0.0f : float(1 + action * 3 + hand % 4); };
    for (const char* path : {"r:0", "r:0:c:c:7c:b50:c:8d"}) {
        SCOPED_TRACE(path);
        const int node = write_regrets(path);
        const NodeRef ref = parse_path(path);
        const BoardIndex index = board_index(ref.turn, ref.river);
        write_node_rows(engine->nodes[node], true, index.group, index.row, sums);
        engine->iterations = 62;
        StrategyRows rows = read_strategy_rows(node, ref.turn, ref.river);
        for (int h = 0; h < rows.board.hand_count; ++h) ASSERT_NEAR(rows.row(1)[h], matched(1, h, 2), 1e-6);
        engine->iterations = 63;
        rows = read_strategy_rows(node, ref.turn, ref.river);
        for (int h = 0; h < rows.board.hand_count; ++h) {
            const float average = sums(1, h) / (sums(0, h) + sums(1, h));
            ASSERT_NEAR(rows.row(1)[h], h % 5 == 0 ? matched(1, h, 2) : average, 1e-6) << h;
        }
    }
}

TEST_F(StrategyReports, ARangeAtANodeIsTheRootRangeTimesThePlayersStrategiesOnThePath) {
    build_spot(Spot{}, oop, ip);
    // The path's decisions and the action taken at each.
    const std::pair<const char*, int> steps[] = {
        {"r:0", 0}, {"r:0:c", 0}, {"r:0:c:c:7c", 1}, {"r:0:c:c:7c:b50", 1}, {"r:0:c:c:7c:b50:c:8d", 0}};
    RangeVector expected[2] = {oop, ip};
    for (const auto& [path, taken] : steps) {
        const int node = write_regrets(path);
        const NodeRef ref = parse_path(path);
        QueryBoard board;
        ASSERT_TRUE(find_query_board(*engine, ref.turn, ref.river, board));
        const int player = ref.node->player;
        for (int slot = 0; slot < combo_count; ++slot) {
            const int hand = (*board.hand_of_slot)[slot];
            // Outside the range a hand plays nothing; off the board it is gone.
            double strategy = hand < 0 ? NAN : matched(taken, hand, int(engine->nodes[node].children.size()));
            if ((player == 0 ? oop : ip)[slot] == 0) strategy = 0;
            expected[player][slot] *= strategy;
        }
    }
    const std::string end = "r:0:c:c:7c:b50:c:8d:c";
    for (int player = 0; player < 2; ++player) {
        const RangeVector range = range_at(player, end);
        for (int slot = 0; slot < combo_count; ++slot) {
            const double want = expected[player][slot];
            ASSERT_EQ(std::isnan(range[slot]), std::isnan(want)) << player << " " << slot;
            if (std::isnan(want)) continue;
            ASSERT_NEAR(range[slot], want, 1e-6 * (1 + want));
        }
    }
    // The report: hand order, and hands that are gone as 0.
    const std::vector<double> printed = numbers_of(replies_of([&] { cmd_show_range({"show_range", "IP", end}); }));
    ASSERT_EQ(printed.size(), 1326u);
    for (int index = 0; index < combo_count; ++index) {
        const double want = std::isnan(expected[1][combo_slot[index]]) ? 0.0 : expected[1][combo_slot[index]];
        ASSERT_NEAR(printed[index], want, 1e-9 + 1e-6 * want);
    }
}

TEST_F(StrategyReports, ProbabilitiesAtTheRootAreTheRangesShareOfEachAction) {
    build_spot(Spot{}, oop, ip);
    write_regrets("r:0");
    const std::string text = replies_of([] { cmd_show_probs({"show_probs", "r:0"}); });
    ASSERT_EQ(text.rfind("OOP 1 IP 1 c ", 0), 0u) << text;
    double checked = 0, all = 0;
    for (int slot = 0; slot < combo_count; ++slot) {
        const int hand = engine->root_board->hand_of_slot[slot];
        if (hand < 0) continue;
        checked += oop[slot] * matched(0, hand, 2);
        all += oop[slot];
    }
    const double check = numbers_of(text.substr(text.find(" c ") + 3))[0];
    const double bet = numbers_of(text.substr(text.find(" b50 ") + 5))[0];
    EXPECT_NEAR(check, checked / all, 1e-6);  // rows are regret-matched in f32
    EXPECT_NEAR(check + bet, 1.0, 1e-6);
}

TEST_F(StrategyReports, ATurnInAMissingSuitShowsItsStoredSiblingWithTheSuitsSwapped) {
    Spot spot;
    spot.isomorphic = true;
    build_spot(spot, oop, ip);
    // Hearts and spades are on the flop: clubs and diamonds are one family,
    // stored once.
    const struct {
        const char* stored;
        const char* sibling;
    } cases[] = {{"r:0:c:c:7c", "r:0:c:c:7d"}, {"r:0:c:c:7c:b50:c:8d", "r:0:c:c:7d:b50:c:8c"}};
    SuitOrder clubs_diamonds = identity_suit_order();
    std::swap(clubs_diamonds[0], clubs_diamonds[1]);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.sibling);
        const int node = write_regrets(c.stored);
        const NodeRef stored_ref = parse_path(c.stored), sibling_ref = parse_path(c.sibling);
        const RangeVector stored = get_strategy(node, 1, stored_ref.turn, stored_ref.river);
        const RangeVector sibling = get_strategy(node, 1, sibling_ref.turn, sibling_ref.river);
        int differing = 0;
        for (int slot = 0; slot < combo_count; ++slot) {
            const double there = stored[slot_of_hand(apply_order(slot_mask[slot], clubs_diamonds))];
            ASSERT_EQ(std::isnan(sibling[slot]), std::isnan(there)) << slot;
            if (std::isnan(there)) continue;
            ASSERT_EQ(sibling[slot], there) << slot;
            differing += sibling[slot] != stored[slot];
        }
        EXPECT_GT(differing, 0);  // the rows are not suit-blind, so the swap shows
    }
}

TEST_F(StrategyReports, TreesThatStartLaterReadTheRowsOfTheirOwnCards) {
    for (const bool river_root : {false, true}) {
        SCOPED_TRACE(river_root ? "river root" : "turn root");
        Spot spot;
        spot.turn = "7c";
        spot.river = river_root ? "8d" : "";
        spot.lines = river_root ? river_lines : turn_lines;
        spot.isomorphic = !river_root;  // a river tree never has it
        build_spot(spot, oop, ip);
        // The paths name no turn: the board's own stands for it.
        const std::string path = river_root ? "r:0:c" : "r:0:c:c:8d";
        const int node = write_regrets(path);
        const NodeRef ref = parse_path(path);
        const StrategyRows rows = read_strategy_rows(node, ref.turn, ref.river);
        for (int h = 0; h < rows.board.hand_count; ++h) ASSERT_NEAR(rows.row(1)[h], matched(1, h, 2), 1e-6);
        // The actor's range after checking here: his root range times that
        // check, and on the turn tree his uniform check before. The list is in
        // canonical suits.
        const double before = river_root ? 1.0 : 0.5;
        const RangeVector range = range_at(ref.node->player, path + ":c");
        const RangeVector& root = ref.node->player == 0 ? oop : ip;
        const SuitOrder order = spot.isomorphic ? make_suit_order(engine->flop, card_bit(ref.turn), card_bit(ref.river))
                                                : identity_suit_order();
        for (int slot = 0; slot < combo_count; ++slot) {
            const int hand = (*rows.board.hand_of_slot)[slot_of_hand(apply_order(slot_mask[slot], order))];
            const double want = root[slot] == 0 ? 0.0 : hand < 0 ? NAN : before * root[slot] * matched(0, hand, 2);
            ASSERT_EQ(std::isnan(range[slot]), std::isnan(want)) << slot;
            if (std::isnan(want)) continue;
            ASSERT_NEAR(range[slot], want, 1e-6);
        }
    }
}

// Every query that reads the stores or walks the tree waits for the engine's
// lock, which the solver thread holds through each of its walks.
TEST_F(StrategyReports, QueriesWaitForTheEngineLock) {
    build_spot(Spot{}, oop, ip);
    const NodeRef river = parse_path("r:0:c:c:7c:b50:c:8d");
    const std::pair<const char*, std::function<void()>> queries[] = {
        {"strategy", [&] { read_strategy_rows(river.node->node_index, river.turn, river.river); }},
        {"range", [] { range_at(IP, "r:0:c:c:7c:b50"); }},
        {"values", [&] {
             RangeVector values, weights;
             capture_values(OOP, river.node->node_index, river.turn, river.river, values, weights);
         }},
        {"results", [] { calc_results_now(); }},
    };
    for (const auto& [name, query] : queries) {
        std::atomic<bool> done = false;
        engine_lock.lock();  // a walk in progress
        std::thread asker([&] {
            query();
            done = true;
        });
        while (!engine_lock.has_waiters() && !done) std::this_thread::yield();
        EXPECT_FALSE(done) << "the " << name << " query ran without the lock";
        engine_lock.unlock();
        asker.join();
    }
}

TEST(ReportLines, ALineThatOverflowsItsBufferIsRefused) {
    const double values[] = {0.5, NAN, 1.0 / 3.0, -2};
    EXPECT_EQ(values_line(values, "%.12g", "0"), "0.5 0 0.333333333333 -2\n");
    // 23 characters and the newline need 25 bytes with the terminating zero.
    EXPECT_NO_THROW(values_line(values, "%.12g", "0", 25));
    EXPECT_THROW(values_line(values, "%.12g", "0", 24), std::runtime_error);
}

}  // namespace
