// Flat-block river stores.
#include "storage/arena_storage.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "shell/protocol/reply.h"
#include "storage/codes/block_row_code.h"
#include "storage/codes/memory_blocks.h"
#include "storage/codes/row_kernels.h"
#include "storage/codes/value_forms.h"
#include "storage/prefetch.h"

ArenaStorage::ArenaStorage(const RowLayout* layout) : LayoutStorage(layout) {}

ArenaStorage::~ArenaStorage() { free_flat_block(block_, block_bytes_); }

bool ArenaStorage::open() {
    // Fresh pages instead of clearing the old ones: the system hands them out
    // zeroed and only touched pages cost memory.
    free_flat_block(block_, block_bytes_);
    block_ = nullptr;
    block_bytes_ = size_t(layout_->padded_values) * value_bytes();
    if (block_bytes_ > 0) block_ = static_cast<uint8_t*>(allocate_flat_block(block_bytes_));
    opened_ = block_bytes_ == 0 || block_ != nullptr;
    if (!opened_) block_bytes_ = 0;
    return opened_;
}

uint8_t* ArenaStorage::row_start(int group, int row) const {
    if (!block_) return nullptr;
    return block_ + size_t(layout_row(*layout_, group, row).offset) * value_bytes();
}

void ArenaStorage::prefetch_row(int group, int row) const {
    const uint8_t* start = row_start(group, row);
    if (!start) return;
    const int hands = layout_row(*layout_, group, row).hand_count;
    prefetch_bytes(start, size_t(row_stride(hands)) * layout_->action_count * value_bytes());
}

void ArenaStorage::read_defaults_by_hand(float* const* out, int actions, int hands,
                                         std::span<const float> defaults) {
    const int given = std::min(hands, static_cast<int>(defaults.size()));
    for (int a = 0; a < actions; ++a) {
        std::copy(defaults.begin(), defaults.begin() + given, out[a]);
        std::fill(out[a] + given, out[a] + hands, 0.0f);
    }
}

RowStream* ArenaStorage::open_group(RowStream*, int, int64_t) { return nullptr; }
RowStream* ArenaStorage::close_group(RowStream*, int, bool) { return nullptr; }

void ArenaStorage::save(ByteChannel& channel) const {
    save_lock_records(channel);
    const int bytes_per_value = value_bytes();
    const bool coded = bytes_per_value == 2 && channel.version >= 4;
    int widest = 0;
    for (int i = 0; i < layout_->row_count; ++i) widest = std::max(widest, int(layout_->rows[i].hand_count));
    // A store that never opened holds zeros.
    std::vector<uint8_t> zeros(block_ ? 0 : size_t(widest) * bytes_per_value, 0);
    std::vector<uint8_t> code(coded ? block_row_bound16(widest) : 0);

    for (int g = 0; g < layout_->group_count; ++g) {
        for (int r = 0; r < layout_->groups[g].row_count; ++r) {
            const int hands = layout_row(*layout_, g, r).hand_count;
            const size_t stride_bytes = size_t(row_stride(hands)) * bytes_per_value;
            uint8_t* start = row_start(g, r);
            for (int a = 0; a < layout_->action_count; ++a) {
                uint8_t* values = start ? start + a * stride_bytes : zeros.data();
                if (coded) {
                    const int length = encode_block_row16(reinterpret_cast<const uint16_t*>(values), hands, code.data());
                    write_field<uint16_t>(channel, static_cast<uint16_t>(length));
                    channel.transfer(code.data(), length);
                } else {
                    channel.transfer(values, int64_t{hands} * bytes_per_value);
                }
            }
        }
    }
}

void ArenaStorage::load(ByteChannel& channel) {
    load_lock_records(channel);
    if (!opened_) open();
    const int bytes_per_value = value_bytes();
    const bool coded = bytes_per_value == 2 && channel.version >= 4;
    int widest = 0;
    for (int i = 0; i < layout_->row_count; ++i) widest = std::max(widest, int(layout_->rows[i].hand_count));
    // Without memory for the block the rows are still read, to keep the file
    // in step, and dropped.
    std::vector<uint8_t> scratch(block_ ? 0 : size_t(widest) * bytes_per_value);
    std::vector<uint8_t> code(coded ? 65535 : 0);

    for (int g = 0; g < layout_->group_count; ++g) {
        for (int r = 0; r < layout_->groups[g].row_count; ++r) {
            const int hands = layout_row(*layout_, g, r).hand_count;
            const size_t stride_bytes = size_t(row_stride(hands)) * bytes_per_value;
            uint8_t* start = row_start(g, r);
            for (int a = 0; a < layout_->action_count; ++a) {
                uint8_t* values = start ? start + a * stride_bytes : scratch.data();
                if (coded) {
                    const int length = read_field<uint16_t>(channel);
                    channel.transfer(code.data(), length);
                    const int used = decode_block_row16(code.data(), code.data() + length, hands,
                                                        reinterpret_cast<uint16_t*>(values));
                    if (used < 0) throw_command_error("invalid file");
                } else {
                    channel.transfer(values, int64_t{hands} * bytes_per_value);
                }
            }
        }
    }
}

