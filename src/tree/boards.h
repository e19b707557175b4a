// The tree of boards: the flop, every turn card stored under it and every river
// card under each turn, each with its list of live hands. A hand's place in a
// board's list is its index in every row of numbers for that board, so all the
// filtering, strength look-ups and sorting happen here, once per build, and
// never inside the solver's loops.
//
// Both players share one list per board. A river list is sorted by showdown
// strength with its runs of equal strength cut out in advance; a child's list
// is a subset of its parent's, joined to it by index tables, one per real card
// that the stored board stands for under suit isomorphism.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/cards.h"
#include "tree/isomorphism.h"

// The most hands a river list can hold: two of the 47 unseen cards.
constexpr int max_river_hands = 1081;
// Runs of up to this many tied hands are swept with lane masks.
constexpr int small_group_limit = 16;

// A run of at most 16 tied hands. `lanes` is a byte mask: with n = count when
// count is at most 8, else count - 8, its low n bytes are 0xFF.
struct SmallGroup {
    int32_t group = 0;  // the run's number in strength_groups
    int16_t first = 0;  // index of its first hand in the list
    int16_t count = 0;
    uint64_t lanes = 0;
};

// A run of more than 16 tied hands.
struct LargeGroup {
    int32_t group = 0;
    int32_t first = 0;
    int32_t count = 0;
};

using CardIndexTable = std::array<int16_t, 52>;

// One stored turn or river card. A turn board uses the turn fields, a river
// board the river fields; the others stay empty.
struct RunoutBoard {
    CardMask mask = 0;       // all the cards of this board
    int32_t card = -1;       // the card dealt
    int32_t multiplicity = 1;  // how many real cards it stands for, 1 to 4
    std::vector<CardMask> hands;
    std::vector<uint16_t> hand_cards;  // low Card in the low byte, high Card in the high byte
    std::vector<int16_t> hand_of_slot;  // ComboSlot -> index in hands, -1 when absent
    std::vector<int32_t> strengths;     // HandValue of each hand on this board
    // Table k: for each hand, the index in the parent's list of its image under
    // the swap of the card's suit s with suit s + k. Table 0 is the identity.
    // A negative entry marks an image that the parent lacks (an asymmetric
    // range); it must never be used as an index.
    std::vector<std::vector<int16_t>> image_tables;

    // Turn boards.
    std::vector<RunoutBoard> rivers;
    std::vector<int32_t> river_hand_counts;
    CardIndexTable river_of_card{};  // Card -> index in rivers, -1 when not stored
    // Runout table, when the tree has showdowns that open the river: entry
    // [o * count + x], over every real river card that neither hand holds, the
    // rivers on which hand x beats hand o less those on which it loses (0 for
    // hands that share a card). Empty when not made.
    std::vector<int8_t> runout_wins;

    // River boards.
    std::vector<int16_t> strength_groups;  // lengths of the runs of equal strength
    std::vector<SmallGroup> small_groups;
    std::vector<LargeGroup> large_groups;
};

// Rounding alone sets a hand's suit images apart in the last bits of their
// reaches; only a relative difference above this counts.
constexpr double image_reach_tolerance = 1e-4;

// Whether `reach`, a list of the hands above `card`, reaches some hand of the
// card differently from one of its suit images: then each real card the stored
// one stands for must be dealt through its own table.
template <typename Value>
bool reach_differs_across_images(const RunoutBoard& card, const Value* reach) {
    const std::vector<int16_t>& identity = card.image_tables[0];
    for (int k = 1; k < card.multiplicity; ++k) {
        const std::vector<int16_t>& table = card.image_tables[k];
        for (size_t h = 0; h < identity.size(); ++h) {
            const double stored = reach[identity[h]];
            const double image = table[h] >= 0 ? reach[table[h]] : 0.0;
            if (std::fabs(stored - image) > image_reach_tolerance * std::max(std::fabs(stored), std::fabs(image)))
                return true;
        }
    }
    return false;
}

