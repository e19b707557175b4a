// The row stream of the "low" to "high" levels: rows in the block row code,
// back to back in a reserved block. The code needs no state across rows, so
// previous rows are not used.
#pragma once

#include <cstdint>

#include "storage/reserved_block.h"
#include "storage/row_stream.h"

// Address range a stream needs for `values` values of `value_bytes` (2 or 4)
// each: every value at full width plus a control byte per 32, in whole steps
// of the commit granularity.
constexpr int64_t block_stream_reserve_limit(int64_t values, int value_bytes) {
    return ((values + 31) / 32 + values * value_bytes + block_stream_granularity_mask) &
           ~block_stream_granularity_mask;
}

class BlockRowStream final : public RowStream {
public:
    explicit BlockRowStream(int64_t reserve_limit) : block(reserve_limit) {}

    void begin_write() override;
    void end_write() override;
    bool has_data() const override { return capacity > 0; }
    void begin_read() override { position = 0; }
    void end_read() override;

    void put_row32(const uint32_t* row, const uint32_t* previous, int count) override;
    void put_row16(const uint16_t* row, const uint16_t* previous, int count) override;
    void get_row32(uint32_t* row, const uint32_t* previous, int count) override;
    void get_row16(uint16_t* row, const uint16_t* previous, int count) override;

    // Section: i32 capacity, u64 reserve limit, u64 logical size s, s bytes.
    int64_t reserve_limit() const override { return block.reserve_limit; }
    void save(ByteChannel& channel) const override;
    void load(ByteChannel& channel) override;

    ReservedBlock block;
    int32_t granularity_mask = block_stream_granularity_mask;
    int32_t capacity = 0;   // bytes promised to writers so far
    int32_t position = 0;   // offset of the next row, for writing and reading
    uint64_t raw_bytes = 0;  // bytes of the rows as given, before coding

private:
    // Makes sure a row of at most `bound` coded bytes fits at `position`.
    void make_room(int bound);
    // Where the next row's code starts and where the readable bytes end.
    const uint8_t* read_at() const { return block.base + position; }
    const uint8_t* read_end() const { return block.base + block.logical; }
    // Moves past a decoded row; false when the row's code ran past the end.
    bool advance_read(int used);
    bool damaged_ = false;  // the rows ran past the end; reads give zeros until the next write
};
