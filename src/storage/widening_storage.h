// Strategy sums of the level "fast": 16 bits per value, and 24 bits for the
// groups (turn cards) that need them.
//
// Most river rows never see large sums, since the acting player's reach there
// is small, so two bytes a value serve nearly everywhere. Each row keeps a
// `growth` figure, the sum of the largest weighted reach of every update it
// took; since a strategy is at most 1, no value of the row can have grown past
// it. When a row's figure passes 65535 its whole group turns wide at once: a
// group shares one block, and re-laying a single row would move the others.
#pragma once

#include <cstdint>
#include <memory>

#include "storage/layout_storage.h"

class WideningStorage final : public LayoutStorage {
public:
    // Highest format byte of the store's section that this version reads.
    static constexpr int32_t format_limit = 1;
    // A wide value holds 24 bits; sums stop there rather than wrap.
    static constexpr uint32_t wide_ceiling = 0xffffff;

    explicit WideningStorage(const RowLayout* layout);
    ~WideningStorage() override;
    WideningStorage(const WideningStorage&) = delete;
    WideningStorage& operator=(const WideningStorage&) = delete;

    // A zeroed narrow block per group; opening again starts from zeros.
    bool open() override;
    // Usable sums are normalised; other hands get 1/A when defaults are given,
    // else 0. Before `open` every action gets the defaults taken as one row.
    void read_strategy(float* const* out, int group, int row, std::span<const float> defaults) const override;
    // Truncates toward zero, clamped to what the group's width holds.
    void write_row(int group, int row, int action, const float* values) override;
    // Holds strategy sums only: regrets never come here.
    void update_regrets(int group, int row, const float* node_value, const float* const* action_values,
                        std::span<const int16_t> tie_groups, double scale) override;
    void add_strategy(int group, int row, const float* const* strategy, const float* reach,
                      float weight) override;
    // Section: lock records, format byte, then per group its `wide` byte and
    // each row's actions in the block row code of the group's width, each
    // behind a u16 byte count.
    void save(ByteChannel& channel) const override;
    void load(ByteChannel& channel) override;
    // Rows stay in plain memory: nothing to stream.
    RowStream* open_group(RowStream* stream, int group, int64_t reserve_values) override;
    RowStream* close_group(RowStream* stream, int group, bool modified) override;

    bool is_open() const { return opened_; }
    bool group_wide(int group) const { return groups_[group].wide != 0; }
    float row_growth(int group, int row) const { return growth_[layout_row_index(*layout_, group, row)]; }
    // One stored value, whatever its group's width; 0 before `open`.
    uint32_t value(int group, int row, int action, int hand) const;

private:
    struct Group {
        uint8_t* block = nullptr;  // 2 bytes a value, or 3 once wide
        uint8_t wide = 0;
    };

    // Position of action 0 of a row within its group's block, in values.
    int row_base(int group, int row) const;
    // Turns a narrow group into the 3-byte form, values intact.
    void widen(int group);
    // Makes `group` narrow again, all zero; false when memory ran out.
    bool reset_group(int group);
    void free_blocks();
    // Largest stored value of a row over all its actions.
    uint32_t row_largest(int group, int row) const;

    std::unique_ptr<Group[]> groups_;
    std::unique_ptr<float[]> growth_;  // per row of the layout
    bool opened_ = false;
};
