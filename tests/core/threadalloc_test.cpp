#include <memblock/core/threadalloc.h>

#include "support/failing_alloc.h"

#include <boost/thread.hpp>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

using namespace NKelmic;

namespace {

void* Take(unsigned long n)
{
    void* const p = SingleThreadAlloced::Alloc(n);
    std::memset(p, 0x5A, n);
    return p;
}

/// Run on a thread of its own, whose stack of blocks is empty; returns what it writes to stderr.
template <class Run>
std::string OnFreshThread(Run run)
{
    testing::internal::CaptureStderr();
    boost::thread(run).join();
    return testing::internal::GetCapturedStderr();
}

std::string const out_of_order =
    "Possible memory leak: Recursive heap block released out of order\n";

} // namespace

TEST(ThreadAlloc, ABlockTakesItsSizeInWordsAndAHeader)
{
    OnFreshThread([] {
        char* const a = static_cast<char*>(Take(1));
        char* const b = static_cast<char*>(Take(8));
        char* const c = static_cast<char*>(Take(0));
        EXPECT_EQ(b - a, 24);
        EXPECT_EQ(c - b, 24);
        SingleThreadAlloced::Free(c);
        EXPECT_EQ(Take(5), c); // back at once
        for (void* p : {c, b, a})
            SingleThreadAlloced::Free(p);
        EXPECT_THROW(SingleThreadAlloced::Alloc(~0UL), std::exception);
    });
}

TEST(ThreadAlloc, ChunksAreKeptAndInTheEndGivenBack)
{
    long const before = memtest::LiveBlocks();
    EXPECT_EQ(OnFreshThread([] {
                  auto const rounds = [](int n) {
                      std::vector<std::pair<char*, unsigned long>> stack;
                      std::mt19937 random(1);
                      for (int i = 0; i < n; ++i) {
                          if (stack.empty() || random() % 5 < 3) {
                              unsigned long const size = random() % (random() % 50 ? 100 : 5000);
                              stack.emplace_back(static_cast<char*>(Take(size)), size);
                              std::memset(stack.back().first, static_cast<int>(stack.size()), size);
                          } else {
                              for (unsigned long k = 0; k < stack.back().second; ++k)
                                  ASSERT_EQ(stack.back().first[k], static_cast<char>(stack.size()));
                              SingleThreadAlloced::Free(stack.back().first);
                              stack.pop_back();
                          }
                      }
                      for (; !stack.empty(); stack.pop_back())
                          SingleThreadAlloced::Free(stack.back().first);
                  };
                  rounds(20000);
                  memtest::AllocationCount count;
                  for (int i = 0; i < 1000; ++i) {
                      void* const a = Take(40);
                      void* const b = Take(800);
                      SingleThreadAlloced::Free(b);
                      SingleThreadAlloced::Free(a);
                  }
                  EXPECT_EQ(count.All(), 0u);
                  SingleThreadAlloced::Free(
                      Take(50000000)); // later chunks give way to one that is larger
                  rounds(2000);
              }),
              "");
    EXPECT_EQ(memtest::LiveBlocks(), before);
}

TEST(ThreadAlloc, MisuseIsToldAndSurvived)
{
    EXPECT_EQ(OnFreshThread([] {
                  void* const a = Take(8);
                  void* const b = Take(5000); // in a chunk of its own
                  void* const c = Take(8);
                  for (void* p : {a, b, c})
                      SingleThreadAlloced::Free(p);
                  SingleThreadAlloced::Free(nullptr);
                  SingleThreadAlloced::Free(Take(8));
              }),
              out_of_order + out_of_order);
    EXPECT_EQ(OnFreshThread([] {
                  void* const a = Take(8);
                  void* const b = Take(8);
                  SingleThreadAlloced::Free(a);
                  SingleThreadAlloced::Free(a);
                  SingleThreadAlloced::Free(b);
              }),
              out_of_order + out_of_order +
                  "Program error: recursive heap block not present in the heap.\n");
    void* const mine = Take(8);
    EXPECT_EQ(OnFreshThread([&] { SingleThreadAlloced::Free(mine); }),
              "Error: memory leak: object deallocated in a wrong thread\n");
    SingleThreadAlloced::Free(mine);
}

TEST(ThreadAlloc, FailsCleanlyWithoutMemory)
{
    OnFreshThread([] {
        {
            memtest::FailAllocations fail(1);
            SingleThreadAlloced::Free(Take(100)); // a chunk of eight is refused, one is granted
        }
        SingleThreadAlloced::Free(Take(100));
    });
}
