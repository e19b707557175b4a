// An address range taken once at its owner's worst case and committed page by
// page as the owner's data grows. Compressed row streams change size on every
// iteration; reserving the worst case up front keeps their bytes in one place,
// and only the committed prefix costs physical memory.
#pragma once

#include <cstdint>

struct ReservedBlock {
    int64_t committed = 0;      // the logical size rounded up to the owner's granularity
    int64_t logical = 0;        // bytes in use, as given by the last growth
    int64_t high_commit = 0;    // the largest figure ever committed
    int64_t reserve_limit = 0;  // size of the address range
    uint8_t* base = nullptr;    // start of the range; none until the first growth

    ReservedBlock() = default;
    explicit ReservedBlock(int64_t limit) : reserve_limit(limit) {}
    ReservedBlock(const ReservedBlock&) = delete;
    ReservedBlock& operator=(const ReservedBlock&) = delete;
    ReservedBlock(ReservedBlock&& other) noexcept;
    ReservedBlock& operator=(ReservedBlock&& other) noexcept;
    ~ReservedBlock();
};

// Granularity masks of the two owners.
constexpr int64_t block_stream_granularity_mask = 16383;
constexpr int64_t entropy_stream_granularity_mask = 4095;

// Brings `logical` to `size` and makes at least that many bytes from `base`
// readable and writable. Memory committed once is never given back, so a later,
// smaller size costs only a comparison. A size above the reserve limit, or a
// failing reserve or commit, ends the process with status 1.
void grow(ReservedBlock& block, int64_t size, int64_t granularity_mask);

// The same for a size read from a tree file.
void commit_for_load(ReservedBlock& block, int64_t size, int64_t granularity_mask);

// Returns the address range and empties the block; its reserve limit stays.
void release(ReservedBlock& block);
