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

// Kinds of rows a solve produces, and the ones that reach every field width.
enum class RowKind { zero, sparse, small, twelve_bit, wide16, wide32, mixed, extreme };
constexpr RowKind all_kinds[] = {RowKind::zero,   RowKind::sparse, RowKind::small, RowKind::twelve_bit,
                                 RowKind::wide16, RowKind::wide32, RowKind::mixed, RowKind::extreme};

uint32_t random_value(RowKind kind, std::mt19937& random, uint32_t top) {
    auto below = [&](uint64_t limit) { return static_cast<uint32_t>(random() % limit); };
    switch (kind) {
        case RowKind::zero: return 0;
        case RowKind::sparse: return below(10) < 8 ? 0 : 1 + below(top);
        case RowKind::small: return below(256);
        case RowKind::twelve_bit: return below(4096);
        case RowKind::wide16: return below(65536);
        case RowKind::wide32: return static_cast<uint32_t>(random());
        case RowKind::mixed: {
            // Every value of a random magnitude, so that neighbouring groups
            // take different codes.
            static const uint64_t limits[] = {1, 256, 4096, 65536, 1ull << 24, 1ull << 32};
            return below(limits[below(6)]);
        }
        case RowKind::extreme: {
            static const uint32_t edges[] = {0, 1, 255, 256, 4095, 4096, 65535, 65536, 0xffffff, 0xffffffff};
            return edges[below(10)];
        }
    }
    return 0;
}

template <class T>
std::vector<T> random_row(RowKind kind, int count, std::mt19937& random) {
    std::vector<T> row(count);
    const uint32_t top = static_cast<uint32_t>(std::min<uint64_t>(UINT32_MAX, (uint64_t{1} << (8 * sizeof(T))) - 1));
    for (auto& v : row) v = static_cast<T>(random_value(kind, random, top));
    return row;
}

std::vector<int> lengths_to_try() {
    std::vector<int> lengths;
    for (int n = 0; n <= 100; ++n) lengths.push_back(n);
    for (int n : {127, 128, 129, 255, 256, 257, 511, 999, 1000, 1081, 1225, 1325, 1326}) lengths.push_back(n);
    return lengths;
}

// Room for the worst case and a guard after it that no writer may touch.
constexpr int guard_bytes = 64;
constexpr uint8_t guard_value = 0xa5;

template <class T, class Encode>
Bytes encode_guarded(Encode encode, const std::vector<T>& row, int bound, const std::string& where) {
    Bytes out(bound + guard_bytes, guard_value);
    const int size = encode(row.data(), static_cast<int>(row.size()), out.data());
    EXPECT_LE(size, bound) << where;
    for (int i = bound; i < bound + guard_bytes; ++i) EXPECT_EQ(out[i], guard_value) << where << " wrote past bound";
    out.resize(size);
    return out;
}

// Decodes from a buffer holding exactly the code, so that a reader that looks
// past the end of its bytes is caught by the sanitizer build as well.
template <class T, class Decode>
std::vector<T> decode_exact(Decode decode, const Bytes& code, int count, const std::string& where) {
    std::vector<uint8_t> exact(code);
    std::vector<T> row(count + 1, T(0x5a));
    const int used = decode(exact.data(), exact.data() + exact.size(), count, row.data());
    EXPECT_EQ(used, static_cast<int>(code.size())) << where;
    EXPECT_EQ(row[count], T(0x5a)) << where << " wrote past the row";
    row.resize(count);
    return row;
}

template <class T>
void check_round_trips(int (*BlockRowCodec::*encode)(const T*, int, uint8_t*),
                       int (*BlockRowCodec::*decode)(const uint8_t*, const uint8_t*, int, T*),
                       int (*bound)(int)) {
    std::mt19937 random(12345);
    for (RowKind kind : all_kinds) {
        for (int count : lengths_to_try()) {
            const auto row = random_row<T>(kind, count, random);
            const std::string where = "kind " + std::to_string(int(kind)) + " length " + std::to_string(count);
            const Bytes reference = encode_guarded(scalar_block_row_codec.*encode, row, bound(count), where);
            for (const BlockRowCodec* writer : codecs()) {
                const Bytes code = encode_guarded(writer->*encode, row, bound(count), where + " " + writer->name);
                ASSERT_EQ(code, reference) << where << ": " << writer->name << " differs from the reference";
            }
            for (const BlockRowCodec* reader : codecs()) {
                EXPECT_EQ(decode_exact<T>(reader->*decode, reference, count, where), row) << where << " " << reader->name;
                // Any cut of the code is noticed rather than read past.
                if (!reference.empty()) {
                    std::vector<T> scratch(count);
                    const Bytes shorter(reference.begin(), reference.end() - 1);
                    EXPECT_EQ((reader->*decode)(shorter.data(), shorter.data() + shorter.size(), count, scratch.data()), -1)
                        << where << " " << reader->name;
                }
            }
        }
    }
}

}  // namespace

