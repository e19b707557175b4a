#include "model/hand_strength.h"

#include <immintrin.h>

#include <algorithm>

uint32_t rank_count[rank_mask_table_size];
uint32_t top_rank[rank_mask_table_size];
uint32_t top_five[rank_mask_table_size];
uint32_t straight_value[rank_mask_table_size];

namespace {

bool tables_built = false;

constexpr HandValue pair_base = category_pair << 24;
constexpr HandValue two_pair_base = category_two_pair << 24;
constexpr HandValue trips_base = category_trips << 24;
constexpr HandValue straight_base = category_straight << 24;
constexpr HandValue flush_base = category_flush << 24;
constexpr HandValue full_house_base = category_full_house << 24;
constexpr HandValue quads_base = category_quads << 24;
// Added to a straight's value it makes the straight flush of the same top card.
constexpr HandValue straight_to_straight_flush = (category_straight_flush - category_straight) << 24;

constexpr uint32_t wheel_ranks = 0x100F;  // ace, two, three, four, five
constexpr uint32_t wheel_top = 3;         // the five

void fill_rank_tables() {
    for (uint32_t mask = 1; mask < rank_mask_table_size; ++mask) {
        uint32_t count = 0;
        uint32_t five = 0;
        for (int rank = 12; rank >= 0; --rank) {
            if (!(mask >> rank & 1)) continue;
            if (count == 0) top_rank[mask] = rank;
            if (count < 5) five = five << 4 | rank;
            ++count;
        }
        rank_count[mask] = count;
        top_five[mask] = five;
    }
}

// Every straight of a hand of up to seven ranks is its run plus at most two
// other ranks. Runs are taken from the highest down and an entry is written
// only once, so a mask that holds two straights keeps the higher.
void mark_straights(uint32_t run, uint32_t top_card) {
    for (int extra1 = 0; extra1 < 13; ++extra1) {
        for (int extra2 = 0; extra2 < 13; ++extra2) {
            const uint32_t mask = run | 1u << extra1 | 1u << extra2;
            if (straight_value[mask] == 0) straight_value[mask] = straight_base | top_card << 16;
        }
    }
}

void fill_straight_table() {
    for (uint32_t top_card = 12; top_card >= 4; --top_card)
        mark_straights(0x1Fu << (top_card - 4), top_card);
    mark_straights(wheel_ranks, wheel_top);
}

struct Lanes {
    uint32_t c, d, h, s;
};

inline Lanes split_lanes(LaneMask cards) {
    return {static_cast<uint32_t>(cards) & 0x1FFF, static_cast<uint32_t>(cards >> 16) & 0x1FFF,
            static_cast<uint32_t>(cards >> 32) & 0x1FFF, static_cast<uint32_t>(cards >> 48) & 0x1FFF};
}

// The ranks held three times. A rank held three times misses one suit, so
// both lanes of one of the pairs (c, d) and (h, s) hold it; a rank held once
// is in neither AND, and held twice or four times it isn't in `odd`.
inline uint32_t trips_ranks(const Lanes& lanes, uint32_t odd) {
    return odd & ((lanes.c & lanes.d) | (lanes.h & lanes.s));
}

inline uint32_t lowest_rank_bit(uint32_t mask) { return mask & (0u - mask); }

// The suit lane that holds five or more cards, or 0 if none does. Once the
// lanes seen so far hold `Cards - 4` cards, the rest can't hold five, so most
// hands are settled by the first lane or two.
template <int Cards>
inline uint32_t flush_lane(const Lanes& lanes) {
    constexpr uint32_t enough_outside = Cards - 4;
    const uint32_t a = rank_count[lanes.c];
    if (a >= 5) return lanes.c;
    if (a >= enough_outside) return 0;
    const uint32_t b = rank_count[lanes.d];
    if (a + b >= enough_outside) return b >= 5 ? lanes.d : 0;
    const uint32_t e = rank_count[lanes.h];
    if (a + b + e >= enough_outside) return e >= 5 ? lanes.h : 0;
    return lanes.s;
}

inline HandValue flush_value(uint32_t lane) {
    const uint32_t straight = straight_value[lane];
    return straight ? straight + straight_to_straight_flush : top_five[lane] | flush_base;
}

// Flush, else straight, else 0: the two categories that need five ranks.
template <int Cards>
inline HandValue flush_or_straight(const Lanes& lanes, uint32_t ranks) {
    const uint32_t lane = flush_lane<Cards>(lanes);
    if (lane) return flush_value(lane);
    return straight_value[ranks];
}

inline HandValue quads_value(uint32_t quad, uint32_t ranks) {
    return quads_base | top_rank[quad] << 16 | top_rank[ranks ^ quad] << 12;
}

inline HandValue full_house_value(uint32_t trips_rank, uint32_t pair_rank) {
    return full_house_base | trips_rank << 16 | pair_rank << 12;
}

// Two pairs out of the three a hand of six or seven cards can hold: the lowest
// pair's rank competes with the odd ranks for the kicker.
inline HandValue three_pairs_value(uint32_t pairs, uint32_t odd) {
    const uint32_t best_two = top_five[pairs] >> 4;
    return two_pair_base | best_two << 12 | top_rank[odd | lowest_rank_bit(pairs)] << 8;
}

// A seven-card hand's shape follows from two counts: n, its distinct ranks,
// and k, the ranks it holds twice or more. Writing a shape as the number of
// ranks held once, twice, three and four times, 4n + k is
//   28 high card (7,0,0,0)   25 one pair (5,1,0,0)   22 two pairs (3,2,0,0)
//   21 trips (4,0,1,0)       19 three pairs (1,3,0,0)
// and 18 or less for every full house and quads, so one small table indexed by
// 4n + k (a single address computation) says how to build the value. The value
// of the five shapes above is the category, the made ranks' nibbles moved to
// the top (a multiplier, as the shift varies by shape) and the kickers: the top
// nibbles of top_five of the other ranks, kept by a mask and moved into place
// by a multiplier and a shift right by 8. The made ranks are those held twice
// or more, save that the lowest of three pairs doesn't play as a pair; it may
// still be the kicker.
//
// One array per field, all in one object, so that a single base address
// reaches every field and the key indexes each with no multiply. The size
// covers any pair of 13-bit masks, so even a mask that isn't seven cards
// can't read past the end.
constexpr int shape_key_count = 4 * 13 + 13 + 1;

struct ShapeForms {
    uint32_t full_house_or_quads[shape_key_count];  // nonzero also for keys no seven cards give
    uint32_t keep_lowest[shape_key_count];          // all ones, or 0 to drop the lowest of three pairs
    HandValue category[shape_key_count];
    uint32_t made_multiplier[shape_key_count];
    uint32_t kicker_mask[shape_key_count];
    uint32_t kicker_multiplier[shape_key_count];
};

constexpr ShapeForms make_seven_card_shapes() {
    ShapeForms forms{};
    for (int key = 0; key < shape_key_count; ++key) forms.full_house_or_quads[key] = 1;
    const auto set = [&forms](int key, HandValue category, uint32_t made_multiplier, uint32_t kicker_mask,
                              uint32_t kicker_multiplier, uint32_t keep_lowest) {
        forms.full_house_or_quads[key] = 0;
        forms.keep_lowest[key] = keep_lowest;
        forms.category[key] = category;
        forms.made_multiplier[key] = made_multiplier;
        forms.kicker_mask[key] = kicker_mask;
        forms.kicker_multiplier[key] = kicker_multiplier;
    };
    set(28, 0, 0, 0xFFFFF, 1u << 8, ~0u);                  // high card: five of seven ranks
    set(25, pair_base, 1u << 16, 0xFFF00, 1u << 4, ~0u);    // one pair: three of five singles
    set(22, two_pair_base, 1u << 12, 0xF00, 1u << 8, ~0u);  // two pairs: the best of three singles
    set(21, trips_base, 1u << 16, 0xFF00, 1u << 8, ~0u);    // trips: two of four singles
    set(19, two_pair_base, 1u << 12, 0xF0, 1u << 12, 0);    // three pairs: the best of the low pair and the single
    return forms;
}

constexpr ShapeForms seven_card_shapes = make_seven_card_shapes();

// Seven cards with a flush, a full house or quads, about 6% of random hands.
// Kept out of line so that the common path saves no registers and reaches this
// by a jump. Flushes and full houses are about equally common here, so both
// values are computed and one is picked rather than jumped to. Seven cards
// can't hold a flush beside quads or a full house.
[[gnu::noinline]] HandValue flush_full_house_or_quads_value(LaneMask cards, uint32_t ranks, uint32_t twice) {
    constexpr uint32_t low_lane = 0x1FFF;
    // Counted again rather than passed in, so the common path needn't keep it.
    const uint32_t flush_suits = five_card_suits(cards);
    // Lanes c|h and d|s, and c&h and d&s, side by side in 32 bits.
    const uint32_t either = static_cast<uint32_t>(cards | cards >> 32);
    const uint32_t both = static_cast<uint32_t>(cards & cards >> 32);
    const uint32_t quad = both & both >> 16 & low_lane;
    // Three of four suits: both of one pair of lanes and one of the other pair.
    const uint32_t thrice = ((both & either >> 16) | (both >> 16 & either)) & low_lane;
    const uint32_t high_trips = top_rank[thrice];
    // The second set of trips, if any, is among the ranks held twice.
    const HandValue paired = quad ? quads_value(quad, ranks)
                                  : full_house_value(high_trips, top_rank[twice ^ 1u << high_trips]);
    // Without a flush this reads a lane of spades whose value isn't used.
    const int suit = __builtin_ctz(flush_suits | 0x80) / 2;
    const HandValue flush = flush_value(static_cast<uint32_t>(cards >> (16 * suit)) & low_lane);
    return flush_suits ? flush : paired;
}

}  // namespace

