// Equity: what a hand wins at showdown against the opponent's range when both
// see all the cards. No actions play a part: the rest of the board is dealt
// over the tree of boards and every river is a showdown of the two ranges.
#pragma once

#include <vector>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/hand_vector.h"
#include "tree/engine.h"

// One board of the equity walk, on the stack of the recursion. Vectors are per
// hand of the board's list.
struct EquityFrame {
    const SubgameEngine* engine = nullptr;
    int32_t turn = -1;   // board indices, -1 when not dealt
    int32_t river = -1;
    HandVector reach;    // the opponent's weights
    HandVector wins;     // out: reach beaten less reach that beats the hand
    HandVector weights;  // out: reach left after blockers
};

// Fills wins and weights of the frame's board, dealing what is left of the
// board and averaging over the cards dealt.
void equity_walk(EquityFrame& frame);

struct EquityVectors {
    RangeVector equities;  // -1 (always loses) to +1 (always wins); NaN without matchups
    RangeVector matchups;  // the opponent's weight that the hand meets
};

// Equity of every hand of `player` against the opponent's range (1326 weights
// in memory order, client's suits) on the board of the real cards `turn` and
// `river` (-1 when not dealt). Hands not on that board's list are NaN in both.
// The player's own weights play no part in a hand's equity. Needs a tree.
EquityVectors equity_vectors(Card turn, Card river, const RangeVector& opponent_range);

// The hands of the position in descending order of equity against every hand,
// both ranges all ones; hands that the position's board doesn't hold are left
// out. "r" counts as "r:0".
std::vector<ComboIndex> hands_by_equity(const std::string& path);
