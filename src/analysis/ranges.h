// The range with which a player reaches a position: the root range times the
// player's own strategy at each of his decisions along the path.
#pragma once

#include <string>

#include "shell/protocol/game_setup.h"
#include "tree/paths.h"

// The player's starting range: the built tree's copy, or without a tree the
// range as set (all zeros when none is).
RangeVector root_range(int player);

// The player's range at a resolved position, in memory order: NaN for a hand
// that some board on the way doesn't hold. The root position "r" gives the
// root range.
RangeVector range_at(int player, const NodeRef& ref);
// The same for a path; an empty text gives the root range.
RangeVector range_at(int player, const std::string& path);

// The share of the player's range that reaches the position, over the hands
// that still exist there.
double range_mass_ratio(int player, const std::string& path);
