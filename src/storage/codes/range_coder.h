// Reader of the range coder (id 0), a coder of older files.
//
// One stream: after the id byte, the head "Cmpr" and 256 little-endian u64
// symbol counts, from which the split tree of the value symbols is built;
// then the output of a binary range coder with adaptive 11-bit probabilities.
// A row is coded as its flag; per 16 values (and a last short block) a bit
// telling whether any is not 0; in such a block, per value a bit telling
// whether it is not 0; and per non-zero value v its symbol: v - 1 for v up to
// 1023 through the split tree, else symbol 1023 followed by v - 1024 in 17
// bits (the top bit set when the number needs more than 16) and, when that
// bit is set, the number's high 16 bits.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "storage/codes/split_tree.h"
#include "storage/codes/transformed_row_reader.h"

constexpr char range_coder_head[4] = {'C', 'm', 'p', 'r'};
constexpr int range_count_bytes = 256 * 8;
constexpr int range_probability_bits = 11;
constexpr uint16_t range_probability_start = 1 << (range_probability_bits - 1);
constexpr int range_adapt_shift = 4;
constexpr uint32_t range_top = 1u << 24;
constexpr int range_block_values = 16;
constexpr int range_escape_symbol = split_tree_symbols - 1;
constexpr int range_first_previous_code = 1022;

// The adaptive probabilities, one array for all models; each model's entry is
// found by the offsets below. An entry holds its probability's distance from
// the start value, so that the 4.5 MB of tables start as zero pages that the
// system hands out untouched, and only the entries a stream uses cost memory.
struct RangeModels {
    static constexpr size_t flag = 0;
    static constexpr size_t block_bits = flag + 1;                     // 2 × 4096: flag, last 12 block bits
    static constexpr size_t value_bits = block_bits + 2 * 4096;        // 2 × 65536: flag, last 16 value bits
    static constexpr size_t value_tree = value_bits + 2 * 65536;       // 2 × 1024 × 1024: flag, previous code, node
    static constexpr size_t high_tree = value_tree + 2 * 1024 * 1024;  // 2^17: 17-bit tree
    static constexpr size_t top_tree = high_tree + (1 << 17);          // 2^16: 16-bit tree
    static constexpr size_t total = top_tree + (1 << 16);

    struct Free {
        void operator()(int16_t* p) const { std::free(p); }
    };
    RangeModels();

    std::unique_ptr<int16_t[], Free> offsets;
    uint32_t block_history = 0;  // the block bits and value bits coded so far
    uint32_t value_history = 0;

    static size_t tree_context(int flag, int previous_code) {
        return value_tree + (static_cast<size_t>(flag) * 1024 + static_cast<size_t>(previous_code)) * 1024;
    }
    size_t block_context(int flag) const { return block_bits + static_cast<size_t>(flag) * 4096 + (block_history & 4095); }
    size_t value_context(int flag) const { return value_bits + static_cast<size_t>(flag) * 65536 + (value_history & 65535); }

    uint32_t probability(size_t model) const { return static_cast<uint32_t>(range_probability_start + offsets[model]); }
    // Moves a probability towards the bit just coded.
    void adapt(size_t model, int bit) {
        uint32_t p = probability(model);
        if (bit) {
            p -= p >> range_adapt_shift;
        } else {
            p += ((1u << range_probability_bits) - p) >> range_adapt_shift;
        }
        offsets[model] = static_cast<int16_t>(static_cast<int>(p) - range_probability_start);
    }
};

class RangeCoderReader final : public TransformedRowReader {
public:
    // The id byte has been read already. Reads the head and builds the tree:
    // raises std::runtime_error("compressor wrong id") when the head is not
    // "Cmpr", and "CreateOptimalTree fail" from the tree.
    explicit RangeCoderReader(StreamCallback callback);

private:
    uint8_t next_byte() {
        if (position_ == available_) return refill();
        return buffer_[position_++];
    }
    uint8_t refill();
    int decode_bit(size_t model);
    int decode_tree_bits(size_t base, int bits);
    uint32_t decode_value(int flag, int& previous_code);
    bool decode_values(uint32_t* values, int count, int& flag) override;

    StreamCallback callback_;
    SplitTree tree_;
    RangeModels models_;
    uint32_t range_ = 0xffffffff;
    uint32_t code_ = 0;
    uint8_t buffer_[4096];
    uint32_t position_ = 0;
    uint32_t available_ = 0;
};
