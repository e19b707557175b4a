#include "storage/widening_storage.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "shell/protocol/reply.h"
#include "storage/codes/block_row_code.h"
#include "storage/codes/memory_blocks.h"
#include "storage/codes/sum_kernels.h"
#include "storage/codes/value_forms.h"

namespace {

// Group blocks are 16-byte aligned; the size is rounded up to the alignment,
// as aligned_alloc wants.
uint8_t* allocate_block(size_t bytes) {
    const size_t rounded = (std::max<size_t>(bytes, 1) + 15) & ~size_t{15};
    auto* block = static_cast<uint8_t*>(std::aligned_alloc(16, rounded));
    if (!block) return nullptr;
    std::memset(block, 0, rounded);
    count_storage_bytes(static_cast<int64_t>(malloc_usable_size(block)));
    return block;
}

void free_block(uint8_t* block) {
    if (!block) return;
    count_storage_bytes(-static_cast<int64_t>(malloc_usable_size(block)));
    std::free(block);
}

size_t narrow_bytes(int span) { return 2 * size_t(span); }
size_t wide_bytes(int span) { return 3 * size_t(span) + three_byte_slack; }

// Rows of a wide group are worked on as 32-bit values, and an update scales
// the reach once for all actions. The buffers belong to the thread, so a
// worker allocates them once.
uint32_t* wide_scratch(size_t values) {
    thread_local std::vector<uint32_t> scratch;
    if (scratch.size() < values) scratch.resize(values);
    return scratch.data();
}

float* scaled_scratch(size_t values) {
    thread_local std::vector<float> scratch;
    if (scratch.size() < values) scratch.resize(values);
    return scratch.data();
}

uint32_t clamp_to_width(float value, uint32_t ceiling) {
    const int32_t truncated = truncate_to_int32(value);
    if (truncated <= 0) return 0;
    return std::min(static_cast<uint32_t>(truncated), ceiling);
}

}  // namespace

WideningStorage::WideningStorage(const RowLayout* layout)
    : LayoutStorage(layout),
      groups_(std::make_unique<Group[]>(layout->group_count)),
      growth_(std::make_unique<float[]>(layout->row_count)) {}

WideningStorage::~WideningStorage() { free_blocks(); }

void WideningStorage::free_blocks() {
    for (int g = 0; g < layout_->group_count; ++g) {
        free_block(groups_[g].block);
        groups_[g] = Group{};
    }
}

bool WideningStorage::reset_group(int group) {
    Group& target = groups_[group];
    free_block(target.block);
    target.wide = 0;
    target.block = allocate_block(narrow_bytes(layout_->spans[group].span));
    const RowGroup& rows = layout_->groups[group];
    std::fill(growth_.get() + rows.first_row, growth_.get() + rows.first_row + rows.row_count, 0.0f);
    return target.block != nullptr;
}

bool WideningStorage::open() {
    free_blocks();
    opened_ = false;
    for (int g = 0; g < layout_->group_count; ++g) {
        if (!reset_group(g)) {
            free_blocks();
            return false;
        }
    }
    opened_ = true;
    return true;
}

int WideningStorage::row_base(int group, int row) const {
    return layout_row(*layout_, group, row).offset - layout_->spans[group].base;
}

uint32_t WideningStorage::value(int group, int row, int action, int hand) const {
    const Group& source = groups_[group];
    if (!source.block) return 0;
    const int index = row_base(group, row) + action * row_stride(row_length(group, row)) + hand;
    if (source.wide) return load_three_byte(source.block, index);
    return reinterpret_cast<const uint16_t*>(source.block)[index];
}

uint32_t WideningStorage::row_largest(int group, int row) const {
    const int hands = row_length(group, row);
    uint32_t largest = 0;
    for (int a = 0; a < layout_->action_count; ++a)
        for (int h = 0; h < hands; ++h) largest = std::max(largest, value(group, row, a, h));
    return largest;
}

void WideningStorage::widen(int group) {
    Group& target = groups_[group];
    const int span = layout_->spans[group].span;
    uint8_t* wide = allocate_block(wide_bytes(span));
    if (!wide) abort_out_of_memory();
    widen_to_three_byte(reinterpret_cast<const uint16_t*>(target.block), span, wide);
    free_block(target.block);
    target.block = wide;
    target.wide = 1;
}

void WideningStorage::read_strategy(float* const* out, int group, int row, std::span<const float> defaults) const {
    const int hands = row_length(group, row);
    const int actions = layout_->action_count;
    const Group& source = groups_[group];
    if (!source.block) {
        // Before `open` the defaults are one row for all actions, by hand.
        const int given = std::min(hands, static_cast<int>(defaults.size()));
        for (int a = 0; a < actions; ++a) {
            std::copy(defaults.begin(), defaults.begin() + given, out[a]);
            std::fill(out[a] + given, out[a] + hands, 0.0f);
        }
        return;
    }
    const float fallback = defaults.empty() ? 0.0f : 1.0f / float(actions);
    const int stride = row_stride(hands);
    const int base = row_base(group, row);
    if (!source.wide) {
        sum_kernels().strategy_u16(reinterpret_cast<const uint16_t*>(source.block) + base, stride, actions, hands,
                                   out, fallback);
        return;
    }
    uint32_t* values = wide_scratch(size_t(actions) * stride);
    for (int a = 0; a < actions; ++a)
        unpack_three_byte_row(source.block + 3 * size_t(base + a * stride), hands, values + size_t(a) * stride);
    sum_kernels().strategy_u32(values, stride, actions, hands, out, fallback);
}

