#include <memblock/threads/threadmgr.h>

#include <memblock/logging/logger.h>

#include <support/logsink.h>
#include <support/raises.h>

#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <sys/resource.h>
#include <unistd.h>

#include "jobs.h"

namespace NKelmic {
struct ThreadMgrProbe {
    static ThreadMgr& Manager() { return ThreadMgr::Instance(); }
    static int SetQuietTime(int ms) { return Manager().quiet_ms_.exchange(ms); }
    static int Actual()
    {
        boost::mutex::scoped_lock const lock(Manager().main_mutex_);
        return Manager().actual_;
    }
    static int Blocked()
    {
        boost::mutex::scoped_lock const lock(Manager().main_mutex_);
        return Manager().blocked_;
    }
    static void InterruptOne()
    {
        boost::mutex::scoped_lock const lock(Manager().main_mutex_);
        (*Manager().workers_.begin())->thread_->interrupt();
    }
};
} // namespace NKelmic

using namespace NKelmic;

namespace {

void Nap()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

/// Makes sleepers look around every 20 ms in its scope, and not every 300 s.
struct ShortNaps {
    ~ShortNaps() { ThreadMgrProbe::SetQuietTime(before); }
    int const before = ThreadMgrProbe::SetQuietTime(20);
};

/// Wait until so many workers are left. Those that sleep already are woken to a shorter nap, and
/// then left alone: only who sleeps it out ends.
void ShrinkTo(int count)
{
    ShortNaps const naps;
    ThreadMgr::Instance().SetThreadCount(count);
    for (int i = 0; i < 5000 && ThreadMgrProbe::Actual() > count; ++i, Nap()) {
        for (int k = ThreadMgrProbe::Actual(); i % 50 == 0 && k > 0; --k)
            ThreadMgr::Instance().ChangeBlockedThreadCount(0);
        ThreadMgr::Instance().ProcessMessages();
    }
    ASSERT_EQ(ThreadMgrProbe::Actual(), count);
}

/// Ends the process by exit() while jobs do what `work` does.
void ExitWhile(Task::Work const& work)
{
    alarm(5); // kills a process that hangs
    Threads const threads(2);
    static std::atomic<bool> started{false};
    auto* pool = new JobPool(true); // not destroyed: the jobs go on
    for (int i = 0; i < 4; ++i)
        Add(*pool, [work](Task& job) {
            started = true;
            return work(job);
        });
    WaitUntil([] { return started.load(); });
    std::exit(0);
}

} // namespace

TEST(ThreadMgr, ABlockedWorkerIsReplacedAndTheSurplusEndsAfterAQuietTime)
{
    Threads const threads(2);
    JobPool pool, other; // two: the first one has all its jobs out
    std::atomic<int> blocked{0};
    std::atomic<bool> third{false};
    for (int i = 0; i < 2; ++i)
        Add(pool, [&](Task&) {
            JobPool::BlockingOperation const operation;
            ++blocked;
            WaitUntil([&] { return third.load(); });
            return DataItem();
        });
    Add(other, [&](Task&) {
        WaitUntil([&] { return blocked == 2; });
        third = true;
        return DataItem();
    });
    other.Wait();
    pool.Wait();
    int const actual = ThreadMgrProbe::Actual();
    EXPECT_GE(actual, 3);
    for (int i = 0; i < 20; ++i, Nap()) { // who is woken in a quiet time stays
        ThreadMgr::Instance().ChangeBlockedThreadCount(0);
        ThreadMgr::Instance().ProcessMessages();
    }
    EXPECT_EQ(ThreadMgrProbe::Actual(), actual);
    ShrinkTo(2);
    {
        JobPool::BlockingOperation const by_no_worker;
        EXPECT_EQ(ThreadMgrProbe::Blocked(), 0);
        EXPECT_EQ(ThreadMgrProbe::Actual(), 2);
    }
    EXPECT_EQ(ThreadMgrProbe::Blocked(), 0);
}

TEST(ThreadMgr, AWorkerThatAsksIsReplacedWhileTheHandlerWaits)
{
    struct WaitingPool : JobPool {
        void HandleNotify(int job, int code, DataItem&) override
        {
            if (job != 1 || code != jp_notify_started)
                return;
            blocked = ThreadMgrProbe::Blocked();
            throw 5; // leaves both waits
        }
        DataItem HandleConsult(int, int, DataItem& question) override
        {
            Wait();
            return question;
        }
        int blocked = 0;
    };
    Threads const threads(1);
    WaitingPool pool;
    std::atomic<int> running{0}, most{0};
    Add(pool, Ask);
    for (int i = 0; i < 20; ++i)
        Add(pool, [&](Task&) {
            most = std::max(most.load(), ++running);
            for (int k = 0; k < 100; ++k)
                boost::this_thread::yield();
            --running;
            return DataItem();
        });
    EXPECT_THROW(pool.Wait(), int);
    EXPECT_EQ(pool.blocked, 1);
    EXPECT_EQ(ThreadMgrProbe::Blocked(), 0);
    pool.Wait();
    EXPECT_EQ(most, 1) << "no place was lost, none was made";
}

TEST(ThreadMgr, PoolsShareTheWorkersInTurn)
{
    Threads const threads(1);
    JobPool a, b, c;
    ShrinkTo(1);
    std::atomic<bool> held{false}, open{false};
    Add(a, [&](Task&) { // holds the only worker until all is queued
        held = true;
        WaitUntil([&] { return open.load(); });
        return DataItem();
    });
    WaitUntil([&] { return held.load(); });
    std::string order; // the worker's
    for (auto [pool, name] : {std::pair(&c, 'c'), std::pair(&a, 'a'), std::pair(&b, 'b')})
        for (int i = 0; i < 2; ++i)
            Add(*pool, [&, letter = name](Task&) {
                order += letter;
                return DataItem();
            });
    open = true;
    for (JobPool* pool : {&a, &b, &c})
        pool->Wait();
    EXPECT_EQ(order, "bcabca"); // from the pool that was posted to last
}

