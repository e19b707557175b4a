// The entropy coder (id 2): the one coder that the program writes.
//
// A transformed row is split over 24 byte streams by what the bytes are, so
// that each stream holds bytes of one kind and codes well on its own:
//
//   0       the id byte, then each row's flag
//   1       one byte per 8 values, bit i set when value i is not 0
//   2..17   value - 1 of each non-zero value, capped at 255, in the stream of
//           its context: 2 + min(x, 15) for the previous non-zero value's
//           x = value - 1 in the row (0 for the first)
//   18, 19  low and high byte of value - 1 when the capped byte is 255;
//           255 in both when even that does not reach
//   20..23  the four bytes of value - 1 beyond that
//
// Each stream is gathered in a 64 KiB chunk. A full chunk, and every chunk at
// the end, goes to the owner as one block: raw length (4 bytes), coded length
// (4 bytes: 0 stored, 1 a run of one byte, more: FSE coded) and the data.
#pragma once

#include <cstdint>

#include "storage/codes/codec.h"
#include "storage/codes/transformed_row_reader.h"

constexpr uint32_t entropy_chunk_bytes = 65536;

// The block prefix: raw and coded length, little-endian.
constexpr uint32_t entropy_block_header_bytes = 8;
// The reason that a damaged entropy-coded stream reports.
constexpr const char* fse_error_text = "fse error";

class EntropyCoder final : public CodecWriter {
public:
    // Writes the id byte to stream 0. `statistics` may be null.
    EntropyCoder(StreamCallback callback, CoderStatistics* statistics);
    ~EntropyCoder() override;
    EntropyCoder(const EntropyCoder&) = delete;
    EntropyCoder& operator=(const EntropyCoder&) = delete;

    void write(const uint32_t* values, int count, int flag) override;

private:
    void put(int stream, uint8_t byte) {
        if (fill_[stream] == limit_[stream]) make_room(stream);
        chunk_[stream][fill_[stream]++] = byte;
    }
    void put_value(uint32_t value, int& context);
    void make_room(int stream);
    void flush_chunk(int stream);

    StreamCallback callback_;
    CoderStatistics* statistics_;
    uint8_t* chunk_[codec_stream_count] = {};
    uint32_t fill_[codec_stream_count] = {};
    uint32_t limit_[codec_stream_count] = {};  // 0 until the chunk exists
    uint8_t* work_ = nullptr;                  // block header and coded data
};

class EntropyCoderReader final : public TransformedRowReader {
public:
    // The id byte has been read already.
    explicit EntropyCoderReader(StreamCallback callback);
    ~EntropyCoderReader() override;
    EntropyCoderReader(const EntropyCoderReader&) = delete;
    EntropyCoderReader& operator=(const EntropyCoderReader&) = delete;

private:
    uint8_t get(int stream) {
        if (position_[stream] == fill_[stream]) return refill(stream);
        return chunk_[stream][position_[stream]++];
    }
    uint32_t get_value(int& context);
    uint8_t refill(int stream);
    bool take_next_block(int stream);
    bool decode_values(uint32_t* values, int count, int& flag) override;

    StreamCallback callback_;
    uint8_t* chunk_[codec_stream_count] = {};
    uint32_t position_[codec_stream_count] = {};
    uint32_t fill_[codec_stream_count] = {};
    uint8_t* coded_ = nullptr;  // one coded block and the padding its decoder reads past
};
