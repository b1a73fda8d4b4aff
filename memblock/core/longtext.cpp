#include <memblock/core/longtext_internal.h>

#include <new>

namespace NKelmic {

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr int room = 0; // a kept block would hide that somebody still uses it
#else
constexpr int room = 256;
#endif

struct Block {
    Block* next;
};

/// The blocks that this thread dropped, the last one first. Plain data, so that reaching them
/// costs no call; there is room only while the thread can still give them back when it ends.
struct KeptBlocks {
    Block* first;
    int count, room;
    bool ended;

    void Keep(void* block)
    {
        first = new (block) Block{first};
        ++count;
    }
    void* Take()
    {
        Block* const block = first;
        first = block->next;
        --count;
        return block;
    }
};
constinit thread_local KeptBlocks kept __attribute__((tls_model("initial-exec"))) = {};

struct FreeAtExit {
    ~FreeAtExit()
    {
        kept.ended = true;
        kept.room = 0;
        while (kept.first)
            ::operator delete(kept.Take());
    }
};

/// What few drops need: a full house, or the first drop of a thread.
[[gnu::noinline]] void DropSlowly(void* block) noexcept
{
    if (room == 0 || kept.ended || kept.room != 0)
        return ::operator delete(block);
    static thread_local FreeAtExit const free_at_exit;
    static_cast<void>(&free_at_exit);
    kept.room = room;
    kept.Keep(block);
}

} // namespace

void* LongText::operator new(std::size_t size)
{
    static_assert(sizeof(LongText) == sizeof(safestring) && sizeof(LongText) >= sizeof(Block));
    return kept.first ? kept.Take() : ::operator new(size);
}

void LongText::operator delete(void* block) noexcept
{
    if (kept.count < kept.room)
        kept.Keep(block);
    else
        DropSlowly(block);
}

} // namespace NKelmic
