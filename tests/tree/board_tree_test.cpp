#include <gtest/gtest.h>

#include "reference/boards.h"
#include "tree/boards.h"

namespace {

class BoardTree : public ::testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
};

int total_multiplicity(const std::vector<RunoutBoard>& boards) {
    int total = 0;
    for (const RunoutBoard& board : boards) total += board.multiplicity;
    return total;
}

TEST_F(BoardTree, TurnAndRiverBoardsByFlopShape) {
    struct Shape {
        const char* flop;  // canonical suits
        int singles, family_multiplicity;
    };
    // Monotone 23 boards, two-suited 36, rainbow all 49; a family is 13 cards.
    for (const Shape& shape : {Shape{"2c7cKc", 10, 3}, Shape{"2c7cKd", 23, 2}, Shape{"2c7dKh", 36, 1}}) {
        SCOPED_TRACE(shape.flop);
        const auto root = make_boards(parse_cards(shape.flop), -1, -1, true);
        ASSERT_EQ(root->turns.size(), static_cast<size_t>(shape.singles + 13));
        EXPECT_EQ(total_multiplicity(root->turns), 49);
        for (int i = 0; i < 13; ++i) {
            EXPECT_EQ(root->turns[i + shape.singles].multiplicity, shape.family_multiplicity);
            EXPECT_EQ(root->turns[i + shape.singles].image_tables.size(),
                      static_cast<size_t>(shape.family_multiplicity));
        }
        for (const RunoutBoard& turn : root->turns) EXPECT_EQ(total_multiplicity(turn.rivers), 48);
    }
}

TEST_F(BoardTree, LookupMapsRealCardsToStoredBoards) {
    // A real spade flop is stored as clubs; diamonds stand for the missing suits.
    const CardMask real_flop = parse_cards("2s7sKs");
    const auto root = make_boards(parse_cards("2c7cKc"), -1, -1, true);
    const BoardLocation hearts = board_lookup(*root, real_flop, card_of("Ah"), -1, true);
    ASSERT_NE(hearts.board, nullptr);
    EXPECT_EQ(hearts.board->card, card_of("Ad"));
    EXPECT_EQ(board_lookup(*root, real_flop, card_of("Ac"), -1, true).turn_index, hearts.turn_index);
    EXPECT_EQ(board_lookup(*root, real_flop, card_of("9s"), -1, true).board->card, card_of("9c"));
    // A river in a suit still missing goes to the next family.
    const BoardLocation river = board_lookup(*root, real_flop, card_of("Ah"), card_of("Qc"), true);
    EXPECT_EQ(river.turn_index, hearts.turn_index);
    ASSERT_NE(river.board, nullptr);
    EXPECT_EQ(river.board->card, card_of("Qh"));
    EXPECT_EQ(river.board->multiplicity, 2);
    EXPECT_EQ(board_lookup(*root, real_flop, -1, card_of("Qc"), true).board, nullptr);
    // Without isomorphism the real cards are the stored ones.
    const CardMask flop = parse_cards("2c7dKh");
    const auto plain = make_boards(flop, -1, -1, false);
    const BoardLocation direct = board_lookup(*plain, flop, card_of("As"), card_of("3c"), false);
    ASSERT_NE(direct.board, nullptr);
    EXPECT_EQ(direct.board->mask, flop | parse_cards("As3c"));
}

}  // namespace
