// The readers of the coders that older files hold, on streams that their
// writers made from these rows: groups of zeros, values of a nibble, a byte,
// a word and 32 bits, a row coded against the one before it, and escapes
// past the range coder's 1023 symbols and past 16 bits.
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "coder_streams.h"
#include "storage/codes/range_coder.h"
#include "storage/codes/run_coder.h"

namespace {

const RowList rows = {{0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 20, 0, 300, 0, 70000, 0xffffffffu, 1, 2},
                      {0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 21, 0, 301, 0, 70001, 0xffffffffu, 1, 2},
                      {5000, 0, 0, 1024, 1025, 66560, 66559}};

TEST(LegacyCoderReaders, RunCoderStreamReadsBack) {
    MemoryStreams streams;
    streams.bytes[0] = {run_coder_id,                                                   // then the bytes
                        0x27, 0x26, 0xff, 0x57, 0x02, 0xff, 0x56, 0x02, 0xff, 0xff, 0xff, 0xdf, 0x22, 0x02,
                        0x00, 0xff, 0xff, 0xff, 0xe0, 0x22, 0x02, 0x00, 0xff, 0x0f, 0x27, 0xff, 0x0e, 0x27,
                        0xff, 0xff, 0x07, 0xff, 0xff, 0xff, 0xfd, 0xff, 0x01, 0x00};
    streams.bytes[run_bit_stream] = {0xfc, 0x7f, 0xf9, 0xb9, 0x07};
    streams.bytes[run_nibble_stream] = {0x45, 0xff, 0xff, 0xff, 0x13, 0x01, 0x01, 0x01, 0xff, 0x1f, 0x0f};
    EXPECT_TRUE(rows_read_back(streams, rows));
    streams.bytes[run_byte_stream].pop_back();
    RowList back;
    EXPECT_FALSE(read_rows(streams, rows, back)) << "a stream that runs out is damage";
}

TEST(LegacyCoderReaders, RangeCoderStreamReadsBackAndAWrongHeadIsRefused) {
    // The head: the id, a magic word and the counts of the symbols, which
    // shape the tree of the values.
    MemoryStreams streams;
    streams.bytes[0] = {range_coder_id, 'C', 'm', 'p', 'r'};
    streams.bytes[0].resize(5 + range_count_bytes);
    for (const auto& [symbol, count] : {std::pair{0, 4}, {1, 5}, {3, 1}, {4, 1}, {5, 1}, {38, 1}, {39, 1}, {255, 8}})
        streams.bytes[0][5 + 8 * symbol] = uint8_t(count);
    const std::vector<uint8_t> coded = {0x00, 0x40, 0xd9, 0x62, 0xa8, 0x78, 0xc3, 0xa3, 0xeb, 0x27, 0xb4, 0xeb,
                                        0xf8, 0x1c, 0x4a, 0x9d, 0xab, 0x07, 0xb3, 0x8d, 0x77, 0x19, 0xb3, 0xa5,
                                        0x95, 0x85, 0x8c, 0xd6, 0x8b, 0x12, 0x2f, 0x58, 0x29, 0xa2, 0x06, 0xc2,
                                        0xf9, 0xc6, 0x16, 0x11, 0x29, 0xf7, 0x85, 0x28, 0x00, 0x00};
    streams.bytes[0].insert(streams.bytes[0].end(), coded.begin(), coded.end());
    EXPECT_TRUE(rows_read_back(streams, rows));

    streams.bytes[0][4] = 'x';
    try {
        open_reader(streams.reading());
        FAIL() << "a wrong head was accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "compressor wrong id");
    }
}

}  // namespace
