#include "storage/reserved_block.h"

#include <sys/mman.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "shell/protocol/reply.h"
#include "storage/codes/memory_blocks.h"

namespace {

[[noreturn]] void die_not_enough_reserved() { fail_line("out of memory (not enough reserved)\n"); }

[[noreturn]] void die_reserve_failed(int64_t bytes, int error) {
    fail_line("Reserve %lld bytes fail (errno %d)\n", static_cast<long long>(bytes), error);
}

[[noreturn]] void die_commit_failed(int64_t bytes, int error) {
    fail_line("Commit %lld bytes fail (errno %d)\n", static_cast<long long>(bytes), error);
}

}  // namespace

ReservedBlock::ReservedBlock(ReservedBlock&& other) noexcept
    : committed(other.committed),
      logical(other.logical),
      high_commit(other.high_commit),
      reserve_limit(other.reserve_limit),
      base(std::exchange(other.base, nullptr)) {
    other.committed = other.logical = other.high_commit = 0;
}

ReservedBlock& ReservedBlock::operator=(ReservedBlock&& other) noexcept {
    if (this != &other) {
        release(*this);
        committed = std::exchange(other.committed, 0);
        logical = std::exchange(other.logical, 0);
        high_commit = std::exchange(other.high_commit, 0);
        reserve_limit = other.reserve_limit;
        base = std::exchange(other.base, nullptr);
    }
    return *this;
}

ReservedBlock::~ReservedBlock() { release(*this); }

void grow(ReservedBlock& block, int64_t size, int64_t granularity_mask) {
    block.committed = (size + granularity_mask) & ~granularity_mask;
    block.logical = size;
    // The steady path: after the first iterations a stream never outgrows what
    // it committed before, and no system call remains.
    if (block.committed <= block.high_commit) return;
    if (block.committed > block.reserve_limit) die_not_enough_reserved();
    count_storage_bytes(block.committed - block.high_commit);
    block.high_commit = block.committed;
    if (!block.base) {
        // An address range only: no page of it is backed until committed.
        void* range = mmap(nullptr, static_cast<size_t>(block.reserve_limit), PROT_NONE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (range == MAP_FAILED) die_reserve_failed(block.reserve_limit, errno);
        block.base = static_cast<uint8_t*>(range);
    }
    // The whole prefix from the base, pages committed before included.
    if (mprotect(block.base, static_cast<size_t>(block.committed), PROT_READ | PROT_WRITE) != 0) {
        die_commit_failed(block.committed, errno);
    }
}

void commit_for_load(ReservedBlock& block, int64_t size, int64_t granularity_mask) {
    grow(block, size, granularity_mask);
}

void release(ReservedBlock& block) {
    if (block.base) {
        if (munmap(block.base, static_cast<size_t>(block.reserve_limit)) != 0) fail("VirtualFree fail");
    }
    count_storage_bytes(-block.high_commit);
    block.base = nullptr;
    block.committed = block.logical = block.high_commit = 0;
}
