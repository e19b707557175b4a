// Where the stores' memory comes from, apart from reserved ranges: flat blocks
// taken whole from the system, and aligned blocks from the scalable allocator
// for the buffers that threads take and give back all the time (hand vectors,
// open group buffers, coder chunks).
#pragma once

#include <cstddef>

// A zero-filled, page-aligned, read-write block of `bytes`, or none when the
// system has no memory for it: the one allocation whose failure the caller
// reports softly. A request of 0 bytes gives none as well.
void* allocate_flat_block(size_t bytes);
// Returns a flat block; `bytes` is the size it was allocated with.
void free_flat_block(void* block, size_t bytes);

// An aligned block from the scalable allocator. Running out of memory here
// prints "out of memory" and aborts: nothing above can go on without it.
void* allocate_scalable(size_t bytes, size_t alignment);
void free_scalable(void* block);
