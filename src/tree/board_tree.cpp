// The shape of the tree of boards: which turn and river cards are stored, in
// which order, and how a query's real cards find them.
#include <algorithm>

#include "tree/boards.h"

namespace {

int suit_count(CardMask mask, int suit) {
    return __builtin_popcountll((mask >> (13 * suit)) & 0x1FFF);
}

// The suit that a flush could come in on a four-card board: the one with the
// most cards (lowest on a tie), or -1 when no suit has two.
int flush_suit(CardMask mask) {
    int best = -1;
    int best_count = 1;
    for (int suit = 0; suit < 4; ++suit) {
        const int count = suit_count(mask, suit);
        if (count > best_count) {
            best = suit;
            best_count = count;
        }
    }
    return best;
}

// River cards go in rank order, then suit order, with the cards of the suit
// that could complete a flush after all the others.
void sort_rivers(std::vector<DealtCard>& cards, CardMask turn_board) {
    const int flush = flush_suit(turn_board);
    auto key = [flush](const DealtCard& dealt) {
        const bool in_flush = card_suit(dealt.card) == flush;
        return (in_flush ? 1 : 0) * 64 + card_rank(dealt.card) * 4 + card_suit(dealt.card);
    };
    std::stable_sort(cards.begin(), cards.end(),
                     [&key](const DealtCard& a, const DealtCard& b) { return key(a) < key(b); });
}

CardIndexTable unstored_cards() {
    CardIndexTable table;
    table.fill(-1);
    return table;
}

RunoutBoard make_runout(CardMask parent_mask, const DealtCard& dealt) {
    RunoutBoard board;
    board.mask = parent_mask | card_bit(dealt.card);
    board.card = dealt.card;
    board.multiplicity = dealt.multiplicity;
    board.image_tables.resize(dealt.multiplicity);
    return board;
}

}  // namespace

std::vector<DealtCard> next_cards(CardMask mask, bool isomorphic) {
    std::vector<DealtCard> cards;
    if (!isomorphic) {
        for (Card card = 0; card < 52; ++card)
            if (!(mask & card_bit(card))) cards.push_back({card, 1});
        return cards;
    }
    int shown = 0;
    for (int suit = 0; suit < 4; ++suit)
        if (suit_count(mask, suit) > 0) ++shown;
    for (int suit = 0; suit < shown; ++suit)
        for (int rank = 0; rank < 13; ++rank)
            if (!(mask & card_bit(make_card(rank, suit)))) cards.push_back({make_card(rank, suit), 1});
    if (shown < 4)
        for (int rank = 0; rank < 13; ++rank) cards.push_back({make_card(rank, shown), 4 - shown});
    return cards;
}

std::unique_ptr<RootBoard> make_boards(CardMask flop, Card turn, Card river, bool isomorphic) {
    auto boards = std::make_unique<RootBoard>();
    RootBoard& root = *boards;
    root.mask = flop;
    root.turn_of_card = unstored_cards();

    std::vector<DealtCard> turn_cards;
    if (turn < 0) {
        turn_cards = next_cards(flop, isomorphic);
    } else {
        turn_cards.push_back({turn, 1});
    }
    root.turns.reserve(turn_cards.size());
    for (const DealtCard& dealt : turn_cards) {
        root.turn_of_card[dealt.card] = static_cast<int16_t>(root.turns.size());
        RunoutBoard& board = root.turns.emplace_back(make_runout(flop, dealt));
        board.river_of_card = unstored_cards();

        std::vector<DealtCard> river_cards;
        if (river < 0) {
            river_cards = next_cards(board.mask, isomorphic);
            sort_rivers(river_cards, board.mask);
        } else {
            river_cards.push_back({river, 1});
        }
        board.rivers.reserve(river_cards.size());
        for (const DealtCard& river_dealt : river_cards) {
            board.river_of_card[river_dealt.card] = static_cast<int16_t>(board.rivers.size());
            board.rivers.push_back(make_runout(board.mask, river_dealt));
        }
    }
    return boards;
}

BoardLocation board_lookup(const RootBoard& root, CardMask real_flop, Card turn, Card river,
                           bool isomorphic) {
    BoardLocation location;
    if (turn < 0) return location;
    if (isomorphic) {
        CardMask flop = real_flop;
        CardMask turn_card = card_bit(turn);
        CardMask river_card = river < 0 ? 0 : card_bit(river);
        SuitOrder order;
        canonical_suits(order, flop, turn_card, river_card);
        turn = order_card(turn, order);
        if (river >= 0) river = order_card(river, order);
    }
    const int turn_index = root.turn_of_card[turn];
    if (turn_index < 0) return location;
    location.turn_index = turn_index;
    location.board = &root.turns[turn_index];
    if (river < 0) return location;
    const int river_index = location.board->river_of_card[river];
    if (river_index < 0) return location;
    location.river_index = river_index;
    location.board = &location.board->rivers[river_index];
    return location;
}
