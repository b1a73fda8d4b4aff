#include "failing_alloc.h"

#include <memblock/base/alloc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

std::atomic<long> live_blocks, live_news;
thread_local unsigned long mallocs, news;
// Calls left until the one that fails, which takes it to 0; 0 is "none fails".
thread_local unsigned long mallocs_until_failure, news_until_failure;

bool Fails(unsigned long& until_failure)
{
    return until_failure != 0 && --until_failure == 0;
}

bool CountMalloc()
{
    ++mallocs;
    return Fails(mallocs_until_failure);
}

void* Counted(void* block)
{
    if (block)
        ++live_blocks;
    return block;
}

void* New(std::size_t size, std::size_t alignment)
{
    ++news;
    void* block = nullptr;
    if (!Fails(news_until_failure))
        block = alignment <= __STDCPP_DEFAULT_NEW_ALIGNMENT__
                    ? std::malloc(size)
                    : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    if (block)
        ++live_news;
    return block;
}

void* NewOrThrow(std::size_t size, std::size_t alignment = 1)
{
    if (void* block = New(size, alignment))
        return block;
    throw std::bad_alloc();
}

void Delete(void* block)
{
    if (block)
        --live_news;
    std::free(block);
}

void RequireWrapping()
{
    static bool const wrapped = [] {
        unsigned long const before = mallocs;
        Ntarnwick::mb_free(Ntarnwick::mb_malloc(1));
        return mallocs != before;
    }();
    if (wrapped)
        return;
    std::fputs("failing_alloc: the program is linked without --wrap, see failing_alloc.h\n",
               stderr);
    std::abort();
}

} // namespace

extern "C" {
void* __real__ZN9Ntarnwick9mb_mallocEm(unsigned long);
void* __real__ZN9Ntarnwick9mb_callocEmm(unsigned long, unsigned long);
void* __real__ZN9Ntarnwick10mb_reallocEPvm(void*, unsigned long);
void __real__ZN9Ntarnwick7mb_freeEPv(void*);

void* __wrap__ZN9Ntarnwick9mb_mallocEm(unsigned long size)
{
    return CountMalloc() ? nullptr : Counted(__real__ZN9Ntarnwick9mb_mallocEm(size));
}

void* __wrap__ZN9Ntarnwick9mb_callocEmm(unsigned long count, unsigned long size)
{
    return CountMalloc() ? nullptr : Counted(__real__ZN9Ntarnwick9mb_callocEmm(count, size));
}

void* __wrap__ZN9Ntarnwick10mb_reallocEPvm(void* block, unsigned long size)
{
    if (CountMalloc())
        return nullptr;
    void* const moved = __real__ZN9Ntarnwick10mb_reallocEPvm(block, size);
    if (block && size == 0)
        --live_blocks;
    else if (!block)
        Counted(moved);
    return moved;
}

void __wrap__ZN9Ntarnwick7mb_freeEPv(void* block)
{
    if (block)
        --live_blocks;
    __real__ZN9Ntarnwick7mb_freeEPv(block);
}
}

// A request that cannot be met is null under the sanitizers too, as tests of it expect.
#if defined(__SANITIZE_ADDRESS__)
extern "C" __attribute__((visibility("default"))) char const* __asan_default_options()
{
    return "allocator_may_return_null=1";
}
#elif defined(__SANITIZE_THREAD__)
extern "C" __attribute__((visibility("default"))) char const* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}
#endif

void* operator new(std::size_t size)
{
    return NewOrThrow(size);
}
void* operator new[](std::size_t size)
{
    return NewOrThrow(size);
}
void* operator new(std::size_t size, std::nothrow_t const&) noexcept
{
    return New(size, 1);
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept
{
    return New(size, 1);
}
void* operator new(std::size_t size, std::align_val_t a)
{
    return NewOrThrow(size, std::size_t(a));
}
void* operator new[](std::size_t size, std::align_val_t a)
{
    return NewOrThrow(size, std::size_t(a));
}
void operator delete(void* block) noexcept
{
    Delete(block);
}
void operator delete[](void* block) noexcept
{
    Delete(block);
}
void operator delete(void* block, std::size_t) noexcept
{
    Delete(block);
}
void operator delete[](void* block, std::size_t) noexcept
{
    Delete(block);
}
void operator delete(void* block, std::align_val_t) noexcept
{
    Delete(block);
}
void operator delete[](void* block, std::align_val_t) noexcept
{
    Delete(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept
{
    Delete(block);
}
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept
{
    Delete(block);
}

namespace memtest {

long LiveBlocks()
{
    return live_blocks;
}
long LiveNews()
{
    return live_news;
}

AllocationCount::AllocationCount()
{
    RequireWrapping();
    mallocs_ = mallocs;
    news_ = news;
}

unsigned long AllocationCount::Mallocs() const
{
    return mallocs - mallocs_;
}
unsigned long AllocationCount::News() const
{
    return news - news_;
}

template <Allocator A>
unsigned long& UntilFailure()
{
    return A == Allocator::family ? mallocs_until_failure : news_until_failure;
}

template <Allocator A>
Failing<A>::Failing(unsigned long n)
{
    RequireWrapping();
    outer_ = std::exchange(UntilFailure<A>(), n);
}
template <Allocator A>
Failing<A>::~Failing()
{
    UntilFailure<A>() = outer_;
}
template <Allocator A>
bool Failing<A>::Failed() const
{
    return UntilFailure<A>() == 0;
}
template class Failing<Allocator::family>;
template class Failing<Allocator::op_new>;

} // namespace memtest
