// The widening store against a plain model of its rules: 16-bit sums with a
// growth bound per row, the whole group turning 24-bit when one row's bound
// passes 16 bits, reads, locks and the file section.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

#include "reference/store_rules.h"
#include "storage/codes/memory_blocks.h"
#include "storage/memory_channel.h"
#include "storage/widening_storage.h"

namespace {

using namespace store_rules;

const std::vector<std::vector<int>> group_hands = {{13, 9, 20}, {33, 7}, {16}};

// The store's rules on plain arrays: values[g][r][a][h], a growth bound per
// row while its group is narrow, a wide flag per group.
struct Model {
    std::vector<std::vector<std::vector<Row>>> values;
    std::vector<std::vector<float>> growth;
    std::vector<bool> wide = std::vector<bool>(group_hands.size(), false);

    Model() {
        for (const auto& hands : group_hands) {
            values.emplace_back();
            growth.emplace_back(hands.size(), 0.0f);
            for (const int count : hands) values.back().emplace_back(3, Row(count, 0));
        }
    }

    void add(int g, int r, const Rows& strategy, const std::vector<float>& reach, float weight, const uint8_t* frozen) {
        float largest = 0.0f;
        for (const float v : reach) largest = std::max(largest, weight * v);
        if (!wide[g]) {
            growth[g][r] += largest;
            wide[g] = growth[g][r] > 65535.0f;
        }
        for (int a = 0; a < 3; ++a) {
            for (size_t h = 0; h < reach.size(); ++h) {
                if (frozen && frozen[h]) continue;
                uint32_t& value = values[g][r][a][h];
                const float gain = 0.5f + strategy[a][h] * (weight * reach[h]);
                if (wide[g]) value = std::min<uint32_t>(uint32_t(truncated(gain + float(value))), 0xffffff);
                else value = uint32_t(std::clamp<int64_t>(int64_t(value) + truncated(std::min(gain, 65536.0f)), 0, 65535));
            }
        }
    }
};

class Widening : public testing::Test {
protected:
    void SetUp() override {
        std::vector<std::span<const int>> groups(group_hands.begin(), group_hands.end());
        layout = make_row_layout(3, groups);
        store = std::make_unique<WideningStorage>(&layout);
        ASSERT_TRUE(store->open());
        // Every third hand of row (1, 0) frozen, the first among them.
        for (int h = 0; h < 33; h += 3) mask[h] = 1;
        set_mask(*store->lock_record(1, 0), mask);
    }

    void add(int g, int r, const Rows& strategy, const std::vector<float>& reach, float weight) {
        const Table table(strategy);
        store->add_strategy(g, r, table.pointers.data(), reach.data(), weight);
        model.add(g, r, strategy, reach, weight, g == 1 && r == 0 ? mask.data() : nullptr);
    }

    // Updates of the walk's kind on every row: reach in [0, reach_top), many
    // hands at 0, a weight that grows with the step.
    void train(int step, float reach_top) {
        std::uniform_real_distribution<float> unit(0.0f, 1.0f);
        for (size_t g = 0; g < group_hands.size(); ++g) {
            for (size_t r = 0; r < group_hands[g].size(); ++r) {
                std::vector<float> reach(group_hands[g][r]);
                for (float& v : reach) v = unit(random) < 0.3f ? 0.0f : reach_top * unit(random);
                add(int(g), int(r), random_rows(random, 3, int(reach.size()), 0.0f, 1.0f), reach,
                    float(std::pow(double(step), 1.5)));
            }
        }
    }

