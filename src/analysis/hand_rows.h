// From the engine's rows to what a client reads. Inside, numbers are kept per
// hand of a board's list, in canonical suits when isomorphism is on; on the
// wire every list has 1326 values in hand order and the client's suits. The
// reports convert at the last moment, through the helpers here and those of
// tree/board_rows.h.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/cards.h"
#include "shell/protocol/game_setup.h"
#include "tree/board_rows.h"
#include "tree/engine.h"

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
