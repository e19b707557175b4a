// Finite-state entropy coding (tabled asymmetric numeral systems) of one
// block of bytes. The entropy coder compresses each 64 KiB chunk of each of
// its streams with this; the tables are rebuilt per block from the normalised
// counts that head the block.
#pragma once

#include <cstddef>
#include <cstdint>

// Room that fse_compress may use for a block of `raw` bytes.
constexpr size_t fse_work_bytes(size_t raw) { return raw + raw / 128 + 512; }

// Bytes after the end of a coded block that fse_decompress may read (and
// ignores); its caller keeps them readable.
constexpr size_t fse_input_padding = 8;

// Codes `raw` bytes (at least 1) into `out`, which has fse_work_bytes(raw)
// bytes. The result is the block's coded length: 0 when the block is better
// stored as it is (nothing written), 1 when it is one byte repeated (that
// byte written to out[0]), else the length of the coded data in `out`.
size_t fse_compress(const uint8_t* source, size_t raw, uint8_t* out);

// Decodes `coded` bytes (coded length above 1) into exactly `raw` bytes.
// False when the data is malformed: a bad table header, too few or too many
// bits. Never reads outside [source, source + coded + fse_input_padding) nor
// writes outside [out, out + raw).
bool fse_decompress(const uint8_t* source, size_t coded, uint8_t* out, size_t raw);
