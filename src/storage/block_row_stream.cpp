#include "storage/block_row_stream.h"

#include <climits>

#include "shell/protocol/reply.h"
#include "storage/codes/block_row_code.h"

void BlockRowStream::begin_write() {
    damaged_ = false;
    capacity = 0;
    position = 0;
    raw_bytes = 0;
    // The committed pages stay: the next pass is usually about as large.
    block.logical = 0;
    block.committed = 0;
}

void BlockRowStream::end_write() { storage_write_bytes += position; }

void BlockRowStream::end_read() { storage_read_bytes += position; }

void BlockRowStream::make_room(int bound) {
    // Bounds are the code's true worst case, so `position` never passes
    // `capacity` and a row never writes past what is committed.
    if (capacity >= position + bound) return;
    capacity += bound;
    grow(block, capacity, granularity_mask);
}

void BlockRowStream::put_row16(const uint16_t* row, const uint16_t*, int count) {
    make_room(block_row_bound16(count));
    position += encode_block_row16(row, count, block.base + position);
    raw_bytes += 2 * static_cast<uint64_t>(count);
}

void BlockRowStream::put_row32(const uint32_t* row, const uint32_t*, int count) {
    make_room(block_row_bound32(count));
    position += encode_block_row32(row, count, block.base + position);
    raw_bytes += 4 * static_cast<uint64_t>(count);
}

bool BlockRowStream::advance_read(int used) {
    if (used >= 0) {
        position += used;
        return true;
    }
    // Only a stream damaged in its file runs past its end. Its rows read as
    // zeros from here on, as those of a damaged entropy-coded stream do, and
    // the shell is told once.
    if (!damaged_) {
        damaged_ = true;
        if (const StorageDamageListener listener = storage_damage_listener.load()) listener("row stream overrun");
    }
    position = static_cast<int32_t>(block.logical);
    return false;
}

void BlockRowStream::get_row16(uint16_t* row, const uint16_t*, int count) {
    if (!damaged_ && advance_read(decode_block_row16(read_at(), read_end(), count, row))) return;
    for (int i = 0; i < count; ++i) row[i] = 0;
}

void BlockRowStream::get_row32(uint32_t* row, const uint32_t*, int count) {
    if (!damaged_ && advance_read(decode_block_row32(read_at(), read_end(), count, row))) return;
    for (int i = 0; i < count; ++i) row[i] = 0;
}

void BlockRowStream::save(ByteChannel& channel) const {
    write_field<int32_t>(channel, capacity);
    write_field<uint64_t>(channel, static_cast<uint64_t>(block.reserve_limit));
    write_field<uint64_t>(channel, static_cast<uint64_t>(block.logical));
    if (block.logical > 0) channel.transfer(block.base, block.logical);
}

void BlockRowStream::load(ByteChannel& channel) {
    const int32_t stored_capacity = read_field<int32_t>(channel);
    const uint64_t limit = read_field<uint64_t>(channel);
    const uint64_t size = read_field<uint64_t>(channel);
    // A limit is always a whole number of commit steps, the rows lie within
    // it, and every promised byte was written.
    const bool consistent = (limit & block_stream_granularity_mask) == 0 && limit <= INT64_MAX &&
                            size <= limit && size <= INT32_MAX && stored_capacity >= 0 &&
                            static_cast<uint64_t>(stored_capacity) <= size;
    if (!consistent || static_cast<int64_t>(limit) > channel.stream_reserve_cap) throw_command_error("invalid file");
    require_bytes(channel, static_cast<int64_t>(size));
    if (block.base && block.reserve_limit != static_cast<int64_t>(limit)) release(block);
    block.reserve_limit = static_cast<int64_t>(limit);
    commit_for_load(block, static_cast<int64_t>(size), granularity_mask);
    if (size > 0) channel.transfer(block.base, static_cast<int64_t>(size));
    capacity = stored_capacity;
    position = 0;
    raw_bytes = 0;
    damaged_ = false;
}
