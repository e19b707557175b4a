#include "model/categories.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "model/cards.h"
#include "model/hand_strength.h"
#include "reference/hand_value.h"

namespace {

class Categories : public ::testing::Test {
protected:
    void SetUp() override {
        init_combo_tables();
        init_hand_strength_tables();
    }
};

int index_of(const std::string& combo) {
    const CardMask mask = parse_cards(combo);
    for (int i = 0; i < combo_count; ++i)
        if (combo_mask[i] == mask) return i;
    ADD_FAILURE() << "no combo " << combo;
    return 0;
}

// Expected made-hand categories of named combos on one board.
void expect_made(const std::string& board, std::initializer_list<std::pair<const char*, MadeHandCategory>> cases) {
    const auto made = made_hand_categories(parse_cards(board));
    for (const auto& [combo, category] : cases)
        EXPECT_EQ(made[index_of(combo)], 100 * category)
            << combo << " on " << board << " should be " << made_category_names[category];
}

CardMask random_board(std::mt19937_64& random, int cards) {
    CardMask board = 0;
    while (__builtin_popcountll(board) < cards) board |= card_bit(static_cast<Card>(random() % 52));
    return board;
}

TEST_F(Categories, PairsAndHighCardsOnUnpairedAndPairedFlops) {
    expect_made("Ks 7d 2c", {{"AhKh", made_top_pair},
                             {"AsAd", made_overpair},
                             {"9h9d", made_underpair},
                             {"8h7h", made_second_pair},
                             {"3h2h", made_third_pair},
                             {"AhQh", made_ace_high},
                             {"QhJh", made_nothing},
                             {"7h7s", made_set},
                             {"Kh7h", made_two_pair}});
    // A pair on a paired board is judged by the hole card that improves.
    expect_made("Ks Kd 2c", {{"AhAd", made_overpair}, {"Kh2h", made_fullhouse}, {"QhJh", made_nothing}});
    expect_made("Ks 7d 7c", {{"7h8h", made_trips}, {"KhAh", made_top_pair}, {"AhQh", made_ace_high}});
    // Two pair on the board: only a hand that lifts a pair counts as one.
    expect_made("Ks Kd 7c 7d", {{"AhQh", made_ace_high}, {"8h8s", made_underpair}, {"3h3s", made_nothing}});
}

TEST_F(Categories, BoardsThatAlreadyHoldAStrongHand) {
    // The straight flush is on the board and nothing is above it.
    const auto royal = made_hand_categories(parse_cards("As Ks Qs Js Ts"));
    const CardMask royal_board = parse_cards("As Ks Qs Js Ts");
    for (int i = 0; i < combo_count; ++i) EXPECT_EQ(royal[i], combo_mask[i] & royal_board ? -1 : 0) << i;

    // Quads on the board: only a kicker nibble above the board's can count.
    const auto quads_ace = made_hand_categories(parse_cards("9s 9d 9c 9h Ac"));
    for (int i = 0; i < combo_count; ++i) EXPECT_LE(quads_ace[i], 0) << i;
    expect_made("9s 9d 9c 9h 2c", {{"AsAd", made_ace_high}, {"KsKd", made_king_high}, {"QsQd", made_nothing}});

    // Five suited cards: every flush is nothing, the best one included.
    expect_made("2h 5h 8h Jh Kh", {{"AhQd", made_nothing}, {"Qh9h", made_nothing}, {"9s9d", made_nothing}});
    expect_made("7s 7d 7c Ks Kd", {{"Kh2c", made_top_fullhouse},
                                   {"AhAd", made_fullhouse},
                                   {"QhQd", made_nothing},
                                   {"7h2c", made_quads}});
    expect_made("5c 6d 7h 8s 9c", {{"Th2d", made_straight}, {"3h2d", made_nothing}, {"AhAd", made_nothing}});
    expect_made("Ah 2h 3h Kc", {{"5h4h", made_straight_flush}, {"5c4d", made_straight}});
}

TEST_F(Categories, TopPairTpIsNeverAssigned) {
    std::mt19937_64 random(99);
    for (int sample = 0; sample < 300; ++sample) {
        const CardMask board = random_board(random, 3 + sample % 3);
        const auto made = made_hand_categories(board);
        for (int i = 0; i < combo_count; ++i)
            ASSERT_EQ(made[i] == -1, (combo_mask[i] & board) != 0) << cards_to_text(board) << " " << i;
        ASSERT_EQ(std::count(made.begin(), made.end(), 100 * made_top_pair_tp), 0) << cards_to_text(board);
    }
}

TEST_F(Categories, NoDrawsOnTheRiver) {
    for (const int number : draw_categories(parse_cards("9s 8s 2c Ts Js"))) EXPECT_EQ(number, 0);
}

// Draw category of every combo, counted card by card with the reference
// evaluator and the plain rule.
std::array<int, combo_count> brute_force_draws(CardMask board) {
    std::array<int, combo_count> draws;
    for (int i = 0; i < combo_count; ++i) {
        const CardMask combo = combo_mask[i];
        if (combo & board) {
            draws[i] = -1;
            continue;
        }
        const uint32_t current = hand_category(reference_hand_value(board | combo));
        int straight_outs = 0, flush_outs = 0;
        for (Card next = 0; next < 52; ++next) {
            const CardMask next_bit = card_bit(next);
            if ((board | combo) & next_bit) continue;
            const CardMask next_board = board | next_bit;
            const HandValue to_beat = __builtin_popcountll(next_board) == 5 ? reference_hand_value(next_board) : 0;
            const HandValue value = reference_hand_value(next_board | combo);
            if (value <= to_beat) continue;
            straight_outs += hand_category(value) == 4 && current < 4;
            flush_outs += (hand_category(value) == 5 || hand_category(value) == 8) && current < 5;
        }
        if (straight_outs && flush_outs) draws[i] = 4;
        else if (flush_outs) draws[i] = 3;
        else draws[i] = straight_outs / 4;
    }
    return draws;
}

TEST_F(Categories, DrawLineMatchesBruteForceOutCount) {
    std::vector<std::string> boards = {"9s 8s 2c", "Ts 9d 8c", "As 2d 3c", "Kh Qh Jh", "Ks 7d 2c",
                                       "6c 7c 8d 9d", "2h 5h 8h Jh", "5s 6s 7s 8s", "9s 8s 7c"};
    std::mt19937_64 random(5);
    for (int extra = 0; extra < 6; ++extra) boards.push_back(cards_to_text(random_board(random, 3 + extra % 2)));
    for (const std::string& board : boards) {
        const auto draws = draw_categories(parse_cards(board));
        const auto expected = brute_force_draws(parse_cards(board));
        int differences = 0;
        for (int i = 0; i < combo_count; ++i)
            if (draws[i] != expected[i] && ++differences <= 3)
                ADD_FAILURE() << "on " << board << " combo " << i << ": " << draws[i] << ", expected "
                              << expected[i];
        EXPECT_EQ(differences, 0) << board;
    }
}

}  // namespace
