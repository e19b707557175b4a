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
    const std::string order = hand_order_text;
    EXPECT_EQ(order.size(), 1326u * 5 - 1);
    EXPECT_EQ(order.substr(0, 4), "2d2c");
    EXPECT_EQ(order.substr(order.size() - 4), "AsAh");
    EXPECT_EQ(combo_index[1325], 1322);  // AsKs is the last slot
}

// Row and column of the 13x13 grid: pairs on the diagonal, suited hands above
// it, offsuit ones below, each class's slots in hand order.
TEST_F(CardsTest, HandClassesPartitionTheCombos) {
    std::set<ComboSlot> seen;
    for (int row = 0; row < 13; ++row) {
        for (int column = 0; column < 13; ++column) {
            const auto& slots = hand_class_slots[row * 13 + column];
            ASSERT_EQ(slots.size(), row == column ? 6u : row < column ? 4u : 12u) << row << "," << column;
            for (size_t i = 0; i < slots.size(); ++i) {
                seen.insert(slots[i]);
                const CardMask mask = slot_mask[slots[i]];
                const Card a = __builtin_ctzll(mask), b = 63 - __builtin_clzll(mask);
                EXPECT_EQ(std::max(card_rank(a), card_rank(b)), std::max(row, column));
                EXPECT_EQ(std::min(card_rank(a), card_rank(b)), std::min(row, column));
                EXPECT_EQ(card_suit(a) == card_suit(b), row < column);
                if (i > 0) {
                    EXPECT_LT(combo_index[slots[i - 1]], combo_index[slots[i]]);
                }
            }
        }
    }
    EXPECT_EQ(seen.size(), 1326u);
}

}  // namespace
