#include "legacy_coder_writers.h"

#include <algorithm>

// ---------------------------------------------------------------------------
// RunCoder

RunCoder::RunCoder(StreamCallback callback) : callback_(callback) {
    uint8_t id = run_coder_id;
    callback_(0, &id, 1);
}

RunCoder::~RunCoder() {
    // Chunks go out whole, also the last ones.
    if (bits_.position) callback_(run_bit_stream, bits_.bytes, run_chunk_bytes);
    if (nibbles_.position) callback_(run_nibble_stream, nibbles_.bytes, run_chunk_bytes);
    if (bytes_.position) callback_(run_byte_stream, bytes_.bytes, run_chunk_bytes);
}

void RunCoder::put(int stream, Chunk& chunk, int unit_bits, uint32_t value) {
    const uint32_t bit_offset = chunk.position * static_cast<uint32_t>(unit_bits);
    chunk.bytes[bit_offset >> 3] |= static_cast<uint8_t>(value << (bit_offset & 7));
    if (++chunk.position * static_cast<uint32_t>(unit_bits) == run_chunk_bytes * 8) {
        callback_(stream, chunk.bytes, run_chunk_bytes);
        chunk = Chunk{};
    }
}

void RunCoder::put_value(uint32_t value) {
    const uint32_t x = value - 1;
    if (x < 15) {
        put(run_nibble_stream, nibbles_, 4, x);
        return;
    }
    put(run_nibble_stream, nibbles_, 4, 15);
    if (x < 255) {
        put(run_byte_stream, bytes_, 8, x);
        return;
    }
    put(run_byte_stream, bytes_, 8, 255);
    const uint32_t word = std::min<uint32_t>(x, 65535);
    put(run_byte_stream, bytes_, 8, word & 0xff);
    put(run_byte_stream, bytes_, 8, word >> 8);
    if (x < 65535) return;
    for (int k = 0; k < 4; ++k) put(run_byte_stream, bytes_, 8, (x >> (8 * k)) & 0xff);
}

void RunCoder::write(const uint32_t* values, int count, int flag) {
    put_bit(static_cast<uint32_t>(flag));
    for (int group = 0; group < count; group += 8) {
        const int length = std::min(8, count - group);
        const bool any = std::any_of(values + group, values + group + length, [](uint32_t v) { return v != 0; });
        put_bit(any);
        if (!any) continue;
        for (int i = 0; i < length; ++i) put_bit(values[group + i] != 0);
        for (int i = 0; i < length; ++i) {
            if (values[group + i]) put_value(values[group + i]);
        }
    }
}

// ---------------------------------------------------------------------------
// RangeCoder

RangeCoder::RangeCoder(StreamCallback callback, const uint64_t* counts) : callback_(callback) {
    uint8_t id = range_coder_id;
    callback_(0, &id, 1);
    uint8_t head[sizeof range_coder_head + range_count_bytes];
    std::copy(std::begin(range_coder_head), std::end(range_coder_head), head);
    for (int s = 0; s < split_tree_weighted_symbols; ++s) {
        for (int k = 0; k < 8; ++k) head[4 + s * 8 + k] = static_cast<uint8_t>(counts[s] >> (8 * k));
    }
    callback_(0, head, sizeof head);
    build_split_tree(counts, tree_);
}

RangeCoder::~RangeCoder() {
    for (int i = 0; i < 5; ++i) shift_low();
    callback_(0, out_.data(), out_.size());
}

// The carry of `low` is held back in `cache` (and a run of 0xff bytes
// behind it) until it is known whether a carry reaches them.
void RangeCoder::shift_low() {
    if (static_cast<uint32_t>(low_) < 0xff000000u || (low_ >> 32) != 0) {
        const uint8_t carry = static_cast<uint8_t>(low_ >> 32);
        uint8_t pending = cache_;
        do {
            out_.push_back(static_cast<uint8_t>(pending + carry));
            pending = 0xff;
        } while (--cache_size_ != 0);
        cache_ = static_cast<uint8_t>(low_ >> 24);
    }
    ++cache_size_;
    low_ = (low_ & 0x00ffffff) << 8;
}

void RangeCoder::encode_bit(size_t model, int bit) {
    const uint32_t bound = (range_ >> range_probability_bits) * models_.probability(model);
    if (bit == 0) {
        range_ = bound;
    } else {
        low_ += bound;
        range_ -= bound;
    }
    models_.adapt(model, bit);
    while (range_ < range_top) {
        range_ <<= 8;
        shift_low();
    }
}

void RangeCoder::encode_tree_bits(size_t base, int bits, uint32_t value) {
    uint32_t node = 1;
    for (int i = bits - 1; i >= 0; --i) {
        const int bit = static_cast<int>((value >> i) & 1);
        encode_bit(base + node, bit);
        node = (node << 1) | static_cast<uint32_t>(bit);
    }
}

void RangeCoder::write(const uint32_t* values, int count, int flag) {
    encode_bit(RangeModels::flag, flag);
    int previous_code = range_first_previous_code;
    for (int block = 0; block < count; block += range_block_values) {
        const int length = std::min(range_block_values, count - block);
        const int any = std::any_of(values + block, values + block + length, [](uint32_t v) { return v != 0; });
        encode_bit(models_.block_context(flag), any);
        models_.block_history = (models_.block_history << 1) | static_cast<uint32_t>(any);
        if (!any) continue;
        for (int i = 0; i < length; ++i) {
            const uint32_t value = values[block + i];
            const int nonzero = value != 0;
            encode_bit(models_.value_context(flag), nonzero);
            models_.value_history = (models_.value_history << 1) | static_cast<uint32_t>(nonzero);
            if (!nonzero) continue;
            const int symbol = static_cast<int>(std::min<uint32_t>(value - 1, range_escape_symbol));
            const size_t context = RangeModels::tree_context(flag, previous_code);
            walk_split_tree(tree_, symbol, [&](int node, int bit) { encode_bit(context + static_cast<size_t>(node), bit); });
            previous_code = symbol;
            if (symbol < range_escape_symbol) continue;
            const uint32_t rest = value - split_tree_symbols;
            encode_tree_bits(RangeModels::high_tree, 17, (rest & 0xffff) | (rest > 0xffff ? 1u << 16 : 0));
            if (rest > 0xffff) encode_tree_bits(RangeModels::top_tree, 16, rest >> 16);
        }
    }
}

std::unique_ptr<CodecWriter> open_legacy_writer(int id, StreamCallback callback, const RowList& rows, bool unweighted) {
    if (id == run_coder_id) return std::make_unique<RunCoder>(callback);
    // Symbol min(v - 1, 255) of every non-zero transformed value.
    uint64_t counts[256] = {};
    std::vector<uint32_t> a(max_row_values), b(max_row_values);
    for (size_t r = 0; r < rows.size() && !unweighted; ++r) {
        const int n = int(rows[r].size());
        const TransformedRow t = transform_row32(rows[r].data(), previous_of(rows, r), n, a.data(), b.data());
        for (int i = 0; i < n; ++i)
            if (t.values[i]) ++counts[std::min<uint32_t>(t.values[i] - 1, 255)];
    }
    return std::make_unique<RangeCoder>(callback, counts);
}
