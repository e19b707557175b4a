// Helpers shared by the tests of the tree of boards.
#pragma once

#include <array>
#include <random>
#include <string>

#include "model/cards.h"
#include "model/hand_strength.h"
#include "shell/protocol/game_setup.h"

inline void prepare_tables() {
    init_combo_tables();
    init_hand_strength_tables();
}

inline Card card_of(const std::string& text) { return __builtin_ctzll(parse_cards(text)); }

inline RangeVector uniform_range(double weight) {
    RangeVector range;
    range.fill(weight);
    return range;
}

// A suit-symmetric range: one weight per hand class, some classes left out.
inline RangeVector class_range(unsigned seed, double empty_share) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> draw(0.0, 1.0);
    RangeVector range{};
    for (int hand_class = 0; hand_class < hand_class_count; ++hand_class) {
        const double weight = draw(random) < empty_share ? 0.0 : draw(random);
        for (const ComboSlot slot : hand_class_slots[hand_class]) range[slot] = weight;
    }
    return range;
}
