// The readers of the coders that older files hold, on what their writers make.
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <vector>

#include "legacy_coder_writers.h"

namespace {

TEST(LegacyCoderReaders, ReadWhatTheirWritersWrote) {
    std::mt19937 random(31);
    RowList rows;
    for (int count = 0; count <= 20; ++count) rows.push_back(sample_row(random, count, 100, 0.5));
    rows.push_back(std::vector<uint32_t>(1326, 0));
    rows.push_back(sample_row(random, 1326, 3, 0.9));
    rows.push_back(sample_row(random, 1081, 2000, 0.3));    // past the 1023 symbols
    rows.push_back(sample_row(random, 1081, 300000, 0.3));  // past 16 bits of escape
    rows.push_back({0xffffffffu, 0, 0x7fffffffu, 1, 1024, 1025, 66560, 66559});
    rows.push_back(sample_row(random, 900, 5000, 0.4));
    for (int r = 0; r < 20; ++r) rows.push_back(nudged_row(random, rows.back(), 5000));

    // The run coder's chunks go out whole; the range coder's tree splits
    // evenly without counts in its head.
    for (const auto& [id, unweighted] : {std::pair{run_coder_id, false}, {range_coder_id, false}, {range_coder_id, true}}) {
        MemoryStreams streams;
        write_rows(*open_legacy_writer(id, streams.writing(), rows, unweighted), rows);
        EXPECT_EQ(streams.bytes[0][0], id);
        EXPECT_TRUE(rows_read_back(streams, rows)) << int(id) << " " << unweighted;
    }
}

TEST(LegacyCoderReaders, WrongRangeCoderHeadIsRefused) {
    MemoryStreams streams;
    streams.bytes[0] = {range_coder_id, 'C', 'm', 'p', 'x'};
    streams.bytes[0].resize(1 + 4 + range_count_bytes + 5);
    try {
        open_reader(streams.reading());
        FAIL() << "a wrong head was accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "compressor wrong id");
    }
    // A head cut short is the same error.
    streams.bytes[0] = {range_coder_id, 'C', 'm', 'p', 'r', 0, 0};
    EXPECT_THROW(open_reader(streams.reading()), std::runtime_error);
}

}  // namespace
