// The row stream of the densest levels: rows go through the row transform and
// the entropy coder, whose 24 byte streams are gathered in per-thread growth
// buffers while a pass writes and then laid back to back in a reserved block.
//
// The coded size of a pass is not known until its end, and a worker writes
// the streams of one group after another; so the bytes first go to buffers
// that belong to the worker's thread and persist between passes, and only the
// finished streams are copied into the stream's own block.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "storage/codes/codec.h"
#include "storage/reserved_block.h"
#include "storage/row_stream.h"

// Address range a stream needs for `values` values: two bytes a value, in
// whole steps of the commit granularity, for either row width. Rows that do
// not compress to half their 32-bit size end the process when they outgrow it.
constexpr int64_t entropy_stream_reserve_limit(int64_t values) {
    return (2 * values + entropy_stream_granularity_mask) & ~entropy_stream_granularity_mask;
}

// One thread's buffers for the 24 coder streams. A thread reuses its sets from
// pass to pass, so a steady solve allocates nothing here.
struct GrowthBuffers {
    uint8_t* data[codec_stream_count] = {};
    int64_t capacity[codec_stream_count] = {};

    GrowthBuffers() = default;
    GrowthBuffers(const GrowthBuffers&) = delete;
    GrowthBuffers& operator=(const GrowthBuffers&) = delete;
    ~GrowthBuffers();
};

class EntropyRowStream final : public RowStream {
public:
    explicit EntropyRowStream(int64_t reserve_limit) : block(reserve_limit) {}
    ~EntropyRowStream() override;

    // A coder already active ends the process with "fail".
    void begin_write() override;
    void end_write() override;
    bool has_data() const override { return stream_size[0] > 0; }
    // Reading while a writer is active ends the process with "fail".
    void begin_read() override;
    void end_read() override;

    void put_row32(const uint32_t* row, const uint32_t* previous, int count) override;
    void put_row16(const uint16_t* row, const uint16_t* previous, int count) override;
    // A damaged stream tells storage_damage_listener its reason once per pass
    // and reads as zeros.
    void get_row32(uint32_t* row, const uint32_t* previous, int count) override;
    void get_row16(uint16_t* row, const uint16_t* previous, int count) override;

    // Section: 24 × (i32 capacity, i32 length), u64 reserve limit, u64
    // logical size s, then the s bytes of the streams back to back.
    int64_t reserve_limit() const override { return block.reserve_limit; }
    void save(ByteChannel& channel) const override;
    void load(ByteChannel& channel) override;

    // While writing: bytes written to each stream so far, its high-water
    // mark. Afterwards: each stream's length in the block.
    int32_t stream_size[codec_stream_count] = {};
    // Bytes written to or read from each stream in the current pass.
    int32_t stream_used[codec_stream_count] = {};
    // Each stream's start in the block, while reading.
    const uint8_t* stream_base[codec_stream_count] = {};
    std::unique_ptr<CodecWriter> writer;
    std::unique_ptr<CodecReader> reader;
    CoderStatistics statistics;
    int32_t position = 0;  // coded bytes of the last pass, for reporting
    ReservedBlock block;
    int32_t granularity_mask = entropy_stream_granularity_mask;
    GrowthBuffers* buffers = nullptr;  // this thread's, while writing

private:
    static size_t move_on_write(void* context, int stream, void* bytes, size_t count);
    static size_t move_on_read(void* context, int stream, void* bytes, size_t count);
    int64_t bytes_this_pass() const;
    void report_damage(const char* reason);

    std::string open_failure_;  // why no reader could be opened
    bool damage_reported_ = false;
};
