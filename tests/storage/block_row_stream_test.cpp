#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "storage/block_row_stream.h"
#include "storage/codes/block_row_code.h"
#include "storage/memory_channel.h"

namespace {

// The rows of one group's pass, as 16-bit regrets or 32-bit strategy sums.
struct GroupRows {
    std::vector<std::vector<uint16_t>> narrow;
    std::vector<std::vector<uint32_t>> wide;
};

GroupRows make_rows(std::mt19937& random, int boards, int largest_hands) {
    GroupRows rows;
    for (int b = 0; b < boards; ++b) {
        const int hands = static_cast<int>(random() % (largest_hands + 1));
        for (int action = 0; action < 3; ++action) {
            std::vector<uint16_t> narrow(hands);
            std::vector<uint32_t> wide(hands);
            for (int h = 0; h < hands; ++h) {
                narrow[h] = random() % 3 == 0 ? static_cast<uint16_t>(random() >> (random() % 32)) : 0;
                wide[h] = static_cast<uint32_t>(random() >> (random() % 32));
            }
            rows.narrow.push_back(narrow);
            rows.wide.push_back(wide);
        }
    }
    return rows;
}

int64_t reserve_for(const GroupRows& rows, int value_bytes) {
    int64_t values = 0;
    for (const auto& row : rows.narrow) values += (row.size() + 3) & ~size_t{3};
    return block_stream_reserve_limit(values, value_bytes);
}

void write_pass(BlockRowStream& stream, const GroupRows& rows, bool wide) {
    stream.begin_write();
    for (size_t r = 0; r < rows.narrow.size(); ++r) {
        const int n = static_cast<int>(rows.narrow[r].size());
        if (wide) {
            stream.put_row32(rows.wide[r].data(), r > 0 ? rows.wide[r - 1].data() : nullptr, n);
        } else {
            stream.put_row16(rows.narrow[r].data(), r > 0 ? rows.narrow[r - 1].data() : nullptr, n);
        }
    }
    stream.end_write();
}

void expect_read_pass(BlockRowStream& stream, const GroupRows& rows, bool wide) {
    ASSERT_TRUE(stream.has_data());
    stream.begin_read();
    for (size_t r = 0; r < rows.narrow.size(); ++r) {
        const int n = static_cast<int>(rows.narrow[r].size());
        if (wide) {
            std::vector<uint32_t> row(n);
            stream.get_row32(row.data(), nullptr, n);
            ASSERT_EQ(row, rows.wide[r]) << "row " << r;
        } else {
            std::vector<uint16_t> row(n);
            stream.get_row16(row.data(), nullptr, n);
            ASSERT_EQ(row, rows.narrow[r]) << "row " << r;
        }
    }
    stream.end_read();
}

}  // namespace

TEST(BlockRowStream, PassesOfBothWidthsReadBackInOrder) {
    std::mt19937 random(42);
    for (bool wide : {false, true}) {
        const GroupRows first = make_rows(random, 44, 1326);
        BlockRowStream stream(reserve_for(first, wide ? 4 : 2));
        EXPECT_FALSE(stream.has_data());

        write_pass(stream, first, wide);
        expect_read_pass(stream, first, wide);
        // A pass that was not modified is read again as it stands.
        expect_read_pass(stream, first, wide);

        // The next iteration writes fewer, smaller rows into the same pages.
        const int64_t high = stream.block.high_commit;
        uint8_t* const base = stream.block.base;
        const GroupRows second = make_rows(random, 10, 300);
        write_pass(stream, second, wide);
        EXPECT_EQ(stream.block.high_commit, high);
        EXPECT_EQ(stream.block.base, base);
        expect_read_pass(stream, second, wide);

        // A pass of no rows leaves nothing to read.
        write_pass(stream, GroupRows{}, wide);
        EXPECT_FALSE(stream.has_data());
    }
}

TEST(BlockRowStream, IncompressibleRowsFitTheReserveOfTheirValues) {
    // Every value at the widest code, rows of every length class: the worst
    // case the reserve is sized for.
    for (int hands : {1, 7, 9, 31, 33, 36, 44, 47, 1324, 1326}) {
        for (bool wide : {false, true}) {
            GroupRows rows;
            for (int r = 0; r < 48 * 4; ++r) {
                rows.narrow.emplace_back(hands, uint16_t{65535});
                rows.wide.emplace_back(hands, 0xffffffffu);
            }
            BlockRowStream stream(reserve_for(rows, wide ? 4 : 2));
            write_pass(stream, rows, wide);
            expect_read_pass(stream, rows, wide);
        }
    }
}

