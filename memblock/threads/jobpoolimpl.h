#ifndef MEMBLOCK_THREADS_JOBPOOLIMPL_H
#define MEMBLOCK_THREADS_JOBPOOLIMPL_H

#include <memblock/core/dataitem.h>
#include <memblock/threads/threadsharable.h>

#include <atomic>
#include <boost/thread/mutex.hpp>
#include <exception>
#include <list>
#include <vector>

namespace NKelmic {
class Job;

/// A message of a job or a pool to the waiting thread.
struct PoolMsg {
    enum type_t { none = 0, started = 1, succeeded = 2, failed = 3, notify = 4, consult = 5 };

    explicit PoolMsg(type_t t = none, int j = -1) : type(t), job(j) {}

    type_t type;
    int job; ///< -1 from the pool
    int code = 0;
    DataItem value; ///< result, message, value, or a raw pointer to a `Consultation`
};

/// What a worker gets from the manager.
struct ThrMsg {
    enum type_t { none = 0, run_job = 1, stop_worker = 2 };

    explicit ThrMsg(int t = none, Job* j = nullptr) : type(t), job(j) {}

    int type;
    Job* job;
};

/// The part of a pool that its jobs hold: results, abort flag and the way messages go.
///
/// It lives until the pool and the last of its jobs are gone. Results, statuses and the count are
/// the waiting thread's; all else may be called from any thread.
class MEMBLOCK_API JobPoolImpl : public ThreadSharable {
public:
    static ThreadSharablePointer<JobPoolImpl> Create(bool continue_on_error, int threads,
                                                     bool headless);
    static void GetInfo(int& cores, int& desired, int& busy, int& threads);
    /// Throws: err_request "JobPoolImpl cloning attempted".
    ThreadSharablePointer<ThreadSharable> DoClone() const override;

    virtual void DoAddJob(Job* job);
    virtual void DoNotifyAborted(); ///< delete the jobs that don't run any more
    virtual int DoWait(int timeout_s, JobPool& pool) = 0;
    /// Leaves the message empty.
    virtual void DoPostPoolMessage(PoolMsg& message) = 0;

    int AddJob(Job* job);
    int Wait(int timeout_s, JobPool& pool);
    void PostPoolMessage(PoolMsg& message) { DoPostPoolMessage(message); }
    void Abort(safestring const& message);
    bool IsAborted() const;
    /// Throws: err_notify with the abort message. The creator drops its unstarted jobs first.
    void ThrowIfAborted_mt();

    /// Store the result of a job, notify the waiting pool, and abort after a failure if configured.
    void SetResult(bool ok, int job, DataItem& value);
    void NotifyJobStarted(int job);
    void NotifyJobPoolDestroyed();

    void Notify(int job, int code, DataItem& value);
    DataItem Consult(int job, int code, DataItem& value);
    bool IsCreatorThread() const;

    int GetJobCount() const { return static_cast<int>(results_.size()); }
    int GetFinishedCount() const { return finished_; }
    int GetJobStatus(int index) const;
    void Reserve(int count);
    std::vector<DataItem>& GetResults();

    void SetThreadSpecificItem(safestring const& name, DataItem const& value);
    DataItem GetThreadSpecificItem(safestring const& name) const;

protected:
    explicit JobPoolImpl(bool continue_on_error);
    ~JobPoolImpl() override;
    /// Called after each abort, from any thread: wake the waiting thread, answer questions.
    virtual void DoWakeWaiter();
    /// Called once when the pool is gone, after its abort: nobody will wait any more.
    virtual void DoAbandon();
    /// Change the number of jobs that count as handed to workers. Does nothing without workers.
    virtual void DoChangeBusyCount(int delta);

    static void DropPool(Job& job);  ///< may end the life of this object
    static void DeleteJob(Job* job); ///< one that has not run
    static int IndexOf(Job const& job);
    int Unfinished() const { return GetJobCount() - finished_; }

    // On the waiting thread only:

    /// Do what a message says, which calls a handler.
    void Handle(PoolMsg& message);
    /// The same for a message from a job that runs inside `Wait`. What a handler throws is not for
    /// the job: `Wait` raises it when the job has ended, and messages that come until then are
    /// kept for the next `Wait`, as those of a worker would be. Leaves the message empty.
    void HandleFromHere(PoolMsg& message);
    /// Handle one message that was kept. False if there is none.
    bool HandleKept();
    /// Run a job inside `Wait`. Throws what a handler threw meanwhile.
    void RunHere(Job& job);

private:
    friend class LentWorkers;
    void HandleContained(PoolMsg& message);
    void RaiseThrown();
    /// Give a consultation to the waiting pool's handler and answer with what it says.
    void AnswerConsultation(PoolMsg& message);
    void HandleNotifyOfWaiting(int job, int code, DataItem& value);

    std::vector<DataItem> results_;
    std::vector<int> statuses_;
    int finished_ = 0;
    bool const continue_on_error_;
    unsigned long long const serial_; // of the pool: never used again, as its address may be
    mutable boost::mutex abort_mutex_;
    std::atomic<bool> aborted_{false}; // set with abort_mutex_ held, looked at several times a job
    safestring abort_message_;         // guarded by abort_mutex_
    unsigned int const creator_thread_;
    JobPool* waiting_ = nullptr; // null outside of Wait
    std::list<PoolMsg> kept_;    // see HandleFromHere
    std::list<std::exception_ptr> thrown_;
};

/// The text of the exception that is being handled; "Unknown error" for a type without one.
MEMBLOCK_API safestring ComposeExceptionMessageText();
MEMBLOCK_API void ComposeExceptionMessageText(safestring& text);

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_JOBPOOLIMPL_H
