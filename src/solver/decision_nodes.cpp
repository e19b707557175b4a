// Decision nodes of the plain walk: the traverser's, where values are mixed by
// the strategy and regrets learnt, and the opponent's, where the strategy goes
// into the reach and strategy sums grow.
#include <algorithm>
#include <vector>

#include "shell/protocol/processor.h"
#include "solver/vector_ops.h"
#include "solver/walk_internal.h"

namespace {

// One default per action; kept per thread so that reading allocates nothing.
std::span<const float> defaults_row(int actions, float first, float others) {
    thread_local std::vector<float> row;
    row.assign(static_cast<size_t>(actions), others);
    if (actions > 0) row[0] = first;
    return row;
}

std::span<const float> training_defaults(int actions) {
    const float first = std::max(0.9f, 1.0f / static_cast<float>(actions));
    const float others = actions > 1 ? (1.0f - first) / static_cast<float>(actions - 1) : 0.0f;
    return defaults_row(actions, first, others);
}

std::span<const float> uniform_defaults(int actions) {
    const float share = 1.0f / static_cast<float>(actions);
    return defaults_row(actions, share, share);
}

// Evaluation plays the average where the sums are in use for this node.
bool reads_average(const SubgameEngine& e, const TreeNode& node) {
    if (!node.strategy_sums) return false;
    if (e.average_strategy_mode == 0 || (e.average_strategy_mode == 1 && e.iterations <= 60)) return false;
    return !(node.street == river_street && !river_strategy_enabled);
}

void fill_rows(ActionRows& rows, int count) {
    for (int a = 0; a < rows.size(); ++a) rows[a].resize(count, true);
}

// Whether a child's result comes from the river pair kernel.
bool from_pair(const RiverPair& pair, int a) { return a == pair.showdown || a == pair.fold; }

// The river pair of a node, when training with it applies.
RiverPair usable_pair(const WalkFrame& f) {
    const SubgameEngine& e = *f.engine;
    if (e.mode != mode_train || f.node->street != river_street || f.river < 0) return {};
    return river_pair_children(e, *f.node);
}

// Opponent strategy times reach, per action; a row whose reach sums to
// (almost) nothing becomes a zero row, and its subtree costs nothing.
void reach_rows(ActionRows& strategy, const HandVector& reach) {
    const int count = reach.count;
    for (int a = 0; a < strategy.size(); ++a) {
        HandVector& row = strategy[a];
        if (!reach.data || !row.data) {
            row.set_zero(count);
            continue;
        }
        if (vec::multiply_in_place_sum(row.data, reach.data, count) < smallest_normal) row.set_zero(count);
    }
}

// Adds a child's vector to the node's: the first one moves in.
void merge_child(HandVector& total, HandVector& child) {
    if (!child.data) return;
    if (!total.data) {
        total = std::move(child);
    } else {
        vec::add(total.data, child.data, total.count);
    }
}

}  // namespace

void read_node_strategy(const WalkFrame& f, ActionRows& strategy, bool training) {
    const SubgameEngine& e = *f.engine;
    const TreeNode& node = *f.node;
    const int actions = strategy.size();
    const int count = f.reach.count;
    fill_rows(strategy, count);
    if (!node.regrets) {
        // Rows of a forgotten street: nothing learnt, play uniformly.
        for (int a = 0; a < actions; ++a) vec::fill(strategy[a].data, 1.0f / static_cast<float>(actions), count);
        return;
    }
    if (training) {
        node.regrets->read_strategy(strategy.pointers(), f.turn, f.river, training_defaults(actions));
        return;
    }
    if (!reads_average(e, node)) {
        node.regrets->read_strategy(strategy.pointers(), f.turn, f.river, uniform_defaults(actions));
        return;
    }
    // The average, and for hands never reached (all sums zero) the current
    // strategy.
    node.strategy_sums->read_strategy(strategy.pointers(), f.turn, f.river, {});
    ActionRows current(actions);
    fill_rows(current, count);
    node.regrets->read_strategy(current.pointers(), f.turn, f.river, uniform_defaults(actions));
    // Action by action, so that each pass is a straight vector loop.
    HandVector total(count);
    total.resize(count, true);
    vec::copy(total.data, strategy[0].data, count);
    for (int a = 1; a < actions; ++a) vec::add(total.data, strategy[a].data, count);
    for (int a = 0; a < actions; ++a) vec::fill_where_zero(strategy[a].data, current[a].data, total.data, count);
}

RiverPair river_pair_children(const SubgameEngine& e, const TreeNode& node) {
    const size_t actions = node.children.size();
    if (actions < 2) return {};
    const int first = static_cast<int>(actions) - 2;
    const int kinds[2] = {e.nodes[node.children[first]].kind, e.nodes[node.children[first + 1]].kind};
    if (kinds[0] == showdown_node && kinds[1] == fold_node) return {first, first + 1};
    if (kinds[0] == fold_node && kinds[1] == showdown_node) return {first + 1, first};
    return {};
}

