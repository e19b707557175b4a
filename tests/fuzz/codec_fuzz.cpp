// libFuzzer target for the row coders' readers.
//
// The input is read as a small program: a mode byte, a list of bit flips and
// row data. Rows are built from the data, written by the coder that the mode
// names, damaged by the flips, and read back. Without flips every row must
// come back exactly; with flips a reader may return anything but must stay
// in bounds and end. One mode instead hands the raw input to the readers as
// the 24 streams, to reach the block and table headers with any bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "storage/coder_streams.h"
#include "storage/codes/row_transform.h"
#include "storage/legacy_coder_writers.h"

namespace {

struct Input {
    const uint8_t* data;
    size_t size;
    size_t at = 0;

    bool empty() const { return at >= size; }
    uint32_t byte() { return at < size ? data[at++] : 0; }
    uint32_t word() { return byte() | byte() << 8; }
};

std::vector<std::vector<uint32_t>> make_rows(Input& in, int width_class) {
    std::vector<std::vector<uint32_t>> rows;
    while (!in.empty() && rows.size() < 12) {
        const int count = static_cast<int>(in.word() % (max_row_values + 1));
        std::vector<uint32_t> row(static_cast<size_t>(count));
        uint32_t current = 0;
        for (auto& value : row) {
            // Runs of a value, widths chosen by the input: the shapes that
            // reach every escape of every coder.
            if (in.empty()) break;
            const uint32_t control = in.byte();
            if (control & 1) {
                switch (width_class) {
                    case 0: current = in.byte() & 7; break;
                    case 1: current = in.word(); break;
                    default: current = in.word() | in.word() << 16; break;
                }
            }
            value = current;
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

const uint32_t* previous_of(const std::vector<std::vector<uint32_t>>& rows, size_t r) {
    return r > 0 && rows[r].size() <= rows[r - 1].size() ? rows[r - 1].data() : nullptr;
}

void read_back(MemoryStreams& streams, const std::vector<std::vector<uint32_t>>& rows, bool must_match) {
    std::unique_ptr<CodecReader> reader;
    try {
        reader = open_reader(streams.reading());
    } catch (const std::runtime_error&) {
        if (must_match) std::abort();
        return;
    }
    if (!reader) {
        if (must_match) std::abort();
        return;
    }
    std::vector<std::vector<uint32_t>> back;
    for (size_t r = 0; r < rows.size(); ++r) {
        back.emplace_back(rows[r].size());
        const bool ok = reader->read32(back[r].data(), previous_of(back, r), static_cast<int>(rows[r].size()));
        if (must_match && (!ok || back[r] != rows[r])) std::abort();
    }
}

void raw_streams(Input& in) {
    MemoryStreams streams;
    streams.bytes[0].push_back(static_cast<uint8_t>(in.byte() % 3));
    for (int s = 0; s < codec_stream_count && !in.empty(); ++s) {
        const size_t length = std::min<size_t>(in.word(), in.size - in.at);
        streams.bytes[s].insert(streams.bytes[s].end(), in.data + in.at, in.data + in.at + length);
        in.at += length;
    }
    std::vector<std::vector<uint32_t>> shapes;
    for (int count : {8, 1326, 0, 77, 1000}) shapes.emplace_back(static_cast<size_t>(count));
    read_back(streams, shapes, false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const uint32_t mode = in.byte();
    const int coder = static_cast<int>(mode % 4);
    if (coder == 3) {
        raw_streams(in);
        return 0;
    }
    struct Flip {
        uint32_t stream, position, bit;
    };
    std::vector<Flip> flips(in.byte() % 4);
    for (auto& flip : flips) flip = {in.byte() % codec_stream_count, in.word(), in.byte() % 8};
    const auto rows = make_rows(in, static_cast<int>(mode / 4 % 3));

    std::vector<std::pair<std::vector<uint32_t>, int>> coded;
    uint64_t counts[256] = {};
    std::vector<uint32_t> a(max_row_values), b(max_row_values);
    for (size_t r = 0; r < rows.size(); ++r) {
        const int n = static_cast<int>(rows[r].size());
        const TransformedRow t = transform_row32(rows[r].data(), previous_of(rows, r), n, a.data(), b.data());
        coded.emplace_back(std::vector<uint32_t>(t.values, t.values + n), t.flag);
        count_symbols(t.values, n, counts);
    }
    MemoryStreams streams;
    {
        std::unique_ptr<CodecWriter> writer;
        if (coder == entropy_coder_id) writer = open_writer(entropy_coder_id, streams.writing(), nullptr);
        if (coder == run_coder_id) writer = std::make_unique<RunCoder>(streams.writing());
        if (coder == range_coder_id) writer = std::make_unique<RangeCoder>(streams.writing(), counts);
        for (const auto& [values, flag] : coded) writer->write(values.data(), static_cast<int>(values.size()), flag);
    }
    bool damaged = false;
    for (const Flip& flip : flips) {
        auto& bytes = streams.bytes[flip.stream];
        if (bytes.empty()) continue;
        bytes[flip.position % bytes.size()] ^= static_cast<uint8_t>(1u << flip.bit);
        damaged = true;
    }
    read_back(streams, rows, !damaged);
    return 0;
}
