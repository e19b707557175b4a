// The AVX2 row kernels against the scalar reference: identical results for
// the updates, a refined reciprocal's accuracy for the strategy reads. Row
// lengths cover whole vectors and every kind of tail.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "shell/protocol/processor.h"
#include "storage/codes/row_kernels.h"
#include "storage/storage.h"

namespace {

class RowKernelsTest : public ::testing::Test {
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

    std::mt19937 random{12345};
};

TEST_F(RowKernelsTest, StrategyReadsAgreeWithReference) {
    const std::vector<float> defaults = {0.9f, 0.05f, 0.03f, 0.02f};  // shorter than 7 actions
    for (int actions : {1, 2, 3, 4, 5, 6, 7}) {
        for (int hands : {1, 8, 9, 23, 67}) {
            const int stride = row_stride(hands);
            std::vector<float> f32_rows = values(stride * actions, 0.0f, 50.0f);
            for (int h = 0; h < hands; h += 5) {
                // All zero, and a sum below the smallest normal: both take defaults.
                for (int a = 0; a < actions; ++a) f32_rows[a * stride + h] = 0.0f;
                if (h + 1 < hands)
                    for (int a = 0; a < actions; ++a) f32_rows[a * stride + h + 1] = a == 0 ? 1e-39f : 0.0f;
            }
            std::vector<uint16_t> u16_rows(f32_rows.size());
            for (size_t i = 0; i < f32_rows.size(); ++i) u16_rows[i] = uint16_t(f32_rows[i] * 100.0f);

            std::vector<std::vector<float>> expected(actions, std::vector<float>(hands)), actual = expected;
            std::vector<float*> expected_rows, actual_rows;
            for (int a = 0; a < actions; ++a) {
                expected_rows.push_back(expected[a].data());
                actual_rows.push_back(actual[a].data());
            }
            for (const bool words : {false, true}) {
                if (words) {
                    scalar_row_kernels.strategy_u16(u16_rows.data(), stride, actions, hands, expected_rows.data(), defaults);
                    avx2_row_kernels.strategy_u16(u16_rows.data(), stride, actions, hands, actual_rows.data(), defaults);
                } else {
                    scalar_row_kernels.strategy_f32(f32_rows.data(), stride, actions, hands, expected_rows.data(), defaults);
                    avx2_row_kernels.strategy_f32(f32_rows.data(), stride, actions, hands, actual_rows.data(), defaults);
                }
                // A refined reciprocal is good to about 2e-6 of the value; the
                // two-action word path gives its second action as 1 - first,
                // which adds up to one unit in the last place of 1.0. How the
                // estimate rounds differs between processor makers.
                const float complement_error = words && actions == 2 ? 1.2e-7f : 0.0f;
                for (int a = 0; a < actions; ++a)
                    for (int h = 0; h < hands; ++h)
                        ASSERT_NEAR(actual[a][h], expected[a][h],
                                    2e-6f * std::fabs(expected[a][h]) + complement_error)
                            << (words ? "u16" : "f32") << " actions " << actions << " hands " << hands << " h " << h;
            }
        }
    }
}

TEST_F(RowKernelsTest, UpdatesAreIdenticalWithMasksAndAbsentRows) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
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

}  // namespace
