// The solver's results against a plain recursive evaluation of the same
// strategies: combos by memory slot, card removal by masks, showdowns by the
// hand evaluator, every pair of hands compared one by one. Nothing here goes
// through hand lists, kernels, chance tasks or the walk.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "shell/protocol/processor.h"
#include "solver/results.h"
#include "solver/solver_driver.h"
#include "solver/walk.h"
#include "solver_test_support.h"
#include "tree/boards.h"

namespace {

using Row = std::vector<double>;  // one value per ComboSlot

class NaiveEvaluator {
public:
    explicit NaiveEvaluator(const SubgameEngine& e) : e_(e) {
        for (int slot = 0; slot < combo_count; ++slot) hands_[slot] = slot_mask[slot];
    }

    // The traverser's value and best response value: means over pairs of
    // hands, relative to an even split of the pot.
    std::pair<double, double> evaluate(int player) {
        player_ = player;
        const CardMask board = e_.dead;
        Row reach(combo_count, 0.0);
        for (int o = 0; o < combo_count; ++o)
            if (!(hands_[o] & board)) reach[o] = (*player_range[1 - player])[o];
        Row ev, best;
        visit(e_.nodes[0], board, -1, -1, reach, ev, best);
        double value = 0, best_value = 0, deals = 0;
        for (int h = 0; h < combo_count; ++h) {
            const double weight = (*player_range[player])[h];
            if (weight == 0 || (hands_[h] & board)) continue;
            double opposing = 0;
            for (int o = 0; o < combo_count; ++o)
                if (!(hands_[o] & (hands_[h] | board))) opposing += (*player_range[1 - player])[o];
            deals += weight * opposing;
            value += weight * ev[h];
            best_value += weight * best[h];
        }
        return {value / deals, best_value / deals};
    }

private:
    static int street_of(CardMask board) { return __builtin_popcountll(board) - 2; }

    // Strategy of the node at this board as the evaluation plays it: the
    // average where sums exist, for hands never reached the current one.
    std::vector<Row> strategy(const TreeNode& node, Card dealt_turn, Card dealt_river) {
        const int actions = static_cast<int>(node.children.size());
        const RootBoard& root = *e_.root_board;
        int group = -1, row = -1;
        const std::vector<int16_t>* hand_of_slot = &root.hand_of_slot;
        if (node.street >= turn_street) {
            const Card turn = e_.fixed_turn >= 0 ? e_.fixed_turn : dealt_turn;
            group = root.turn_of_card[turn];
            hand_of_slot = &root.turns[group].hand_of_slot;
            if (node.street == river_street) {
                const Card river = e_.fixed_river >= 0 ? e_.fixed_river : dealt_river;
                row = root.turns[group].river_of_card[river];
                hand_of_slot = &root.turns[group].rivers[row].hand_of_slot;
            }
        }
        const int count = node.regrets->row_length(group, row);
        std::vector<std::vector<float>> current(actions, std::vector<float>(count)), average = current;
        std::vector<float*> current_rows, average_rows;
        for (int a = 0; a < actions; ++a) {
            current_rows.push_back(current[a].data());
            average_rows.push_back(average[a].data());
        }
        std::vector<float> uniform(actions, 1.0f / actions);
        node.regrets->read_strategy(current_rows.data(), group, row, uniform);
        const bool use_average = e_.iterations > 60 && node.strategy_sums;
        if (use_average) node.strategy_sums->read_strategy(average_rows.data(), group, row, {});
        std::vector<Row> out(actions, Row(combo_count, 0.0));
        for (int slot = 0; slot < combo_count; ++slot) {
            const int h = (*hand_of_slot)[slot];
            if (h < 0) continue;
            double total = 0;
            if (use_average)
                for (int a = 0; a < actions; ++a) total += average[a][h];
            for (int a = 0; a < actions; ++a) out[a][slot] = total > 0 ? average[a][h] : current[a][h];
        }
        return out;
    }

    void terminal(const TreeNode& node, CardMask board, const Row& reach, Row& ev) {
        const double payoff =
            node.kind == showdown_node ? node.value : (node.player == player_ ? -node.value : node.value);
        std::vector<HandValue> strength(combo_count, 0);
        if (node.kind == showdown_node) {
            for (int slot = 0; slot < combo_count; ++slot) {
                if ((hands_[slot] & board) || ((*player_range[0])[slot] == 0 && (*player_range[1])[slot] == 0))
                    continue;
                Card cards[7];
                int n = 0;
                for (CardMask m = board | hands_[slot]; m; m &= m - 1) cards[n++] = __builtin_ctzll(m);
                strength[slot] = hand_value(cards, n);
            }
        }
        std::vector<int> live;
        for (int o = 0; o < combo_count; ++o)
            if (reach[o] != 0 && !(hands_[o] & board)) live.push_back(o);
        for (int h = 0; h < combo_count; ++h) {
            if ((hands_[h] & board) || (*player_range[player_])[h] == 0) continue;
            double sum = 0;
            for (const int o : live) {
                if (hands_[o] & hands_[h]) continue;
                double sign = 1;
                if (node.kind == showdown_node)
                    sign = strength[h] > strength[o] ? 1 : (strength[h] < strength[o] ? -1 : 0);
                sum += reach[o] * sign;
            }
            ev[h] = payoff * sum;
        }
    }

