#include "storage/packed_storage.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "shell/protocol/reply.h"
#include "storage/block_row_stream.h"
#include "storage/codes/memory_blocks.h"
#include "storage/codes/row_kernels.h"
#include "storage/codes/sum_kernels.h"
#include "storage/codes/value_forms.h"
#include "storage/entropy_row_stream.h"

namespace {

constexpr size_t open_buffer_alignment = 128;

float* scaled_scratch(size_t values) {
    thread_local std::vector<float> scratch;
    if (scratch.size() < values) scratch.resize(values);
    return scratch.data();
}

}  // namespace

PackedStorage::PackedStorage(const RowLayout* layout, int stream_mode, bool narrow)
    : LayoutStorage(layout),
      groups_(std::make_unique<Group[]>(layout->group_count)),
      stream_mode_(stream_mode),
      narrow_(narrow) {
    if (stream_mode != 1 && stream_mode != 2) fail("unknown row stream mode");
}

PackedStorage::~PackedStorage() {
    for (int g = 0; g < layout_->group_count; ++g) free_scalable(groups_[g].buffer);
}

bool PackedStorage::open() { return true; }

int64_t PackedStorage::make_stream_limit(int64_t reserve_values) const {
    return stream_mode_ == 1 ? block_stream_reserve_limit(reserve_values, value_bytes())
                             : entropy_stream_reserve_limit(reserve_values);
}

std::unique_ptr<RowStream> PackedStorage::make_stream(int64_t reserve_values) const {
    // The reserve is the worst case of every row the stream may carry; only
    // what the rows take is committed.
    if (stream_mode_ == 1) return std::make_unique<BlockRowStream>(make_stream_limit(reserve_values));
    return std::make_unique<EntropyRowStream>(make_stream_limit(reserve_values));
}

bool PackedStorage::stream_holds(int group, int64_t reserve_values) const {
    const RowStream* stream = groups_[group].stream.get();
    return !stream || stream->reserve_limit() >= make_stream_limit(reserve_values);
}

uint8_t* PackedStorage::open_row(int group, int row) const {
    uint8_t* buffer = groups_[group].buffer;
    if (!buffer) fail("not open");
    const int offset = layout_row(*layout_, group, row).offset - layout_->spans[group].base;
    return buffer + size_t(offset) * value_bytes();
}

uint16_t* PackedStorage::open_row16(int group, int row) const {
    return reinterpret_cast<uint16_t*>(open_row(group, row));
}

uint32_t* PackedStorage::open_row32(int group, int row) const {
    return reinterpret_cast<uint32_t*>(open_row(group, row));
}

int64_t PackedStorage::value_count(int group) const {
    if (group < 0) return layout_->value_count;
    int64_t hands = 0;
    for (int r = 0; r < layout_->groups[group].row_count; ++r) hands += row_length(group, r);
    return hands * layout_->action_count;
}

// A row may be coded against the same action's row of the previous river
// card, when that one is at least as long. Reader and writer walk the rows in
// the same order with the same rule, so both see the same previous rows:
// `visit(row, previous or null, hands)` at the store's width.
template <class Visit>
void PackedStorage::visit_coded_rows(int group, Visit visit) const {
    const int rows = layout_->groups[group].row_count;
    for (int a = 0; a < layout_->action_count; ++a) {
        for (int r = 0; r < rows; ++r) {
            const int hands = row_length(group, r);
            const bool with_previous = r > 0 && hands <= row_length(group, r - 1);
            const int previous_offset = with_previous ? a * row_stride(row_length(group, r - 1)) : 0;
            if (narrow_) {
                const uint16_t* previous = with_previous ? open_row16(group, r - 1) + previous_offset : nullptr;
                visit(open_row16(group, r) + a * row_stride(hands), previous, hands);
            } else {
                const uint32_t* previous = with_previous ? open_row32(group, r - 1) + previous_offset : nullptr;
                visit(open_row32(group, r) + a * row_stride(hands), previous, hands);
            }
        }
    }
}

namespace {

void get_row(RowStream& stream, uint16_t* row, const uint16_t* previous, int hands) {
    stream.get_row16(row, previous, hands);
}
void get_row(RowStream& stream, uint32_t* row, const uint32_t* previous, int hands) {
    stream.get_row32(row, previous, hands);
}
void put_row(RowStream& stream, const uint16_t* row, const uint16_t* previous, int hands) {
    stream.put_row16(row, previous, hands);
}
void put_row(RowStream& stream, const uint32_t* row, const uint32_t* previous, int hands) {
    stream.put_row32(row, previous, hands);
}

}  // namespace

void PackedStorage::read_rows(RowStream& stream, int group) {
    visit_coded_rows(group, [&](auto* row, const auto* previous, int hands) { get_row(stream, row, previous, hands); });
}

void PackedStorage::write_rows(RowStream& stream, int group) const {
    visit_coded_rows(group, [&](auto* row, const auto* previous, int hands) { put_row(stream, row, previous, hands); });
}

