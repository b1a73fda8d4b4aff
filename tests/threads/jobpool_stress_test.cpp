// Everything at once, bounded. MEMBLOCK_STRESS=n makes the runs n times as long.

#include <memblock/threads/jobpool.h>

#include <memblock/base/raise.h>
#include <memblock/threads/jobpoolimpl.h>

#include <atomic>
#include <boost/thread/thread.hpp>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <thread>
#include <vector>

using namespace NKelmic;

namespace {

std::atomic<int> alive{0};

int Times(int n)
{
    char const* const factor = std::getenv("MEMBLOCK_STRESS");
    return n * (factor ? std::max(std::atoi(factor), 1) : 1);
}

void SetThreads(int n)
{
    setenv("MORVANE_NUM_THREADS", std::to_string(n).c_str(), 1);
}

struct Counted : Job {
    Counted() { ++alive; }
    ~Counted() override { --alive; }
    void OnFinished() override { delete this; }
};

struct Short : Counted {
    explicit Short(std::atomic<int>& r) : runs(r) {}
    DataItem Run() override { return ++runs; }
    std::atomic<int>& runs;
};

struct AnsweringPool : JobPool {
    using JobPool::JobPool;
    void HandleNotify(int, int code, DataItem&) override { notes += code == 1; }
    DataItem HandleConsult(int, int, DataItem& value) override { return value; }
    int notes = 0;
};

/// Throws, blocks, asks, tells, aborts or opens a pool of its own, by its random number.
struct Anything : Counted {
    Anything(unsigned s, int d) : seed(s), depth(d) {}
    DataItem Run() override
    {
        std::minstd_rand random(seed);
        DataItem value(static_cast<int>(seed % 1000)), question = value;
        switch (random() % 16) {
        case 0:
            throw 5;
        case 1:
            Raise(err_state, "at random");
        case 2: {
            JobPool::BlockingOperation const operation;
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 200));
            break;
        }
        case 3:
            Notify(1, question);
            break;
        case 4:
            return Consult(2, question);
        case 5:
            if (random() % 8 == 0)
                GetJobPoolImpl()->Abort("by a job");
            break;
        case 6:
            if (depth < 3) {
                AnsweringPool inner(true);
                for (unsigned i = 0; i < 5; ++i)
                    inner.AddNewJob(new Anything(static_cast<unsigned>(random()), depth + 1));
                inner.Wait(1);
            }
            break;
        default:
            break;
        }
        return value;
    }
    unsigned seed;
    int depth;
};

/// A job that an aborted pool refuses stays the caller's.
void Add(JobPool& pool, std::unique_ptr<Job> job)
{
    pool.AddNewJob(job.get());
    (void)job.release();
}

bool NoneLeft()
{
    for (int i = 0; i < 60'000 && alive > 0; ++i)
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    return alive == 0;
}

} // namespace

TEST(JobPoolStress, NoJobIsLostOrRunTwice)
{
    SetThreads(2);
    int const count = Times(100'000);
    std::vector<std::atomic<int>> runs(static_cast<std::size_t>(count));
    JobPool pool;
    for (auto& run : runs)
        pool.AddNewJob(new Short(run));
    pool.Wait();
    for (auto const& run : runs)
        ASSERT_EQ(run, 1);
    for (auto const& result : pool.GetResults())
        ASSERT_EQ(result.GetInt(), 1);
    EXPECT_TRUE(NoneLeft());
}

TEST(JobPoolStress, PoolsComeAndGoWhileTheirJobsRun)
{
    SetThreads(3);
    std::atomic<int> runs{0};
    for (int i = 0; i < Times(500); ++i) {
        JobPool pool(false, i % 5 == 0);
        for (int k = 0; k < 10; ++k)
            pool.AddNewJob(new Short(runs));
        if (i % 3 == 0)
            pool.Wait(1);
    }
    EXPECT_TRUE(NoneLeft());
}

TEST(JobPoolStress, ManyOwnersOfPoolsWithJobsThatDoAnything)
{
    for (int threads : {1, 2, 16}) {
        SetThreads(threads);
        boost::thread_group owners;
        for (unsigned owner = 1; owner <= 3; ++owner)
            owners.create_thread([owner] {
                std::minstd_rand random(owner);
                for (int round = 0; round < Times(10); ++round) {
                    AnsweringPool pool(round % 2 == 0);
                    boost::thread stopper;
                    if (round % 3 == 2)
                        stopper = boost::thread([&] { pool.Abort("at random"); });
                    try {
                        for (int i = 0; i < 100; ++i)
                            Add(pool, std::make_unique<Anything>(random(), 1));
                        pool.Wait();
                    } catch (Exception const& e) {
                        EXPECT_EQ(e.Code(), unsigned(err_notify));
                    }
                    if (stopper.joinable())
                        stopper.join();
                }
            });
        owners.join_all();
    }
    EXPECT_TRUE(NoneLeft());
    unsetenv("MORVANE_NUM_THREADS");
}
