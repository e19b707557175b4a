// Readers of the row sections of a tree file. A section holds rows one after
// the other, either each in the block row code behind its byte count, or all
// of them entropy coded in 24 streams that precede the rows' use. Damage that
// shows while reading fails the load with "invalid file".
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "storage/codes/byte_channel.h"
#include "storage/codes/codec.h"

class RowDecoder {
public:
    virtual ~RowDecoder() = default;
    virtual void get_row32(uint32_t* row, const uint32_t* previous, int count) = 0;
    virtual void get_row16(uint16_t* row, const uint16_t* previous, int count) = 0;
};

// Each row: u16 byte count, then that many bytes of block row code. Previous
// rows are not used.
class BlockRowDecoder final : public RowDecoder {
public:
    explicit BlockRowDecoder(ByteChannel& channel) : channel_(channel) {}
    void get_row32(uint32_t* row, const uint32_t* previous, int count) override;
    void get_row16(uint16_t* row, const uint16_t* previous, int count) override;

private:
    // Reads the next row's code into `code_`.
    void read_code();

    ByteChannel& channel_;
    std::vector<uint8_t> code_;
};

// 24 times u64 size and that many bytes, read when the decoder is made; rows
// are then decoded from them. A row of no values reads nothing.
class EntropyRowDecoder final : public RowDecoder {
public:
    explicit EntropyRowDecoder(ByteChannel& channel);
    void get_row32(uint32_t* row, const uint32_t* previous, int count) override;
    void get_row16(uint16_t* row, const uint16_t* previous, int count) override;

private:
    static size_t move(void* context, int stream, void* bytes, size_t count);
    // The reader, or the load fails.
    CodecReader& usable_reader();
    void check(bool decoded);

    std::vector<uint8_t> streams_[codec_stream_count];
    size_t read_at_[codec_stream_count] = {};
    std::unique_ptr<CodecReader> reader_;
    std::string open_failure_;
};

// The decoder of the next section: from version 6 on a byte tells which
// (non-zero: block rows); older files always hold entropy-coded streams.
std::unique_ptr<RowDecoder> open_row_section(ByteChannel& channel);
