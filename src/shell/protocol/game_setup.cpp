#include "shell/protocol/game_setup.h"

std::optional<RangeVector> player_range[2];
double range_min[2] = {0, 0};
double range_max[2] = {1, 1};
CardMask flop_mask = 0;
CardMask turn_mask = 0;
CardMask river_mask = 0;
double pot_first = 0;
double pot_second = 0;
double pot = 100;
int effective_stack = 0;
double rake_fraction = 0;
double rake_cap = 0;

std::optional<Player> player_from_name(const std::string& name) {
    if (name == "OOP" || name == "hero") return OOP;
    if (name == "IP" || name == "villain") return IP;
    return std::nullopt;
}
