#include "storage/codes/entropy_coder.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "coder_streams.h"
#include "storage/codes/row_transform.h"

namespace {

uint32_t le32(const std::vector<uint8_t>& bytes, size_t at) {
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

// Writes rows as the row stream does: transform, then the coder.
void write_rows(MemoryStreams& streams, const std::vector<std::vector<uint32_t>>& rows, bool chain,
                CoderStatistics* statistics = nullptr) {
    auto writer = open_writer(entropy_coder_id, streams.writing(), statistics);
    ASSERT_NE(writer, nullptr);
    std::vector<uint32_t> a(max_row_values), b(max_row_values);
    for (size_t r = 0; r < rows.size(); ++r) {
        const uint32_t* previous = chain && r > 0 && rows[r].size() <= rows[r - 1].size() ? rows[r - 1].data() : nullptr;
        const TransformedRow t = transform_row32(rows[r].data(), previous, static_cast<int>(rows[r].size()), a.data(), b.data());
        writer->write(t.values, static_cast<int>(rows[r].size()), t.flag);
    }
}

void expect_rows_read_back(MemoryStreams& streams, const std::vector<std::vector<uint32_t>>& rows, bool chain) {
    auto reader = open_reader(streams.reading());
    ASSERT_NE(reader, nullptr);
    std::vector<std::vector<uint32_t>> back;
    for (size_t r = 0; r < rows.size(); ++r) {
        back.emplace_back(rows[r].size() + 1, 0xabcdef);
        const uint32_t* previous = chain && r > 0 && rows[r].size() <= rows[r - 1].size() ? back[r - 1].data() : nullptr;
        ASSERT_TRUE(reader->read32(back[r].data(), previous, static_cast<int>(rows[r].size()))) << r;
        EXPECT_EQ(back[r].back(), 0xabcdefu) << "wrote past row " << r;
        back[r].pop_back();
        ASSERT_EQ(back[r], rows[r]) << "row " << r;
    }
    EXPECT_EQ(reader->failure(), nullptr);
}

TEST(EntropyCoder, RowsOfEveryKindRoundTrip) {
    std::mt19937 random(21);
    std::vector<std::vector<uint32_t>> rows;
    for (int count = 0; count <= 40; ++count) rows.push_back(sample_row(random, count, 300, 0.5));
    rows.push_back(std::vector<uint32_t>(1326, 0));                    // all zero
    rows.push_back(sample_row(random, 1326, 3, 0.95));                 // sparse
    rows.push_back(sample_row(random, 1081, 20, 0.3));                 // small values
    rows.push_back(sample_row(random, 1081, 70000, 0.2));              // past 16 bits
    rows.push_back(sample_row(random, 1326, 0xffffffffu, 0.1));        // full width
    std::vector<uint32_t> extremes{0, 0xffffffffu, 0, 0x80000000u, 0x7fffffffu, 1, 65535, 65536, 65537, 255, 256, 257};
    rows.push_back(extremes);
    // A river group: each row a small change of the one before.
    rows.push_back(sample_row(random, 1081, 5000, 0.4));
    for (int r = 0; r < 30; ++r) rows.push_back(nudged_row(random, rows.back(), 5000));
    for (bool chain : {false, true}) {
        MemoryStreams streams;
        write_rows(streams, rows, chain);
        expect_rows_read_back(streams, rows, chain);
    }
}

TEST(EntropyCoder, ManyRowsCrossChunkBoundaries) {
    // Enough rows to fill several 64 KiB chunks of the busy streams.
    std::mt19937 random(22);
    std::vector<std::vector<uint32_t>> rows;
    rows.push_back(sample_row(random, 1326, 600, 0.3));
    for (int r = 0; r < 600; ++r) {
        rows.push_back(r % 50 == 0 ? sample_row(random, 1326, 600, 0.3) : nudged_row(random, rows.back(), 600));
    }
    CoderStatistics statistics;
    MemoryStreams streams;
    write_rows(streams, rows, true, &statistics);
    EXPECT_GT(streams.bytes[1].size(), 0u);
    EXPECT_EQ(statistics.rows, rows.size());
    EXPECT_GT(statistics.previous_row_rows, rows.size() / 2);  // neighbouring rows code against each other
    EXPECT_GE(statistics.blocks, 4u);
    expect_rows_read_back(streams, rows, true);
    // Every block of the mask stream holds a full chunk but the last.
    size_t at = 0;
    int blocks = 0;
    while (at < streams.bytes[1].size()) {
        const uint32_t raw = le32(streams.bytes[1], at);
        const uint32_t coded = le32(streams.bytes[1], at + 4);
        at += 8 + (coded == 0 ? raw : coded);
        ++blocks;
        if (at < streams.bytes[1].size()) {
            EXPECT_EQ(raw, entropy_chunk_bytes);
        }
    }
    EXPECT_GT(blocks, 1);
}

TEST(EntropyCoder, StreamLayout) {
    // An all-zero row: the flag and one mask byte per 8 values, nothing else.
    MemoryStreams streams;
    {
        auto writer = open_writer(entropy_coder_id, streams.writing(), nullptr);
        std::vector<uint32_t> zeros(100, 0);
        writer->write(zeros.data(), 100, 0);
    }
    EXPECT_EQ(streams.bytes[0].size(), 1u + 8 + 1);  // id, block header, the flag as a run of one
    EXPECT_EQ(streams.bytes[0][0], entropy_coder_id);
    EXPECT_EQ(le32(streams.bytes[1], 0), 13u);  // 12 full groups and a short one
    EXPECT_EQ(le32(streams.bytes[1], 4), 1u);   // one byte repeated
    EXPECT_EQ(streams.bytes[1].size(), 9u);
    for (int s = 2; s < codec_stream_count; ++s) EXPECT_TRUE(streams.bytes[s].empty()) << s;

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
        const uint32_t coded = le32(bytes, 4);
        EXPECT_LE(coded, 1u) << s;
        if (coded == 1) return std::vector<uint8_t>(raw, bytes[8]);
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

TEST(EntropyCoder, BlockOfEqualBytesCodesAsOneByteRun) {
    // 65536 × 8 zero values fill the mask stream with exactly one chunk of
    // zero bytes.
    MemoryStreams streams;
    {
        auto writer = open_writer(entropy_coder_id, streams.writing(), nullptr);
        std::vector<uint32_t> zeros(1024, 0);
        for (int r = 0; r < 512; ++r) writer->write(zeros.data(), 1024, 0);
    }
    ASSERT_EQ(streams.bytes[1].size(), 9u);
    EXPECT_EQ(le32(streams.bytes[1], 0), 65536u);
    EXPECT_EQ(le32(streams.bytes[1], 4), 1u);
    EXPECT_EQ(streams.bytes[1][8], 0);
    // The flags: 512 zero bytes, also a run.
    EXPECT_EQ(le32(streams.bytes[0], 1), 512u);
    EXPECT_EQ(le32(streams.bytes[0], 5), 1u);
}

TEST(Codec, FactoriesKnowTheirIds) {
    MemoryStreams streams;
    EXPECT_EQ(open_writer(run_coder_id, streams.writing(), nullptr), nullptr);  // only read
    EXPECT_EQ(open_reader(streams.reading()), nullptr);                         // no id byte
    streams.bytes[0].push_back(3);
    EXPECT_EQ(open_reader(streams.reading()), nullptr);
    streams.bytes[0][0] = entropy_coder_id;
    auto reader = open_reader(streams.reading());
    ASSERT_NE(reader, nullptr);
    EXPECT_TRUE(reader->undoes_transform());
    // Asking for a row that was never written is damage, not a crash.
    std::vector<uint32_t> row(10, 7);
    EXPECT_FALSE(reader->read32(row.data(), nullptr, 10));
    EXPECT_EQ(row, std::vector<uint32_t>(10, 0));
    EXPECT_STREQ(reader->failure(), "fse error");
}

}  // namespace
