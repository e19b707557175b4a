#include "storage/codes/run_coder.h"

#include <algorithm>

uint32_t RunCoderReader::take(int stream, Chunk& chunk, int unit_bits) {
    if (chunk.position == chunk.available) {
        if (failed_) return 0;
        // The last chunk of a stream may come short.
        const size_t got = callback_(stream, chunk.bytes, run_chunk_bytes);
        if (got == 0) {
            failed_ = true;
            return 0;
        }
        chunk.position = 0;
        chunk.available = static_cast<uint32_t>(got) * 8 / static_cast<uint32_t>(unit_bits);
    }
    const uint32_t bit_offset = chunk.position++ * static_cast<uint32_t>(unit_bits);
    return (chunk.bytes[bit_offset >> 3] >> (bit_offset & 7)) & ((1u << unit_bits) - 1);
}

uint32_t RunCoderReader::value() {
    uint32_t x = nibble();
    if (x < 15) return x + 1;
    x = byte();
    if (x < 255) return x + 1;
    x = byte();
    x |= byte() << 8;
    if (x < 65535) return x + 1;
    x = 0;
    for (int k = 0; k < 4; ++k) x |= byte() << (8 * k);
    return x + 1;
}

bool RunCoderReader::decode_values(uint32_t* values, int count, int& flag) {
    flag = static_cast<int>(bit());
    for (int group = 0; group < count; group += 8) {
        const int length = std::min(8, count - group);
        const bool any = bit() != 0;
        for (int i = 0; i < length; ++i) {
            values[group + i] = any && bit() ? value() : 0;
        }
    }
    return !failed_;
}
