// A plain recursive evaluation of a game's strategies, to check the solver's
// results against: combos by memory slot, card removal by masks, showdowns by
// the hand evaluator, every pair of hands compared one by one. Nothing here
// goes through hand lists, kernels, chance tasks or the walk. It deals every
// real card, and plays on a card that a stored board stands for the stored
// board's rows with the two suits swapped (the flop must be in canonical suits).
// A test may force a strategy at a node, as set_strategy and a lock do: the
// evaluation plays its weights there, and a best response may not deviate.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/protocol/game_setup.h"
#include "solver/results.h"
#include "solver/solver_driver.h"
#include "tree/boards.h"
#include "tree/engine.h"
#include "tree/isomorphism.h"

using Row = std::vector<double>;  // one value per ComboSlot

// Per action a weight for each ComboSlot (a hand without weight plays
// uniformly), and by slot the hands held to it. The cards are those the
// evaluation deals: -1 where none is dealt or the board fixes it.
struct ForcedStrategy {
    const TreeNode* node = nullptr;
    Card turn = -1;
    Card river = -1;
    std::vector<Row> weights;
    std::vector<bool> locked;
};

class NaiveEvaluator {
public:
    explicit NaiveEvaluator(const SubgameEngine& e, std::vector<ForcedStrategy> forced = {})
        : e_(e), forced_(std::move(forced)) {
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

    // The index of the stored board that stands for `card`, and in `swap`
    // the exchange of suits that takes the card to the stored one (none for
    // a card stored itself).
    static int stored_board(const std::vector<RunoutBoard>& boards, const CardIndexTable& index, Card card,
                            SuitOrder& swap) {
        swap = identity_suit_order();
        if (index[card] >= 0) return index[card];
        for (size_t b = 0; b < boards.size(); ++b) {
            const int suit = card_suit(boards[b].card);
            if (card_rank(boards[b].card) != card_rank(card) || card_suit(card) < suit ||
                card_suit(card) >= suit + boards[b].multiplicity)
                continue;
            std::swap(swap[suit], swap[card_suit(card)]);
            return static_cast<int>(b);
        }
        return -1;
    }

    // Strategy of the node at this board as the evaluation plays it: the
    // average where sums exist, for hands never reached the current one.
    std::vector<Row> strategy(const TreeNode& node, Card dealt_turn, Card dealt_river) {
        const int actions = static_cast<int>(node.children.size());
        const RootBoard& root = *e_.root_board;
        int group = -1, row = -1;
        const std::vector<int16_t>* hand_of_slot = &root.hand_of_slot;
        SuitOrder turn_swap = identity_suit_order(), river_swap = identity_suit_order();
        if (node.street >= turn_street) {
            const Card turn = e_.fixed_turn >= 0 ? e_.fixed_turn : dealt_turn;
            group = stored_board(root.turns, root.turn_of_card, turn, turn_swap);
            hand_of_slot = &root.turns[group].hand_of_slot;
            if (node.street == river_street) {
                const Card river = order_card(e_.fixed_river >= 0 ? e_.fixed_river : dealt_river, turn_swap);
                const RunoutBoard& turn_board = root.turns[group];
                row = stored_board(turn_board.rivers, turn_board.river_of_card, river, river_swap);
                hand_of_slot = &turn_board.rivers[row].hand_of_slot;
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
            const CardMask stored_hand = apply_order(apply_order(hands_[slot], turn_swap), river_swap);
            const int h = (*hand_of_slot)[slot_of_hand(stored_hand)];
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
        std::vector<Row> sigma = strategy(node, turn, river);
        const ForcedStrategy* forced = forced_at(node, turn, river);
        if (forced) force(*forced, sigma);
        const int actions = static_cast<int>(node.children.size());
        for (int a = 0; a < actions; ++a) {
            const TreeNode& child = e_.nodes[node.children[a]];
            Row child_ev, child_best;
            if (node.player == player_) {
                visit(child, board, turn, river, reach, child_ev, child_best);
                for (int h = 0; h < combo_count; ++h) {
                    ev[h] += sigma[a][h] * child_ev[h];
                    if (forced && forced->locked[h]) {
                        best[h] += sigma[a][h] * child_best[h];  // no deviation from a forced hand
                    } else {
                        best[h] = a == 0 ? child_best[h] : std::max(best[h], child_best[h]);
                    }
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

    const ForcedStrategy* forced_at(const TreeNode& node, Card turn, Card river) const {
        for (const ForcedStrategy& forced : forced_)
            if (forced.node == &node && forced.turn == turn && forced.river == river) return &forced;
        return nullptr;
    }

    // The test's weights in place of the stored strategy, for its hands.
    static void force(const ForcedStrategy& forced, std::vector<Row>& sigma) {
        const int actions = static_cast<int>(sigma.size());
        for (int slot = 0; slot < combo_count; ++slot) {
            if (!forced.locked[slot]) continue;
            double total = 0;
            for (int a = 0; a < actions; ++a) total += forced.weights[a][slot];
            for (int a = 0; a < actions; ++a) sigma[a][slot] = total > 0 ? forced.weights[a][slot] / total : 1.0 / actions;
        }
    }

    const SubgameEngine& e_;
    std::vector<ForcedStrategy> forced_;
    CardMask hands_[combo_count];
    int player_ = 0;
};

// The solver's results now against the naive evaluation, within a hundredth
// of a chip, and the two EVs adding up to nothing within `zero_sum`: what one
// player wins the other loses, whatever the strategies.
inline void expect_matches_naive(NaiveEvaluator& naive, double zero_sum) {
    const SolverProgressRecord results = calc_results_now();
    const auto [ev_oop, mes_oop] = naive.evaluate(0);
    const auto [ev_ip, mes_ip] = naive.evaluate(1);
    EXPECT_NEAR(results.ev_oop, ev_oop, 0.01);
    EXPECT_NEAR(results.mes_oop, mes_oop, 0.01);
    EXPECT_NEAR(results.ev_ip, ev_ip, 0.01);
    EXPECT_NEAR(results.mes_ip, mes_ip, 0.01);
    EXPECT_NEAR(results.ev_oop + results.ev_ip, 0.0, zero_sum);
    EXPECT_NEAR(results.exploitable, 0.5 * (mes_oop + mes_ip - ev_oop - ev_ip), 0.01);
}
