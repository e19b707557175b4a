// Where the stores' memory comes from, apart from reserved ranges: flat blocks
// taken whole from the system, and aligned blocks from the scalable allocator
// for the buffers that threads take and give back all the time (hand vectors,
// open group buffers, coder chunks).
#pragma once

#include <cstddef>
#include <cstdint>

// A zero-filled, page-aligned, read-write block of `bytes`, or none when the
// system has no memory for it: the one allocation whose failure the caller
// reports softly. A request of 0 bytes gives none as well.
void* allocate_flat_block(size_t bytes);
// Returns a flat block; `bytes` is the size it was allocated with.
void free_flat_block(void* block, size_t bytes);

// Bytes the stores hold at this moment: flat blocks, committed reserved
// ranges and the scalable and aligned blocks of the stores' rows and buffers.
// Hand vectors of the walk are not counted.
int64_t storage_bytes_in_use();
void count_storage_bytes(int64_t delta);

// An aligned block from the scalable allocator. Running out of memory here
// prints "out of memory" and aborts: nothing above can go on without it.
void* allocate_scalable(size_t bytes, size_t alignment);
void free_scalable(void* block);

// Gives the memory that both allocators keep for reuse back to the system,
// after a large release (a forgotten street) that should shrink the process.
void return_free_memory();
