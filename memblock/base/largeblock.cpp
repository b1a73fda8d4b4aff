#include <memblock/base/largeblock_internal.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include <sys/mman.h>

namespace Ntarnwick::large {

namespace {

constexpr std::size_t step = std::size_t(64) << 10; // a multiple of every system's small page
constexpr std::size_t too_much = PTRDIFF_MAX - 2 * huge_page;

constexpr std::size_t RoundUp(std::size_t n, std::size_t unit)
{
    return (n + unit - 1) & ~(unit - 1);
}

/// The length of a mapping for `size` bytes: whole huge pages where that wastes at most an eighth.
/// The tail of a smaller one gets small pages, since a huge page must be inside its mapping.
std::size_t MappingLength(std::size_t size)
{
    std::size_t const huge = RoundUp(size, huge_page);
    return huge - size <= size / 8 ? huge : RoundUp(size, step);
}

// ---- capacities of live blocks, by address ------------------------------------------------------

// Large blocks start at different multiples of 2 MiB, so a table with an entry a multiple names
// them all: two levels, the second made on demand. It is read without a lock, which is sound
// because an entry changes only while its block is being made, resized or freed by its owner.
constexpr unsigned level_bits = 13;
constexpr std::size_t level_size = std::size_t(1) << level_bits;
using Leaf = std::atomic<std::size_t>[level_size];
constinit std::atomic<Leaf*> root[level_size];

std::size_t PageNumber(void const* block)
{
    return reinterpret_cast<std::uintptr_t>(block) / huge_page;
}

std::atomic<std::size_t>* Entry(void const* block)
{
    std::size_t const page = PageNumber(block);
    if (page >> (2 * level_bits) != 0)
        return nullptr;
    Leaf* const leaf = root[page >> level_bits].load(std::memory_order_acquire);
    return leaf ? &(*leaf)[page & (level_size - 1)] : nullptr;
}

/// Make the table ready for an address. False if memory or the table's reach ends.
bool MakeEntry(void const* block)
{
    std::size_t const page = PageNumber(block);
    if (page >> (2 * level_bits) != 0)
        return false;
    auto& slot = root[page >> level_bits];
    if (slot.load(std::memory_order_acquire))
        return true;
    void* const fresh =
        mmap(nullptr, sizeof(Leaf), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (fresh == MAP_FAILED)
        return false;
    Leaf* expected = nullptr; // zero pages are a leaf without entries
    if (!slot.compare_exchange_strong(expected, static_cast<Leaf*>(fresh)))
        munmap(fresh, sizeof(Leaf));
    return true;
}

void SetCapacity(void const* block, std::size_t capacity)
{
    Entry(block)->store(capacity, std::memory_order_relaxed);
}

// ---- mappings -----------------------------------------------------------------------------------

/// Map fresh zero pages at a multiple of 2 MiB, with their entry made. Null on failure.
void* Map(std::size_t length)
{
    std::size_t const room = length + huge_page;
    void* const start =
        mmap(nullptr, room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start == MAP_FAILED)
        return nullptr;
    auto const from = reinterpret_cast<std::uintptr_t>(start);
    std::size_t const before = RoundUp(from, huge_page) - from;
    char* const block = static_cast<char*>(start) + before;
    if (before != 0)
        munmap(start, before);
    munmap(block + length, room - before - length);
    if (!MakeEntry(block)) {
        munmap(block, length);
        return nullptr;
    }
    // Also for less than a huge page, since a mapping hands its wish on when it grows. It may not
    // be met: without huge pages all is just slower.
    madvise(block, length, MADV_HUGEPAGE);
    return block;
}

// ---- freed blocks that are kept -----------------------------------------------------------------

struct Block {
    void* start;
    std::size_t capacity;
};

constinit std::mutex kept_mutex;
constinit Block kept[kept_blocks_max] = {}; // guarded by kept_mutex, oldest first
constinit unsigned kept_count = 0;          // guarded by kept_mutex
constinit std::size_t kept_bytes = 0;       // guarded by kept_mutex

Block TakeKept_lk(unsigned index)
{
    Block const block = kept[index];
    --kept_count;
    std::memmove(kept + index, kept + index + 1, (kept_count - index) * sizeof(Block));
    kept_bytes -= block.capacity;
    return block;
}

/// Take the tightest kept block for `size` bytes. One that it fills less than four fifths stays:
/// the rest would be lost to everybody.
Block FindKept(std::size_t size)
{
    std::lock_guard lock(kept_mutex);
    unsigned best = kept_count;
    std::size_t best_capacity = MappingLength(size + size / 4) + 1;
    for (unsigned i = 0; i < kept_count; ++i) {
        if (kept[i].capacity >= size && kept[i].capacity < best_capacity) {
            best = i;
            best_capacity = kept[i].capacity;
        }
    }
    return best < kept_count ? TakeKept_lk(best) : Block{nullptr, 0};
}

/// Keep a block, and hand out in `evicted` what has to go for it. Returns their number.
unsigned Keep(Block block, Block (&evicted)[kept_blocks_max])
{
    std::lock_guard lock(kept_mutex);
    unsigned gone = 0;
    while (kept_count == kept_blocks_max || kept_bytes + block.capacity > kept_bytes_max)
        evicted[gone++] = TakeKept_lk(0);
    kept[kept_count++] = block;
    kept_bytes += block.capacity;
    return gone;
}

/// Map; if the system refuses, give all kept blocks back first.
void* MapAtAnyCost(std::size_t length)
{
    if (void* const block = Map(length))
        return block;
    DropKept();
    return Map(length);
}

} // namespace

std::size_t Capacity(void const* block)
{
    auto const* entry = Entry(block);
    return entry ? entry->load(std::memory_order_relaxed) : 0;
}

void* Allocate(std::size_t size, bool zeroed)
{
    if (size > too_much)
        return nullptr;
    if (!zeroed || size <= clear_max) {
        if (Block const block = FindKept(size); block.start) {
            SetCapacity(block.start, block.capacity);
            if (zeroed)
                std::memset(block.start, 0, size);
            return block.start;
        }
    }
    std::size_t const length = MappingLength(size);
    void* const block = MapAtAnyCost(length);
    if (block)
        SetCapacity(block, length);
    return block;
}

void* Resize(void* block, std::size_t capacity, std::size_t size)
{
    if (size > too_much) {
        errno = ENOMEM;
        return nullptr;
    }
    std::size_t const length = MappingLength(size);
    if (size <= capacity && length >= capacity / 4 * 3)
        return block;
    if (length < capacity) {
        if (munmap(static_cast<char*>(block) + length, capacity - length) == 0)
            SetCapacity(block, length);
        return block;
    }
    if (mremap(block, capacity, length, 0) != MAP_FAILED) { // room behind it
        SetCapacity(block, length);
        return block;
    }
    void* const target = MapAtAnyCost(length);
    if (!target)
        return nullptr;
    SetCapacity(block, 0); // before another thread can map and enter the same address
    if (mremap(block, capacity, length, MREMAP_MAYMOVE | MREMAP_FIXED, target) == MAP_FAILED) {
        SetCapacity(block, capacity);
        munmap(target, length);
        return nullptr;
    }
    SetCapacity(target, length);
    return target;
}

void Free(void* block, std::size_t capacity)
{
    SetCapacity(block, 0);
    if (capacity > kept_bytes_max) {
        munmap(block, capacity);
        return;
    }
    Block evicted[kept_blocks_max];
    unsigned const gone = Keep({block, capacity}, evicted);
    for (unsigned i = 0; i < gone; ++i)
        munmap(evicted[i].start, evicted[i].capacity);
}

std::size_t KeptBytes()
{
    std::lock_guard lock(kept_mutex);
    return kept_bytes;
}

void DropKept()
{
    for (;;) {
        Block block;
        {
            std::lock_guard lock(kept_mutex);
            if (kept_count == 0)
                return;
            block = TakeKept_lk(kept_count - 1);
        }
        munmap(block.start, block.capacity);
    }
}

} // namespace Ntarnwick::large
