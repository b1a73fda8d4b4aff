#include <memblock/base/alloc.h>

#include <memblock/base/largeblock_internal.h>
#include <memblock/base/log_internal.h>
#include <memblock/base/raise.h>

#include <cstdlib>
#include <cstring>
#include <malloc.h>

namespace Ntarnwick {

namespace {

/// Log that there is no memory, if there is some for that.
[[gnu::cold]] void* NoMemory(unsigned long count, unsigned long size) noexcept
{
    if (LogEnabled(log_memory, 2)) {
        try {
            Log(log_memory, 2, Text("Cannot allocate %u times %u bytes", count, size));
        } catch (std::bad_alloc const&) { // the caller learns it from the null pointer
        }
    }
    return nullptr;
}

/// Move a block between the C library and the large blocks. That takes a copy.
void* CopyOver(void* block, unsigned long used, unsigned long size)
{
    void* const fresh = size >= large::threshold ? large::Allocate(size, false) : malloc(size);
    if (!fresh)
        return nullptr;
    std::memcpy(fresh, block, used < size ? used : size);
    return fresh;
}

void* ReallocLarge(void* block, unsigned long capacity, unsigned long size)
{
    if (size >= large::threshold)
        return large::Resize(block, capacity, size);
    void* const fresh = size == 0 ? nullptr : CopyOver(block, capacity, size);
    if (fresh || size == 0) // on failure the block stays, as realloc leaves it
        large::Free(block, capacity);
    return fresh;
}

} // namespace

void* mb_malloc(unsigned long size)
{
    if (large::enabled && size >= large::threshold) [[unlikely]]
        if (void* block = large::Allocate(size, false))
            return block;
    void* const block = malloc(size); // tried for large ones too: the heap may have room left
    return block ? block : NoMemory(1, size);
}

void* mb_calloc(unsigned long count, unsigned long size)
{
    unsigned long total;
    if (large::enabled && !__builtin_mul_overflow(count, size, &total) && total >= large::threshold)
        [[unlikely]]
        if (void* block = large::Allocate(total, true))
            return block;
    void* const block = calloc(count, size);
    return block ? block : NoMemory(count, size);
}

void* mb_realloc(void* block, unsigned long size)
{
    if (!block)
        return mb_malloc(size);
    // Only the address shows where a block is from.
    if (large::MayBe(block)) [[unlikely]]
        if (auto const capacity = large::Capacity(block))
            return ReallocLarge(block, capacity, size);
    if (large::enabled && size >= large::threshold) [[unlikely]] {
        if (void* const fresh = CopyOver(block, malloc_usable_size(block), size)) {
            free(block);
            return fresh;
        }
    }
    return realloc(block, size);
}

void mb_free(void* block)
{
    if (large::MayBe(block)) [[unlikely]]
        if (auto const capacity = large::Capacity(block))
            return large::Free(block, capacity);
    free(block);
}

} // namespace Ntarnwick