void apply_boost(HandVector& value, const TreeNode& parent, const TreeNode& child) {
    const float boost = child.ev_boost;
    if (boost == 0.0f || !value.data) return;
    const int count = value.count;
    if (child.kind == fold_node) {
        vec::scale(value.data, 1.0f - boost, count);
    } else if (child.kind == showdown_node || child.street > parent.street) {
        const float down = static_cast<float>(1.0 / (1.0 + static_cast<double>(boost)));
        vec::scale_signed(value.data, 1.0f + boost, down, count);
    } else {
        vec::scale_signed(value.data, 1.0f + boost, 1.0f, count);
    }
}

void update_node_regrets(const WalkFrame& f, const HandVector& value, ActionRows& action_values) {
    const SubgameEngine& e = *f.engine;
    const TreeNode& node = *f.node;
    if (!node.regrets) return;
    const LockRecord* lock = node_lock(node, f.turn, f.river);
    if (lock && (lock->flags & lock_flag_node)) return;
    const bool river = node.street == river_street;
    std::span<const int16_t> tie_groups;
    if (river && e.iterations <= e.pool_iterations) tie_groups = river_board(e, f.turn, f.river).strength_groups;
    double scale = e.regret_scale;
    if (river) scale /= e.max_weight[1 - node.player];
    node.regrets->update_regrets(f.turn, f.river, value.data, action_values.pointers(), tie_groups, scale);
}

// No opposing hand gets to the node: every value below it is zero, so the
// subtree is skipped (a capture walk still goes down to reach its node).
static bool returned_unreached(WalkFrame& f) {
    if (f.reach.data || f.engine->mode == mode_capture) return false;
    f.value.set_zero(f.reach.count);
    if (f.engine->mode == mode_evaluate) f.best.set_zero(f.reach.count);
    return true;
}

void walk_traverser_node(WalkFrame& f) {
    SubgameEngine& e = *f.engine;
    const TreeNode& node = *f.node;
    const int count = f.reach.count;
    const bool evaluating = e.mode == mode_evaluate;
    if (returned_unreached(f)) return;
    const int actions = static_cast<int>(node.children.size());
    ActionRows strategy(actions);
    read_node_strategy(f, strategy, e.mode == mode_train);

    const LockRecord* lock = node_lock(node, f.turn, f.river);
    const bool node_locked = lock && (lock->flags & lock_flag_node);
    const uint8_t* lock_mask = lock ? frozen_hands(*lock, count) : nullptr;

    ActionRows values(actions);
    const RiverPair pair = f.reach.data ? usable_pair(f) : RiverPair{};
    if (pair.showdown >= 0) {
        const TreeNode& showdown = e.nodes[node.children[pair.showdown]];
        const TreeNode& fold = e.nodes[node.children[pair.fold]];
        HandVector& showdown_value = values[pair.showdown];
        HandVector& fold_value = values[pair.fold];
        showdown_value.resize(count, true);
        fold_value.resize(count, true);
        const ShowdownList list = showdown_list(river_board(e, f.turn, f.river), thread_scratch().group_mask);
        if (!eval_river_pair(showdown_value.data, fold_value.data, f.reach.data, list, terminal_payoff(e, showdown),
                             terminal_payoff(e, fold))) {
            showdown_value.set_zero(count);
            fold_value.set_zero(count);
        }
    }

    HandVector weighted_best;  // strategy-weighted sum of the children's best
    HandVector max_best;       // their maximum, zero rows counting as 0
    bool max_started = false;
    const bool need_weighted = evaluating && (node_locked || lock_mask);
    const bool need_max = evaluating && !node_locked;

    for (int a = 0; a < actions; ++a) {
        TreeNode& child = e.nodes[node.children[a]];
        HandVector child_best;
        if (!from_pair(pair, a)) {
            WalkFrame child_frame;
            child_frame.engine = &e;
            child_frame.node = &child;
            child_frame.turn = f.turn;
            child_frame.river = f.river;
            if (f.own_reach.count > 0) {
                child_frame.own_reach.set_zero(f.own_reach.count);
                if (f.own_reach.data) {
                    child_frame.own_reach.resize(count, true);
                    vec::multiply(child_frame.own_reach.data, f.own_reach.data, strategy[a].data, count);
                }
            }
            child_frame.reach = std::move(f.reach);
            walk(child_frame);
            f.reach = std::move(child_frame.reach);
            values[a] = std::move(child_frame.value);
            child_best = std::move(child_frame.best);
        }
        HandVector& child_value = values[a];
        if (e.mode == mode_train) apply_boost(child_value, node, child);
        if (child_value.data) {
            if (!f.value.data) {
                f.value.resize(count, true);
                vec::multiply(f.value.data, child_value.data, strategy[a].data, count);
            } else {
                vec::add_product(f.value.data, child_value.data, strategy[a].data, count);
            }
        }
        if (need_weighted && child_best.data) {
            if (!weighted_best.data) {
                weighted_best.resize(count, true);
                vec::multiply(weighted_best.data, child_best.data, strategy[a].data, count);
            } else {
                vec::add_product(weighted_best.data, child_best.data, strategy[a].data, count);
            }
        }
        if (need_max) {
            if (!max_started) {
                max_started = true;
                max_best = std::move(child_best);
                max_best.count = count;
            } else if (child_best.data && max_best.data) {
                vec::max_in_place(max_best.data, child_best.data, count);
            } else if (child_best.data) {
                // Earlier children were all zero.
                max_best = std::move(child_best);
                vec::max_zero(max_best.data, count);
            } else if (max_best.data) {
                vec::max_zero(max_best.data, count);
            }
        }
    }

    if (evaluating) {
        if (node_locked) {
            f.best = std::move(weighted_best);
        } else if (lock_mask) {
            // Frozen hands can't deviate: they keep the strategy's value.
            f.best = std::move(max_best);
            if (!f.best.data) {
                f.best.resize(count, true);
                vec::fill(f.best.data, 0.0f, count);
            }
            for (int h = 0; h < count; ++h)
                if (lock_mask[h]) f.best.data[h] = weighted_best.data ? weighted_best.data[h] : 0.0f;
        } else {
            f.best = std::move(max_best);
        }
        f.best.count = count;
    }

    if (!f.reach.data || !f.value.data) {
        f.value.set_zero(count);
        return;
    }
    if (e.mode == mode_train && e.phase != phase_descent) update_node_regrets(f, f.value, values);
}

