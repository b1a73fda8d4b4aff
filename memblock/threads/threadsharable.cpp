#include <memblock/threads/threadsharable.h>

#include <memblock/base/appendwhole_internal.h>
#include <memblock/base/raise.h>
#include <memblock/base/warning.h>
#include <memblock/core/dataitem.h>
#include <memblock/core/visitor.h>

#include <boost/thread/lock_algorithms.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/locks.hpp>
#include <boost/thread/thread.hpp>
#include <cxxabi.h>
#include <mutex>
#include <thread>

namespace NKelmic {

namespace {

typedef boost::lock_guard<boost::mutex> SharableGuard;
typedef boost::lock_guard<boost::recursive_mutex> WeakGuard;

// Guards the queues of weak pointers that wait for their disposal; taken last. One for all: it is
// held for some pointer writes only, at the end of objects that have weak pointers.
constinit std::mutex disposal_mutex;

void ReportFromRelease(void const* object, char const* what)
{
    try {
        SendAlarmMemBlock(
            Text("ThreadSharable::Release() (%p): an exception was thrown: %s", object, what), 4, 0,
            safestring());
    } catch (abi::__forced_unwind const&) {
        throw;
    } catch (...) { // a hook that throws must not undo the release
    }
}

/// Run code of a derived class inside `Release`, which never throws.
template <class Function>
void Contain(void const* object, Function&& function)
{
    try {
        function();
    } catch (abi::__forced_unwind const&) { // the thread is being cancelled
        throw;
    } catch (std::exception const& e) {
        ReportFromRelease(object, e.what());
    } catch (...) {
        ReportFromRelease(object, "unknown exception");
    }
}

} // namespace

/// One running `Dispose`, on the stack of its thread. A weak pointer may have several at a time: if
/// `Dispose` gives it a new target, that one may die too before the call returns.
struct WeakThreadSharablePointerBase::Disposal {
    Disposal* next;       // of the same weak pointer
    bool deleted = false; // the weak pointer went in its own Dispose
    std::thread::id const thread = std::this_thread::get_id();
};

/// Weak pointers whose target died, to be disposed of at the end of the scope, when the locks are
/// gone. Until its turn comes, each may still be deleted or get another target: it then leaves.
class WeakThreadSharablePointerBase::DisposalQueue {
public:
    DisposalQueue() = default;
    DisposalQueue(DisposalQueue const&) = delete;
    DisposalQueue& operator=(DisposalQueue const&) = delete;
    ~DisposalQueue() noexcept(false)
    {
        std::unique_lock<std::mutex> lock(disposal_mutex);
        while (WeakThreadSharablePointerBase* const weak = head_) {
            Leave_lk(*weak);
            DisposeOf(*weak, lock);
        }
    }

    /// Take over the first of a list of the target, which is locked. False if it is in use: its
    /// user may be waiting for that very lock.
    bool TakeFirst_lk(WeakThreadSharablePointerBase*& list)
    {
        WeakThreadSharablePointerBase& weak = *list;
        boost::unique_lock<boost::recursive_mutex> lock(weak.mutex_, boost::try_to_lock);
        if (!lock.owns_lock())
            return false;
        list = weak.next_;
        weak.target_ = nullptr;
        std::lock_guard<std::mutex> const queue_lock(disposal_mutex);
        weak.next_ = head_;
        if (head_)
            head_->queue_link_ = &weak.next_;
        weak.queue_link_ = &head_;
        head_ = &weak;
        return true;
    }

    /// Under `disposal_mutex`; does nothing outside of a queue.
    static void Leave_lk(WeakThreadSharablePointerBase& weak)
    {
        if (!weak.queue_link_)
            return;
        *weak.queue_link_ = weak.next_;
        if (weak.next_)
            weak.next_->queue_link_ = weak.queue_link_;
        weak.next_ = nullptr;
        weak.queue_link_ = nullptr;
    }

private:
    static void DisposeOf(WeakThreadSharablePointerBase& weak, std::unique_lock<std::mutex>& lock)
    {
        Disposal running{weak.disposals_};
        weak.disposals_ = &running;
        lock.unlock();
        Contain(&weak, [&] { weak.Dispose(); });
        lock.lock();
        if (running.deleted)
            return;
        Disposal** link = &weak.disposals_;
        while (*link != &running)
            link = &(*link)->next;
        *link = running.next;
    }

