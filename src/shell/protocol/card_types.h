// The card and combo types that every subsystem passes around: a Card is
// suit * 13 + rank (rank 0 is the two, 12 the ace; suits c, d, h, s), a
// CardMask a set of cards, and a combo has a place in hand order (ComboIndex,
// the order on the wire) and one in memory order (ComboSlot).
#pragma once

#include <cstdint>

using Card = int;
using CardMask = uint64_t;
using ComboIndex = int16_t;
using ComboSlot = int16_t;

constexpr int combo_count = 1326;
constexpr int hand_class_count = 169;

constexpr Card make_card(int rank, int suit) { return suit * 13 + rank; }
constexpr int card_rank(Card card) { return card % 13; }
constexpr int card_suit(Card card) { return card / 13; }
constexpr CardMask card_bit(Card card) { return CardMask{1} << card; }

// Memory-order place of the combo of two different cards.
constexpr ComboSlot slot_of_cards(Card a, Card b) {
    const int hi = a > b ? a : b;
    const int lo = a > b ? b : a;
    return static_cast<ComboSlot>(hi * (hi - 1) / 2 + lo);
}
