#include <memblock/base/raise.h>
#include <memblock/threads/joblog_internal.h>
#include <memblock/threads/jobpool.h>
#include <memblock/threads/jobpoolkinds_internal.h>
#include <memblock/threads/mutex.h>
#include <memblock/threads/threadmgr.h>

#include <utility>

namespace NKelmic {
namespace {

/// Reports by messages to the waiting thread of the job's pool.
struct PostingSink {
    static constexpr char const* tag = "Unexpected exception: JPL367";
    JobPoolImpl& pool;
    int job;

    void Started()
    {
        PoolMsg message(PoolMsg::started, job);
        pool.PostPoolMessage(message);
    }
    void Check(DataItem& result) { MakeIndependent(result); } // a failure of it is the job's
    void Result(bool ok, DataItem& value)
    {
        PoolMsg message(ok ? PoolMsg::succeeded : PoolMsg::failed, job);
        message.value.swap(value);
        pool.PostPoolMessage(message);
    }
    void Lost() { pool.Abort(safestring()); } // the result will never come: let nobody wait for it
};

/// Reports to a pool that waits on this same thread.
struct DirectSink {
    static constexpr char const* tag = "Unexpected exception: JPL325";
    JobPoolImpl& pool;
    int job;

    void Started() { pool.NotifyJobStarted(job); }
    void Check(DataItem&) {}
    void Result(bool ok, DataItem& value) { pool.SetResult(ok, job, value); }
    void Lost() {}
};

} // namespace

template <class Sink>
void WorkerThread::RunInto(Sink sink, Job& job)
{
    LogJobs(7, "Worker thread: running task %d in job pool: %s", job.index_, *job.pool_);
    job.thread_id_ = GetCurrentThreadId();
    try {
        DataItem value;
        bool ok = false;
        try {
            sink.Started();
            value = job.Run();
            sink.Check(value);
            ok = true;
        } catch (...) {
            value = ReportFailure(job);
        }
        if (ok)
            LogJobs(7, "Worker thread: completed task %d in job pool: %s, result: %s", job.index_,
                    *job.pool_, value);
        sink.Result(ok, value);
    } catch (...) {
        LogJobs(2, Sink::tag);
        sink.Lost();
    }
    Finish(job);
}

void WorkerThread::RunJob(Job& job)
{
    RunInto(PostingSink{*job.pool_, job.index_}, job);
}

void WorkerThread::RunJobHere(Job& job, JobPoolImpl& pool)
{
    RunInto(DirectSink{pool, job.index_}, job);
}

DataItem WorkerThread::ReportFailure(Job& job)
{
    safestring const text = ComposeExceptionMessageText();
    LogJobs(2, "Worker thread: error in task %d in job pool: %s: %s", job.index_, *job.pool_, text);
    return text;
}

void WorkerThread::Finish(Job& job)
{
    job.pool_ = nullptr; // this may be the end of the pool
    try {
        job.OnFinished();
    } catch (...) {
        LogJobs(2, "Unexpected exception: JPL382");
    }
}

void WorkerThread::operator()()
{
    try {
        RunJobs();
    } catch (...) {
        manager_->CountFailedWorker();
        manager_->AddMessage(ThreadMgr::Message::error, nullptr, ComposeExceptionMessageText());
    }
    manager_->AddMessage(ThreadMgr::Message::ended, this, safestring());
}

void WorkerThread::RunJobs()
{
    JobPool::SetCurrentThreadRunningAsWorker(true);
    for (;;) {
        ThrMsg message;
        manager_->Fetch(message);
        if (message.type == ThrMsg::run_job)
            RunJob(*message.job);
        else if (message.type == ThrMsg::stop_worker)
            return;
    }
}

} // namespace NKelmic
