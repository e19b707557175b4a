#include "solver/node_locks.h"

#include <mutex>

#include "solver/node_strategy.h"
#include "solver/results.h"
#include "solver/river_rows.h"
#include "solver/walk.h"
#include "tree/boards.h"

namespace {

// The records of the row in the node's two stores; null where a store is
// missing.
struct RowRecords {
    LockRecord* regrets = nullptr;
    LockRecord* sums = nullptr;
};

RowRecords row_records(const NodeRow& row) {
    const TreeNode& node = *row.node;
    RowRecords records;
    if (node.regrets) records.regrets = node.regrets->lock_record(row.turn, row.river);
    if (node.strategy_sums) records.sums = node.strategy_sums->lock_record(row.turn, row.river);
    return records;
}

// Weights or a mask given hand by hand may treat a hand and its images apart,
// and a node before the river passes that on to the cards dealt after it.
void note_hands_set_apart(SubgameEngine& e, const NodeRow& row) {
    if (row.node->street < river_street) e.images_may_differ = true;
}

}  // namespace

void expect_hands_set_apart(SubgameEngine& e, const TreeNode& node) {
    if (node.street >= river_street) return;
    std::lock_guard lock(engine_lock);
    e.images_may_differ = true;
}

void note_loaded_locks(SubgameEngine& e) {
    std::lock_guard lock(engine_lock);
    const int turns = e.root_board ? static_cast<int>(e.root_board->turns.size()) : 0;
    for (TreeNode& node : e.nodes) {
        if (node.kind != decision_node || node.street >= river_street || !node.regrets) continue;
        for (int turn = -1; turn < turns; ++turn) {
            const LockRecord* record = node.regrets->lock_record(turn, -1);
            if (record && record->flags) e.images_may_differ = true;
        }
    }
}

void set_node_lock(SubgameEngine& e, const NodeRow& row, bool locked) {
    // The walk reads the mask this may free: it waits for the walk to end.
    std::lock_guard lock(engine_lock);
    const RowRecords records = row_records(row);
    for (LockRecord* record : {records.regrets, records.sums})
        if (record) lock_whole_row(*record, locked);
    drop_kept_results(e);
}

bool set_strategy_row(SubgameEngine& e, const NodeRow& row, int child, const float* values) {
    std::lock_guard lock(engine_lock);
    TreeNode& node = *row.node;
    if (!open_all_storage(e) && !node.opened) return false;
    // Sums that have begun and are played: zeroed, so that the average falls
    // back on the forced rows. River sums kept while river strategies are off
    // are neither played nor open.
    const bool zero_sums = walk_plays_average(e, node);
    CommandRiverRows open(e, node, row.turn, zero_sums);
    if (node.regrets) {
        node.regrets->write_row(row.turn, row.river, child, values);
        open.mark_modified(node.player, false);
    }
    if (zero_sums) {
        node.strategy_sums->write_row(row.turn, row.river, child, nullptr);
        open.mark_modified(node.player, true);
    }
    note_hands_set_apart(e, row);
    drop_kept_results(e);
    return true;
}

void combo_lock_row(SubgameEngine& e, const NodeRow& row, const float* values) {
    std::lock_guard lock(engine_lock);
    const RowRecords records = row_records(row);
    for (LockRecord* record : {records.regrets, records.sums})
        if (record) lock_hands(*record, values, row.hand_count);
    note_hands_set_apart(e, row);
    drop_kept_results(e);
}

std::vector<float> locked_hands_row(SubgameEngine&, const NodeRow& row) {
    // Records change on the command thread alone, which is this one: no lock.
    std::vector<float> hands(static_cast<size_t>(row.hand_count), 0.0f);
    const LockRecord* record = row_records(row).regrets;
    const uint8_t* mask = record ? frozen_hands(*record, row.hand_count) : nullptr;
    if (mask)
        for (int h = 0; h < row.hand_count; ++h) hands[h] = static_cast<float>(mask[h]);
    return hands;
}

void set_node_boost(SubgameEngine&, TreeNode& node, float boost) {
    // Training walks read it at every visit of the node's parent.
    std::lock_guard lock(engine_lock);
    node.ev_boost = boost;
}
