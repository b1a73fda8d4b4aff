#include <memblock/threads/consultation_internal.h>

#include <memblock/core/memblock_internal.h>

#include <boost/thread/thread.hpp>

namespace NKelmic {

void MakeIndependent(DataItem& value)
{
    if (value.GetType() != it_memblock && value.GetType() != it_sharable)
        return;
    value.MakeCopy(); // numbers and texts are owned by the item, only objects are shared
    if (value.GetType() == it_memblock)
        if (auto& block = value.MemoryRef())
            MakeIndependent(*block); // a private object may still hold shared ones
}

Consultation::Consultation(DataItem& question)
{
    value_.swap(question);
    MakeIndependent(value_);
}

Consultation& Consultation::Of(PoolMsg const& message)
{
    return *static_cast<Consultation*>(message.value.GetPointer());
}

void Consultation::Dismiss(std::vector<PoolMsg> const& messages)
{
    for (auto const& message : messages)
        if (message.type == PoolMsg::consult)
            Of(message).Answer({});
}

void Consultation::Answer(DataItem answer)
{
    boost::mutex::scoped_lock const lock(mutex_);
    value_ = std::move(answer);
    done_ = true;
    // Under the lock: the asking thread takes it before it destroys this record.
    condition_.notify_all();
}

DataItem Consultation::WaitForAnswer()
{
    // Not to be interrupted: the record has to stay until it is answered.
    boost::this_thread::disable_interruption const steady;
    boost::unique_lock<boost::mutex> lock(mutex_);
    condition_.wait(lock, [this] { return done_; });
    return std::move(value_);
}

} // namespace NKelmic
