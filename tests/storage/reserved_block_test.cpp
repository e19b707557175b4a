#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

#include "storage/codes/memory_blocks.h"
#include "storage/reserved_block.h"

namespace {

constexpr int64_t mask = block_stream_granularity_mask;

// The protection of the page at `address`, as "rw-", "r--" or "---".
std::string page_protection(const void* address) {
    const auto at = reinterpret_cast<uintptr_t>(address);
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        std::istringstream fields(line);
        std::string range, protection;
        fields >> range >> protection;
        const auto dash = range.find('-');
        const uintptr_t start = std::stoull(range.substr(0, dash), nullptr, 16);
        const uintptr_t end = std::stoull(range.substr(dash + 1), nullptr, 16);
        if (at >= start && at < end) return protection.substr(0, 3);
    }
    return "unmapped";
}

}  // namespace

TEST(MemoryBlocks, EveryKindOfBlockIsCountedWhileHeld) {
    const int64_t held_before = storage_bytes_in_use();
    EXPECT_EQ(allocate_flat_block(0), nullptr);
    // Flat blocks are zeroed pages, given back to the system when freed.
    const size_t bytes = 3 * 4096 + 5;
    auto* flat = static_cast<uint8_t*>(allocate_flat_block(bytes));
    ASSERT_NE(flat, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(flat) % 4096, 0u);
    for (size_t i = 0; i < bytes; ++i) ASSERT_EQ(flat[i], 0);
    flat[bytes - 1] = 1;
    EXPECT_EQ(storage_bytes_in_use() - held_before, static_cast<int64_t>(bytes));
    free_flat_block(flat, bytes);
    EXPECT_EQ(page_protection(flat), "unmapped");

    void* scalable = allocate_scalable(1000, 128);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(scalable) % 128, 0u);
    EXPECT_GE(storage_bytes_in_use() - held_before, 1000);
    free_scalable(scalable);

    // A reserved range counts what it committed, never the reserve.
    {
        ReservedBlock block(1 << 20);
        grow(block, 16385, mask);
        grow(block, 100, mask);
        EXPECT_EQ(storage_bytes_in_use() - held_before, 32768);
    }
    EXPECT_EQ(storage_bytes_in_use(), held_before) << "every block given back is counted off";
}