TEST(BlockRowCode, RowsOfEveryWidthRoundTripAndEveryVersionAgrees) {
    check_round_trips<uint16_t>(&BlockRowCodec::encode16, &BlockRowCodec::decode16, block_row_bound16);
    check_round_trips<uint32_t>(&BlockRowCodec::encode32, &BlockRowCodec::decode32, block_row_bound32);
    std::mt19937 random(777);
    for (RowKind kind : all_kinds) {
        for (int count : lengths_to_try()) {
            auto row = random_row<uint32_t>(kind, count, random);
            for (auto& v : row) v &= 0xffffff;
            const std::string where = "24-bit kind " + std::to_string(int(kind)) + " length " + std::to_string(count);
            const Bytes code = encode_guarded(encode_block_row24, row, block_row_bound24(count), where);
            EXPECT_EQ(decode_exact<uint32_t>(decode_block_row24, code, count, where), row) << where;
        }
    }
}

// ---- the layout, byte for byte ----------------------------------------------

template <class T>
Bytes encode_with(const BlockRowCodec& codec, const std::vector<T>& row) {
    Bytes out(block_row_bound(static_cast<int>(row.size()), sizeof(T)) + guard_bytes);
    int size;
    if constexpr (sizeof(T) == 2) {
        size = codec.encode16(row.data(), static_cast<int>(row.size()), out.data());
    } else {
        size = codec.encode32(row.data(), static_cast<int>(row.size()), out.data());
    }
    out.resize(size);
    return out;
}

TEST(BlockRowCode, ShortRowsHaveNoBlockAndOneModeBytePerGroup) {
    for (const BlockRowCodec* codec : codecs()) {
        EXPECT_EQ(encode_with<uint16_t>(*codec, {1, 2, 3, 4, 5}), (Bytes{1, 1, 2, 3, 4, 5})) << codec->name;
        EXPECT_EQ(encode_with<uint16_t>(*codec, {0x1234, 7}), (Bytes{3, 0x34, 0x12, 7, 0})) << codec->name;
        EXPECT_EQ(encode_with<uint32_t>(*codec, {1, 2, 3}), (Bytes{0, 1, 2, 3})) << codec->name;
        EXPECT_TRUE(encode_with<uint16_t>(*codec, {}).empty()) << codec->name;

        // 32 values: a control byte and no rest. 33: one more mode byte and value.
        std::vector<uint16_t> row(32, 0);
        EXPECT_EQ(encode_with(*codec, row), Bytes{0}) << codec->name;
        row.push_back(9);
        EXPECT_EQ(encode_with(*codec, row), (Bytes{0, 1, 9})) << codec->name;

        // Sixty-four zeros take two bytes.
        EXPECT_EQ(encode_with(*codec, std::vector<uint16_t>(64, 0)), (Bytes{0, 0})) << codec->name;
        EXPECT_EQ(encode_with(*codec, std::vector<uint32_t>(64, 0)), (Bytes{0, 0})) << codec->name;
    }
}

TEST(BlockRowCode, GroupCodeFollowsTheLargestValue) {
    struct Case {
        uint32_t largest;
        int code16, code32;
    };
    constexpr int field16[4] = {0, 8, 12, 16}, field32[4] = {0, 8, 16, 32};
    for (const Case& c : {Case{0, 0, 0}, Case{1, 1, 1}, Case{255, 1, 1}, Case{256, 2, 2}, Case{4095, 2, 2},
                          Case{4096, 3, 2}, Case{65535, 3, 2}, Case{65536, -1, 3}, Case{0xffffffff, -1, 3}}) {
        for (int group = 0; group < 4; ++group) {
            std::vector<uint32_t> row32(32, 0);
            row32[group * 8 + 5] = c.largest;
            const std::vector<uint16_t> row16(row32.begin(), row32.end());
            for (const BlockRowCodec* codec : codecs()) {
                if (c.code16 >= 0) {
                    const Bytes code = encode_with(*codec, row16);
                    EXPECT_EQ(code[0], c.code16 << (2 * group)) << c.largest << " in group " << group;
                    EXPECT_EQ(code.size(), 1u + field16[c.code16]) << c.largest;
                }
                const Bytes code = encode_with(*codec, row32);
                EXPECT_EQ(code[0], c.code32 << (2 * group)) << c.largest << " in group " << group;
                EXPECT_EQ(code.size(), 1u + field32[c.code32]) << c.largest;
            }
        }
    }
}

