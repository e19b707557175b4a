// The AVX2 row and strategy-sum kernels against the scalar reference:
// identical updates and sums, a refined reciprocal's accuracy for the reads.
// Row lengths cover whole vectors and every kind of tail.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "reference/store_rules.h"
#include "shell/protocol/processor.h"
#include "storage/codes/row_kernels.h"
#include "storage/codes/sum_kernels.h"
#include "storage/storage.h"

namespace {

using namespace store_rules;
const float nan = std::numeric_limits<float>::quiet_NaN();

class Kernels : public testing::Test {
protected:
    void SetUp() override {
        if (!avx2_runs()) GTEST_SKIP() << "no AVX2 on this processor";
    }

    std::vector<float> values(int count, float low, float high) {
        std::uniform_real_distribution<float> pick(low, high);
        std::vector<float> result(count);
        for (float& v : result) v = pick(random);
        return result;
    }

    // Sums of a width: a third zero, some at the top, the rest spread over
    // every magnitude.
    template <class T>
    std::vector<T> sums(int count, uint32_t top) {
        std::vector<T> result(count);
        for (T& v : result) {
            const float pick = unit(random);
            v = pick < 0.3f ? 0 : pick < 0.4f ? T(top) : T(std::exp2(unit(random) * std::log2(double(top))));
        }
        return result;
    }

    // Reads `actions` rows of `hands` by both kernels: expected, then actual.
    template <class Read>
    void expect_reads_agree(int actions, int hands, float tolerance, Read read) {
        Table expected(Rows(actions, std::vector<float>(hands))), actual(expected.rows);
        read(expected.pointers.data(), actual.pointers.data());
        for (int a = 0; a < actions; ++a)
            for (int h = 0; h < hands; ++h)
                ASSERT_NEAR(actual.rows[a][h], expected.rows[a][h], 2e-6f * std::fabs(expected.rows[a][h]) + tolerance)
                    << "actions " << actions << " hands " << hands << " h " << h;
    }

