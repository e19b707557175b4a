// Tree files on disk: a reading channel over a file, and a writing channel
// that never leaves a half-written file under the name asked for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "storage/codes/byte_channel.h"

// Blocks of this size go between the channels and the system; the sections
// are mostly fields of a few bytes.
constexpr int64_t file_channel_buffer_bytes = int64_t{1} << 20;
// A read of at least this many bytes goes from the system straight to its
// place, past the buffer.
constexpr int64_t file_channel_direct_bytes = int64_t{32} << 10;
// After such a read the buffer takes this much at first, doubling while only
// small fields follow: the fields between two large sections then come from a
// short read, and the next section's bytes are left for its own direct read.
constexpr int64_t file_channel_first_refill_bytes = int64_t{4} << 10;

// Reads a regular file front to back. Every failure is a refusal of the
// command: "can't open file (<reason>)", "can't read from file (<reason>)",
// and a file that ends before a read is done "can't read from file
// (unexpected end of file)".
class FileReadChannel final : public ByteChannel {
public:
    explicit FileReadChannel(const std::string& path);
    ~FileReadChannel() override;
    FileReadChannel(const FileReadChannel&) = delete;
    FileReadChannel& operator=(const FileReadChannel&) = delete;

    void transfer(void* buffer, int64_t bytes) override;
    int64_t remaining() const override { return file_size_ - consumed_; }

private:
    // One read of at most `bytes`: how many came, at least 1, or a refusal.
    int64_t read_some(uint8_t* target, int64_t bytes);
    // Reads exactly `bytes` into `target`, or refuses.
    void read_exactly(uint8_t* target, int64_t bytes);
    void refill();

    int fd_ = -1;
    int64_t file_size_ = 0;
    int64_t refill_bytes_ = file_channel_buffer_bytes;  // what the next refill asks for
    int64_t consumed_ = 0;  // bytes handed out so far
    std::vector<uint8_t> buffer_;
    int64_t position_ = 0;  // read cursor in the buffer
    int64_t filled_ = 0;    // bytes in the buffer
};

// Writes a new file beside the target, under a temporary name in the same
// folder, and only `commit` puts it in the target's place: flushed to disk,
// then renamed over it. A channel destroyed before its commit removes the
// temporary file, so the target keeps whatever it held before. Failures are
// refusals naming the system's reason: "can't open file (...)", "can't write
// to file (...)", "can't close file (...)".
class FileWriteChannel final : public ByteChannel {
public:
    explicit FileWriteChannel(const std::string& path);
    ~FileWriteChannel() override;
    FileWriteChannel(const FileWriteChannel&) = delete;
    FileWriteChannel& operator=(const FileWriteChannel&) = delete;

    void transfer(void* buffer, int64_t bytes) override;
    void commit();

    const std::string& temporary_path() const { return temporary_; }

private:
    void flush_buffer();
    void write_out(const uint8_t* bytes, int64_t count);

    std::string target_;
    std::string temporary_;
    int fd_ = -1;
    bool committed_ = false;
    std::vector<uint8_t> buffer_;
    int64_t filled_ = 0;
    int64_t written_ = 0;
};

// Called after each block a FileWriteChannel hands to the system, with the
// bytes written so far. Null in the program; a test sets it to end the
// process in the middle of a write and look at what is left on disk.
using FileWriteHook = void (*)(int64_t bytes_written);
extern FileWriteHook file_write_hook;
