#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "reference/boards.h"
#include "tree/boards.h"

namespace {

class HandLists : public ::testing::Test {
protected:
    static void SetUpTestSuite() { prepare_tables(); }
};

// The whole tree of boards; what it printed goes to `printed`.
std::unique_ptr<RootBoard> build_boards(const std::string& flop, Card turn, Card river, bool isomorphic,
                                        const RangeVector& oop, const RangeVector& ip,
                                        std::string* printed = nullptr) {
    auto root = make_boards(parse_cards(flop), turn, river, isomorphic);
    testing::internal::CaptureStdout();
    SetHoles(*root, oop.data(), ip.data());
    fflush(stdout);
    const std::string output = testing::internal::GetCapturedStdout();
    if (printed) *printed = output;
    return root;
}

// Table k maps the hands one to one onto the parent hands that stay live when
// the k-th real card comes, each to its suit-swapped image; table 0 is plain.
void expect_images_cover_parent(const std::vector<CardMask>& parent_hands, const RunoutBoard& board) {
    const int suit = card_suit(board.card);
    for (int k = 0; k < board.multiplicity; ++k) {
        SuitOrder swap = identity_suit_order();
        std::swap(swap[suit], swap[suit + k]);
        std::vector<int16_t> reached = board.image_tables[k];
        for (size_t n = 0; n < reached.size(); ++n) {
            ASSERT_GE(reached[n], 0);
            ASSERT_EQ(parent_hands[reached[n]], apply_order(board.hands[n], swap));
        }
        const CardMask real_card = card_bit(make_card(card_rank(board.card), suit + k));
        std::vector<int16_t> live;
        for (size_t i = 0; i < parent_hands.size(); ++i)
            if (!(parent_hands[i] & real_card)) live.push_back(static_cast<int16_t>(i));
        std::sort(reached.begin(), reached.end());
        ASSERT_EQ(reached, live) << "image " << k << " of " << cards_to_text(board.mask);
    }
    for (size_t n = 0; n < board.hands.size(); ++n) {
        ASSERT_EQ(board.hand_of_slot[slot_of_hand(board.hands[n])], static_cast<int16_t>(n));
        ASSERT_EQ(card_bit(board.hand_cards[n] & 0xFF) | card_bit(board.hand_cards[n] >> 8), board.hands[n]);
    }
}

// A river list against a plain comparison sort over the array evaluator, and
// its groups against the runs of equal strength.
void expect_river_list(const std::vector<CardMask>& turn_hands, const RunoutBoard& river) {
    struct Entry {
        CardMask hand;
        HandValue strength;
        int32_t tie;
    };
    Card cards[7];
    int count = 0;
    for (CardMask rest = river.mask; rest; rest &= rest - 1) cards[count++] = __builtin_ctzll(rest);
    std::vector<Entry> entries;
    for (const CardMask hand : turn_hands) {
        if (hand & river.mask) continue;
        cards[5] = __builtin_ctzll(hand);
        cards[6] = 63 - __builtin_clzll(hand);
        entries.push_back({hand, hand_value(cards, 7), tie_key(river.mask, hand)});
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.strength != b.strength ? a.strength < b.strength : a.tie < b.tie;
    });
    ASSERT_EQ(river.hands.size(), entries.size());
    for (size_t i = 0; i < entries.size(); ++i) {
        ASSERT_EQ(river.hands[i], entries[i].hand) << cards_to_text(river.mask) << " at " << i;
        ASSERT_EQ(river.strengths[i], static_cast<int32_t>(entries[i].strength));
    }
    size_t first = 0;
    for (const int16_t length : river.strength_groups) {
        EXPECT_EQ(river.strengths[first], river.strengths[first + length - 1]);
        if (first > 0) {
            EXPECT_NE(river.strengths[first - 1], river.strengths[first]);
        }
        first += length;
    }
    EXPECT_EQ(first, entries.size());
}

TEST_F(HandLists, ListsAreCompleteSortedAndGrouped) {
    const RangeVector range = class_range(7, 0.3);
    for (const char* flop : {"2c7cKc", "5c5dQc", "3c8dJh"}) {
        SCOPED_TRACE(flop);
        std::string printed;
        const auto root = build_boards(flop, -1, -1, true, range, range, &printed);
        EXPECT_EQ(printed, "");
        for (size_t t = 0; t < root->turns.size(); ++t) {
            const RunoutBoard& turn = root->turns[t];
            EXPECT_EQ(root->turn_hand_counts[t], static_cast<int32_t>(turn.hands.size()));
            EXPECT_EQ(root->river_hand_counts[t], turn.river_hand_counts);
            EXPECT_TRUE(std::is_sorted(turn.strengths.begin(), turn.strengths.end()));
            expect_images_cover_parent(root->hands, turn);
            for (size_t r = 0; r < turn.rivers.size(); ++r) {
                EXPECT_EQ(turn.river_hand_counts[r], static_cast<int32_t>(turn.rivers[r].hands.size()));
                expect_images_cover_parent(turn.hands, turn.rivers[r]);
                expect_river_list(turn.hands, turn.rivers[r]);
                if (HasFatalFailure()) return;
            }
        }
    }
}

TEST_F(HandLists, TiesOrderByRanksThenSuitsOffTheBoard) {
    // The straight on the board plays for every hand without a king or two clubs.
    const auto root = build_boards("8c9cTd", card_of("Jd"), card_of("Qc"), false, uniform_range(1.0),
                                   uniform_range(1.0));
    const RunoutBoard& river = root->turns[0].rivers[0];
    auto place = [&river](const char* hand) { return river.hand_of_slot[slot_of_hand(parse_cards(hand))]; };
    ASSERT_EQ(river.strengths[place("2h3s")], river.strengths[place("4c5d")]);
    EXPECT_LT(place("2h3s"), place("2h4s"));
    EXPECT_LT(place("3h2s"), place("3c2h"));
    EXPECT_LT(place("2h3s"), place("3d2h"));
    EXPECT_LT(place("2h2s"), place("2c2h"));
    EXPECT_EQ(tie_key(river.mask, 0), -1);
}

TEST_F(HandLists, MissingImageIsReportedAndMarked) {
    RangeVector range = uniform_range(1.0);
    range[slot_of_hand(parse_cards("AdKd"))] = 0.0;
    std::string printed;
    const auto root = build_boards("2c7cKc", -1, -1, true, range, range, &printed);
    EXPECT_NE(printed.find("isomorph error: 2c 7c Kc 2d  | Kh Ah  | Kd Ad \n"), std::string::npos) << printed;
    EXPECT_NE(printed.find("isomorph error: 2c 7c Kc 2d  | Ks As  | Kd Ad \n"), std::string::npos);
    const RunoutBoard& turn = root->turns[root->turn_of_card[card_of("2d")]];
    const int16_t hearts = turn.hand_of_slot[slot_of_hand(parse_cards("AhKh"))];
    EXPECT_LT(turn.image_tables[1][hearts], 0);
    EXPECT_GE(turn.image_tables[2][hearts], 0);  // the spade swap leaves Ah Kh alone

    // The turns are built in parallel, but their lines come out in turn
    // order, as one thread building them one after another prints them.
    std::string in_order;
    for (RunoutBoard& board : root->turns) build_turn(board, *root, in_order);
    EXPECT_EQ(printed, in_order);
}

}  // namespace
