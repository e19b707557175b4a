// Refusals of a game whose numbers the solver could not carry: a range that
// deals no hand, and stakes so large that single-precision sums overflow.
// Either would fill every result with NaN.
#pragma once

#include "model/cards.h"
#include "model/lines.h"

// The greatest stake, weight times chips, that a tree may have. Single
// precision ends near 3.4e38, and the solver adds products of a weight and an
// amount over every hand and every runout (some 3 million terms): this
// leaves room for those sums and a margin besides.
constexpr double max_stake = 1e30;

// Each range must hold a hand with weight that misses the `dead` cards, and
// some hand of one must be able to meet some hand of the other.
void check_ranges_deal(CardMask dead);

// The greatest amount of the lines, half the pot included, and the greatest
// weight times it, must stay within max_stake.
void check_stakes(const SchematicNode& lines, CardMask dead);
