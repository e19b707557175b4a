// The AVX2 strategy-sum kernels against the scalar reference: identical sums,
// a refined reciprocal's accuracy for the reads. Row lengths cover whole
// vectors and every kind of tail; values reach the edges of each width.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "shell/protocol/processor.h"
#include "storage/codes/sum_kernels.h"
#include "storage/storage.h"

namespace {

class SumKernelsTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!avx2_runs()) GTEST_SKIP() << "no AVX2 on this processor";
    }

    std::mt19937 random{4242};
    std::uniform_real_distribution<float> unit{0.0f, 1.0f};

    template <class T>
    std::vector<T> sums(int count, uint32_t top) {
        std::vector<T> result(count);
        for (T& v : result) {
            const float pick = unit(random);
            v = pick < 0.3f ? 0 : pick < 0.4f ? T(top) : T(std::exp2(unit(random) * std::log2(double(top))));
        }
        return result;
    }
};

TEST_F(SumKernelsTest, ReadsAgreeWithTheReference) {
    for (int actions : {1, 2, 3, 5}) {
        for (int hands : {1, 8, 13, 40}) {
            const int stride = row_stride(hands);
            const auto narrow = sums<uint16_t>(stride * actions, 65535);
            // 32-bit sums whose total wraps, or is odd enough to round as f32.
            auto wide = sums<uint32_t>(stride * actions, 0xffffffffu);
            wide[0] = 16777217;
            for (const bool is_wide : {false, true}) {
                std::vector<std::vector<float>> expected(actions, std::vector<float>(hands)), actual = expected;
                std::vector<float*> expected_rows, actual_rows;
                for (int a = 0; a < actions; ++a) {
                    expected_rows.push_back(expected[a].data());
                    actual_rows.push_back(actual[a].data());
                }
                if (is_wide) {
                    scalar_sum_kernels.strategy_u32(wide.data(), stride, actions, hands, expected_rows.data(), 0.25f);
                    avx2_sum_kernels.strategy_u32(wide.data(), stride, actions, hands, actual_rows.data(), 0.25f);
                } else {
                    scalar_sum_kernels.strategy_u16(narrow.data(), stride, actions, hands, expected_rows.data(), 0.25f);
                    avx2_sum_kernels.strategy_u16(narrow.data(), stride, actions, hands, actual_rows.data(), 0.25f);
                }
                for (int a = 0; a < actions; ++a)
                    for (int h = 0; h < hands; ++h)
                        ASSERT_NEAR(actual[a][h], expected[a][h], 1e-6f * std::fabs(expected[a][h]) + 1e-7f)
                            << is_wide << " " << actions << " " << hands << " " << a << " " << h;
            }
        }
    }
}

TEST_F(SumKernelsTest, UpdatesAreIdenticalToTheReference) {
    for (int hands : {1, 7, 8, 9, 31, 64, 67}) {
        std::vector<float> reach(hands), strategy(hands);
        for (float& v : reach) v = unit(random) < 0.2f ? 0.0f : unit(random);
        for (float& v : strategy) v = unit(random);
        if (hands > 2) {
            reach[1] = std::numeric_limits<float>::quiet_NaN();  // never the largest
            strategy[2] = std::numeric_limits<float>::quiet_NaN();
        }
        std::vector<uint8_t> frozen(hands);
        for (auto& f : frozen) f = unit(random) < 0.25f;

        for (const float weight : {0.3f, 1.0f, 900.0f, 1e6f, 3e9f}) {
            std::vector<float> expected_scaled(hands), actual_scaled(hands);
            const float expected_largest = scalar_sum_kernels.scale_reach(reach.data(), weight, hands, expected_scaled.data());
            const float actual_largest = avx2_sum_kernels.scale_reach(reach.data(), weight, hands, actual_scaled.data());
            ASSERT_EQ(actual_largest, expected_largest);
            ASSERT_FALSE(std::isnan(actual_largest));
            for (int h = 0; h < hands; ++h)
                ASSERT_EQ(std::isnan(actual_scaled[h]) || actual_scaled[h] == expected_scaled[h], true);

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

// The reference's edges, which the stores rely on: sums saturate rather than
// wrap, 32-bit ones at 2^31, where the processor's conversion saturates.
TEST(SumKernelRules, SaturateRatherThanWrap) {
    const float one = 1.0f, huge = 3e9f;
    uint16_t narrow = 10;
    scalar_sum_kernels.add_u16(&narrow, &one, &huge, 1, nullptr);
    EXPECT_EQ(narrow, 65535);
    uint32_t wide = 0x7fffff00;
    scalar_sum_kernels.add_u32(&wide, &one, &huge, 1, nullptr, 0xffffffff);
    EXPECT_EQ(wide, 0x80000000u);
}

}  // namespace
