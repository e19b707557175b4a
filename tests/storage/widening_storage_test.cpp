// The widening store against a plain model of its rules, written out here:
// 16-bit sums with a growth bound per row, the whole group turning 24-bit when
// one row's bound passes 16 bits, reads, locks and the file section.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>
#include <vector>

#include "reference/store_rules.h"
#include "storage/codes/memory_blocks.h"
#include "storage/memory_channel.h"
#include "storage/storage_assignment.h"
#include "storage/widening_storage.h"

namespace {

const std::vector<std::vector<int>> group_hands = {{13, 9, 20}, {33, 7}, {16}};

RowLayout layout_for(int actions) {
    std::vector<std::span<const int>> groups;
    for (const auto& hands : group_hands) groups.emplace_back(hands);
    return make_row_layout(actions, groups);
}

using store_rules::truncated;

// The store's rules on plain arrays: values[g][r][a][h], a growth bound per
// row while its group is narrow, a wide flag per group.
struct Model {
    std::vector<std::vector<std::vector<std::vector<uint32_t>>>> values;
    std::vector<std::vector<float>> growth;
    std::vector<bool> wide;
    int actions;

    explicit Model(int action_count) : actions(action_count) {
        for (const auto& hands : group_hands) {
            values.emplace_back();
            growth.emplace_back(hands.size(), 0.0f);
            for (const int count : hands) values.back().emplace_back(actions, std::vector<uint32_t>(count, 0));
        }
        wide.assign(group_hands.size(), false);
    }

    void add(int g, int r, const std::vector<std::vector<float>>& strategy, const std::vector<float>& reach,
             float weight, const uint8_t* frozen) {
        const int hands = int(reach.size());
        std::vector<float> scaled(hands);
        float largest = 0.0f;
        for (int h = 0; h < hands; ++h) {
            scaled[h] = weight * reach[h];
            largest = std::max(largest, scaled[h]);
        }
        if (!wide[g]) {
            growth[g][r] += largest;
            if (growth[g][r] > 65535.0f) wide[g] = true;
        }
        for (int a = 0; a < actions; ++a) {
            for (int h = 0; h < hands; ++h) {
                if (frozen && frozen[h]) continue;
                uint32_t& value = values[g][r][a][h];
                if (wide[g]) {
                    value = std::min<uint32_t>(uint32_t(truncated(0.5f + strategy[a][h] * scaled[h] + float(value))), 0xffffff);
                } else {
                    const float gain = std::min(0.5f + strategy[a][h] * scaled[h], 65536.0f);
                    value = uint32_t(std::clamp<int64_t>(int64_t(value) + truncated(gain), 0, 65535));
                }
            }
        }
    }