// The flop and everything under it; one per engine. A tree that starts on the
// turn or the river still has it, with a single stored turn (and river).
struct RootBoard {
    CardMask mask = 0;  // the flop, in canonical suits when isomorphism is on
    std::vector<CardMask> hands;  // in ComboSlot order
    std::vector<uint16_t> hand_cards;
    std::vector<int16_t> hand_of_slot;
    std::vector<RunoutBoard> turns;
    std::vector<int32_t> turn_hand_counts;
    std::vector<std::vector<int32_t>> river_hand_counts;  // by turn board, by river board
    CardIndexTable turn_of_card{};  // Card -> index in turns, -1 when not stored
};

// The slot of a two-card hand mask, and its two cards as a hand_cards word.
inline ComboSlot slot_of_hand(CardMask hand) {
    return slot_of_cards(__builtin_ctzll(hand), 63 - __builtin_clzll(hand));
}
inline uint16_t hand_cards_word(CardMask hand) {
    return static_cast<uint16_t>(__builtin_ctzll(hand) | (63 - __builtin_clzll(hand)) << 8);
}

struct DealtCard {
    Card card = 0;
    int32_t multiplicity = 1;
};

// The cards that can come next on `mask`. Without isomorphism every unseen card
// by rising Card. With it, `mask` must be in canonical suits: the unseen cards
// of the suits it shows, then the cards of the first missing suit standing for
// all the missing suits.
std::vector<DealtCard> next_cards(CardMask mask, bool isomorphic);

// The boards without their lists. `turn` and `river` are a Card or -1; all
// cards are canonical when isomorphism is on.
std::unique_ptr<RootBoard> make_boards(CardMask flop, Card turn, Card river, bool isomorphic);

// Fills every list of the tree of boards from the working ranges: 1326 weights
// each, in ComboSlot order. Turn boards are built in parallel, four threads.
void SetHoles(RootBoard& root, const double* weights_oop, const double* weights_ip);

// Makes the runout table of every turn board, once its lists are built. A
// board whose rivers' image tables lack some image gets none. The AVX2 form
// is used where it runs unless `allow_avx2` is false; both give the same
// tables.
void build_runout_tables(RootBoard& root, bool allow_avx2 = true);

// The list, strengths and image tables of one runout board, from its parent's
// list; used by build_turn and build_river. An image missing from the parent
// list adds an "isomorph error" line to `report`.
void build_list(RunoutBoard& board, const std::vector<CardMask>& parent_hands,
                const std::vector<int16_t>& parent_hand_of_slot, std::string& report);
void build_turn(RunoutBoard& board, const RootBoard& root, std::string& report);
void build_river(RunoutBoard& board, const std::vector<CardMask>& parent_hands,
                 const std::vector<int16_t>& parent_hand_of_slot, std::string& report);

// Orders hands of equal strength on a river board by their rank and suit
// pattern, so that the list order doesn't depend on memory order. -1 for an
// empty hand.
int32_t tie_key(CardMask mask, CardMask hand);

// Lane byte mask of a small group of `count` hands.
constexpr uint64_t small_group_lanes(int count) {
    const int bytes = count <= 8 ? count : count - 8;
    return bytes >= 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * bytes)) - 1;
}

// Each player's weight of each hand of the tree's root list, and the same
// divided by the weighted number of deals.
void set_root_weights(const double* weights_oop, const double* weights_ip,
                      const std::vector<CardMask>& hands, std::vector<float> (&root_weights)[2],
                      std::vector<float> (&root_reach)[2]);

// Where a pair of real cards leads in the tree of boards. An index of -1 means
// that card isn't named (or not stored); the walk stops at the level above.
struct BoardLocation {
    int32_t turn_index = -1;
    int32_t river_index = -1;
    const RunoutBoard* board = nullptr;  // the deepest board reached; null at the flop
};

// Looks up a turn and river given in the client's suits (each a Card or -1).
// With isomorphism on they are first renamed by the order of the real flop and
// the two cards.
BoardLocation board_lookup(const RootBoard& root, CardMask real_flop, Card turn, Card river,
                           bool isomorphic);
