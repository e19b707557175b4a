// Hand categories: what each of the 1326 combos holds on a stated board, for
// reports that group a range by meaning (top pair, overpair, flush draw).
//
// A hand is judged against what the board shows by itself: one that only
// plays the board counts for little, however strong its five cards are.
// Independent of any tree; changes no state.
#pragma once

#include <array>

#include "model/cards.h"
#include "shell/protocol/reply.h"

// Made-hand categories; the number is the one reported. `top_pair_tp` has a
// name and a number but no rule yields it: clients know the gap.
enum MadeHandCategory : int {
    made_nothing,
    made_king_high,
    made_ace_high,
    made_low_pair,
    made_third_pair,
    made_second_pair,
    made_underpair,
    made_top_pair,
    made_top_pair_tp,
    made_overpair,
    made_two_pair,
    made_trips,
    made_set,
    made_straight,
    made_flush,
    made_fullhouse,
    made_top_fullhouse,
    made_quads,
    made_straight_flush,
    made_category_count
};

enum DrawCategory : int {
    draw_none,
    draw_4out_straight,
    draw_8out_straight,
    draw_flush,
    draw_combo,
    draw_category_count
};

extern const char* const made_category_names[made_category_count];
extern const char* const draw_category_names[draw_category_count];

// Made-hand category of each combo in hand order, held as its number times
// 100 (so 1800 for straight_flush); -1 for a combo that shares a card with
// the board. The board holds three to five cards.
std::array<int, combo_count> made_hand_categories(CardMask board);

// Draw category of each combo in hand order, from the outs that the next card
// brings; -1 for a blocked combo. A board of five cards has no next card: all
// 0, blocked combos included.
std::array<int, combo_count> draw_categories(CardMask board);

void show_category_names(const Tokens& tokens);
void show_categories(const Tokens& tokens);
