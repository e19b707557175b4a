#include "storage/codes/fse_table.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

// Little-endian bit order: the first field sits in the low bits of the first byte.
struct HeaderBitWriter {
    uint8_t* out;
    size_t capacity;
    size_t length = 0;
    uint64_t pending = 0;
    int pending_bits = 0;
    bool overflow = false;

    void put(uint32_t value, int bits) {
        pending |= static_cast<uint64_t>(value) << pending_bits;
        pending_bits += bits;
        while (pending_bits >= 8) emit_byte();
    }
    void emit_byte() {
        if (length < capacity) {
            out[length++] = static_cast<uint8_t>(pending);
        } else {
            overflow = true;
        }
        pending >>= 8;
        pending_bits = std::max(pending_bits - 8, 0);
    }
    size_t finish() {
        if (pending_bits > 0) emit_byte();
        return overflow ? 0 : length;
    }
};

// Up to 16 bits from bit `position`; bytes past `length` read as zeros, and
// the caller checks the final position against the length.
uint32_t peek_bits(const uint8_t* source, size_t length, size_t position, int bits) {
    const size_t byte = position >> 3;
    uint32_t window = 0;
    for (size_t k = 0; k < 3; ++k) {
        if (byte + k < length) window |= static_cast<uint32_t>(source[byte + k]) << (8 * k);
    }
    return (window >> (position & 7)) & ((1u << bits) - 1);
}

// Bits saved over the block by giving a symbol one more cell, and the bits
// lost by taking one away: count × log2((n + 1) / n) and count × log2(n / (n - 1)).
// With log2(1 + 1/n) close to 1 / ((n + 0.5) ln 2), the ranking needs no
// logarithm.
double gain_of_one_more(uint32_t count, int cells) { return count / (cells + 0.5); }
double loss_of_one_less(uint32_t count, int cells) { return count / (cells - 0.5); }

}  // namespace

int choose_table_log(size_t total, int max_symbol, int max_log) {
    const int size_bits = total > 1 ? highest_bit(static_cast<uint32_t>(total - 1)) : 0;
    const int symbol_bits = max_symbol > 0 ? highest_bit(static_cast<uint32_t>(max_symbol)) : 0;
    // Large enough to give every symbol a cell, no larger than the block
    // can make use of.
    const int min_log = std::min(size_bits + 1, symbol_bits + 2);
    int log = std::min(max_log, size_bits - 2);
    log = std::max(log, min_log);
    return std::clamp(log, fse_min_table_log, fse_max_table_log);
}

void normalize_counts(const uint32_t* counts, int max_symbol, size_t total, int table_log, FseCounts& result) {
    std::memset(result.normalized, 0, sizeof result.normalized);
    result.max_symbol = max_symbol;
    result.table_log = table_log;
    const int size = 1 << table_log;

    // The most frequent symbol always stays in the shared pool, so the cells
    // left after the small symbols have someone to go to.
    int most_frequent = 0;
    for (int s = 0; s <= max_symbol; ++s) {
        if (counts[s] > counts[most_frequent]) most_frequent = s;
    }
    const uint64_t rare_limit = total >> table_log;
    int cells_left = size;
    uint64_t count_left = total;
    for (int s = 0; s <= max_symbol; ++s) {
        if (counts[s] == 0 || s == most_frequent || counts[s] > rare_limit) continue;
        result.normalized[s] = -1;
        --cells_left;
        count_left -= counts[s];
    }
    // Symbols whose share would round to one cell get exactly one. Taking a
    // cell out of the pool can push another symbol down to one, so repeat
    // until none is.
    for (bool settled = false; !settled;) {
        settled = true;
        for (int s = 0; s <= max_symbol; ++s) {
            if (counts[s] == 0 || result.normalized[s] != 0 || s == most_frequent) continue;
            if (uint64_t{counts[s]} * static_cast<uint64_t>(cells_left) * 2 < count_left * 3) {
                result.normalized[s] = 1;
                --cells_left;
                count_left -= counts[s];
                settled = false;
            }
        }
    }
    // The pool: every other symbol, its share rounded to nearest.
    bool pooled[256] = {};
    int given = 0;
    for (int s = 0; s <= max_symbol; ++s) {
        if (counts[s] == 0 || result.normalized[s] != 0) continue;
        pooled[s] = true;
        const uint64_t share = (uint64_t{counts[s]} * static_cast<uint64_t>(cells_left) * 2 + count_left) / (2 * count_left);
        const int cells = static_cast<int>(std::max<uint64_t>(share, 1));
        result.normalized[s] = static_cast<int16_t>(cells);
        given += cells;
    }

    // Rounding leaves a few cells over or short, at most half a cell per
    // pooled symbol. Settle the difference by moving the symbols where one
    // cell more (or less) changes the coded size most (or least) by one cell
    // each; the loop only repeats in cases that rounding alone cannot make.
    int difference = cells_left - given;
    while (difference != 0) {
        int order[256];
        double change[256];
        int candidates = 0;
        for (int s = 0; s <= max_symbol; ++s) {
            if (!pooled[s]) continue;
            const int n = result.normalized[s];
            if (difference > 0) {
                change[s] = -gain_of_one_more(counts[s], n);
            } else if (n > 1) {
                change[s] = loss_of_one_less(counts[s], n);
            } else {
                continue;
            }
            order[candidates++] = s;
        }
        const int moves = std::min(std::abs(difference), candidates);
        std::nth_element(order, order + moves - 1, order + candidates,
                         [&](int a, int b) { return change[a] < change[b]; });
        const int step = difference > 0 ? 1 : -1;
        for (int k = 0; k < moves; ++k) result.normalized[order[k]] = static_cast<int16_t>(result.normalized[order[k]] + step);
        difference -= step * moves;
    }
}

