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

CardMask random_board(std::mt19937_64& random, int cards) {
    CardMask board = 0;
    while (__builtin_popcountll(board) < cards) board |= card_bit(static_cast<Card>(random() % 52));
    return board;
}

TEST_F(Categories, MadeHandsOnBoardsOfEveryKind) {
    struct Case {
        const char *board, *combo;
        MadeHandCategory category;
    };
    const Case cases[] = {
        {"Ks 7d 2c", "AhKh", made_top_pair},      {"Ks 7d 2c", "AsAd", made_overpair},
        {"Ks 7d 2c", "9h9d", made_underpair},     {"Ks 7d 2c", "8h7h", made_second_pair},
        {"Ks 7d 2c", "3h2h", made_third_pair},    {"Ks 7d 2c", "AhQh", made_ace_high},
        {"Ks 7d 2c", "QhJh", made_nothing},       {"Ks 7d 2c", "7h7s", made_set},
        {"Ks 7d 2c", "Kh7h", made_two_pair},
        // A pair on a paired board is judged by the hole card that improves.
        {"Ks Kd 2c", "AhAd", made_overpair},      {"Ks Kd 2c", "Kh2h", made_fullhouse},
        {"Ks Kd 2c", "QhJh", made_nothing},       {"Ks 7d 7c", "7h8h", made_trips},
        {"Ks 7d 7c", "KhAh", made_top_pair},      {"Ks 7d 7c", "AhQh", made_ace_high},
        // Two pair on the board: only a hand that lifts a pair counts as one.
        {"Ks Kd 7c 7d", "AhQh", made_ace_high},   {"Ks Kd 7c 7d", "8h8s", made_underpair},
        {"Ks Kd 7c 7d", "3h3s", made_nothing},
        // Boards that already hold a strong hand: only what beats the board counts.
        {"2h 5h 8h Jh Kh", "AhQd", made_nothing},  {"2h 5h 8h Jh Kh", "Qh9h", made_nothing},
        {"7s 7d 7c Ks Kd", "Kh2c", made_top_fullhouse}, {"7s 7d 7c Ks Kd", "AhAd", made_fullhouse},
        {"7s 7d 7c Ks Kd", "QhQd", made_nothing},  {"7s 7d 7c Ks Kd", "7h2c", made_quads},
        {"5c 6d 7h 8s 9c", "Th2d", made_straight}, {"5c 6d 7h 8s 9c", "3h2d", made_nothing},
        {"Ah 2h 3h Kc", "5h4h", made_straight_flush}, {"Ah 2h 3h Kc", "5c4d", made_straight},
    };
    for (const Case& c : cases) {
        const auto made = made_hand_categories(parse_cards(c.board));
        EXPECT_EQ(made[index_of(c.combo)], 100 * c.category)
            << c.combo << " on " << c.board << " should be " << made_category_names[c.category];
    }
    // Blocked combos are marked, and top pair with top kicker never comes up.
    std::mt19937_64 random(99);
    for (int sample = 0; sample < 100; ++sample) {
        const CardMask board = random_board(random, 3 + sample % 3);
        const auto made = made_hand_categories(board);
        for (int i = 0; i < combo_count; ++i)
            ASSERT_EQ(made[i] == -1, (combo_mask[i] & board) != 0) << cards_to_text(board) << " " << i;
        ASSERT_EQ(std::count(made.begin(), made.end(), 100 * made_top_pair_tp), 0) << cards_to_text(board);
    }
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
    for (const int number : draw_categories(parse_cards("9s 8s 2c Ts Js"))) EXPECT_EQ(number, 0);  // the river
}

}  // namespace
