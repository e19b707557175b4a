// What the pieces of the walk share among themselves: the per-thread scratch,
// strategy rows, board look-ups and the node routines.
#pragma once

#include <array>
#include <cfloat>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "shell/protocol/processor.h"
#include "solver/kernels/kernels.h"
#include "solver/node_strategy.h"
#include "solver/river_rows.h"
#include "solver/walk.h"
#include "storage/prefetch.h"
#include "tree/boards.h"

// Smallest normal f32: anything below counts as zero at the walk's tests.
constexpr float smallest_normal = FLT_MIN;

// One leaf of a RiverBatch: the node's payoff signed for the traverser, the
// node kind, and which of the batch's reach rows it reads (-1: none).
struct LeafEntry {
    double value = 0;
    int32_t kind = 0;
    int32_t reach = -1;
};

// Per-thread working memory of the river walk. Made on the thread's first
// arrival at a river node and kept for the thread's life; the lists keep
// their capacity between batches and hold no vectors between them.
struct ThreadScratch {
    alignas(64) uint16_t group_mask[max_strength_groups] = {};
    std::vector<LeafEntry> leaves;
    std::vector<const float*> leaf_reach;  // rows owned by reach_rows or by the batch's caller
    std::vector<HandVector> reach_rows;    // opponent reaches made inside the batch
    std::vector<HandVector> leaf_value;
    int32_t next_leaf = 0;
    // Batch evaluation lists.
    std::vector<int32_t> showdown_leaves;
    std::vector<int32_t> fold_leaves;
    std::vector<float*> outs;
    std::vector<const float*> reaches;
    std::vector<float> payoffs;
    std::unique_ptr<bool[]> nonzero;
    size_t nonzero_capacity = 0;

    void clear_lists();
};

ThreadScratch& thread_scratch();

// Rows of one value per hand for each action of a node. Nodes with up to six
// actions keep them on the stack; the blocks come from the thread's pool.
class ActionRows {
public:
    explicit ActionRows(int actions);
    ActionRows(const ActionRows&) = delete;
    ActionRows& operator=(const ActionRows&) = delete;

    int size() const { return actions_; }
    HandVector& operator[](int a) { return a < inline_actions ? inline_[a] : overflow_[a - inline_actions]; }
    // Each row's data pointer (null for a zero row), valid until a row changes.
    float* const* pointers();

private:
    static constexpr int inline_actions = 6;
    int actions_;
    std::array<HandVector, inline_actions> inline_;
    std::vector<HandVector> overflow_;
    std::array<float*, inline_actions> inline_pointers_{};
    std::vector<float*> overflow_pointers_;
};

// ---------------------------------------------------------------------------
// Boards of a walk position.

inline const RunoutBoard& turn_board(const SubgameEngine& e, int turn) { return e.root_board->turns[turn]; }

inline const RunoutBoard& river_board(const SubgameEngine& e, int turn, int river) {
    return e.root_board->turns[turn].rivers[river];
}

// The hand_cards words of the list of a position.
inline const uint16_t* list_hand_cards(const SubgameEngine& e, int turn, int river) {
    if (turn < 0) return e.root_board->hand_cards.data();
    if (river < 0) return turn_board(e, turn).hand_cards.data();
    return river_board(e, turn, river).hand_cards.data();
}

// Asks for the tables a walk of this river card reads.
inline void prefetch_river_board(const RunoutBoard& river) {
    prefetch_bytes(river.hand_cards.data(), river.hand_cards.size() * sizeof(uint16_t));
    prefetch_bytes(river.strength_groups.data(), river.strength_groups.size() * sizeof(int16_t));
    prefetch_bytes(river.small_groups.data(), river.small_groups.size() * sizeof(SmallGroup));
    prefetch_bytes(river.large_groups.data(), river.large_groups.size() * sizeof(LargeGroup));
    for (const std::vector<int16_t>& table : river.image_tables)
        prefetch_bytes(table.data(), table.size() * sizeof(int16_t));
}

inline int root_list_count(const SubgameEngine& e) { return static_cast<int>(e.root_weights[0].size()); }

// A terminal's payoff for the traverser: what the winner gains, lost by the
// traverser when it folded.
inline float terminal_payoff(const SubgameEngine& e, const TreeNode& node) {
    if (node.kind == showdown_node) return static_cast<float>(node.value);
    if (node.kind == fold_node) return static_cast<float>(node.player == e.traverser ? -node.value : node.value);
    return 0.0f;
}

