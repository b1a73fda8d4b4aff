#ifndef MEMBLOCK_THREADS_HELD_INTERNAL_H
#define MEMBLOCK_THREADS_HELD_INTERNAL_H

#include <memblock/threads/jobpoolimpl.h>

#include <vector>

namespace NKelmic {

/// What can't go on before the current thread returns to it: a job that runs on this thread, or a
/// question that a handler on this thread answers. Each thread has a chain of them, the innermost
/// first.
class Held {
public:
    enum kind_t {
        job_on_worker, ///< it has a place among the jobs of its pool that run at a time
        job_here,      ///< it runs inside `Wait`, on the waiting thread
        question       ///< with it, all that the asking thread holds can't go on
    };
    Held(JobPoolImpl& pool, kind_t kind) : Held(&pool, kind, nullptr) {}
    explicit Held(Held* chain_of_asker) : Held(nullptr, question, chain_of_asker) {}
    ~Held() { innermost_ = outer_; }
    Held(Held const&) = delete;
    Held& operator=(Held const&) = delete;

    static Held* ChainOfThisThread() { return innermost_; }
    /// The jobs of a pool that can't end before this thread returns, on whatever thread they are.
    static int CountJobs(JobPoolImpl const& pool);
    static bool IsInsideJob(); ///< of any pool, on this thread
    static bool RunsHere(JobPoolImpl const& pool);

private:
    friend class LentWorkers;
    Held(JobPoolImpl* pool, kind_t kind, Held* asker)
        : pool_(pool), kind_(kind), asker_(asker), outer_(innermost_)
    {
        innermost_ = this;
    }
    template <class Visit>
    static void EachJob(Held* chain, Visit const& visit);

    static thread_local constinit Held* innermost_;
    JobPoolImpl* const pool_; // null for a question
    kind_t const kind_;
    bool lent_ = false; // written by the thread that returns to it alone
    Held* const asker_; // the chain of the thread that asks: it stays until the answer
    Held* const outer_;
};

/// Scope in which the workers whose jobs can't go on count as blocked, and these jobs give up their
/// places in their pools: so other jobs can run, on which the current thread waits.
class LentWorkers {
public:
    LentWorkers(); ///< throws `boost::thread_resource_error` as `ChangeBlockedThreadCount` does
    ~LentWorkers();
    LentWorkers(LentWorkers const&) = delete;
    LentWorkers& operator=(LentWorkers const&) = delete;

private:
    void TakePlaces(int each);

    std::vector<Held*> jobs_;
};

/// Give workers back to the manager after they were counted as blocked. A failure is logged.
void UnblockWorkers(int count) noexcept;

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_HELD_INTERNAL_H
