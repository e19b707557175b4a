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

// A frame for the node's child `a`, on the same cards. The caller moves the
// reaches in.
WalkFrame child_frame(const WalkFrame& f, int a) {
    WalkFrame child;
    child.engine = f.engine;
    child.node = &f.engine->nodes[f.node->children[a]];
    child.turn = f.turn;
    child.river = f.river;
    return child;
}

// The values of the river pair's two leaves at once. `kernel` evaluates them
// into (showdown values, fold values) from the list and the two payoffs, and
// says whether anything was reached; if not, both stay zero rows.
template <class PairKernel>
void river_pair_values(const WalkFrame& f, const RiverPair& pair, ActionRows& values, PairKernel kernel) {
    const SubgameEngine& e = *f.engine;
    const TreeNode& node = *f.node;
    const int count = f.reach.count;
    HandVector& showdown_value = values[pair.showdown];
    HandVector& fold_value = values[pair.fold];
    showdown_value.resize(count, true);
    fold_value.resize(count, true);
    const ShowdownList list = showdown_list(river_board(e, f.turn, f.river), thread_scratch().group_mask);
    if (!kernel(showdown_value.data, fold_value.data, list, terminal_payoff(e, e.nodes[node.children[pair.showdown]]),
                terminal_payoff(e, e.nodes[node.children[pair.fold]]))) {
        showdown_value.set_zero(count);
        fold_value.set_zero(count);
    }
}

// The traverser's best response at its node, gathered child by child in an
// evaluating walk: a hand that may deviate takes its best child (zero rows
// counting as 0); a locked row, or a frozen hand, keeps the strategy's mix of
// the children's best values.
class BestResponse {
public:
    BestResponse(int count, bool node_locked, const uint8_t* lock_mask)
        : count_(count),
          node_locked_(node_locked),
          lock_mask_(lock_mask),
          need_weighted_(node_locked || lock_mask),
          need_max_(!node_locked) {}

    void add(HandVector& child_best, const float* strategy) {
        if (need_weighted_ && child_best.data) {
            if (!weighted_.data) {
                weighted_.resize(count_, true);
                vec::multiply(weighted_.data, child_best.data, strategy, count_);
            } else {
                vec::add_product(weighted_.data, child_best.data, strategy, count_);
            }
        }
        if (!need_max_) return;
        if (!max_started_) {
            max_started_ = true;
            max_ = std::move(child_best);
            max_.count = count_;
        } else if (child_best.data && max_.data) {
            vec::max_in_place(max_.data, child_best.data, count_);
        } else if (child_best.data) {
            // Earlier children were all zero.
            max_ = std::move(child_best);
            vec::max_zero(max_.data, count_);
        } else if (max_.data) {
            vec::max_zero(max_.data, count_);
        }
    }

    HandVector result() {
        HandVector best;
        if (node_locked_) {
            best = std::move(weighted_);
        } else if (lock_mask_) {
            // Frozen hands can't deviate: they keep the strategy's value.
            best = std::move(max_);
            if (!best.data) {
                best.resize(count_, true);
                vec::fill(best.data, 0.0f, count_);
            }
            for (int h = 0; h < count_; ++h)
                if (lock_mask_[h]) best.data[h] = weighted_.data ? weighted_.data[h] : 0.0f;
        } else {
            best = std::move(max_);
        }
        best.count = count_;
        return best;
    }

private:
    int count_;
    bool node_locked_;
    const uint8_t* lock_mask_;
    bool need_weighted_;
    bool need_max_;
    bool max_started_ = false;
    HandVector weighted_;  // strategy-weighted sum of the children's best
    HandVector max_;       // their maximum
};

}  // namespace

