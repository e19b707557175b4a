#include "tree/board_rows.h"

#include <array>
#include <limits>

#include "shell/protocol/reply.h"
#include "tree/boards.h"
#include "tree/isomorphism.h"

namespace {

bool isomorphic(const SubgameEngine& e) { return (e.flags & isomorphism_on_flag) != 0; }

CardMask mask_of(Card card) { return card >= 0 ? card_bit(card) : 0; }

// Swaps canonical suits `a` and `b` after the order.
void swap_suits(SuitOrder& order, int a, int b) {
    for (uint8_t& suit : order) {
        if (suit == a) {
            suit = static_cast<uint8_t>(b);
        } else if (suit == b) {
            suit = static_cast<uint8_t>(a);
        }
    }
}

// Which image of its stored board a real card is, in the suits of the list
// it is dealt from.
int image_of(const RunoutBoard& board, Card card) {
    const int image = card_suit(card) - card_suit(board.card);
    return image > 0 && image < board.multiplicity ? image : 0;
}

}  // namespace

RunoutImages runout_images(const SubgameEngine& e, Card turn, Card river, int turn_index, int river_index) {
    RunoutImages images;
    if (!isomorphic(e) || turn < 0 || turn_index < 0) return images;
    const RunoutBoard& turn_board = e.root_board->turns[turn_index];
    const bool turn_dealt = e.fixed_turn < 0;
    const SuitOrder order = make_suit_order(e.flop, turn_dealt ? 0 : card_bit(turn), 0);
    if (turn_dealt) images.turn = image_of(turn_board, order_card(turn, order));
    if (river < 0 || river_index < 0) return images;
    // A river is dealt from its stored turn's list: in the suits of the real
    // turn's image, swapped back.
    Card card = order_card(river, order);
    if (images.turn > 0) {
        const int stored = card_suit(turn_board.card);
        const int swapped = stored + images.turn;
        const int suit = card_suit(card);
        if (suit == stored) card = make_card(card_rank(card), swapped);
        if (suit == swapped) card = make_card(card_rank(card), stored);
    }
    images.river = image_of(turn_board.rivers[river_index], card);
    return images;
}

bool find_query_board(const SubgameEngine& e, Card turn, Card river, QueryBoard& board) {
    const RootBoard& root = *e.root_board;
    board = QueryBoard{};
    if (turn < 0) {
        board.hand_of_slot = &root.hand_of_slot;
        board.hand_cards = &root.hand_cards;
        board.hand_count = static_cast<int32_t>(root.hands.size());
        return true;
    }
    const BoardLocation location = board_lookup(root, e.flop, turn, river, isomorphic(e));
    if (location.turn_index < 0 || (river >= 0 && location.river_index < 0)) return false;
    board.turn_index = location.turn_index;
    board.river_index = location.river_index;
    board.turn = turn;
    board.river = river;
    board.hand_of_slot = &location.board->hand_of_slot;
    board.hand_cards = &location.board->hand_cards;
    board.hand_count = static_cast<int32_t>(location.board->hands.size());
    board.images = runout_images(e, turn, river, board.turn_index, board.river_index);
    return true;
}

QueryBoard node_query_board(const SubgameEngine& e, const TreeNode& node, Card turn, Card river) {
    if (node.street == flop_street) {
        turn = -1;
        river = -1;
    } else if (turn < 0 || (node.street == river_street && river < 0)) {
        // The rows of a later street belong to its cards: without them there
        // is no row.
        throw_command_error("incorrect path");
    } else if (node.street == turn_street) {
        river = -1;
    }
    QueryBoard board;
    if (!find_query_board(e, turn, river, board)) throw_command_error("incorrect path");
    return board;
}

SuitOrder client_suit_order(const SubgameEngine& e, const QueryBoard& board) {
    const CardMask turn = mask_of(board.turn);
    const CardMask river = mask_of(board.river);
    if (!e.images_may_differ || board.turn_index < 0) return make_suit_order(e.flop, turn, river);
    const bool turn_dealt = e.fixed_turn < 0;
    const bool river_dealt = e.fixed_river < 0;
    SuitOrder order = make_suit_order(e.flop, turn_dealt ? 0 : turn, river_dealt ? 0 : river);
    const RunoutBoard& turn_board = e.root_board->turns[board.turn_index];
    if (board.images.turn > 0) {
        const int stored = card_suit(turn_board.card);
        swap_suits(order, stored, stored + board.images.turn);
    }
    if (board.river_index >= 0 && board.images.river > 0) {
        const int stored = card_suit(turn_board.rivers[board.river_index].card);
        swap_suits(order, stored, stored + board.images.river);
    }
    return order;
}

RangeVector expand_row(const SubgameEngine& e, const QueryBoard& board, const float* row) {
    // The list is in canonical suits; first spread it over canonical slots.
    std::array<float, combo_count> canonical;
    const std::vector<int16_t>& hand_of_slot = *board.hand_of_slot;
    for (int slot = 0; slot < combo_count; ++slot) {
        const int hand = hand_of_slot[slot];
        canonical[slot] = hand < 0 ? std::numeric_limits<float>::quiet_NaN() : row[hand];
    }
    RangeVector out;
    if (isomorphic(e)) {
        unpermute_row(client_suit_order(e, board), out.data(), canonical.data());
    } else {
        for (int slot = 0; slot < combo_count; ++slot) out[slot] = canonical[slot];
    }
    return out;
}

void gather_row(const SubgameEngine& e, const QueryBoard& board, const RangeVector& values, float* row) {
    // Into canonical suits by the client's order, then onto the list.
    RangeVector canonical = values;
    if (isomorphic(e)) permute_range(client_suit_order(e, board), canonical.data(), values.data());
    const std::vector<int16_t>& hand_of_slot = *board.hand_of_slot;
    for (int slot = 0; slot < combo_count; ++slot) {
        const int hand = hand_of_slot[slot];
        if (hand >= 0) row[hand] = static_cast<float>(canonical[slot]);
    }
}