RowStream* PackedStorage::open_group(RowStream* stream, int group, int64_t reserve_values) {
    Group& target = groups_[group];
    // A second open would read rows meant for the next node of the stream.
    if (target.buffer) fail("group already open");
    if (!stream) {
        if (!target.stream) target.stream = make_stream(reserve_values);
        stream = target.stream.get();
        if (stream->has_data()) stream->begin_read();
    }
    const size_t bytes = size_t(layout_->spans[group].span) * value_bytes();
    target.buffer = static_cast<uint8_t*>(allocate_scalable(bytes, open_buffer_alignment));
    if (!stream->has_data()) {
        // The group's first visit: every value starts at 0.
        std::memset(target.buffer, 0, bytes);
    } else {
        read_rows(*stream, group);
    }
    return stream;
}

RowStream* PackedStorage::close_group(RowStream* stream, int group, bool modified) {
    Group& target = groups_[group];
    if (!target.buffer) return nullptr;
    if (modified) {
        if (!stream) {
            // The first node of the chain opened the group without a stream
            // too, and so made its own.
            if (!target.stream) fail("no row stream");
            stream = target.stream.get();
            stream->begin_write();
        }
        write_rows(*stream, group);
    }
    // Unmodified rows stay in the stream as they were; the next read finds them.
    free_scalable(target.buffer);
    target.buffer = nullptr;
    return stream;
}

void PackedStorage::read_strategy(float* const* out, int group, int row, std::span<const float> defaults) const {
    const int hands = row_length(group, row);
    const int actions = layout_->action_count;
    if (narrow_) {
        row_kernels().strategy_u16(open_row16(group, row), row_stride(hands), actions, hands, out, defaults);
        return;
    }
    const float fallback = defaults.empty() ? 0.0f : 1.0f / float(actions);
    sum_kernels().strategy_u32(open_row32(group, row), row_stride(hands), actions, hands, out, fallback);
}

void PackedStorage::write_row(int group, int row, int action, const float* values) {
    const int hands = row_length(group, row);
    const size_t offset = size_t(action) * row_stride(hands);
    if (narrow_) {
        uint16_t* target = open_row16(group, row) + offset;
        if (values) {
            convert_row_to_u16(values, hands, target);
        } else {
            std::fill(target, target + hands, uint16_t{0});
        }
        return;
    }
    // Rows written whole are regrets, whatever the width: the same 16-bit range.
    uint32_t* target = open_row32(group, row) + offset;
    for (int h = 0; h < hands; ++h)
        target[h] = values ? static_cast<uint32_t>(std::clamp(truncate_to_int32(values[h]), 0, 65535)) : 0;
}

void PackedStorage::update_regrets(int group, int row, const float* node_value, const float* const* action_values,
                                   std::span<const int16_t> tie_groups, double scale) {
    const int hands = row_length(group, row);
    if (!narrow_) {
        open_row(group, row);  // a closed group is a fault even here
        return;
    }
    uint16_t* start = open_row16(group, row);
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

void PackedStorage::add_strategy(int group, int row, const float* const* strategy, const float* reach,
                                 float weight) {
    uint8_t* start = open_row(group, row);
    if (narrow_ || !reach || !(weight > 0.0f)) return;
    const int hands = row_length(group, row);
    const int stride = row_stride(hands);
    const uint8_t* frozen = frozen_hands(locks_[layout_row_index(*layout_, group, row)], hands);
    const SumKernels& kernels = sum_kernels();
    float* scaled = scaled_scratch(size_t(hands));
    kernels.scale_reach(reach, weight, hands, scaled);
    auto* sums = reinterpret_cast<uint32_t*>(start);
    for (int a = 0; a < layout_->action_count; ++a) {
        if (strategy[a]) kernels.add_u32(sums + size_t(a) * stride, strategy[a], scaled, hands, frozen, UINT32_MAX);
    }
}

void PackedStorage::save(ByteChannel& channel) const {
    save_lock_records(channel);
    bool has_streams = false;
    for (int g = 0; g < layout_->group_count; ++g) has_streams = has_streams || groups_[g].stream;
    write_field<uint8_t>(channel, has_streams ? 1 : 0);
    if (!has_streams) return;
    // A group that was never walked has no stream yet: it stands as an empty
    // one, which a load drops again.
    const std::unique_ptr<RowStream> empty = make_stream(0);
    for (int g = 0; g < layout_->group_count; ++g) {
        const RowStream* stream = groups_[g].stream ? groups_[g].stream.get() : empty.get();
        stream->save(channel);
    }
}

void PackedStorage::load(ByteChannel& channel) {
    load_lock_records(channel);
    for (int g = 0; g < layout_->group_count; ++g) {
        free_scalable(groups_[g].buffer);
        groups_[g].buffer = nullptr;
        groups_[g].stream.reset();
    }
    if (read_field<uint8_t>(channel) == 0) return;
    for (int g = 0; g < layout_->group_count; ++g) {
        std::unique_ptr<RowStream> stream = make_stream(0);
        stream->load(channel);
        // An empty stream carries nothing; the group's first open makes one
        // with the reserve its rows need.
        if (stream->has_data()) groups_[g].stream = std::move(stream);
    }
}
