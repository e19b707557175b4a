#include "storage/codes/row_decoder.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "shell/protocol/reply.h"
#include "storage/codes/block_row_code.h"

namespace {

[[noreturn]] void invalid_file() { throw_command_error("invalid file"); }

// Streams arrive in pieces, so a damaged size fails at the end of the file
// rather than on a huge allocation.
constexpr size_t stream_piece_bytes = size_t{1} << 20;

}  // namespace

void BlockRowDecoder::read_code() {
    const uint16_t bytes = read_field<uint16_t>(channel_);
    code_.resize(bytes);
    if (bytes > 0) channel_.transfer(code_.data(), bytes);
}

void BlockRowDecoder::get_row32(uint32_t* row, const uint32_t*, int count) {
    read_code();
    const uint8_t* begin = code_.data();
    if (decode_block_row32(begin, begin + code_.size(), count, row) != static_cast<int>(code_.size())) invalid_file();
}

void BlockRowDecoder::get_row16(uint16_t* row, const uint16_t*, int count) {
    read_code();
    const uint8_t* begin = code_.data();
    if (decode_block_row16(begin, begin + code_.size(), count, row) != static_cast<int>(code_.size())) invalid_file();
}

EntropyRowDecoder::EntropyRowDecoder(ByteChannel& channel) {
    for (auto& stream : streams_) {
        uint64_t left = read_field<uint64_t>(channel);
        while (left > 0) {
            const size_t piece = static_cast<size_t>(std::min<uint64_t>(left, stream_piece_bytes));
            const size_t at = stream.size();
            stream.resize(at + piece);
            channel.transfer(stream.data() + at, static_cast<int64_t>(piece));
            left -= piece;
        }
    }
    try {
        reader_ = open_reader({move, this});
    } catch (const std::runtime_error& error) {
        // Only an error if rows are asked for.
        open_failure_ = error.what();
    }
}

size_t EntropyRowDecoder::move(void* context, int stream, void* bytes, size_t count) {
    auto& self = *static_cast<EntropyRowDecoder*>(context);
    const std::vector<uint8_t>& data = self.streams_[stream];
    const size_t given = std::min(count, data.size() - self.read_at_[stream]);
    if (given > 0) std::memcpy(bytes, data.data() + self.read_at_[stream], given);
    self.read_at_[stream] += given;
    return given;
}

CodecReader& EntropyRowDecoder::usable_reader() {
    if (!open_failure_.empty()) throw_command_error(open_failure_);
    if (!reader_) invalid_file();
    return *reader_;
}

void EntropyRowDecoder::check(bool decoded) {
    if (!decoded) invalid_file();
}

void EntropyRowDecoder::get_row32(uint32_t* row, const uint32_t* previous, int count) {
    if (count < 1) return;
    check(usable_reader().read32(row, previous, count));
}

void EntropyRowDecoder::get_row16(uint16_t* row, const uint16_t* previous, int count) {
    if (count < 1) return;
    check(usable_reader().read16(row, previous, count));
}

std::unique_ptr<RowDecoder> open_row_section(ByteChannel& channel) {
    if (channel.version >= 6 && read_field<uint8_t>(channel) != 0) return std::make_unique<BlockRowDecoder>(channel);
    return std::make_unique<EntropyRowDecoder>(channel);
}
