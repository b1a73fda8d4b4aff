#ifndef MEMBLOCK_THREADS_LOCALPOOL_INTERNAL_H
#define MEMBLOCK_THREADS_LOCALPOOL_INTERNAL_H

#include <memblock/threads/jobpoolimpl.h>

#include <deque>

namespace NKelmic {

/// Runs its jobs inside `Wait`, on the waiting thread.
class JobPoolImpl_ST : public JobPoolImpl {
public:
    explicit JobPoolImpl_ST(bool continue_on_error) : JobPoolImpl(continue_on_error) {}
    void DoAddJob(Job* job) override;
    void DoNotifyAborted() override;
    int DoWait(int timeout_s, JobPool& pool) override;
    void DoPostPoolMessage(PoolMsg& message) override;

private:
    std::deque<Job*> jobs_;
};

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_LOCALPOOL_INTERNAL_H
