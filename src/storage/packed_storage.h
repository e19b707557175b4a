// River rows of the levels "low" to "max": kept coded in a row stream and
// expanded for one group (one turn card's river subtree) at a time, while a
// worker walks it. Memory then holds the coded rows of every group and plain
// rows only for the groups being walked.
//
// A store is narrow (16-bit regrets) or not (32-bit strategy sums). Its rows
// go to a `BlockRowStream` (stream mode 1) or an `EntropyRowStream` (mode 2).
// All river nodes of one player share the stream of the first of them in walk
// order, so one stream carries a group's rows of all those nodes, in order:
//
//   open_group(none, g, v) -> s; open_group(s, g, v) on the next nodes...
//   end_read on s; work on the rows
//   close_group(none, g, modified) -> s; close_group(s, g, modified)...
//   end_write on s when modified
//
// Reading or changing a group that is not open ends the process.
#pragma once

#include <cstdint>
#include <memory>

#include "storage/layout_storage.h"
#include "storage/row_stream.h"

class PackedStorage final : public LayoutStorage {
public:
    PackedStorage(const RowLayout* layout, int stream_mode, bool narrow);
    ~PackedStorage() override;
    PackedStorage(const PackedStorage&) = delete;
    PackedStorage& operator=(const PackedStorage&) = delete;

    // Groups come to life in `open_group`: nothing to take here.
    bool open() override;
    // Narrow: regret matching on 16-bit regrets (two actions: the second is
    // 1 - the first). 32-bit: usable sums are normalised, other hands get 1/A
    // when defaults are given, else 0.
    void read_strategy(float* const* out, int group, int row, std::span<const float> defaults) const override;
    // Truncates toward zero and clamps to 0..65535, in either width.
    void write_row(int group, int row, int action, const float* values) override;
    // 16-bit regret update; a store of strategy sums takes none.
    void update_regrets(int group, int row, const float* node_value, const float* const* action_values,
                        std::span<const int16_t> tie_groups, double scale) override;
    // 32-bit sum update; a store of regrets takes none.
    void add_strategy(int group, int row, const float* const* strategy, const float* reach,
                      float weight) override;
    // With a group: its values, padding excluded. With -1: the layout's.
    int64_t value_count(int group) const override;
    // Section: lock records, a has-streams byte, then each group's stream.
    void save(ByteChannel& channel) const override;
    void load(ByteChannel& channel) override;
    RowStream* open_group(RowStream* stream, int group, int64_t reserve_values) override;
    RowStream* close_group(RowStream* stream, int group, bool modified) override;
    bool stream_holds(int group, int64_t reserve_values) const override;

    int stream_mode() const { return stream_mode_; }
    bool narrow() const { return narrow_; }
    int value_bytes() const { return narrow_ ? 2 : 4; }
    bool group_open(int group) const { return groups_[group].buffer != nullptr; }
    // The group's own stream, or null while it has none.
    RowStream* group_stream(int group) const { return groups_[group].stream.get(); }
    // Action 0 of a row in its open buffer, the others a row_stride apart.
    // Ends the process when the group is not open.
    uint16_t* open_row16(int group, int row) const;
    uint32_t* open_row32(int group, int row) const;

private:
    struct Group {
        uint8_t* buffer = nullptr;  // plain rows while open, 128-byte aligned
        std::unique_ptr<RowStream> stream;
    };

    std::unique_ptr<RowStream> make_stream(int64_t reserve_values) const;
    // The reserve limit of a stream made for `reserve_values` values.
    int64_t make_stream_limit(int64_t reserve_values) const;
    // Address of action 0 of a row; the group must be open.
    uint8_t* open_row(int group, int row) const;
    // Moves every row of an open group through the stream, action by action,
    // each with the same previous-row rule on both sides.
    template <class Visit>
    void visit_coded_rows(int group, Visit visit) const;
    void read_rows(RowStream& stream, int group);
    void write_rows(RowStream& stream, int group) const;

    std::unique_ptr<Group[]> groups_;
    int32_t stream_mode_;
    bool narrow_;
};
