// The automatic choice of a level: its bounds on the share of the estimate
// that memory holds, which depend on the flop's suits. (Which store each level
// makes is shown by tree files and locked rows at every level.)
#include <gtest/gtest.h>

#include "storage/storage_assignment.h"

namespace {

TEST(StorageAssignment, AutomaticLevelByFractionsOfTheEstimate) {
    // Memory for an estimate of 1,000,000 bytes, suits of the flop, level. At
    // a bound the lower level is kept: the memory must be above it. The same
    // memory is level 3 on a two-suited flop and 2 on a rainbow one.
    const int cases[][3] = {{1000001, 3, 0}, {1000000, 3, 1}, {580001, 2, 1}, {580000, 2, 2},
                            {350000, 2, 3},  {350000, 1, 3},  {350000, 3, 2}, {290000, 2, 4},
                            {250000, 3, 3},  {232000, 3, 4},  {0, 3, 4}};
    for (const auto& [memory, suits, level] : cases)
        EXPECT_EQ(auto_compression_level(1000000, memory, suits), level) << memory << " " << suits;
}

}  // namespace
