#include "tree/isomorphism.h"

#include <cmath>
#include <cstdio>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/reply.h"
#include "shell/protocol/settings.h"

namespace {

constexpr uint8_t unset_suit = 0xFF;
constexpr CardMask suit_field = 0x1FFF;

int lowest_card_of(CardMask mask) { return __builtin_ctzll(mask); }

// Gives `suit` the next canonical number unless it has one already.
void claim_suit(SuitOrder& order, int& next_number, int suit) {
    if (order[suit] != unset_suit) return;
    order[suit] = static_cast<uint8_t>(next_number++);
}

}  // namespace

SuitOrder make_suit_order(CardMask flop, CardMask turn, CardMask river) {
    SuitOrder order{unset_suit, unset_suit, unset_suit, unset_suit};
    int count[4];
    int shown = 0;
    for (int suit = 0; suit < 4; ++suit) {
        count[suit] = __builtin_popcountll((flop >> (13 * suit)) & suit_field);
        if (count[suit] > 0) ++shown;
    }

    int next_number = 0;
    if (shown == 1 || shown == 2) {
        // The fuller suit comes first; ties go to the lower suit.
        int fullest = 0;
        for (int suit = 1; suit < 4; ++suit)
            if (count[suit] > count[fullest]) fullest = suit;
        claim_suit(order, next_number, fullest);
        if (shown == 2) {
            int thinnest = -1;
            for (int suit = 0; suit < 4; ++suit) {
                if (count[suit] == 0 || suit == fullest) continue;
                if (thinnest < 0 || count[suit] < count[thinnest]) thinnest = suit;
            }
            claim_suit(order, next_number, thinnest);
        }
    } else if (shown >= 3) {
        // Three suits keep their order: the suits of the cards by rising Card.
        for (CardMask rest = flop; rest; rest &= rest - 1)
            claim_suit(order, next_number, card_suit(lowest_card_of(rest)));
    }
    if (turn) claim_suit(order, next_number, card_suit(lowest_card_of(turn)));
    if (river) claim_suit(order, next_number, card_suit(lowest_card_of(river)));
    for (int suit = 0; suit < 4; ++suit) claim_suit(order, next_number, suit);
    return order;
}

void canonical_suits(SuitOrder& order, CardMask& flop, CardMask& turn, CardMask& river) {
    order = make_suit_order(flop, turn, river);
    flop = apply_order(flop, order);
    if (turn) turn = apply_order(turn, order);
    if (river) river = apply_order(river, order);
}

CardMask apply_order(CardMask mask, const SuitOrder& order) {
    CardMask result = 0;
    for (int suit = 0; suit < 4; ++suit)
        result |= ((mask >> (13 * suit)) & suit_field) << (13 * order[suit]);
    return result;
}

void permute_range(CardMask flop, CardMask turn, CardMask river, double* out, const double* in) {
    permute_range(make_suit_order(flop, turn, river), out, in);
}

void unpermute_row(CardMask flop, CardMask turn, CardMask river, double* out, const float* in) {
    unpermute_row(make_suit_order(flop, turn, river), out, in);
}

void permute_range(const SuitOrder& order, double* out, const double* in) {
    int slot = 0;
    for (Card hi = 1; hi < 52; ++hi)
        for (Card lo = 0; lo < hi; ++lo, ++slot)
            out[slot_of_cards(order_card(hi, order), order_card(lo, order))] = in[slot];
}

void unpermute_row(const SuitOrder& order, double* out, const float* in) {
    int slot = 0;
    for (Card hi = 1; hi < 52; ++hi)
        for (Card lo = 0; lo < hi; ++lo, ++slot)
            out[slot] = in[slot_of_cards(order_card(hi, order), order_card(lo, order))];
}

std::string inconsistent_range_text(int player, ComboSlot first_slot, double first_weight,
                                    ComboSlot slot, double weight) {
    char text[256];
    snprintf(text, sizeof text,
             "inconsistent range: %s P(%s) == %.2g, P(%s) == %.2g, use 'set_isomorphism 0 0' if intended",
             player == OOP ? "OOP" : "IP", combo_text(first_slot).c_str(), first_weight,
             combo_text(slot).c_str(), weight);
    return text;
}

void check_range_symmetry() {
    // Only a flop tree is tested; the masks say which street the tree starts on.
    const bool flop_tree = turn_mask == 0 && river_mask == 0;
    constexpr int flop_street_number = 1;
    if (!flop_tree || !isomorphism_by_street[flop_street_number]) return;
    // One ulp of 1.0: weights that went through the same text agree exactly,
    // anything more is a real difference.
    constexpr double tolerance = 2.220446049250313e-16;
    for (int player = 0; player < 2; ++player) {
        if (!player_range[player]) continue;
        const RangeVector& weights = *player_range[player];
        for (int hand_class = 0; hand_class < hand_class_count; ++hand_class) {
            double first = -9999.0;
            ComboSlot first_slot = -1;
            for (const ComboSlot slot : hand_class_slots[hand_class]) {
                if (slot_mask[slot] & flop_mask) continue;
                if (first < 0) {
                    first = weights[slot];
                    first_slot = slot;
                } else if (std::fabs(first - weights[slot]) > tolerance) {
                    throw_command_error(
                        inconsistent_range_text(player, first_slot, first, slot, weights[slot]));
                }
            }
        }
    }
}
