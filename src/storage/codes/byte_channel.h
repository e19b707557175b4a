// The tree file as seen by the stores: one sequential run of little-endian
// fields, never seeked. A reading channel fills the buffers it is given, a
// writing channel takes the bytes out of them.
#pragma once

#include <cstdint>
#include <limits>

class ByteChannel {
public:
    virtual ~ByteChannel() = default;
    virtual void transfer(void* buffer, int64_t bytes) = 0;

    // Bytes a reading channel has left before its end; as many as anyone may
    // ask for where the channel can't tell. Sections check the counts they
    // read against it before they allocate by them, so a damaged count fails
    // as an early end instead of taking memory the file can't fill.
    virtual int64_t remaining() const { return std::numeric_limits<int64_t>::max(); }

    // Format version of the file; several sections look at it to know what is
    // there. -1 until the version field has passed through the channel.
    int version = -1;

    // The largest reserve limit any row stream of the tree being loaded can
    // need. A stream section that states more is damaged: its reserve would be
    // taken before a byte of its rows is read.
    int64_t stream_reserve_cap = std::numeric_limits<int64_t>::max();
};

// Fails the load as a file that ended early ("can't read from file
// (unexpected end of file)") when fewer than `bytes` are left.
void require_bytes(const ByteChannel& channel, int64_t bytes);

// One fixed-size field in each direction. The stores' save operations are
// const, so writing goes through a copy.
template <class T>
void write_field(ByteChannel& channel, T value) {
    channel.transfer(&value, sizeof(T));
}

template <class T>
T read_field(ByteChannel& channel) {
    T value{};
    channel.transfer(&value, sizeof(T));
    return value;
}
