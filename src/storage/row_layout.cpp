// Layout of the river rows shared by all river nodes of one action count.
#include <climits>

#include "shell/protocol/reply.h"
#include "storage/storage.h"

RowLayout make_row_layout(int action_count, std::span<const std::span<const int>> hand_counts) {
    RowLayout layout;
    layout.action_count = action_count;
    layout.group_count = static_cast<int32_t>(hand_counts.size());
    layout.groups.resize(hand_counts.size());
    layout.spans.resize(hand_counts.size());

    int32_t rows_so_far = 0;
    for (size_t g = 0; g < hand_counts.size(); ++g) {
        const auto row_count = static_cast<int32_t>(hand_counts[g].size());
        layout.groups[g] = {rows_so_far, row_count};
        rows_so_far += row_count;
    }
    layout.row_count = rows_so_far;
    layout.rows.resize(rows_so_far);

    // Offsets are 32-bit in the layout; a tree too large for them is refused
    // here rather than wrapping silently.
    int64_t offset = 0;
    int64_t values = 0;
    int row = 0;
    for (size_t g = 0; g < hand_counts.size(); ++g) {
        const int64_t base = offset;
        for (const int hands : hand_counts[g]) {
            layout.rows[row++] = {static_cast<int32_t>(offset), hands};
            values += int64_t{hands} * action_count;
            offset += int64_t{row_stride(hands)} * action_count;
            if (offset > INT32_MAX) fail("river rows beyond 2^31 values");
        }
        layout.spans[g] = {static_cast<int32_t>(base), static_cast<int32_t>(offset - base)};
    }
    layout.padded_values = static_cast<int32_t>(offset);
    layout.value_count = static_cast<int32_t>(values);
    return layout;
}
