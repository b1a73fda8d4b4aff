#ifndef MEMBLOCK_THREADS_THREADMGR_H
#define MEMBLOCK_THREADS_THREADMGR_H

#include <memblock/core/fwd.h>
#include <memblock/threads/jobpoolimpl.h>
#include <memblock/threads/workerthread.h>

#include <atomic>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <deque>
#include <set>
#include <vector>

namespace NKelmic {

/// Owns the worker threads of the process and deals out the jobs of all pools in turn.
///
/// The target is `actual - blocked >= desired`: a worker that blocks is replaced. Surplus workers
/// end by themselves after 300 quiet seconds. They stay in `actual` until they are reaped, but are
/// not counted on: sleepers that wake together must not all find themselves in surplus.
///
/// Lock order, outermost first: posting mutex, main mutex, a pool's run-queue mutex, wake mutex. A
/// pool's abort mutex and its fifo's, the message mutex and a consultation's are leaves. Under none
/// of them a job runs, a handler is called, a pool is released or a description is built;
/// `Job::OnPosted` alone is called with the posting mutex held.
class MEMBLOCK_API ThreadMgr {
public:
    static ThreadMgr& Instance();

    /// Queue a message for the workers of all pools.
    void Post(JobPoolImpl_MT_base& pool, ThrMsg const& message);
    /// The same for several, in order, in one step.
    void Post(JobPoolImpl_MT_base& pool, ThrMsg const* messages, std::size_t count);
    /// Wait for a job, or for the word that the calling worker has to end.
    void Fetch(ThrMsg& message);

    /// Processors, target count, workers that run a job, and the default count of a pool.
    void GetInfo(int& cores, int& desired, int& busy, int& threads);
    int GetThreadCount(); ///< the target
    /// The program is ending: no worker takes a job any more.
    bool HasEnded() const { return stopping_.load(std::memory_order_acquire); }
    /// Set the target and launch what is missing; reaps the workers that have ended.
    /// Throws: `boost::thread_resource_error`; the target is then the former one.
    void SetThreadCount(int n);
    void ChangeBlockedThreadCount(int delta);
    void RegisterJobPool(JobPoolImpl_MT_base* pool);
    void UnregisterJobPool(JobPoolImpl_MT_base* pool);
    void ProcessMessages();
    void AdjustThreadCount_lk(); ///< main mutex held

private:
    friend class WorkerThread;
    friend struct ThreadMgrProbe; // of the tests
    typedef boost::unique_lock<boost::mutex> MainLock;
    struct Message {
        enum { none = 0, ended = 1, error = 2 };
        int type = none;
        WorkerThread* worker = nullptr;
        safestring text;
    };

    ThreadMgr() = default;
    ~ThreadMgr() = delete; // detached workers may outlive every destructor
    void StopWorkers();
    void CountFailedWorker();
    void AddMessage(int type, WorkerThread* worker, safestring const& text);
    bool TakeMessage(Message& message);
    void Reap(WorkerThread* worker);
    bool FindJob_lk(ThrMsg& message);
    bool TakeJob_lk(JobPoolImpl_MT_base& pool, ThrMsg& message);
    bool SpinForJob(MainLock& main);
    bool SleepUntilNeeded(MainLock& main, ThrMsg& message, bool& timed_out);
    void Signal_lk(std::size_t count);
    /// Workers that run, sleep or are about to.
    int Working_lk() const { return actual_ - ended_ - blocked_; }

    // Calls of OnPosted come one at a time. A mutex of its own, as such a call may end the program,
    // and recursive, as static destructors of its thread then may add jobs and post them.
    boost::recursive_mutex posting_mutex_;
    boost::mutex main_mutex_;
    std::set<WorkerThread*> workers_;   // this and the next guarded by main_mutex_
    int desired_ = 0;                   // running workers to have
    int actual_ = 0;                    // launched and not yet reaped
    int ended_ = 0;                     // of those, the ones that take no job any more
    int blocked_ = 0;                   // inside a BlockingOperation
    int idle_ = 0;                      // asleep in Fetch
    std::atomic<bool> stopping_{false}; // written under main_mutex_
    std::vector<JobPoolImpl_MT_base*> pools_;
    std::size_t next_pool_ = 0;
    boost::mutex wake_mutex_;
    boost::condition_variable_any wake_condition_; // waited on with main_mutex_
    std::atomic<unsigned> changes_{0}; // of what workers look for; written under main_mutex_
    boost::mutex message_mutex_;
    std::deque<Message> messages_; // guarded by message_mutex_
    std::atomic<int> quiet_ms_{300'000};
};

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_THREADMGR_H
