// The strategy a report shows at a decision node: read out of the node's
// stores under engine_lock, so a report during a solve sees the strategy of
// that moment.
#pragma once

#include <cstdint>
#include <vector>

#include "analysis/hand_rows.h"
#include "shell/protocol/game_setup.h"
#include "tree/engine.h"

// Every action's probabilities at one node for one board, in the board's list.
struct StrategyRows {
    QueryBoard board;
    int32_t actions = 0;
    std::vector<float> values;  // `actions` rows of board.hand_count values

    const float* row(int action) const { return values.data() + size_t(action) * board.hand_count; }
};

// Opens every store that isn't open yet, as the solver does before its first
// iteration, so that reads before any `go` find rows of zeros; takes
// engine_lock. False when memory ran out for some store.
bool open_storages(SubgameEngine& engine);

// Reads all actions of the decision node at `node_index` for the real cards
// `turn` and `river` (each -1 when not named). A flop node ignores the cards;
// a turn node needs the turn, a river node both, and a node whose cards are
// missing or lead to no board is the command error "incorrect path".
StrategyRows read_strategy_rows(int node_index, Card turn, Card river);

// One action's row in hand-list order, as the stores give it.
std::vector<float> get_strategy_row(int node_index, int action, Card turn, Card river);

// One action as 1326 values in memory order: NaN for hands not on the board's
// list, 0 for hands outside the acting player's range.
RangeVector get_strategy(int node_index, int action, Card turn, Card river);
RangeVector expand_strategy(const StrategyRows& rows, int action, int player);
