#ifndef MEMBLOCK_CORE_THREADALLOC_H
#define MEMBLOCK_CORE_THREADALLOC_H

#include <memblock/export.h>

namespace NKelmic {

/// A stack of small blocks that belongs to one thread: no lock, and in steady state no call of the
/// system. Chunks are kept when they become empty; the end of the thread gives them back.
class MEMBLOCK_API RecursiveAllocator {
public:
    RecursiveAllocator();
    ~RecursiveAllocator();
    RecursiveAllocator(RecursiveAllocator const&) = delete;
    RecursiveAllocator& operator=(RecursiveAllocator const&) = delete;

    /// Take a block, aligned to 8. Throws: 256 for more than 32 GiB, std::bad_alloc.
    void* Alloc(unsigned long n);
    /// Give a block back. See `SingleThreadAlloced::Free`.
    void Free(void* p);

private:
    struct Block;
    struct Chunk;
    void* AllocInOtherChunk(unsigned long units);
    void FreeLater(Chunk* chunk);
    Chunk* ChunkOf(Block const* block) const;
    void EmptyDownTo(Block* below);
    void Unlink(Block* block);

    Chunk* first_ = nullptr;
    Chunk* current_ = nullptr; // that of the top, if there is one
    Block* top_ = nullptr;
    unsigned int thread_id_;
};

/// The calling thread's own allocator, made at its first use.
MEMBLOCK_API RecursiveAllocator& GetRecursiveAllocator();

/// Short-lived small objects of one thread, to be released on it in the reverse order, as automatic
/// objects are. Misuse is told on standard error and survived; it raises nothing, since releases
/// happen in destructors.
class MEMBLOCK_API SingleThreadAlloced {
public:
    /// Throws: 256 for more than 32 GiB, std::bad_alloc.
    static void* Alloc(unsigned long n);
    /// Null is nothing. A block of another thread stays allocated; one that is not the top is
    /// unlinked, and its memory comes back when what lies below it goes.
    static void Free(void* p);

    // Callers need no conditions: these do nothing.
    unsigned int GetMyThreadId() const { return 0; }
    static void operator delete[](void*) {}
};

} // namespace NKelmic

#endif // MEMBLOCK_CORE_THREADALLOC_H
