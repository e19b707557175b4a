#include "model/setup_commands.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>

#include "model/cards.h"

namespace {

class SetupTest : public testing::Test {
protected:
    static void SetUpTestSuite() { init_combo_tables(); }
};

// A set_range line whose weight at hand-order place i is weight(i).
template <typename Weight>
Tokens range_line(const std::string& player, Weight weight) {
    Tokens tokens{"set_range", player};
    for (int i = 0; i < combo_count; ++i) tokens.push_back(weight(i));
    return tokens;
}

TEST_F(SetupTest, SetRangeReordersFloorsAndMeasures) {
    // Hand-order place i carries i / 100, so every slot shows where it came from.
    cmd_set_range(range_line("villain", [](int i) {
        if (i == 7) return std::string("-2.5");
        if (i == 8) return std::string("0.0000099");
        return std::to_string(i / 100.0) + "junk";
    }));
    ASSERT_TRUE(player_range[IP].has_value());
    const RangeVector& range = *player_range[IP];
    for (int i = 0; i < combo_count; ++i) {
        const double expected = i == 0 || i == 7 || i == 8 ? 0.0 : i / 100.0;
        ASSERT_DOUBLE_EQ(range[combo_slot[i]], expected) << "hand " << i;
    }
    EXPECT_EQ(range_min[IP], 0.0);
    EXPECT_DOUBLE_EQ(range_max[IP], 13.25);  // weights above 1 stay as they are
    EXPECT_EQ(range[combo_slot[8]], 0.0);
    EXPECT_FALSE(std::signbit(range[combo_slot[7]]));

    cmd_set_range(range_line("hero", [](int) { return std::string("0.000009"); }));
    EXPECT_EQ(range_min[OOP], 0.0);
    EXPECT_EQ(range_max[OOP], 0.0);
    cmd_set_range(range_line("OOP", [](int i) { return i % 2 ? std::string("0.5") : std::string("0.25"); }));
    EXPECT_EQ(range_min[OOP], 0.25);
    EXPECT_EQ(range_max[OOP], 0.5);
}

TEST_F(SetupTest, RefusedRangesLeaveTheOldOneStanding) {
    cmd_set_range(range_line("IP", [](int) { return std::string("1"); }));
    const RangeVector before = *player_range[IP];

    for (const char* bad : {"abc", "inf", "-inf", "nan", "1e999"}) {
        EXPECT_THROW(cmd_set_range(range_line("IP", [&](int i) { return std::string(i == 1000 ? bad : "0.5"); })),
                     std::invalid_argument)
            << bad;
    }
    for (const char* name : {"oop", "Villain", "ip", "player"}) {
        try {
            cmd_set_range(range_line(name, [](int) { return std::string("0.5"); }));
            ADD_FAILURE() << name << " was taken for a player";
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find("incorrect player name"), std::string::npos);
        }
    }
    EXPECT_EQ(*player_range[IP], before);
    EXPECT_EQ(range_max[IP], 1.0);
}

TEST_F(SetupTest, RakeBoundsAreTestedBeforeAnythingIsStored) {
    cmd_set_rake({"set_rake", "0.05", "3"});
    EXPECT_EQ(rake_fraction, 0.05);
    EXPECT_EQ(rake_cap, 3);
    for (const Tokens& bad : {Tokens{"set_rake", "1.01", "1"}, Tokens{"set_rake", "-0.1", "1"},
                              Tokens{"set_rake", "nan", "1"}, Tokens{"set_rake", "0.5", "-1"},
                              Tokens{"set_rake", "0.5", "nan"}}) {
        EXPECT_THROW(cmd_set_rake(bad), std::runtime_error) << bad[1] << " " << bad[2];
    }
    EXPECT_THROW(cmd_set_rake({"set_rake", "0.1", "cap"}), std::invalid_argument);
    EXPECT_EQ(rake_fraction, 0.05);
    EXPECT_EQ(rake_cap, 3);
    cmd_set_rake({"set_rake", "1", "0"});
    EXPECT_EQ(rake_fraction, 1);
    EXPECT_EQ(rake_cap, 0);
}

}  // namespace
