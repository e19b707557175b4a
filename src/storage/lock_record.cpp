// Lock records of stored rows and their section of the tree file.
#include <algorithm>
#include <cstring>
#include <vector>

#include "shell/protocol/reply.h"
#include "storage/storage.h"

const uint8_t* frozen_hands(const LockRecord& record, int hand_count) {
    if (!(record.flags & lock_flag_mask) || !record.lock_mask) return nullptr;
    if (record.lock_mask_length < hand_count) fail("lock mask shorter than its row");
    return record.lock_mask.get();
}

void lock_whole_row(LockRecord& record, bool locked) {
    record.lock_mask.reset();
    record.lock_mask_length = 0;
    record.flags &= ~lock_flag_mask;
    record.flags = locked ? record.flags | lock_flag_node : record.flags & ~lock_flag_node;
}

void lock_hands(LockRecord& record, const float* values, int hand_count) {
    if (!record.lock_mask || record.lock_mask_length != hand_count)
        record.lock_mask = std::make_unique<uint8_t[]>(static_cast<size_t>(hand_count));
    for (int h = 0; h < hand_count; ++h) record.lock_mask[h] = values[h] != 0.0f ? 1 : 0;
    record.lock_mask_length = hand_count;
    record.flags = (record.flags & ~lock_flag_node) | lock_flag_mask;
}

void save_lock_record(ByteChannel& channel, const LockRecord& record) {
    const bool has_mask = (record.flags & lock_flag_mask) && record.lock_mask;
    // A mask flag without a mask would make the reader expect one.
    write_field<uint32_t>(channel, has_mask ? record.flags : record.flags & ~lock_flag_mask);
    if (!has_mask) return;

    // Runs of equal bytes, alternating zeros and ones, zeros first: a mask
    // whose first hand is locked starts with a run of length 0.
    const int length = record.lock_mask_length;
    std::vector<uint16_t> runs;
    runs.reserve(length + 1);
    bool current = false;
    uint16_t count = 0;
    for (int h = 0; h < length; ++h) {
        const bool locked = record.lock_mask[h] != 0;
        if (locked != current) {
            runs.push_back(count);
            current = locked;
            count = 0;
        }
        ++count;
    }
    runs.push_back(count);

    write_field<uint16_t>(channel, static_cast<uint16_t>(length));
    write_field<uint16_t>(channel, static_cast<uint16_t>(runs.size()));
    channel.transfer(runs.data(), static_cast<int64_t>(runs.size() * sizeof(uint16_t)));
}

void load_lock_record(ByteChannel& channel, LockRecord& record, int hand_count) {
    const uint32_t flags = read_field<uint32_t>(channel);
    if (!(flags & lock_flag_mask)) {
        record.flags = flags;
        record.lock_mask.reset();
        record.lock_mask_length = 0;
        return;
    }
    const int length = read_field<uint16_t>(channel);
    const int run_count = read_field<uint16_t>(channel);
    // The updates read one mask byte per hand of the row; more runs than
    // hands and one can't come from a mask.
    if (length != hand_count || run_count > length + 1) throw_command_error("invalid file");
    require_bytes(channel, int64_t{run_count} * 2);
    std::vector<uint16_t> runs(run_count);
    channel.transfer(runs.data(), static_cast<int64_t>(runs.size() * sizeof(uint16_t)));

    auto mask = std::make_unique<uint8_t[]>(length);
    std::memset(mask.get(), 0, length);
    int position = 0;
    uint8_t value = 0;
    for (const uint16_t run : runs) {
        const int filled = std::min<int>(run, length - position);
        std::memset(mask.get() + position, value, filled);
        position += filled;
        value ^= 1;  // a run of length 0 only flips the value
    }
    record.flags = flags;
    record.lock_mask = std::move(mask);
    record.lock_mask_length = length;
}
