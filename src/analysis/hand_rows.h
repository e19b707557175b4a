// From the engine's rows to what a client reads. Inside, numbers are kept per
// hand of a board's list, in canonical suits when isomorphism is on; on the
// wire every list has 1326 values in hand order and the client's suits. The
// reports convert at the last moment, all through the helpers here.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/cards.h"
#include "shell/protocol/game_setup.h"
#include "tree/engine.h"

// The board that a pair of real cards names, with the list its rows follow.
struct QueryBoard {
    int32_t turn_index = -1;   // index in the tree of boards, -1 when no turn is named
    int32_t river_index = -1;  // index under that turn, -1 when no river is named
    Card turn = -1;            // the real cards, which turn rows back into the client's suits
    Card river = -1;
    const std::vector<int16_t>* hand_of_slot = nullptr;  // canonical ComboSlot -> list index
    const std::vector<uint16_t>* hand_cards = nullptr;
    int32_t hand_count = 0;
};

// The flop's board with no turn, the turn card's with a turn alone, the river
// card's under it with both. False when a named card leads to no stored board
// (a river equal to the turn, say).
bool find_query_board(const SubgameEngine& engine, Card turn, Card river, QueryBoard& board);

// A row in the board's list as 1326 values in memory order and the client's
// suits; hands not on the list are NaN.
RangeVector expand_row(const SubgameEngine& engine, const QueryBoard& board, const float* row);

// Memory order (ComboSlot) to hand order (ComboIndex), the order of the wire.
std::array<double, combo_count> in_hand_order(const RangeVector& values);

// Room for one output line, the newline and the terminating zero included.
constexpr size_t reply_line_capacity = 65536;

// One line of values joined by single blanks and closed by a newline, each
// printed with `format` (one double conversion) and NaN as `nan_text`. A line
// that would not fit `capacity` throws the runtime error "buffer too small".
std::string values_line(std::span<const double> values, const char* format, const char* nan_text,
                        size_t capacity = reply_line_capacity);

// The player of a report's first argument; anything else is the argument error.
Player player_argument(const std::string& word);