void WideningStorage::write_row(int group, int row, int action, const float* values) {
    Group& target = groups_[group];
    if (!target.block) return;
    const int hands = row_length(group, row);
    const int index = row_base(group, row) + action * row_stride(hands);
    if (target.wide) {
        for (int h = 0; h < hands; ++h)
            store_three_byte(target.block, index + h, values ? clamp_to_width(values[h], wide_ceiling) : 0);
        return;
    }
    uint16_t* narrow = reinterpret_cast<uint16_t*>(target.block) + index;
    if (values) {
        convert_row_to_u16(values, hands, narrow);
    } else {
        std::fill(narrow, narrow + hands, uint16_t{0});
    }
    // The row's bound must cover what was just written, or later additions
    // could pass 16 bits unseen.
    float& growth = growth_[layout_row_index(*layout_, group, row)];
    growth = std::max(growth, float(row_largest(group, row)));
}

void WideningStorage::update_regrets(int, int, const float*, const float* const*, std::span<const int16_t>, double) {}

void WideningStorage::add_strategy(int group, int row, const float* const* strategy, const float* reach,
                                   float weight) {
    Group& target = groups_[group];
    if (!target.block || !reach || !(weight > 0.0f)) return;
    const int hands = row_length(group, row);
    const int stride = row_stride(hands);
    const int base = row_base(group, row);
    const int row_index = layout_row_index(*layout_, group, row);
    const uint8_t* frozen = frozen_hands(locks_[row_index], hands);
    const SumKernels& kernels = sum_kernels();

    float* scaled = scaled_scratch(size_t(hands));
    const float largest = kernels.scale_reach(reach, weight, hands, scaled);
    if (!target.wide) {
        growth_[row_index] += largest;
        if (growth_[row_index] > 65535.0f) widen(group);
    }
    if (!target.wide) {
        auto* narrow = reinterpret_cast<uint16_t*>(target.block) + base;
        for (int a = 0; a < layout_->action_count; ++a) {
            if (strategy[a]) kernels.add_u16(narrow + size_t(a) * stride, strategy[a], scaled, hands, frozen);
        }
        return;
    }
    uint32_t* values = wide_scratch(size_t(hands));
    for (int a = 0; a < layout_->action_count; ++a) {
        if (!strategy[a]) continue;
        uint8_t* row_bytes = target.block + 3 * size_t(base + a * stride);
        unpack_three_byte_row(row_bytes, hands, values);
        kernels.add_u32(values, strategy[a], scaled, hands, frozen, wide_ceiling);
        pack_three_byte_row(values, hands, row_bytes);
    }
}

RowStream* WideningStorage::open_group(RowStream*, int, int64_t) { return nullptr; }
RowStream* WideningStorage::close_group(RowStream*, int, bool) { return nullptr; }

void WideningStorage::save(ByteChannel& channel) const {
    save_lock_records(channel);
    write_field<uint8_t>(channel, static_cast<uint8_t>(format_limit));
    int widest = 0;
    for (int i = 0; i < layout_->row_count; ++i) widest = std::max(widest, int(layout_->rows[i].hand_count));
    std::vector<uint32_t> values(widest);
    std::vector<uint16_t> narrow(widest);
    std::vector<uint8_t> code(block_row_bound24(widest));

    for (int g = 0; g < layout_->group_count; ++g) {
        const Group& source = groups_[g];
        write_field<uint8_t>(channel, source.wide);
        for (int r = 0; r < layout_->groups[g].row_count; ++r) {
            const int hands = row_length(g, r);
            for (int a = 0; a < layout_->action_count; ++a) {
                // A store that never opened holds zeros.
                for (int h = 0; h < hands; ++h) values[h] = value(g, r, a, h);
                int length;
                if (source.wide) {
                    length = encode_block_row24(values.data(), hands, code.data());
                } else {
                    for (int h = 0; h < hands; ++h) narrow[h] = static_cast<uint16_t>(values[h]);
                    length = encode_block_row16(narrow.data(), hands, code.data());
                }
                write_field<uint16_t>(channel, static_cast<uint16_t>(length));
                channel.transfer(code.data(), length);
            }
        }
    }
}

void WideningStorage::load(ByteChannel& channel) {
    load_lock_records(channel);
    const int format = read_field<uint8_t>(channel);
    // The refusal is the whole reply, without the command word.
    if (format > format_limit) throw std::runtime_error("ERROR: incompatible data\n");
    int widest = 0;
    for (int i = 0; i < layout_->row_count; ++i) widest = std::max(widest, int(layout_->rows[i].hand_count));
    std::vector<uint32_t> values(widest);
    std::vector<uint8_t> code(65535);

    for (int g = 0; g < layout_->group_count; ++g) {
        const bool wide = read_field<uint8_t>(channel) != 0;
        if (!reset_group(g)) abort_out_of_memory();
        if (wide) widen(g);
        Group& target = groups_[g];
        for (int r = 0; r < layout_->groups[g].row_count; ++r) {
            const int hands = row_length(g, r);
            const int base = row_base(g, r);
            const int stride = row_stride(hands);
            for (int a = 0; a < layout_->action_count; ++a) {
                const int length = read_field<uint16_t>(channel);
                channel.transfer(code.data(), length);
                const uint8_t* end = code.data() + length;
                const int index = base + a * stride;
                int used;
                if (wide) {
                    used = decode_block_row24(code.data(), end, hands, values.data());
                    if (used >= 0) pack_three_byte_row(values.data(), hands, target.block + 3 * size_t(index));
                } else {
                    used = decode_block_row16(code.data(), end, hands,
                                              reinterpret_cast<uint16_t*>(target.block) + index);
                }
                if (used < 0) throw_command_error("invalid file");
            }
            // The file has no bounds: the largest loaded value is one, since
            // every value grew by at most the figure the bound grew by.
            if (!wide) growth_[layout_row_index(*layout_, g, r)] = float(row_largest(g, r));
        }
    }
    opened_ = true;
}
