// From a client's cards and values to a board's list, and back. Inside,
// numbers are kept per hand of a board's list, in canonical suits when
// isomorphism is on; on the wire every list has 1326 values and the client's
// suits. Reports and the commands that write rows convert here.
#pragma once

#include <cstdint>
#include <vector>

#include "model/cards.h"
#include "shell/protocol/game_setup.h"
#include "tree/engine.h"
#include "tree/isomorphism.h"

// Which image of its stored board each real card of a runout is: table k of
// a stored card swaps its suit with the one k above, in the suits of the list
// the card is dealt from. 0 for a card the tree doesn't deal, and without
// isomorphism.
struct RunoutImages {
    int32_t turn = 0;
    int32_t river = 0;
};

// The board that a pair of real cards names, with the list its rows follow.
struct QueryBoard {
    int32_t turn_index = -1;   // index in the tree of boards, -1 when no turn is named
    int32_t river_index = -1;  // index under that turn, -1 when no river is named
    Card turn = -1;            // the real cards, which turn rows back into the client's suits
    Card river = -1;
    const std::vector<int16_t>* hand_of_slot = nullptr;  // canonical ComboSlot -> list index
    const std::vector<uint16_t>* hand_cards = nullptr;
    int32_t hand_count = 0;
    RunoutImages images;
};

// The images that real cards leading to the boards at `turn_index` and
// `river_index` (-1 when not named) are.
RunoutImages runout_images(const SubgameEngine& engine, Card turn, Card river, int turn_index, int river_index);

// The flop's board with no turn, the turn card's with a turn alone, the river
// card's under it with both. False when a named card leads to no stored board
// (a river equal to the turn, say).
bool find_query_board(const SubgameEngine& engine, Card turn, Card river, QueryBoard& board);

// The board of a decision node's rows for the real cards of a path: the
// flop's for a flop node whatever the cards, the turn card's for a turn node,
// the river card's under it for a river node. Cards that are missing or lead
// to no board are the command error "incorrect path".
QueryBoard node_query_board(const SubgameEngine& engine, const TreeNode& node, Card turn, Card river);

// The suits in which the board's list holds the hands of its real cards: the
// order of the real cards, as the tree of boards is found by. Once forced
// strategies or combo locks may set a hand and its images apart, the order
// in which the walk deals the cards instead: the root's, then for each card
// dealt as an image, the swap of its stored card's suit with the image's.
// The two differ only on a one-suit flop, under the turn of the last suit.
SuitOrder client_suit_order(const SubgameEngine& engine, const QueryBoard& board);

// A row in the board's list as 1326 values in memory order and the client's
// suits; hands not on the list are NaN.
RangeVector expand_row(const SubgameEngine& engine, const QueryBoard& board, const float* row);

// The way in: 1326 values in memory order and the client's suits, taken onto
// the board's list (board.hand_count values in `row`).
void gather_row(const SubgameEngine& engine, const QueryBoard& board, const RangeVector& values, float* row);
