#include "solver/node_strategy.h"

#include <mutex>
#include <span>
#include <vector>

#include "solver/river_rows.h"
#include "solver/vector_ops.h"
#include "solver/walk.h"

namespace {

// 1/n for every action; kept per thread so that reading allocates nothing.
std::span<const float> uniform_defaults(int actions) {
    thread_local std::vector<float> row;
    row.assign(static_cast<size_t>(actions), 1.0f / static_cast<float>(actions));
    return row;
}

const TreeNode& first_of_street(const TreeNode& node) {
    const TreeNode* first = &node;
    while (!is_first_of_street(*first)) first = first->parent_node;
    return *first;
}

}  // namespace

void read_shown_strategy(const TreeNode& node, int turn, int river, bool average, float* const* out, int actions,
                         int count, const AverageScratch& scratch) {
    if (!node.regrets) {
        // Rows of a forgotten street: nothing learnt, play uniformly.
        for (int a = 0; a < actions; ++a) vec::fill(out[a], 1.0f / static_cast<float>(actions), count);
        return;
    }
    if (!average) {
        node.regrets->read_strategy(out, turn, river, uniform_defaults(actions));
        return;
    }
    node.strategy_sums->read_strategy(out, turn, river, {});
    node.regrets->read_strategy(scratch.current, turn, river, uniform_defaults(actions));
    // Action by action, so that each pass is a straight vector loop.
    vec::copy(scratch.total, out[0], count);
    for (int a = 1; a < actions; ++a) vec::add(scratch.total, out[a], count);
    for (int a = 0; a < actions; ++a) vec::fill_where_zero(out[a], scratch.current[a], scratch.total, count);
}

void open_reported_river_rows(const SubgameEngine& e, const TreeNode& river_node, int turn, ReportedRiverRows& held) {
    // A forgotten street has no rows to open.
    if (!river_node.regrets) return;
    // Compressed river rows live in a stream shared by the river subtree of
    // the turn card; they are expanded for the reads.
    collect_river_nodes(e, first_of_street(river_node), held.subtree);
    open_river_rows(held.subtree, turn, report_shows_average(e, river_node), held.rows);
    held.turn = turn;
    held.open = true;
}

void close_reported_river_rows(ReportedRiverRows& held) {
    if (!held.open) return;
    const bool unchanged[2] = {false, false};
    close_river_rows(held.subtree, held.turn, unchanged, unchanged, held.rows);
    held.open = false;
}

void read_reported_strategy_locked(const SubgameEngine& e, const TreeNode& node, int turn, int river, int count,
                                   float* out, ReportedStrategyScratch& scratch) {
    const int actions = static_cast<int>(node.children.size());
    scratch.rows.resize(static_cast<size_t>(actions));
    for (int a = 0; a < actions; ++a) scratch.rows[a] = out + static_cast<size_t>(a) * count;
    const bool average = report_shows_average(e, node);
    AverageScratch average_scratch;
    if (average) {
        scratch.values.resize(static_cast<size_t>(actions + 1) * count);
        scratch.current.resize(static_cast<size_t>(actions));
        for (int a = 0; a < actions; ++a) scratch.current[a] = scratch.values.data() + static_cast<size_t>(a) * count;
        average_scratch = {scratch.current.data(), scratch.values.data() + static_cast<size_t>(actions) * count};
    }
    read_shown_strategy(node, turn, river, average, scratch.rows.data(), actions, count, average_scratch);
}

void read_reported_strategy(SubgameEngine& e, const TreeNode& node, int turn, int river, int count, float* out) {
    ReportedStrategyScratch scratch;
    std::lock_guard lock(engine_lock);
    // A store that could not be opened reads as rows of zeros: the defaults.
    open_all_storage(e);
    ReportedRiverRows held;
    if (node.street == river_street) open_reported_river_rows(e, node, turn, held);
    read_reported_strategy_locked(e, node, turn, river, count, out, scratch);
    close_reported_river_rows(held);
}
