#ifndef MEMBLOCK_BASE_ALLOC_H
#define MEMBLOCK_BASE_ALLOC_H

#include <memblock/export.h>

#include <cstddef>
#include <new>

namespace Ntarnwick {

/// The allocation family of the whole library: objects, buffers, and what callers hand in with
/// `mb_free` as its release function.
///
/// The four functions act like malloc, calloc, realloc and free, with their alignment; they give
/// null on failure. Blocks below 1 MiB go to the C library unchanged. A larger block is a mapping
/// of its own: it starts at a multiple of 2 MiB and asks the system for huge pages, since with
/// small pages the page faults of a fresh block cost several times the work done on it.
///
/// A freed large block is kept and handed out again to a request that fills at least four fifths
/// of it. **Bound:** at most 16 blocks and 256 MiB together are kept in a process; beyond either,
/// the oldest goes back to the system at once. If the system refuses a mapping, all kept blocks
/// are given back before the request fails.
///
/// `mb_calloc` does not clear a fresh mapping, whose pages are zero already and cost nothing until
/// they are written. It clears a kept block of up to 8 MiB and takes none beyond.
///
/// Thread-safe. Each function has one definition that is not inline, so that its address names
/// a buffer's owner. Builds with the address or thread sanitizer send all sizes to the C library,
/// so that the sanitizer sees every block; defining MEMBLOCK_LARGE_BLOCKS as 0 (for valgrind) too.
MEMBLOCK_API void* mb_malloc(unsigned long size);
/// Null also if count times size does not fit a number.
MEMBLOCK_API void* mb_calloc(unsigned long count, unsigned long size);
/// Moves no bytes between large blocks: pages are remapped. A size of 0 frees and gives null.
MEMBLOCK_API void* mb_realloc(void* block, unsigned long size);
MEMBLOCK_API void mb_free(void* block);

/// Empty base class of everything whose storage comes from `mb_malloc`.
class MEMBLOCK_API mb_malloced {
public:
    /// Throws: std::bad_alloc where `mb_malloc` gives null.
    static void* operator new(std::size_t size)
    {
        if (void* block = mb_malloc(size))
            return block;
        throw std::bad_alloc();
    }
    static void* operator new(std::size_t, void* where) { return where; }
    static void operator delete(void* block) { mb_free(block); }
    static void operator delete(void*, void*) {}
};

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_ALLOC_H
