// The readers of the coders that older files hold, on what their writers make.
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <vector>

#include "coder_streams.h"
#include "legacy_coder_writers.h"
#include "storage/codes/row_transform.h"
#include "storage/codes/split_tree.h"

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

TEST(RunCoderReader, ReadsWhatTheRunCoderWrote) {
    const auto rows = legacy_rows();
    MemoryStreams streams;
    {
        RunCoder writer(streams.writing());
        for (const auto& [values, flag] : transformed(rows)) writer.write(values.data(), static_cast<int>(values.size()), flag);
    }
    EXPECT_EQ(streams.bytes[0][0], run_coder_id);
    EXPECT_EQ(streams.bytes[1].size() % run_chunk_bytes, 0u);  // chunks go out whole
    EXPECT_GT(streams.bytes[1].size(), static_cast<size_t>(run_chunk_bytes));
    expect_reader_rebuilds(streams, rows);
}

TEST(RangeCoderReader, ReadsWhatTheRangeCoderWrote) {
    const auto rows = legacy_rows();
    const auto coded = transformed(rows);
    uint64_t counts[256] = {};
    for (const auto& [values, flag] : coded) count_symbols(values.data(), static_cast<int>(values.size()), counts);
    for (bool weighted : {true, false}) {
        uint64_t none[256] = {};
        MemoryStreams streams;
        {
            RangeCoder writer(streams.writing(), weighted ? counts : none);
            for (const auto& [values, flag] : coded) writer.write(values.data(), static_cast<int>(values.size()), flag);
        }
        EXPECT_EQ(streams.bytes[0][0], range_coder_id);
        EXPECT_EQ(std::string(streams.bytes[0].begin() + 1, streams.bytes[0].begin() + 5), "Cmpr");
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

// Decodes a symbol by the decisions of the reader's walk.
int walk_to_symbol(const SplitTree& tree, int symbol, int& depth) {
    int node = 0, low = 0, high = split_tree_symbols;
    depth = 0;
    while (high - low > 1) {
        const SplitNode n = tree.nodes[node];
        EXPECT_GT(n.split, low);
        EXPECT_LT(n.split, high);
        ++depth;
        if (symbol >= n.split) {
            low = n.split;
            node = n.right;
        } else {
            high = n.split;
            node = node + 1;
        }
        EXPECT_LT(node, split_tree_nodes + (high - low <= 1 ? 1 : 0));
    }
    return low;
}

TEST(SplitTree, EverySymbolHasItsLeafAndHeavySymbolsSitHigh) {
    std::mt19937 random(41);
    SplitTree tree;
    for (int trial = 0; trial < 50; ++trial) {
        uint64_t counts[256] = {};
        if (trial > 0) {
            for (auto& c : counts) c = random() % 4 == 0 ? random() % (trial * 1000) : 0;
        }
        if (trial == 49) {
            // Sums past 64 bits must not break the tree.
            for (auto& c : counts) c = UINT64_MAX / 3;
        }
        build_split_tree(counts, tree);
        for (int s = 0; s < split_tree_symbols; ++s) {
            int depth;
            ASSERT_EQ(walk_to_symbol(tree, s, depth), s) << trial;
        }
    }
    // No weight at all: an even split at the root.
    uint64_t none[256] = {};
    build_split_tree(none, tree);
    EXPECT_EQ(tree.nodes[0].split, 512);
    // One heavy symbol: its leaf is one decision below the root's left side.
    uint64_t heavy[256] = {};
    heavy[0] = 1000;
    heavy[200] = 1;
    build_split_tree(heavy, tree);
    EXPECT_EQ(tree.nodes[0].split, 1);
    int depth;
    walk_to_symbol(tree, 0, depth);
    EXPECT_EQ(depth, 1);
    walk_to_symbol(tree, 200, depth);
    EXPECT_LT(depth, 5);
}

}  // namespace
