#include "tree/isomorphism.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "shell/protocol/settings.h"
#include "tree/board_test_support.h"
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

// The range test reads the process-wide game; each case sets it and puts the
// old values back.
class RangeSymmetry : public Isomorphism {
protected:
    void SetUp() override {
        saved_ranges[0] = player_range[0];
        saved_ranges[1] = player_range[1];
        saved_masks[0] = flop_mask;
        saved_masks[1] = turn_mask;
        saved_masks[2] = river_mask;
        saved_isomorphism = isomorphism_by_street[1];
        saved_command = current_command;
        current_command = "build_tree";
        flop_mask = parse_cards("9c7dKh");
        turn_mask = river_mask = 0;
        isomorphism_by_street[1] = true;
        player_range[0] = player_range[1] = uniform_range(0.5);
    }
    void TearDown() override {
        player_range[0] = saved_ranges[0];
        player_range[1] = saved_ranges[1];
        flop_mask = saved_masks[0];
        turn_mask = saved_masks[1];
        river_mask = saved_masks[2];
        isomorphism_by_street[1] = saved_isomorphism;
        current_command = saved_command;
    }
    static std::string refusal() {
        try {
            check_range_symmetry();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }
    static void set_weight(int player, const char* hand, double weight) {
        (*player_range[player])[slot_of_hand(parse_cards(hand))] = weight;
    }

    std::optional<RangeVector> saved_ranges[2];
    CardMask saved_masks[3];
    bool saved_isomorphism;
    std::string saved_command;
};

TEST_F(RangeSymmetry, ToleranceIsOneUlpOfOne) {
    set_weight(OOP, "AsAd", 0.5 + 1e-16);
    EXPECT_EQ(refusal(), "");
    set_weight(OOP, "AsAd", 0.5 + 3e-16);
    EXPECT_EQ(refusal(), "ERROR: build_tree inconsistent range: OOP P(AdAc) == 0.5, P(AsAd) == 0.5, "
                         "use 'set_isomorphism 0 0' if intended\n");
}

TEST_F(RangeSymmetry, NamesTheFirstDifferingHandOopFirst) {
    // The twos in class order: 2d2c, 2h2c, 2h2d, 2s2c, ...
    set_weight(IP, "2c2d", 0.25);
    EXPECT_EQ(refusal(), "ERROR: build_tree inconsistent range: IP P(2d2c) == 0.25, P(2h2c) == 0.5, "
                         "use 'set_isomorphism 0 0' if intended\n");
    set_weight(OOP, "2d2h", 0.125);
    set_weight(OOP, "2c2s", 0.0);
    EXPECT_EQ(refusal(), "ERROR: build_tree inconsistent range: OOP P(2d2c) == 0.5, P(2h2d) == 0.12, "
                         "use 'set_isomorphism 0 0' if intended\n");
}

TEST_F(RangeSymmetry, OnlyUnblockedHandsOfFlopTreesAreTested) {
    set_weight(OOP, "9c9d", 0.0);  // hands with a flop card are skipped
    set_weight(IP, "KhKs", 0.9);
    EXPECT_EQ(refusal(), "");
    set_weight(OOP, "AhAs", 0.0);
    isomorphism_by_street[1] = false;
    EXPECT_EQ(refusal(), "");
    isomorphism_by_street[1] = true;
    turn_mask = parse_cards("9s");
    EXPECT_EQ(refusal(), "");
    turn_mask = 0;
    EXPECT_NE(refusal(), "");
}

}  // namespace
