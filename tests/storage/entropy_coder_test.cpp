#include "storage/codes/entropy_coder.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "coder_streams.h"

namespace {

uint32_t le32(const std::vector<uint8_t>& bytes, size_t at) {
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

void write_rows(MemoryStreams& streams, const RowList& rows) {
    write_rows(*open_writer(entropy_coder_id, streams.writing(), nullptr), rows);
}

TEST(EntropyCoder, RowsOfEveryKindRoundTripAcrossChunks) {
    std::mt19937 random(21);
    RowList rows;
    for (int count = 0; count <= 40; ++count) rows.push_back(sample_row(random, count, 300, 0.5));
    rows.push_back(std::vector<uint32_t>(1326, 0));
    rows.push_back(sample_row(random, 1326, 3, 0.95));
    rows.push_back(sample_row(random, 1081, 70000, 0.2));
    rows.push_back(sample_row(random, 1326, 0xffffffffu, 0.1));
    rows.push_back({0, 0xffffffffu, 0, 0x80000000u, 0x7fffffffu, 1, 65535, 65536, 65537, 255, 256, 257});
    // River groups, each row a small change of the one before, enough to fill
    // several 64 KiB chunks of the busy streams.
    for (int r = 0; r < 600; ++r)
        rows.push_back(r % 50 == 0 ? sample_row(random, 1326, 600, 0.3) : nudged_row(random, rows.back(), 600));
    MemoryStreams streams;
    write_rows(streams, rows);
    EXPECT_TRUE(rows_read_back(streams, rows));
    EXPECT_EQ(le32(streams.bytes[1], 0), entropy_chunk_bytes) << "the mask stream should span chunks";
}

TEST(EntropyCoder, StreamLayout) {
    // Coded values 1, 17, 257 and 70001: x = 0 in context 0, 16 in context 0
    // (capped code 15 next), 256 escapes to two bytes from context 15, and
    // 70000 escapes to four.
    MemoryStreams values;
    {
        auto writer = open_writer(entropy_coder_id, values.writing(), nullptr);
        std::vector<uint32_t> row{1, 17, 257, 70001};
        writer->write(row.data(), 4, 0);
    }
    // Each of these streams is one block, stored or a run.
    auto stored = [&](int s) {
        const auto& bytes = values.bytes[s];
        const uint32_t raw = le32(bytes, 0);
        EXPECT_LE(le32(bytes, 4), 1u) << s;
        if (le32(bytes, 4) == 1) return std::vector<uint8_t>(raw, bytes[8]);
        return std::vector<uint8_t>(bytes.begin() + 8, bytes.end());
    };
    EXPECT_EQ(stored(1), std::vector<uint8_t>{0x0f});
    EXPECT_EQ(stored(2), (std::vector<uint8_t>{0, 16}));
    EXPECT_EQ(stored(17), (std::vector<uint8_t>{255, 255}));
    EXPECT_EQ(stored(18), (std::vector<uint8_t>{0x00, 0xff}));  // 256, then the 65535 marker
    EXPECT_EQ(stored(19), (std::vector<uint8_t>{0x01, 0xff}));
    EXPECT_EQ(stored(20), std::vector<uint8_t>{70000 & 0xff});
    EXPECT_EQ(stored(21), std::vector<uint8_t>{(70000 >> 8) & 0xff});
    EXPECT_EQ(stored(22), std::vector<uint8_t>{70000 >> 16});
    EXPECT_EQ(stored(23), std::vector<uint8_t>{0});
}

// Every byte the entropy coder writes is needed by some row, so any cut of
// any stream is noticed.
TEST(EntropyCoder, EveryCutIsNoticed) {
    std::mt19937 random(77);
    RowList rows = {sample_row(random, 700, 400, 0.4)};
    for (int r = 0; r < 24; ++r)
        rows.push_back(r % 6 == 5 ? sample_row(random, 1 + int(random() % 700), 100000, 0.5)
                                  : nudged_row(random, rows.back(), 400));
    MemoryStreams streams;
    write_rows(streams, rows);
    for (int s = 0; s < codec_stream_count; ++s) {
        const size_t size = streams.bytes[s].size();
        for (size_t keep : {size_t{0}, size / 3, size / 2, size - 1}) {
            if (size == 0 || keep >= size) continue;
            MemoryStreams damaged = streams;
            damaged.bytes[s].resize(keep);
            RowList back;
            EXPECT_FALSE(read_rows(damaged, rows, back)) << "stream " << s << " cut to " << keep;
        }
    }
}

}  // namespace
