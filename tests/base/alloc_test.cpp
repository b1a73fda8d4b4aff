#include "support/failing_alloc.h"

#include <memblock/base/alloc.h>
#include <memblock/base/largeblock_internal.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

using namespace Ntarnwick;

namespace {

constexpr unsigned long mib = 1ul << 20;

unsigned char* Bytes(void* block)
{
    return static_cast<unsigned char*>(block);
}

/// Mark both ends and each page of a block, so that bytes lost or shared by two blocks show.
void Mark(void* block, unsigned long size, unsigned char mark)
{
    for (unsigned long i = 0; i < size; i += 4096)
        Bytes(block)[i] = mark;
    Bytes(block)[size - 1] = mark;
}

bool IsMarked(void* block, unsigned long size, unsigned char mark)
{
    for (unsigned long i = 0; i < size; i += 4096)
        if (Bytes(block)[i] != mark)
            return false;
    return Bytes(block)[size - 1] == mark;
}

} // namespace

TEST(Alloc, CallocIsZeroAlsoWhenAFreedBlockIsUsedAgain)
{
    for (unsigned long size : {100ul, mib - 1, mib, 3 * mib + 5, 40 * mib}) {
        SCOPED_TRACE(size);
        void* const dirty = mb_malloc(size);
        ASSERT_TRUE(dirty);
        std::memset(dirty, 0xEE, size);
        mb_free(dirty);
        void* const clean = mb_calloc(size / 4 + 1, 4);
        ASSERT_TRUE(clean);
        EXPECT_EQ(std::count(Bytes(clean), Bytes(clean) + size, 0), long(size));
        mb_free(clean);
    }
}

TEST(Alloc, ReallocKeepsTheBytesAcrossAllSizes)
{
    unsigned long const sizes[] = {10,       mib - 1,  mib,          mib + 1,       5 * mib,
                                   90 * mib, 70 * mib, 69 * mib + 3, 2 * mib - 100, 400000,
                                   3 * mib,  20};
    void* block = mb_realloc(nullptr, sizes[0]);
    unsigned long size = sizes[0];
    Mark(block, size, 0x5A);
    for (unsigned long next : sizes) {
        SCOPED_TRACE(testing::Message() << size << " to " << next);
        Bytes(block)[size - 1] = Bytes(block)[std::min(size, next) - 1] = 0x5A;
        block = mb_realloc(block, next);
        ASSERT_TRUE(block);
        ASSERT_TRUE(IsMarked(block, std::min(size, next), 0x5A));
        Mark(block, next, 0x5A);
        size = next;
    }
    mb_free(block);
}

TEST(Alloc, WhatCannotBeHadIsNullAndHarmsNothing)
{
    unsigned long volatile too_much = ~0ul; // volatile: the compiler would warn of it
    EXPECT_EQ(mb_malloc(too_much), nullptr);
    EXPECT_EQ(mb_malloc(too_much / 4), nullptr);
    EXPECT_EQ(mb_calloc(too_much / 2, 3), nullptr);
    for (unsigned long size : {1000ul, 4 * mib}) {
        void* const block = mb_malloc(size);
        Mark(block, size, 1);
        EXPECT_EQ(mb_realloc(block, too_much / 2), nullptr);
        EXPECT_TRUE(IsMarked(block, size, 1));
        mb_free(block);
    }
    mb_free(nullptr);
    EXPECT_EQ(mb_realloc(mb_malloc(2 * mib), 0), nullptr);
}

TEST(Alloc, LiveBlocksNeverOverlap)
{
    struct Live {
        void* block;
        unsigned long size;
        unsigned char mark;
    };
    std::vector<Live> live;
    unsigned state = 1;
    auto random = [&state] { return (state = state * 1103515245u + 12345u) >> 8; };
    for (int step = 0; step < 1500; ++step) {
        if (live.size() < 12 || random() % 2) {
            unsigned long const size =
                mib / 2 + random() % (random() % 8 == 0 ? 30 * mib : 4 * mib);
            live.push_back({mb_malloc(size), size, static_cast<unsigned char>(step)});
            ASSERT_TRUE(live.back().block);
            Mark(live.back().block, size, live.back().mark);
        }
        if (live.size() > 24 || random() % 2) {
            Live& chosen = live[random() % live.size()];
            ASSERT_TRUE(IsMarked(chosen.block, chosen.size, chosen.mark)) << step;
            mb_free(chosen.block);
            chosen = live.back();
            live.pop_back();
        }
    }
    for (auto& [block, size, mark] : live) {
        EXPECT_TRUE(IsMarked(block, size, mark));
        mb_free(block);
    }
}

