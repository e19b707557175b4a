#include "storage/entropy_row_stream.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "coder_streams.h"
#include "memory_channel.h"

namespace {

// The rows of one group as a packed store passes them: for each action, the
// rows of the river cards in order, the previous row given when this row is
// not longer than it.
struct Group {
    std::vector<std::vector<uint32_t>> rows;
};

Group make_group(std::mt19937& random, int actions, uint32_t largest) {
    Group group;
    for (int a = 0; a < actions; ++a) {
        for (int r = 0; r < 12; ++r) {
            const int n = 1000 + static_cast<int>(random() % 80);
            group.rows.push_back(r == 0 ? sample_row(random, n, largest, 0.5) : nudged_row(random, group.rows.back(), largest));
            group.rows.back().resize(r == 0 ? n : group.rows.back().size() - random() % 3);
        }
    }
    return group;
}

const uint32_t* previous_row(const std::vector<std::vector<uint32_t>>& rows, size_t r) {
    return r % 12 != 0 && rows[r].size() <= rows[r - 1].size() ? rows[r - 1].data() : nullptr;
}

void write_group(EntropyRowStream& stream, const Group& group) {
    stream.begin_write();
    for (size_t r = 0; r < group.rows.size(); ++r) {
        stream.put_row32(group.rows[r].data(), previous_row(group.rows, r), static_cast<int>(group.rows[r].size()));
    }
    stream.end_write();
}

void expect_group(EntropyRowStream& stream, const Group& group) {
    ASSERT_TRUE(stream.has_data());
    stream.begin_read();
    std::vector<std::vector<uint32_t>> back;
    for (size_t r = 0; r < group.rows.size(); ++r) {
        back.emplace_back(group.rows[r].size());
        stream.get_row32(back[r].data(), previous_row(back, r), static_cast<int>(back[r].size()));
        ASSERT_EQ(back[r], group.rows[r]) << "row " << r;
    }
    stream.end_read();
}

TEST(EntropyRowStream, SectionWhoseStreamsOverrunItIsRefused) {
    EntropyRowStream loaded(entropy_stream_reserve_limit(30 * 1100));
    MemoryChannel bad(7);
    for (int s = 0; s < codec_stream_count; ++s) {
        write_field<int32_t>(bad, 100);
        write_field<int32_t>(bad, 100);
    }
    write_field<uint64_t>(bad, 4096);
    write_field<uint64_t>(bad, 1000);
    bad.rewind();
    EXPECT_THROW(loaded.load(bad), std::runtime_error);
}

TEST(EntropyRowStream, DamageReadsAsZerosAndIsReportedOnce) {
    std::mt19937 random(53);
    const Group group = make_group(random, 1, 300);
    EntropyRowStream stream(entropy_stream_reserve_limit(13 * 1100));
    write_group(stream, group);
    // Spoil the block header of the mask stream: stream 0 holds the id byte
    // and one block, stream 1 starts right after it.
    stream.block.base[stream.stream_size[0] + 4] ^= 0x40;
    static std::string told;
    told.clear();
    storage_damage_listener = [](const char* reason) { told += std::string(reason) + "\n"; };
    stream.begin_read();
    std::vector<uint32_t> row(1100, 9);
    for (int r = 0; r < 3; ++r) stream.get_row32(row.data(), nullptr, static_cast<int>(group.rows[r].size()));
    stream.end_read();
    storage_damage_listener = nullptr;
    EXPECT_EQ(told, "fse error\n");
    EXPECT_EQ(row[0], 0u);
}

TEST(EntropyRowStream, ThreadsKeepTheirOwnGrowthBuffers) {
    auto work = [](int seed, bool* ok) {
        std::mt19937 random(seed);
        EntropyRowStream a(entropy_stream_reserve_limit(40 * 1100));
        EntropyRowStream b(entropy_stream_reserve_limit(40 * 1100));
        const Group group_a = make_group(random, 3, 1000);
        const Group group_b = make_group(random, 3, 70000);
        for (int pass = 0; pass < 5; ++pass) {
            write_group(a, group_a);
            GrowthBuffers* reused = nullptr;
            b.begin_write();
            reused = b.buffers;  // the set that a gave back
            b.end_write();
            write_group(b, group_b);
            if (pass > 0 && reused == nullptr) *ok = false;
        }
        expect_group(a, group_a);
        expect_group(b, group_b);
    };
    bool ok[2] = {true, true};
    std::thread first(work, 1, &ok[0]);
    std::thread second(work, 2, &ok[1]);
    first.join();
    second.join();
    EXPECT_TRUE(ok[0] && ok[1]);
}

TEST(EntropyRowStreamDeathTest, RowsBeyondTheReserveAreFatal) {
    // Rows that do not shrink to two bytes a value outgrow their reserve.
    EXPECT_EXIT(
        {
            EntropyRowStream stream(4096);
            std::mt19937 random(5);
            std::vector<uint32_t> row(1326);
            for (auto& v : row) v = random();
            stream.begin_write();
            for (int r = 0; r < 4; ++r) stream.put_row32(row.data(), nullptr, 1326);
            stream.end_write();
        },
        testing::ExitedWithCode(1), "");
}

}  // namespace
