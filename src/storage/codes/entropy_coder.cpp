#include "storage/codes/entropy_coder.h"

#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "storage/codes/fse.h"
#include "storage/codes/memory_blocks.h"

namespace {

constexpr int flag_stream = 0;
constexpr int mask_stream = 1;
constexpr int first_context_stream = 2;
constexpr int escape16_stream = 18;
constexpr int escape32_stream = 20;
constexpr uint32_t byte_escape = 255;
constexpr uint32_t word_escape = 65535;
constexpr size_t chunk_alignment = 16;
constexpr size_t coded_buffer_bytes = fse_work_bytes(entropy_chunk_bytes) + fse_input_padding;

// Bit i set when values[i] is not 0, for 8 values.
inline uint32_t nonzero_mask8(const uint32_t* values) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i low = _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(values)), zero);
    const __m128i high = _mm_cmpeq_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(values + 4)), zero);
    const __m128i bytes = _mm_packs_epi16(_mm_packs_epi32(low, high), zero);
    return ~static_cast<uint32_t>(_mm_movemask_epi8(bytes)) & 0xff;
}

inline uint32_t nonzero_mask(const uint32_t* values, int count) {
    uint32_t mask = 0;
    for (int i = 0; i < count; ++i) mask |= static_cast<uint32_t>(values[i] != 0) << i;
    return mask;
}

void store_le32(uint8_t* out, uint32_t value) {
    for (int k = 0; k < 4; ++k) out[k] = static_cast<uint8_t>(value >> (8 * k));
}
uint32_t load_le32(const uint8_t* in) {
    return in[0] | static_cast<uint32_t>(in[1]) << 8 | static_cast<uint32_t>(in[2]) << 16 |
           static_cast<uint32_t>(in[3]) << 24;
}

}  // namespace

// ---------------------------------------------------------------------------
// Writer.

EntropyCoder::EntropyCoder(StreamCallback callback, CoderStatistics* statistics)
    : callback_(callback), statistics_(statistics) {
    uint8_t id = entropy_coder_id;
    callback_(flag_stream, &id, 1);
}

EntropyCoder::~EntropyCoder() {
    for (int s = 0; s < codec_stream_count; ++s) {
        if (fill_[s] > 0) flush_chunk(s);
        free_scalable(chunk_[s]);
    }
    free_scalable(work_);
}

void EntropyCoder::make_room(int stream) {
    if (!chunk_[stream]) {
        // Chunks come on first use: most rows never reach the wide escapes.
        chunk_[stream] = static_cast<uint8_t*>(allocate_scalable(entropy_chunk_bytes, chunk_alignment));
        limit_[stream] = entropy_chunk_bytes;
        return;
    }
    flush_chunk(stream);
}

void EntropyCoder::flush_chunk(int stream) {
    if (!work_) {
        work_ = static_cast<uint8_t*>(
            allocate_scalable(entropy_block_header_bytes + fse_work_bytes(entropy_chunk_bytes), chunk_alignment));
    }
    const uint32_t raw = fill_[stream];
    uint8_t* coded = work_ + entropy_block_header_bytes;
    const size_t coded_length = fse_compress(chunk_[stream], raw, coded);
    store_le32(work_, raw);
    store_le32(work_ + 4, static_cast<uint32_t>(coded_length));
    size_t block_bytes = entropy_block_header_bytes;
    if (coded_length == 0) {
        callback_(stream, work_, entropy_block_header_bytes);
        callback_(stream, chunk_[stream], raw);
        block_bytes += raw;
    } else {
        callback_(stream, work_, entropy_block_header_bytes + coded_length);
        block_bytes += coded_length;
    }
    if (statistics_) {
        ++statistics_->blocks;
        statistics_->block_bytes += block_bytes;
    }
    fill_[stream] = 0;
}

void EntropyCoder::put_value(uint32_t value, int& context) {
    const uint32_t x = value - 1;
    const int stream = first_context_stream + context;
    context = static_cast<int>(std::min<uint32_t>(x, 15));
    if (x < byte_escape) {
        put(stream, static_cast<uint8_t>(x));
        return;
    }
    put(stream, byte_escape);
    if (x < word_escape) {
        put(escape16_stream, static_cast<uint8_t>(x));
        put(escape16_stream + 1, static_cast<uint8_t>(x >> 8));
        if (statistics_) ++statistics_->escapes_16;
        return;
    }
    put(escape16_stream, 255);
    put(escape16_stream + 1, 255);
    for (int k = 0; k < 4; ++k) put(escape32_stream + k, static_cast<uint8_t>(x >> (8 * k)));
    if (statistics_) ++statistics_->escapes_32;
}

