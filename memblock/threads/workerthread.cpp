#include <memblock/threads/workerthread.h>

#include <memblock/base/raise.h>
#include <memblock/threads/consultation_internal.h>
#include <memblock/threads/held_internal.h>
#include <memblock/threads/joblog_internal.h>
#include <memblock/threads/jobpool.h>
#include <memblock/threads/mutex.h>
#include <memblock/threads/threadmgr.h>

#include <utility>

namespace NKelmic {

void WorkerThread::Run(Job& job, JobPoolImpl& pool, bool here)
{
    LogJobs(7, "Worker thread: running task %d in job pool: %s", job.index_, pool);
    job.thread_id_ = GetCurrentThreadId();
    try {
        Held const held(pool, here ? Held::job_here : Held::job_on_worker);
        PoolMsg message(PoolMsg::failed, job.index_);
        try {
            PoolMsg started(PoolMsg::started, job.index_);
            pool.PostPoolMessage(started);
            message.value = job.Run();
            // The creator reads the results. Made independent inside this try block, so that a copy
            // that fails is a failure of the job.
            if (!here || !pool.IsCreatorThread())
                MakeIndependent(message.value);
            message.type = PoolMsg::succeeded;
        } catch (...) {
            message.value = ReportFailure(job);
        }
        // Before the post, which empties the message, and outside of the try block: what a
        // description throws must not turn success into failure.
        if (message.type == PoolMsg::succeeded)
            LogJobs(7, "Worker thread: completed task %d in job pool: %s, result: %s", job.index_,
                    pool, message.value);
        pool.PostPoolMessage(message);
    } catch (...) {
        // Not even the failure could be posted, for want of memory for instance.
        LogJobs(2, here ? "Unexpected exception: JPL325" : "Unexpected exception: JPL367");
        pool.Abort(safestring()); // the result will never come: let nobody wait for it
    }
    Finish(job); // behind the scope of `held`: here nothing waits for the job any more
}

void WorkerThread::RunJob(Job& job)
{
    Run(job, *job.pool_, false);
}

void WorkerThread::RunJobHere(Job& job, JobPoolImpl& pool)
{
    Run(job, pool, true);
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
        // It leaves without a stop message, so nothing else counted it as ended.
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
