#ifndef MEMBLOCK_CORE_THREADALLOC_H
#define MEMBLOCK_CORE_THREADALLOC_H

#include <memblock/export.h>

#include <cstdint>

namespace NKelmic {

/// A stack of small blocks that belongs to one thread: no lock, and in steady state no call of the
/// system. Chunks are kept when they become empty; the end of the thread gives them back.
class MEMBLOCK_API RecursiveAllocator {
public:
    /// Take a block, aligned to 8. Throws: 256 for more than 32 GiB, std::bad_alloc.
    void* Alloc(unsigned long n)
    {
        unsigned long const need = (n + 7) / 8 * 8 + sizeof(Block);
        if (n > greatest ||
            reinterpret_cast<std::uintptr_t>(free_) + need > reinterpret_cast<std::uintptr_t>(end_))
            return AllocInOtherChunk(n);
        return Push(need);
    }
    /// Give a block back. See `SingleThreadAlloced::Free`.
    void Free(void* p)
    {
        Block* const block = static_cast<Block*>(p) - 1;
        if (block != top_)
            return FreeOther(block);
        top_ = block->below;
        char* const place = reinterpret_cast<char*>(block);
        if (place > floor_ || (place == floor_ && !top_))
            free_ = place;
        else
            GoBack();
    }

private:
    /// Precedes the caller's data.
    struct Block {
        std::uint64_t owner_and_size; ///< in one store: below 32 bits of thread, words of 8 bytes
        Block* below;                 ///< in the order of allocation

        std::uint32_t ThreadId() const { return static_cast<std::uint32_t>(owner_and_size); }
        char* End() { return reinterpret_cast<char*>(this) + (owner_and_size >> 32) * 8; }
    };
    struct Chunk;
    static constexpr unsigned long greatest = (1UL << 35) - 2 * sizeof(Block); // 32 bits of words

    void* Push(unsigned long need)
    {
        auto* const block = reinterpret_cast<Block*>(free_);
        *block = {need / 8 << 32 | thread_id_, top_};
        top_ = block;
        free_ += need;
        return block + 1;
    }
    void* AllocInOtherChunk(unsigned long n);
    void FreeOther(Block* block);
    void GoBack();
    Chunk* ChunkOf(Block const* block) const;
    void Enter(Chunk* chunk);
    static void FreeLater(Chunk* chunk);
    static void EndOfThread(RecursiveAllocator* allocator);

    char* free_ = nullptr; // the first free byte of the current chunk
    char* end_ = nullptr;  // its end
    // A top above it has its neighbour right below. That is so for all but the first block of the
    // chunk; and for none as long as blocks lie in it that were unlinked.
    char* floor_ = nullptr;
    Block* top_ = nullptr;
    Chunk* current_ = nullptr; // that of the top, if there is one
    Chunk* first_ = nullptr;
    std::uint64_t thread_id_ = 0; // of 32 bits
};

namespace NThreadAlloc {
// Without a constructor and a destructor, so that its use is a plain memory access.
[[gnu::tls_model(
    "initial-exec")]] MEMBLOCK_API extern thread_local constinit RecursiveAllocator own_allocator;
} // namespace NThreadAlloc

/// The calling thread's own allocator.
inline RecursiveAllocator& GetRecursiveAllocator()
{
    return NThreadAlloc::own_allocator;
}

/// Short-lived small objects of one thread, to be released on it in the reverse order, as automatic
/// objects are. Misuse is reported on standard error; it raises nothing, since releases
/// happen in destructors.
class MEMBLOCK_API SingleThreadAlloced {
public:
    /// Throws: 256 for more than 32 GiB, std::bad_alloc.
    static void* Alloc(unsigned long n) { return GetRecursiveAllocator().Alloc(n); }
    /// Null is nothing. A block of another thread stays allocated; one that is not the top is
    /// unlinked, and its memory comes back when what is below it goes.
    static void Free(void* p)
    {
        if (p)
            GetRecursiveAllocator().Free(p);
    }

    // Callers need no conditions: these do nothing.
    unsigned int GetMyThreadId() const { return 0; }
    static void operator delete[](void*) {}
};

} // namespace NKelmic

#endif // MEMBLOCK_CORE_THREADALLOC_H
