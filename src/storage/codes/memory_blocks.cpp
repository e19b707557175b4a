#include "storage/codes/memory_blocks.h"

#include <malloc.h>
#include <sys/mman.h>
#include <tbb/scalable_allocator.h>

#include <atomic>
#include <cstdlib>

#include "shell/protocol/reply.h"

namespace {
std::atomic<int64_t> storage_bytes{0};
}

int64_t storage_bytes_in_use() { return storage_bytes.load(std::memory_order_relaxed); }

void count_storage_bytes(int64_t delta) { storage_bytes.fetch_add(delta, std::memory_order_relaxed); }

void* allocate_flat_block(size_t bytes) {
    if (bytes == 0) return nullptr;
    // Anonymous pages come zero-filled, so an opened store reads as all zeros
    // without a pass over it.
    void* block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) return nullptr;
    count_storage_bytes(static_cast<int64_t>(bytes));
    return block;
}

void free_flat_block(void* block, size_t bytes) {
    if (!block) return;
    if (munmap(block, bytes) != 0) fail("VirtualFree fail");
    count_storage_bytes(-static_cast<int64_t>(bytes));
}

void* allocate_scalable(size_t bytes, size_t alignment) {
    // A zero-byte request still gets a block, so that a null pointer always
    // means failure.
    void* block = scalable_aligned_malloc(bytes ? bytes : 1, alignment);
    if (!block) {
        abort_out_of_memory();
    }
    count_storage_bytes(static_cast<int64_t>(scalable_msize(block)));
    return block;
}

void free_scalable(void* block) {
    if (!block) return;
    count_storage_bytes(-static_cast<int64_t>(scalable_msize(block)));
    scalable_aligned_free(block);
}

void return_free_memory() {
    scalable_allocation_command(TBBMALLOC_CLEAN_ALL_BUFFERS, nullptr);
    malloc_trim(0);
}
