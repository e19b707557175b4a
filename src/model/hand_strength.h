// Hand strength: one 32-bit number per hand whose plain unsigned order is the
// order of poker hands, so that every showdown is a single integer compare.
//
// Layout of a HandValue: bits 24-27 the category, then up to five rank nibbles
// from bits 16-19 down, best first (see the category list below). Hands of
// fewer than five cards keep the nibbles left-justified in the same places.
//
// The value is found from the cards' rank masks with a handful of lookups in
// four small tables, without sorting and without trying five-card subsets.
#pragma once

#include <cstdint>

#include "model/cards.h"

using HandValue = uint32_t;

// The evaluator's card set: four 16-bit lanes, one per suit in card order,
// with bit r of a lane for rank r (bit = suit * 16 + rank). Lanes make the
// per-suit rank masks a shift and a mask away.
using LaneMask = uint64_t;

// Categories, as found in bits 24-27 of a HandValue.
constexpr uint32_t category_high_card = 0;
constexpr uint32_t category_pair = 1;
constexpr uint32_t category_two_pair = 2;
constexpr uint32_t category_trips = 3;
constexpr uint32_t category_straight = 4;
constexpr uint32_t category_flush = 5;
constexpr uint32_t category_full_house = 6;
constexpr uint32_t category_quads = 7;
constexpr uint32_t category_straight_flush = 8;

constexpr uint32_t hand_category(HandValue value) { return value >> 24; }
// The rank nibble at bits [4 * place, 4 * place + 3]; place 4 is the first.
constexpr uint32_t value_nibble(HandValue value, int place) { return (value >> (4 * place)) & 0xF; }

// Tables indexed by a 13-bit rank mask. A hand has at most seven ranks, and
// the largest seven-bit mask is 8128, hence the size.
constexpr int rank_mask_table_size = 8129;
// Number of set bits.
extern uint32_t rank_count[rank_mask_table_size];
// Number of the highest set bit.
extern uint32_t top_rank[rank_mask_table_size];
// Up to five ranks from the highest down as nibbles, the last one at bits 0-3.
extern uint32_t top_five[rank_mask_table_size];
// 0 without a straight; else category 4 and the top card at bits 16-19.
extern uint32_t straight_value[rank_mask_table_size];

// Fills the tables; later calls do nothing. Returns true when the tables are
// ready (they live in static storage, so nothing can fail to allocate).
bool init_hand_strength_tables();

constexpr LaneMask lane_bit(Card card) {
    return LaneMask{1} << (card_rank(card) + card_suit(card) * 16);
}

// Same cards, lane form: each suit's 13 bits move to their own 16-bit lane.
constexpr LaneMask lane_mask_of(CardMask cards) {
    return (cards & 0x1FFF) | ((cards >> 13) & 0x1FFF) << 16 | ((cards >> 26) & 0x1FFF) << 32 |
           ((cards >> 39) & 0x1FFF) << 48;
}

// Suits that hold five cards or more, as pairs of bits: bits 2 * suit and
// 2 * suit + 1. The first counts the four lanes side by side in one vector
// register; the second is its plain reference.
uint32_t five_card_suits(LaneMask cards);
uint32_t five_card_suits_scalar(LaneMask cards);

// One function per card count; the mask must hold exactly that many cards.
// Each knows which shapes its count allows; all give the same value for the
// same best hand.
HandValue hand_value_3(LaneMask cards);
HandValue hand_value_4(LaneMask cards);
HandValue hand_value_5(LaneMask cards);
HandValue hand_value_6(LaneMask cards);
HandValue hand_value_7(LaneMask cards);

// Value of `count` distinct cards; 0 for any count outside 3..7.
HandValue hand_value(const Card* cards, int count);
