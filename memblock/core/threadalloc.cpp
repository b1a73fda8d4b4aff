#include <memblock/core/threadalloc.h>

#include <memblock/base/alloc.h>
#include <memblock/base/raise.h>
#include <memblock/threads/mutex.h>

#include <algorithm>
#include <boost/thread/tss.hpp>
#include <cstdio>
#include <new>
#include <utility>

namespace NKelmic {
using namespace Ntarnwick;

/// Stands ahead of its blocks. Blocks higher in the stack never lie in an earlier chunk. While a
/// chunk is the current one, the allocator keeps its first free byte.
struct RecursiveAllocator::Chunk {
    unsigned long capacity;
    char* free;
    Chunk* next;
    unsigned long has_gaps; ///< a block was unlinked among its blocks

    char* Start() { return reinterpret_cast<char*>(this + 1); }
    bool Holds(void const* p)
    {
        return p >= static_cast<void const*>(Start()) && p < static_cast<void const*>(free);
    }
};

namespace NThreadAlloc {
thread_local constinit RecursiveAllocator own_allocator;
}

void RecursiveAllocator::EndOfThread(RecursiveAllocator* allocator)
{
    FreeLater(allocator->first_);
    mb_free(allocator->first_);
    *allocator = {};
}

void RecursiveAllocator::FreeLater(Chunk* chunk)
{
    if (!chunk)
        return;
    for (Chunk* next = std::exchange(chunk->next, nullptr); next;) {
        Chunk* const gone = next;
        next = next->next;
        mb_free(gone);
    }
}

/// Make a chunk the current one, in which nothing is alive.
void RecursiveAllocator::Enter(Chunk* chunk)
{
    if (current_)
        current_->free = free_;
    current_ = chunk;
    floor_ = free_ = chunk->Start();
    chunk->has_gaps = 0;
    end_ = free_ + chunk->capacity;
}

/// Go on to the next chunk, which holds nothing that is alive, or to a new one.
void* RecursiveAllocator::AllocInOtherChunk(unsigned long n)
{
    // Holds the allocators that have chunks, to give these back at the end of their threads.
    static boost::thread_specific_ptr<RecursiveAllocator> owner(EndOfThread);
    if (n > greatest)
        Raise(err_state, "Cannot allocate %u bytes on the stack of a thread.", n);
    unsigned long const need = (n + 7) / 8 * 8 + sizeof(Block);
    Chunk* const next = current_ ? current_->next : nullptr;
    if (next && need <= next->capacity) {
        Enter(next);
        return Push(need);
    }
    if (!owner.get()) {
        owner.reset(this);
        thread_id_ = GetCurrentThreadId();
    }
    FreeLater(current_);
    unsigned long capacity = current_ ? std::max(need * 8, current_->capacity * 2) : need * 8;
    void* memory = mb_malloc(sizeof(Chunk) + capacity);
    if (!memory)
        memory = mb_malloc(sizeof(Chunk) + (capacity = need));
    if (!memory)
        throw std::bad_alloc();
    auto* const chunk = new (memory) Chunk{capacity, nullptr, nullptr, 0};
    (current_ ? current_->next : first_) = chunk;
    Enter(chunk);
    return Push(need);
}

RecursiveAllocator::Chunk* RecursiveAllocator::ChunkOf(Block const* block) const
{
    current_->free = free_;
    Chunk* chunk = first_;
    while (!chunk->Holds(block))
        chunk = chunk->next;
    return chunk;
}

/// The top has gone: free what lies above the new one, in the chunk where that is.
void RecursiveAllocator::GoBack()
{
    Chunk* const chunk = top_ ? ChunkOf(top_) : current_;
    bool const has_gaps = top_ && chunk->has_gaps;
    Enter(chunk);
    if (!top_)
        return;
    free_ = top_->End();
    if (has_gaps) {
        chunk->has_gaps = 1;
        floor_ = end_;
    }
}

/// Whatever is not the top.
void RecursiveAllocator::FreeOther(Block* block)
{
    if (block->ThreadId() != thread_id_) {
        std::fputs("Error: memory leak: object deallocated in a wrong thread\n", stderr);
        return;
    }
    std::fputs("Possible memory leak: Recursive heap block released out of order\n", stderr);
    for (Block* above = top_; above; above = above->below)
        if (above->below == block) {
            above->below = block->below;
            Chunk* const chunk = ChunkOf(above);
            chunk->has_gaps = 1;
            if (chunk == current_)
                floor_ = end_;
            return;
        }
    std::fputs("Program error: recursive heap block not present in the heap.\n", stderr);
}

} // namespace NKelmic
