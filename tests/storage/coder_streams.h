// Test support for the coders: the 24 byte streams in memory, a callback
// over them for writing and one for reading, rows written and read back as
// the row streams do, and row generators.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "storage/codes/codec.h"
#include "storage/codes/row_transform.h"

using RowList = std::vector<std::vector<uint32_t>>;

struct MemoryStreams {
    std::vector<uint8_t> bytes[codec_stream_count];
    size_t read_at[codec_stream_count] = {};

    static size_t append(void* context, int stream, void* data, size_t count) {
        auto& self = *static_cast<MemoryStreams*>(context);
        const auto* from = static_cast<const uint8_t*>(data);
        self.bytes[stream].insert(self.bytes[stream].end(), from, from + count);
        return count;
    }
    static size_t take(void* context, int stream, void* data, size_t count) {
        auto& self = *static_cast<MemoryStreams*>(context);
        const size_t left = self.bytes[stream].size() - self.read_at[stream];
        const size_t given = std::min(count, left);
        if (given) std::memcpy(data, self.bytes[stream].data() + self.read_at[stream], given);
        self.read_at[stream] += given;
        return given;
    }

    StreamCallback writing() { return {append, this}; }
    StreamCallback reading() {
        std::fill(std::begin(read_at), std::end(read_at), size_t{0});
        return {take, this};
    }
};

// A row is coded against the one before when it is not longer.
inline const uint32_t* previous_of(const RowList& rows, size_t r) {
    return r > 0 && rows[r].size() <= rows[r - 1].size() ? rows[r - 1].data() : nullptr;
}

// Transforms the rows and hands them to `writer`, as the row streams do.
inline void write_rows(CodecWriter& writer, const RowList& rows) {
    std::vector<uint32_t> a(max_row_values), b(max_row_values);
    for (size_t r = 0; r < rows.size(); ++r) {
        const int n = int(rows[r].size());
        const TransformedRow t = transform_row32(rows[r].data(), previous_of(rows, r), n, a.data(), b.data());
        writer.write(t.values, n, t.flag);
    }
}

// Reads rows of the lengths of `rows` into `back`; whether the reader read
// them all without noticing damage.
inline bool read_rows(MemoryStreams& streams, const RowList& rows, RowList& back) {
    std::unique_ptr<CodecReader> reader;
    try {
        reader = open_reader(streams.reading());
    } catch (const std::runtime_error&) {
        return false;
    }
    if (!reader) return false;
    bool ok = true;
    back.clear();
    for (size_t r = 0; r < rows.size(); ++r) {
        back.emplace_back(rows[r].size());
        ok = reader->read32(back[r].data(), previous_of(rows, r) ? back[r - 1].data() : nullptr, int(rows[r].size())) && ok;
    }
    return ok && reader->failure() == nullptr;
}

// Whether the rows read back as they were written, and undamaged.
inline bool rows_read_back(MemoryStreams& streams, const RowList& rows) {
    RowList back;
    return read_rows(streams, rows, back) && back == rows;
}

// Rows shaped like stored regrets and strategy sums: runs of zeros and of
// similar values, a few large ones.
inline std::vector<uint32_t> sample_row(std::mt19937& random, int count, uint32_t largest, double zero_share) {
    std::vector<uint32_t> row(static_cast<size_t>(count));
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    uint32_t current = 0;
    for (auto& value : row) {
        if (unit(random) < 0.3) {
            current = unit(random) < zero_share
                          ? 0
                          : static_cast<uint32_t>(std::min<double>(largest, std::exp(unit(random) * std::log(largest + 1.0))));
        }
        value = current;
    }
    return row;
}

// The same row after a small change, as the next river card's row looks.
inline std::vector<uint32_t> nudged_row(std::mt19937& random, const std::vector<uint32_t>& row, uint32_t largest) {
    std::vector<uint32_t> next = row;
    std::uniform_int_distribution<int> change(-3, 3);
    for (auto& value : next) {
        if (value == 0) continue;
        const int64_t moved = static_cast<int64_t>(value) + change(random);
        value = static_cast<uint32_t>(std::clamp<int64_t>(moved, 0, largest));
    }
    return next;
}
