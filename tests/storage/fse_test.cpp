#include "storage/codes/fse.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "storage/codes/fse_table.h"

namespace {

std::vector<uint8_t> coded_buffer(size_t raw) { return std::vector<uint8_t>(fse_work_bytes(raw) + fse_input_padding); }

// Bytes drawn from a geometric distribution: small values common, like the
// context streams of the entropy coder.
std::vector<uint8_t> skewed_bytes(std::mt19937& random, size_t size, double p) {
    std::geometric_distribution<int> draw(p);
    std::vector<uint8_t> bytes(size);
    for (auto& b : bytes) b = static_cast<uint8_t>(std::min(draw(random), 255));
    return bytes;
}

size_t round_trip(const std::vector<uint8_t>& source) {
    std::vector<uint8_t> coded = coded_buffer(source.size());
    const size_t length = fse_compress(source.data(), source.size(), coded.data());
    if (length <= 1) return length;
    std::vector<uint8_t> back(source.size());
    EXPECT_TRUE(fse_decompress(coded.data(), length, back.data(), back.size()));
    EXPECT_EQ(back, source);
    return length;
}

TEST(Fse, SkewedBlocksOfEverySizeRoundTrip) {
    std::mt19937 random(1);
    for (size_t size : {2, 3, 17, 100, 1000, 4095, 4096, 30000, 65536})
        for (double p : {0.9, 0.5, 0.1, 0.02}) round_trip(skewed_bytes(random, size, p));
}

// A block must use every bit it has: one with a spare byte between its table
// and its bits (the last bits the reader would come to) is damaged, even
// though every symbol decodes before the reader gets there.
TEST(Fse, BitsLeftOverAreDamage) {
    std::mt19937 random(3);
    for (size_t size : {100, 4096, 65536}) {
        const std::vector<uint8_t> source = skewed_bytes(random, size, 0.3);
        std::vector<uint8_t> coded = coded_buffer(size);
        const size_t length = fse_compress(source.data(), size, coded.data());
        ASSERT_GT(length, 1u) << size;
        FseCounts counts;
        const size_t header = read_fse_header(coded.data(), length, counts);
        ASSERT_GT(header, 0u);
        std::vector<uint8_t> padded(coded.begin(), coded.begin() + length);
        padded.insert(padded.begin() + header, uint8_t{0x5a});
        padded.resize(padded.size() + fse_input_padding);
        std::vector<uint8_t> back(size);
        EXPECT_FALSE(fse_decompress(padded.data(), length + 1, back.data(), size)) << size;
    }
}

}  // namespace
