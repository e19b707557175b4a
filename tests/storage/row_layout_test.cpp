// Row layouts of river stores, and the lock records' file section.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "storage/memory_channel.h"
#include "storage/storage.h"

namespace {

RowLayout layout_of(int actions, const std::vector<std::vector<int>>& hand_counts) {
    std::vector<std::span<const int>> groups(hand_counts.begin(), hand_counts.end());
    return make_row_layout(actions, groups);
}

TEST(RowLayout, OffsetsStridesAndSpansFollowTheGroups) {
    // Group 1 has no river boards at all; strides round hands up to 4.
    const RowLayout layout = layout_of(3, {{5, 9}, {}, {12, 1}});
    EXPECT_EQ(layout.action_count, 3);
    EXPECT_EQ(layout.group_count, 3);
    EXPECT_EQ(layout.row_count, 4);

    ASSERT_EQ(layout.groups.size(), 3u);
    EXPECT_EQ(layout.groups[0].first_row, 0);
    EXPECT_EQ(layout.groups[0].row_count, 2);
    EXPECT_EQ(layout.groups[1].first_row, 2);
    EXPECT_EQ(layout.groups[1].row_count, 0);
    EXPECT_EQ(layout.groups[2].first_row, 2);
    EXPECT_EQ(layout.groups[2].row_count, 2);

    // 5 hands: stride 8, three actions -> 24 values; 9: 12 -> 36; 12: 12 -> 36; 1: 4 -> 12.
    const int32_t offsets[] = {0, 24, 60, 96};
    const int32_t hands[] = {5, 9, 12, 1};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(layout.rows[i].offset, offsets[i]) << i;
        EXPECT_EQ(layout.rows[i].hand_count, hands[i]) << i;
    }
    EXPECT_EQ(layout.spans[0].base, 0);
    EXPECT_EQ(layout.spans[0].span, 60);
    EXPECT_EQ(layout.spans[1].base, 60);
    EXPECT_EQ(layout.spans[1].span, 0);
    EXPECT_EQ(layout.spans[2].base, 60);
    EXPECT_EQ(layout.spans[2].span, 48);
    EXPECT_EQ(layout.padded_values, 108);
    EXPECT_EQ(layout.value_count, (5 + 9 + 12 + 1) * 3);

    EXPECT_EQ(layout_row(layout, 2, 1).offset, 96);
    EXPECT_EQ(layout_row_index(layout, 2, 0), 2);

    // The tables sit on cache lines.
    EXPECT_EQ(reinterpret_cast<uintptr_t>(layout.groups.data()) % 64, 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(layout.rows.data()) % 64, 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(layout.spans.data()) % 64, 0u);
}

TEST(RowLayout, EveryActionRowStartsOnAMultipleOfFour) {
    const RowLayout layout = layout_of(5, {{1, 2, 3, 4, 5, 1081}, {7}});
    for (int i = 0; i < layout.row_count; ++i) {
        const RowEntry& entry = layout.rows[i];
        for (int a = 0; a < 5; ++a) EXPECT_EQ((entry.offset + a * row_stride(entry.hand_count)) % 4, 0);
    }
    EXPECT_EQ(row_stride(0), 0);
    EXPECT_EQ(row_stride(1081), 1084);
    EXPECT_EQ(row_stride(1084), 1084);
}

std::vector<uint8_t> saved_record(const LockRecord& record) {
    MemoryChannel channel(7);
    save_lock_record(channel, record);
    return channel.bytes;
}

LockRecord masked_record(const std::vector<uint8_t>& mask, uint32_t extra_flags = 0) {
    LockRecord record;
    record.flags = lock_flag_mask | extra_flags;
    record.lock_mask = std::make_unique<uint8_t[]>(mask.size());
    for (size_t h = 0; h < mask.size(); ++h) record.lock_mask[h] = mask[h];
    record.lock_mask_length = int32_t(mask.size());
    return record;
}

TEST(LockRecordSection, MaskIsWrittenAsRunsStartingWithZeros) {
    // First hand locked: the zero run in front has length 0. Any non-zero
    // byte counts as locked.
    const std::vector<uint8_t> bytes = saved_record(masked_record({1, 7, 0, 0, 0, 1}));
    const std::vector<uint8_t> expected = {
        2, 0, 0, 0,  // flags
        6, 0,        // hands
        4, 0,        // runs
        0, 0, 2, 0, 3, 0, 1, 0,
    };
    EXPECT_EQ(bytes, expected);

    LockRecord plain;
    plain.flags = lock_flag_node;
    EXPECT_EQ(saved_record(plain), (std::vector<uint8_t>{1, 0, 0, 0}));
}

TEST(LockRecordSection, RoundTripsAndRejectsAMaskOfTheWrongLength) {
    const std::vector<uint8_t> mask = {0, 0, 1, 1, 1, 0, 1, 0, 0};
    MemoryChannel channel(7);
    save_lock_record(channel, masked_record(mask, lock_flag_node));
    channel.rewind();
    LockRecord loaded;
    load_lock_record(channel, loaded, int(mask.size()));
    EXPECT_TRUE(channel.at_end());
    EXPECT_EQ(loaded.flags, lock_flag_mask | lock_flag_node);
    ASSERT_EQ(loaded.lock_mask_length, int(mask.size()));
    for (size_t h = 0; h < mask.size(); ++h) EXPECT_EQ(loaded.lock_mask[h], mask[h]) << h;

    channel.rewind();
    LockRecord other;
    EXPECT_ANY_THROW(load_lock_record(channel, other, 10));
}

TEST(LockRecordSection, RunsOfLengthZeroFlipAndShortRunsLeaveZeros) {
    // Runs 0, 0, 2, 1: two flips back to zeros, two zeros, one one; the last
    // hand is not covered by any run and stays 0.
    MemoryChannel channel(7);
    channel.bytes = {2, 0, 0, 0, 4, 0, 4, 0, 0, 0, 0, 0, 2, 0, 1, 0};
    channel.rewind();
    LockRecord loaded;
    load_lock_record(channel, loaded, 4);
    const std::vector<uint8_t> mask(loaded.lock_mask.get(), loaded.lock_mask.get() + 4);
    EXPECT_EQ(mask, (std::vector<uint8_t>{0, 0, 1, 0}));

    // Loading a record without a mask drops the one that was there.
    MemoryChannel plain(7);
    plain.bytes = {1, 0, 0, 0};
    plain.rewind();
    load_lock_record(plain, loaded, 4);
    EXPECT_EQ(loaded.flags, lock_flag_node);
    EXPECT_EQ(loaded.lock_mask, nullptr);
    EXPECT_EQ(frozen_hands(loaded, 4), nullptr);
}

}  // namespace
