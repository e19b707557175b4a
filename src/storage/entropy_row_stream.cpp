#include "storage/entropy_row_stream.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "shell/protocol/reply.h"
#include "storage/codes/entropy_coder.h"
#include "storage/codes/row_transform.h"

namespace {

// Buffer sets that this thread's finished writes gave back.
thread_local std::vector<std::unique_ptr<GrowthBuffers>> spare_growth_buffers;

GrowthBuffers* take_growth_buffers() {
    if (spare_growth_buffers.empty()) return new GrowthBuffers;
    GrowthBuffers* buffers = spare_growth_buffers.back().release();
    spare_growth_buffers.pop_back();
    return buffers;
}

void give_back_growth_buffers(GrowthBuffers* buffers) { spare_growth_buffers.emplace_back(buffers); }

// The mask and the last context stream take most bytes; they grow in larger steps.
int64_t growth_step(int stream) { return stream == 1 || stream == 17 ? 65536 : 16384; }

void ensure_capacity(GrowthBuffers& buffers, int stream, int64_t needed) {
    if (needed <= buffers.capacity[stream]) return;
    const int64_t step = growth_step(stream);
    const int64_t capacity = (needed + step - 1) / step * step;
    void* grown = std::realloc(buffers.data[stream], static_cast<size_t>(capacity));
    if (!grown) {
        abort_out_of_memory();
    }
    buffers.data[stream] = static_cast<uint8_t*>(grown);
    buffers.capacity[stream] = capacity;
}

}  // namespace

GrowthBuffers::~GrowthBuffers() {
    for (uint8_t* data : data) std::free(data);
}

EntropyRowStream::~EntropyRowStream() {
    // A pass cut short still hands its buffers back.
    writer.reset();
    reader.reset();
    if (buffers) give_back_growth_buffers(buffers);
}

int64_t EntropyRowStream::bytes_this_pass() const {
    int64_t total = 0;
    for (int32_t used : stream_used) total += used;
    return total;
}

size_t EntropyRowStream::move_on_write(void* context, int stream, void* bytes, size_t count) {
    auto& self = *static_cast<EntropyRowStream*>(context);
    const int64_t needed = static_cast<int64_t>(self.stream_used[stream]) + static_cast<int64_t>(count);
    if (needed > INT32_MAX) fail("");
    if (needed > self.stream_size[stream]) self.stream_size[stream] = static_cast<int32_t>(needed);
    ensure_capacity(*self.buffers, stream, needed);
    std::memcpy(self.buffers->data[stream] + self.stream_used[stream], bytes, count);
    self.stream_used[stream] = static_cast<int32_t>(needed);
    return count;
}

size_t EntropyRowStream::move_on_read(void* context, int stream, void* bytes, size_t count) {
    auto& self = *static_cast<EntropyRowStream*>(context);
    const size_t left = static_cast<size_t>(self.stream_size[stream] - self.stream_used[stream]);
    const size_t given = count < left ? count : left;
    if (given > 0) std::memcpy(bytes, self.stream_base[stream] + self.stream_used[stream], given);
    self.stream_used[stream] += static_cast<int32_t>(given);
    return given;
}

void EntropyRowStream::begin_write() {
    if (writer || reader) fail("");
    if (!buffers) buffers = take_growth_buffers();
    for (int s = 0; s < codec_stream_count; ++s) stream_size[s] = stream_used[s] = 0;
    position = 0;
    statistics = {};
    writer = open_writer(entropy_coder_id, {move_on_write, this}, &statistics);
}

void EntropyRowStream::end_write() {
    writer.reset();  // flushes the chunks into the buffers
    const int64_t total = bytes_this_pass();
    grow(block, total, granularity_mask);
    uint8_t* out = block.base;
    for (int s = 0; s < codec_stream_count; ++s) {
        if (stream_used[s] > 0) std::memcpy(out, buffers->data[s], static_cast<size_t>(stream_used[s]));
        out += stream_used[s];
        stream_size[s] = stream_used[s];
    }
    give_back_growth_buffers(buffers);
    buffers = nullptr;
    position = static_cast<int32_t>(total);
    storage_write_bytes += total;
}

