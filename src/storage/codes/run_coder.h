// Reader of the run coder (id 1), a coder of older files.
//
// Its three streams come in chunks of 256 bytes: stream 1 holds single bits
// (64-bit little-endian words, low bit first), stream 2 holds 4-bit fields
// (low nibble first) and stream 0, after the id byte, plain bytes. A row is
// its flag bit, then per group of 8 values (and a last short group) one bit
// telling whether any value is not 0 and, when set, one bit per value. A
// non-zero value's x = value - 1 is a nibble when below 15; else nibble 15
// and a byte when below 255; else byte 255 and two bytes when below 65535;
// else 65535 and four bytes. Multi-byte fields are little-endian.
#pragma once

#include <cstdint>

#include "storage/codes/transformed_row_reader.h"

constexpr int run_chunk_bytes = 256;
constexpr int run_byte_stream = 0;
constexpr int run_bit_stream = 1;
constexpr int run_nibble_stream = 2;

class RunCoderReader final : public TransformedRowReader {
public:
    // The id byte has been read already.
    explicit RunCoderReader(StreamCallback callback)
        : TransformedRowReader("run coder stream ends early"), callback_(callback) {}

private:
    // One chunk of one stream, read in `unit`-bit pieces.
    struct Chunk {
        uint8_t bytes[run_chunk_bytes];
        uint32_t position = 0;  // in units
        uint32_t available = 0;
    };

    uint32_t take(int stream, Chunk& chunk, int unit_bits);
    uint32_t bit() { return take(run_bit_stream, bits_, 1); }
    uint32_t nibble() { return take(run_nibble_stream, nibbles_, 4); }
    uint32_t byte() { return take(run_byte_stream, bytes_, 8); }
    uint32_t value();
    bool decode_values(uint32_t* values, int count, int& flag) override;

    StreamCallback callback_;
    Chunk bits_;
    Chunk nibbles_;
    Chunk bytes_;
};
