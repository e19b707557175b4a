// The per-node stores of regrets and strategy sums.
//
// Every decision node holds, per action and per hand of the acting player,
// one regret and (while strategies accumulate) one strategy sum. River nodes
// hold almost all of them, one row per (turn card, river card), so this
// family is a ladder of ever denser forms of the same table: plain f32 rows,
// flat 16-bit integers, 16 bits widening to 24, and rows kept compressed in a
// stream and expanded only for the group (one turn card's river subtree) that
// a worker is walking. The walk and the reports reach all of them through
// `Storage`.
//
// Addressing: a *group* is a turn card's index in the game's turn list, a
// *row* a river card's index under it. -1 stands for "the one board of the
// node" at flop stores, and for "no row" where a store has rows.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "storage/aligned_vector.h"
#include "storage/codes/byte_channel.h"
#include "storage/compression_levels.h"

class RowStream;

// ---------------------------------------------------------------------------
// Locks of one row.

constexpr uint32_t lock_flag_node = 1;  // the row is frozen as a whole
constexpr uint32_t lock_flag_mask = 2;  // `lock_mask` freezes single hands

struct LockRecord {
    uint32_t flags = 0;
    // One byte per hand of the row; non-zero freezes that hand's values.
    std::unique_ptr<uint8_t[]> lock_mask;
    int32_t lock_mask_length = 0;
};

// The hands the updates must skip, or null when none are frozen one by one.
// A mask shorter than its row would let updates run past it: that is a fault
// of whoever set it, and ends the process.
const uint8_t* frozen_hands(const LockRecord& record, int hand_count);

// Locks the whole row, or unlocks it. A row is locked as a whole or hand by
// hand, never both: either way its mask goes.
void lock_whole_row(LockRecord& record, bool locked);
// Freezes exactly the hands whose value is not 0, one value per hand of the
// row, and lifts a whole-row lock.
void lock_hands(LockRecord& record, const float* values, int hand_count);

// The record's section of the tree file: flags, then the mask as run lengths
// of alternating zeros and ones, zeros first.
void save_lock_record(ByteChannel& channel, const LockRecord& record);
// `hand_count` is the row's length; a stored mask of any other length is an
// inconsistent file ("invalid file").
void load_lock_record(ByteChannel& channel, LockRecord& record, int hand_count);

// ---------------------------------------------------------------------------
// Where the values of river rows lie.

// Every action's row starts on a multiple of 4 values, so vector loads of a
// row stay aligned within its block.
constexpr int row_stride(int hand_count) { return (hand_count + 3) & ~3; }

struct RowGroup {
    int32_t first_row;  // index of the group's first entry in `rows`
    int32_t row_count;
};

struct RowEntry {
    int32_t offset;  // action 0 of the row, in values from the start of the node's block
    int32_t hand_count;
};

struct GroupSpan {
    int32_t base;  // offset of the group's first value
    int32_t span;  // values of the group, padding included
};

// One per action count, shared by every river node with that many actions:
// a node then needs no per-row table of its own. Value of action a at hand h
// of row (g, r): with e = rows[groups[g].first_row + r], it stands at
// e.offset + a * row_stride(e.hand_count) + h. Stores that keep one block per
// group subtract spans[g].base.
struct RowLayout {
    AlignedVector<RowGroup> groups;
    AlignedVector<RowEntry> rows;
    AlignedVector<GroupSpan> spans;
    int32_t action_count = 0;
    int32_t group_count = 0;
    int32_t row_count = 0;
    int32_t padded_values = 0;  // size of a flat block, padding included
    int32_t value_count = 0;    // hands times actions over all rows
};

// Lays out the river rows of a node with `action_count` actions; the list
// holds, per turn group, the hand counts of its river boards in order.
RowLayout make_row_layout(int action_count, std::span<const std::span<const int>> hand_counts);

inline int layout_row_index(const RowLayout& layout, int group, int row) {
    return layout.groups[group].first_row + row;
}

inline const RowEntry& layout_row(const RowLayout& layout, int group, int row) {
    return layout.rows[layout_row_index(layout, group, row)];
}

// ---------------------------------------------------------------------------
// The interface.

class Storage {
public:
    virtual ~Storage() = default;

    // Takes the memory of the values and clears it; false when memory ran out.
    virtual bool open() = 0;

    virtual int row_length(int group, int row) const = 0;

    // Regret matching, and equally the normalisation of strategy sums: each
    // hand's value of an action over the sum of its values. Where the sum is
    // not usable the hand gets a default, normally one per action.
    // `out` holds one row of row_length(group, row) values per action.
    // An empty `defaults` means "no defaults given".
    virtual void read_strategy(float* const* out, int group, int row,
                               std::span<const float> defaults) const = 0;

    // Stores a raw row of one action (null: zeros).
    virtual void write_row(int group, int row, int action, const float* values) = 0;

    // Regret update of one board against `node_value`. A null action row
    // counts as all zero. An empty `tie_groups` means no pooling of ties.
    virtual void update_regrets(int group, int row, const float* node_value,
                                const float* const* action_values,
                                std::span<const int16_t> tie_groups, double scale) = 0;

    // sum[a][h] += weight * strategy[a][h] * reach[h]; nothing without reach
    // or with a weight not above 0.
    virtual void add_strategy(int group, int row, const float* const* strategy,
                              const float* reach, float weight) = 0;

    // Values held, padding excluded; -1 for the whole store.
    virtual int64_t value_count(int group) const = 0;

    // The store's section of the tree file.
    virtual void save(ByteChannel& channel) const = 0;
    virtual void load(ByteChannel& channel) = 0;

    // Prepare a group for work and end it. One stream per player carries the
    // rows of all river nodes of a group in walk order: the first node gets
    // none and returns its own, which is handed on to the next. Stores whose
    // rows stay in plain memory do nothing and return null.
    virtual RowStream* open_group(RowStream* stream, int group, int64_t reserve_values) = 0;
    virtual RowStream* close_group(RowStream* stream, int group, bool modified) = 0;

    // Whether the row stream this store keeps for `group`, if any, can take
    // `reserve_values` values: what the walk reserves for the chain of
    // nodes it heads. Made streams always can; a loaded one states its own
    // reserve, and a stream that could not would end the process at its
    // next write.
    virtual bool stream_holds(int /*group*/, int64_t /*reserve_values*/) const { return true; }

    // The locks of a row; null when (group, row) names no row of this store.
    virtual LockRecord* lock_record(int group, int row) = 0;

    // A hint that the row's values will be read soon. Stores whose rows are
    // not in plain memory ignore it.
    virtual void prefetch_row(int /*group*/, int /*row*/) const {}
};

