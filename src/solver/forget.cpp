#include "solver/forget.h"

#include <cfloat>
#include <mutex>
#include <vector>

#include "solver/node_strategy.h"
#include "solver/results.h"
#include "solver/vector_ops.h"
#include "solver/walk_internal.h"
#include "tree/street_storage.h"

namespace {

using Reach = std::vector<float>;

// Sum every valid reach vector is scaled to.
constexpr float scaled_reach_sum = 200.0f;
// An entry whose reach is at most this share of the street's largest is too
// thin to solve from.
constexpr double valid_reach_share = 0.01;

struct Enumeration {
    SubgameEngine* engine;
    int street;
};

void store_reach(SubgameCache& entry, const Reach (&reach)[2]) {
    for (int p = 0; p < 2; ++p) {
        const int count = static_cast<int>(reach[p].size());
        HandVector& sum = entry.reach_sum[p];
        sum.resize(count);
        vec::copy(sum.data, reach[p].data(), count);
        entry.reach_valid[p] = 1;
    }
    entry.solved_cards = 0;
}

void gather_reach(Reach& child, const Reach& parent, const RunoutBoard& card) {
    child.resize(card.hands.size());
    vec::gather(child.data(), parent.data(), card.image_tables[0].data(), static_cast<int>(child.size()));
}

void visit(const Enumeration& run, TreeNode& node, int turn, const Reach (&reach)[2]) {
    SubgameEngine& e = *run.engine;
    if (node.kind != decision_node || node.children.empty()) return;
    if (node.street == turn_street && turn < 0) {
        if (run.street == turn_street) {
            if (node.cache) store_reach(node.cache[0], reach);
            return;
        }
        for (int t = 0; t < static_cast<int>(e.root_board->turns.size()); ++t) {
            Reach dealt[2];
            for (int p = 0; p < 2; ++p) gather_reach(dealt[p], reach[p], turn_board(e, t));
            visit(run, node, t, dealt);
        }
        return;
    }
    if (node.street >= run.street) {
        if (node.cache && turn >= 0) store_reach(node.cache[node.street == river_street ? turn : 0], reach);
        return;
    }
    const int actions = static_cast<int>(node.children.size());
    const int count = static_cast<int>(reach[0].size());
    std::vector<float> rows(size_t(actions) * count), current(size_t(actions) * count), total(count);
    std::vector<float*> out(actions), current_rows(actions);
    for (int a = 0; a < actions; ++a) {
        out[a] = rows.data() + size_t(a) * count;
        current_rows[a] = current.data() + size_t(a) * count;
    }
    const AverageScratch scratch{current_rows.data(), total.data()};
    // What an evaluation plays here, so the reach agrees with the results kept.
    read_shown_strategy(node, turn, -1, walk_plays_average(e, node), out.data(), actions, count, scratch);
    const int player = node.player;
    for (int a = 0; a < actions; ++a) {
        Reach child[2] = {reach[0], reach[1]};
        for (int h = 0; h < count; ++h) child[player][h] *= out[a][h];
        visit(run, e.nodes[node.children[a]], turn, child);
    }
}

double vector_sum(const HandVector& v) {
    double sum = 0;
    for (int h = 0; h < v.count && v.data; ++h) sum += v.data[h];
    return sum;
}

template <typename Each>
void for_each_entry(SubgameEngine& e, int street, Each&& each) {
    for (TreeNode& node : e.nodes) {
        if (!node.cache || node.street != street || !is_first_of_street(node)) continue;
        const int entries = street == river_street ? turn_group_slots : 1;
        for (int i = 0; i < entries; ++i) each(node.cache[i]);
    }
}

}  // namespace

void enumerate_subgames(SubgameEngine& e, int street) {
    // Entries the walk never meets (turn slots past the board's turns) hold nothing.
    for_each_entry(e, street, [](SubgameCache& entry) {
        for (int p = 0; p < 2; ++p) {
            entry.reach_sum[p].release();
            entry.reach_sum[p].count = 0;
            entry.reach_valid[p] = 0;
        }
        entry.solved_cards = 0;
    });
    Reach root[2];
    for (int p = 0; p < 2; ++p) root[p] = e.root_weights[p];
    const Enumeration run{&e, street};
    visit(run, e.nodes[0], e.root_turn_group, root);
}

void freeze_reach(SubgameEngine& e, int street) {
    double largest = 0;
    for_each_entry(e, street, [&](SubgameCache& entry) {
        for (int p = 0; p < 2; ++p) largest = std::max(largest, vector_sum(entry.reach_sum[p]));
    });
    for_each_entry(e, street, [&](SubgameCache& entry) {
        for (int p = 0; p < 2; ++p) {
            HandVector& v = entry.reach_sum[p];
            if (!v.data) continue;
            const double sum = vector_sum(v);
            if (!(sum > valid_reach_share * largest)) {
                const int count = v.count;
                v.release();
                v.count = count;
                entry.reach_valid[p] = 0;
                continue;
            }
            if (sum > FLT_EPSILON) vec::scale(v.data, static_cast<float>(scaled_reach_sum / sum), v.count);
        }
        entry.frozen = true;
    });
}

void rebuild_frozen_reach(SubgameEngine& e) {
    const int street = e.forgotten_from;
    std::vector<uint64_t> solved;
    for_each_entry(e, street, [&](SubgameCache& entry) { solved.push_back(entry.solved_cards); });
    enumerate_subgames(e, street);
    freeze_reach(e, street);
    size_t next = 0;
    for_each_entry(e, street, [&](SubgameCache& entry) { entry.solved_cards = solved[next++]; });
}

void forget_street(SubgameEngine& e, int street) {
    std::lock_guard lock(engine_lock);
    if (street <= first_street || street_forgotten(e, street)) return;
    open_all_storage(e);
    // The results of the whole tree stay known once the rows are gone, and
    // the values left at the chance positions stand in for the rows below.
    if (e.results_iteration != e.iterations) compute_results_locked(e);
    enumerate_subgames(e, street);
    drop_street_storage(e, street);

    freeze_reach(e, street);
    e.flags = (e.flags & ~new_tree_flag) | incomplete_tree_flag;
    e.forgotten_from = street;
}
