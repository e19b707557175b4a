#include "model/cards.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

namespace {

struct CardsTest : testing::Test {
    static void SetUpTestSuite() { init_combo_tables(); }
};

TEST_F(CardsTest, OrdersAreMutualInversesWithTheStatedAnchors) {
    for (int i = 0; i < combo_count; ++i) {
        EXPECT_EQ(combo_index[combo_slot[i]], i);
        EXPECT_EQ(slot_mask[combo_slot[i]], combo_mask[i]);
        EXPECT_EQ(__builtin_popcountll(combo_mask[i]), 2);
    }
    EXPECT_EQ(combo_mask[0], card_bit(0) | card_bit(13));  // 2d2c
    EXPECT_EQ(combo_slot[0], 78);
    EXPECT_EQ(combo_slot[1325], 1313);                       // AsAh
    EXPECT_EQ(combo_index[1325], 1322);                      // AsKs is the last slot
    const std::string order = hand_order_text;
    EXPECT_EQ(order.size(), 1326u * 5 - 1);
    EXPECT_EQ(order.substr(0, 4), "2d2c");
    EXPECT_EQ(order.substr(order.size() - 4), "AsAh");
}

TEST_F(CardsTest, HandClassesPartitionTheCombos) {
    std::set<ComboSlot> seen;
    int suited = 0, offsuit = 0, pairs = 0;
    for (int row = 0; row < 13; ++row) {
        for (int column = 0; column < 13; ++column) {
            const auto& slots = hand_class_slots[row * 13 + column];
            const size_t expected = row == column ? 6 : row < column ? 4 : 12;
            ASSERT_EQ(slots.size(), expected) << row << "," << column;
            for (ComboSlot slot : slots) {
                seen.insert(slot);
                const CardMask mask = slot_mask[slot];
                const Card a = __builtin_ctzll(mask), b = 63 - __builtin_clzll(mask);
                const int high = std::max(card_rank(a), card_rank(b)), low = std::min(card_rank(a), card_rank(b));
                if (row == column) {
                    ++pairs;
                    EXPECT_EQ(high, row);
                } else if (row < column) {
                    ++suited;
                    EXPECT_EQ(card_suit(a), card_suit(b));
                    EXPECT_EQ(low, row);
                    EXPECT_EQ(high, column);
                } else {
                    ++offsuit;
                    EXPECT_NE(card_suit(a), card_suit(b));
                    EXPECT_EQ(high, row);
                }
            }
            // Within a class the slots follow hand order.
            for (size_t i = 1; i < slots.size(); ++i) EXPECT_LT(combo_index[slots[i - 1]], combo_index[slots[i]]);
        }
    }
    EXPECT_EQ(seen.size(), 1326u);
    EXPECT_EQ(suited, 312);
    EXPECT_EQ(offsuit, 936);
    EXPECT_EQ(pairs, 78);
}

TEST_F(CardsTest, ParseAndPrintCards) {
    EXPECT_EQ(parse_cards(""), 0u);
    EXPECT_EQ(parse_cards("aH"), parse_cards("AH"));
    EXPECT_EQ(parse_cards("AhKd"), parse_cards("Ah Kd"));
    EXPECT_EQ(parse_cards("2c"), card_bit(0));
    EXPECT_EQ(parse_cards("As"), card_bit(51));
    EXPECT_EQ(cards_to_text(parse_cards("Ah 2c Td")), "2c Td Ah");
    for (const char* bad : {"Ah Ah", "1h", "Ax", "A", "Ah K", "10h", " Ah", "AhK d"})
        EXPECT_THROW(parse_cards(bad), std::runtime_error) << bad;
    try {
        parse_cards(std::string(300, 'A'));
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "ERROR: invalid card\n");
    }
}

}  // namespace