    // Values, widths and reads, with and without defaults, against the model.
    void expect_matches(const WideningStorage& held) const {
        for (size_t g = 0; g < group_hands.size(); ++g) {
            EXPECT_EQ(held.group_wide(int(g)), bool(model.wide[g])) << "group " << g;
            for (size_t r = 0; r < group_hands[g].size(); ++r) {
                const auto& rows = model.values[g][r];
                for (int a = 0; a < 3; ++a)
                    for (int h = 0; h < group_hands[g][r]; ++h)
                        ASSERT_EQ(held.value(int(g), int(r), a, h), rows[a][h]) << g << " " << r << " " << a << " " << h;
                for (const bool defaults : {true, false}) {
                    const Rows out = read(held, 3, int(g), int(r), defaults ? std::vector<float>(3, 0.0f) : std::vector<float>{});
                    for (int h = 0; h < group_hands[g][r]; ++h)
                        for (int a = 0; a < 3; ++a)
                            ASSERT_NEAR(out[a][h], normalised_sums(rows, h, defaults)[a], 2e-6f) << g << " " << r << " " << h;
                }
            }
        }
    }

    RowLayout layout;
    std::unique_ptr<WideningStorage> store;
    Model model;
    std::vector<uint8_t> mask = std::vector<uint8_t>(33, 0);
    std::mt19937 random{77};
};

TEST_F(Widening, GrowthTurnsWholeGroupsWideWithValuesIntact) {
    // Small reach everywhere: the groups stay narrow.
    for (int step = 1; step <= 40; ++step) train(step, 0.05f);
    expect_matches(*store);
    EXPECT_EQ(std::count(model.wide.begin(), model.wide.end(), true), 0);
    const int64_t held_narrow = storage_bytes_in_use();

    // Then one row of group 0 gets a large reach: its bound passes 16 bits and
    // the whole group, not the row, turns wide; the others stay narrow.
    std::vector<float> reach(9, 0.0f);
    reach[4] = 1.0f;
    for (int step = 0; step < 4 && !model.wide[0]; ++step) add(0, 1, Rows(3, std::vector<float>(9, 1 / 3.0f)), reach, 30000.0f);
    ASSERT_TRUE(model.wide[0]);
    expect_matches(*store);
    EXPECT_GT(storage_bytes_in_use(), held_narrow) << "a wide group holds 3 bytes a value";

    // Wide groups go on summing in 24 bits, and stop at their ceiling.
    for (int step = 41; step <= 60; ++step) train(step, 1.0f);
    add(0, 2, Rows(3, std::vector<float>(20, 1.0f)), std::vector<float>(20, 1.0f), 3e7f);
    expect_matches(*store);
    EXPECT_EQ(store->value(0, 2, 0, 0), WideningStorage::wide_ceiling);
}

TEST_F(Widening, SaveAndLoadKeepNarrowAndWideGroups) {
    for (int step = 1; step <= 30; ++step) train(step * 20, 0.02f);
    add(0, 0, Rows(3, std::vector<float>(13, 1 / 3.0f)), std::vector<float>(13, 1.0f), 250000.0f);
    for (int step = 31; step <= 33; ++step) train(step * 20, 0.02f);
    ASSERT_TRUE(model.wide[0]);
    ASSERT_FALSE(model.wide[1]);

    MemoryChannel channel(7);
    store->save(channel);
    channel.rewind();
    WideningStorage loaded(&layout);
    loaded.load(channel);
    EXPECT_TRUE(channel.at_end());
    expect_matches(loaded);
    EXPECT_EQ(loaded.lock_record(1, 0)->lock_mask[0], 1);
    // The loaded bounds still catch a narrow row before it passes 16 bits.
    EXPECT_GE(loaded.row_growth(1, 1), float(*std::max_element(model.values[1][1][0].begin(), model.values[1][1][0].end())));

    // A format byte past this version's limit is refused. It follows the
    // lock records of all rows.
    MemoryChannel records(7);
    for (size_t g = 0; g < group_hands.size(); ++g)
        for (size_t r = 0; r < group_hands[g].size(); ++r) save_lock_record(records, *store->lock_record(int(g), int(r)));
    ASSERT_EQ(channel.bytes[records.bytes.size()], WideningStorage::format_limit);
    channel.bytes[records.bytes.size()] = WideningStorage::format_limit + 1;
    channel.rewind();
    try {
        WideningStorage(&layout).load(channel);
        ADD_FAILURE() << "a newer format was accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "ERROR: incompatible data\n");
    }
}

}  // namespace