    float share(int g, int r, int a, int h, bool defaults_given) const {
        return store_rules::normalised_sums(values[g][r], h, defaults_given)[a];
    }
};

void expect_matches(const WideningStorage& store, const Model& model) {
    for (size_t g = 0; g < group_hands.size(); ++g) {
        EXPECT_EQ(store.group_wide(int(g)), bool(model.wide[g])) << "group " << g;
        for (size_t r = 0; r < group_hands[g].size(); ++r)
            for (int a = 0; a < model.actions; ++a)
                for (int h = 0; h < group_hands[g][r]; ++h)
                    ASSERT_EQ(store.value(int(g), int(r), a, h), model.values[g][r][a][h]) << g << " " << r << " " << a << " " << h;
    }
}

void expect_reads(const WideningStorage& store, const Model& model, bool defaults_given) {
    const std::vector<float> defaults(model.actions, 0.0f);
    for (size_t g = 0; g < group_hands.size(); ++g) {
        for (size_t r = 0; r < group_hands[g].size(); ++r) {
            const int hands = group_hands[g][r];
            std::vector<std::vector<float>> out(model.actions, std::vector<float>(hands, -1.0f));
            std::vector<float*> pointers;
            for (auto& row : out) pointers.push_back(row.data());
            store.read_strategy(pointers.data(), int(g), int(r),
                                defaults_given ? std::span<const float>(defaults) : std::span<const float>());
            for (int a = 0; a < model.actions; ++a)
                for (int h = 0; h < hands; ++h)
                    ASSERT_NEAR(out[a][h], model.share(int(g), int(r), a, h, defaults_given), 2e-6f) << g << " " << r << " " << h;
        }
    }
}

// Updates of the walk's kind on every row: reach in [0, reach_top), many
// hands at 0, a weight that grows with the step.
void train(WideningStorage& store, Model& model, std::mt19937& random, int step, float reach_top,
           const std::vector<std::vector<uint8_t>>& masks) {
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const float weight = float(std::pow(double(step), 1.5));
    for (size_t g = 0; g < group_hands.size(); ++g) {
        for (size_t r = 0; r < group_hands[g].size(); ++r) {
            const int hands = group_hands[g][r];
            std::vector<float> reach(hands);
            for (float& v : reach) v = unit(random) < 0.3f ? 0.0f : reach_top * unit(random);
            std::vector<std::vector<float>> strategy(model.actions, std::vector<float>(hands));
            for (auto& row : strategy)
                for (float& v : row) v = unit(random);
            std::vector<const float*> pointers;
            for (auto& row : strategy) pointers.push_back(row.data());
            store.add_strategy(int(g), int(r), pointers.data(), reach.data(), weight);
            const bool masked = g == 1 && r == 0;
            model.add(int(g), int(r), strategy, reach, weight, masked ? masks[0].data() : nullptr);
        }
    }
}

TEST(WideningStorage, GrowthTurnsWholeGroupsWideWithValuesIntact) {
    const RowLayout layout = layout_for(3);
    WideningStorage store(&layout);
    Model model(3);
    ASSERT_TRUE(store.open());
    std::vector<std::vector<uint8_t>> masks = {std::vector<uint8_t>(33, 0)};
    for (int h = 0; h < 33; h += 3) masks[0][h] = 1;
    LockRecord& lock = *store.lock_record(1, 0);
    lock.flags = lock_flag_mask;
    lock.lock_mask = std::make_unique<uint8_t[]>(33);
    std::copy(masks[0].begin(), masks[0].end(), lock.lock_mask.get());
    lock.lock_mask_length = 33;

    std::mt19937 random(77);
    // Small reach everywhere: the groups stay narrow.
    for (int step = 1; step <= 40; ++step) train(store, model, random, step, 0.05f, masks);
    expect_matches(store, model);
    for (bool wide : model.wide) EXPECT_FALSE(wide);
    const int64_t held_narrow = storage_bytes_in_use();
    expect_reads(store, model, true);

    // Then one row of group 0 gets a large reach: its bound passes 16 bits and
    // the whole group, not the row, turns wide; the others stay narrow.
    std::vector<float> reach(9, 0.0f);
    reach[4] = 1.0f;
    std::vector<std::vector<float>> strategy(3, std::vector<float>(9, 1.0f / 3.0f));
    std::vector<const float*> pointers = {strategy[0].data(), strategy[1].data(), strategy[2].data()};
    for (int step = 0; step < 4 && !model.wide[0]; ++step) {
        ASSERT_FALSE(store.group_wide(0));
        store.add_strategy(0, 1, pointers.data(), reach.data(), 30000.0f);
        model.add(0, 1, strategy, reach, 30000.0f, nullptr);
    }
    ASSERT_TRUE(model.wide[0]);
    expect_matches(store, model);
    EXPECT_FALSE(store.group_wide(1));
    EXPECT_GT(storage_bytes_in_use(), held_narrow) << "a wide group holds 3 bytes a value";

    // Wide groups go on summing in 24 bits, reads normalise both widths alike.
    for (int step = 41; step <= 60; ++step) train(store, model, random, step, 1.0f, masks);
    expect_matches(store, model);
    expect_reads(store, model, true);
    expect_reads(store, model, false);
    for (int h = 0; h < 33; h += 3)
        for (int a = 0; a < 3; ++a) EXPECT_EQ(store.value(1, 0, a, h), 0u) << "a frozen hand moved";
}

TEST(WideningStorage, ReadsAndWritesOutsideTheUpdates) {
    const RowLayout layout = layout_for(2);
    WideningStorage store(&layout);
    // No block yet: the defaults are one row for every action, by hand.
    std::vector<float> first(13, -1.0f), second(13, -1.0f);
    float* out[2] = {first.data(), second.data()};
    const std::vector<float> defaults = {0.1f, 0.2f, 0.3f};
    store.read_strategy(out, 0, 0, defaults);
    for (int h = 0; h < 13; ++h) {
        EXPECT_EQ(first[h], h < 3 ? defaults[h] : 0.0f);
        EXPECT_EQ(second[h], first[h]);
    }
    EXPECT_EQ(store.value_count(0), layout.value_count);
    EXPECT_EQ(store.open_group(nullptr, 0, 100), nullptr);
    EXPECT_EQ(store.close_group(nullptr, 0, true), nullptr);

    ASSERT_TRUE(store.open());
    // A row written whole is truncated and held within 16 bits, and the
    // row's bound covers it, so that the next update can widen in time.
    std::vector<float> row(9, 0.0f);
    row[0] = 65000.7f;
    row[1] = 90000.0f;
    row[2] = -5.0f;
    store.write_row(0, 1, 0, row.data());
    EXPECT_EQ(store.value(0, 1, 0, 0), 65000u);
    EXPECT_EQ(store.value(0, 1, 0, 1), 65535u);
    EXPECT_EQ(store.value(0, 1, 0, 2), 0u);
    EXPECT_FLOAT_EQ(store.row_growth(0, 1), 65535.0f);
    const std::vector<float> reach(9, 0.001f), one(9, 1.0f);
    const float* strategy[2] = {one.data(), one.data()};
    store.add_strategy(0, 1, strategy, reach.data(), 2.0f);
    EXPECT_TRUE(store.group_wide(0));
    EXPECT_EQ(store.value(0, 1, 0, 1), 65535u);  // the 0.002 added rounds to nothing
    // Regrets never come here.
    store.update_regrets(0, 1, one.data(), strategy, {}, 1.0);
    EXPECT_EQ(store.value(0, 1, 1, 0), 0u);
}

TEST(WideningStorage, SaveAndLoadKeepNarrowAndWideGroups) {
    const RowLayout layout = layout_for(3);
    WideningStorage store(&layout);
    Model model(3);
    ASSERT_TRUE(store.open());
    std::vector<std::vector<uint8_t>> masks = {std::vector<uint8_t>(33, 0)};
    masks[0][0] = 1;  // the first hand locked: the runs start with a 0
    LockRecord& lock = *store.lock_record(1, 0);
    lock.flags = lock_flag_mask | lock_flag_node;
    lock.lock_mask = std::make_unique<uint8_t[]>(33);
    std::copy(masks[0].begin(), masks[0].end(), lock.lock_mask.get());
    lock.lock_mask_length = 33;
    std::mt19937 random(5);
    for (int step = 1; step <= 30; ++step) train(store, model, random, step * 20, 0.02f, masks);
    // Group 0 turns wide and its sums pass 16 bits.
    const std::vector<float> reach(13, 1.0f), third(13, 1.0f / 3.0f);
    const std::vector<std::vector<float>> strategy(3, third);
    const float* pointers[3] = {third.data(), third.data(), third.data()};
    store.add_strategy(0, 0, pointers, reach.data(), 250000.0f);
    model.add(0, 0, strategy, reach, 250000.0f, nullptr);
    for (int step = 31; step <= 33; ++step) train(store, model, random, step * 20, 0.02f, masks);
    // A mix: some groups narrow, some wide.
    ASSERT_TRUE(std::count(model.wide.begin(), model.wide.end(), true) > 0);
    ASSERT_TRUE(std::count(model.wide.begin(), model.wide.end(), false) > 0);

    MemoryChannel channel(7);
    store.save(channel);
    channel.rewind();
    WideningStorage loaded(&layout);
    loaded.load(channel);
    EXPECT_TRUE(channel.at_end());
    expect_matches(loaded, model);
    EXPECT_EQ(loaded.lock_record(1, 0)->flags, lock_flag_mask | lock_flag_node);
    EXPECT_EQ(loaded.lock_record(1, 0)->lock_mask[0], 1);
    // The loaded bounds still catch a narrow row before it passes 16 bits.
    for (size_t g = 0; g < group_hands.size(); ++g) {
        if (model.wide[g]) continue;
        for (size_t r = 0; r < group_hands[g].size(); ++r) {
            uint32_t largest = 0;
            for (const auto& row : model.values[g][r]) largest = std::max(largest, *std::max_element(row.begin(), row.end()));
            EXPECT_GE(loaded.row_growth(int(g), int(r)), float(largest));
        }
    }

    // A format byte past this version's limit is refused as a whole reply.
    // It follows the lock records of all rows.
    MemoryChannel records(7);
    for (size_t g = 0; g < group_hands.size(); ++g)
        for (size_t r = 0; r < group_hands[g].size(); ++r) save_lock_record(records, *store.lock_record(int(g), int(r)));
    MemoryChannel newer(7);
    newer.bytes = channel.bytes;
    ASSERT_EQ(newer.bytes[records.bytes.size()], WideningStorage::format_limit);
    newer.bytes[records.bytes.size()] = WideningStorage::format_limit + 1;
    newer.rewind();
    WideningStorage refused(&layout);
    try {
        refused.load(newer);
        ADD_FAILURE() << "a newer format was accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "ERROR: incompatible data\n");
    }
}

// The level "fast" stops the solve at 2200 iterations. Over the walk's weights
// min(262143, (t - 60)^1.5) up to there, a hand that always plays one action
// with a reach r sums about 8.5e7 r: 24 bits hold it up to r of about 0.19.
// Beyond that the sum is held at the ceiling instead of wrapping.
TEST(WideningStorage, SumsToTheIterationCeilingOfTheFastLevel) {
    const StorageConstants constants = storage_constants({0, 3}, 1);
    ASSERT_EQ(constants.max_iterations, 2200);
    const std::vector<int> hands = {8};
    const std::vector<std::span<const int>> groups = {hands};
    const RowLayout layout = make_row_layout(2, groups);
    for (const float reach_value : {0.15f, 1.0f}) {
        WideningStorage store(&layout);
        ASSERT_TRUE(store.open());
        const std::vector<float> reach(8, reach_value), one(8, 1.0f), zero(8, 0.0f);
        const float* strategy[2] = {one.data(), zero.data()};
        double exact = 0.0;
        for (int t = 1; t <= constants.max_iterations; ++t) {
            const double weight = std::min(constants.weight_cap, std::pow(std::max(t - 60, 0), constants.weight_exponent));
            store.add_strategy(0, 0, strategy, reach.data(), float(weight));
            exact += weight * reach_value;
        }
        EXPECT_TRUE(store.group_wide(0));
        if (exact < double(WideningStorage::wide_ceiling)) {
            EXPECT_NEAR(double(store.value(0, 0, 0, 0)), exact, exact * 1e-3);
        } else {
            EXPECT_EQ(store.value(0, 0, 0, 0), WideningStorage::wide_ceiling);
        }
        EXPECT_EQ(store.value(0, 0, 1, 0), 0u);
    }
}

}  // namespace
