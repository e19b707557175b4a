#include "storage/codes/fse.h"

#include <algorithm>
#include <cstring>

#include "storage/codes/fse_table.h"

// Two coder states take turns, symbol 0 with the first, symbol 1 with the
// second and so on, so that decoding has two independent chains of table
// look-ups to overlap. The writer codes the block from its end, so the reader,
// which reads the bit stream from its end, gets the symbols in order.

namespace {

constexpr int max_cells = 1 << fse_max_table_log;

// ---------------------------------------------------------------------------
// Writing.

struct SymbolTransform {
    uint32_t delta_bits;  // (state + delta_bits) >> 16 is the number of bits to emit
    int32_t delta_state;  // index of the next state, relative to state >> bits
};

struct EncodingTable {
    uint16_t next_state[max_cells];
    SymbolTransform transform[256];
};

void build_encoding_table(const FseCounts& counts, EncodingTable& table) {
    const int table_log = counts.table_log;
    const int size = 1 << table_log;
    uint8_t cells[max_cells];
    spread_symbols(counts, cells);

    int start[256];
    int total = 0;
    for (int s = 0; s <= counts.max_symbol; ++s) {
        const int n = counts.normalized[s];
        start[s] = total;
        if (n == -1 || n == 1) {
            table.transform[s] = {static_cast<uint32_t>((table_log << 16) - size), total - 1};
            total += 1;
        } else if (n > 1) {
            // Bits out: max_bits for states from min_state_plus up, one less below.
            const int max_bits = table_log - highest_bit(static_cast<uint32_t>(n - 1));
            const int min_state_plus = n << max_bits;
            table.transform[s] = {static_cast<uint32_t>((max_bits << 16) - min_state_plus), total - n};
            total += n;
        }
    }
    // A symbol's states, in the order of its cells.
    for (int u = 0; u < size; ++u) table.next_state[start[cells[u]]++] = static_cast<uint16_t>(size + u);
}

struct StreamBitWriter {
    uint8_t* position;
    uint8_t* limit;  // the last place where a full 8-byte store still fits
    uint64_t pending = 0;
    int pending_bits = 0;

    void put(uint32_t value, int bits) {
        pending |= static_cast<uint64_t>(value & ((1u << bits) - 1)) << pending_bits;
        pending_bits += bits;
    }
    // Called with at most 56 bits pending; false when the output is full.
    bool flush() {
        if (position > limit) return false;
        std::memcpy(position, &pending, 8);
        position += pending_bits >> 3;
        pending >>= pending_bits & ~7;
        pending_bits &= 7;
        return true;
    }
};

inline void encode_symbol(const EncodingTable& table, uint32_t& state, uint8_t symbol, StreamBitWriter& bits) {
    const SymbolTransform t = table.transform[symbol];
    const int out_bits = static_cast<int>((state + t.delta_bits) >> 16);
    bits.put(state, out_bits);
    state = table.next_state[static_cast<int>(state >> out_bits) + t.delta_state];
}

// ---------------------------------------------------------------------------
// Reading.

struct DecodingEntry {
    uint16_t next_base;
    uint8_t symbol;
    uint8_t bits;
};

void build_decoding_table(const FseCounts& counts, DecodingEntry* table) {
    const int table_log = counts.table_log;
    const int size = 1 << table_log;
    uint8_t cells[max_cells];
    spread_symbols(counts, cells);
    int next[256];
    for (int s = 0; s <= counts.max_symbol; ++s) next[s] = counts.normalized[s] == -1 ? 1 : counts.normalized[s];
    for (int u = 0; u < size; ++u) {
        const uint8_t s = cells[u];
        const int y = next[s]++;
        const int bits = table_log - highest_bit(static_cast<uint32_t>(y));
        table[u] = {static_cast<uint16_t>((y << bits) - size), s, static_cast<uint8_t>(bits)};
    }
}

// Reads the bit stream from its end towards its start, through a 64-bit
// window. `window` holds the 8 bytes at `at`; `used` counts its bits, from the
// top, that are read already. A field of n bits is the n bits below those.
struct ReverseBitReader {
    const uint8_t* start;
    const uint8_t* at;
    uint64_t window;
    uint32_t used;

    // `length` bytes from `data`, the last of which holds the end mark. The
    // 8 bytes after the data must be readable.
    ReverseBitReader(const uint8_t* data, size_t length) : start(data) {
        at = length >= 8 ? data + length - 8 : data;
        std::memcpy(&window, at, 8);
        const int64_t bits = static_cast<int64_t>(data + length - 1 - at) * 8 + highest_bit(data[length - 1]);
        used = static_cast<uint32_t>(64 - bits);
    }

    int64_t remaining() const { return static_cast<int64_t>(at - start) * 8 + 64 - used; }

