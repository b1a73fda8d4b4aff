#ifndef MEMBLOCK_THREADS_JOBPOOLKINDS_INTERNAL_H
#define MEMBLOCK_THREADS_JOBPOOLKINDS_INTERNAL_H

#include <memblock/threads/held_internal.h>
#include <memblock/threads/jobpoolimpl.h>
#include <memblock/threads/threadfifo_internal.h>

#include <boost/thread/condition_variable.hpp>
#include <deque>

namespace NKelmic {

/// A question on the stack of the thread that asks. It doesn't leave before it is answered.
class Consultation {
public:
    explicit Consultation(DataItem& question);

    static Consultation& Of(PoolMsg const& message);
    /// Answer with undefined what no handler will answer.
    static void Dismiss(std::vector<PoolMsg> const& messages);

    DataItem TakeQuestion() { return std::move(value_); }
    Held* ChainOfAsker() const { return asker_; } ///< valid until the answer
    void Answer(DataItem answer);                 ///< the record is gone afterwards
    DataItem WaitForAnswer();

private:
    DataItem value_; // the question, then the answer
    bool done_ = false;
    Held* const asker_ = Held::ChainOfThisThread();
    boost::mutex mutex_;
    boost::condition_variable_any condition_;
};

/// Make a value safe to leave its thread: nothing that it reaches is counted from elsewhere.
void MakeIndependent(DataItem& value);

/// Runs its jobs inside `Wait`, on the waiting thread.
class JobPoolImpl_ST : public JobPoolImpl {
public:
    explicit JobPoolImpl_ST(bool continue_on_error) : JobPoolImpl(continue_on_error) {}
    void DoAddJob(Job* job) override;
    void DoNotifyAborted() override;
    int DoWait(int timeout_s, JobPool& pool) override;
    void DoPostPoolMessage(PoolMsg& message) override;

private:
    std::deque<Job*> jobs_;
};

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

#endif // MEMBLOCK_THREADS_JOBPOOLKINDS_INTERNAL_H
