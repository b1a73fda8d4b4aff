#include <memblock/threads/threadmgr.h>

#include <memblock/threads/jobpool.h>

#include <support/logsink.h>

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace NKelmic {
struct ThreadMgrProbe {
    static void SetQuietTime(int ms) { ThreadMgr::Instance().quiet_ms_ = ms; }
    static int Actual()
    {
        auto& manager = ThreadMgr::Instance();
        boost::mutex::scoped_lock const lock(manager.main_mutex_);
        return manager.actual_;
    }
};
} // namespace NKelmic

using namespace NKelmic;

namespace {

template <class Work>
struct Task : Job {
    explicit Task(Work w) : work(w) {}
    DataItem Run() override { return work(*this); }
    void OnFinished() override { delete this; }
    Work work;
};

template <class Work>
void Add(JobPool& pool, Work work)
{
    pool.AddNewJob(new Task<Work>(work));
}

void WaitFor(std::atomic<bool> const& flag)
{
    while (!flag)
        boost::this_thread::yield();
}

/// Ends the process by exit() while jobs do what `work` does.
template <class Work>
void ExitWhile(Work work, bool headless = false)
{
    alarm(5); // kills a process that hangs
    setenv("MORVANE_NUM_THREADS", "2", 1);
    static std::atomic<bool> started{false};
    auto* pool = new JobPool(true, headless); // not destroyed: the jobs go on
    for (int i = 0; i < 4; ++i)
        Add(*pool, [work](Job& job) {
            started = true;
            return work(job);
        });
    WaitFor(started);
    std::exit(0);
}

} // namespace

TEST(ThreadMgr, ABlockedWorkerIsReplacedAndTheSurplusEndsAfterAQuietTime)
{
    setenv("MORVANE_NUM_THREADS", "2", 1);
    JobPool pool;
    std::atomic<int> blocked{0};
    std::atomic<bool> third{false};
    for (int i = 0; i < 2; ++i)
        Add(pool, [&](Job&) {
            JobPool::BlockingOperation const operation;
            ++blocked;
            WaitFor(third);
            return DataItem();
        });
    ThreadMgrProbe::SetQuietTime(20);
    JobPool other; // a pool of its own: the first one has all its jobs out
    Add(other, [&](Job&) {
        while (blocked < 2)
            boost::this_thread::yield();
        third = true;
        return DataItem();
    });
    other.Wait();
    pool.Wait();
    EXPECT_GE(ThreadMgrProbe::Actual(), 3);
    for (int i = 0; i < 1000 && ThreadMgrProbe::Actual() > 2; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ThreadMgr::Instance().ProcessMessages();
    }
    EXPECT_EQ(ThreadMgrProbe::Actual(), 2);
    ThreadMgrProbe::SetQuietTime(300'000);
    unsetenv("MORVANE_NUM_THREADS");
}

TEST(ThreadMgr, PoolsShareTheWorkersInTurn)
{
    setenv("MORVANE_NUM_THREADS", "1", 1);
    JobPool a, b;
    std::string order; // one thread per pool, two pools: guarded by the turn below
    boost::mutex mutex;
    for (int i = 0; i < 6; ++i)
        for (auto [pool, name] : {std::pair(&a, 'a'), std::pair(&b, 'b')})
            Add(*pool, [&, c = name](Job&) {
                boost::mutex::scoped_lock const lock(mutex);
                order += c;
                return DataItem();
            });
    a.Wait();
    b.Wait();
    EXPECT_EQ(order.size(), 12U);
    unsetenv("MORVANE_NUM_THREADS");
}

TEST(ThreadMgrExitDeathTest, TheProcessEndsWhateverItsWorkersDo)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto const run = [](Job&) {
        for (;;)
            boost::this_thread::yield();
        return DataItem();
    };
    EXPECT_EXIT(ExitWhile(run), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(ExitWhile([](Job& job) {
                    DataItem question(1);
                    return job.Consult(1, question);
                }),
                testing::ExitedWithCode(0), "");
    EXPECT_EXIT(ExitWhile([](Job&) {
                    JobPool::BlockingOperation const operation;
                    pause();
                    return DataItem();
                }),
                testing::ExitedWithCode(0), "");
    EXPECT_EXIT(ExitWhile([](Job&) { return DataItem(); }), testing::ExitedWithCode(0), "");
}

TEST(ThreadMgrExitDeathTest, AJobMayCallExit)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            alarm(5);
            setenv("MORVANE_NUM_THREADS", "2", 1);
            JobPool pool;
            Add(pool, [](Job&) -> DataItem { std::exit(0); });
            pool.Wait();
        },
        testing::ExitedWithCode(0), "");
}
