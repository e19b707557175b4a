// Asking the memory system for data a little before it is needed. River rows
// and board tables are spread over hundreds of megabytes and each is touched
// once per walk, so the walk meets most of them cold; fetched while the
// previous river card is being worked on, they arrive in parallel instead of
// one miss after another.
#pragma once

#include <cstddef>

// Every cache line of [start, start + bytes).
inline void prefetch_bytes(const void* start, size_t bytes) {
    const char* first = static_cast<const char*>(start);
    for (size_t offset = 0; offset < bytes; offset += 64) __builtin_prefetch(first + offset);
}
