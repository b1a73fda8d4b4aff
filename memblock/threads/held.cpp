#include <memblock/threads/held_internal.h>

#include <memblock/threads/joblog_internal.h>
#include <memblock/threads/threadmgr.h>

namespace NKelmic {

thread_local constinit Held* Held::innermost_ = nullptr;

/// Visit the jobs of a chain, and of those of the threads that wait for answers from it. No job is
/// met twice: a thread waits for one answer at a time, and one handler gives it.
template <class Visit>
void Held::EachJob(Held* chain, Visit const& visit)
{
    for (Held* held = chain; held; held = held->outer_)
        if (held->pool_)
            visit(*held);
        else
            EachJob(held->asker_, visit);
}

int Held::CountJobs(JobPoolImpl const& pool)
{
    int count = 0;
    EachJob(innermost_, [&](Held const& job) { count += job.pool_ == &pool; });
    return count;
}

// This and the next function look at this thread alone: what another thread holds does not run
// on this one.
bool Held::IsInsideJob()
{
    for (Held const* held = innermost_; held; held = held->outer_)
        if (held->pool_)
            return true;
    return false;
}

bool Held::RunsHere(JobPoolImpl const& pool)
{
    for (Held const* held = innermost_; held; held = held->outer_)
        if (held->pool_ == &pool && held->kind_ == job_here)
            return true;
    return false;
}

LentWorkers::LentWorkers()
{
    Held::EachJob(Held::innermost_, [this](Held& job) {
        if (job.kind_ == Held::job_on_worker && !job.lent_) // else an outer Wait has lent it
            jobs_.push_back(&job);
    });
    if (jobs_.empty())
        return;
    TakePlaces(-1); // first: the workers that are woken or launched now have to find room
    try {
        ThreadMgr::Instance().ChangeBlockedThreadCount(static_cast<int>(jobs_.size()));
    } catch (...) {
        TakePlaces(1);
        throw;
    }
}

LentWorkers::~LentWorkers()
{
    if (jobs_.empty())
        return;
    TakePlaces(1); // may be more than the pool has: it hands out nothing until they are free
    UnblockWorkers(static_cast<int>(jobs_.size()));
}

void LentWorkers::TakePlaces(int each)
{
    for (Held* const job : jobs_) {
        job->pool_->DoChangeBusyCount(each);
        job->lent_ = each < 0;
    }
}

void UnblockWorkers(int count) noexcept
{
    try { // a fall of the count may still launch a thread, if the target rose meanwhile
        ThreadMgr::Instance().ChangeBlockedThreadCount(-count);
        LogJobs(7, "Worker thread unblocked");
    } catch (...) {
        LogJobs(2, "%s", ComposeExceptionMessageText());
    }
}

} // namespace NKelmic
