#include "storage/codes/transformed_row_reader.h"

#include <algorithm>

#include "shell/protocol/reply.h"
#include "storage/codes/row_transform.h"

bool TransformedRowReader::decode_checked(uint32_t* values, int count, bool has_previous, int& flag) {
    if (failed_) return false;
    if (!decode_values(values, count, flag) || flag > 1 || (flag == 1 && !has_previous)) failed_ = true;
    return !failed_;
}

bool TransformedRowReader::read32(uint32_t* row, const uint32_t* previous, int count) {
    if (count > max_row_values) fail("");
    count = std::max(count, 0);
    alignas(16) uint32_t values[max_row_values + 8];
    int flag = 0;
    if (!decode_checked(values, count, previous != nullptr, flag)) {
        std::fill(row, row + count, 0u);
        return false;
    }
    untransform_row32(values, flag, previous, count, row);
    return true;
}

bool TransformedRowReader::read16(uint16_t* row, const uint16_t* previous, int count) {
    if (count > max_row_values) fail("");
    count = std::max(count, 0);
    alignas(16) uint32_t values[max_row_values + 8];
    int flag = 0;
    if (!decode_checked(values, count, previous != nullptr, flag)) {
        std::fill(row, row + count, uint16_t{0});
        return false;
    }
    untransform_row16(values, flag, previous, count, row);
    return true;
}
