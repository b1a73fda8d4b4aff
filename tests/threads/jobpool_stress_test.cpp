// Everything at once, bounded. MEMBLOCK_STRESS=n makes the runs n times as long.

#include <memblock/base/raise.h>
#include <memblock/threads/jobpoolimpl.h>

#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

#include "jobs.h"

using namespace NKelmic;

namespace {

struct AnsweringPool : JobPool {
    using JobPool::JobPool;
    void HandleNotify(int, int code, DataItem&) override { notes += code == 1; }
    DataItem HandleConsult(int, int, DataItem& value) override { return value; }
    int notes = 0;
};

/// Throws, blocks, asks, tells, aborts or opens a pool of its own, by its random number.
DataItem DoAnything(Job& job, unsigned seed, int depth)
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
        job.Notify(1, question);
        break;
    case 4:
        return job.Consult(2, question);
    case 5:
        if (random() % 8 == 0)
            job.GetJobPoolImpl()->Abort("by a job");
        break;
    case 6:
        if (depth < 3) {
            AnsweringPool inner(true);
            for (int i = 0; i < 5; ++i)
                Add(inner, [s = static_cast<unsigned>(random()), depth](Task& t) {
                    return DoAnything(t, s, depth + 1);
                });
            inner.Wait(1);
        }
        break;
    default:
        break;
    }
    return value;
}

/// A job that an aborted pool refuses stays the caller's.
void Give(JobPool& pool, std::unique_ptr<Job> job)
{
    pool.AddNewJob(job.get());
    (void)job.release();
}

} // namespace

TEST(JobPoolStress, NoJobIsLostOrRunTwice)
{
    Threads const two(2);
    int const count = Rounds(100'000);
    std::vector<std::atomic<int>> runs(static_cast<std::size_t>(count));
    JobPool pool;
    for (auto& run : runs)
        Add(pool, [&run](Task&) { return DataItem(++run); });
    pool.Wait();
    for (auto const& run : runs)
        ASSERT_EQ(run, 1);
    for (auto const& result : pool.GetResults())
        ASSERT_EQ(result.GetInt(), 1);
    EXPECT_TRUE(NoneLeft());
}

TEST(JobPoolStress, PoolsComeAndGoWhileTheirJobsRun)
{
    Threads const three(3);
    std::atomic<int> runs{0};
    for (int i = 0; i < Rounds(500); ++i) {
        JobPool pool(false, i % 5 == 0);
        for (int k = 0; k < 10; ++k)
            Add(pool, [&](Task&) { return DataItem(++runs); });
        if (i % 3 == 0)
            pool.Wait(1);
    }
    EXPECT_TRUE(NoneLeft());
}

TEST(JobPoolStress, ManyOwnersOfPoolsWithJobsThatDoAnything)
{
    for (int threads : {1, 2, 16}) {
        Threads const set(threads);
        boost::thread_group owners;
        for (unsigned owner = 1; owner <= 3; ++owner)
            owners.create_thread([owner] {
                std::minstd_rand random(owner);
                for (int round = 0; round < Rounds(10); ++round) {
                    AnsweringPool pool(round % 2 == 0);
                    boost::thread stopper;
                    if (round % 3 == 2)
                        stopper = boost::thread([&] { pool.Abort("at random"); });
                    try {
                        for (int i = 0; i < 100; ++i)
                            Give(pool, std::make_unique<Task>([s = random()](Task& t) {
                                     return DoAnything(t, s, 1);
                                 }));
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
}
