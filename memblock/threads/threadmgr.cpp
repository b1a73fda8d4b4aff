#include <memblock/threads/threadmgr.h>

#include <memblock/base/raise.h>
#include <memblock/serial/warning.h>
#include <memblock/threads/joblog_internal.h>
#include <memblock/threads/jobpool.h>
#include <memblock/threads/spinner_internal.h>
#include <memblock/threads/threadedpool_internal.h>

#include <algorithm>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdlib>
#include <memory>
#include <thread>
#include <unistd.h>
#include <utility>

namespace NKelmic {
namespace {

using boost::posix_time::milliseconds;

constexpr int time_to_stop_ms = 2000;

int CoreCount()
{
    static int const cores = [] {
        int const n = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
        if (Logger::Enabled(topic_thread, 5))
            Logger::Log(topic_thread, "init", 5, Text("Number of CPU cores: %d", n));
        return n;
    }();
    return cores;
}

/// Counts a sleeper, also when its wait ends by an interruption.
class IdleScope {
public:
    explicit IdleScope(int& idle) : idle_(idle) { ++idle_; }
    ~IdleScope() { --idle_; }

private:
    int& idle_;
};

/// What a job throws here must not keep it, or those posted with it, out of the queue.
void CallOnPosted(Job& job)
{
    try {
        job.OnPosted();
    } catch (...) {
        LogJobs(2, "Error while posting a task: %s", ComposeExceptionMessageText());
    }
}

} // namespace

ThreadMgr& ThreadMgr::Instance()
{
    static auto& manager = *new ThreadMgr; // stays: see its destructor
    static struct AtEnd {
        ~AtEnd()
        {
            boost::this_thread::disable_interruption const steady; // for the joins
            try {
                manager.StopWorkers();
            } catch (...) { // for want of memory: workers that are not joined end with the process
            }
        }
    } const at_end;
    static_cast<void>(&at_end);
    return manager;
}

void ThreadMgr::StopWorkers()
{
    MainLock main(main_mutex_);
    stopping_ = true;
    changes_.fetch_add(1, std::memory_order_release);
    wake_condition_.notify_all();
    for (auto* pool : pools_) // waiting threads have to run the jobs that are left
        pool->fifo_.Rouse();
    // Copied, as the joins run without the lock; Reap leaves the handles alone from now on.
    std::vector<boost::thread*> threads;
    for (auto* worker : workers_)
        threads.push_back(worker->thread_.get());
    main.unlock();

    // Some may run a long job or wait for an answer that nobody will give; this may be one itself.
    auto const deadline = boost::get_system_time() + milliseconds(time_to_stop_ms);
    for (auto* thread : threads)
        if (thread->get_id() == boost::this_thread::get_id() || !thread->timed_join(deadline))
            thread->detach();
}

void ThreadMgr::GetInfo(int& cores, int& desired, int& busy, int& threads)
{
    cores = threads = CoreCount();
    MainLock const main(main_mutex_);
    desired = desired_;
    busy = Working_lk() - idle_;
}

int ThreadMgr::GetThreadCount()
{
    MainLock const main(main_mutex_);
    return desired_;
}

void ThreadMgr::SetThreadCount(int n)
{
    ProcessMessages(); // each new pool comes by here: the place to reap workers that have ended
    LogJobs(5, "Setting desired worker thread count to: %d", n);
    MainLock const main(main_mutex_);
    int const before = std::exchange(desired_, n);
    try {
        AdjustThreadCount_lk();
    } catch (...) { // a target out of reach would make every later pool fail
        desired_ = before;
        throw;
    }
}

void ThreadMgr::AdjustThreadCount_lk()
{
    while (!stopping_ && desired_ > Working_lk()) {
        LogJobs(6,
                "Launching a new worker thread (current threadcounts: actual=%d, blocked=%d, "
                "desired=%d)",
                actual_, blocked_, desired_);
        auto worker = std::make_unique<WorkerThread>(this);
        // In the set before it runs: nothing that can fail may follow the launch.
        auto const place = workers_.insert(worker.get()).first;
        try {
            worker->thread_ = std::make_unique<boost::thread>([w = worker.get()] { (*w)(); });
        } catch (...) {
            workers_.erase(place);
            throw;
        }
        (void)worker.release(); // it belongs to its thread now, see Reap
        ++actual_;
    }
}

void ThreadMgr::ChangeBlockedThreadCount(int delta)
{
    MainLock const main(main_mutex_);
    blocked_ += delta;
    try {
        AdjustThreadCount_lk();
    } catch (...) {
        blocked_ -= delta > 0 ? delta : 0; // the operation doesn't begin
        throw;
    }
    // A pool may have places again: also those have to look that are on their way to sleep.
    changes_.fetch_add(1, std::memory_order_release);
    Signal_lk(static_cast<std::size_t>(std::max(std::abs(delta), 1)));
}

void ThreadMgr::RegisterJobPool(JobPoolImpl_MT_base* pool)
{
    MainLock const main(main_mutex_);
    AdjustThreadCount_lk(); // first: when it throws, the pool is not made
    pools_.push_back(pool);
}

void ThreadMgr::UnregisterJobPool(JobPoolImpl_MT_base* pool)
{
    MainLock const main(main_mutex_);
    auto const at = std::find(pools_.begin(), pools_.end(), pool);
    if (at == pools_.end())
        return;
    if (at - pools_.begin() < static_cast<std::ptrdiff_t>(next_pool_))
        --next_pool_; // the turn stays with the same pool
    pools_.erase(at);
}

void ThreadMgr::Post(JobPoolImpl_MT_base& pool, ThrMsg const& message)
{
    Post(pool, &message, 1);
}

void ThreadMgr::Post(JobPoolImpl_MT_base& pool, ThrMsg const* messages, std::size_t count)
{
    {
        boost::unique_lock<boost::recursive_mutex> posting(posting_mutex_, boost::defer_lock);
        LockSoon(posting);
        for (std::size_t i = 0; i < count; ++i)
            if (messages[i].job)
                CallOnPosted(*messages[i].job);
    }
    MainLock main(main_mutex_, boost::defer_lock);
    LockSoon(main);
    {
        boost::unique_lock<boost::mutex> lock(pool.queue_mutex_, boost::defer_lock);
        LockSoon(lock);
        // At once or not at all: a job must not be in the queue when the caller sees a failure.
        pool.run_queue_.insert(pool.run_queue_.end(), messages, messages + count);
    }
    // The next search begins at this pool, where there is work for sure.
    next_pool_ =
        static_cast<std::size_t>(std::find(pools_.begin(), pools_.end(), &pool) - pools_.begin());
    changes_.fetch_add(1, std::memory_order_release);
    bool const all_asleep = idle_ > 0 && idle_ >= Working_lk();
    Signal_lk(count);
    main.unlock();
    // The scheduler tends to put the woken thread on the processor of this one, where it would
    // start when this time slice ends, milliseconds later.
    if (all_asleep)
        std::this_thread::yield();
}

void ThreadMgr::Signal_lk(std::size_t count)
{
    // No more than sleep: each signal takes the lock of the condition.
    auto const sleepers = std::min(count, static_cast<std::size_t>(std::max(idle_, 0)));
    if (sleepers == 0)
        return;
    boost::mutex::scoped_lock const wake(wake_mutex_);
    for (std::size_t i = 0; i < sleepers; ++i)
        wake_condition_.notify_one();
}

void ThreadMgr::Fetch(ThrMsg& message)
{
    LogJobs(8, "Worker thread: checking for a new task.");
    MainLock main(main_mutex_, boost::defer_lock);
    LockSoon(main);
    bool timed_out = false;
    for (;;) {
        if (stopping_) {
            message = ThrMsg(ThrMsg::stop_worker);
            ++ended_;
            return;
        }
        if (FindJob_lk(message)) {
            if (timed_out) // the job was there before, and no signal came for it
                LogJobs(2, "Performance loss: job queue was stalling.");
            return;
        }
        if (SpinForJob(main))
            continue;
        LogJobs(8, "Worker thread: got no message from pools, waiting...");
        if (!SleepUntilNeeded(main, message, timed_out))
            return;
    }
}

bool ThreadMgr::FindJob_lk(ThrMsg& message)
{
    std::size_t const count = pools_.size();
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t const at = (next_pool_ + i) % count;
        if (TakeJob_lk(*pools_[at], message)) {
            next_pool_ = at + 1;
            return true;
        }
    }
    return false;
}

