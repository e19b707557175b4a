#include "storage/codes/range_coder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "shell/protocol/reply.h"

RangeModels::RangeModels() : offsets(static_cast<int16_t*>(std::calloc(total, sizeof(int16_t)))) {
    if (!offsets) {
        abort_out_of_memory();
    }
}

RangeCoderReader::RangeCoderReader(StreamCallback callback)
    : TransformedRowReader("range coder stream ends early"), callback_(callback) {
    uint8_t head[sizeof range_coder_head + range_count_bytes];
    if (callback_(0, head, sizeof head) != sizeof head || std::memcmp(head, range_coder_head, 4) != 0) {
        throw std::runtime_error("compressor wrong id");
    }
    uint64_t counts[split_tree_weighted_symbols];
    for (int s = 0; s < split_tree_weighted_symbols; ++s) {
        uint64_t count = 0;
        for (int k = 0; k < 8; ++k) count |= static_cast<uint64_t>(head[4 + s * 8 + k]) << (8 * k);
        counts[s] = count;
    }
    build_split_tree(counts, tree_);
    for (int k = 0; k < 5; ++k) code_ = (code_ << 8) | next_byte();
}

uint8_t RangeCoderReader::refill() {
    if (failed_) return 0;
    available_ = static_cast<uint32_t>(callback_(0, buffer_, sizeof buffer_));
    position_ = 0;
    if (available_ == 0) {
        // Decoding goes on with zeros, which keeps it bounded; the rows are lost.
        failed_ = true;
        return 0;
    }
    return buffer_[position_++];
}

int RangeCoderReader::decode_bit(size_t model) {
    const uint32_t bound = (range_ >> range_probability_bits) * models_.probability(model);
    int bit;
    if (code_ < bound) {
        range_ = bound;
        bit = 0;
    } else {
        code_ -= bound;
        range_ -= bound;
        bit = 1;
    }
    models_.adapt(model, bit);
    while (range_ < range_top) {
        range_ <<= 8;
        code_ = (code_ << 8) | next_byte();
    }
    return bit;
}

// A number of `bits` bits, most significant first, each bit's probability
// chosen by the bits before it.
int RangeCoderReader::decode_tree_bits(size_t base, int bits) {
    uint32_t node = 1;
    for (int i = 0; i < bits; ++i) node = (node << 1) | static_cast<uint32_t>(decode_bit(base + node));
    return static_cast<int>(node - (1u << bits));
}

uint32_t RangeCoderReader::decode_value(int flag, int& previous_code) {
    const size_t context = RangeModels::tree_context(flag, previous_code);
    int node = 0;
    int low = 0;
    int high = split_tree_symbols;
    while (high - low > 1) {
        const SplitNode n = tree_.nodes[node];
        if (decode_bit(context + static_cast<size_t>(node))) {
            low = n.split;
            node = n.right;
        } else {
            high = n.split;
            node = node + 1;
        }
    }
    if (low < range_escape_symbol) {
        previous_code = low;
        return static_cast<uint32_t>(low) + 1;
    }
    previous_code = range_escape_symbol;
    const uint32_t escape = static_cast<uint32_t>(decode_tree_bits(RangeModels::high_tree, 17));
    uint32_t result = escape & 0xffff;
    if (escape >> 16) result |= static_cast<uint32_t>(decode_tree_bits(RangeModels::top_tree, 16)) << 16;
    return result + split_tree_symbols;
}

bool RangeCoderReader::decode_values(uint32_t* values, int count, int& flag) {
    flag = decode_bit(RangeModels::flag);
    int previous_code = range_first_previous_code;
    for (int block = 0; block < count; block += range_block_values) {
        const int length = std::min(range_block_values, count - block);
        const int any = decode_bit(models_.block_context(flag));
        models_.block_history = (models_.block_history << 1) | static_cast<uint32_t>(any);
        for (int i = 0; i < length; ++i) {
            uint32_t value = 0;
            if (any) {
                const int nonzero = decode_bit(models_.value_context(flag));
                models_.value_history = (models_.value_history << 1) | static_cast<uint32_t>(nonzero);
                if (nonzero) value = decode_value(flag, previous_code);
            }
            values[block + i] = value;
        }
    }
    return !failed_;
}
