#include <memblock/core/threadalloc.h>

#include <memblock/base/alloc.h>
#include <memblock/base/raise.h>
#include <memblock/threads/mutex.h>

#include <algorithm>
#include <boost/thread/tss.hpp>
#include <cstdint>
#include <cstdio>
#include <new>

namespace NKelmic {
using namespace Ntarnwick;

/// Stands ahead of the caller's data. The size counts words of 8 bytes, header included.
struct RecursiveAllocator::Block {
    std::uint32_t thread_id;
    std::uint32_t words;
    Block* below; ///< in the order of allocation

    char* End() { return reinterpret_cast<char*>(this) + words * 8UL; }
};

/// Stands ahead of its blocks. Blocks higher in the stack never lie in an earlier chunk.
struct RecursiveAllocator::Chunk {
    unsigned long capacity;
    char* free;
    Chunk* next;
    unsigned long reserved;

    char* Start() { return reinterpret_cast<char*>(this + 1); }
    unsigned long Available() { return static_cast<unsigned long>(Start() + capacity - free); }
    bool Holds(void const* p)
    {
        return p >= static_cast<void const*>(Start()) && p < static_cast<void const*>(free);
    }
};

namespace {

// The pointer of the calling thread, without the search in the owner's table. No destructor.
[[gnu::tls_model("initial-exec")]] thread_local constinit RecursiveAllocator* own_allocator =
    nullptr;

constexpr unsigned long header = 16;
constexpr unsigned long greatest = (1UL << 35) - 2 * header; // the size counts 32 bits of words

} // namespace

RecursiveAllocator::RecursiveAllocator() : thread_id_(GetCurrentThreadId())
{
    static_assert(sizeof(Block) == header && sizeof(Chunk) == 2 * header);
}

RecursiveAllocator::~RecursiveAllocator()
{
    if (own_allocator == this)
        own_allocator = nullptr;
    FreeLater(first_);
    mb_free(first_);
}

void RecursiveAllocator::FreeLater(Chunk* chunk)
{
    if (!chunk)
        return;
    for (Chunk* next = chunk->next; next;) {
        Chunk* const gone = next;
        next = next->next;
        mb_free(gone);
    }
    chunk->next = nullptr;
}

void* RecursiveAllocator::Alloc(unsigned long n)
{
    if (n > greatest)
        Raise(err_state, "Cannot allocate %u bytes on the stack of a thread.", n);
    unsigned long const need = (n + 7) / 8 * 8 + header;
    if (!current_ || need > current_->Available())
        return AllocInOtherChunk(need);
    auto* const block = reinterpret_cast<Block*>(current_->free);
    *block = {thread_id_, static_cast<std::uint32_t>(need / 8), top_};
    top_ = block;
    current_->free += need;
    return block + 1;
}

/// Go on to the next chunk, which holds nothing that is alive, or to a new one.
void* RecursiveAllocator::AllocInOtherChunk(unsigned long need)
{
    if (Chunk* const next = current_ ? current_->next : nullptr; next && need <= next->capacity) {
        next->free = next->Start();
        current_ = next;
        return Alloc(need - header);
    }
    FreeLater(current_);
    unsigned long const wanted = current_ ? std::max(need * 8, current_->capacity * 2) : need * 8;
    unsigned long capacity = wanted;
    void* memory = mb_malloc(sizeof(Chunk) + capacity);
    if (!memory)
        memory = mb_malloc(sizeof(Chunk) + (capacity = need));
    if (!memory)
        throw std::bad_alloc();
    auto* const chunk = new (memory) Chunk{capacity, nullptr, nullptr, 0};
    chunk->free = chunk->Start();
    (current_ ? current_->next : first_) = chunk;
    current_ = chunk;
    return Alloc(need - header);
}

void RecursiveAllocator::Free(void* p)
{
    auto* const block = static_cast<Block*>(p) - 1;
    if (block->thread_id != thread_id_) {
        std::fputs("Error: memory leak: object deallocated in a wrong thread\n", stderr);
        return;
    }
    if (block != top_)
        return Unlink(block);
    top_ = block->below;
    // The commonest case first: both lie in the current chunk.
    if (top_ && current_->Holds(top_))
        current_->free = top_->End();
    else
        EmptyDownTo(top_);
}

/// The current chunk holds nothing more; go back to that of the new top.
void RecursiveAllocator::EmptyDownTo(Block* below)
{
    current_->free = current_->Start();
    if (!below)
        return;
    current_ = ChunkOf(below);
    current_->free = below->End();
}

RecursiveAllocator::Chunk* RecursiveAllocator::ChunkOf(Block const* block) const
{
    Chunk* chunk = first_;
    while (!chunk->Holds(block))
        chunk = chunk->next;
    return chunk;
}

void RecursiveAllocator::Unlink(Block* block)
{
    std::fputs("Possible memory leak: Recursive heap block released out of order\n", stderr);
    for (Block* above = top_; above; above = above->below)
        if (above->below == block) {
            above->below = block->below;
            return;
        }
    std::fputs("Program error: recursive heap block not present in the heap.\n", stderr);
}

RecursiveAllocator& GetRecursiveAllocator()
{
    if (own_allocator)
        return *own_allocator;
    // The owner: its end of a thread deletes the allocator.
    static boost::thread_specific_ptr<RecursiveAllocator> owner;
    if (!owner.get())
        owner.reset(new RecursiveAllocator);
    own_allocator = owner.get();
    return *own_allocator;
}

void* SingleThreadAlloced::Alloc(unsigned long n)
{
    return GetRecursiveAllocator().Alloc(n);
}

void SingleThreadAlloced::Free(void* p)
{
    if (p)
        GetRecursiveAllocator().Free(p);
}

} // namespace NKelmic
