#ifndef MEMBLOCK_TESTS_THREADS_JOBS_H
#define MEMBLOCK_TESTS_THREADS_JOBS_H

#include <memblock/threads/jobpool.h>

#include <algorithm>
#include <atomic>
#include <boost/thread/thread.hpp>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <utility>

/// A job that does what it was given, and counts itself.
struct Task : NKelmic::Job {
    typedef std::function<NKelmic::DataItem(Task&)> Work;

    static inline std::atomic<int> alive{0};
    explicit Task(Work w) : work(std::move(w)) { ++alive; }
    ~Task() override { --alive; }
    NKelmic::DataItem Run() override { return work(*this); }
    void OnFinished() override { delete this; }
    Work work;
};

inline void Add(NKelmic::JobPool& pool, Task::Work work)
{
    pool.AddNewJob(new Task(std::move(work)));
}

/// The work of a job that asks a question and returns the answer.
inline NKelmic::DataItem Ask(Task& job)
{
    NKelmic::DataItem question(1);
    return job.Consult(1, question);
}

/// Sets the thread count of the pools made in its scope.
struct Threads {
    explicit Threads(int n) { setenv("MORVANE_NUM_THREADS", std::to_string(n).c_str(), 1); }
    ~Threads() { unsetenv("MORVANE_NUM_THREADS"); }
    Threads(Threads const&) = delete;
};

template <class Condition>
void WaitUntil(Condition condition)
{
    while (!condition())
        boost::this_thread::yield();
}

/// The last `OnFinished` follows the result.
inline bool NoneLeft()
{
    for (int i = 0; i < 60'000 && Task::alive > 0; ++i)
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    return Task::alive == 0;
}

/// How often a test of chance runs: MEMBLOCK_STRESS=n makes it n times as often, a sanitizer, which
/// sees more in each round, a tenth.
inline int Rounds(int n)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    n = std::max(n / 10, 1);
#endif
    char const* const factor = std::getenv("MEMBLOCK_STRESS");
    return n * (factor ? std::max(std::atoi(factor), 1) : 1);
}

#endif // MEMBLOCK_TESTS_THREADS_JOBS_H
