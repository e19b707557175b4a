// Forgetting a street: its rows go, and at each first node of the street the
// two players' reach under the kept strategies stays, frozen, so that any
// subgame below can be solved again (subgame_solve.h).
#pragma once

#include "tree/engine.h"

// Fills the subgame cache entries of the first decision nodes of `street`
// (2 turn, 3 river) with both players' reach: from the root's weighted
// ranges, through the strategies of the earlier streets and over every turn
// card. A river node's entry of a turn card holds the reach in that turn's
// list; a turn node's single entry holds it in the root's list. Under
// engine_lock.
void enumerate_subgames(SubgameEngine& engine, int street);

// Marks entries whose reach is too small to solve from as not valid (their
// vectors dropped), scales the others to one common sum and freezes them.
void freeze_reach(SubgameEngine& engine, int street);

// The frozen reach of a forgotten tree made again from the streets it kept,
// as forgetting made it, keeping which cards were solved: for a tree file
// that left the reach out.
void rebuild_frozen_reach(SubgameEngine& engine);

// Results first when stale, then the rows of `street` and later dropped, the
// reach enumerated, weak entries marked not valid and the others scaled, and
// the tree marked incomplete from `street` on. Takes engine_lock. A street
// at or before the root's, or one already forgotten, changes nothing.
void forget_street(SubgameEngine& engine, int street);
