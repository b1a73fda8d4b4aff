#include <memblock/threads/threadedpool_internal.h>

#include <memblock/threads/consultation_internal.h>
#include <memblock/threads/held_internal.h>
#include <memblock/threads/joblog_internal.h>
#include <memblock/threads/jobpool.h>
#include <memblock/threads/threadmgr.h>

#include <algorithm>
#include <optional>
#include <thread>
#include <utility>

namespace NKelmic {

JobPoolImpl_MT_base::JobPoolImpl_MT_base(bool continue_on_error, int threads)
    : JobPoolImpl(continue_on_error), maxbusy_(threads), threads_(threads)
{
    // The count first: it may fail to launch a thread, and no pool is registered then.
    ThreadMgr::Instance().SetThreadCount(threads);
    ThreadMgr::Instance().RegisterJobPool(this);
}

JobPoolImpl_MT_base::~JobPoolImpl_MT_base()
{
    ThreadMgr::Instance().UnregisterJobPool(this);
}

void JobPoolImpl_MT_base::DoPostPoolMessage(PoolMsg& message)
{
    // An aborted pool refuses what a job sends on its way, but takes its end: the place of the job
    // has to become free.
    if (message.type != PoolMsg::succeeded && message.type != PoolMsg::failed)
        return ThrowIfAborted_mt();
    DoChangeBusyCount(-1);
}

void JobPoolImpl_MT_base::DoChangeBusyCount(int delta)
{
    boost::unique_lock<boost::mutex> lock(queue_mutex_, boost::defer_lock);
    LockSoon(lock);
    busy_ += delta;
}

void JobPoolImpl_MT::DoAddJob(Job* job)
{
    JobPoolImpl::DoAddJob(job);
    boost::unique_lock<boost::mutex> lock(queue_mutex_, boost::defer_lock);
    LockSoon(lock);
    // A short run queue lets pools that come later get their turn, and an abort finds most jobs in
    // prewait_, from which no worker takes any. Twice the threads keeps each worker supplied until
    // the waiting thread refills the queue.
    bool const room = run_queue_.size() < 2 * static_cast<std::size_t>(threads_);
    lock.unlock();
    if (room)
        return ThreadMgr::Instance().Post(*this, ThrMsg(ThrMsg::run_job, job));
    boost::mutex::scoped_lock const prewait(prewait_mutex_);
    prewait_.push_back(job);
}

void JobPoolImpl_MT::DoNotifyAborted()
{
    // Take them out first: the destructor of a job may call this pool, so no lock is held then.
    boost::unique_lock<boost::mutex> lock(prewait_mutex_);
    auto const jobs = std::exchange(prewait_, {});
    lock.unlock();
    LogJobs(6, "Jobpool aborted, deleting %d entries from the prewait queue.",
            static_cast<int>(jobs.size()));
    for (auto* job : jobs)
        DeleteJob(job);
    while (Job* const job = TakeJobLeftBehind())
        DeleteJob(job);
}

void JobPoolImpl_MT::DoPostPoolMessage(PoolMsg& message)
{
    // A job on the waiting thread can't wait for this thread to read the fifo.
    if (Held::RunsHere(*this))
        return HandleFromHere(message);
    MakeIndependent(message.value); // first: it may fail, and then nothing is posted
    JobPoolImpl_MT_base::DoPostPoolMessage(message);
    bool const asks = message.type == PoolMsg::consult;
    bool const taken = fifo_.Push(std::move(message));
    message = PoolMsg();
    if (!taken && asks) // aborted since we looked
        ThrowIfAborted_mt();
}

void JobPoolImpl_MT::DoWakeWaiter()
{
    Consultation::Dismiss(fifo_.Close());
}

void JobPoolImpl_MT::DoAbandon()
{
    DismissInbox();
    DoNotifyAborted();
}

void JobPoolImpl_MT::DismissInbox()
{
    // The read index excludes questions that were handled: their records are gone.
    auto inbox = std::exchange(inbox_, {});
    inbox.erase(inbox.begin(), inbox.begin() + static_cast<std::ptrdiff_t>(inbox_next_));
    inbox_next_ = 0;
    Consultation::Dismiss(inbox);
}

int JobPoolImpl_MT::DoWait(int timeout_s, JobPool& pool)
{
    PoolMsg message;
    std::optional<LentWorkers> lent;
    while (!pool.Finished()) {
        if (IsAborted()) {
            DismissInbox(); // the abort itself answered only what was still in the fifo
            break;
        }
        if (HandleKept()) // older than what the fifo holds
            continue;
        if (Job* const job = TakeJobLeftBehind()) {
            RunHere(*job);
            continue;
        }
        int const held = Held::CountJobs(*this);
        // All jobs that are left wait for this call to return. Messages may still come, of other
        // threads and of jobs that asked before, so look once more, but do not sleep.
        bool const stuck = held > 0 && Unfinished() <= held;
        // The jobs that wait for this thread may occupy all workers and all places of the pool.
        if (!stuck && !lent)
            lent.emplace();
        if (NextMessage(message, stuck ? 0 : timeout_s))
            HandlePosted(message);
        else if (stuck)
            break;
        else if (timeout_s <= 0)
            std::this_thread::yield(); // the caller asked for no sleep; others need the processor
    }
    return Unfinished();
}

bool JobPoolImpl_MT::NextMessage(PoolMsg& message, int timeout_s)
{
    if (inbox_next_ == inbox_.size()) {
        inbox_.clear();
        inbox_next_ = 0;
        // All at once: one lock for many messages when workers are faster than the handlers.
        fifo_.TakeAll(inbox_, timeout_s);
        if (inbox_.empty())
            return false;
    }
    message = std::move(inbox_[inbox_next_++]);
    return true;
}

void JobPoolImpl_MT::HandlePosted(PoolMsg& message)
{
    if (message.type == PoolMsg::started)
        RefillRunQueue(); // before the handler, which may take its time or throw
    // A handler that waits must know which jobs can't end before it has answered.
    std::optional<Held> held;
    if (message.type == PoolMsg::consult)
        held.emplace(Consultation::Of(message).ChainOfAsker());
    Handle(message);
}

/// A job that no worker will take any more, as the program is ending; null if there is none.
Job* JobPoolImpl_MT::TakeJobLeftBehind()
{
    if (!ThreadMgr::Instance().HasEnded())
        return nullptr;
    Job* job = nullptr;
    {
        boost::mutex::scoped_lock const lock(queue_mutex_);
        for (; !job && !run_queue_.empty(); run_queue_.pop_front())
            job = run_queue_.front().job;
    }
    boost::mutex::scoped_lock const prewait(prewait_mutex_);
    if (!job && !prewait_.empty()) {
        job = prewait_.front();
        prewait_.pop_front();
    }
    return job;
}

void JobPoolImpl_MT::RefillRunQueue()
{
    // In batches, as each Post takes the locks once; on the stack, as this runs for every job.
    constexpr std::size_t most = 64;
    ThrMsg batch[most];
    boost::unique_lock<boost::mutex> lock(queue_mutex_, boost::defer_lock);
    LockSoon(lock);
    std::size_t const bound = 2 * static_cast<std::size_t>(threads_);
    std::size_t room = bound - std::min(bound, run_queue_.size());
    lock.unlock();
    while (room > 0) {
        std::size_t n = 0;
        boost::unique_lock<boost::mutex> prewait(prewait_mutex_);
        for (; n < std::min(room, most) && !prewait_.empty(); ++n) {
            batch[n] = ThrMsg(ThrMsg::run_job, prewait_.front());
            prewait_.pop_front();
        }
        prewait.unlock(); // Post calls OnPosted of the jobs, which may add others
        if (n == 0)
            return;
        ThreadMgr::Instance().Post(*this, batch, n);
        room -= n;
    }
}

void JobPoolImpl_MT_headless::DoAddJob(Job* job)
{
    JobPoolImpl::DoAddJob(job);
    ThreadMgr::Instance().Post(*this, ThrMsg(ThrMsg::run_job, job));
}

int JobPoolImpl_MT_headless::DoWait(int, JobPool&)
{
    return 0x7FFFFFFF; // nobody counts its results, so no number would be right
}

void JobPoolImpl_MT_headless::DoPostPoolMessage(PoolMsg& message)
{
    JobPoolImpl_MT_base::DoPostPoolMessage(message);
    if (message.type == PoolMsg::consult) // no thread will ever handle it
        Consultation::Of(message).Answer({});
    message = PoolMsg();
}

} // namespace NKelmic
