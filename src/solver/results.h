// The five numbers a client sees of a solve: each player's value, each
// player's best response value, and the exploitability between them.
#pragma once

#include "solver/solver_driver.h"

// Computes the results of the current strategies on the calling thread, or
// gives back the ones kept from before streets were forgotten. The record's
// values are relative to an even split of the pot; running_time is 0.
SolverProgressRecord calc_results_now();

// Computes and keeps the results for the present iteration count, for a
// caller that holds engine_lock: both evaluating walks then see one set of
// strategies, and so do the values they leave at the chance positions, which
// a capture walk started under the same lock reads.
void compute_results_locked(SubgameEngine& engine);

// Strategies changed without an iteration (a forced strategy, a lock): the
// results and captured values kept for this iteration no longer hold. The
// caller holds engine_lock. An incomplete tree keeps the results from before
// its streets were forgotten.
void drop_kept_results(SubgameEngine& engine);
