#include "model/categories.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "model/hand_strength.h"
#include "shell/protocol/tokens.h"

const char* const made_category_names[made_category_count] = {
    "nothing",     "king_high",   "ace_high", "low_pair", "third_pair",    "second_pair", "underpair",
    "top_pair",    "top_pair_tp", "overpair", "two_pair", "trips",         "set",         "straight",
    "flush",       "fullhouse",   "top_fullhouse", "quads", "straight_flush"};

const char* const draw_category_names[draw_category_count] = {
    "no_draw", "4out_straight_draw", "8out_straight_draw", "flush_draw", "combo_draw"};

namespace {

constexpr int blocked = -1;
constexpr int top_nibble = 4;  // place of bits 16-19

// A combo that shares no card with the board, with what the classifier
// needs of it.
struct LiveCombo {
    int index;  // ComboIndex
    CardMask cards;
    LaneMask lanes;
};

std::vector<LiveCombo> live_combos(CardMask board) {
    std::vector<LiveCombo> live;
    live.reserve(combo_count);
    for (int i = 0; i < combo_count; ++i)
        if (!(combo_mask[i] & board)) live.push_back({i, combo_mask[i], lane_mask_of(combo_mask[i])});
    return live;
}

HandValue value_of(LaneMask cards, int count) {
    switch (count) {
        case 3: return hand_value_3(cards);
        case 4: return hand_value_4(cards);
        case 5: return hand_value_5(cards);
        case 6: return hand_value_6(cards);
        default: return hand_value_7(cards);
    }
}

int card_count(CardMask cards) { return __builtin_popcountll(cards); }

uint32_t rank_mask_of(CardMask cards) {
    const LaneMask lanes = lane_mask_of(cards);
    return static_cast<uint32_t>((lanes | lanes >> 16 | lanes >> 32 | lanes >> 48) & 0x1FFF);
}

[[noreturn]] void classifier_bug() {
    std::lock_guard lock(output_mutex);
    fputs("ERROR: bug in hand classifier, please report!\n", stdout);
    fflush(stdout);
    std::_Exit(1);
}

// How a hole card of this rank stands against the board: two for each board
// rank above it (a rank shown twice counts once), plus one if it pairs the
// board. Odd exactly when it pairs; half, rounded down, is the ranks above it.
int card_score(int rank, uint32_t board_ranks) {
    return 2 * __builtin_popcount(board_ranks >> (rank + 1)) + static_cast<int>(board_ranks >> rank & 1);
}

// The score of the card that pairs the board, the first card in hand order
// (the higher) taking precedence; without a pairing card, the second card's.
int combo_score(CardMask combo, uint32_t board_ranks) {
    const int rank_a = card_rank(__builtin_ctzll(combo));
    const int rank_b = card_rank(63 - __builtin_clzll(combo));
    const int first = card_score(std::max(rank_a, rank_b), board_ranks);
    return first % 2 == 1 ? first : card_score(std::min(rank_a, rank_b), board_ranks);
}

MadeHandCategory pair_by_score(int score) {
    switch (score) {
        case 0: return made_overpair;
        case 1: return made_top_pair;
        case 2: return made_underpair;
        case 3: return made_second_pair;
        case 4:
        case 5: return made_third_pair;
        default: return made_low_pair;
    }
}

// Whether the hand's own cards lift the first rank nibble where it differs
// upward from the board's: only an ace or a king there counts for anything.
MadeHandCategory kicker_test(HandValue value, HandValue board_value) {
    for (int place = top_nibble; place >= 0; --place) {
        const uint32_t own = value_nibble(value, place);
        if (own <= value_nibble(board_value, place)) continue;
        if (own == 12) return made_ace_high;
        if (own == 11) return made_king_high;
        return made_nothing;
    }
    return made_nothing;
}

MadeHandCategory classify(HandValue value, HandValue board_value, int score) {
    const uint32_t board_category = hand_category(board_value);
    const bool above_board = value > board_value;
    switch (hand_category(value)) {
        case category_straight_flush:
            return board_category < category_straight_flush || above_board ? made_straight_flush : made_nothing;
        case category_quads:
            return board_category < category_quads ? made_quads : kicker_test(value, board_value);
        case category_full_house:
            if (board_category < category_full_house) return made_fullhouse;
            if (value_nibble(value, 4) > value_nibble(board_value, 4)) return made_top_fullhouse;
            if (value_nibble(value, 3) > value_nibble(board_value, 3)) return made_fullhouse;
            return made_nothing;
        case category_flush:
            // No kicker branch: on a board of five suited cards every flush,
            // the best one included, is nothing.
            return board_category < category_flush ? made_flush : made_nothing;
        case category_straight:
            return board_category < category_straight || above_board ? made_straight
                                                                     : kicker_test(value, board_value);
        case category_trips:
            if (board_category == category_high_card) return made_set;
            if (board_category == category_pair) return made_trips;
            // Two pair on the board can't become trips without a full house.
            if (board_category == category_two_pair) classifier_bug();
            return kicker_test(value, board_value);
        case category_two_pair:
            if (board_category == category_high_card) return made_two_pair;
            if (board_category == category_pair) return pair_by_score(score);
            if (value_nibble(value, 4) > value_nibble(board_value, 4) ||
                value_nibble(value, 3) > value_nibble(board_value, 3))
                return pair_by_score(score);
            return kicker_test(value, board_value);
        case category_pair:
            return board_category == category_pair ? kicker_test(value, board_value) : pair_by_score(score);
        default:
            return kicker_test(value, board_value);
    }
}

std::string numbers_line(const std::array<int, combo_count>& numbers, int divisor) {
    std::string line;
    line.reserve(combo_count * 6);
    for (int number : numbers) {
        line += std::to_string(number / divisor);
        line += ' ';
    }
    line += '\n';
    return line;
}

}  // namespace