    void deal(const TreeNode& node, CardMask board, Card turn, const Row& reach, Row& ev, Row& best) {
        const bool dealing_turn = street_of(board) == 1;
        const double cards_left = dealing_turn ? 45.0 : 44.0;
        for (Card card = 0; card < 52; ++card) {
            const CardMask bit = card_bit(card);
            if (board & bit) continue;
            Row dealt_reach = reach;
            for (int o = 0; o < combo_count; ++o)
                if (hands_[o] & bit) dealt_reach[o] = 0;
            Row child_ev, child_best;
            visit(node, board | bit, dealing_turn ? card : turn, dealing_turn ? -1 : card, dealt_reach, child_ev,
                  child_best);
            for (int h = 0; h < combo_count; ++h) {
                if (hands_[h] & (board | bit)) continue;
                ev[h] += child_ev[h] / cards_left;
                best[h] += child_best[h] / cards_left;
            }
        }
    }

    void visit(const TreeNode& node, CardMask board, Card turn, Card river, const Row& reach, Row& ev, Row& best) {
        ev.assign(combo_count, 0.0);
        best.assign(combo_count, 0.0);
        if (node.street > street_of(board)) {
            deal(node, board, turn, reach, ev, best);
            return;
        }
        if (node.kind != decision_node) {
            terminal(node, board, reach, ev);
            best = ev;
            return;
        }
        const std::vector<Row> sigma = strategy(node, turn, river);
        const int actions = static_cast<int>(node.children.size());
        for (int a = 0; a < actions; ++a) {
            const TreeNode& child = e_.nodes[node.children[a]];
            Row child_ev, child_best;
            if (node.player == player_) {
                visit(child, board, turn, river, reach, child_ev, child_best);
                for (int h = 0; h < combo_count; ++h) {
                    ev[h] += sigma[a][h] * child_ev[h];
                    best[h] = a == 0 ? child_best[h] : std::max(best[h], child_best[h]);
                }
            } else {
                Row child_reach(combo_count);
                for (int o = 0; o < combo_count; ++o) child_reach[o] = reach[o] * sigma[a][o];
                visit(child, board, turn, river, child_reach, child_ev, child_best);
                for (int h = 0; h < combo_count; ++h) {
                    ev[h] += child_ev[h];
                    best[h] += child_best[h];
                }
            }
        }
    }

    const SubgameEngine& e_;
    CardMask hands_[combo_count];
    int player_ = 0;
};

class IndependentResultsTest : public testing::Test {
protected:
    static void SetUpTestSuite() { prepare_solver_tables(); }
    void SetUp() override {
        threads = 2;
        simd_level = 8;
    }
    void TearDown() override {
        destroy_engine();
        simd_level = 8;
    }

    void train(int iterations) {
        open_all_storage(*engine);
        for (int i = 0; i < iterations; ++i) run_iteration(*engine);
    }

    // calc_results against the plain evaluation, both players.
    void expect_results_match(const char* stage) {
        const SolverProgressRecord results = calc_results_now();
        NaiveEvaluator naive(*engine);
        const auto [ev_oop, mes_oop] = naive.evaluate(0);
        const auto [ev_ip, mes_ip] = naive.evaluate(1);
        SCOPED_TRACE(stage);
        EXPECT_NEAR(results.ev_oop, ev_oop, 0.01);
        EXPECT_NEAR(results.mes_oop, mes_oop, 0.01);
        EXPECT_NEAR(results.ev_ip, ev_ip, 0.01);
        EXPECT_NEAR(results.mes_ip, mes_ip, 0.01);
        // Without rake what one player wins the other loses.
        EXPECT_NEAR(results.ev_oop + results.ev_ip, 0.0, 0.01);
        EXPECT_GE(results.mes_oop, results.ev_oop - 0.01);
        EXPECT_GE(results.mes_ip, results.ev_ip - 0.01);
        EXPECT_NEAR(results.exploitable, 0.5 * (mes_oop + mes_ip - ev_oop - ev_ip), 0.01);
    }
};

TEST_F(IndependentResultsTest, RiverGameFromUniformToAverage) {
    build_test_game(river_game());
    expect_results_match("uniform strategy after the build");
    train(12);
    expect_results_match("current strategy at iteration 12");
    train(70);
    expect_results_match("average strategy at iteration 82");
}

TEST_F(IndependentResultsTest, TurnGameFromUniformToAverage) {
    build_test_game(turn_game());
    expect_results_match("uniform strategy after the build");
    train(9);
    expect_results_match("current strategy at iteration 9");
    train(60);
    expect_results_match("average strategy at iteration 69");
}

TEST_F(IndependentResultsTest, TurnGameWithThePlainRiverWalk) {
    // simd level 1 walks river nodes one by one with the pair kernel instead
    // of the batch: another code path to the same numbers.
    simd_level = 1;
    build_test_game(turn_game());
    train(65);
    expect_results_match("plain river walk at iteration 65");
}

}  // namespace