    WeakThreadSharablePointerBase* head_ = nullptr;
};

ThreadSharable::ThreadSharable() = default;

ThreadSharable::ThreadSharable(ThreadSharable const&) {}

ThreadSharable::~ThreadSharable() noexcept(false)
{
    {
        SharableGuard const lock(mutex_);
        dying_ = true; // it may be a local object that nobody released
    }
    DropWeakPointers();
}

safestring ThreadSharable::GetDescription() const
{
    return "ThreadSharable object";
}

bool ThreadSharable::NotifyBeforeDelete() const
{
    return false;
}

void ThreadSharable::DoSerialize(int format, SerializeVisitor&, safestring const&, Formatter const&,
                                 safestring&) const
{
    Raise(err_request, "Serialization format %d not supported for: %s", format, *this);
}

ThreadSharablePointer<ThreadSharable> ThreadSharable::DoUnSerialize(int, Formatter const&,
                                                                    char const*, char const**) const
{
    Raise(err_request, "Unserialization not supported by: %s", *this);
}

DataItem ThreadSharable::DoVerb(char const*, SafeValue const&, SafeValue const&)
{
    return DataItem();
}

void ThreadSharable::Serialize(int format, SerializeVisitor& v, safestring const& path,
                               Formatter const& formatter, safestring& output) const
{
    AppendWhole(output, [&] { DoSerialize(format, v, path, formatter, output); });
}

ThreadSharablePointer<ThreadSharable> ThreadSharable::UnSerialize(int format,
                                                                  Formatter const& formatter,
                                                                  char const* text,
                                                                  char const** end) const
{
    return DoUnSerialize(format, formatter, text, end);
}

void ThreadSharable::Traverse(TraverseVisitor& v, TraverseNode const& node)
{
    // An object that nobody owns yet is not held: dropping the pointer would delete it.
    auto const held =
        ThreadSharablePointer<ThreadSharable>::Adopt(CaptureIfOwned() ? this : nullptr);
    v.VisitStart(node, *this);
    v.VisitEnd(node, *this);
}

void ThreadSharable::Capture() const
{
    SharableGuard const lock(mutex_);
    ++refcount_;
}

bool ThreadSharable::CaptureUnlessDying() const
{
    SharableGuard const lock(mutex_);
    if (dying_)
        return false;
    ++refcount_;
    return true;
}

bool ThreadSharable::CaptureIfOwned() const
{
    SharableGuard const lock(mutex_);
    if (refcount_ <= 0)
        return false;
    ++refcount_;
    return true;
}

void ThreadSharable::Release() const
{
    {
        SharableGuard const lock(mutex_);
        // While it is dying, what its notification and its destructor capture and release leads
        // back here with count 0: the deletion is under way already.
        if (--refcount_ > 0 || dying_)
            return;
        dying_ = true; // from here on no weak pointer gets hold of it
    }
    DropWeakPointers();
    if (!SurvivesNotification())
        Contain(this, [this] { delete this; });
}

void ThreadSharable::DropWeakPointers() const
{
    WeakThreadSharablePointerBase::DisposalQueue doomed;
    boost::unique_lock<boost::mutex> lock(mutex_);
    while (weak_head_) {
        if (doomed.TakeFirst_lk(weak_head_))
            continue;
        lock.unlock();
        boost::this_thread::yield();
        lock.lock();
    }
}

bool ThreadSharable::SurvivesNotification() const
{
    bool survives = true; // if it throws, rather a leak than a dead object in somebody's hands
    Contain(this, [&] { survives = NotifyBeforeDelete(); });
    SharableGuard const lock(mutex_);
    if (!survives || refcount_ <= 0)
        return false;
    dying_ = false;
    return true;
}

void ThreadSharable::AddWeakPointer(WeakThreadSharablePointerBase& weak)
{
    WeakGuard const lock(weak.mutex_);
    weak.Retarget_lk(this);
}

void ThreadSharable::RemoveWeakPointer(WeakThreadSharablePointerBase& weak)
{
    WeakGuard const lock(weak.mutex_);
    if (weak.target_ == this)
        weak.Retarget_lk(nullptr);
}

WeakThreadSharablePointerBase::WeakThreadSharablePointerBase(ThreadSharable* target)
{
    if (target)
        target->AddWeakPointer(*this);
}

WeakThreadSharablePointerBase::WeakThreadSharablePointerBase(WeakThreadSharablePointerBase const& o)
{
    WeakGuard const lock(o.mutex_);
    Retarget_lk(o.target_); // nobody else knows this weak pointer yet
}

WeakThreadSharablePointerBase&
WeakThreadSharablePointerBase::operator=(WeakThreadSharablePointerBase const& o)
{
    if (this == &o)
        return *this;
    boost::unique_lock<boost::recursive_mutex> mine(mutex_, boost::defer_lock);
    boost::unique_lock<boost::recursive_mutex> theirs(o.mutex_, boost::defer_lock);
    boost::lock(mine, theirs);
    Retarget_lk(o.target_);
    return *this;
}

WeakThreadSharablePointerBase::~WeakThreadSharablePointerBase()
{
    Detach();
    std::lock_guard<std::mutex> const lock(disposal_mutex);
    for (Disposal* d = disposals_; d; d = d->next) // they run in this thread, below us
        d->deleted = true;
}

void WeakThreadSharablePointerBase::Detach()
{
    {
        WeakGuard const lock(mutex_);
        Retarget_lk(nullptr);
    }
    std::unique_lock<std::mutex> lock(disposal_mutex);
    while (IsDisposedElsewhere_lk()) {
        lock.unlock();
        boost::this_thread::yield();
        lock.lock();
    }
}

/// Under `disposal_mutex`.
bool WeakThreadSharablePointerBase::IsDisposedElsewhere_lk() const
{
    for (Disposal const* d = disposals_; d; d = d->next)
        if (d->thread != std::this_thread::get_id())
            return true;
    return false;
}

/// Leave the target or the queue, and go to a new target or none. The own mutex is held, which
/// keeps a target there: its end waits for the mutex of each of its weak pointers.
void WeakThreadSharablePointerBase::Retarget_lk(ThreadSharable* target)
{
    if (target_ && target_ == target)
        return;
    if (target_) {
        SharableGuard const lock(target_->mutex_);
        WeakThreadSharablePointerBase** link = &target_->weak_head_;
        while (*link != this)
            link = &(*link)->next_;
        *link = next_;
        next_ = nullptr;
    } else {
        std::lock_guard<std::mutex> const lock(disposal_mutex);
        DisposalQueue::Leave_lk(*this);
    }
    target_ = target;
    if (target) {
        SharableGuard const lock(target->mutex_);
        next_ = target->weak_head_;
        target->weak_head_ = this;
    }
}

ThreadSharablePointer<ThreadSharable> WeakThreadSharablePointerBase::Get() const
{
    WeakGuard const lock(mutex_);
    bool const alive = target_ && target_->CaptureUnlessDying();
    return ThreadSharablePointer<ThreadSharable>::Adopt(alive ? target_ : nullptr);
}

bool WeakThreadSharablePointerBase::Release()
{
    DisposalQueue doomed;
    for (;; boost::this_thread::yield()) {
        WeakGuard const lock(mutex_);
        if (!target_)
            return true;
        SharableGuard const target_lock(target_->mutex_);
        if (target_->refcount_ > 0)
            return false;
        bool free = true; // of other users, down to the end of the list
        while (next_ && free)
            free = doomed.TakeFirst_lk(next_);
        if (!free)
            continue;
        WeakThreadSharablePointerBase** link = &target_->weak_head_;
        while (*link != this)
            link = &(*link)->next_;
        doomed.TakeFirst_lk(*link); // ours already, so it can't be in use
        return true;
    }
}

int ThreadSharableGetRefCount(void const* sharable)
{
    auto const& object = *static_cast<ThreadSharable const*>(sharable);
    SharableGuard const lock(object.mutex_);
    return object.refcount_;
}

void AssignThreadId(DataItem& item, unsigned int id)
{
    if (item.GetType() != it_memblock)
        return;
    PMemBlock& block = item.MemoryRef();
    if (block)
        AssignThreadId(block, id);
}

} // namespace NKelmic
