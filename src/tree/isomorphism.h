// Suit isomorphism: suits that the board doesn't show are interchangeable, so
// a family of turn (or river) cards that differ only in such suits is stored
// once. Before any board is made the suits are renamed so that the board's
// suits are the lowest and the missing ones the highest; ranges are renamed the
// same way going in, and rows are renamed back on the way out.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "model/cards.h"

// order[s] is the canonical suit of real suit s; a permutation of 0..3.
using SuitOrder = std::array<uint8_t, 4>;

constexpr SuitOrder identity_suit_order() { return {0, 1, 2, 3}; }

// The order made from the flop and the (possibly empty) turn and river masks,
// without touching the masks.
SuitOrder make_suit_order(CardMask flop, CardMask turn, CardMask river);

// Makes the order and rewrites the non-empty masks into canonical suits.
void canonical_suits(SuitOrder& order, CardMask& flop, CardMask& turn, CardMask& river);

// Moves the 13-bit field of each suit s to field order[s].
CardMask apply_order(CardMask mask, const SuitOrder& order);

constexpr Card order_card(Card card, const SuitOrder& order) {
    return make_card(card_rank(card), order[card_suit(card)]);
}

// Each hand's weight goes to the slot of its image under the order of the
// three masks given. Both arrays hold 1326 values in ComboSlot order.
void permute_range(CardMask flop, CardMask turn, CardMask river, double* out, const double* in);

// The way back for a row of 1326 values in ComboSlot order: out[slot] is the
// value of the hand's image. All three masks are real cards.
void unpermute_row(CardMask flop, CardMask turn, CardMask river, double* out, const float* in);

// The same two with the order given.
void permute_range(const SuitOrder& order, double* out, const double* in);
void unpermute_row(const SuitOrder& order, double* out, const float* in);

// The refusal text when two hands of one class carry different weights.
std::string inconsistent_range_text(int player, ComboSlot first_slot, double first_weight,
                                    ComboSlot slot, double weight);

// The range test of build_tree on a flop tree with isomorphism on: every hand
// class must weigh the same in all its suit variants that the flop doesn't
// block, for both players. Refuses through throw_command_error.
void check_range_symmetry();