void read_node_strategy(const WalkFrame& f, ActionRows& strategy, bool training) {
    const SubgameEngine& e = *f.engine;
    const TreeNode& node = *f.node;
    const int actions = strategy.size();
    const int count = f.reach.count;
    fill_rows(strategy, count);
    if (training && node.regrets) {
        node.regrets->read_strategy(strategy.pointers(), f.turn, f.river, training_defaults(actions));
        return;
    }
    if (training || !walk_plays_average(e, node)) {
        read_shown_strategy(node, f.turn, f.river, false, strategy.pointers(), actions, count, {});
        return;
    }
    ActionRows current(actions);
    fill_rows(current, count);
    HandVector total(count);
    total.resize(count, true);
    read_shown_strategy(node, f.turn, f.river, true, strategy.pointers(), actions, count,
                        {current.pointers(), total.data});
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
    if (row_locked(node_lock(node, f.turn, f.river))) return;
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

    // Only a best response looks at the lock here; training's rules sit in
    // the updates.
    const LockRecord* lock = evaluating ? node_lock(node, f.turn, f.river) : nullptr;
    const bool node_locked = row_locked(lock);
    const uint8_t* lock_mask = lock ? frozen_hands(*lock, count) : nullptr;

    ActionRows values(actions);
    const RiverPair pair = f.reach.data ? usable_pair(f) : RiverPair{};
    if (pair.showdown >= 0) {
        river_pair_values(f, pair, values, [&](float* showdown, float* fold, const ShowdownList& list,
                                               float showdown_payoff, float fold_payoff) {
            return eval_river_pair(showdown, fold, f.reach.data, list, showdown_payoff, fold_payoff);
        });
    }

    BestResponse best(count, node_locked, lock_mask);
    for (int a = 0; a < actions; ++a) {
        TreeNode& child = e.nodes[node.children[a]];
        HandVector child_best;
        if (!from_pair(pair, a)) {
            WalkFrame child_walk = child_frame(f, a);
            if (f.own_reach.count > 0) {
                child_walk.own_reach.set_zero(f.own_reach.count);
                if (f.own_reach.data) {
                    child_walk.own_reach.resize(count, true);
                    vec::multiply(child_walk.own_reach.data, f.own_reach.data, strategy[a].data, count);
                }
            }
            // The opponent's reach does not change at the traverser's node.
            child_walk.reach = std::move(f.reach);
            walk(child_walk);
            f.reach = std::move(child_walk.reach);
            values[a] = std::move(child_walk.value);
            child_best = std::move(child_walk.best);
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
        if (evaluating) best.add(child_best, strategy[a].data);
    }
    if (evaluating) f.best = best.result();

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

    if (e.mode == mode_train && f.reach.data && e.phase != phase_descent)
        add_strategy_sums(e, node, f.turn, f.river, strategy, f.reach.data);
    reach_rows(strategy, f.reach);

    ActionRows values(actions);
    const RiverPair pair = usable_pair(f);
    const bool pair_used = pair.showdown >= 0 && strategy[pair.showdown].data && strategy[pair.fold].data;
    if (pair_used) {
        // The opponent's choice between the two leaves is its reach into each.
        river_pair_values(f, pair, values, [&](float* showdown, float* fold, const ShowdownList& list,
                                               float showdown_payoff, float fold_payoff) {
            return eval_river_pair_2(showdown, fold, strategy[pair.showdown].data, strategy[pair.fold].data, list,
                                     showdown_payoff, fold_payoff);
        });
    }

    f.value.set_zero(count);
    if (evaluating) f.best.set_zero(count);
    for (int a = 0; a < actions; ++a) {
        if (pair_used && from_pair(pair, a)) {
            merge_child(f.value, values[a]);
            continue;
        }
        WalkFrame child_walk = child_frame(f, a);
        child_walk.reach = std::move(strategy[a]);
        child_walk.own_reach = std::move(f.own_reach);
        walk(child_walk);
        f.own_reach = std::move(child_walk.own_reach);
        merge_child(f.value, child_walk.value);
        if (evaluating) merge_child(f.best, child_walk.best);
    }
    f.value.count = count;
    if (evaluating) f.best.count = count;
}
