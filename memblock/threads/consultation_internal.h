#ifndef MEMBLOCK_THREADS_CONSULTATION_INTERNAL_H
#define MEMBLOCK_THREADS_CONSULTATION_INTERNAL_H

#include <memblock/threads/held_internal.h>
#include <memblock/threads/jobpoolimpl.h>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <utility>
#include <vector>

namespace NKelmic {

/// A question on the stack of the thread that asks. It doesn't leave before it is answered.
class Consultation {
public:
    explicit Consultation(DataItem& question);

    static Consultation& Of(PoolMsg const& message);
    /// Answer with undefined what no handler will answer.
    static void Dismiss(std::vector<PoolMsg> const& messages);

    DataItem TakeQuestion() { return std::move(value_); }
    Held* ChainOfAsker() const { return asker_; } ///< valid until the answer
    void Answer(DataItem answer);                 ///< the record is gone afterwards
    DataItem WaitForAnswer();

private:
    DataItem value_; // the question, then the answer
    bool done_ = false;
    Held* const asker_ = Held::ChainOfThisThread();
    boost::mutex mutex_;
    boost::condition_variable_any condition_;
};

/// Make a value safe to leave its thread: nothing that it reaches is counted from elsewhere.
void MakeIndependent(DataItem& value);

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_CONSULTATION_INTERNAL_H