    std::mt19937 random{12345};
    std::uniform_real_distribution<float> unit{0.0f, 1.0f};
};

TEST_F(Kernels, StrategyReadsAgreeWithReference) {
    const std::vector<float> defaults = {0.9f, 0.05f, 0.03f, 0.02f};  // shorter than 7 actions
    for (int actions : {1, 2, 3, 4, 5, 6, 7}) {
        for (int hands : {1, 8, 9, 23, 67}) {
            const int stride = row_stride(hands);
            std::vector<float> f32_rows = values(stride * actions, 0.0f, 50.0f);
            for (int h = 0; h + 1 < hands; h += 5) {
                // All zero, and a sum below the smallest normal: both take defaults.
                for (int a = 0; a < actions; ++a) f32_rows[a * stride + h] = f32_rows[a * stride + h + 1] = 0.0f;
                f32_rows[h + 1] = 1e-39f;
            }
            std::vector<uint16_t> u16_rows(f32_rows.size());
            for (size_t i = 0; i < f32_rows.size(); ++i) u16_rows[i] = uint16_t(f32_rows[i] * 100.0f);
            expect_reads_agree(actions, hands, 0.0f, [&](float** expected, float** actual) {
                scalar_row_kernels.strategy_f32(f32_rows.data(), stride, actions, hands, expected, defaults);
                avx2_row_kernels.strategy_f32(f32_rows.data(), stride, actions, hands, actual, defaults);
            });
            // The two-action word path gives its second action as 1 - first,
            // which adds up to one unit in the last place of 1.0.
            expect_reads_agree(actions, hands, actions == 2 ? 1.2e-7f : 0.0f, [&](float** expected, float** actual) {
                scalar_row_kernels.strategy_u16(u16_rows.data(), stride, actions, hands, expected, defaults);
                avx2_row_kernels.strategy_u16(u16_rows.data(), stride, actions, hands, actual, defaults);
            });
            const auto narrow = sums<uint16_t>(stride * actions, 65535);
            auto wide = sums<uint32_t>(stride * actions, 0xffffffffu);  // totals that wrap
            wide[0] = 16777217;                                          // odd enough to round as f32
            expect_reads_agree(actions, hands, 1e-7f, [&](float** expected, float** actual) {
                scalar_sum_kernels.strategy_u16(narrow.data(), stride, actions, hands, expected, 0.25f);
                avx2_sum_kernels.strategy_u16(narrow.data(), stride, actions, hands, actual, 0.25f);
            });
            expect_reads_agree(actions, hands, 1e-7f, [&](float** expected, float** actual) {
                scalar_sum_kernels.strategy_u32(wide.data(), stride, actions, hands, expected, 0.25f);
                avx2_sum_kernels.strategy_u32(wide.data(), stride, actions, hands, actual, 0.25f);
            });
        }
    }
}

TEST_F(Kernels, RegretUpdatesAreIdenticalWithMasksAndAbsentRows) {
    const U16UpdateFactors factors = u16_update_factors(37.5);
    for (int hands : {5, 13, 45}) {
        std::vector<float> node = values(hands, -30.0f, 30.0f);
        std::vector<float> action = values(hands, -30.0f, 30.0f);
        for (int h = 0; h < hands; h += 2) action[h] = node[h] + (h - 22) * 0.013f;  // around the threshold
        for (const int h : {hands - 1, hands - 2, 5, 6}) {  // exactly at it, in the tail and in a vector
            if (h < 5 || h >= hands) continue;
            node[h] = 0.0f;
            action[h] = h % 2 ? factors.threshold : -factors.threshold;
        }
        action[1] = 3e12f;  // gains and losses beyond int32, and NaN
        action[3] = -3e12f;
        action[4] = nan;
        const std::vector<float> f32_start = values(hands, 0.0f, 10.0f);
        std::vector<uint16_t> u16_start(hands);
        for (int h = 0; h < hands; ++h) u16_start[h] = uint16_t(h % 3 == 0 ? 65530 : h % 3 == 1 ? 3 : 1000);
        std::vector<uint8_t> frozen(hands, 0);
        for (int h = 2; h < hands; h += 3) frozen[h] = 1;

        for (const uint8_t* mask : {static_cast<const uint8_t*>(nullptr), static_cast<const uint8_t*>(frozen.data())}) {
            for (const float* row : {static_cast<const float*>(action.data()), static_cast<const float*>(nullptr)}) {
                std::vector<float> f32_expected = f32_start, f32_actual = f32_start;
                scalar_row_kernels.update_f32(f32_expected.data(), row, node.data(), hands, mask);
                avx2_row_kernels.update_f32(f32_actual.data(), row, node.data(), hands, mask);
                for (int h = 0; h < hands; ++h) {
                    if (std::isnan(f32_expected[h])) ASSERT_TRUE(std::isnan(f32_actual[h])) << hands << " " << h;
                    else ASSERT_EQ(f32_actual[h], f32_expected[h]) << hands << " " << h;
                }
                std::vector<uint16_t> u16_expected = u16_start, u16_actual = u16_start;
                scalar_row_kernels.update_u16(u16_expected.data(), row, node.data(), hands, mask, factors.gain,
                                              factors.threshold);
                avx2_row_kernels.update_u16(u16_actual.data(), row, node.data(), hands, mask, factors.gain,
                                            factors.threshold);
                ASSERT_EQ(u16_actual, u16_expected) << hands;
                if (!row) continue;
                std::vector<float> sums_expected = f32_start, sums_actual = f32_start;
                const std::vector<float> reach = values(hands, 0.0f, 2.0f);
                scalar_row_kernels.add_strategy_f32(sums_expected.data(), node.data(), reach.data(), 11.3f, hands, mask);
                avx2_row_kernels.add_strategy_f32(sums_actual.data(), node.data(), reach.data(), 11.3f, hands, mask);
                ASSERT_EQ(sums_actual, sums_expected) << hands;
            }
        }
    }
}

TEST_F(Kernels, StrategySumsAreIdentical) {
    for (int hands : {1, 7, 8, 9, 31, 64, 67}) {
        std::vector<float> reach(hands), strategy = values(hands, 0.0f, 1.0f);
        for (float& v : reach) v = unit(random) < 0.2f ? 0.0f : unit(random);
        if (hands >= 8) reach[7] = 1.5f;  // the largest reach in the last lane of a vector
        if (hands > 2) {
            reach[1] = nan;  // never the largest
            strategy[2] = nan;
        }
        std::vector<uint8_t> frozen(hands);
        for (auto& f : frozen) f = unit(random) < 0.25f;

        for (const float weight : {0.3f, 1.0f, 900.0f, 1e6f, 3e9f}) {
            std::vector<float> expected_scaled(hands), actual_scaled(hands);
            const float largest = scalar_sum_kernels.scale_reach(reach.data(), weight, hands, expected_scaled.data());
            ASSERT_EQ(avx2_sum_kernels.scale_reach(reach.data(), weight, hands, actual_scaled.data()), largest);
            for (int h = 0; h < hands; ++h)
                ASSERT_TRUE(std::isnan(actual_scaled[h]) || actual_scaled[h] == expected_scaled[h]);

            for (const uint8_t* mask : {static_cast<const uint8_t*>(nullptr), static_cast<const uint8_t*>(frozen.data())}) {
                auto narrow = sums<uint16_t>(hands, 65535);
                auto narrow_expected = narrow;
                scalar_sum_kernels.add_u16(narrow_expected.data(), strategy.data(), expected_scaled.data(), hands, mask);
                avx2_sum_kernels.add_u16(narrow.data(), strategy.data(), expected_scaled.data(), hands, mask);
                ASSERT_EQ(narrow, narrow_expected) << hands << " " << weight;
                for (const uint32_t ceiling : {0xffffffu, 0xffffffffu}) {
                    auto wide = sums<uint32_t>(hands, ceiling);
                    auto wide_expected = wide;
                    scalar_sum_kernels.add_u32(wide_expected.data(), strategy.data(), expected_scaled.data(), hands, mask, ceiling);
                    avx2_sum_kernels.add_u32(wide.data(), strategy.data(), expected_scaled.data(), hands, mask, ceiling);
                    ASSERT_EQ(wide, wide_expected) << hands << " " << weight << " " << ceiling;
                }
            }
        }
    }
}

}  // namespace
