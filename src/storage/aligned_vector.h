// A std::vector whose elements start on a 64-byte boundary, so that the tables
// the walk reads on every row sit on whole cache lines.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

template <class T, std::size_t Alignment>
struct AlignedAllocator {
    using value_type = T;
    template <class U>
    struct rebind {
        using other = AlignedAllocator<U, Alignment>;
    };

    AlignedAllocator() = default;
    template <class U>
    AlignedAllocator(const AlignedAllocator<U, Alignment>&) {}

    T* allocate(std::size_t count) {
        return static_cast<T*>(::operator new(count * sizeof(T), std::align_val_t{Alignment}));
    }
    void deallocate(T* pointer, std::size_t) { ::operator delete(pointer, std::align_val_t{Alignment}); }

    template <class U>
    bool operator==(const AlignedAllocator<U, Alignment>&) const { return true; }
};

template <class T>
using AlignedVector = std::vector<T, AlignedAllocator<T, 64>>;
