// Writers of the two coders that the program only reads (ids 0 and 1). They
// exist so that the readers can be tested on what such a writer produces.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "coder_streams.h"
#include "storage/codes/codec.h"
#include "storage/codes/range_coder.h"
#include "storage/codes/run_coder.h"
#include "storage/codes/split_tree.h"

class RunCoder final : public CodecWriter {
public:
    explicit RunCoder(StreamCallback callback);
    ~RunCoder() override;
    void write(const uint32_t* values, int count, int flag) override;

private:
    struct Chunk {
        uint8_t bytes[run_chunk_bytes] = {};
        uint32_t position = 0;  // in units
    };
    void put(int stream, Chunk& chunk, int unit_bits, uint32_t value);
    void put_bit(uint32_t bit) { put(run_bit_stream, bits_, 1, bit); }
    void put_value(uint32_t value);

    StreamCallback callback_;
    Chunk bits_;
    Chunk nibbles_;
    Chunk bytes_;
};

class RangeCoder final : public CodecWriter {
public:
    // `counts`: the 256 symbol counts of the head, which shape the tree.
    RangeCoder(StreamCallback callback, const uint64_t* counts);
    ~RangeCoder() override;
    void write(const uint32_t* values, int count, int flag) override;

private:
    void encode_bit(size_t model, int bit);
    void encode_tree_bits(size_t base, int bits, uint32_t value);
    void shift_low();

    StreamCallback callback_;
    SplitTree tree_;
    RangeModels models_;
    uint64_t low_ = 0;
    uint32_t range_ = 0xffffffff;
    uint8_t cache_ = 0;
    uint64_t cache_size_ = 1;
    std::vector<uint8_t> out_;
};

// A writer of either coder for `rows`; the range coder's head holds the
// symbol counts of the transformed rows, or none when `unweighted`.
std::unique_ptr<CodecWriter> open_legacy_writer(int id, StreamCallback callback, const RowList& rows, bool unweighted = false);
