#include <memblock/threads/jobpoolimpl.h>

#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/threads/consultation_internal.h>
#include <memblock/threads/held_internal.h>
#include <memblock/threads/joblog_internal.h>
#include <memblock/threads/jobpool.h>
#include <memblock/threads/localpool_internal.h>
#include <memblock/threads/mutex.h>
#include <memblock/threads/threadedpool_internal.h>
#include <memblock/threads/threadmgr.h>
#include <memblock/threads/workerthread.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <map>
#include <utility>

namespace NKelmic {
namespace {

/// Settled: a greater number in the environment is taken as this one. It is a mistake, and would
/// take the machine down before the pool could fail.
constexpr unsigned most_threads = 1024;

enum status_t { status_unknown = 0, status_added = 1, status_succeeded = 3, status_failed = 4 };

constinit std::atomic<unsigned long long> last_serial{0};

typedef std::map<safestring, DataItem> ThreadItems;
typedef std::map<unsigned long long, ThreadItems> ItemsByPool; // by the serial of the pool

/// The entries go with the thread. What static destructors keep, when those of the main thread
/// have gone, stays.
ItemsByPool& ItemsOfThisThread()
{
    static thread_local constinit ItemsByPool* items = nullptr;
    static thread_local struct AtEnd {
        ~AtEnd() { delete std::exchange(items, nullptr); }
    } const at_end;
    static_cast<void>(&at_end);
    if (!items)
        items = new ItemsByPool;
    return *items;
}

int ThreadsFromEnvironment(int threads)
{
    char const* const text = std::getenv("MORVANE_NUM_THREADS");
    if (!text || *text < '0' || *text > '9')
        return threads;
    return static_cast<int>(std::min(StringToUInt()(text), most_threads));
}

} // namespace

ThreadSharablePointer<JobPoolImpl> JobPoolImpl::Create(bool continue_on_error, int threads,
                                                       bool headless)
{
    if (JobPool::IsCurrentThreadRunningAsWorker()) {
        LogJobs(7, "Creating a single-threaded JobPool, because running in a worker thread "
                   "context.");
        return new JobPoolImpl_ST(continue_on_error);
    }
    if (ThreadMgr::Instance().HasEnded()) { // no worker would ever take its jobs
        LogJobs(7, "Creating a single-threaded JobPool, because the program is ending.");
        return new JobPoolImpl_ST(continue_on_error);
    }
    // Inside a job that a waiting thread runs. Its inner pools must not depend on workers, which
    // may all wait for this thread. A headless pool is not waited for, so it can have workers.
    if (!headless && Held::IsInsideJob()) {
        LogJobs(7, "Creating a single-threaded JobPool, because running inside a job.");
        return new JobPoolImpl_ST(continue_on_error);
    }
    threads = ThreadsFromEnvironment(threads);
    if (headless) {
        threads = std::max(threads, 1);
        LogJobs(7, "Creating a headless multi-threaded JobPool for %d threads", threads);
        return new JobPoolImpl_MT_headless(continue_on_error, threads);
    }
    if (threads > 0) {
        LogJobs(7, "Creating a multi-threaded JobPool for %d threads", threads);
        return new JobPoolImpl_MT(continue_on_error, threads);
    }
    LogJobs(7, "Creating a single-threaded JobPool");
    return new JobPoolImpl_ST(continue_on_error);
}

void JobPoolImpl::GetInfo(int& cores, int& desired, int& busy, int& threads)
{
    ThreadMgr::Instance().GetInfo(cores, desired, busy, threads);
}

// The serial names the pool in the items of threads, which outlive it: an address may come again.
JobPoolImpl::JobPoolImpl(bool continue_on_error)
    : continue_on_error_(continue_on_error), serial_(++last_serial),
      creator_thread_(GetCurrentThreadId())
{
}

JobPoolImpl::~JobPoolImpl() = default;

ThreadSharablePointer<ThreadSharable> JobPoolImpl::DoClone() const
{
    Raise(err_request, "JobPoolImpl cloning attempted");
}

void JobPoolImpl::DoNotifyAborted() {}
void JobPoolImpl::DoWakeWaiter() {}
void JobPoolImpl::DoChangeBusyCount(int) {}

void JobPoolImpl::DoAbandon()
{
    DoNotifyAborted();
}

int JobPoolImpl::AddJob(Job* job)
{
    ThrowIfAborted_mt();
    job->pool_ = this; // first: a worker may run the job before DoAddJob returns
    DoAddJob(job);
    return GetJobCount() - 1;
}

void JobPoolImpl::DoAddJob(Job* job)
{
    ThrowIfAborted_mt();
    job->index_ = GetJobCount();
    results_.emplace_back();
    statuses_.push_back(status_added);
}

int JobPoolImpl::Wait(int timeout_s, JobPool& pool)
{
    ThrowIfAborted_mt();
    struct Waiting { // a handler may wait again, and this call goes on afterwards
        JobPool*& place;
        JobPool* const before;
        ~Waiting() { place = before; }
    } const waiting{waiting_, waiting_};
    waiting_ = &pool;
    RaiseThrown(); // one for each Wait, as for messages of workers
    int const left = DoWait(timeout_s, pool);
    RaiseThrown(); // of a handler that a notification of the pool itself called
    return left;
}

void JobPoolImpl::Abort(safestring const& message)
{
    {
        boost::mutex::scoped_lock const lock(abort_mutex_);
        aborted_.store(true, std::memory_order_release);
        if (!message.empty())
            abort_message_ = message;
    }
    DoWakeWaiter(); // outside of the lock, which is a leaf
}

bool JobPoolImpl::IsAborted() const
{
    return aborted_.load(std::memory_order_acquire);
}

void JobPoolImpl::ThrowIfAborted_mt()
{
    if (!IsAborted())
        return;
    if (IsCreatorThread()) // jobs are destroyed where they were made
        DoNotifyAborted();
    boost::unique_lock<boost::mutex> lock(abort_mutex_);
    safestring const message = abort_message_;
    lock.unlock();
    Raise(err_notify, "%s", message); // without the lock: it is logged, and a sink may use the pool
}

void JobPoolImpl::SetResult(bool ok, int job, DataItem& value)
{
    ++finished_;
    statuses_[job] = ok ? status_succeeded : status_failed;
    results_[job].swap(value);
    value = DataItem();

    // A copy: the handler may add jobs, which moves the results. The abort comes in any case.
    DataItem copy = results_[job];
    struct AbortAtEnd {
        JobPoolImpl* impl;
        safestring message;
        ~AbortAtEnd()
        {
            if (impl)
                impl->Abort(message);
        }
    } const abort{ok || continue_on_error_ ? nullptr : this,
                  ok || continue_on_error_
                      ? safestring()
                      : Text("Parallel job index %d: %s", job, copy.GetString())};
    HandleNotifyOfWaiting(job, ok ? jp_notify_succeeded : jp_notify_failed, copy);
}

void JobPoolImpl::NotifyJobStarted(int job)
{
    DataItem nothing; // an item of its own for each call: handlers may write to it
    HandleNotifyOfWaiting(job, jp_notify_started, nothing);
}

void JobPoolImpl::HandleNotifyOfWaiting(int job, int code, DataItem& value)
{
    if (waiting_)
        waiting_->HandleNotify(job, code, value);
}

void JobPoolImpl::Handle(PoolMsg& message)
{
    switch (message.type) {
    case PoolMsg::none:
        break;
    case PoolMsg::started:
        NotifyJobStarted(message.job);
        break;
    case PoolMsg::succeeded:
    case PoolMsg::failed:
        SetResult(message.type == PoolMsg::succeeded, message.job, message.value);
        break;
    case PoolMsg::notify:
        HandleNotifyOfWaiting(message.job, message.code, message.value);
        break;
    case PoolMsg::consult:
        AnswerConsultation(message);
        break;
    }
}

void JobPoolImpl::HandleFromHere(PoolMsg& message)
{
    // A question can't be kept for the next Wait: the job needs its answer to go on. What was kept
    // before it comes first, so that handlers see the messages of the job in order.
    bool const asks = message.type == PoolMsg::consult;
    while (asks && !kept_.empty()) {
        PoolMsg earlier = std::move(kept_.front());
        kept_.pop_front();
        HandleContained(earlier);
    }
    if (thrown_.empty() || asks)
        HandleContained(message);
    else
        kept_.push_back(std::move(message));
    message = PoolMsg();
}

void JobPoolImpl::HandleContained(PoolMsg& message)
{
    try {
        Handle(message);
    } catch (abi::__forced_unwind const&) { // the thread is being cancelled
        throw;
    } catch (...) {
        thrown_.push_back(std::current_exception());
    }
}

void JobPoolImpl::RaiseThrown()
{
    if (thrown_.empty())
        return;
    std::exception_ptr const first = std::move(thrown_.front());
    thrown_.pop_front();
    std::rethrow_exception(first);
}

bool JobPoolImpl::HandleKept()
{
    if (kept_.empty())
        return false;
    PoolMsg message = std::move(kept_.front());
    kept_.pop_front();
    Handle(message);
    return true;
}

void JobPoolImpl::RunHere(Job& job)
{
    WorkerThread::RunJobHere(job, *this);
    RaiseThrown();
}

void JobPoolImpl::AnswerConsultation(PoolMsg& message)
{
    Consultation& asked = Consultation::Of(message);
    DataItem answer;
    try {
        DataItem question = asked.TakeQuestion(), given;
        if (waiting_)
            given = waiting_->HandleConsult(message.job, message.code, question);
        MakeIndependent(given);
        answer = std::move(given); // what is left here may wait in its destructor: not later
    } catch (...) {                // the asking thread must not wait for ever
        asked.Answer({});
        throw;
    }
    asked.Answer(std::move(answer));
}

void JobPoolImpl::NotifyJobPoolDestroyed()
{
    Abort(safestring());
    DoAbandon();
    // Counts of objects have no lock. The caller may hold objects of the results, and the last job
    // may destroy this object on a worker: so the results go here, on the caller's thread.
    std::vector<DataItem>().swap(results_);
    statuses_.clear();
    kept_.clear();
}

void JobPoolImpl::Notify(int job, int code, DataItem& value)
{
    PoolMsg message(PoolMsg::notify, job);
    message.code = code;
    message.value.swap(value);
    PostPoolMessage(message);
}

DataItem JobPoolImpl::Consult(int job, int code, DataItem& value)
{
    Consultation asked(value);
    PoolMsg message(PoolMsg::consult, job);
    message.code = code;
    message.value = DataItem(static_cast<void*>(&asked)); // stays here until it is answered
    PostPoolMessage(message);
    return asked.WaitForAnswer();
}

bool JobPoolImpl::IsCreatorThread() const
{
    return creator_thread_ == GetCurrentThreadId();
}

int JobPoolImpl::GetJobStatus(int index) const
{
    auto const i = static_cast<unsigned>(index); // a negative index is a large one
    return i < statuses_.size() ? statuses_[i] : status_unknown;
}

void JobPoolImpl::Reserve(int count)
{
    auto const n = static_cast<std::size_t>(std::max(count, 0));
    results_.reserve(n);
    statuses_.reserve(n);
}

std::vector<DataItem>& JobPoolImpl::GetResults()
{
    ThrowIfAborted_mt();
    return results_;
}

void JobPoolImpl::SetThreadSpecificItem(safestring const& name, DataItem const& value)
{
    ItemsOfThisThread()[serial_][name] = value;
}

DataItem JobPoolImpl::GetThreadSpecificItem(safestring const& name) const
{
    auto const& all = ItemsOfThisThread();
    auto const pool = all.find(serial_);
    if (pool == all.end())
        return {};
    auto const item = pool->second.find(name);
    return item == pool->second.end() ? DataItem() : item->second;
}

void JobPoolImpl::DropPool(Job& job)
{
    job.pool_ = nullptr;
}

void JobPoolImpl::DeleteJob(Job* job)
{
    DropPool(*job);
    delete job;
}

safestring ComposeExceptionMessageText()
{
    try {
        throw;
    } catch (std::exception const& e) {
        return e.what();
    } catch (char const* text) {
        return text;
    } catch (...) {
        return "Unknown error";
    }
}

void ComposeExceptionMessageText(safestring& text)
{
    text = ComposeExceptionMessageText();
}

} // namespace NKelmic
