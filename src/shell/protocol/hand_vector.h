// Per-hand f32 arrays of the walk. A null block with a count stands for that
// many zeros, so a branch nobody reaches costs nothing to carry.
//
// The walk makes and drops vectors at every node, so blocks may come from a
// per-thread pool of equal-size blocks instead of the allocator: a pool block
// is taken from and given back to a free list without a lock. A pool block may
// be released on another thread than the one that took it; it then joins that
// thread's list when the block sizes agree, and goes back to the allocator
// otherwise.
#pragma once

#include <tbb/scalable_allocator.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "shell/protocol/reply.h"

// ---------------------------------------------------------------------------
// Pools.

// Makes sure this thread has a pool whose blocks hold `floats` values; a pool
// of another size is dropped with its free blocks. The pool lives until the
// thread ends or is replaced.
void ensure_vector_pool(int32_t floats);
// Block size of this thread's pool in floats, 0 without a pool.
int32_t vector_pool_block_floats();
// A block of the thread's pool for `count` values; throws std::length_error
// when the count is above the pool's block size. Needs a pool.
float* take_pool_block(int32_t count);
// Back to the current thread's pool, or to the allocator.
void give_pool_block(float* data);

// ---------------------------------------------------------------------------

struct HandVector {
    float* data = nullptr;
    int32_t count = 0;
    bool from_pool = false;

    HandVector() = default;
    explicit HandVector(int32_t zeros) : count(zeros) {}
    HandVector(const HandVector&) = delete;
    HandVector& operator=(const HandVector&) = delete;
    HandVector(HandVector&& other) noexcept { take(other); }
    HandVector& operator=(HandVector&& other) noexcept {
        if (this != &other) {
            release();
            take(other);
        }
        return *this;
    }
    ~HandVector() { release(); }

    bool is_zero() const { return data == nullptr; }

    // A block for `n` values, contents undefined; kept when the count is
    // unchanged. `pooled` takes it from this thread's pool when there is one.
    void resize(int32_t n, bool pooled = false) {
        if (data && n == count) return;
        release();
        count = n;
        if (n == 0) return;
        if (pooled && vector_pool_block_floats() > 0) {
            data = take_pool_block(n);
            from_pool = true;
            return;
        }
        const size_t bytes = (static_cast<size_t>(n) * sizeof(float) + 15) & ~size_t{15};
        data = static_cast<float*>(scalable_aligned_malloc(bytes, 16));
        if (!data) {
            abort_out_of_memory();
        }
    }
    // `n` zeros held as a null block.
    void set_zero(int32_t n) {
        release();
        count = n;
    }
    void release() {
        if (data) {
            if (from_pool) {
                give_pool_block(data);
            } else {
                scalable_aligned_free(data);
            }
        }
        data = nullptr;
        from_pool = false;
    }
    // A real copy; a null source gives a null copy of the same count.
    HandVector clone(bool pooled = false) const {
        HandVector copy(count);
        if (data) {
            copy.resize(count, pooled);
            std::memcpy(copy.data, data, static_cast<size_t>(count) * sizeof(float));
        }
        return copy;
    }

private:
    void take(HandVector& other) {
        data = std::exchange(other.data, nullptr);
        count = std::exchange(other.count, 0);
        from_pool = std::exchange(other.from_pool, false);
    }
};
