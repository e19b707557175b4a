#include "tree/isomorphism.h"

#include <gtest/gtest.h>

#include <string>

#include "reference/boards.h"
#include "tree/boards.h"

namespace {

class Isomorphism : public ::testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
};

TEST_F(Isomorphism, CanonicalSuits) {
    struct Case {
        const char *flop, *turn, *river;
        SuitOrder order;
        const char *canonical_flop, *canonical_turn, *canonical_river;
    };
    const Case cases[] = {
        {"2s7sKs", "", "", {1, 2, 3, 0}, "2c7cKc", "", ""},  // monotone: the others in suit order
        {"2h7hKc", "", "", {1, 2, 0, 3}, "2c7cKd", "", ""},  // two hearts and a club
        {"2c7hKs", "", "", {0, 3, 1, 2}, "2c7dKh", "", ""},  // rainbow keeps its order
        {"2s7sKs", "Ah", "Qc", {2, 3, 1, 0}, "2c7cKc", "Ad", "Qh"},  // turn, then river, next
        {"2h7hKc", "9c", "", {1, 2, 0, 3}, "2c7cKd", "9d", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.flop);
        CardMask flop = parse_cards(c.flop), turn = parse_cards(c.turn), river = parse_cards(c.river);
        SuitOrder order;
        canonical_suits(order, flop, turn, river);
        EXPECT_EQ(order, c.order);
        EXPECT_EQ(flop, parse_cards(c.canonical_flop));
        EXPECT_EQ(turn, parse_cards(c.canonical_turn));
        EXPECT_EQ(river, parse_cards(c.canonical_river));
    }
}

TEST_F(Isomorphism, RangeRoundTripIsTheIdentityOnSymmetricRanges) {
    const RangeVector range = class_range(11, 0.2);
    // As the engine does it: in with the real flop and the canonical turn, out
    // with the real cards.
    for (const char* flop_text : {"Ah7h2s", "Jd8c3d", "QsQhQd"}) {
        for (const char* turn_text : {"", "Kd", "5c"}) {
            SCOPED_TRACE(std::string(flop_text) + " " + turn_text);
            const CardMask real_flop = parse_cards(flop_text), real_turn = parse_cards(turn_text);
            CardMask flop = real_flop, turn = real_turn, river = 0;
            SuitOrder order;
            canonical_suits(order, flop, turn, river);
            RangeVector working;
            permute_range(real_flop, turn, 0, working.data(), range.data());
            const std::vector<float> row(working.begin(), working.end());
            RangeVector back;
            unpermute_row(real_flop, real_turn, 0, back.data(), row.data());
            for (int slot = 0; slot < combo_count; ++slot)
                ASSERT_EQ(back[slot], static_cast<float>(range[slot])) << slot;
        }
    }
    // Any range: a weight moves to its image's slot (spades to clubs, hearts to spades).
    RangeVector single{};
    single[slot_of_hand(parse_cards("AhKh"))] = 0.75;
    RangeVector moved{};
    permute_range(parse_cards("2s7sKs"), 0, 0, moved.data(), single.data());
    RangeVector expected{};
    expected[slot_of_hand(parse_cards("AsKs"))] = 0.75;
    EXPECT_EQ(moved, expected);
}

}  // namespace