// A walk below a river chance node reads or adds to river strategy sums:
// evaluations read them where they play the average, training adds to them
// where they grow.
inline bool river_sums_in_use(const SubgameEngine& e) {
    if (e.mode == mode_train) return sums_grow(e, river_street);
    return sums_active(e) && river_strategy_enabled;
}

// Weight of this iteration's strategy sums.
float strategy_weight(const SubgameEngine& e);

// The one place where a training walk adds the acting player's strategy,
// weighted by its reach, to the node's strategy sums: where they grow this
// iteration and the row is not locked. The caller has checked the phase.
void add_strategy_sums(const SubgameEngine& e, const TreeNode& node, int turn, int river, ActionRows& strategy,
                       const float* reach);

// ---------------------------------------------------------------------------
// Node routines.

// Fills one row per action with the strategy the mode plays at this node: in
// training the regret-matched current strategy (a hand without regret plays
// its first action nine times in ten); otherwise the average strategy where
// sums exist, the current one elsewhere.
void read_node_strategy(const WalkFrame& frame, ActionRows& strategy, bool training);

void walk_traverser_node(WalkFrame& frame);
void walk_opponent_node(WalkFrame& frame);
void walk_turn_chance(WalkFrame& frame);
void walk_river_chance(WalkFrame& frame);
void walk_terminal(WalkFrame& frame);
void river_batch(WalkFrame& frame);

// The training boost of a child's values; `parent` is the node that chooses.
void apply_boost(HandVector& value, const TreeNode& parent, const TreeNode& child);

// Regret update of the traverser's node from its value and its actions' values.
void update_node_regrets(const WalkFrame& frame, const HandVector& value, ActionRows& action_values);

// The last two children of a river node as (showdown, fold) indices, when
// they are exactly one of each; else {-1, -1}.
struct RiverPair {
    int showdown = -1;
    int fold = -1;
};
RiverPair river_pair_children(const SubgameEngine& e, const TreeNode& node);

// ---------------------------------------------------------------------------
// Images of a dealt card.
//
// A stored card stands for its images under suit isomorphism, and one walk
// serves them all while the parent's reaches are the same through every
// image table: it reads them through table 0, and its results go back
// through all the tables. A strategy that treats a hand and its image apart
// (forced weights or a combo lock at an earlier node, and after it whatever
// learns against them) breaks that, and each image is then walked from its
// own reaches.

// Whether the card's images can share one walk from these parent reaches:
// always, unless the engine's images may differ (a forced strategy or a
// combo lock before the river) and these reaches do.
bool images_share_walk(const SubgameEngine& engine, const RunoutBoard& card, const HandVector& reach,
                       const HandVector& own_reach);

// Walks `frame` (engine, node, turn and river set) once per image of the
// card, each from the parent's reaches through the image's table, and adds
// the results into `value` and `best` (the parent's lists; zero-filled when
// null) through the same table. A training walk gives each image the share
// 1/multiplicity of the reach, so that the card's rows learn as much per
// iteration as from a shared walk.
void walk_images_apart(WalkFrame& frame, const RunoutBoard& card, const HandVector& reach,
                       const HandVector& own_reach, HandVector& value, HandVector& best);

// ---------------------------------------------------------------------------
// Chance tasks.

// The vectors one chance position shares with its tasks: the parent's reach,
// own reach, and the accumulators the tasks add their results to.
struct ChancePosition {
    const TreeNode* node = nullptr;
    int32_t turn = -1;  // the dealt turn of a river position, -1 at a turn position
    HandVector reach;
    HandVector own_reach;
    HandVector value_sum;
    HandVector best_sum;
    // Results are added in the order of the cards, whatever thread ran which
    // task and when, so that the f32 sums come out the same at any thread
    // count, and as one thread running the tasks in order makes them. The
    // task whose turn it is adds its own results and then those waiting
    // behind it; a task that finishes early leaves a copy. The count and the
    // finished marks are under add_mutex.
    std::mutex add_mutex;
    int32_t next_to_add = 0;  // tasks counted by their place in card order
    int32_t task_count = 0;
    int32_t first_task = 0;  // the place of the first in the walk's task list
    // At a river position, its subtree's river decision nodes, whose rows
    // each task asks for before it walks.
    RiverNodes river_nodes;
};

// Queues one task per card at this position (only `only_card` when it is not
// negative) and keeps the position for the ascent.
void queue_chance_tasks(WalkFrame& frame, bool river_position, int only_card);
// The ascent's next position; it must be the one queued at this frame.
ChancePosition& next_chance_position(const WalkFrame& frame);

// Values of a capture request at its node.
void capture_at(WalkFrame& frame);
