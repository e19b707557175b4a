// The hand lists of the tree of boards: which hands are live on each board, in
// which order, how strong, and where each one sits in the parent's list.
#include <algorithm>
#include <cstdio>
#include <mutex>
#include <string>

#include "model/hand_strength.h"
#include "shell/protocol/reply.h"
#include "tree/boards.h"

namespace {

// A list is sorted by one 64-bit key per live hand: the strength above the
// tie key above the parent index. The index makes every key distinct, so a
// plain sort gives the order of a stable one. A HandValue uses bits 0-27, a
// tie key plus one fits in 16 bits and a parent index in 11.
constexpr int index_bits = 11;
constexpr int tie_bits = 16;
constexpr uint64_t index_field = (uint64_t{1} << index_bits) - 1;
static_assert(combo_count <= (1 << index_bits));

using LaneEvaluator = HandValue (*)(LaneMask);

// Runout boards hold four or five cards, so a hand with them has six or seven.
LaneEvaluator evaluator_for(int card_count) {
    return card_count == 6 ? hand_value_6 : hand_value_7;
}

void fill_hand_cards(std::vector<uint16_t>& hand_cards, const std::vector<CardMask>& hands) {
    hand_cards.resize(hands.size());
    for (size_t i = 0; i < hands.size(); ++i) hand_cards[i] = hand_cards_word(hands[i]);
}

void fill_hand_of_slot(std::vector<int16_t>& hand_of_slot, const std::vector<CardMask>& hands) {
    hand_of_slot.assign(combo_count, -1);
    for (size_t i = 0; i < hands.size(); ++i)
        hand_of_slot[slot_of_hand(hands[i])] = static_cast<int16_t>(i);
}

void append_cards_text(std::string& line, CardMask mask) {
    static constexpr char ranks[] = "23456789TJQKA";
    static constexpr char suits[] = "cdhs";
    for (; mask; mask &= mask - 1) {
        const Card card = __builtin_ctzll(mask);
        line += ranks[card_rank(card)];
        line += suits[card_suit(card)];
        line += ' ';
    }
}

void report_missing_image(std::string& report, CardMask board, CardMask hand, CardMask image) {
    report += "isomorph error: ";
    append_cards_text(report, board);
    report += " | ";
    append_cards_text(report, hand);
    report += " | ";
    append_cards_text(report, image);
    report += '\n';
}

// The order that swaps suits a and b.
SuitOrder suit_swap(int a, int b) {
    SuitOrder order = identity_suit_order();
    std::swap(order[a], order[b]);
    return order;
}

}  // namespace

int32_t tie_key(CardMask mask, CardMask hand) {
    if (hand == 0) return -1;
    const Card low_card = __builtin_ctzll(hand);
    const Card high_card = 63 - __builtin_clzll(hand);
    // a has the higher rank; on a pair, the lower Card.
    const bool high_first = card_rank(high_card) > card_rank(low_card);
    const Card a = high_first ? high_card : low_card;
    const Card b = high_first ? low_card : high_card;
    auto on_board = [mask](Card card) { return ((mask >> (13 * card_suit(card))) & 0x1FFF) != 0; };
    int32_t suit_pattern;
    if (card_suit(a) != card_suit(b)) {
        suit_pattern = (on_board(a) ? 32 - 8 * card_suit(a) : 0) | (on_board(b) ? 4 - card_suit(b) : 0);
    } else {
        suit_pattern = (on_board(a) ? 4 - card_suit(a) : 0) | 64;
    }
    return (card_rank(a) * 13 + card_rank(b)) << 8 | suit_pattern;
}

void build_list(RunoutBoard& board, const std::vector<CardMask>& parent_hands,
                const std::vector<int16_t>& parent_hand_of_slot, std::string& report) {
    const int board_cards = __builtin_popcountll(board.mask);
    const bool river = board_cards == 5;
    const LaneMask board_lanes = lane_mask_of(board.mask);
    const LaneEvaluator evaluate = evaluator_for(board_cards + 2);

    std::vector<uint64_t> keys;
    keys.reserve(parent_hands.size());
    for (size_t i = 0; i < parent_hands.size(); ++i) {
        const CardMask hand = parent_hands[i];
        if (hand & board.mask) continue;
        const HandValue strength = evaluate(board_lanes | lane_mask_of(hand));
        const uint64_t tie = river ? static_cast<uint64_t>(tie_key(board.mask, hand) + 1) : 0;
        keys.push_back(uint64_t{strength} << (tie_bits + index_bits) | tie << index_bits | i);
    }
    std::sort(keys.begin(), keys.end());

    const int images = board.multiplicity;
    SuitOrder swaps[4];
    for (int k = 1; k < images; ++k)
        swaps[k] = suit_swap(card_suit(board.card), card_suit(board.card) + k);

    board.hands.resize(keys.size());
    board.strengths.resize(keys.size());
    board.image_tables.resize(images);
    for (auto& table : board.image_tables) table.resize(keys.size());
    for (size_t n = 0; n < keys.size(); ++n) {
        const size_t i = keys[n] & index_field;
        const CardMask hand = parent_hands[i];
        board.hands[n] = hand;
        board.strengths[n] = static_cast<int32_t>(keys[n] >> (tie_bits + index_bits));
        board.image_tables[0][n] = static_cast<int16_t>(i);
        for (int k = 1; k < images; ++k) {
            const CardMask image = apply_order(hand, swaps[k]);
            const int16_t parent_index = parent_hand_of_slot[slot_of_hand(image)];
            board.image_tables[k][n] = parent_index;
            if (parent_index < 0) report_missing_image(report, board.mask, hand, image);
        }
    }
}

