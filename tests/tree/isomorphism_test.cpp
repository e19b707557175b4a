#include "tree/isomorphism.h"

#include <gtest/gtest.h>


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

}  // namespace
