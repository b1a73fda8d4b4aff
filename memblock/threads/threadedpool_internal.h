#ifndef MEMBLOCK_THREADS_THREADEDPOOL_INTERNAL_H
#define MEMBLOCK_THREADS_THREADEDPOOL_INTERNAL_H

#include <memblock/threads/jobpoolimpl.h>
#include <memblock/threads/threadfifo_internal.h>

#include <boost/thread/mutex.hpp>
#include <deque>
#include <vector>

namespace NKelmic {

/// What the manager knows of a pool: its run queue, and how many of its jobs may run at a time.
class JobPoolImpl_MT_base : public JobPoolImpl {
public:
    void DoPostPoolMessage(PoolMsg& message) override;

protected:
    JobPoolImpl_MT_base(bool continue_on_error, int threads);
    ~JobPoolImpl_MT_base() override;
    void DoChangeBusyCount(int delta) override;

    friend class ThreadMgr;
    boost::mutex queue_mutex_;
    std::deque<ThrMsg> run_queue_; // guarded by queue_mutex_
    int maxbusy_;                  // guarded by queue_mutex_
    int busy_ = 0;                 // guarded by queue_mutex_: jobs handed out and not yet reported
    int const threads_;            // maxbusy_ without the lock
    // Here, for the manager to rouse the waiting thread as long as it knows the pool.
    ThreadFifo<PoolMsg, WaitPolicy_Timeout> fifo_;
};

class JobPoolImpl_MT : public JobPoolImpl_MT_base {
public:
    JobPoolImpl_MT(bool continue_on_error, int threads)
        : JobPoolImpl_MT_base(continue_on_error, threads)
    {
    }
    void DoAddJob(Job* job) override;
    void DoNotifyAborted() override;
    int DoWait(int timeout_s, JobPool& pool) override;
    void DoPostPoolMessage(PoolMsg& message) override;

protected:
    void DoWakeWaiter() override;
    void DoAbandon() override;

private:
    bool NextMessage(PoolMsg& message, int timeout_s);
    void HandlePosted(PoolMsg& message);
    Job* TakeJobLeftBehind();
    void RefillRunQueue();
    void DismissInbox();

    boost::mutex prewait_mutex_;
    std::deque<Job*> prewait_;   // guarded by prewait_mutex_: held back to keep the run queue short
    std::vector<PoolMsg> inbox_; // taken out of the fifo: the waiting thread's
    std::size_t inbox_next_ = 0;
};

class JobPoolImpl_MT_headless : public JobPoolImpl_MT_base {
public:
    JobPoolImpl_MT_headless(bool continue_on_error, int threads)
        : JobPoolImpl_MT_base(continue_on_error, threads)
    {
    }
    void DoAddJob(Job* job) override;
    int DoWait(int timeout_s, JobPool& pool) override;
    void DoPostPoolMessage(PoolMsg& message) override;
};

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_THREADEDPOOL_INTERNAL_H
