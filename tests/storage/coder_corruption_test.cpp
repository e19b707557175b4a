// Damaged coded streams: random bit flips and truncations of valid streams of
// every coder. A reader may decode garbage, but it must stay inside its
// buffers and the row it is given, and it must end. Run under the sanitizer
// build to have every stray access reported.
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <vector>

#include "coder_streams.h"
#include "legacy_coder_writers.h"
#include "storage/codes/row_transform.h"

namespace {

constexpr uint32_t guard = 0x5a5a5a5a;

struct Sample {
    MemoryStreams streams;
    std::vector<int> counts;
};

std::vector<std::vector<uint32_t>> sample_rows(std::mt19937& random) {
    std::vector<std::vector<uint32_t>> rows;
    rows.push_back(sample_row(random, 700, 400, 0.4));
    for (int r = 0; r < 24; ++r) {
        rows.push_back(r % 6 == 5 ? sample_row(random, 1 + static_cast<int>(random() % 700), 100000, 0.5)
                                  : nudged_row(random, rows.back(), 400));
    }
    return rows;
}

Sample write_sample(int coder, std::mt19937& random) {
    const auto rows = sample_rows(random);
    Sample sample;
    std::vector<std::pair<std::vector<uint32_t>, int>> coded;
    std::vector<uint32_t> a(max_row_values), b(max_row_values);
    uint64_t counts[256] = {};
    for (size_t r = 0; r < rows.size(); ++r) {
        const int n = static_cast<int>(rows[r].size());
        const uint32_t* previous = r > 0 && rows[r].size() <= rows[r - 1].size() ? rows[r - 1].data() : nullptr;
        const TransformedRow t = transform_row32(rows[r].data(), previous, n, a.data(), b.data());
        coded.emplace_back(std::vector<uint32_t>(t.values, t.values + n), t.flag);
        count_symbols(t.values, n, counts);
        sample.counts.push_back(n);
    }
    std::unique_ptr<CodecWriter> writer;
    if (coder == entropy_coder_id) writer = open_writer(entropy_coder_id, sample.streams.writing(), nullptr);
    if (coder == run_coder_id) writer = std::make_unique<RunCoder>(sample.streams.writing());
    if (coder == range_coder_id) writer = std::make_unique<RangeCoder>(sample.streams.writing(), counts);
    for (const auto& [values, flag] : coded) writer->write(values.data(), static_cast<int>(values.size()), flag);
    writer.reset();
    return sample;
}

// Reads every row of the sample, alternately as 32-bit and 16-bit rows,
// chaining previous rows as the writer did. Returns whether all reads said ok.
bool read_all(MemoryStreams& streams, const std::vector<int>& counts) {
    std::unique_ptr<CodecReader> reader;
    try {
        reader = open_reader(streams.reading());
    } catch (const std::runtime_error&) {
        return false;
    }
    if (!reader) return false;
    bool ok = true;
    std::vector<uint32_t> previous32, row32;
    for (size_t r = 0; r < counts.size(); ++r) {
        const int n = counts[r];
        row32.assign(static_cast<size_t>(n) + 1, guard);
        const bool chain = r > 0 && n <= counts[r - 1];
        ok = reader->read32(row32.data(), chain ? previous32.data() : nullptr, n) && ok;
        EXPECT_EQ(row32[static_cast<size_t>(n)], guard) << "row " << r << " written past its end";
        row32.pop_back();
        previous32 = row32;
    }
    EXPECT_EQ(ok, reader->failure() == nullptr);
    return ok;
}

class CoderCorruption : public testing::TestWithParam<int> {};

TEST_P(CoderCorruption, FlipsAndTruncationsStayInBounds) {
    const int coder = GetParam();
    std::mt19937 random(1000 + coder);
    Sample sample = write_sample(coder, random);
    ASSERT_TRUE(read_all(sample.streams, sample.counts));

    std::vector<int> used;
    for (int s = 0; s < codec_stream_count; ++s) {
        if (!sample.streams.bytes[s].empty()) used.push_back(s);
    }
    int cuts = 0, noticed_cuts = 0;
    const int trials = coder == range_coder_id ? 400 : 1500;
    for (int trial = 0; trial < trials; ++trial) {
        MemoryStreams damaged = sample.streams;
        const int s = used[random() % used.size()];
        auto& bytes = damaged.bytes[s];
        const int kind = static_cast<int>(random() % 3);
        if (kind != 1) {
            // A few bit flips, often in the first bytes where the block
            // headers and table descriptions lie.
            const int flips = 1 + static_cast<int>(random() % 8);
            for (int f = 0; f < flips; ++f) {
                const size_t at = random() % 2 ? random() % std::min<size_t>(bytes.size(), 64) : random() % bytes.size();
                bytes[at] ^= static_cast<uint8_t>(1u << (random() % 8));
            }
        }
        if (kind != 0) bytes.resize(random() % bytes.size());
        const bool ok = read_all(damaged, sample.counts);
        if (kind == 1) {
            ++cuts;
            noticed_cuts += !ok;
        }
    }
    // Every byte the entropy coder writes is needed by some row, so a cut
    // stream is always noticed. The other coders pad their last chunks.
    if (coder == entropy_coder_id) {
        EXPECT_EQ(noticed_cuts, cuts);
    }
    EXPECT_GT(cuts, 0);
}

TEST(EntropyStreamCuts, EveryCutIsNoticed) {
    std::mt19937 random(77);
    Sample sample = write_sample(entropy_coder_id, random);
    for (int s = 0; s < codec_stream_count; ++s) {
        const size_t size = sample.streams.bytes[s].size();
        // Stream 0 cut to nothing has no id byte and gives no reader at all.
        for (size_t keep : {size_t{0}, size / 3, size / 2, size - 1}) {
            if (size == 0 || keep >= size) continue;
            MemoryStreams damaged = sample.streams;
            damaged.bytes[s].resize(keep);
            EXPECT_FALSE(read_all(damaged, sample.counts)) << "stream " << s << " cut to " << keep;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllCoders, CoderCorruption,
                         testing::Values(int{entropy_coder_id}, int{run_coder_id}, int{range_coder_id}));

}  // namespace