bool init_hand_strength_tables() {
    if (tables_built) return true;
    fill_rank_tables();
    fill_straight_table();
    tables_built = true;
    return true;
}

// Each byte's bits are counted by looking its two nibbles up in a 16-entry
// table with a byte shuffle; the two bytes of a lane are then summed into it.
// The lanes fill only the low eight bytes, so the nibble mask is zero above
// them: a constant that isn't one byte repeated is loaded in one instruction,
// where a repeated one is built in three.
uint32_t five_card_suits(LaneMask cards) {
    const __m128i lanes = _mm_cvtsi64_si128(static_cast<long long>(cards));
    const __m128i low_nibbles = _mm_setr_epi8(15, 15, 15, 15, 15, 15, 15, 15, 0, 0, 0, 0, 0, 0, 0, 0);
    const __m128i nibble_counts = _mm_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
    const __m128i low = _mm_and_si128(lanes, low_nibbles);
    const __m128i high = _mm_and_si128(_mm_srli_epi16(lanes, 4), low_nibbles);
    const __m128i byte_counts =
        _mm_add_epi8(_mm_shuffle_epi8(nibble_counts, low), _mm_shuffle_epi8(nibble_counts, high));
    const __m128i lane_counts = _mm_maddubs_epi16(byte_counts, _mm_set1_epi8(1));
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpgt_epi16(lane_counts, _mm_set1_epi16(4))));
}

