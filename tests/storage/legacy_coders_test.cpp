// The readers of the coders that older files hold, on what their writers make.
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <vector>

#include "coder_streams.h"
#include "legacy_coder_writers.h"
#include "storage/codes/row_transform.h"

namespace {

std::vector<std::vector<uint32_t>> legacy_rows() {
    std::mt19937 random(31);
    std::vector<std::vector<uint32_t>> rows;
    for (int count = 0; count <= 20; ++count) rows.push_back(sample_row(random, count, 100, 0.5));
    rows.push_back(std::vector<uint32_t>(1326, 0));
    rows.push_back(sample_row(random, 1326, 3, 0.9));
    rows.push_back(sample_row(random, 1081, 2000, 0.3));    // past the 1023 symbols
    rows.push_back(sample_row(random, 1081, 300000, 0.3));  // past 16 bits of escape
    rows.push_back(std::vector<uint32_t>{0xffffffffu, 0, 0x7fffffffu, 1, 1024, 1025, 66560, 66559});
    rows.push_back(sample_row(random, 900, 5000, 0.4));
    for (int r = 0; r < 20; ++r) rows.push_back(nudged_row(random, rows.back(), 5000));
    return rows;
}

const uint32_t* previous_of(const std::vector<std::vector<uint32_t>>& rows, size_t r) {
    return r > 0 && rows[r].size() <= rows[r - 1].size() ? rows[r - 1].data() : nullptr;
}

// Transforms all rows, as the row stream would before writing.
std::vector<std::pair<std::vector<uint32_t>, int>> transformed(const std::vector<std::vector<uint32_t>>& rows) {
    std::vector<std::pair<std::vector<uint32_t>, int>> out;
    std::vector<uint32_t> a(max_row_values), b(max_row_values);
    for (size_t r = 0; r < rows.size(); ++r) {
        const int n = static_cast<int>(rows[r].size());
        const TransformedRow t = transform_row32(rows[r].data(), previous_of(rows, r), n, a.data(), b.data());
        out.emplace_back(std::vector<uint32_t>(t.values, t.values + n), t.flag);
    }
    return out;
}

void expect_reader_rebuilds(MemoryStreams& streams, const std::vector<std::vector<uint32_t>>& rows) {
    auto reader = open_reader(streams.reading());
    ASSERT_NE(reader, nullptr);
    std::vector<std::vector<uint32_t>> back;
    for (size_t r = 0; r < rows.size(); ++r) {
        back.emplace_back(rows[r].size());
        ASSERT_TRUE(reader->read32(back[r].data(), previous_of(back, r), static_cast<int>(rows[r].size())));
        ASSERT_EQ(back[r], rows[r]) << "row " << r;
    }
    EXPECT_EQ(reader->failure(), nullptr);
}

TEST(LegacyCoderReaders, ReadWhatTheirWritersWrote) {
    const auto rows = legacy_rows();
    const auto coded = transformed(rows);
    MemoryStreams run_streams;
    {
        RunCoder writer(run_streams.writing());
        for (const auto& [values, flag] : coded) writer.write(values.data(), int(values.size()), flag);
    }
    EXPECT_GT(run_streams.bytes[1].size(), size_t{run_chunk_bytes});
    expect_reader_rebuilds(run_streams, rows);

    // The range coder's head holds the symbol counts that shape its tree;
    // without any the tree splits evenly.
    uint64_t counts[256] = {};
    for (const auto& [values, flag] : coded) count_symbols(values.data(), int(values.size()), counts);
    for (bool weighted : {true, false}) {
        const uint64_t none[256] = {};
        MemoryStreams streams;
        {
            RangeCoder writer(streams.writing(), weighted ? counts : none);
            for (const auto& [values, flag] : coded) writer.write(values.data(), int(values.size()), flag);
        }
        expect_reader_rebuilds(streams, rows);
    }
}

TEST(RangeCoderReader, WrongHeadIsRefused) {
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
