// Solving subgames of a forgotten street again from their frozen reach: one
// subgame on request or on demand (at most once per card), or the whole
// street at once.
#pragma once

#include "tree/engine.h"

// Solves the subgame rooted at `root` (a first decision node of a forgotten
// street) for the board indices `turn` and `river` (-1 for a turn root), by
// training passes until its exploitability, checked every 25 passes from 50,
// is at or under the street's recalc_accuracy, or 1000 passes. Without
// `force` a card already solved returns 0 at once. The rows must exist
// (give_subgame_storage). Takes engine_lock. Returns the last exploitability
// measured, in chips, or 0.
double solve_subgame(SubgameEngine& engine, TreeNode& root, int turn, int river, bool force);

// The exploitability of the subgame's present strategy from the entry's
// reach, in chips, without solving; the rows must exist. Takes engine_lock.
double subgame_exploitability(SubgameEngine& engine, TreeNode& root, int turn, int river);

// The subgame that holds the node at `node_index` with the board indices
// `turn` and `river`: its rows made and solved, with force or on demand.
// Returns 0 when nothing is forgotten there or a needed card is missing.
double partial_solve_at(SubgameEngine& engine, int node_index, int turn, int river);
// The same without force, and only while the tree is incomplete: what a
// query calls before it reads a node (strategies, ranges, values, locks).
double solve_on_demand(SubgameEngine& engine, int node_index, int turn, int river);

// Every subgame of `street` (2 or 3) solved again, in parallel, with as many
// passes as the whole tree had; then nothing is forgotten any more. The rows
// must exist (rebuild_streets). Takes engine_lock.
void SolveSubgames(SubgameEngine& engine, int street);