void EntropyCoder::write(const uint32_t* values, int count, int flag) {
    put(flag_stream, static_cast<uint8_t>(flag));
    const uint32_t groups = static_cast<uint32_t>(std::max(count, 0) + 7) / 8;
    // The row's mask bytes go straight into the chunk when they fit.
    uint8_t spilled[(max_row_values + 7) / 8];
    const bool in_place = limit_[mask_stream] - fill_[mask_stream] >= groups;
    uint8_t* masks = in_place ? chunk_[mask_stream] + fill_[mask_stream] : spilled;
    int context = 0;
    uint64_t nonzero = 0;
    for (uint32_t g = 0; g < groups; ++g) {
        const uint32_t* group = values + 8 * g;
        const int length = std::min(8, count - static_cast<int>(8 * g));
        uint32_t mask = length == 8 ? nonzero_mask8(group) : nonzero_mask(group, length);
        masks[g] = static_cast<uint8_t>(mask);
        nonzero += static_cast<uint64_t>(__builtin_popcount(mask));
        while (mask) {
            put_value(group[__builtin_ctz(mask)], context);
            mask &= mask - 1;
        }
    }
    if (in_place) {
        fill_[mask_stream] += groups;
    } else {
        for (uint32_t g = 0; g < groups; ++g) put(mask_stream, spilled[g]);
    }
    if (statistics_) {
        ++statistics_->rows;
        statistics_->values += static_cast<uint64_t>(std::max(count, 0));
        statistics_->nonzero_values += nonzero;
        statistics_->previous_row_rows += flag != 0;
    }
}

// ---------------------------------------------------------------------------
// Reader.

EntropyCoderReader::EntropyCoderReader(StreamCallback callback)
    : TransformedRowReader(fse_error_text), callback_(callback) {}

EntropyCoderReader::~EntropyCoderReader() {
    for (uint8_t* chunk : chunk_) free_scalable(chunk);
    free_scalable(coded_);
}

uint8_t EntropyCoderReader::refill(int stream) {
    if (failed_ || !take_next_block(stream)) {
        failed_ = true;
        return 0;
    }
    return chunk_[stream][position_[stream]++];
}

bool EntropyCoderReader::take_next_block(int stream) {
    uint8_t header[entropy_block_header_bytes];
    if (callback_(stream, header, sizeof header) != sizeof header) return false;
    const uint32_t raw = load_le32(header);
    const uint32_t coded = load_le32(header + 4);
    if (raw == 0 || raw > entropy_chunk_bytes) return false;
    if (!chunk_[stream]) chunk_[stream] = static_cast<uint8_t*>(allocate_scalable(entropy_chunk_bytes, chunk_alignment));
    uint8_t* chunk = chunk_[stream];
    if (coded == 0) {
        if (callback_(stream, chunk, raw) != raw) return false;
    } else if (coded == 1) {
        uint8_t byte;
        if (callback_(stream, &byte, 1) != 1) return false;
        std::memset(chunk, byte, raw);
    } else {
        if (coded > fse_work_bytes(raw)) return false;
        if (!coded_) {
            coded_ = static_cast<uint8_t*>(allocate_scalable(coded_buffer_bytes, chunk_alignment));
            std::memset(coded_, 0, coded_buffer_bytes);
        }
        if (callback_(stream, coded_, coded) != coded) return false;
        if (!fse_decompress(coded_, coded, chunk, raw)) return false;
    }
    position_[stream] = 0;
    fill_[stream] = raw;
    return true;
}

uint32_t EntropyCoderReader::get_value(int& context) {
    uint32_t x = get(first_context_stream + context);
    if (x == byte_escape) {
        x = get(escape16_stream) | static_cast<uint32_t>(get(escape16_stream + 1)) << 8;
        if (x == word_escape) {
            x = 0;
            for (int k = 0; k < 4; ++k) x |= static_cast<uint32_t>(get(escape32_stream + k)) << (8 * k);
        }
    }
    context = static_cast<int>(std::min<uint32_t>(x, 15));
    return x + 1;
}

bool EntropyCoderReader::decode_values(uint32_t* values, int count, int& flag) {
    flag = get(flag_stream);
    // The row's mask bytes, straight from the chunk when it holds them all.
    const uint32_t groups = static_cast<uint32_t>((count + 7) / 8);
    uint8_t copied[(max_row_values + 7) / 8];
    const uint8_t* masks = copied;
    if (fill_[mask_stream] - position_[mask_stream] >= groups) {
        masks = chunk_[mask_stream] + position_[mask_stream];
        position_[mask_stream] += groups;
    } else {
        for (uint32_t g = 0; g < groups; ++g) copied[g] = get(mask_stream);
    }
    int context = 0;
    const __m128i zero = _mm_setzero_si128();
    for (uint32_t g = 0; g < groups; ++g) {
        uint32_t* out = values + 8 * g;
        // The scratch has room for a whole last group, so all 8 are cleared.
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), zero);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), zero);
        uint32_t mask = masks[g];
        // Bits past the end of the row can only come from damage.
        const int length = count - static_cast<int>(8 * g);
        if (length < 8) mask &= (1u << length) - 1;
        while (mask) {
            out[__builtin_ctz(mask)] = get_value(context);
            mask &= mask - 1;
        }
    }
    return !failed_;
}
