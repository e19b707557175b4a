// The tables a showdown sweep reads for one river card, and the per-group
// mask of live hands made once at the first river node of a path. Every reach
// further down that river subtree is the reach at that node times strategies,
// so a hand without reach there has none at any leaf below.
#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "solver/kernels/kernels_common.h"

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
    // The bits are stored and read back as whole 64-bit words: a read that
    // spans several narrower stores still in flight would wait for them all.
    const int count = static_cast<int>(river.hand_cards.size());
    uint64_t live[kernel_hand_capacity / 64 + 2] = {};
    const __m256 smallest = _mm256_set1_ps(smallest_normal_f32);
    int h = 0;
    for (; h + 64 <= count; h += 64) {
        uint64_t word = 0;
        for (int k = 0; k < 64; k += 8)
            word |= uint64_t(_mm256_movemask_ps(_mm256_cmp_ps(_mm256_loadu_ps(reach + h + k), smallest, _CMP_GE_OQ)))
                    << k;
        live[h / 64] = word;
    }
    if (h < count) {
        uint64_t word = 0;
        for (int k = 0; h + k < count; ++k) word |= uint64_t(kernel_rules::has_reach(reach[h + k])) << k;
        live[h / 64] = word;
    }
    for (const SmallGroup& group : river.small_groups) {
        const int word = group.first / 64;
        const int shift = group.first % 64;
        uint64_t bits = live[word] >> shift;
        if (shift > 64 - small_group_limit) bits |= live[word + 1] << (64 - shift);
        group_mask[group.group] = static_cast<uint16_t>(bits & ((1u << group.count) - 1));
    }
    for (const LargeGroup& group : river.large_groups) {
        const float* first = reach + group.first;
        group_mask[group.group] =
            std::any_of(first, first + group.count, kernel_rules::has_reach) ? 1 : 0;
    }
}