std::array<int, combo_count> made_hand_categories(CardMask board) {
    std::array<int, combo_count> categories;
    categories.fill(blocked);
    const int board_cards = card_count(board);
    const LaneMask board_lanes = lane_mask_of(board);
    const HandValue board_value = value_of(board_lanes, board_cards);
    const uint32_t board_ranks = rank_mask_of(board);
    for (const LiveCombo& combo : live_combos(board)) {
        const HandValue value = value_of(board_lanes | combo.lanes, board_cards + 2);
        categories[combo.index] = 100 * classify(value, board_value, combo_score(combo.cards, board_ranks));
    }
    return categories;
}

std::array<int, combo_count> draw_categories(CardMask board) {
    std::array<int, combo_count> categories;
    const int board_cards = card_count(board);
    if (board_cards == 5) {
        categories.fill(draw_none);
        return categories;
    }
    categories.fill(blocked);
    const LaneMask board_lanes = lane_mask_of(board);
    const std::vector<LiveCombo> live = live_combos(board);
    std::vector<uint32_t> current_category(live.size());
    std::vector<int> straight_outs(live.size(), 0);
    std::vector<int> flush_outs(live.size(), 0);
    for (size_t i = 0; i < live.size(); ++i)
        current_category[i] = hand_category(value_of(board_lanes | live[i].lanes, board_cards + 2));

    for (Card next = 0; next < 52; ++next) {
        if (board & card_bit(next)) continue;
        const LaneMask next_board = board_lanes | lane_bit(next);
        // A four-card board is no hand to beat; a five-card one is.
        const HandValue board_value = board_cards + 1 == 4 ? 0 : hand_value_5(next_board);
        for (size_t i = 0; i < live.size(); ++i) {
            if (live[i].cards & card_bit(next)) continue;
            const HandValue value = value_of(next_board | live[i].lanes, board_cards + 3);
            if (value <= board_value) continue;
            const uint32_t category = hand_category(value);
            if (category == category_straight && current_category[i] < category_straight) ++straight_outs[i];
            if ((category == category_flush || category == category_straight_flush) &&
                current_category[i] < category_flush)
                ++flush_outs[i];
        }
    }

    for (size_t i = 0; i < live.size(); ++i) {
        int& category = categories[live[i].index];
        if (straight_outs[i] > 0 && flush_outs[i] > 0)
            category = draw_combo;
        else if (flush_outs[i] > 0)
            category = draw_flush;
        else
            // Four outs make 1 and eight make 2; fewer than four make no draw
            // and twelve make 3, the number of flush_draw. Clients read it so.
            category = straight_outs[i] / 4;
    }
    return categories;
}

void show_category_names(const Tokens&) {
    std::string made_line;
    for (const char* name : made_category_names) made_line += std::string(name) + ' ';
    std::string draw_line;
    for (const char* name : draw_category_names) draw_line += std::string(name) + ' ';
    reply_text(made_line + '\n');
    reply_text(draw_line + '\n');
    reply("END\n");
}

void show_categories(const Tokens& tokens) {
    // The board may come as one token or as many.
    const CardMask board = parse_cards(join_tokens(tokens, 1, tokens.size()));
    const int board_cards = card_count(board);
    if (board_cards < 3 || board_cards > 5) throw_command_error("invalid board");
    // A blocked combo is -1 inside; its made-hand number prints as -1 / 100.
    reply_text(numbers_line(made_hand_categories(board), 100));
    reply_text(numbers_line(draw_categories(board), 1));
    reply("END\n");
}