uint32_t five_card_suits_scalar(LaneMask cards) {
    uint32_t suits = 0;
    for (int suit = 0; suit < 4; ++suit)
        if (__builtin_popcountll(cards >> (16 * suit) & 0xFFFF) >= 5) suits |= 3u << (2 * suit);
    return suits;
}

// Seven cards is the bulk case (every holding on every river), and on random
// hands any branch on the shape is a coin toss. So the common shapes, high
// card, one to three pairs and trips, share one formula whose constants come
// from a little table, and straights are a final max; flushes, full houses and
// quads take the one branch. The lanes are folded in place, two at a time,
// rather than taken apart, and the shape is counted rather than tested.
HandValue hand_value_7(LaneMask cards) {
    // Lanes c|h and d|s, and c&h and d&s, side by side in 32 bits.
    const uint32_t either = static_cast<uint32_t>(cards | cards >> 32);
    const uint32_t both = static_cast<uint32_t>(cards & cards >> 32);
    // The high half of `either` holds d|s: a zero extension drops it without
    // first copying the value, as a mask would, and the shifted half is clean.
    const uint32_t ranks = static_cast<uint16_t>(either) | either >> 16;
    // A rank is held twice or more if it is in both lanes of one pair of
    // lanes, or in one lane of each pair.
    const uint32_t twice = static_cast<uint16_t>(both) | both >> 16 | (either & either >> 16);
    const uint32_t key = 4 * __builtin_popcount(ranks) + __builtin_popcount(twice);
    if ((seven_card_shapes.full_house_or_quads[key] | five_card_suits(cards)) != 0) [[unlikely]]
        return flush_full_house_or_quads_value(cards, ranks, twice);

    // x & (x - 1) drops the lowest rank; keep_lowest is all ones unless that is wanted.
    const uint32_t made = twice & ((twice - 1) | seven_card_shapes.keep_lowest[key]);
    const HandValue value =
        seven_card_shapes.category[key] | top_five[made] * seven_card_shapes.made_multiplier[key] |
        (top_five[ranks ^ made] & seven_card_shapes.kicker_mask[key]) * seven_card_shapes.kicker_multiplier[key] >> 8;
    // A straight outranks every shape that got this far.
    return std::max(value, straight_value[ranks]);
}