TEST(Alloc, ThreadsPassLargeBlocksOn)
{
    auto work = [](unsigned char mark) {
        for (int i = 0; i < 300; ++i) {
            unsigned long const size = mib + (i % 5) * 300000ul;
            void* const block = mb_malloc(size);
            Mark(block, size, mark);
            std::this_thread::yield();
            ASSERT_TRUE(IsMarked(block, size, mark));
            mb_free(block);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned char mark = 1; mark <= 4; ++mark)
        threads.emplace_back(work, mark);
    for (auto& thread : threads)
        thread.join();
}

TEST(LargeBlock, IsAlignedForHugePagesAndKeptWithinTheBound)
{
    if (!large::enabled)
        GTEST_SKIP() << "large blocks go to the C library in this build";
    void* const first = mb_malloc(10 * mib);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first) % large::huge_page, 0u);
    EXPECT_GE(large::Capacity(first), 10 * mib);
    mb_free(first);
    EXPECT_EQ(large::Capacity(first), 0u);
    void* const again = mb_malloc(9 * mib); // fills more than four fifths of it
    EXPECT_EQ(again, first);
    void* const small = mb_malloc(mib);
    EXPECT_NE(small, first);
    mb_free(small);
    mb_free(again);

    std::vector<void*> many;
    for (int i = 0; i < 40; ++i)
        many.push_back(mb_malloc(i % 2 ? 40 * mib : 2 * mib));
    for (void* block : many) {
        mb_free(block);
        EXPECT_LE(large::KeptBytes(), large::kept_bytes_max);
    }
    EXPECT_GE(large::KeptBytes(), large::kept_bytes_max / 2);
    unsigned long const before = large::KeptBytes();
    mb_free(mb_malloc(300 * mib)); // too large to be kept, and nothing goes for it
    EXPECT_EQ(large::KeptBytes(), before);
    large::DropKept();
    EXPECT_EQ(large::KeptBytes(), 0u);
}

TEST(LargeBlock, KeptBlocksMakeRoomBeforeARequestFails)
{
    if (!large::enabled)
        GTEST_SKIP() << "large blocks go to the C library in this build";
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &old), 0);
    for (bool grow : {false, true}) {
        SCOPED_TRACE(grow ? "realloc" : "malloc");
        large::DropKept();
        void* block = grow ? mb_malloc(64 * mib) : nullptr;
        if (grow)
            Mark(block, 64 * mib, 77);
        mb_free(mb_malloc(200 * mib));
        ASSERT_GE(large::KeptBytes(), 200 * mib);
        unsigned long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        rlimit const tight{pages * sysconf(_SC_PAGESIZE) + 32 * mib, old.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
        void* const bigger = mb_realloc(block, 128 * mib);
        setrlimit(RLIMIT_AS, &old);
        EXPECT_TRUE(bigger);
        EXPECT_EQ(large::KeptBytes(), 0u);
        EXPECT_TRUE(!grow || IsMarked(bigger ? bigger : block, 64 * mib, 77));
        mb_free(bigger ? bigger : block);
    }
    large::DropKept();
}

TEST(MbMalloced, NewThrowsWhereMallocGivesNull)
{
    struct Thing : mb_malloced {
        int value = 7;
    };
    long const before = memtest::LiveBlocks();
    {
        memtest::FailAllocations fail(2);
        Thing* const thing = new Thing;
        EXPECT_EQ(thing->value, 7);
        EXPECT_THROW(new Thing, std::bad_alloc);
        EXPECT_TRUE(fail.Failed());
        delete thing;
    }
    EXPECT_EQ(memtest::LiveBlocks(), before);
}

TEST(FailingAlloc, CountsBothFamiliesAndFailsTheChosenCall)
{
    memtest::AllocationCount count;
    std::vector<int> numbers(10);
    EXPECT_EQ(count.News(), 1u);
    void* block = nullptr;
    {
        memtest::FailAllocations fail(2);
        block = mb_malloc(10);
        EXPECT_FALSE(fail.Failed());
        EXPECT_EQ(mb_realloc(block, 20), nullptr);
        EXPECT_TRUE(fail.Failed());
        block = mb_realloc(block, 30);
        EXPECT_TRUE(block);
    }
    EXPECT_EQ(count.Mallocs(), 3u);
    mb_free(block);
    memtest::FailNews fail(1);
    EXPECT_THROW(numbers.resize(100), std::bad_alloc);
}
