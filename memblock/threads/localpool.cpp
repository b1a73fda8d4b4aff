#include <memblock/threads/localpool_internal.h>

#include <memblock/threads/jobpool.h>

#include <utility>

namespace NKelmic {

void JobPoolImpl_ST::DoAddJob(Job* job)
{
    JobPoolImpl::DoAddJob(job);
    jobs_.push_back(job);
}

void JobPoolImpl_ST::DoNotifyAborted()
{
    // The queue is empty before the first destructor runs: it may call this pool.
    for (auto* job : std::exchange(jobs_, {}))
        DeleteJob(job);
}

int JobPoolImpl_ST::DoWait(int, JobPool& pool)
{
    while (!pool.Finished() && !IsAborted()) {
        if (HandleKept())
            continue;
        if (jobs_.empty()) // those that are left run further up on this stack
            break;
        Job& job = *jobs_.front();
        jobs_.pop_front(); // first: the job may wait for this pool, which runs the next one
        RunHere(job);
    }
    return Unfinished(); // not the length of the queue: an abort may have emptied it
}

void JobPoolImpl_ST::DoPostPoolMessage(PoolMsg& message)
{
    HandleFromHere(message);
}

} // namespace NKelmic
