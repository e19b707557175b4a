// A ByteChannel over a byte vector, for the stores' save and load sections.
#pragma once

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "storage/codes/byte_channel.h"

class MemoryChannel : public ByteChannel {
public:
    explicit MemoryChannel(int file_version) { version = file_version; }

    void transfer(void* buffer, int64_t count) override {
        auto* data = static_cast<uint8_t*>(buffer);
        if (writing) {
            bytes.insert(bytes.end(), data, data + count);
            return;
        }
        if (position + size_t(count) > bytes.size()) throw std::runtime_error("read past the end");
        std::memcpy(data, bytes.data() + position, size_t(count));
        position += size_t(count);
    }

    int64_t remaining() const override {
        return writing ? ByteChannel::remaining() : static_cast<int64_t>(bytes.size() - position);
    }

    // Turns the written bytes into the input of a reader.
    void rewind() {
        writing = false;
        position = 0;
    }

    bool at_end() const { return position == bytes.size(); }

    std::vector<uint8_t> bytes;
    size_t position = 0;
    bool writing = true;
};
