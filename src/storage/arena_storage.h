// River stores that keep all their rows in one flat block, in the order of the
// shared RowLayout: f32 values, or 16-bit regrets in units of 1/scale.
#pragma once

#include <cstddef>
#include <cstdint>

#include "storage/layout_storage.h"

class ArenaStorage : public LayoutStorage {
public:
    explicit ArenaStorage(const RowLayout* layout);
    ~ArenaStorage() override;
    ArenaStorage(const ArenaStorage&) = delete;
    ArenaStorage& operator=(const ArenaStorage&) = delete;

    // One zero-filled block of padded_values * value_bytes(); opening again
    // starts from zeros.
    bool open() override;
    void save(ByteChannel& channel) const override;
    void load(ByteChannel& channel) override;
    RowStream* open_group(RowStream* stream, int group, int64_t reserve_values) override;
    RowStream* close_group(RowStream* stream, int group, bool modified) override;

    virtual int value_bytes() const = 0;
    void prefetch_row(int group, int row) const override;

    bool is_open() const { return opened_; }

protected:
    // Action 0 of row (group, row); null while the block is missing.
    uint8_t* row_start(int group, int row) const;

    // Without a block every action gets the same row: the defaults taken by
    // hand, not by action. Hands past the end of the defaults get 0.
    static void read_defaults_by_hand(float* const* out, int actions, int hands, std::span<const float> defaults);

private:
    uint8_t* block_ = nullptr;
    size_t block_bytes_ = 0;
    bool opened_ = false;
};

class FloatArenaStorage final : public ArenaStorage {
public:
    using ArenaStorage::ArenaStorage;

    void read_strategy(float* const* out, int group, int row, std::span<const float> defaults) const override;
    void write_row(int group, int row, int action, const float* values) override;
    void update_regrets(int group, int row, const float* node_value, const float* const* action_values,
                        std::span<const int16_t> tie_groups, double scale) override;
    void add_strategy(int group, int row, const float* const* strategy, const float* reach,
                      float weight) override;
    int value_bytes() const override { return 4; }

    // Action 0 of a row, the others a row_stride apart; null before `open`.
    const float* row_values(int group, int row) const;
};

class WordArenaStorage final : public ArenaStorage {
public:
    using ArenaStorage::ArenaStorage;

    void read_strategy(float* const* out, int group, int row, std::span<const float> defaults) const override;
    // Truncates toward zero and clamps to 0..65535.
    void write_row(int group, int row, int action, const float* values) override;
    void update_regrets(int group, int row, const float* node_value, const float* const* action_values,
                        std::span<const int16_t> tie_groups, double scale) override;
    // Holds regrets only: strategy sums never come here.
    void add_strategy(int group, int row, const float* const* strategy, const float* reach,
                      float weight) override;
    int value_bytes() const override { return 2; }

    const uint16_t* row_values(int group, int row) const;
};