TEST(BlockRowStream, SectionSavesAndLoadsTheRows) {
    std::mt19937 random(7);
    const GroupRows rows = make_rows(random, 20, 1000);
    BlockRowStream stream(reserve_for(rows, 2));
    write_pass(stream, rows, false);

    MemoryChannel channel(7);
    stream.save(channel);
    // The loaded stream takes the stored limit, whatever it was made with.
    channel.rewind();
    BlockRowStream loaded(16384);
    loaded.load(channel);
    EXPECT_EQ(loaded.block.reserve_limit, stream.block.reserve_limit);
    EXPECT_TRUE(channel.at_end());
    expect_read_pass(loaded, rows, false);

    // An empty stream saves and loads as one without data.
    MemoryChannel empty_channel(7);
    BlockRowStream(16384).save(empty_channel);
    EXPECT_EQ(empty_channel.bytes.size(), 20u);
    empty_channel.rewind();
    BlockRowStream empty(16384);
    empty.load(empty_channel);
    EXPECT_FALSE(empty.has_data());
}

TEST(BlockRowStream, InconsistentSectionsAreRefused) {
    struct Section {
        int32_t capacity;
        uint64_t limit;
        uint64_t size;
    };
    // Rows beyond the stored limit; a limit that is no whole number of commit
    // steps; more bytes promised than stored; a negative capacity.
    for (const Section& s : {Section{100, 16384, 20000}, Section{10, 16000, 10}, Section{200, 16384, 100},
                             Section{-1, 16384, 0}}) {
        MemoryChannel channel(7);
        channel.bytes.resize(20 + s.size);
        std::memcpy(channel.bytes.data(), &s.capacity, 4);
        std::memcpy(channel.bytes.data() + 4, &s.limit, 8);
        std::memcpy(channel.bytes.data() + 12, &s.size, 8);
        channel.rewind();
        BlockRowStream stream(16384);
        try {
            stream.load(channel);
            ADD_FAILURE() << "section accepted: " << s.capacity << " " << s.limit << " " << s.size;
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find("invalid file"), std::string::npos) << error.what();
        }
    }
}

// A stream damaged in its file runs out of rows before the walk does: the
// rest read as zeros, the shell hears of it once, and the next write heals it.
TEST(BlockRowStream, ReadingPastTheRowsGivesZerosAndIsReportedOnce) {
    static std::string told;
    told.clear();
    storage_damage_listener = [](const char* reason) { told += std::string(reason) + "\n"; };
    BlockRowStream stream(1 << 16);
    std::vector<uint16_t> row(40, 3);
    stream.begin_write();
    stream.put_row16(row.data(), nullptr, 40);
    stream.end_write();
    stream.begin_read();
    stream.get_row16(row.data(), nullptr, 40);
    EXPECT_EQ(row[39], 3);
    // Past the one row are only the bytes promised to it; each read takes at
    // least two of them.
    for (int r = 0; r < 100; ++r) stream.get_row16(row.data(), nullptr, 40);
    EXPECT_EQ(row, std::vector<uint16_t>(40, 0));
    std::vector<uint32_t> wide(40, 5);
    stream.get_row32(wide.data(), nullptr, 40);
    EXPECT_EQ(wide, std::vector<uint32_t>(40, 0));
    stream.end_read();
    storage_damage_listener = nullptr;
    EXPECT_EQ(told, "row stream overrun\n");

    std::fill(row.begin(), row.end(), 7);
    stream.begin_write();
    stream.put_row16(row.data(), nullptr, 40);
    stream.end_write();
    stream.begin_read();
    std::vector<uint16_t> back(40);
    stream.get_row16(back.data(), nullptr, 40);
    EXPECT_EQ(back, row);
}

TEST(BlockRowStreamDeathTest, WritingPastTheReserveIsFatal) {
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            BlockRowStream stream(16384);
            std::vector<uint16_t> row(1326, 65535);
            stream.begin_write();
            for (int r = 0; r < 10; ++r) stream.put_row16(row.data(), nullptr, 1326);
        },
        testing::ExitedWithCode(1), "^out of memory \\(not enough reserved\\)\n$");
}
