// Per-thread pools of HandVector blocks.
//
// Every block carries a small header in front of its values: the link of the
// free list and the block size, so that a block given back on a thread whose
// pool has another size can still be told apart and returned to the allocator.
#include <tbb/scalable_allocator.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "shell/protocol/hand_vector.h"

namespace {

// 64 bytes keep the values on a cache line boundary.
constexpr size_t header_bytes = 64;

struct BlockHeader {
    BlockHeader* next;
    int32_t block_floats;
};

struct VectorPool {
    int32_t block_floats = 0;
    BlockHeader* free_list = nullptr;
};

BlockHeader* header_of(float* data) {
    return reinterpret_cast<BlockHeader*>(reinterpret_cast<char*>(data) - header_bytes);
}

float* values_of(BlockHeader* header) {
    return reinterpret_cast<float*>(reinterpret_cast<char*>(header) + header_bytes);
}

void free_blocks(VectorPool& pool) {
    while (pool.free_list) {
        BlockHeader* next = pool.free_list->next;
        scalable_aligned_free(pool.free_list);
        pool.free_list = next;
    }
}

// Owns this thread's pool and frees its blocks when the thread ends (the
// solver thread ends with every run) or the pool is replaced.
struct ThreadPoolHolder {
    std::unique_ptr<VectorPool> pool;

    void replace(std::unique_ptr<VectorPool> fresh) {
        if (pool) free_blocks(*pool);
        pool = std::move(fresh);
    }
    ~ThreadPoolHolder() { replace(nullptr); }
};

thread_local ThreadPoolHolder thread_pool;

}  // namespace

void ensure_vector_pool(int32_t floats) {
    // Rounded up to whole 64-byte lines: vector kernels may touch the padding.
    const int32_t block_floats = (floats + 15) & ~15;
    if (thread_pool.pool && thread_pool.pool->block_floats == block_floats) return;
    auto pool = std::make_unique<VectorPool>();
    pool->block_floats = block_floats;
    thread_pool.replace(std::move(pool));
}

int32_t vector_pool_block_floats() { return thread_pool.pool ? thread_pool.pool->block_floats : 0; }

float* take_pool_block(int32_t count) {
    VectorPool& pool = *thread_pool.pool;
    if (count > pool.block_floats) throw std::length_error("vector pool block too small");
    if (BlockHeader* header = pool.free_list) {
        pool.free_list = header->next;
        return values_of(header);
    }
    const size_t bytes = header_bytes + size_t(pool.block_floats) * sizeof(float);
    auto* header = static_cast<BlockHeader*>(scalable_aligned_malloc(bytes, 64));
    if (!header) {
        abort_out_of_memory();
    }
    header->next = nullptr;
    header->block_floats = pool.block_floats;
    return values_of(header);
}

void give_pool_block(float* data) {
    BlockHeader* header = header_of(data);
    VectorPool* pool = thread_pool.pool.get();
    if (!pool || pool->block_floats != header->block_floats) {
        scalable_aligned_free(header);
        return;
    }
    header->next = pool->free_list;
    pool->free_list = header;
}