HandValue hand_value_6(LaneMask cards) {
    const Lanes lanes = split_lanes(cards);
    const uint32_t ranks = lanes.c | lanes.d | lanes.h | lanes.s;
    const uint32_t odd = lanes.c ^ lanes.d ^ lanes.h ^ lanes.s;
    switch (rank_count[ranks]) {
        case 6: {
            const HandValue made = flush_or_straight<6>(lanes, ranks);
            return made ? made : top_five[ranks];
        }
        case 5: {
            const HandValue made = flush_or_straight<6>(lanes, ranks);
            if (made) return made;
            // One pair; `odd` holds four other ranks, of which three play.
            return pair_base | top_rank[ranks ^ odd] << 16 | (top_five[odd] & 0xFFF0);
        }
        case 4: {
            if (rank_count[odd] == 4) {
                const uint32_t trips = trips_ranks(lanes, odd);
                return trips_base | top_rank[trips] << 16 | (top_five[odd ^ trips] & 0xFF0) << 4;
            }
            return two_pair_base | top_five[ranks ^ odd] << 12 | top_rank[odd] << 8;
        }
        case 3: {
            if (odd == 0) return three_pairs_value(ranks, 0);
            const uint32_t quad = lanes.c & lanes.d & lanes.h & lanes.s;
            if (quad) return quads_value(quad, ranks);
            return full_house_value(top_rank[trips_ranks(lanes, odd)], top_rank[ranks ^ odd]);
        }
        case 2: {
            const uint32_t quad = lanes.c & lanes.d & lanes.h & lanes.s;
            if (quad) return quads_value(quad, ranks);
            // Two sets of trips.
            const uint32_t high = top_rank[ranks];
            return full_house_value(high, top_rank[ranks ^ 1u << high]);
        }
        default:
            return 0;
    }
}

HandValue hand_value_5(LaneMask cards) {
    const Lanes lanes = split_lanes(cards);
    const uint32_t ranks = lanes.c | lanes.d | lanes.h | lanes.s;
    const uint32_t odd = lanes.c ^ lanes.d ^ lanes.h ^ lanes.s;
    switch (rank_count[ranks]) {
        case 5: {
            const HandValue made = flush_or_straight<5>(lanes, ranks);
            return made ? made : top_five[ranks];
        }
        case 4:
            return pair_base | top_rank[ranks ^ odd] << 16 | top_five[odd] << 4;
        case 3: {
            if (rank_count[odd] == 3) {
                const uint32_t trips = trips_ranks(lanes, odd);
                return trips_base | top_rank[trips] << 16 | top_five[odd ^ trips] << 8;
            }
            return two_pair_base | top_five[ranks ^ odd] << 12 | top_rank[odd] << 8;
        }
        case 2: {
            const uint32_t quad = lanes.c & lanes.d & lanes.h & lanes.s;
            if (quad) return quads_value(quad, ranks);
            return full_house_value(top_rank[odd], top_rank[ranks ^ odd]);
        }
        default:
            return 0;
    }
}

HandValue hand_value_4(LaneMask cards) {
    const Lanes lanes = split_lanes(cards);
    const uint32_t ranks = lanes.c | lanes.d | lanes.h | lanes.s;
    const uint32_t odd = lanes.c ^ lanes.d ^ lanes.h ^ lanes.s;
    switch (rank_count[ranks]) {
        case 4:
            return top_five[ranks] << 4;
        case 3:
            return pair_base | top_rank[ranks ^ odd] << 16 | top_five[odd] << 8;
        case 2: {
            if (odd == 0) return two_pair_base | top_five[ranks] << 12;
            const uint32_t trips = trips_ranks(lanes, odd);
            return trips_base | top_rank[trips] << 16 | top_rank[odd ^ trips] << 12;
        }
        case 1:
            return quads_base | top_rank[ranks] << 16;
        default:
            return 0;
    }
}

HandValue hand_value_3(LaneMask cards) {
    const Lanes lanes = split_lanes(cards);
    const uint32_t ranks = lanes.c | lanes.d | lanes.h | lanes.s;
    const uint32_t odd = lanes.c ^ lanes.d ^ lanes.h ^ lanes.s;
    switch (rank_count[ranks]) {
        case 3:
            return top_five[ranks] << 8;
        case 2:
            return pair_base | top_rank[ranks ^ odd] << 16 | top_rank[odd] << 12;
        case 1:
            return trips_base | top_rank[ranks] << 16;
        default:
            return 0;
    }
}

HandValue hand_value(const Card* cards, int count) {
    LaneMask lanes = 0;
    for (int i = 0; i < count; ++i) lanes |= lane_bit(cards[i]);
    switch (count) {
        case 3: return hand_value_3(lanes);
        case 4: return hand_value_4(lanes);
        case 5: return hand_value_5(lanes);
        case 6: return hand_value_6(lanes);
        case 7: return hand_value_7(lanes);
        default: return 0;
    }
}