bool ThreadMgr::TakeJob_lk(JobPoolImpl_MT_base& pool, ThrMsg& message)
{
    boost::unique_lock<boost::mutex> lock(pool.queue_mutex_, boost::defer_lock);
    LockSoon(lock);
    if (pool.run_queue_.empty())
        return false;
    if (pool.busy_ >= pool.maxbusy_) {
        LogJobs(8, "JobPool: fifo size=%d, busy=%d, maxbusy=%d, not giving out a message",
                static_cast<int>(pool.run_queue_.size()), pool.busy_, pool.maxbusy_);
        return false;
    }
    message = pool.run_queue_.front();
    pool.run_queue_.pop_front();
    ++pool.busy_;
    return true;
}

/// Look out for new work before the sleep, without the lock. True if there may be some.
bool ThreadMgr::SpinForJob(MainLock& main)
{
    // For each worker, as it learns from its own waits. Read before the unlock: no change between
    // the search and the sleep is missed.
    static thread_local Spinner spinner(64);
    unsigned const seen = changes_.load(std::memory_order_relaxed);
    auto const changed = [&] { return changes_.load(std::memory_order_acquire) != seen; };
    main.unlock();
    spinner.Until(changed);
    LockSoon(main);
    return changed();
}

/// False if the worker has to end; the message says so then.
bool ThreadMgr::SleepUntilNeeded(MainLock& main, ThrMsg& message, bool& timed_out)
{
    IdleScope const idle(idle_);
    while (!stopping_) {
        // Long quiet times only: surplus workers are cheap to keep and costly to launch again.
        timed_out = !wake_condition_.timed_wait(main, milliseconds(quiet_ms_.load()));
        if (timed_out && Working_lk() > desired_) {
            message = ThrMsg(ThrMsg::stop_worker);
            LogJobs(6,
                    "It seems too many worker threads are running, terminating myself. (current "
                    "threadcounts: actual=%d, blocked=%d, idle=%d, desired=%d)",
                    actual_, blocked_, idle_, desired_);
            ++ended_;
            Signal_lk(1); // a signal may have come together with the timeout
            return false;
        }
        if (Working_lk() - idle_ < desired_) // fewer run than wanted, so this one looks for a job
            break;
        LogJobs(8,
                "Enough worker threads running, waiting... (current threadcounts: actual=%d, "
                "blocked=%d, idle=%d, desired=%d)",
                actual_, blocked_, idle_, desired_);
    }
    return true;
}

