#include <memblock/threads/mutex.h>

#include <memblock/logging/logger.h>
#include <memblock/threads/xtime_internal.h>

#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>
#include <optional>

using namespace NKelmic;

namespace {

template <class Function>
auto InAnotherThread(Function function)
{
    std::optional<decltype(function())> result;
    boost::thread([&] { result = function(); }).join();
    return *result;
}

void ExpectFree(Mutex const& mutex)
{
    EXPECT_FALSE(mutex.IsLocked());
    EXPECT_EQ(mutex.GetLockCount(), 0);
    EXPECT_EQ(mutex.GetLockingThreadId(), 0u);
    EXPECT_STREQ(mutex.GetFile(), "");
    EXPECT_EQ(mutex.GetLine(), 0);
}

} // namespace

TEST(Mutex, RecordsTheOutermostLockOfItsHolder)
{
    Mutex mutex;
    ExpectFree(mutex);
    {
        Lock const outer(mutex, "outer.cpp", 10);
        Lock const middle(mutex, "middle.cpp", 20);
        {
            Lock const inner(mutex, "inner.cpp", 30);
            EXPECT_EQ(mutex.GetLockCount(), 3);
        }
        EXPECT_EQ(mutex.GetLockCount(), 2);
        EXPECT_TRUE(mutex.IsLocked());
        EXPECT_EQ(mutex.GetLockingThreadId(), GetCurrentThreadId());
        EXPECT_STREQ(mutex.GetFile(), "outer.cpp");
        EXPECT_EQ(mutex.GetLine(), 10);
    }
    ExpectFree(mutex);
}

TEST(Mutex, IsLockedByCurrentThreadTellsTheHolderAndLeavesTheMutexAsItWas)
{
    Mutex mutex;
    auto asked_elsewhere = [&] {
        return InAnotherThread([&] { return mutex.IsLockedByCurrentThread(); });
    };
    EXPECT_FALSE(mutex.IsLockedByCurrentThread());
    EXPECT_FALSE(asked_elsewhere());
    {
        Lock const lock(mutex, __FILE__, __LINE__);
        EXPECT_TRUE(mutex.IsLockedByCurrentThread());
        EXPECT_FALSE(asked_elsewhere());
        EXPECT_EQ(mutex.GetLockCount(), 1);
    }
    EXPECT_FALSE(asked_elsewhere());
    EXPECT_FALSE(mutex.IsLockedByCurrentThread()); // the other thread gave it back
    ExpectFree(mutex);
}

TEST(Mutex, KeepsOtherThreadsOutWhileTheyReadItsRecord)
{
    Mutex mutex;
    int counter = 0;
    constexpr int threads = 4, rounds = 2000;
    boost::thread_group group;
    for (int t = 0; t < threads; ++t)
        group.create_thread([&] {
            for (int i = 0; i < rounds; ++i) {
                Lock const outer(mutex, "a", 1);
                Lock const inner(mutex, "b", 2);
                ++counter;
                if (mutex.GetLockCount() != 2 || mutex.GetLockingThreadId() != GetCurrentThreadId())
                    counter = -1'000'000;
            }
        });
    group.create_thread([&] {
        for (int i = 0; i < rounds; ++i)
            EXPECT_NE(mutex.GetFile(), nullptr);
    });
    group.join_all();
    EXPECT_EQ(counter, threads * rounds);
    ExpectFree(mutex);
}

TEST(Mutex, OneThreadIsTheGuiThreadAndIsNamedSo)
{
    EXPECT_FALSE(Mutex::IsGuiThread());
    auto name = InAnotherThread([] {
        Mutex::SetGuiThread(true);
        return Mutex::IsGuiThread() ? Logger::GetCurrentThreadName() : safestring();
    });
    EXPECT_STREQ(name.c_str(), "GUI thread");
    EXPECT_FALSE(Mutex::IsGuiThread());
    Mutex::SetGuiThread(false);
}

TEST(MutexTimeOutException, NamesThePlaceOfTheLock)
{
    EXPECT_STREQ(MutexTimeOutException("view.cpp", 42).what(),
                 "GUI thread timeout caused by lock at view.cpp (42)");
}

TEST(PrepareXTime, AddsTensOfMillisecondsWithoutNormalising)
{
    struct {
        int timeout;
        bool gui;
        long nsec, expected_sec, expected_nsec;
    } const cases[] = {
        {6000, false, 0, 1060, 0},
        {6000, true, 0, 1000, 500'000'000},
        {0, true, 999'999'000, 1000, 1'499'999'000},
        {99, false, 999'000'000, 1000, 1'989'000'000},
        {100, false, 999'000'000, 1001, 999'000'000},
        {199, false, 500'000'000, 1001, 1'490'000'000},
        {0, false, 7000, 1000, 7000},
        {2'000'000'000, false, 0, 20'001'000, 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.timeout << (c.gui ? " gui" : ""));
        timespec const until = AddTimeout({1000, c.nsec}, c.timeout, c.gui);
        EXPECT_EQ(until.tv_sec, c.expected_sec);
        EXPECT_EQ(until.tv_nsec, c.expected_nsec);
    }
}

TEST(PrepareXTime, TellsTheGuiThreadFromOthers)
{
    // Of one moment more or less, so that only the rules can be seen apart: 60 s against 0.5 s.
    timespec const plain = PrepareXTime(6000);
    Mutex::SetGuiThread(true);
    timespec const gui = PrepareXTime(6000);
    Mutex::SetGuiThread(false);
    EXPECT_NEAR(double(plain.tv_sec), double(time(nullptr)) + 60, 5); // universal time
    EXPECT_LT(gui.tv_sec, plain.tv_sec - 30);
    EXPECT_GE(gui.tv_nsec, 500'000'000);
    EXPECT_LT(plain.tv_nsec, 1'000'000'000);
}