void build_river(RunoutBoard& board, const std::vector<CardMask>& parent_hands,
                 const std::vector<int16_t>& parent_hand_of_slot, std::string& report) {
    build_list(board, parent_hands, parent_hand_of_slot, report);
    fill_hand_cards(board.hand_cards, board.hands);

    board.strength_groups.clear();
    const size_t hand_count = board.hands.size();
    for (size_t start = 0; start < hand_count;) {
        size_t end = start + 1;
        while (end < hand_count && board.strengths[end] == board.strengths[start]) ++end;
        board.strength_groups.push_back(static_cast<int16_t>(end - start));
        start = end;
    }
    size_t covered = 0;
    for (const int16_t length : board.strength_groups) covered += length;
    if (covered != hand_count) fail("");

    board.small_groups.clear();
    board.large_groups.clear();
    int32_t offset = 0;
    for (size_t group = 0; group < board.strength_groups.size(); ++group) {
        const int32_t count = board.strength_groups[group];
        if (count > small_group_limit) {
            board.large_groups.push_back({static_cast<int32_t>(group), offset, count});
        } else {
            board.small_groups.push_back({static_cast<int32_t>(group), static_cast<int16_t>(offset),
                                          static_cast<int16_t>(count), small_group_lanes(count)});
        }
        offset += count;
    }
    fill_hand_of_slot(board.hand_of_slot, board.hands);
}

void build_turn(RunoutBoard& board, const RootBoard& root, std::string& report) {
    build_list(board, root.hands, root.hand_of_slot, report);
    fill_hand_cards(board.hand_cards, board.hands);
    fill_hand_of_slot(board.hand_of_slot, board.hands);
    board.river_hand_counts.clear();
    for (RunoutBoard& river : board.rivers) {
        build_river(river, board.hands, board.hand_of_slot, report);
        board.river_hand_counts.push_back(static_cast<int32_t>(river.hands.size()));
    }
}

void SetHoles(RootBoard& root, const double* weights_oop, const double* weights_ip) {
    root.hand_of_slot.assign(combo_count, -1);
    root.hands.clear();
    int slot = 0;
    for (Card hi = 1; hi < 52; ++hi) {
        for (Card lo = 0; lo < hi; ++lo, ++slot) {
            const CardMask hand = card_bit(hi) | card_bit(lo);
            if (hand & root.mask) continue;
            if (weights_oop[slot] > 0 || weights_ip[slot] > 0) {
                root.hand_of_slot[slot] = static_cast<int16_t>(root.hands.size());
                root.hands.push_back(hand);
            }
        }
    }
    fill_hand_cards(root.hand_cards, root.hands);

    const int turn_count = static_cast<int>(root.turns.size());
    root.turn_hand_counts.assign(turn_count, 0);
    root.river_hand_counts.assign(turn_count, {});
    // Each iteration writes only its own turn board, its own count entries and
    // its own report, and the reports are printed in turn order: the lines
    // come out the same however the turns were shared out.
    std::vector<std::string> reports(static_cast<size_t>(turn_count));
#pragma omp parallel for num_threads(4) schedule(dynamic, 1)
    for (int i = 0; i < turn_count; ++i) {
        RunoutBoard& board = root.turns[i];
        build_turn(board, root, reports[static_cast<size_t>(i)]);
        root.turn_hand_counts[i] = static_cast<int32_t>(board.hands.size());
        root.river_hand_counts[i] = board.river_hand_counts;
    }
    // Straight to standard output, not replies, as the build has always
    // printed them.
    std::lock_guard<std::mutex> guard(output_mutex);
    for (const std::string& report : reports) fputs(report.c_str(), stdout);
}
