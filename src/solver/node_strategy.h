// The strategy at a decision node: when strategy sums grow, which strategy a
// walk plays and a report shows, and the one reading of it that both use.
#pragma once

#include <cstdint>

#include "shell/protocol/processor.h"
#include "tree/engine.h"

// Iterations before strategy sums begin to grow (average_strategy_mode 1):
// the first strategies are too poor to average.
constexpr int32_t averaging_delay = 60;
// Reports show the average from this count of iterations on, a few later
// than the walk plays it, so that a report never rests on the first one or
// two heavily weighted sums. The difference is deliberate.
constexpr int32_t report_average_from = averaging_delay + 3;

// Strategy sums exist and have begun (before the river switches).
inline bool sums_active(const SubgameEngine& e) {
    return e.average_strategy_mode == 2 || (e.average_strategy_mode == 1 && e.iterations > averaging_delay);
}

// Strategy sums of a node on this street are added to in this iteration's
// training walks. River sums grow only in iterations whose river average is
// due, and only while river strategies are kept.
inline bool sums_grow(const SubgameEngine& e, int street) {
    if (!sums_active(e)) return false;
    return street != river_street || (e.update_river_average && river_strategy_enabled);
}

// A walk outside training plays the average strategy at this node.
inline bool walk_plays_average(const SubgameEngine& e, const TreeNode& node) {
    if (!node.strategy_sums || !sums_active(e)) return false;
    return node.street != river_street || river_strategy_enabled;
}

// A report shows the average strategy at this node.
inline bool report_shows_average(const SubgameEngine& e, const TreeNode& node) {
    if (!node.strategy_sums || e.iterations < report_average_from) return false;
    return node.street != river_street || river_strategy_enabled;
}

// Locks. A client may fix a node's strategy at a row (the node on one board):
// a row locked as a whole learns nothing, neither regrets nor strategy sums,
// and in a best response its player may not deviate from it; a row with a
// mask keeps the same for the masked hands only, which the stores' updates
// skip (frozen_hands) and the best response takes at the strategy's value.
// The regret store's record is the row's lock; the sums' record mirrors it.
LockRecord* node_lock(const TreeNode& node, int turn, int river);
inline bool row_locked(const LockRecord* lock) { return lock && (lock->flags & lock_flag_node); }

// Room for the average's fill-in: one row per action and one more, each of
// the row's hand count. Only an average reads it.
struct AverageScratch {
    float* const* current = nullptr;
    float* total = nullptr;
};

// The strategy a node shows outside training, one row per action for the
// board (turn group, river row): the current strategy from the regrets
// (uniform for a hand without regret); or with `average` the average from the
// strategy sums, and the current strategy for hands whose sums are all zero
// (never reached). A node without regrets (a forgotten street) plays
// uniformly. The rows are open, or flat.
void read_shown_strategy(const TreeNode& node, int turn, int river, bool average, float* const* out, int actions,
                         int count, const AverageScratch& scratch);

// The strategy a report shows at a decision node, for the board (turn
// group, river row) with `count` hands: `actions` rows one after the other in
// `out`. Takes engine_lock; opens the stores that are not open yet, and on the
// river the streamed rows of the node's subtree, which are dropped unchanged.
void read_reported_strategy(SubgameEngine& engine, const TreeNode& node, int turn, int river, int count, float* out);
