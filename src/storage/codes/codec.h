// The coders of entropy-coded rows, seen from the row streams that own them.
//
// A coder talks to its owner through one callback over up to 24 numbered byte
// streams: a writer hands bytes to the owner, a reader asks the owner for
// them. The first byte of stream 0 names the coder, so a reader can be built
// for whatever wrote the bytes. The program writes with `EntropyCoder` only;
// the other two coders come from older files and are read, never written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

constexpr int codec_stream_count = 24;

// The largest hand count of a row, and so the longest row a coder takes.
constexpr int max_row_values = 1326;

enum CoderId : uint8_t {
    range_coder_id = 0,
    run_coder_id = 1,
    entropy_coder_id = 2,
};

// Writing: takes `bytes` bytes from `buffer` for `stream`, returns `bytes`.
// Reading: gives at most `bytes` bytes of `stream` into `buffer` and returns
// how many it gave; fewer than asked means the stream has ended.
using StreamMove = size_t (*)(void* context, int stream, void* buffer, size_t bytes);

struct StreamCallback {
    StreamMove move = nullptr;
    void* context = nullptr;

    size_t operator()(int stream, void* buffer, size_t bytes) const {
        return move(context, stream, buffer, bytes);
    }
};

// What a writer has seen so far; the stream that owns the writer keeps it
// between rows. Eight counters, 64 bytes.
struct CoderStatistics {
    uint64_t rows = 0;
    uint64_t values = 0;
    uint64_t nonzero_values = 0;
    uint64_t previous_row_rows = 0;  // rows written as differences to the previous row
    uint64_t escapes_16 = 0;         // values whose code needed two escape bytes
    uint64_t escapes_32 = 0;         // values whose code needed four more
    uint64_t blocks = 0;             // chunks handed to the owner
    uint64_t block_bytes = 0;        // their size, headers included
};
static_assert(sizeof(CoderStatistics) == 64);

class CodecWriter {
public:
    virtual ~CodecWriter() = default;  // a writer flushes all it buffered here
    // One transformed row (see row_transform.h) and the flag of its form.
    virtual void write(const uint32_t* values, int count, int flag) = 0;
};

class CodecReader {
public:
    virtual ~CodecReader() = default;
    // Decode the next row and undo the row transform. `previous` is the row
    // the writer was given as previous, or null. False once the bytes turned
    // out malformed or short; the row is then all zeros, and so is every later
    // one: a damaged stream is not resynchronised.
    virtual bool read32(uint32_t* row, const uint32_t* previous, int count) = 0;
    virtual bool read16(uint16_t* row, const uint16_t* previous, int count) = 0;
    // Every reader of the system rebuilds rows itself; kept so that the owner
    // need not know which coder it holds.
    virtual bool undoes_transform() const { return true; }
    // Null while all is well; else the text of what went wrong.
    virtual const char* failure() const = 0;
};

// Builds the writer of coder `id` and writes its id byte to stream 0. Only
// the entropy coder is written by the program; other ids give none.
std::unique_ptr<CodecWriter> open_writer(int id, StreamCallback callback, CoderStatistics* statistics);

// Reads the id byte from stream 0 and builds the matching reader; an unknown
// id, or no byte at all, gives none. A range-coded stream with a damaged head
// raises std::runtime_error ("compressor wrong id", "CreateOptimalTree fail").
std::unique_ptr<CodecReader> open_reader(StreamCallback callback);
