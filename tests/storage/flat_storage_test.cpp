// The flat stores against the plain rules of tests/reference/store_rules.h.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "reference/store_rules.h"
#include "storage/arena_storage.h"
#include "storage/float_row_storage.h"
#include "storage/memory_channel.h"

namespace {

using namespace store_rules;

void expect_near(const Rows& actual, const Rows& expected) {
    for (size_t a = 0; a < expected.size(); ++a)
        for (size_t h = 0; h < expected[a].size(); ++h)
            EXPECT_NEAR(actual[a][h], expected[a][h], 2e-6f * std::fabs(expected[a][h]) + 1e-30f) << a << " " << h;
}

RowLayout small_layout(int actions) {
    // Rows (0,0) 5 hands at 0, (0,1) 9 hands at 8A, (1,0) 12 hands at 20A.
    const std::vector<int> first = {5, 9}, second = {12};
    const std::vector<std::span<const int>> groups = {first, second};
    return make_row_layout(actions, groups);
}

TEST(FloatRowStorage, UpdatesReadsAndSumsFollowTheModel) {
    const int hands = 21;
    FloatRowStorage storage(2, hands);
    expect_near(read(storage, 2, -1, -1, {0.9f, 0.1f}), {std::vector<float>(hands, 0.9f), std::vector<float>(hands, 0.1f)});
    ASSERT_TRUE(storage.open());
    std::vector<uint8_t> mask(hands, 0);
    mask[3] = mask[12] = 1;
    set_mask(*storage.lock_record(-1, -1), mask);

    std::mt19937 random(11);
    Rows model(2, std::vector<float>(hands, 0.0f));
    for (int step = 0; step < 6; ++step) {
        const std::vector<float> node = random_rows(random, 1, hands, -3.0f, 3.0f)[0];
        Table actions(random_rows(random, 2, hands, -3.0f, 3.0f));
        if (step == 2) actions.pointers[1] = nullptr;  // an absent row is all zero
        storage.update_regrets(-1, -1, node.data(), actions.pointers.data(), {}, 1.0);
        for (int a = 0; a < 2; ++a)
            for (int h = 0; h < hands; ++h)
                if (!mask[h]) model[a][h] = f32_regret(model[a][h], (actions.pointers[a] ? actions.rows[a][h] : 0.0f) - node[h]);
    }
    for (int a = 0; a < 2; ++a)
        for (int h = 0; h < hands; ++h) EXPECT_FLOAT_EQ(storage.action_row(a)[h], model[a][h]) << a << " " << h;
    // The frozen hands have no regret at all and play the defaults.
    expect_near(read(storage, 2, -1, -1, {0.9f, 0.1f}), regret_matching(model, {0.9f, 0.1f}));

    // Strategy sums: w * strategy * reach.
    FloatRowStorage sums(2, hands);
    ASSERT_TRUE(sums.open());
    const Table strategy(random_rows(random, 2, hands, 0.0f, 1.0f));
    const std::vector<float> reach = random_rows(random, 1, hands, 0.0f, 2.0f)[0];
    sums.add_strategy(-1, -1, strategy.pointers.data(), reach.data(), 3.5f);
    sums.add_strategy(-1, -1, strategy.pointers.data(), reach.data(), 2.0f);
    for (int a = 0; a < 2; ++a)
        for (int h = 0; h < hands; ++h)
            EXPECT_NEAR(sums.action_row(a)[h], 5.5f * strategy.rows[a][h] * reach[h], 1e-5f);
}

TEST(TurnRowStorage, ForwardsEachTurnGroupToItsOwnBoardAndSavesThemInOrder) {
    const std::vector<int> hand_counts = {4, 9, 6};
    TurnRowStorage storage(2, hand_counts);
    EXPECT_EQ(storage.row_length(1, -1), 9);
    ASSERT_TRUE(storage.open());
    set_mask(*storage.lock_record(2, -1), {0, 1, 1, 0, 0, 0});

    const std::vector<float> regrets(9, 2.0f);
    storage.write_row(1, -1, 1, regrets.data());
    expect_near(read(storage, 2, 1, -1, {0.9f, 0.1f}), {std::vector<float>(9, 0.0f), std::vector<float>(9, 1.0f)});
    expect_near(read(storage, 2, 2, -1, {0.9f, 0.1f}), {std::vector<float>(6, 0.9f), std::vector<float>(6, 0.1f)});

    MemoryChannel channel(7);
    storage.save(channel);
    channel.rewind();
    TurnRowStorage loaded(2, hand_counts);
    loaded.load(channel);
    EXPECT_TRUE(channel.at_end());
    EXPECT_EQ(loaded.board(1).action_row(1)[8], 2.0f);
    EXPECT_EQ(loaded.board(1).action_row(0)[8], 0.0f);
    EXPECT_EQ(loaded.lock_record(2, -1)->lock_mask[2], 1);
}

TEST(FloatArenaStorage, RowsAtLayoutOffsetsAndDefaultsByHandBeforeOpen) {
    const RowLayout layout = small_layout(3);
    FloatArenaStorage storage(&layout);
    EXPECT_EQ(storage.value_count(-1), 3 * (5 + 9 + 12));

    // No block yet: every action gets the defaults read by hand, and hands
    // beyond the given defaults get 0.
    const Rows before = read(storage, 3, 1, 0, {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f});
    for (int a = 0; a < 3; ++a)
        for (int h = 0; h < 12; ++h) EXPECT_EQ(before[a][h], h < 7 ? 0.1f * float(h + 1) : 0.0f) << a << " " << h;

    // Action a of row (0, 1) at 24 + 12a: row (0, 0) and the padding stay 0.
    ASSERT_TRUE(storage.open());
    const std::vector<float> row = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    for (int a = 0; a < 3; ++a) storage.write_row(0, 1, a, row.data());
    const float* block = storage.row_values(0, 0);
    ASSERT_EQ(storage.row_values(0, 1), block + 24);
    for (int i = 0; i < 60; ++i) EXPECT_EQ(block[i], i >= 24 && (i - 24) % 12 < 9 ? float((i - 24) % 12 + 1) : 0.0f) << i;
}

TEST(WordArenaStorage, TwoActionsReadAsFirstAndRestWithPerActionDefaults) {
    const RowLayout pair_layout = small_layout(2);
    WordArenaStorage pair(&pair_layout);
    // Without a block the defaults are read by hand here too.
    EXPECT_EQ(read(pair, 2, 0, 0, {0.3f, 0.3f})[1], (std::vector<float>{0.3f, 0.3f, 0, 0, 0}));
    ASSERT_TRUE(pair.open());
    const std::vector<float> first = {0, 3, 0, 1, 65535}, second = {0, 1, 7, 0, 65535};
    pair.write_row(0, 0, 0, first.data());
    pair.write_row(0, 0, 1, second.data());
    // Hand 0 has no regret: with defaults (0.3, 0.3) the second action is 0.7.
    expect_near(read(pair, 2, 0, 0, {0.3f, 0.3f}), {{0.3f, 0.75f, 0, 1, 0.5f}, {0.7f, 0.25f, 1, 0, 0.5f}});

}

TEST(WordArenaStorage, RegretUpdateInUnitsOfTheScale) {
    // Scale 16: gain 16^0.75 = 8, threshold 1/16. A difference of 16 is worth
    // 8 * 4 * 2 = 64 units, 81 is worth 8 * 9 * 3 = 216, and exactly 1/16 is
    // worth 8 * 0.25 * 0.5 = 1; less than 1/16 is dropped.
    const RowLayout layout = small_layout(1);
    WordArenaStorage storage(&layout);
    ASSERT_TRUE(storage.open());
    const std::vector<float> start = {0, 65500, 100, 10, 7, 7, 7, 7, 500};
    const std::vector<float> node(9, 0.0f);
    const std::vector<float> action = {16, 16, -16, -16, 0.05f, -0.05f, 0.0625f, -0.0625f, 81};
    storage.write_row(0, 1, 0, start.data());
    const float* rows[] = {action.data()};
    storage.update_regrets(0, 1, node.data(), rows, {}, 16.0);
    const uint16_t* values = storage.row_values(0, 1);
    // 65500 + 64 wraps to 28; losses stop at 0.
    EXPECT_EQ(std::vector<uint16_t>(values, values + 9), (std::vector<uint16_t>{64, 28, 36, 0, 7, 7, 8, 6, 716}));
}

// Version 3 files keep 16-bit rows raw; later ones code them.
TEST(WordArenaStorage, RawRowsOfOlderFilesAndDamagedCodedRows) {
    const RowLayout layout = small_layout(2);
    WordArenaStorage words(&layout);
    ASSERT_TRUE(words.open());
    words.lock_record(0, 1)->flags = lock_flag_node;
    std::vector<float> values(12);
    for (int h = 0; h < 12; ++h) values[h] = float(h * h * 37);
    words.write_row(1, 0, 1, values.data());
    words.write_row(0, 0, 0, values.data());
    MemoryChannel channel(3);
    words.save(channel);
    channel.rewind();
    WordArenaStorage loaded(&layout);
    loaded.load(channel);  // opens itself when nobody did
    EXPECT_TRUE(channel.at_end());
    EXPECT_EQ(loaded.lock_record(0, 1)->flags, lock_flag_node);
    for (int i = 0; i < layout.padded_values; ++i) EXPECT_EQ(loaded.row_values(0, 0)[i], words.row_values(0, 0)[i]) << i;
    // A coded row that runs past its stated length makes the file invalid:
    // 4 bytes for a 5-hand row, a mode byte for two-byte values and 3 of the 10.
    MemoryChannel corrupt(7);
    corrupt.bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 3, 1, 0, 2};
    corrupt.rewind();
    EXPECT_ANY_THROW(WordArenaStorage(&layout).load(corrupt));
}

}  // namespace