TEST(ThreadMgr, AJobThatNobodyWasWokenForIsFoundAfterTheQuietTimeAndTold)
{
    struct Lingering : Task { // its worker reports, and doesn't come for the next job
        Lingering(std::atomic<bool>& n, Work w) : Task(std::move(w)), next_ran(n) {}
        void OnFinished() override
        {
            WaitUntil([this] { return next_ran.load(); });
            delete this;
        }
        std::atomic<bool>& next_ran;
    };
    KeepingSink sink;
    level_t const level = Logger::GetLogging(topic_thread);
    Logger::SetLogging("thread", 2);
    ShortNaps const naps;
    Threads const threads(1); // the second job has to wait for the report of the first
    bool told = false;
    for (int i = 0; i < 50 && !told; ++i) { // the other worker may be late, and miss nothing
        std::atomic<bool> posted{false}, next_ran{false};
        JobPool pool;
        ThreadMgr::Instance().SetThreadCount(2);
        pool.AddNewJob(new Lingering(next_ran, [&](Task&) {
            WaitUntil([&] { return posted.load(); });
            Nap(); // the other worker looks, is given nothing and goes to sleep
            return DataItem();
        }));
        Add(pool, [&](Task&) {
            next_ran = true;
            return DataItem();
        });
        posted = true;
        pool.Wait();
        ASSERT_TRUE(NoneLeft());
        ShrinkTo(1); // nobody logs any more
        told = !sink.lines.empty() &&
               sink.lines.back() == "thread/jobpool 2 Performance loss: job queue was stalling.";
    }
    EXPECT_TRUE(told) << testing::PrintToString(sink.lines);
    Logger::SetLogging("thread", level);
}

TEST(ThreadMgr, AWorkerThatFailsIsToldAndReplaced)
{
    Threads const threads(1);
    ShrinkTo(1);
    Nap(); // the one that is left sleeps
    ThreadMgrProbe::InterruptOne();
    std::string const told = StderrOf([] {
        for (int i = 0; i < 1000 && ThreadMgrProbe::Actual() > 0; ++i, Nap())
            ThreadMgr::Instance().ProcessMessages();
    });
    EXPECT_NE(told.find("An unexpected error in a JobPool worker thread: Unknown error"),
              std::string::npos);
    JobPool pool;
    Add(pool, [](Task&) { return DataItem(1); });
    pool.Wait();
    EXPECT_EQ(ThreadMgrProbe::Actual(), 1);
}

TEST(ThreadMgrExitDeathTest, TheProcessEndsWhateverItsWorkersDo)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Task::Work const works[] = {
        [](Task&) -> DataItem {
            for (;;)
                boost::this_thread::yield();
        },
        Ask,
        [](Task&) {
            JobPool::BlockingOperation const operation;
            pause();
            return DataItem();
        },
        [](Task&) { return DataItem(); },
    };
    for (auto const& work : works)
        EXPECT_EXIT(ExitWhile(work), testing::ExitedWithCode(0), "");
}

TEST(ThreadMgrExitDeathTest, AJobMayCallExit)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            alarm(5);
            Threads const threads(2);
            JobPool pool;
            Add(pool, [](Task&) -> DataItem { std::exit(0); });
            pool.Wait();
        },
        testing::ExitedWithCode(0), "");
    struct Leaving : Task {
        using Task::Task;
        void OnPosted() override { std::exit(0); }
    };
    EXPECT_EXIT(
        {
            alarm(5);
            Threads const threads(2);
            static JobPool pool;
            static struct AtEnd { // runs before the manager's end
                ~AtEnd()
                {
                    JobPool late;
                    Add(late, [](Task&) { return DataItem(); });
                    late.Wait();
                }
            } const at_end;
            pool.AddNewJob(new Leaving([](Task&) { return DataItem(); }));
        },
        testing::ExitedWithCode(0), "");
}

TEST(ThreadMgrExitDeathTest, OtherThreadsMayGoOnWithPoolsWhileTheProcessEnds)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            alarm(5);
            std::atomic<int> made{0};
            boost::thread([&] {
                for (int i = 1;; ++i) {
                    Threads const threads(1 + i % 4);
                    JobPool pool;
                    Add(pool, [](Task&) { return DataItem(); });
                    pool.Wait();
                    ++made;
                }
            }).detach();
            WaitUntil([&] { return made > 20; });
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // they need room of their own
namespace {

int Target()
{
    return ThreadMgr::Instance().GetThreadCount();
}

/// Ends with 0 if a pool that could not get its threads failed, and a later one did its work.
void ExitHavingAskedForTooMany()
{
    Threads const few(2);
    JobPool const before;
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlim_t const room = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (256UL << 20);
    rlimit const limit{room, room};
    setrlimit(RLIMIT_AS, &limit);
    bool refused = false;
    try {
        Threads const many(900);
        JobPool const pool;
    } catch (boost::thread_resource_error const&) {
        refused = true;
    }
    Threads const again(2);
    JobPool pool;
    Add(pool, [](Task&) { return DataItem(1); });
    pool.Wait();
    std::exit(refused && Target() == 2 ? 0 : 1);
}

} // namespace

TEST(ThreadMgrExitDeathTest, TooManyThreadsFailThePoolThatAskedAndNoOther)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(ExitHavingAskedForTooMany(), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            Threads const typo(999'999);
            JobPool const pool;
            std::exit(Target() == 1024 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
#endif
