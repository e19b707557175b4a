// Plain f32 rows of flop and turn nodes.
#include "storage/float_row_storage.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "storage/codes/memory_blocks.h"
#include "storage/codes/row_kernels.h"

void FloatRowStorage::ScalableFree::operator()(float* rows) const { free_scalable(rows); }

FloatRowStorage::FloatRowStorage(int action_count, int hand_count)
    : action_count_(action_count), hand_count_(hand_count) {}

bool FloatRowStorage::open() {
    const size_t bytes = size_t(row_stride(hand_count_)) * action_count_ * sizeof(float);
    // Running out of memory here aborts inside the allocator: these rows are
    // few and small, and nothing can go on without them.
    if (!rows_) rows_.reset(static_cast<float*>(allocate_scalable(bytes, 64)));
    std::memset(rows_.get(), 0, bytes);
    return true;
}

int FloatRowStorage::row_length(int, int) const { return hand_count_; }

const float* FloatRowStorage::action_row(int action) const {
    return rows_ ? rows_.get() + size_t(action) * row_stride(hand_count_) : nullptr;
}

void FloatRowStorage::read_strategy(float* const* out, int, int, std::span<const float> defaults) const {
    if (!rows_) {
        // Rows not taken yet are all zero: every hand takes the defaults.
        for (int a = 0; a < action_count_; ++a) {
            const float value = a < int(defaults.size()) ? defaults[a] : 0.0f;
            std::fill(out[a], out[a] + hand_count_, value);
        }
        return;
    }
    row_kernels().strategy_f32(rows_.get(), row_stride(hand_count_), action_count_, hand_count_, out,
                               defaults);
}

void FloatRowStorage::write_row(int, int, int action, const float* values) {
    if (!rows_) return;
    float* row = rows_.get() + size_t(action) * row_stride(hand_count_);
    if (values) {
        std::memcpy(row, values, size_t(hand_count_) * sizeof(float));
    } else {
        std::memset(row, 0, size_t(hand_count_) * sizeof(float));
    }
}

void FloatRowStorage::update_regrets(int, int, const float* node_value, const float* const* action_values,
                                     std::span<const int16_t>, double) {
    if (!rows_) return;
    const RowKernels& kernels = row_kernels();
    const uint8_t* frozen = frozen_hands(lock_, hand_count_);
    const int stride = row_stride(hand_count_);
    for (int a = 0; a < action_count_; ++a) {
        kernels.update_f32(rows_.get() + size_t(a) * stride, action_values ? action_values[a] : nullptr,
                           node_value, hand_count_, frozen);
    }
}

void FloatRowStorage::add_strategy(int, int, const float* const* strategy, const float* reach, float weight) {
    if (!rows_ || !reach || !(weight > 0.0f)) return;
    const RowKernels& kernels = row_kernels();
    const uint8_t* frozen = frozen_hands(lock_, hand_count_);
    const int stride = row_stride(hand_count_);
    for (int a = 0; a < action_count_; ++a) {
        if (!strategy[a]) continue;  // a null strategy row adds nothing
        kernels.add_strategy_f32(rows_.get() + size_t(a) * stride, strategy[a], reach, weight, hand_count_,
                                 frozen);
    }
}

int64_t FloatRowStorage::value_count(int) const { return int64_t{action_count_} * hand_count_; }

void FloatRowStorage::save(ByteChannel& channel) const {
    save_lock_record(channel, lock_);
    const int64_t row_bytes = int64_t{hand_count_} * sizeof(float);
    std::vector<float> zeros(rows_ ? 0 : hand_count_, 0.0f);
    for (int a = 0; a < action_count_; ++a) {
        // The channel takes bytes out of the buffer and leaves them as they are.
        float* row = rows_ ? rows_.get() + size_t(a) * row_stride(hand_count_) : zeros.data();
        channel.transfer(row, row_bytes);
    }
}

void FloatRowStorage::load(ByteChannel& channel) {
    load_lock_record(channel, lock_, hand_count_);
    // The rows of a store opened before the load are zero still; the file
    // fills them but for the padding of each stride.
    if (!rows_) open();
    const int64_t row_bytes = int64_t{hand_count_} * sizeof(float);
    for (int a = 0; a < action_count_; ++a) {
        channel.transfer(rows_.get() + size_t(a) * row_stride(hand_count_), row_bytes);
    }
}

RowStream* FloatRowStorage::open_group(RowStream*, int, int64_t) { return nullptr; }
RowStream* FloatRowStorage::close_group(RowStream*, int, bool) { return nullptr; }

LockRecord* FloatRowStorage::lock_record(int, int) { return &lock_; }

// ---------------------------------------------------------------------------

TurnRowStorage::TurnRowStorage(int action_count, std::span<const int> hand_counts) {
    boards_.reserve(hand_counts.size());
    for (const int hands : hand_counts) boards_.emplace_back(action_count, hands);
}

bool TurnRowStorage::open() {
    bool opened = true;
    for (FloatRowStorage& board : boards_) opened = board.open() && opened;
    return opened;
}

int TurnRowStorage::row_length(int group, int) const {
    return group >= 0 && group < board_count() ? boards_[group].hand_count() : 0;
}

void TurnRowStorage::read_strategy(float* const* out, int group, int, std::span<const float> defaults) const {
    boards_[group].read_strategy(out, -1, -1, defaults);
}

void TurnRowStorage::write_row(int group, int, int action, const float* values) {
    boards_[group].write_row(-1, -1, action, values);
}

void TurnRowStorage::update_regrets(int group, int, const float* node_value, const float* const* action_values,
                                    std::span<const int16_t> tie_groups, double scale) {
    boards_[group].update_regrets(-1, -1, node_value, action_values, tie_groups, scale);
}

void TurnRowStorage::add_strategy(int group, int, const float* const* strategy, const float* reach,
                                  float weight) {
    boards_[group].add_strategy(-1, -1, strategy, reach, weight);
}

int64_t TurnRowStorage::value_count(int) const {
    int64_t total = 0;
    for (const FloatRowStorage& board : boards_) total += board.value_count(-1);
    return total;
}

void TurnRowStorage::save(ByteChannel& channel) const {
    for (const FloatRowStorage& board : boards_) board.save(channel);
}

void TurnRowStorage::load(ByteChannel& channel) {
    for (FloatRowStorage& board : boards_) board.load(channel);
}

RowStream* TurnRowStorage::open_group(RowStream*, int, int64_t) { return nullptr; }
RowStream* TurnRowStorage::close_group(RowStream*, int, bool) { return nullptr; }

LockRecord* TurnRowStorage::lock_record(int group, int) {
    return group >= 0 && group < board_count() ? boards_[group].lock_record(-1, -1) : nullptr;
}
