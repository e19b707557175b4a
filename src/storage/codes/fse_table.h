// The shared half of FSE coding: normalised counts, their compact header and
// the spread of symbols over the state table. Writer and reader must build
// the same table from the same counts, so both sides use these functions.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr int fse_min_table_log = 5;
constexpr int fse_max_table_log = 12;
constexpr int fse_default_table_log = 11;

// Counts normalised to a table of 2^table_log cells. A count of -1 marks a
// symbol rarer than one cell: it still takes one cell, at the top of the
// table, and always costs table_log bits.
struct FseCounts {
    int16_t normalized[256];
    int max_symbol;  // highest symbol with a count other than 0
    int table_log;
};

inline int highest_bit(uint32_t x) { return 31 - __builtin_clz(x); }

// Table log for a block: small blocks get small tables, and the table must be
// large enough for every symbol present.
int choose_table_log(size_t total, int max_symbol, int max_log = fse_default_table_log);

// Normalises `counts` (max_symbol + 1 entries summing to `total`) so that the
// cells add up to 2^table_log, every present symbol keeping at least one.
void normalize_counts(const uint32_t* counts, int max_symbol, size_t total, int table_log, FseCounts& result);

// The header: table_log - 5 in 4 bits, then each count + 1 in a field whose
// width shrinks as the cells left to give out shrink, and after a 0 count,
// 2-bit fields that give the number of further 0 counts (3: three, and
// another field follows). Returns the header's length in bytes, or 0 when it
// would not fit in `capacity`.
size_t write_fse_header(const FseCounts& counts, uint8_t* out, size_t capacity);

// Reads a header from the `length` bytes at `source`. Returns its length in
// bytes, or 0 when the bytes do not form a header whose cells add up.
size_t read_fse_header(const uint8_t* source, size_t length, FseCounts& counts);

// Places the symbols in the 2^table_log cells: rare (-1) symbols from the top
// down, then each symbol's cells at a fixed odd step, skipping the top cells.
// The step visits every cell once, so symbols are spread evenly.
void spread_symbols(const FseCounts& counts, uint8_t* cells);
