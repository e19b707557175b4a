// Stores of flop and turn nodes: plain f32 rows, one board per flop node and
// one per turn card for a turn node. They hold a small share of a tree's
// values, so they stay uncompressed at every level.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "storage/storage.h"

class FloatRowStorage final : public Storage {
public:
    FloatRowStorage(int action_count, int hand_count);

    bool open() override;
    int row_length(int group, int row) const override;
    void read_strategy(float* const* out, int group, int row, std::span<const float> defaults) const override;
    void write_row(int group, int row, int action, const float* values) override;
    void update_regrets(int group, int row, const float* node_value, const float* const* action_values,
                        std::span<const int16_t> tie_groups, double scale) override;
    void add_strategy(int group, int row, const float* const* strategy, const float* reach,
                      float weight) override;
    int64_t value_count(int group) const override;
    void save(ByteChannel& channel) const override;
    void load(ByteChannel& channel) override;
    RowStream* open_group(RowStream* stream, int group, int64_t reserve_values) override;
    RowStream* close_group(RowStream* stream, int group, bool modified) override;
    LockRecord* lock_record(int group, int row) override;

    int action_count() const { return action_count_; }
    int hand_count() const { return hand_count_; }
    bool is_open() const { return rows_ != nullptr; }
    // Row of one action, or null before `open`.
    const float* action_row(int action) const;

private:
    struct ScalableFree {
        void operator()(float* rows) const;
    };

    int32_t action_count_;
    int32_t hand_count_;
    // All actions in one block, action a at a * row_stride(hand_count_).
    std::unique_ptr<float, ScalableFree> rows_;
    LockRecord lock_;
};

// A turn node's rows: one FloatRowStorage per turn card, addressed by the
// card's group index.
class TurnRowStorage final : public Storage {
public:
    // One board per turn group, with that turn card's hand count.
    TurnRowStorage(int action_count, std::span<const int> hand_counts);

    bool open() override;
    int row_length(int group, int row) const override;
    void read_strategy(float* const* out, int group, int row, std::span<const float> defaults) const override;
    void write_row(int group, int row, int action, const float* values) override;
    void update_regrets(int group, int row, const float* node_value, const float* const* action_values,
                        std::span<const int16_t> tie_groups, double scale) override;
    void add_strategy(int group, int row, const float* const* strategy, const float* reach,
                      float weight) override;
    int64_t value_count(int group) const override;
    void save(ByteChannel& channel) const override;
    void load(ByteChannel& channel) override;
    RowStream* open_group(RowStream* stream, int group, int64_t reserve_values) override;
    RowStream* close_group(RowStream* stream, int group, bool modified) override;
    LockRecord* lock_record(int group, int row) override;

    int board_count() const { return static_cast<int>(boards_.size()); }
    const FloatRowStorage& board(int group) const { return boards_[group]; }

private:
    std::vector<FloatRowStorage> boards_;
};