void EntropyRowStream::begin_read() {
    if (writer) fail("");
    reader.reset();
    const uint8_t* base = block.base;
    for (int s = 0; s < codec_stream_count; ++s) {
        stream_base[s] = base;
        if (base) base += stream_size[s];
        stream_used[s] = 0;
    }
    damage_reported_ = false;
    open_failure_.clear();
    try {
        reader = open_reader({move_on_read, this});
        if (!reader) open_failure_ = fse_error_text;
    } catch (const std::runtime_error& error) {
        // A worker has no one to hand the error to: it is reported like any
        // other damage, and the rows read as zeros.
        open_failure_ = error.what();
    }
}

void EntropyRowStream::end_read() {
    reader.reset();
    const int64_t total = bytes_this_pass();
    position = static_cast<int32_t>(total);
    storage_read_bytes += total;
}

void EntropyRowStream::report_damage(const char* reason) {
    if (damage_reported_) return;
    damage_reported_ = true;
    if (const StorageDamageListener listener = storage_damage_listener.load()) listener(reason);
}

void EntropyRowStream::put_row32(const uint32_t* row, const uint32_t* previous, int count) {
    if (!writer) fail("");
    uint32_t plain[max_row_values];
    uint32_t against_previous[max_row_values];
    const TransformedRow coded = transform_row32(row, previous, count, plain, against_previous);
    writer->write(coded.values, count, coded.flag);
}

void EntropyRowStream::put_row16(const uint16_t* row, const uint16_t* previous, int count) {
    if (!writer) fail("");
    uint32_t plain[max_row_values];
    uint32_t against_previous[max_row_values];
    const TransformedRow coded = transform_row16(row, previous, count, plain, against_previous);
    writer->write(coded.values, count, coded.flag);
}

void EntropyRowStream::get_row32(uint32_t* row, const uint32_t* previous, int count) {
    if (reader && reader->read32(row, previous, count)) return;
    if (!reader) {
        for (int i = 0; i < count; ++i) row[i] = 0;
    }
    report_damage(reader ? reader->failure() : open_failure_.c_str());
}

void EntropyRowStream::get_row16(uint16_t* row, const uint16_t* previous, int count) {
    if (reader && reader->read16(row, previous, count)) return;
    if (!reader) {
        for (int i = 0; i < count; ++i) row[i] = 0;
    }
    report_damage(reader ? reader->failure() : open_failure_.c_str());
}

void EntropyRowStream::save(ByteChannel& channel) const {
    for (int s = 0; s < codec_stream_count; ++s) {
        write_field<int32_t>(channel, stream_size[s]);
        write_field<int32_t>(channel, stream_size[s]);
    }
    write_field<uint64_t>(channel, static_cast<uint64_t>(block.reserve_limit));
    write_field<uint64_t>(channel, static_cast<uint64_t>(block.logical));
    if (block.logical > 0) channel.transfer(block.base, block.logical);
}

void EntropyRowStream::load(ByteChannel& channel) {
    int32_t lengths[codec_stream_count];
    int64_t total = 0;
    bool consistent = true;
    for (int s = 0; s < codec_stream_count; ++s) {
        const int32_t capacity = read_field<int32_t>(channel);
        lengths[s] = read_field<int32_t>(channel);
        consistent = consistent && capacity >= 0 && lengths[s] >= 0;
        total += lengths[s];
    }
    const uint64_t limit = read_field<uint64_t>(channel);
    const uint64_t size = read_field<uint64_t>(channel);
    // A limit is a whole number of commit steps, the bytes lie within it and
    // the streams lie within the bytes.
    consistent = consistent && (limit & entropy_stream_granularity_mask) == 0 && limit <= INT64_MAX &&
                 size <= limit && size <= INT32_MAX && static_cast<uint64_t>(total) <= size;
    if (!consistent || static_cast<int64_t>(limit) > channel.stream_reserve_cap) throw_command_error("invalid file");
    require_bytes(channel, static_cast<int64_t>(size));
    writer.reset();
    reader.reset();
    if (block.base && block.reserve_limit != static_cast<int64_t>(limit)) release(block);
    block.reserve_limit = static_cast<int64_t>(limit);
    commit_for_load(block, static_cast<int64_t>(size), granularity_mask);
    if (size > 0) channel.transfer(block.base, static_cast<int64_t>(size));
    for (int s = 0; s < codec_stream_count; ++s) stream_size[s] = stream_used[s] = lengths[s];
    position = 0;
}