size_t write_fse_header(const FseCounts& counts, uint8_t* out, size_t capacity) {
    HeaderBitWriter writer{out, capacity};
    const int table_log = counts.table_log;
    writer.put(static_cast<uint32_t>(table_log - fse_min_table_log), 4);

    // Each field holds count + 1, a number from 0 to `remaining`. With
    // `threshold` the largest power of two not above `remaining`, values
    // below `short_limit` fit in one bit less than the full width.
    int remaining = (1 << table_log) + 1;
    int threshold = 1 << table_log;
    int width = table_log + 1;
    int symbol = 0;
    bool previous_zero = false;
    while (remaining > 1 && symbol <= counts.max_symbol) {
        if (previous_zero) {
            int run = 0;
            while (counts.normalized[symbol] == 0) {
                ++symbol;
                ++run;
            }
            for (; run >= 3; run -= 3) writer.put(3, 2);
            writer.put(static_cast<uint32_t>(run), 2);
        }
        const int count = counts.normalized[symbol++];
        const int short_limit = 2 * threshold - 1 - remaining;
        remaining -= count < 0 ? -count : count;
        int value = count + 1;
        if (value < short_limit) {
            writer.put(static_cast<uint32_t>(value), width - 1);
        } else {
            if (value >= threshold) value += short_limit;
            writer.put(static_cast<uint32_t>(value), width);
        }
        previous_zero = count == 0;
        while (remaining < threshold) {
            --width;
            threshold >>= 1;
        }
    }
    return writer.finish();
}

size_t read_fse_header(const uint8_t* source, size_t length, FseCounts& counts) {
    std::memset(counts.normalized, 0, sizeof counts.normalized);
    const size_t bit_length = length * 8;
    size_t position = 0;
    const int table_log = static_cast<int>(peek_bits(source, length, position, 4)) + fse_min_table_log;
    position += 4;
    if (table_log > fse_max_table_log) return 0;
    counts.table_log = table_log;

    int remaining = (1 << table_log) + 1;
    int threshold = 1 << table_log;
    int width = table_log + 1;
    int symbol = 0;
    bool previous_zero = false;
    while (remaining > 1) {
        if (previous_zero) {
            uint32_t repeat;
            do {
                repeat = peek_bits(source, length, position, 2);
                position += 2;
                symbol += static_cast<int>(repeat);
                if (symbol > 255 || position > bit_length) return 0;
            } while (repeat == 3);
        }
        if (symbol > 255) return 0;
        const int short_limit = 2 * threshold - 1 - remaining;
        int value = static_cast<int>(peek_bits(source, length, position, width - 1));
        if (value < short_limit) {
            position += width - 1;
        } else {
            value = static_cast<int>(peek_bits(source, length, position, width));
            position += width;
            if (value >= threshold) value -= short_limit;
        }
        // value lies in 0..remaining, so the cells left never drop below 1.
        const int count = value - 1;
        counts.normalized[symbol++] = static_cast<int16_t>(count);
        remaining -= count < 0 ? -count : count;
        previous_zero = count == 0;
        while (remaining < threshold) {
            --width;
            threshold >>= 1;
        }
        if (position > bit_length) return 0;
    }
    counts.max_symbol = symbol - 1;
    return (position + 7) / 8;
}

void spread_symbols(const FseCounts& counts, uint8_t* cells) {
    const int size = 1 << counts.table_log;
    const int mask = size - 1;
    const int step = (size >> 1) + (size >> 3) + 3;
    int high = size - 1;
    for (int s = 0; s <= counts.max_symbol; ++s) {
        if (counts.normalized[s] == -1) cells[high--] = static_cast<uint8_t>(s);
    }
    int position = 0;
    for (int s = 0; s <= counts.max_symbol; ++s) {
        for (int i = 0; i < counts.normalized[s]; ++i) {
            cells[position] = static_cast<uint8_t>(s);
            do {
                position = (position + step) & mask;
            } while (position > high);
        }
    }
}
