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

}  // namespace

LockRecord* node_lock(const TreeNode& node, int turn, int river) {
    return node.regrets ? node.regrets->lock_record(turn, river) : nullptr;
}

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

void read_reported_strategy(SubgameEngine& e, const TreeNode& node, int turn, int river, int count, float* out) {
    const int actions = static_cast<int>(node.children.size());
    std::vector<float*> rows(static_cast<size_t>(actions));
    for (int a = 0; a < actions; ++a) rows[a] = out + static_cast<size_t>(a) * count;
    const bool average = report_shows_average(e, node);
    std::vector<float> scratch_values;
    std::vector<float*> current(static_cast<size_t>(actions));
    AverageScratch scratch;
    if (average) {
        scratch_values.resize(static_cast<size_t>(actions + 1) * count);
        for (int a = 0; a < actions; ++a) current[a] = scratch_values.data() + static_cast<size_t>(a) * count;
        scratch = {current.data(), scratch_values.data() + static_cast<size_t>(actions) * count};
    }

    std::lock_guard lock(engine_lock);
    // A store that could not be opened reads as rows of zeros: the defaults.
    open_all_storage(e);
    // Compressed river rows live in a stream shared by the river subtree of
    // this turn card; they are expanded for the read and dropped unchanged.
    const CommandRiverRows open(e, node, turn, average);
    read_shown_strategy(node, turn, river, average, rows.data(), actions, count, scratch);
}
