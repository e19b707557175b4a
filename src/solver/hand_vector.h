// Per-hand f32 arrays of the walk. A null block with a count stands for that
// many zeros, so a branch nobody reaches costs nothing to carry.
#pragma once

#include <tbb/scalable_allocator.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

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

    // A block for `n` values, contents undefined; kept when the count is unchanged.
    void resize(int32_t n) {
        if (data && n == count) return;
        release();
        count = n;
        if (n == 0) return;
        const size_t bytes = (static_cast<size_t>(n) * sizeof(float) + 15) & ~size_t{15};
        data = static_cast<float*>(scalable_aligned_malloc(bytes, 16));
        if (!data) {
            std::fputs("out of memory\n", stdout);
            std::fflush(stdout);
            std::abort();
        }
    }
    // `n` zeros held as a null block.
    void set_zero(int32_t n) {
        release();
        count = n;
    }
    void release() {
        if (data) scalable_aligned_free(data);
        data = nullptr;
        from_pool = false;
    }
    // A real copy; a null source gives a null copy of the same count.
    HandVector clone() const {
        HandVector copy(count);
        if (data) {
            copy.resize(count);
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
