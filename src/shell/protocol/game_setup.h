// The game a client states before building a tree: ranges, board, pot, rake.
// Plain process-wide values; a built tree keeps its own copies.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "shell/protocol/card_types.h"

enum Player : int { OOP = 0, IP = 1 };

// "OOP" or "hero", "IP" or "villain"; anything else has no player.
std::optional<Player> player_from_name(const std::string& name);

// 1326 weights in memory order (by ComboSlot).
using RangeVector = std::array<double, 1326>;

extern std::optional<RangeVector> player_range[2];
extern double range_min[2];
extern double range_max[2];
extern CardMask flop_mask;
extern CardMask turn_mask;
extern CardMask river_mask;
extern double pot_first;
extern double pot_second;
extern double pot;
extern int effective_stack;
extern double rake_fraction;
extern double rake_cap;