    // At most 64 - used bits. Once every bit is read (used = 64) only
    // zero-width fields remain, which the mask turns into 0.
    uint32_t take(int bits) {
        const uint64_t top = window << (used & 63);
        const uint32_t value = static_cast<uint32_t>((top >> 1) >> (63 - bits)) & ((1u << bits) - 1);
        used += static_cast<uint32_t>(bits);
        return value;
    }

    // Moves the window back so that at least 57 unread bits are in it, or to
    // the start of the data.
    void refill() {
        const size_t back = std::min<size_t>(used >> 3, static_cast<size_t>(at - start));
        at -= back;
        used -= static_cast<uint32_t>(back * 8);
        std::memcpy(&window, at, 8);
    }
};

}  // namespace

size_t fse_compress(const uint8_t* source, size_t raw, uint8_t* out) {
    // Four histograms side by side, so that runs of one byte don't stall on
    // the same counter.
    uint32_t histograms[4][256] = {};
    size_t i = 0;
    for (; i + 4 <= raw; i += 4) {
        ++histograms[0][source[i]];
        ++histograms[1][source[i + 1]];
        ++histograms[2][source[i + 2]];
        ++histograms[3][source[i + 3]];
    }
    for (; i < raw; ++i) ++histograms[0][source[i]];
    uint32_t counts[256];
    uint32_t largest = 0;
    int max_symbol = 0;
    for (int s = 0; s < 256; ++s) {
        counts[s] = histograms[0][s] + histograms[1][s] + histograms[2][s] + histograms[3][s];
        if (counts[s] > largest) largest = counts[s];
        if (counts[s]) max_symbol = s;
    }
    if (largest == raw) {
        out[0] = source[0];
        return 1;
    }
    // Nothing to gain when every byte is rare.
    if (largest <= 1 || largest < (raw >> 7)) return 0;

    FseCounts table_counts;
    normalize_counts(counts, max_symbol, raw, choose_table_log(raw, max_symbol), table_counts);
    const size_t capacity = fse_work_bytes(raw);
    const size_t header = write_fse_header(table_counts, out, capacity);
    if (header == 0) return 0;

    static thread_local EncodingTable table;
    build_encoding_table(table_counts, table);
    const int table_log = table_counts.table_log;
    const uint32_t size = 1u << table_log;

    StreamBitWriter bits{out + header, out + capacity - 8};
    uint32_t state[2] = {size, size};
    size_t n = raw;
    if (n & 1) {
        --n;
        encode_symbol(table, state[0], source[n], bits);
    }
    // Now n is even: symbol n - 1 goes with the second state.
    while (n > 0) {
        encode_symbol(table, state[1], source[n - 1], bits);
        encode_symbol(table, state[0], source[n - 2], bits);
        n -= 2;
        if (!bits.flush()) return 0;
    }
    bits.put(state[1], table_log);
    bits.put(state[0], table_log);
    bits.put(1, 1);  // end mark: the reader finds the last bit by it
    if (!bits.flush()) return 0;
    const size_t coded = static_cast<size_t>(bits.position - out) + (bits.pending_bits > 0 ? 1 : 0);
    if (bits.pending_bits > 0) bits.position[0] = static_cast<uint8_t>(bits.pending);
    // Stored costs raw bytes and no table work on reading.
    if (coded + 1 >= raw) return 0;
    return coded;
}

bool fse_decompress(const uint8_t* source, size_t coded, uint8_t* out, size_t raw) {
    FseCounts counts;
    const size_t header = read_fse_header(source, coded, counts);
    if (header == 0 || header >= coded) return false;
    const uint8_t* data = source + header;
    const size_t length = coded - header;
    const uint8_t last = data[length - 1];
    if (last == 0) return false;

    alignas(64) static thread_local DecodingEntry table[max_cells];
    build_decoding_table(counts, table);
    const int table_log = counts.table_log;

    ReverseBitReader bits(data, length);
    if (bits.remaining() < 2 * table_log) return false;
    uint32_t state0 = bits.take(table_log);
    uint32_t state1 = bits.take(table_log);

    // A symbol reads at most 12 bits, so four of them fit in a refilled
    // window as long as 48 bits remain.
    size_t i = 0;
    for (;;) {
        bits.refill();
        if (i + 4 > raw || bits.remaining() < 4 * fse_max_table_log) break;
        for (int k = 0; k < 2; ++k) {
            const DecodingEntry a = table[state0];
            const DecodingEntry b = table[state1];
            out[i] = a.symbol;
            out[i + 1] = b.symbol;
            state0 = a.next_base + bits.take(a.bits);
            state1 = b.next_base + bits.take(b.bits);
            i += 2;
        }
    }
    for (; i < raw; ++i) {
        uint32_t& state = (i & 1) ? state1 : state0;
        const DecodingEntry e = table[state];
        out[i] = e.symbol;
        bits.refill();
        if (bits.remaining() < e.bits) return false;
        state = e.next_base + bits.take(e.bits);
    }
    // A well-formed block uses every bit.
    return bits.remaining() == 0;
}
