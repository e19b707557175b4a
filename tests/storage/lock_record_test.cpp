// The lock records' file section. (Row layouts are held to their offsets by
// the flat stores' tests.)
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "reference/store_rules.h"
#include "storage/memory_channel.h"

namespace {

TEST(LockRecordSection, MaskIsWrittenAsRunsStartingWithZeros) {
    // First hand locked: the zero run in front has length 0. Any non-zero
    // byte counts as locked.
    LockRecord record;
    record.flags = lock_flag_node;
    store_rules::set_mask(record, {1, 7, 0, 0, 0, 1});
    MemoryChannel channel(7);
    save_lock_record(channel, record);
    const std::vector<uint8_t> expected = {3, 0, 0, 0, 6, 0, 4, 0, 0, 0, 2, 0, 3, 0, 1, 0};
    EXPECT_EQ(channel.bytes, expected);  // flags, hands, runs, the runs

    channel.rewind();
    LockRecord loaded;
    load_lock_record(channel, loaded, 6);
    EXPECT_TRUE(channel.at_end());
    EXPECT_EQ(loaded.flags, lock_flag_mask | lock_flag_node);
    EXPECT_EQ(std::vector<uint8_t>(loaded.lock_mask.get(), loaded.lock_mask.get() + 6),
              (std::vector<uint8_t>{1, 1, 0, 0, 0, 1}));
    channel.rewind();
    EXPECT_ANY_THROW(load_lock_record(channel, loaded, 7));
}

TEST(LockRecordSection, RunsOfLengthZeroFlipAndShortRunsLeaveZeros) {
    // Runs 0, 0, 2, 1: two flips back to zeros, two zeros, one one; the last
    // hand is not covered by any run and stays 0.
    MemoryChannel channel(7);
    channel.bytes = {2, 0, 0, 0, 4, 0, 4, 0, 0, 0, 0, 0, 2, 0, 1, 0};
    channel.rewind();
    LockRecord loaded;
    load_lock_record(channel, loaded, 4);
    EXPECT_EQ(std::vector<uint8_t>(loaded.lock_mask.get(), loaded.lock_mask.get() + 4),
              (std::vector<uint8_t>{0, 0, 1, 0}));

    // Loading a record without a mask drops the one that was there.
    MemoryChannel plain(7);
    plain.bytes = {1, 0, 0, 0};
    plain.rewind();
    load_lock_record(plain, loaded, 4);
    EXPECT_EQ(loaded.flags, lock_flag_node);
    EXPECT_EQ(frozen_hands(loaded, 4), nullptr);
}

}  // namespace
