#include "storage/entropy_row_stream.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "coder_streams.h"
#include "memory_channel.h"

namespace {

// A group's rows of the walk's kind: each a small change of the one before.
RowList make_group(std::mt19937& random, uint32_t largest) {
    RowList rows = {sample_row(random, 1080, largest, 0.5)};
    while (rows.size() < 36) rows.push_back(nudged_row(random, rows.back(), largest));
    return rows;
}

void write_group(EntropyRowStream& stream, const RowList& rows) {
    stream.begin_write();
    for (size_t r = 0; r < rows.size(); ++r) stream.put_row32(rows[r].data(), previous_of(rows, r), int(rows[r].size()));
    stream.end_write();
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
    const RowList group = make_group(random, 300);
    EntropyRowStream stream(entropy_stream_reserve_limit(36 * 1100));
    write_group(stream, group);
    // Spoil the block header of the mask stream: stream 0 holds the id byte
    // and one block, stream 1 starts right after it.
    stream.block.base[stream.stream_size[0] + 4] ^= 0x40;
    static std::string told;
    told.clear();
    storage_damage_listener = [](const char* reason) { told += std::string(reason) + "\n"; };
    stream.begin_read();
    std::vector<uint32_t> row(1100, 9);
    for (int r = 0; r < 3; ++r) stream.get_row32(row.data(), nullptr, 1080);
    stream.end_read();
    storage_damage_listener = nullptr;
    EXPECT_EQ(told, "fse error\n");
    EXPECT_EQ(row[0], 0u);
}

TEST(EntropyRowStreamDeathTest, RowsBeyondTheReserveAreFatal) {
    // Rows that do not shrink to two bytes a value outgrow their reserve.
    std::mt19937 random(5);
    std::vector<uint32_t> row(1326);
    for (auto& v : row) v = random();
    EntropyRowStream stream(4096);
    stream.begin_write();
    EXPECT_EXIT(
        {
            for (int r = 0; r < 4; ++r) stream.put_row32(row.data(), nullptr, 1326);
            stream.end_write();
        },
        testing::ExitedWithCode(1), "");
}

}  // namespace
