#include "storage/codes/row_decoder.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <vector>

#include "coder_streams.h"
#include "memory_channel.h"
#include "storage/codes/block_row_code.h"
#include "storage/codes/row_transform.h"

namespace {

// Little-endian fields appended byte by byte.
template <class T>
void put(MemoryChannel& file, T value) {
    for (size_t k = 0; k < sizeof(T); ++k) file.bytes.push_back(static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * k)));
}

void put_bytes(MemoryChannel& file, const uint8_t* data, size_t count) {
    for (size_t k = 0; k < count; ++k) file.bytes.push_back(data[k]);
}

// A section of entropy-coded rows as a tree file holds it. Rows of no values
// are not written, as their reader reads nothing for them.
void write_entropy_section(MemoryChannel& file, const std::vector<std::vector<uint16_t>>& rows) {
    MemoryStreams streams;
    {
        auto writer = open_writer(entropy_coder_id, streams.writing(), nullptr);
        std::vector<uint32_t> a(max_row_values), b(max_row_values);
        for (const auto& row : rows) {
            if (row.empty()) continue;
            const TransformedRow t = transform_row16(row.data(), nullptr, static_cast<int>(row.size()), a.data(), b.data());
            writer->write(t.values, static_cast<int>(row.size()), t.flag);
        }
    }
    for (const auto& stream : streams.bytes) {
        put<uint64_t>(file, stream.size());
        put_bytes(file, stream.data(), stream.size());
    }
}

std::vector<std::vector<uint16_t>> section_rows() {
    std::mt19937 random(61);
    std::vector<std::vector<uint16_t>> rows;
    for (int count : {1081, 0, 3, 1326, 0, 47}) {
        const auto wide = sample_row(random, count, 1000, 0.5);
        rows.emplace_back(wide.begin(), wide.end());
    }
    return rows;
}

TEST(RowDecoder, EntropySectionsOfEveryVersion) {
    const auto rows = section_rows();
    for (int version : {5, 7}) {
        MemoryChannel file(version);
        if (version >= 6) put<uint8_t>(file, 0);
        write_entropy_section(file, rows);
        put<uint32_t>(file, 0xfeedu);  // what follows the section
        file.rewind();
        auto decoder = open_row_section(file);
        for (const auto& row : rows) {
            std::vector<uint16_t> back(row.size());
            decoder->get_row16(back.data(), nullptr, static_cast<int>(row.size()));
            EXPECT_EQ(back, row);
        }
        EXPECT_EQ(read_field<uint32_t>(file), 0xfeedu);
    }
}

TEST(RowDecoder, BlockRowSections) {
    const auto rows = section_rows();
    MemoryChannel file(7);
    put<uint8_t>(file, 1);
    for (const auto& row : rows) {
        std::vector<uint8_t> code(static_cast<size_t>(block_row_bound16(static_cast<int>(row.size()))) + 64);
        const int bytes = encode_block_row16(row.data(), static_cast<int>(row.size()), code.data());
        put<uint16_t>(file, static_cast<uint16_t>(bytes));
        put_bytes(file, code.data(), static_cast<size_t>(bytes));
    }
    file.rewind();
    auto decoder = open_row_section(file);
    for (const auto& row : rows) {
        std::vector<uint16_t> back(row.size());
        decoder->get_row16(back.data(), nullptr, static_cast<int>(row.size()));
        EXPECT_EQ(back, row);
    }
    EXPECT_TRUE(file.at_end());
}

TEST(RowDecoder, SizesThatDisagreeWithTheSectionFailTheLoad) {
    std::vector<uint16_t> back(64);
    // A stream size past the end of the file ends at the channel, without
    // first taking memory for the size it claims.
    MemoryChannel cut(5);
    put<uint64_t>(cut, uint64_t{1} << 50);
    cut.rewind();
    EXPECT_THROW(open_row_section(cut), std::runtime_error);

    // A block row whose byte count disagrees with its code.
    MemoryChannel block(7);
    put<uint8_t>(block, 1);
    put<uint16_t>(block, 3);
    put<uint8_t>(block, 0);
    put<uint16_t>(block, 0);
    block.rewind();
    auto block_decoder = open_row_section(block);
    EXPECT_THROW(block_decoder->get_row16(back.data(), nullptr, 64), std::runtime_error);
}

}  // namespace
