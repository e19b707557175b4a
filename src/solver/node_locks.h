// Forced strategies, node locks and the EV boost: what a client fixes at a
// node, and solves the rest of the tree against.
//
// A forced strategy has no store of its own: it is written into the node's
// regret rows as if it had been learnt, and the strategy follows from them by
// regret matching. A lock then keeps the walk from changing them, for the
// whole row or for some hands (node_strategy.h says what the walk does with a
// lock). Both the regret and the strategy-sum store of a node keep a record
// per row, and every operation here writes both.
//
// All of them take engine_lock, so they may run while the solver does: a
// change takes effect at the next walk.
#pragma once

#include <cstdint>
#include <vector>

#include "tree/engine.h"

// A decision node on one board: its turn group and river row (-1 where its
// street has none), and the number of hands in the board's list.
struct NodeRow {
    TreeNode* node = nullptr;
    int32_t turn = -1;
    int32_t river = -1;
    int32_t hand_count = 0;
};

// Locks the row as a whole, or lifts every lock of it, mask included.
void set_node_lock(SubgameEngine& engine, const NodeRow& row, bool locked);

// Stores `values` (one per hand of the list: the client's weight times 1000)
// as the regret row of action `child`, and zeroes that action's strategy sums
// when they have begun, so that the average falls back on the forced
// strategy. False when the stores could not be opened (out of memory).
bool set_strategy_row(SubgameEngine& engine, const NodeRow& row, int child, const float* values);

// Freezes the hands whose value is not 0, and no others, and lifts a
// whole-row lock. `values` has one entry per hand of the list.
void combo_lock_row(SubgameEngine& engine, const NodeRow& row, const float* values);

// The row's mask, one value per hand of the list: 1 for a frozen hand, 0 for
// the others and for every hand when the row has no mask. A whole-row lock
// is not a mask. A node without stores (its street forgotten) has none.
std::vector<float> locked_hands_row(SubgameEngine& engine, const NodeRow& row);

// Before weights or a mask given hand by hand reach the row: a row before the
// river may set a hand's images apart, and the client's suits are taken onto
// the list in the walk's suit order from then on (see client_suit_order).
void expect_hands_set_apart(SubgameEngine& engine, const TreeNode& node);

// After a tree file is read: a locked row before the river, whole or by
// hands, may hold forced weights that set a hand's images apart (see
// images_may_differ); a file keeps the locks and the rows, not that flag.
void note_loaded_locks(SubgameEngine& engine);

// The bias a training walk gives the values of the action that leads to
// `node` (see apply_boost).
void set_node_boost(SubgameEngine& engine, TreeNode& node, float boost);
