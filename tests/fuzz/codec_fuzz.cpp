// libFuzzer target for the row coders' readers.
//
// The input is read as a small program: a mode byte, a list of bit flips and
// row data. Rows are built from the data, written by the entropy coder,
// damaged by the flips, and read back. Without flips every row must come back
// exactly; with flips a reader may return anything but must stay in bounds
// and end. The other mode hands the raw input to the reader of any coder as
// the 24 streams, to reach the block and table headers with any bytes (the
// older coders, which the program only reads, read any bytes as values).
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "storage/coder_streams.h"

namespace {

struct Input {
    const uint8_t* data;
    size_t size;
    size_t at = 0;

    bool empty() const { return at >= size; }
    uint32_t byte() { return at < size ? data[at++] : 0; }
    uint32_t word() { return byte() | byte() << 8; }
};

RowList make_rows(Input& in, int width_class) {
    RowList rows;
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

void raw_streams(Input& in) {
    MemoryStreams streams;
    streams.bytes[0].push_back(static_cast<uint8_t>(in.byte() % 3));
    for (int s = 0; s < codec_stream_count && !in.empty(); ++s) {
        const size_t length = std::min<size_t>(in.word(), in.size - in.at);
        streams.bytes[s].insert(streams.bytes[s].end(), in.data + in.at, in.data + in.at + length);
        in.at += length;
    }
    RowList shapes;
    for (int count : {8, 1326, 0, 77, 1000}) shapes.emplace_back(static_cast<size_t>(count));
    RowList back;
    read_rows(streams, shapes, back);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const uint32_t mode = in.byte();
    if (mode % 2 == 1) {
        raw_streams(in);
        return 0;
    }
    struct Flip {
        uint32_t stream, position, bit;
    };
    std::vector<Flip> flips(in.byte() % 4);
    for (auto& flip : flips) flip = {in.byte() % codec_stream_count, in.word(), in.byte() % 8};
    const auto rows = make_rows(in, static_cast<int>(mode / 2 % 3));

    MemoryStreams streams;
    write_rows(*open_writer(entropy_coder_id, streams.writing(), nullptr), rows);
    bool damaged = false;
    for (const Flip& flip : flips) {
        auto& bytes = streams.bytes[flip.stream];
        if (bytes.empty()) continue;
        bytes[flip.position % bytes.size()] ^= static_cast<uint8_t>(1u << flip.bit);
        damaged = true;
    }
    // Without damage every row must come back exactly.
    if (!rows_read_back(streams, rows) && !damaged) std::abort();
    return 0;
}
