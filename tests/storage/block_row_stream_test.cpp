#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "storage/block_row_stream.h"
#include "storage/memory_channel.h"

namespace {

// Stored rows of every length at the widest code fill a block stream to
// exactly what it reserves for them.
void expect_incompressible_rows_fit(int hands, bool wide) {
    const int rows = 48 * 4;
    BlockRowStream stream(block_stream_reserve_limit(int64_t{rows} * ((hands + 3) & ~3), wide ? 4 : 2));
    const std::vector<uint16_t> narrow(hands, 65535);
    const std::vector<uint32_t> full(hands, 0xffffffffu);
    stream.begin_write();
    for (int r = 0; r < rows; ++r) {
        if (wide) stream.put_row32(full.data(), nullptr, hands);
        else stream.put_row16(narrow.data(), nullptr, hands);
    }
    stream.end_write();
    stream.begin_read();
    for (int r = 0; r < rows; ++r) {
        if (wide) {
            std::vector<uint32_t> back(hands);
            stream.get_row32(back.data(), nullptr, hands);
            ASSERT_EQ(back, full);
        } else {
            std::vector<uint16_t> back(hands);
            stream.get_row16(back.data(), nullptr, hands);
            ASSERT_EQ(back, narrow);
        }
    }
    stream.end_read();
}

}  // namespace

TEST(BlockRowStream, IncompressibleRowsFitTheReserveOfTheirValues) {
    for (int hands : {1, 7, 9, 31, 33, 36, 44, 47, 1324, 1326})
        for (bool wide : {false, true}) expect_incompressible_rows_fit(hands, wide);
}

TEST(BlockRowStream, InconsistentSectionsAreRefused) {
    // Rows beyond the stored limit; a limit that is no whole number of commit
    // steps; more bytes promised than stored; a negative capacity.
    using Section = std::tuple<int32_t, uint64_t, uint64_t>;  // capacity, limit, size
    for (const auto& [capacity, limit, size] :
         {Section{100, 16384, 20000}, Section{10, 16000, 10}, Section{200, 16384, 100}, Section{-1, 16384, 0}}) {
        MemoryChannel channel(7);
        channel.bytes.resize(20 + size);
        std::memcpy(channel.bytes.data(), &capacity, 4);
        std::memcpy(channel.bytes.data() + 4, &limit, 8);
        std::memcpy(channel.bytes.data() + 12, &size, 8);
        channel.rewind();
        EXPECT_THROW(BlockRowStream(16384).load(channel), std::runtime_error) << capacity << " " << limit << " " << size;
    }
}

// A stream damaged in its file runs out of rows before the walk does: the
// rest read as zeros and the shell hears of it once.
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
}
