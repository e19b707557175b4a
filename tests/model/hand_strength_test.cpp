#include "model/hand_strength.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "model/cards.h"
#include "reference/hand_value.h"

namespace {

class HandStrength : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(init_hand_strength_tables()); }
};

HandValue value_of(const std::string& text) {
    CardMask mask = parse_cards(text);
    Card cards[8];
    int count = 0;
    for (; mask; mask &= mask - 1) cards[count++] = __builtin_ctzll(mask);
    return hand_value(cards, count);
}

// Compares one hand, cards ascending, with the reference; reports the first few misses.
void check_hand(const Card* cards, int count, int& mismatches) {
    const HandValue expected = reference_hand_value(cards, count);
    const HandValue got = hand_value(cards, count);
    if (got != expected && ++mismatches <= 5) {
        CardMask mask = 0;
        for (int i = 0; i < count; ++i) mask |= card_bit(cards[i]);
        ADD_FAILURE() << cards_to_text(mask) << ": got " << std::hex << got << ", expected " << expected;
    }
}

TEST_F(HandStrength, AgreesWithReferenceOnEveryHandOfThreeFourAndFiveCards) {
    for (int count = 3; count <= 5; ++count) {
        int mismatches = 0;
        Card cards[5];
        for (int i = 0; i < count; ++i) cards[i] = i;
        while (true) {
            check_hand(cards, count, mismatches);
            // Next hand: advance the rightmost card that has room, reset those after it.
            int i = count - 1;
            while (i >= 0 && cards[i] == 52 - count + i) --i;
            if (i < 0) break;
            ++cards[i];
            for (int j = i + 1; j < count; ++j) cards[j] = cards[j - 1] + 1;
        }
        EXPECT_EQ(mismatches, 0) << count << " cards";
    }
}

// Calls visit() for every way of holding `left` more cards on the ranks from
// `rank` up, at most four of a rank; held[r] is the number of rank r.
template <class Visit>
void for_each_rank_pattern(int held[13], int rank, int left, Visit& visit) {
    if (rank == 13) {
        if (left == 0) visit();
        return;
    }
    for (int n = 0; n <= std::min(4, left); ++n) {
        held[rank] = n;
        for_each_rank_pattern(held, rank + 1, left - n, visit);
    }
    held[rank] = 0;
}

// Every way six or seven cards can fall on the ranks, each dealt twice: once
// spread over the suits, and once with the first card of every rank in one
// suit, which makes a flush (a straight flush, if the ranks run) whenever five
// ranks are there. So every shape with every order of kickers is met, with
// and without a flush, and the flush suit turns through all four.
TEST_F(HandStrength, AgreesWithReferenceOnEveryRankPatternOfSixAndSevenCards) {
    for (int count = 6; count <= 7; ++count) {
        int mismatches = 0;
        int patterns = 0;
        int held[13] = {};
        auto deal_both_ways = [&] {
            const int first_suit = patterns++ % 4;
            for (const bool gather : {false, true}) {
                CardMask mask = 0;
                int next_suit = first_suit;
                for (int rank = 0; rank < 13; ++rank)
                    for (int copy = 0; copy < held[rank]; ++copy)
                        mask |= card_bit(make_card(rank, (gather ? first_suit + copy : next_suit++) % 4));
                Card cards[7];
                int taken = 0;
                for (; mask && taken < 7; mask &= mask - 1) cards[taken++] = __builtin_ctzll(mask);
                check_hand(cards, count, mismatches);
            }
        };
        for_each_rank_pattern(held, 0, count, deal_both_ways);
        EXPECT_EQ(patterns, count == 7 ? 49205 : 18395);
        EXPECT_EQ(mismatches, 0) << count << " cards";
    }
}

// Anchors of the value layout, which the comparisons above share with the
// reference: category in the top nibble, the ranks that decide below it.
TEST_F(HandStrength, ValueLayoutAnchors) {
    const std::pair<const char*, HandValue> anchors[] = {
        {"As2d3c4h5s", 0x4030000u},      // the wheel, below the six-high straight
        {"Ah2h3h4h5hKdKc", 0x8030000u},  // the steel wheel
        {"AsAdKsKdQsQd2c", 0x20CBA00u},  // the third pair's rank can be the kicker
        {"Ks7d2c", 0x00B5000u},          // bare boards keep the nibbles left-justified
        {"AsAh", 0u},                    // counts outside three to seven
        {"2c3c4c5c6c7c8c9c", 0u},
    };
    for (const auto& [text, value] : anchors) EXPECT_EQ(value_of(text), value) << text;
}

TEST(FiveCardSuits, VectorCountAgreesWithScalar) {
    // Every content of one lane, in each suit, on top of random other lanes.
    std::mt19937_64 random(11);
    for (int suit = 0; suit < 4; ++suit) {
        for (LaneMask lane = 0; lane < 0x2000; ++lane) {
            const LaneMask others = random() & 0x1FFF1FFF1FFF1FFF & ~(LaneMask{0xFFFF} << (16 * suit));
            const LaneMask cards = others | lane << (16 * suit);
            ASSERT_EQ(five_card_suits(cards), five_card_suits_scalar(cards)) << std::hex << cards;
        }
    }
    EXPECT_EQ(five_card_suits_scalar(lane_mask_of(parse_cards("2h3h4h5h7h"))), 0x30u);
}

}  // namespace
