// The automatic choice of a level: its bounds on the share of the estimate
// that memory holds, which depend on the flop's suits. (Which store each level
// makes is shown by tree files and locked rows at every level.)
#include <gtest/gtest.h>

#include "storage/storage_assignment.h"

namespace {

TEST(StorageAssignment, AutomaticLevelByFractionsOfTheEstimate) {
    const int64_t estimate = 1000000;
    EXPECT_EQ(auto_compression_level(estimate, estimate + 1, 3), 0);
    EXPECT_EQ(auto_compression_level(estimate, estimate, 3), 1);  // not below: compress
    EXPECT_EQ(auto_compression_level(estimate, 580001, 2), 1);
    EXPECT_EQ(auto_compression_level(estimate, 580000, 2), 2);  // exactly 0.58 is not above
    // The same memory: level 3 on a two-suited flop, 2 on a rainbow one.
    EXPECT_EQ(auto_compression_level(estimate, 350000, 2), 3);
    EXPECT_EQ(auto_compression_level(estimate, 350000, 1), 3);
    EXPECT_EQ(auto_compression_level(estimate, 350000, 3), 2);
    EXPECT_EQ(auto_compression_level(estimate, 290000, 2), 4);
    EXPECT_EQ(auto_compression_level(estimate, 250000, 3), 3);
    EXPECT_EQ(auto_compression_level(estimate, 232000, 3), 4);
    EXPECT_EQ(auto_compression_level(estimate, 0, 3), 4);
}

}  // namespace
