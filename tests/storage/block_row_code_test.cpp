#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "shell/protocol/processor.h"
#include "storage/codes/block_row_code.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Every implementation of the 16- and 32-bit code that this processor runs.
std::vector<const BlockRowCodec*> codecs() {
    std::vector<const BlockRowCodec*> all = {&scalar_block_row_codec};
    if (avx2_runs()) all.push_back(&avx2_block_row_codec);
    return all;
}

// Rows a solve produces: all zero, sparse, of one width throughout, of a
// random width per value so that neighbouring groups take different codes,
// and of the edge values of every width.
template <class T>
std::vector<T> random_row(int kind, int count, std::mt19937& random) {
    static const uint64_t limits[] = {1, 256, 4096, 65536, 1ull << 24, 1ull << 32};
    static const uint32_t edges[] = {0, 1, 255, 256, 4095, 4096, 65535, 65536, 0xffffff, 0xffffffff};
    std::vector<T> row(count);
    for (T& v : row) {
        switch (kind) {
            case 0: v = 0; break;
            case 1: v = T(random() % 10 < 8 ? 0 : random()); break;
            case 2: v = T(random() % 256); break;
            case 3: v = T(random() % 4096); break;
            case 4: v = T(random() % 65536); break;
            case 5: v = T(random()); break;
            case 6: v = T(random() % limits[random() % 6]); break;
            default: v = T(edges[random() % 10]); break;
        }
    }
    return row;
}

std::vector<int> lengths_to_try() {
    std::vector<int> lengths;
    for (int n = 0; n <= 100; ++n) lengths.push_back(n);
    for (int n : {127, 128, 129, 255, 256, 257, 511, 999, 1000, 1081, 1225, 1325, 1326}) lengths.push_back(n);
    return lengths;
}

// Encodes into room for the worst case and a guard after it that no writer
// may touch.
template <class T, class Encode>
Bytes encode_guarded(Encode encode, const std::vector<T>& row, int bound, const std::string& where) {
    Bytes out(bound + 64, 0xa5);
    const int size = encode(row.data(), int(row.size()), out.data());
    EXPECT_LE(size, bound) << where;
    EXPECT_EQ(std::count(out.begin() + bound, out.end(), 0xa5), 64) << where << " wrote past bound";
    out.resize(size);
    return out;
}

// Decodes from a buffer holding exactly the code, so that a reader that looks
// past the end of its bytes is caught by the sanitizer build as well; a code
// cut by one byte is noticed rather than read past.
template <class T, class Decode>
void expect_decodes(Decode decode, const Bytes& code, const std::vector<T>& row, const std::string& where) {
    const int count = int(row.size());
    std::vector<T> back(count + 1, T(0x5a));
    EXPECT_EQ(decode(code.data(), code.data() + code.size(), count, back.data()), int(code.size())) << where;
    EXPECT_EQ(back.back(), T(0x5a)) << where << " wrote past the row";
    back.pop_back();
    EXPECT_EQ(back, row) << where;
    if (code.empty()) return;
    const Bytes shorter(code.begin(), code.end() - 1);
    EXPECT_EQ(decode(shorter.data(), shorter.data() + shorter.size(), count, back.data()), -1) << where;
}

template <class T>
void check_round_trips(int (*BlockRowCodec::*encode)(const T*, int, uint8_t*),
                       int (*BlockRowCodec::*decode)(const uint8_t*, const uint8_t*, int, T*), int (*bound)(int)) {
    std::mt19937 random(12345);
    for (int kind = 0; kind < 8; ++kind) {
        for (int count : lengths_to_try()) {
            const auto row = random_row<T>(kind, count, random);
            const std::string where = "kind " + std::to_string(kind) + " length " + std::to_string(count);
            const Bytes reference = encode_guarded(scalar_block_row_codec.*encode, row, bound(count), where);
            for (const BlockRowCodec* codec : codecs()) {
                ASSERT_EQ(encode_guarded(codec->*encode, row, bound(count), where), reference) << where << " " << codec->name;
                expect_decodes(codec->*decode, reference, row, where + " " + codec->name);
            }
        }
    }
}

template <class T>
Bytes encode_with(const BlockRowCodec& codec, const std::vector<T>& row) {
    Bytes out(block_row_bound(int(row.size()), sizeof(T)) + 64);
    if constexpr (sizeof(T) == 2) out.resize(codec.encode16(row.data(), int(row.size()), out.data()));
    else out.resize(codec.encode32(row.data(), int(row.size()), out.data()));
    return out;
}

}  // namespace

TEST(BlockRowCode, RowsOfEveryWidthRoundTripAndEveryVersionAgrees) {
    check_round_trips<uint16_t>(&BlockRowCodec::encode16, &BlockRowCodec::decode16, block_row_bound16);
    check_round_trips<uint32_t>(&BlockRowCodec::encode32, &BlockRowCodec::decode32, block_row_bound32);
}

// ---- the layout, byte for byte ----------------------------------------------

TEST(BlockRowCode, ShortRowsHaveNoBlockAndOneModeBytePerGroup) {
    for (const BlockRowCodec* codec : codecs()) {
        EXPECT_EQ(encode_with<uint16_t>(*codec, {1, 2, 3, 4, 5}), (Bytes{1, 1, 2, 3, 4, 5})) << codec->name;
        EXPECT_EQ(encode_with<uint16_t>(*codec, {0x1234, 7}), (Bytes{3, 0x34, 0x12, 7, 0})) << codec->name;
        EXPECT_EQ(encode_with<uint32_t>(*codec, {1, 2, 3}), (Bytes{0, 1, 2, 3})) << codec->name;
        // 32-bit rest: bit 0 for a value in 256..65535, bit 1 for one above.
        EXPECT_EQ(encode_with<uint32_t>(*codec, {5, 300})[0], 1);
        EXPECT_EQ(encode_with<uint32_t>(*codec, {5, 70000})[0], 2);
        EXPECT_EQ(encode_with<uint32_t>(*codec, {300, 70000})[0], 3);
        // 32 values: a control byte and no rest. 33: one more mode byte and value.
        std::vector<uint16_t> row(32, 0);
        EXPECT_EQ(encode_with(*codec, row), Bytes{0}) << codec->name;
        row.push_back(9);
        EXPECT_EQ(encode_with(*codec, row), (Bytes{0, 1, 9})) << codec->name;
    }
}

TEST(BlockRowCode, TwelveBitFieldIsThreeLittleEndianWords) {
    // Values 1..8 in group 0: first = 1 | 2 << 12 | 3 << 24, second =
    // 3 >> 8 | 4 << 4 | 5 << 16 | 6 << 28, third = 6 >> 4 | 7 << 8 | 8 << 20;
    // 4095 in the second group forces code 2 on a field of the top values.
    std::vector<uint16_t> row(32, 0);
    for (int i = 0; i < 8; ++i) row[i] = uint16_t(i == 0 ? 0x101 : i + 1);
    row[8] = 4095;
    row[15] = 0x800;
    const Bytes expected = {0x0a,                                                 // codes 2, 2, 0, 0
                            0x01, 0x21, 0x00, 0x03, 0x40, 0x00, 0x05, 0x60, 0x00, 0x07, 0x80, 0x00,
                            0xff, 0x0f, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80};
    for (const BlockRowCodec* codec : codecs()) EXPECT_EQ(encode_with(*codec, row), expected) << codec->name;
}
