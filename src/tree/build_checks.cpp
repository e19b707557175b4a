#include "tree/build_checks.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/reply.h"

namespace {

const char* const player_names[2] = {"OOP", "IP"};

bool live(const RangeVector& range, ComboSlot slot, CardMask dead) {
    return range[slot] > 0 && !(slot_mask[slot] & dead);
}

double largest_live_weight(const RangeVector& range, CardMask dead) {
    double largest = 0;
    for (ComboSlot slot = 0; slot < combo_count; ++slot)
        if (live(range, slot, dead)) largest = std::max(largest, range[slot]);
    return largest;
}

}  // namespace

void check_ranges_deal(CardMask dead) {
    for (int player = 0; player < 2; ++player) {
        if (largest_live_weight(*player_range[player], dead) == 0)
            throw_command_error(std::string("no live hand in ") + player_names[player] + " range");
    }
    // Two hands meet unless they share a card; look for one such pair.
    const RangeVector& oop = *player_range[0];
    const RangeVector& ip = *player_range[1];
    for (ComboSlot a = 0; a < combo_count; ++a) {
        if (!live(oop, a, dead)) continue;
        for (ComboSlot b = 0; b < combo_count; ++b)
            if (live(ip, b, dead) && !(slot_mask[a] & slot_mask[b])) return;
    }
    throw_command_error("no hand of one range can meet a hand of the other");
}

void check_stakes(const SchematicNode& lines, CardMask dead) {
    const double largest_amount = largest_line_amount(lines) + 0.5 * std::fabs(pot);
    if (!(largest_amount <= max_stake)) throw_command_error("line amount too large");
    const double weight = std::max(largest_live_weight(*player_range[0], dead),
                                   largest_live_weight(*player_range[1], dead));
    if (!(weight * std::max(largest_amount, 1.0) <= max_stake)) throw_command_error("range weight too large");
}