// ---------------------------------------------------------------------------

const float* FloatArenaStorage::row_values(int group, int row) const {
    return reinterpret_cast<const float*>(row_start(group, row));
}

void FloatArenaStorage::read_strategy(float* const* out, int group, int row,
                                      std::span<const float> defaults) const {
    const int hands = row_length(group, row);
    const float* values = row_values(group, row);
    if (!values) {
        read_defaults_by_hand(out, layout_->action_count, hands, defaults);
        return;
    }
    row_kernels().strategy_f32(values, row_stride(hands), layout_->action_count, hands, out, defaults);
}

void FloatArenaStorage::write_row(int group, int row, int action, const float* values) {
    auto* start = reinterpret_cast<float*>(row_start(group, row));
    if (!start) return;
    const int hands = row_length(group, row);
    float* target = start + size_t(action) * row_stride(hands);
    if (values) {
        std::memcpy(target, values, size_t(hands) * sizeof(float));
    } else {
        std::memset(target, 0, size_t(hands) * sizeof(float));
    }
}

void FloatArenaStorage::update_regrets(int group, int row, const float* node_value,
                                       const float* const* action_values, std::span<const int16_t>, double) {
    auto* start = reinterpret_cast<float*>(row_start(group, row));
    if (!start) return;
    const int hands = row_length(group, row);
    const int stride = row_stride(hands);
    const uint8_t* frozen = frozen_hands(locks_[layout_row_index(*layout_, group, row)], hands);
    const RowKernels& kernels = row_kernels();
    for (int a = 0; a < layout_->action_count; ++a) {
        kernels.update_f32(start + size_t(a) * stride, action_values ? action_values[a] : nullptr, node_value,
                           hands, frozen);
    }
}

void FloatArenaStorage::add_strategy(int group, int row, const float* const* strategy, const float* reach,
                                     float weight) {
    auto* start = reinterpret_cast<float*>(row_start(group, row));
    if (!start || !reach || !(weight > 0.0f)) return;
    const int hands = row_length(group, row);
    const int stride = row_stride(hands);
    const uint8_t* frozen = frozen_hands(locks_[layout_row_index(*layout_, group, row)], hands);
    const RowKernels& kernels = row_kernels();
    for (int a = 0; a < layout_->action_count; ++a) {
        if (!strategy[a]) continue;
        kernels.add_strategy_f32(start + size_t(a) * stride, strategy[a], reach, weight, hands, frozen);
    }
}

// ---------------------------------------------------------------------------

const uint16_t* WordArenaStorage::row_values(int group, int row) const {
    return reinterpret_cast<const uint16_t*>(row_start(group, row));
}

void WordArenaStorage::read_strategy(float* const* out, int group, int row,
                                     std::span<const float> defaults) const {
    const int hands = row_length(group, row);
    const uint16_t* values = row_values(group, row);
    if (!values) {
        read_defaults_by_hand(out, layout_->action_count, hands, defaults);
        return;
    }
    row_kernels().strategy_u16(values, row_stride(hands), layout_->action_count, hands, out, defaults);
}

void WordArenaStorage::write_row(int group, int row, int action, const float* values) {
    auto* start = reinterpret_cast<uint16_t*>(row_start(group, row));
    if (!start) return;
    const int hands = row_length(group, row);
    uint16_t* target = start + size_t(action) * row_stride(hands);
    if (values) {
        convert_row_to_u16(values, hands, target);
    } else {
        std::memset(target, 0, size_t(hands) * sizeof(uint16_t));
    }
}

void WordArenaStorage::update_regrets(int group, int row, const float* node_value,
                                      const float* const* action_values, std::span<const int16_t> tie_groups,
                                      double scale) {
    auto* start = reinterpret_cast<uint16_t*>(row_start(group, row));
    if (!start) return;
    const int hands = row_length(group, row);
    const int stride = row_stride(hands);
    const uint8_t* frozen = frozen_hands(locks_[layout_row_index(*layout_, group, row)], hands);
    const U16UpdateFactors factors = u16_update_factors(scale);
    const RowKernels& kernels = row_kernels();
    for (int a = 0; a < layout_->action_count; ++a) {
        uint16_t* values = start + size_t(a) * stride;
        kernels.update_u16(values, action_values ? action_values[a] : nullptr, node_value, hands, frozen,
                           factors.gain, factors.threshold);
        // Tied hands share one regret while the tree is young.
        if (!tie_groups.empty()) pool_tied_hands(values, hands, tie_groups, frozen);
    }
}

void WordArenaStorage::add_strategy(int, int, const float* const*, const float*, float) {}
