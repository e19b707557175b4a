// The tree file as seen by the stores: one sequential run of little-endian
// fields, never seeked. A reading channel fills the buffers it is given, a
// writing channel takes the bytes out of them.
#pragma once

#include <cstdint>

class ByteChannel {
public:
    virtual ~ByteChannel() = default;
    virtual void transfer(void* buffer, int64_t bytes) = 0;

    // Format version of the file; several sections look at it to know what is
    // there. -1 until the version field has passed through the channel.
    int version = -1;
};

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
