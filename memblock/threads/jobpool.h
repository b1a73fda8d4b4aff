#ifndef MEMBLOCK_THREADS_JOBPOOL_H
#define MEMBLOCK_THREADS_JOBPOOL_H

#include <memblock/core/dataitem.h>
#include <memblock/threads/jobpoolimpl.h>
#include <memblock/threads/threadsharable.h>

#include <boost/thread/mutex.hpp>
#include <vector>

namespace NKelmic {

/// Code of the exception "Aborted", by which a job sees that its pool wants no more results.
constexpr unsigned int err_aborted = 16384;

/// Notifications that the pool itself hands to `JobPool::HandleNotify`.
enum {
    jp_notify_started = 100001,   ///< the value is undefined
    jp_notify_succeeded = 100002, ///< the value is the result
    jp_notify_failed = 100003     ///< the value is the message
};

/// One unit of work, made on the heap and handed to `JobPool::AddNewJob`.
///
/// The pool calls `OnFinished` last and doesn't touch the job afterwards: a job that nobody else
/// keeps deletes itself there. A job that an abort finds unstarted is deleted by the pool.
class MEMBLOCK_API Job {
public:
    Job();
    virtual ~Job();
    Job(Job const&) = delete;
    Job& operator=(Job const&) = delete;

    /// Called when the job is queued for the workers, for one job of the process at a time: be
    /// short, as other threads that queue jobs wait meanwhile. What it throws is logged and goes no
    /// further.
    virtual void OnPosted();
    /// Do the work; runs on a worker. What it throws, of any type, becomes the job's failure.
    virtual DataItem Run() = 0;
    /// Called after the result is on its way, on the same thread; may delete the job. Be short: the
    /// worker comes for the next job only then.
    virtual void OnFinished();

    /// Null before the job is added and after it has run.
    ThreadSharablePointer<JobPoolImpl> GetJobPoolImpl() const { return pool_; }
    int GetIndex() const { return index_; }
    unsigned int GetThreadId() const { return thread_id_; } ///< of the thread that runs it

    /// Throws: err_aborted "Aborted" when the pool is aborted. A long job calls it regularly.
    void CheckAbortion();
    /// Send a value to `HandleNotify` on the waiting thread, without waiting. Leaves it undefined.
    void Notify(int code, DataItem& value);
    /// Ask `HandleConsult` on the waiting thread and wait for its answer. Leaves `value` undefined.
    ///
    /// Without a pool, in a headless one, and when the pool is aborted meanwhile, the answer is
    /// undefined. While nobody waits for the pool, the job waits too.
    DataItem Consult(int code, DataItem& value);

    /// Keep a value for the jobs of this pool that run on this same thread. It goes with the
    /// thread. Without a pool nothing is kept.
    void SetThreadSpecificItem(safestring const& name, DataItem const& value);
    DataItem GetThreadSpecificItem(safestring const& name); ///< a copy, or undefined
    void ProcessMessageQueue(int);                          ///< does nothing

private:
    friend class JobPoolImpl;
    friend class WorkerThread;

    int index_ = -1;
    ThreadSharablePointer<JobPoolImpl> pool_;
    unsigned int thread_id_ = 0;
};

/// Hands jobs to the shared workers, waits for them and collects a result for each, in job order.
///
/// Adding, waiting and reading belong to one thread, as a rule the creator. While it waits, the
/// workers reach it by notifications and consultations: these handlers run on the waiting thread
/// and nowhere else. What they throw leaves `Wait`, and nothing else: jobs keep their results, and
/// a later `Wait` goes on. A pool made on a worker, inside a job that another thread runs, with no
/// threads, or when the workers have been stopped at the end of the program, runs its jobs inside
/// `Wait`.
/// A headless pool collects nothing and is never waited for.
///
/// Values cross threads as private copies, see `DataItem::MakeCopy` and `MemBlock::MakeDeepCopy`.
class MEMBLOCK_API JobPool : public ThreadSharable {
public:
    /// The environment variable MORVANE_NUM_THREADS overrides the number of processors; 0 makes a
    /// single-threaded pool, and more than 1024 count as 1024. The count becomes the target of the
    /// whole process.
    ///
    /// continue_on_error: a failing job doesn't abort the pool.
    explicit JobPool(bool continue_on_error = false, bool headless = false);
    /// Aborts what is not done and does not wait for it. Jobs that run go on by themselves.
    ~JobPool() override;
    ThreadSharablePointer<ThreadSharable> DoClone() const override; ///< the same object

    virtual void HandleNotify(int job, int code, DataItem& value);      ///< does nothing here
    virtual DataItem HandleConsult(int job, int code, DataItem& value); ///< undefined here
    virtual bool Finished(); ///< true here when every job has its result

    void Reserve(int count);
    /// Give the job to the pool, which owns it until `OnFinished`; returns its index.
    ///
    /// Throws: err_notify with the abort message; err_precondition "JobPool: no job was given.".
    /// The job stays the caller's then.
    int AddNewJob(Job* job);
    int GetJobCount();

    /// Handle messages until all jobs are done or the pool is aborted, or until all that are left
    /// wait for the caller, which is inside of them or of the answer that they asked for. Meanwhile
    /// other workers take the place of those whose jobs wait for the caller.
    ///
    /// Returns the number of jobs without a result, also those that an abort deleted and those that
    /// wait for the caller. More jobs may be added afterwards.
    ///
    /// timeout_s: for how long to sleep when no message comes, before looking again; it limits
    /// neither the silence nor the total. 0 never sleeps.
    /// Throws: err_notify with the abort message when the pool was aborted before.
    int Wait(int timeout_s);
    /// Throws: err_notify "JobPool: some jobs did not complete." where the other form returns more
    /// than 0, and as that form.
    void Wait();
    /// 1 added, 3 succeeded, 4 failed; 0 for an unknown index.
    int GetJobStatus(int index);
    /// The results, or the messages of failed jobs. Throws: err_notify with the abort message.
    std::vector<DataItem>& GetResults();

    /// As the job's own, from any thread and with job -1. `Consult` on the creator's thread calls
    /// the handler directly.
    void Notify(int code, DataItem& value);
    DataItem Consult(int code, DataItem& value);
    /// Stop: unstarted jobs don't run, running ones see it in `CheckAbortion`, the waiting thread
    /// leaves `Wait`. From any thread; it can't be taken back.
    void Abort(safestring const& message);
    void Break(int); ///< accepted and without effect

    /// busy: workers that run a job. threads: the default for a pool.
    static void GetInfo(int& cores, int& desired, int& busy, int& threads);
    /// Set the number of workers for all pools; with 0 queued jobs wait.
    static void SetGlobalThreadCount(int n);
    static bool IsCurrentThreadRunningAsWorker();
    static void SetCurrentThreadRunningAsWorker(bool on);

    /// Scope of code that may block: on a worker, another one takes its place meanwhile.
    class MEMBLOCK_API BlockingOperation {
    public:
        BlockingOperation();
        ~BlockingOperation();
        BlockingOperation(BlockingOperation const&) = delete;
        BlockingOperation& operator=(BlockingOperation const&) = delete;

    private:
        bool was_worker_;
    };

private:
    ThreadSharablePointer<JobPoolImpl> Impl() const;

    mutable boost::mutex mutex_;
    ThreadSharablePointer<JobPoolImpl> impl_; // set once; other threads copy it under mutex_
};

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_JOBPOOL_H
