// The tables a showdown sweep reads for one river card, and the per-group
// mask of live hands made once at the first river node of a path. Every reach
// further down that river subtree is the reach at that node times strategies,
// so a hand without reach there has none at any leaf below.
#include <immintrin.h>

#include <algorithm>
#include <cstring>

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
    // One bit per hand, eight hands to a compare, then each small group's
    // word is a shifted read of the bits: no loop over the hands of a group.
    const int count = static_cast<int>(river.hand_cards.size());
    uint8_t live[kernel_hand_capacity / 8 + 4] = {};
    const __m256 smallest = _mm256_set1_ps(smallest_normal_f32);
    int h = 0;
    for (; h + 8 <= count; h += 8)
        live[h / 8] = static_cast<uint8_t>(
            _mm256_movemask_ps(_mm256_cmp_ps(_mm256_loadu_ps(reach + h), smallest, _CMP_GE_OQ)));
    for (; h < count; ++h)
        live[h / 8] |= static_cast<uint8_t>(kernel_rules::has_reach(reach[h]) << (h % 8));
    for (const SmallGroup& group : river.small_groups) {
        uint32_t bits;
        std::memcpy(&bits, live + group.first / 8, sizeof bits);
        bits = (bits >> (group.first % 8)) & ((1u << group.count) - 1);
        group_mask[group.group] = static_cast<uint16_t>(bits);
    }
    for (const LargeGroup& group : river.large_groups) {
        const float* first = reach + group.first;
        group_mask[group.group] =
            std::any_of(first, first + group.count, kernel_rules::has_reach) ? 1 : 0;
    }
}
