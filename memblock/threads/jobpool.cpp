#include <memblock/threads/jobpool.h>

#include <memblock/base/raise.h>
#include <memblock/threads/held_internal.h>
#include <memblock/threads/joblog_internal.h>
#include <memblock/threads/jobpoolimpl.h>
#include <memblock/threads/mutex.h>
#include <memblock/threads/threadmgr.h>

#include <utility>

namespace NKelmic {
namespace {

constinit thread_local bool running_as_worker = false;

} // namespace

Job::Job() = default;
Job::~Job() = default;
void Job::OnPosted() {}
void Job::OnFinished() {}

void Job::CheckAbortion()
{
    if (pool_.Pointer() && pool_->IsAborted())
        Raise(err_aborted, "Aborted");
}

void Job::Notify(int code, DataItem& value)
{
    CheckAbortion();
    if (pool_.Pointer())
        pool_->Notify(index_, code, value);
}

DataItem Job::Consult(int code, DataItem& value)
{
    CheckAbortion();
    return pool_.Pointer() ? pool_->Consult(index_, code, value) : DataItem();
}

void Job::SetThreadSpecificItem(safestring const& name, DataItem const& value)
{
    if (pool_.Pointer())
        pool_->SetThreadSpecificItem(name, value);
}

DataItem Job::GetThreadSpecificItem(safestring const& name)
{
    return pool_.Pointer() ? pool_->GetThreadSpecificItem(name) : DataItem();
}

void Job::ProcessMessageQueue(int) {}

JobPool::JobPool(bool continue_on_error, bool headless)
{
    int cores = 0, desired = 0, busy = 0, threads = 0;
    JobPoolImpl::GetInfo(cores, desired, busy, threads);
    // The default is one worker for each processor; Create knows what overrides it.
    impl_ = JobPoolImpl::Create(continue_on_error, threads, headless);
}

JobPool::~JobPool()
{
    impl_->NotifyJobPoolDestroyed();
}

ThreadSharablePointer<ThreadSharable> JobPool::DoClone() const
{
    return const_cast<JobPool*>(this); // a copy of a value that holds a pool means the same pool
}

ThreadSharablePointer<JobPoolImpl> JobPool::Impl() const
{
    // Any thread may abort or ask: a copy keeps the implementation while it is used.
    boost::mutex::scoped_lock const lock(mutex_);
    return impl_;
}

void JobPool::HandleNotify(int, int, DataItem&) {}

DataItem JobPool::HandleConsult(int, int, DataItem&)
{
    return {};
}

bool JobPool::Finished()
{
    return impl_->GetFinishedCount() >= impl_->GetJobCount();
}

void JobPool::Reserve(int count)
{
    Impl()->Reserve(count);
}

int JobPool::AddNewJob(Job* job)
{
    if (!job)
        Raise(err_precondition, "JobPool: no job was given.");
    return impl_->AddJob(job);
}

int JobPool::GetJobCount()
{
    return Impl()->GetJobCount();
}

int JobPool::Wait(int timeout_s)
{
    return Impl()->Wait(timeout_s, *this);
}

void JobPool::Wait()
{
    if (Wait(0x7FFFFFFF) > 0) // sleeps without a limit
        Raise(err_notify, "JobPool: some jobs did not complete.");
}

int JobPool::GetJobStatus(int index)
{
    return Impl()->GetJobStatus(index);
}

std::vector<DataItem>& JobPool::GetResults()
{
    return Impl()->GetResults();
}

void JobPool::Notify(int code, DataItem& value)
{
    Impl()->Notify(-1, code, value);
}

DataItem JobPool::Consult(int code, DataItem& value)
{
    // The creator is the thread that would answer: waiting for itself it would wait for ever.
    auto const impl = Impl();
    return impl->IsCreatorThread() ? HandleConsult(-1, code, value)
                                   : impl->Consult(-1, code, value);
}

void JobPool::Abort(safestring const& message)
{
    Impl()->Abort(message);
}

void JobPool::Break(int) {}

void JobPool::GetInfo(int& cores, int& desired, int& busy, int& threads)
{
    JobPoolImpl::GetInfo(cores, desired, busy, threads);
}

void JobPool::SetGlobalThreadCount(int n)
{
    ThreadMgr::Instance().SetThreadCount(n);
}

bool JobPool::IsCurrentThreadRunningAsWorker()
{
    return running_as_worker;
}

void JobPool::SetCurrentThreadRunningAsWorker(bool on)
{
    if (Logger::Enabled(topic_thread, 7)) // the question alone gives the thread a number
        LogJobs(7, "Setting JobPool worker state of thread %d to: %s", Logger::GetCurrentThreadNo(),
                on ? "true" : "false");
    running_as_worker = on;
}

JobPool::BlockingOperation::BlockingOperation() : was_worker_(IsCurrentThreadRunningAsWorker())
{
    // Other threads are not counted, so nothing has to take their place.
    if (!was_worker_)
        return;
    LogJobs(7, "Worker thread blocking in a wait operation");
    ThreadMgr::Instance().ChangeBlockedThreadCount(1);
}

JobPool::BlockingOperation::~BlockingOperation()
{
    if (!was_worker_)
        return;
    UnblockWorkers(1);
}

} // namespace NKelmic
