#ifndef MEMBLOCK_THREADS_WORKERTHREAD_H
#define MEMBLOCK_THREADS_WORKERTHREAD_H

#include <memblock/core/fwd.h>
#include <memblock/threads/jobpoolimpl.h>

#include <boost/thread/thread.hpp>
#include <memory>

namespace NKelmic {

/// What one worker thread runs: it takes jobs from the manager until it gets the
/// message to stop.
class MEMBLOCK_API WorkerThread {
public:
    explicit WorkerThread(ThreadMgr* manager) : manager_(manager) {}
    void operator()();
    /// Run one job and post what comes of it. The job may be gone afterwards.
    static void RunJob(Job& job);
    /// The same on the thread that waits for the pool.
    static void RunJobHere(Job& job, JobPoolImpl& pool);

private:
    friend class ThreadMgr;
    friend struct ThreadMgrProbe; // of the tests
    void RunJobs();
    static void Run(Job& job, JobPoolImpl& pool, bool here);
    static DataItem ReportFailure(Job& job);
    static void Finish(Job& job);

    std::unique_ptr<boost::thread> thread_; // guarded by the manager's main mutex
    ThreadMgr* const manager_;
};

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_WORKERTHREAD_H
