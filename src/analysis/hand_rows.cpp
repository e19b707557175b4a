#include "analysis/hand_rows.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/reply.h"
#include "tree/boards.h"
#include "tree/isomorphism.h"

bool find_query_board(const SubgameEngine& e, Card turn, Card river, QueryBoard& board) {
    const RootBoard& root = *e.root_board;
    board = QueryBoard{};
    if (turn < 0) {
        board.hand_of_slot = &root.hand_of_slot;
        board.hand_cards = &root.hand_cards;
        board.hand_count = static_cast<int32_t>(root.hands.size());
        return true;
    }
    const BoardLocation location = board_lookup(root, e.flop, turn, river, (e.flags & isomorphism_on_flag) != 0);
    if (location.turn_index < 0 || (river >= 0 && location.river_index < 0)) return false;
    board.turn_index = location.turn_index;
    board.river_index = location.river_index;
    board.turn = turn;
    board.river = river;
    board.hand_of_slot = &location.board->hand_of_slot;
    board.hand_cards = &location.board->hand_cards;
    board.hand_count = static_cast<int32_t>(location.board->hands.size());
    return true;
}

RangeVector expand_row(const SubgameEngine& e, const QueryBoard& board, const float* row) {
    // The list is in canonical suits; first spread it over canonical slots.
    std::array<float, combo_count> canonical;
    const std::vector<int16_t>& hand_of_slot = *board.hand_of_slot;
    for (int slot = 0; slot < combo_count; ++slot) {
        const int hand = hand_of_slot[slot];
        canonical[slot] = hand < 0 ? std::numeric_limits<float>::quiet_NaN() : row[hand];
    }
    RangeVector out;
    if (e.flags & isomorphism_on_flag) {
        const CardMask turn = board.turn >= 0 ? card_bit(board.turn) : 0;
        const CardMask river = board.river >= 0 ? card_bit(board.river) : 0;
        unpermute_row(e.flop, turn, river, out.data(), canonical.data());
    } else {
        for (int slot = 0; slot < combo_count; ++slot) out[slot] = canonical[slot];
    }
    return out;
}

std::array<double, combo_count> in_hand_order(const RangeVector& values) {
    std::array<double, combo_count> out;
    for (int index = 0; index < combo_count; ++index) out[index] = values[combo_slot[index]];
    return out;
}

std::string values_line(std::span<const double> values, const char* format, const char* nan_text,
                        size_t capacity) {
    std::string line;
    line.reserve(values.size() * 20);
    char number[64];
    for (size_t i = 0; i < values.size(); ++i) {
        const char* text = nan_text;
        if (!std::isnan(values[i])) {
            snprintf(number, sizeof number, format, values[i]);
            text = number;
        }
        if (i > 0) line += ' ';
        line += text;
        // The newline and the terminating zero must still fit.
        if (line.size() + 2 > capacity) throw std::runtime_error("buffer too small\n");
    }
    line += '\n';
    return line;
}

Player player_argument(const std::string& word) {
    const std::optional<Player> player = player_from_name(word);
    if (!player) throw_argument_error();
    return *player;
}
