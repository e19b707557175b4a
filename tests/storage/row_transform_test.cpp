#include "storage/codes/row_transform.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "storage/codes/codec.h"

namespace {

struct Coded {
    std::vector<uint32_t> values;
    int flag;
};

Coded forward32(const std::vector<uint32_t>& row, const std::vector<uint32_t>* previous) {
    std::vector<uint32_t> a(row.size() + 1), b(row.size() + 1);
    const TransformedRow t = transform_row32(row.data(), previous ? previous->data() : nullptr,
                                             static_cast<int>(row.size()), a.data(), b.data());
    return {std::vector<uint32_t>(t.values, t.values + row.size()), t.flag};
}

TEST(RowTransform, ZigzagFoldsSignsIntoSmallCodes) {
    EXPECT_EQ(zigzag(0), 0u);
    EXPECT_EQ(zigzag(-1), 1u);
    EXPECT_EQ(zigzag(1), 2u);
    EXPECT_EQ(zigzag(-2), 3u);
    EXPECT_EQ(zigzag(INT32_MAX), 0xfffffffeu);
    EXPECT_EQ(zigzag(INT32_MIN), 0xffffffffu);
    for (int32_t x : {0, 1, -1, 12345, -98765, INT32_MAX, INT32_MIN}) EXPECT_EQ(unzigzag(zigzag(x)), x);
}

TEST(RowTransform, FormsAndFlagChoice) {
    // Without a previous row: differences along the row.
    const std::vector<uint32_t> row{5, 5, 7, 4};
    Coded plain = forward32(row, nullptr);
    EXPECT_EQ(plain.flag, 0);
    EXPECT_EQ(plain.values, (std::vector<uint32_t>{10, 0, 4, 5}));

    // The previous row differs by a constant step pattern: its differences
    // cancel the row's, so the second form has fewer non-zero values.
    const std::vector<uint32_t> previous{1, 1, 3, 0};
    Coded against = forward32(row, &previous);
    EXPECT_EQ(against.flag, 1);
    EXPECT_EQ(against.values, (std::vector<uint32_t>{8, 0, 0, 0}));

    // A tie keeps the first form.
    const std::vector<uint32_t> unrelated{9, 9, 9, 9};
    EXPECT_EQ(forward32(std::vector<uint32_t>{1, 2, 2, 2}, &unrelated).flag, 0);
    // One value: both forms are the same value.
    EXPECT_EQ(forward32(std::vector<uint32_t>{3}, &unrelated).flag, 0);
    EXPECT_EQ(forward32(std::vector<uint32_t>{3}, &unrelated).values[0], zigzag(3 - 9));
}

TEST(RowTransform, InverseRebuildsEveryRow) {
    std::mt19937 random(7);
    for (int count : {0, 1, 2, 3, 4, 5, 7, 8, 31, 33, 1081, 1326}) {
        for (int kind = 0; kind < 3; ++kind) {
            std::vector<uint32_t> row(count), previous(count);
            for (int i = 0; i < count; ++i) {
                // Small steps, full-range values and values near the wrap.
                const uint32_t r = random();
                row[i] = kind == 0 ? r % 5 : kind == 1 ? r : 0xfffffff0u + r % 32;
                previous[i] = kind == 0 ? row[i] + r % 2 : r ^ 0x5555;
            }
            for (bool with_previous : {false, true}) {
                std::vector<uint32_t> a(count + 1), b(count + 1), back(count + 1, 0xdeadbeef);
                const uint32_t* p = with_previous ? previous.data() : nullptr;
                const TransformedRow t = transform_row32(row.data(), p, count, a.data(), b.data());
                untransform_row32(t.values, t.flag, p, count, back.data());
                back.resize(count);
                EXPECT_EQ(back, row) << count << " " << kind << " " << with_previous;
            }
        }
    }
}

TEST(RowTransform, SixteenBitRowsRoundTrip) {
    std::mt19937 random(11);
    for (int count : {0, 1, 6, 9, 100, 1326}) {
        std::vector<uint16_t> row(count), previous(count), back(count + 1, 0xbeef);
        for (int i = 0; i < count; ++i) {
            row[i] = static_cast<uint16_t>(random());
            previous[i] = static_cast<uint16_t>(i % 3 ? row[i] : random());
        }
        for (bool with_previous : {false, true}) {
            std::vector<uint32_t> a(count + 1), b(count + 1);
            const uint16_t* p = with_previous ? previous.data() : nullptr;
            const TransformedRow t = transform_row16(row.data(), p, count, a.data(), b.data());
            untransform_row16(t.values, t.flag, p, count, back.data());
            EXPECT_TRUE(std::equal(row.begin(), row.end(), back.begin())) << count;
            EXPECT_EQ(back[count], 0xbeef) << "wrote past the row";
        }
    }
}

TEST(RowTransformDeathTest, RowLongerThanAHandListEndsTheProcess) {
    std::vector<uint32_t> row(max_row_values + 1), a(row.size()), b(row.size());
    EXPECT_EXIT(transform_row32(row.data(), nullptr, max_row_values + 1, a.data(), b.data()),
                testing::ExitedWithCode(1), "");
}

}  // namespace