TEST(BlockRowCode, TwelveBitFieldIsThreeLittleEndianWords) {
    // Values 1..8 in group 0: first = 1 | 2 << 12 | 3 << 24, second =
    // 3 >> 8 | 4 << 4 | 5 << 16 | 6 << 28, third = 6 >> 4 | 7 << 8 | 8 << 20;
    // 4095 in the second group forces code 2 on a field of the top values.
    std::vector<uint16_t> row(32, 0);
    for (int i = 0; i < 8; ++i) row[i] = static_cast<uint16_t>(i == 0 ? 0x101 : i + 1);
    row[8] = 4095;
    row[15] = 0x800;
    const Bytes expected = {0x0a,                                                 // codes 2, 2, 0, 0
                            0x01, 0x21, 0x00, 0x03, 0x40, 0x00, 0x05, 0x60, 0x00, 0x07, 0x80, 0x00,
                            0xff, 0x0f, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80};
    for (const BlockRowCodec* codec : codecs()) {
        EXPECT_EQ(encode_with(*codec, row), expected) << codec->name;
        std::vector<uint16_t> back(32);
        EXPECT_EQ(codec->decode16(expected.data(), expected.data() + expected.size(), 32, back.data()), 25);
        EXPECT_EQ(back, row) << codec->name;
    }
}

TEST(BlockRowCode, RestModesOfTheWriterAndLenientModesOfTheReader) {
    for (const BlockRowCodec* codec : codecs()) {
        // 32-bit rest: bit 0 for a value in 256..65535, bit 1 for one above.
        EXPECT_EQ(encode_with<uint32_t>(*codec, {5, 255})[0], 0);
        EXPECT_EQ(encode_with<uint32_t>(*codec, {5, 300})[0], 1);
        EXPECT_EQ(encode_with<uint32_t>(*codec, {5, 70000})[0], 2);
        EXPECT_EQ(encode_with<uint32_t>(*codec, {300, 70000})[0], 3);
        // Full groups of eight in the rest follow the same rules.
        std::vector<uint32_t> eight(8, 1);
        eight[7] = 70000;
        EXPECT_EQ(encode_with(*codec, eight)[0], 2);
        eight[0] = 65535;
        EXPECT_EQ(encode_with(*codec, eight)[0], 3);

        // Readers: 16-bit modes other than 1 mean two bytes per value; 32-bit
        // modes other than 0 and 1 mean four.
        for (uint8_t mode : {0, 2, 3, 200}) {
            const Bytes two = {mode, 0x34, 0x12, 0x78, 0x56};
            std::vector<uint16_t> v16(2);
            EXPECT_EQ(codec->decode16(two.data(), two.data() + two.size(), 2, v16.data()), 5);
            EXPECT_EQ(v16, (std::vector<uint16_t>{0x1234, 0x5678})) << int(mode);
        }
        for (uint8_t mode : {2, 3, 7, 255}) {
            const Bytes four = {mode, 1, 2, 3, 4};
            uint32_t v = 0;
            EXPECT_EQ(codec->decode32(four.data(), four.data() + four.size(), 1, &v), 5);
            EXPECT_EQ(v, 0x04030201u) << int(mode);
        }
    }
    // 24-bit: 0, 1 and anything else for one, two and three bytes.
    uint32_t v[2];
    const Bytes three = {9, 1, 2, 3, 4, 5, 6};
    EXPECT_EQ(decode_block_row24(three.data(), three.data() + three.size(), 2, v), 7);
    EXPECT_EQ(v[0], 0x030201u);
    EXPECT_EQ(v[1], 0x060504u);
    std::vector<uint32_t> wide = {0x123456, 0, 1};
    Bytes code(block_row_bound24(3));
    code.resize(encode_block_row24(wide.data(), 3, code.data()));
    EXPECT_EQ(code, (Bytes{2, 0x56, 0x34, 0x12, 0, 0, 0, 1, 0, 0}));
}
