// ThreadSanitizer builds only. gcc's OpenMP runtime and tbbmalloc are not
// instrumented, so the sanitizer cannot see the synchronisation they do on our
// behalf and reports races that cannot happen. The program's own references to
// them are redirected here at link time (ld --wrap, see CMakeLists.txt), and
// these wrappers tell the sanitizer exactly the ordering that each call
// guarantees, no more:
// - a parallel region: everything the forking thread did before the region
//   happens before each of the region's threads starts its share, and each
//   thread's share happens before the forking thread goes on after the region
//   (the region's closing barrier). Nothing is said about the order between
//   two threads of the team, so races between tasks are still reported.
// - a critical section or a lock-based atomic: a mutex, released at its end
//   and acquired at its start.
// - tbbmalloc recycles blocks between threads through its own lock-free lists;
//   the sanitizer would see the old owner's writes and the new owner's writes
//   to the same bytes with nothing between them. Taking the blocks from the
//   sanitizer's own allocator instead gives it every allocation's bounds and
//   history, which also lets it catch use after release across threads.
// Barriers and `single` inside a region are not covered: the code has none,
// and one added later shows up as a report, never as a hidden race.
#include <malloc.h>
#include <sanitizer/tsan_interface.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

using RegionBody = void (*)(void*);

struct RegionEdges {
    RegionBody fn;
    void* data;
    char fork;  // addresses used only as the sanitizer's sync objects
    char join;
};

void run_share(void* p) {
    auto* edges = static_cast<RegionEdges*>(p);
    __tsan_acquire(&edges->fork);
    edges->fn(edges->data);
    __tsan_release(&edges->join);
}

// Runs `fork_region(body, data)` with the region's edges around it.
template <typename Fork>
void with_edges(RegionBody fn, void* data, Fork fork_region) {
    // On the heap so that freeing it drops the sync objects: a later region
    // must not inherit this one's ordering through a reused address.
    auto* edges = new RegionEdges{fn, data, 0, 0};
    __tsan_release(&edges->fork);
    fork_region(run_share, edges);
    __tsan_acquire(&edges->join);
    delete edges;
}

char unnamed_critical;
char atomic_section;

}  // namespace

extern "C" {

void __real_GOMP_parallel(RegionBody, void*, unsigned, unsigned);
void __wrap_GOMP_parallel(RegionBody fn, void* data, unsigned threads, unsigned flags) {
    with_edges(fn, data, [&](RegionBody body, void* edges) { __real_GOMP_parallel(body, edges, threads, flags); });
}

// The combined `parallel for` entry points, one per schedule.
#define TAVREK_WRAP_PARALLEL_LOOP(name)                                                                       \
    void __real_##name(RegionBody, void*, unsigned, long, long, long, long, unsigned);                         \
    void __wrap_##name(RegionBody fn, void* data, unsigned threads, long start, long end, long incr, long chunk, \
                       unsigned flags) {                                                                       \
        with_edges(fn, data, [&](RegionBody body, void* edges) {                                              \
            __real_##name(body, edges, threads, start, end, incr, chunk, flags);                              \
        });                                                                                                    \
    }
TAVREK_WRAP_PARALLEL_LOOP(GOMP_parallel_loop_static)
TAVREK_WRAP_PARALLEL_LOOP(GOMP_parallel_loop_dynamic)
TAVREK_WRAP_PARALLEL_LOOP(GOMP_parallel_loop_guided)
TAVREK_WRAP_PARALLEL_LOOP(GOMP_parallel_loop_nonmonotonic_dynamic)
TAVREK_WRAP_PARALLEL_LOOP(GOMP_parallel_loop_nonmonotonic_guided)
#undef TAVREK_WRAP_PARALLEL_LOOP

#define TAVREK_WRAP_PARALLEL_RUNTIME_LOOP(name)                                                        \
    void __real_##name(RegionBody, void*, unsigned, long, long, long, unsigned);                        \
    void __wrap_##name(RegionBody fn, void* data, unsigned threads, long start, long end, long incr,     \
                       unsigned flags) {                                                                \
        with_edges(fn, data, [&](RegionBody body, void* edges) {                                       \
            __real_##name(body, edges, threads, start, end, incr, flags);                              \
        });                                                                                             \
    }
TAVREK_WRAP_PARALLEL_RUNTIME_LOOP(GOMP_parallel_loop_runtime)
TAVREK_WRAP_PARALLEL_RUNTIME_LOOP(GOMP_parallel_loop_nonmonotonic_runtime)
TAVREK_WRAP_PARALLEL_RUNTIME_LOOP(GOMP_parallel_loop_maybe_nonmonotonic_runtime)
#undef TAVREK_WRAP_PARALLEL_RUNTIME_LOOP

void __real_GOMP_critical_start();
void __real_GOMP_critical_end();
void __real_GOMP_critical_name_start(void**);
void __real_GOMP_critical_name_end(void**);
void __real_GOMP_atomic_start();
void __real_GOMP_atomic_end();

void __wrap_GOMP_critical_start() {
    __real_GOMP_critical_start();
    __tsan_acquire(&unnamed_critical);
}
void __wrap_GOMP_critical_end() {
    __tsan_release(&unnamed_critical);
    __real_GOMP_critical_end();
}
void __wrap_GOMP_critical_name_start(void** name) {
    __real_GOMP_critical_name_start(name);
    __tsan_acquire(name);
}
void __wrap_GOMP_critical_name_end(void** name) {
    __tsan_release(name);
    __real_GOMP_critical_name_end(name);
}
void __wrap_GOMP_atomic_start() {
    __real_GOMP_atomic_start();
    __tsan_acquire(&atomic_section);
}
void __wrap_GOMP_atomic_end() {
    __tsan_release(&atomic_section);
    __real_GOMP_atomic_end();
}

// The whole allocation interface of tbbmalloc, so that no block of one
// allocator ever reaches the other.
void* __wrap_scalable_malloc(size_t size) { return std::malloc(size); }
void* __wrap_scalable_calloc(size_t count, size_t size) { return std::calloc(count, size); }
void* __wrap_scalable_realloc(void* block, size_t size) { return std::realloc(block, size); }
void __wrap_scalable_free(void* block) { std::free(block); }

int __wrap_scalable_posix_memalign(void** block, size_t alignment, size_t size) {
    return posix_memalign(block, alignment, size);
}

void* __wrap_scalable_aligned_malloc(size_t size, size_t alignment) {
    if (alignment < sizeof(void*)) alignment = sizeof(void*);
    void* block = nullptr;
    return posix_memalign(&block, alignment, size ? size : 1) == 0 ? block : nullptr;
}

void* __wrap_scalable_aligned_realloc(void* block, size_t size, size_t alignment) {
    if (!block) return __wrap_scalable_aligned_malloc(size, alignment);
    if (size == 0) {
        std::free(block);
        return nullptr;
    }
    void* fresh = __wrap_scalable_aligned_malloc(size, alignment);
    if (!fresh) return nullptr;
    const size_t old_size = malloc_usable_size(block);
    std::memcpy(fresh, block, old_size < size ? old_size : size);
    std::free(block);
    return fresh;
}

void __wrap_scalable_aligned_free(void* block) { std::free(block); }

size_t __wrap_scalable_msize(void* block) { return block ? malloc_usable_size(block) : 0; }

}  // extern "C"