void ThreadMgr::CountFailedWorker()
{
    MainLock const main(main_mutex_);
    ++ended_;
}

void ThreadMgr::AddMessage(int type, WorkerThread* worker, safestring const& text)
{
    boost::mutex::scoped_lock const lock(message_mutex_);
    messages_.push_back({type, worker, text});
}

bool ThreadMgr::TakeMessage(Message& message)
{
    boost::mutex::scoped_lock const lock(message_mutex_);
    if (messages_.empty())
        return false;
    message = messages_.front();
    messages_.pop_front();
    return true;
}

void ThreadMgr::ProcessMessages()
{
    for (Message message; TakeMessage(message);) {
        if (message.type == Message::ended)
            Reap(message.worker);
        else if (message.type == Message::error)
            SendAlarmMemBlock(
                Text("An unexpected error in a JobPool worker thread: %s", message.text), 2, 0,
                safestring());
    }
}

void ThreadMgr::Reap(WorkerThread* worker)
{
    MainLock main(main_mutex_);
    if (stopping_) // its handle is being joined at exit
        return;
    std::unique_ptr<WorkerThread> const ended(worker);
    workers_.erase(worker); // all counts first: between the lock and the join others launch
    --actual_;
    --ended_;
    main.unlock();
    if (worker->thread_->joinable()) // else detached at exit
        worker->thread_->join();
}

} // namespace NKelmic
