#include "analysis/hand_rows.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/reply.h"

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