void walk_opponent_node(WalkFrame& f) {
    SubgameEngine& e = *f.engine;
    const TreeNode& node = *f.node;
    const int count = f.reach.count;
    const bool evaluating = e.mode == mode_evaluate;
    if (returned_unreached(f)) return;
    const int actions = static_cast<int>(node.children.size());
    ActionRows strategy(actions);
    if (f.reach.data) read_node_strategy(f, strategy, e.mode == mode_train);

    if (e.mode == mode_train && f.reach.data && node.strategy_sums && e.phase != phase_descent && sums_allowed(e) &&
        (node.street != river_street || (e.update_river_average && river_strategy_enabled))) {
        const LockRecord* lock = node_lock(node, f.turn, f.river);
        const float weight = strategy_weight(e);
        if (!(lock && (lock->flags & lock_flag_node)) && weight > 0.0f)
            node.strategy_sums->add_strategy(f.turn, f.river, strategy.pointers(), f.reach.data, weight);
    }
    reach_rows(strategy, f.reach);

    ActionRows values(actions);
    const RiverPair pair = usable_pair(f);
    const bool pair_used = pair.showdown >= 0 && strategy[pair.showdown].data && strategy[pair.fold].data;
    if (pair_used) {
        const TreeNode& showdown = e.nodes[node.children[pair.showdown]];
        const TreeNode& fold = e.nodes[node.children[pair.fold]];
        HandVector& showdown_value = values[pair.showdown];
        HandVector& fold_value = values[pair.fold];
        showdown_value.resize(count, true);
        fold_value.resize(count, true);
        const ShowdownList list = showdown_list(river_board(e, f.turn, f.river), thread_scratch().group_mask);
        if (!eval_river_pair_2(showdown_value.data, fold_value.data, strategy[pair.showdown].data,
                               strategy[pair.fold].data, list, terminal_payoff(e, showdown),
                               terminal_payoff(e, fold))) {
            showdown_value.set_zero(count);
            fold_value.set_zero(count);
        }
    }

    f.value.set_zero(count);
    if (evaluating) f.best.set_zero(count);
    for (int a = 0; a < actions; ++a) {
        if (pair_used && from_pair(pair, a)) {
            merge_child(f.value, values[a]);
            continue;
        }
        WalkFrame child_frame;
        child_frame.engine = &e;
        child_frame.node = &e.nodes[node.children[a]];
        child_frame.turn = f.turn;
        child_frame.river = f.river;
        child_frame.reach = std::move(strategy[a]);
        child_frame.own_reach = std::move(f.own_reach);
        walk(child_frame);
        f.own_reach = std::move(child_frame.own_reach);
        merge_child(f.value, child_frame.value);
        if (evaluating) merge_child(f.best, child_frame.best);
    }
    f.value.count = count;
    if (evaluating) f.best.count = count;
}
