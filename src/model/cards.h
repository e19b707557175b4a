// Cards, two-card combos and the two orders of the 1326 combos.
//
// A Card is suit * 13 + rank (rank 0 is the two, 12 the ace; suits c, d, h, s).
// Lists of 1326 values travel on the wire in hand order (ComboIndex) and are
// kept in memory order (ComboSlot); the tables below convert between them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "shell/protocol/card_types.h"

// The whole hand order: 1326 four-character combos separated by blanks.
extern const char* const hand_order_text;

extern CardMask combo_mask[combo_count];       // by ComboIndex
extern ComboSlot combo_slot[combo_count];      // ComboIndex -> ComboSlot
extern ComboIndex combo_index[combo_count];    // ComboSlot -> ComboIndex
extern CardMask slot_mask[combo_count];        // by ComboSlot
extern std::vector<ComboSlot> hand_class_slots[hand_class_count];

void init_combo_tables();

// Reads any number of cards from one token ("AhKd", "Ah Kd", case-insensitive).
// Invalid text throws the reply "ERROR: invalid card".
CardMask parse_cards(const std::string& text);
// The cards of a mask by ascending Card, e.g. "2c Ah".
std::string cards_to_text(CardMask mask);
std::string card_text(Card card);
// A combo as it stands in hand order, greater card first: "AsKs".
std::string combo_text(ComboSlot slot);

void show_hand_order(const std::vector<std::string>& tokens);
