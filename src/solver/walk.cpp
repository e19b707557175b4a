// The walk's entry points, its dispatch and its leaves.
#include <algorithm>
#include <cmath>

#include "shell/protocol/processor.h"
#include "solver/vector_ops.h"
#include "solver/walk_internal.h"

std::mutex result_mutex;

// ---------------------------------------------------------------------------
// Scratch and rows.

void ThreadScratch::clear_lists() {
    leaves.clear();
    leaf_reach.clear();
    reach_rows.clear();
    leaf_value.clear();
    next_leaf = 0;
}

ThreadScratch& thread_scratch() {
    thread_local std::unique_ptr<ThreadScratch> scratch;
    if (!scratch) scratch = std::make_unique<ThreadScratch>();
    return *scratch;
}

ActionRows::ActionRows(int actions) : actions_(actions) {
    if (actions > inline_actions) {
        overflow_.resize(static_cast<size_t>(actions - inline_actions));
        overflow_pointers_.resize(static_cast<size_t>(actions));
    }
}

float* const* ActionRows::pointers() {
    float** out = actions_ > inline_actions ? overflow_pointers_.data() : inline_pointers_.data();
    for (int a = 0; a < actions_; ++a) out[a] = (*this)[a].data;
    return out;
}

// ---------------------------------------------------------------------------
// Small shared rules.

float strategy_weight(const SubgameEngine& e) {
    if (e.average_strategy_mode == 2) return 1.0f;
    const double delay = std::max(e.iterations - averaging_delay, 0);
    return static_cast<float>(std::min(e.weight_cap, std::pow(delay, e.weight_exponent)));
}

void add_strategy_sums(const SubgameEngine& e, const TreeNode& node, int turn, int river, ActionRows& strategy,
                       const float* reach) {
    if (!node.strategy_sums || !sums_grow(e, node.street)) return;
    const float weight = strategy_weight(e);
    if (!row_locked(node_lock(node, turn, river)) && weight > 0.0f)
        node.strategy_sums->add_strategy(turn, river, strategy.pointers(), reach, weight);
}

// ---------------------------------------------------------------------------
// Leaves.

void walk_terminal(WalkFrame& f) {
    SubgameEngine& e = *f.engine;
    const TreeNode& node = *f.node;
    const int count = f.reach.count;
    const float payoff = terminal_payoff(e, node);
    if (f.reach.is_zero() || payoff == 0.0f) {
        f.value.set_zero(count);
    } else {
        f.value.resize(count, true);
        bool live;
        if (node.kind == showdown_node) {
            // A showdown that opens the river (an all-in runout) has no mask
            // made for it: a lone leaf tests the reach itself.
            const uint16_t* mask = is_first_of_street(node) ? nullptr : thread_scratch().group_mask;
            const ShowdownList list = showdown_list(river_board(e, f.turn, f.river), mask);
            live = eval_showdown_1(f.value.data, f.reach.data, list, payoff);
        } else {
            live = eval_fold_1(f.value.data, f.reach.data, count, list_hand_cards(e, f.turn, f.river), payoff);
        }
        if (!live) f.value.set_zero(count);
    }
    if (e.mode == mode_evaluate) f.best = f.value.clone(true);
}

// ---------------------------------------------------------------------------
// Dispatch.

void walk(WalkFrame& f) {
    SubgameEngine& e = *f.engine;
    TreeNode& node = *f.node;
    if (node.street == river_street && f.turn >= 0 && f.river >= 0 && is_first_of_street(node) &&
        node.kind == decision_node) {
        // The first river node of a path: every reach below it is this reach
        // times strategies, so a hand dead here is dead on every leaf below.
        ThreadScratch& scratch = thread_scratch();
        fill_group_mask(scratch.group_mask, f.reach.data, river_board(e, f.turn, f.river));
        scratch.clear_lists();
        if (e.mode == mode_train && river_batch_enabled()) {
            river_batch(f);
            return;
        }
    }
    if (node.street >= turn_street && f.turn < 0) {
        walk_turn_chance(f);
    } else if (node.street == river_street && f.river < 0) {
        walk_river_chance(f);
    } else if (node.kind == decision_node) {
        if (node.player == e.traverser) {
            walk_traverser_node(f);
        } else {
            walk_opponent_node(f);
        }
    } else {
        walk_terminal(f);
    }
    if (e.mode == mode_capture && e.capture_request && e.phase != phase_descent) capture_at(f);
}

void capture_at(WalkFrame& f) {
    CaptureRequest& request = *f.engine->capture_request;
    if (f.node != request.node || f.turn != request.turn || f.river != request.river) return;
    if (request.capture) request.capture(request, f);
}

// ---------------------------------------------------------------------------
// The three phases.

namespace {

HandVector starting_vector(const std::vector<float>& weights) {
    const int count = static_cast<int>(weights.size());
    HandVector vector(count);
    vector.resize(count, true);
    vec::copy(vector.data, weights.data(), count);
    return vector;
}

void walk_from_root(SubgameEngine& e, int player, WalkFrame& frame) {
    frame = WalkFrame{};
    frame.engine = &e;
    frame.node = &e.nodes[0];
    frame.turn = e.root_turn_group;
    frame.river = e.root_river_row;
    frame.reach = starting_vector(e.root_weights[1 - player]);
    if (e.mode == mode_capture) frame.own_reach = starting_vector(e.root_weights[player]);
    walk(frame);
}

}  // namespace

WalkResult walk_player_locked(SubgameEngine& e, int player, WalkMode mode, CaptureRequest* request) {
    // Stores replaced while a solve runs (a new compression level) are opened
    // by the next walk; a store that can't be opened is walked as it is.
    open_all_storage(e);
    ensure_vector_pool(root_list_count(e));
    e.traverser = player;
    e.mode = mode;
    e.capture_request = request;
    e.phase = phase_descent;

    WalkFrame frame;
    walk_from_root(e, player, frame);
    frame.value.release();
    frame.best.release();

    e.phase = phase_subgames;
    TraverseSubgames(e);

    e.phase = phase_ascent;
    walk_from_root(e, player, frame);

    WalkResult result;
    const std::vector<float>& weighted = e.root_reach[player];
    const int count = static_cast<int>(weighted.size());
    if (frame.value.data) result.ev = vec::dot(frame.value.data, weighted.data(), count);
    if (frame.best.data) result.best = vec::dot(frame.best.data, weighted.data(), count);
    frame = WalkFrame{};
    clear_subgame_tasks();
    e.capture_request = nullptr;
    return result;
}

WalkResult walk_player(SubgameEngine& e, int player, WalkMode mode) {
    std::lock_guard lock(engine_lock);
    return walk_player_locked(e, player, mode, nullptr);
}

WalkResult walk_capture(SubgameEngine& e, int player, CaptureRequest& request) {
    std::lock_guard lock(engine_lock);
    return walk_player_locked(e, player, mode_capture, &request);
}
