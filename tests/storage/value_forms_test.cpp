#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "storage/codes/value_forms.h"

using Bytes = std::vector<uint8_t>;

TEST(ValueForms, FloatRowsTruncateTowardZeroAndClampOnlyInTheVectorPath) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // Seventeen values, so that both the vector body and its tail see each case.
    const std::vector<float> row = {0.99f, 1.9f, 255.5f, 4096.7f, 65534.99f, 65535.0f, -1.5f, 70000.0f, 65536.0f,
                                    nan,   3e9f, -3e9f,  131073.0f, -0.5f,   12.0f,     -1.5f,   70000.0f};
    std::vector<uint16_t> clamped(row.size()), wrapped(row.size());
    convert_row_to_u16(row.data(), 17, clamped.data());
    convert_row_to_u16_scalar(row.data(), 17, wrapped.data());
    EXPECT_EQ(clamped, (std::vector<uint16_t>{0, 1, 255, 4096, 65534, 65535, 0, 65535, 65535, 0, 0, 0, 65535, 0, 12,
                                              0, 65535}));
    EXPECT_EQ(wrapped, (std::vector<uint16_t>{0, 1, 255, 4096, 65534, 65535, 0xffff, 70000 & 0xffff, 0, 0, 0, 0, 1, 0,
                                              12, 0xffff, 70000 & 0xffff}));

    // In range, the two paths agree at every length.
    std::mt19937 random(3);
    std::uniform_real_distribution<float> in_range(0.0f, 65535.99f);
    for (int count = 0; count < 40; ++count) {
        std::vector<float> values(count);
        for (float& v : values) v = in_range(random);
        std::vector<uint16_t> a(count), b(count);
        convert_row_to_u16(values.data(), count, a.data());
        convert_row_to_u16_scalar(values.data(), count, b.data());
        EXPECT_EQ(a, b) << count;
    }
}
