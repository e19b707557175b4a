// The tables a showdown sweep reads for one river card, and the per-group
// mask of live hands made once at the first river node of a path. Every reach
// further down that river subtree is the reach at that node times strategies,
// so a hand without reach there has none at any leaf below.
#include <algorithm>

#include "solver/kernels_common.h"

ShowdownList showdown_list(const RunoutBoard& river, const uint16_t* group_mask) {
    ShowdownList list;
    list.count = static_cast<int32_t>(river.hand_cards.size());
    list.strength_groups = river.strength_groups;
    list.hand_cards = river.hand_cards.data();
    list.group_mask = group_mask;
    return list;
}

void fill_group_mask(uint16_t* group_mask, const float* reach, const RunoutBoard& river) {
    std::fill_n(group_mask, river.strength_groups.size(), uint16_t{0});
    if (!reach) return;
    for (const SmallGroup& group : river.small_groups) {
        uint32_t word = 0;
        for (int i = 0; i < group.count; ++i)
            word |= static_cast<uint32_t>(kernel_rules::has_reach(reach[group.first + i])) << i;
        group_mask[group.group] = static_cast<uint16_t>(word);
    }
    for (const LargeGroup& group : river.large_groups) {
        const float* first = reach + group.first;
        group_mask[group.group] =
            std::any_of(first, first + group.count, kernel_rules::has_reach) ? 1 : 0;
    }
}
