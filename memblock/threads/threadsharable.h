#ifndef MEMBLOCK_THREADS_THREADSHARABLE_H
#define MEMBLOCK_THREADS_THREADSHARABLE_H

#include <memblock/base/safestring.h>
#include <memblock/core/fwd.h>

#include <atomic>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <concepts>
#include <utility>

namespace NKelmic {
class WeakThreadSharablePointerBase;
MEMBLOCK_API int ThreadSharableGetRefCount(void const* sharable); // NOLINT: also in memblock.h

/// Base of objects that several threads hold at once: counted under a mutex of its own, with weak
/// pointers. Held by `ThreadSharablePointer`, made with count 0.
///
/// It has to be the first base of a class: untyped pointers to the object are read as pointers to
/// this part. Derived destructors carry no `noexcept`: what they throw ends in `Release`.
class MEMBLOCK_API ThreadSharable {
public:
    virtual safestring GetDescription() const; ///< "ThreadSharable object"
    virtual ~ThreadSharable() noexcept(false);
    virtual ThreadSharablePointer<ThreadSharable> DoClone() const = 0;

    /// Called by the last `Release`, without a lock, when the weak pointers are gone. An object
    /// that has captured itself here (or let itself be captured) and returns true lives on. The
    /// base returns false.
    virtual bool NotifyBeforeDelete() const;

    /// Throws here: err_request "Serialization format %d not supported for: %s".
    virtual void DoSerialize(int format, SerializeVisitor& v, safestring const& path,
                             Formatter const& formatter, safestring& output) const;
    /// Throws here: err_request "Unserialization not supported by: %s".
    virtual ThreadSharablePointer<ThreadSharable>
    DoUnSerialize(int format, Formatter const& formatter, char const* text, char const** end) const;
    /// Answer a verb; an unknown one, and so every one here, gets the undefined value.
    virtual DataItem DoVerb(char const* verb, SafeValue const& a, SafeValue const& b);

    void Serialize(int format, SerializeVisitor& v, safestring const& path,
                   Formatter const& formatter, safestring& output) const;
    ThreadSharablePointer<ThreadSharable> UnSerialize(int format, Formatter const& formatter,
                                                      char const* text, char const** end) const;

    /// Show this object to the visitor: a start and an end, with nothing in between. The object
    /// is held meanwhile.
    void Traverse(TraverseVisitor& v, TraverseNode const& node);

    void Capture() const;

    /// Give one reference back; with the last one goes the object, in this order: every weak
    /// pointer loses its target and is disposed of, `NotifyBeforeDelete` is asked, the destructor
    /// runs. All three run without a lock and may capture and release the object again.
    ///
    /// Never throws: what they throw is reported as an alarm.
    void Release() const;

    /// Make this object the target of a weak pointer; a target it had before loses it.
    void AddWeakPointer(WeakThreadSharablePointerBase& weak);
    /// Take its target from a weak pointer; one that has another target is left alone. O(number
    /// of weak pointers).
    void RemoveWeakPointer(WeakThreadSharablePointerBase& weak);

protected:
    ThreadSharable();
    ThreadSharable(ThreadSharable const&); ///< a new object: count 0, no weak pointers
    ThreadSharable& operator=(ThreadSharable const&) = delete;

private:
    friend class WeakThreadSharablePointerBase;
    friend MEMBLOCK_API int ThreadSharableGetRefCount(void const*);

    bool CaptureUnlessDying() const;
    bool CaptureIfOwned() const;
    void DropWeakPointers() const;
    bool SurvivesNotification() const;

    // Lock order: a weak pointer's mutex, then this one. The other way round only by a try.
    mutable boost::mutex mutex_;
    mutable int refcount_ = 0;                                   // guarded by mutex_
    mutable WeakThreadSharablePointerBase* weak_head_ = nullptr; // guarded by mutex_
    mutable bool dying_ = false;                                 // guarded by mutex_
};

/// What `%s` of a message prints for a sharable object.
inline safestring TextArg(ThreadSharable const& sharable)
{
    return sharable.GetDescription();
}

/// The owning pointer to a `ThreadSharable`: one pointer wide, every copy holds one reference.
///
/// One thread assigns, others may read meanwhile (through the volatile forms where the pointer is
/// a shared member): a reader sees the old pointer, null or the new one, never an object that was
/// released and is still stored. The reader gets no reference by that: only a copy made under a
/// lock of the caller does.
template <class T>
class ThreadSharablePointer {
public:
    ThreadSharablePointer() : p_(nullptr) {}
    ThreadSharablePointer(T* p) : p_(Captured(p)) {}
    ThreadSharablePointer(ThreadSharablePointer const& o) : p_(Captured(o.Pointer())) {}
    ThreadSharablePointer(ThreadSharablePointer&& o) noexcept : p_(o.Take()) {}
    template <class U>
    requires std::convertible_to<U*, T*> ThreadSharablePointer(ThreadSharablePointer<U> const& o)
        : p_(Captured<T>(o.Pointer()))
    {
    }
    ~ThreadSharablePointer()
    {
        if (T* p = Take())
            p->Release();
    }

    ThreadSharablePointer& operator=(T* p)
    {
        Assign(p);
        return *this;
    }
    ThreadSharablePointer& operator=(ThreadSharablePointer const& o)
    {
        Assign(o.Pointer());
        return *this;
    }
    void operator=(T* p) volatile { Assign(p); }
    void operator=(ThreadSharablePointer const& o) volatile { Assign(o.Pointer()); }

    T* Pointer() const { return p_.load(std::memory_order_acquire); }
    T* Pointer() const volatile { return p_.load(std::memory_order_acquire); }
    T* operator->() const { return Pointer(); }
    T* operator->() const volatile { return Pointer(); }
    T& operator*() const { return *Pointer(); }
    T& operator*() const volatile { return *Pointer(); }
    operator void*() const { return Untyped(Pointer()); }
    operator void*() const volatile { return Untyped(Pointer()); }
    void swap(ThreadSharablePointer& o) { Swap(o); }
    void swap(ThreadSharablePointer& o) volatile { Swap(o); }

    /// A pointer to a clone of the target; null stays null.
    ThreadSharablePointer MakeCopy() const
    {
        T* const p = Pointer();
        return p ? ThreadSharablePointer(dynamic_cast<T*>(p->DoClone().Pointer()))
                 : ThreadSharablePointer();
    }

private:
    friend class ThreadSharable;
    friend class WeakThreadSharablePointerBase;

    template <class U>
    static U* Captured(U* p)
    {
        if (p)
            p->Capture();
        return p;
    }
    static ThreadSharablePointer Adopt(T* captured)
    {
        ThreadSharablePointer p;
        p.Store(captured);
        return p;
    }
    static void* Untyped(T* p) { return const_cast<void*>(static_cast<void const*>(p)); }
    void Store(T* p) volatile { p_.store(p, std::memory_order_release); }
    T* Take()
    {
        T* const p = Pointer();
        Store(nullptr);
        return p;
    }
    void Assign(T* p) volatile
    {
        Captured(p);
        T* const old = Pointer();
        Store(nullptr); // before the release: nobody may find what is going
        if (old)
            old->Release();
        Store(p);
    }
    void Swap(ThreadSharablePointer& o) volatile
    {
        T* const mine = Pointer();
        Store(o.Pointer());
        o.Store(mine);
    }

    std::atomic<T*> p_; // plain loads and stores: atomic for readers, not for two writers
};

/// A link from a holder to a `ThreadSharable` that doesn't keep it alive. It lives on the heap or
/// in its holder; the derived class says what becomes of it when the target dies.
///
/// The target may die in another thread at any time. A derived class therefore calls `Detach` at
/// the beginning of its destructor, before it takes any lock that its `Dispose` takes too; and
/// code that makes one, also as a copy, holds the target until it is complete.
class MEMBLOCK_API WeakThreadSharablePointerBase {
public:
    virtual ~WeakThreadSharablePointerBase();
    WeakThreadSharablePointerBase& operator=(WeakThreadSharablePointerBase const& o);

    /// The target, captured; null when it is gone or on its way. A target that nobody has held yet
    /// goes with what this returns.
    ThreadSharablePointer<ThreadSharable> Get() const;

    /// Cut this weak pointer, and those that the target got before it, off from a target that
    /// nobody holds, and dispose of them. False when somebody holds it: this one then stays as it
    /// is, and so do the others unless it was captured during the call.
    bool Release();

protected:
    /// Called once when the target has died, in the thread that gave up the last reference. No
    /// lock of this file is held. It may delete this object. A weak pointer that got a new target
    /// in time is not disposed of.
    virtual void Dispose() = 0;

    explicit WeakThreadSharablePointerBase(ThreadSharable* target);
    WeakThreadSharablePointerBase(WeakThreadSharablePointerBase const& o);

    /// Leave the target. On return `Dispose` doesn't run in another thread (it is waited for) and
    /// will not be called any more.
    void Detach();

private:
    friend class ThreadSharable;
    class DisposalQueue;
    struct Disposal;

    void Retarget_lk(ThreadSharable* target);
    bool IsDisposedElsewhere_lk() const;

    mutable boost::recursive_mutex mutex_;
    ThreadSharable* target_ = nullptr; // guarded by mutex_; set: that object is still there
    WeakThreadSharablePointerBase* next_ = nullptr;        // of the same target or queue
    WeakThreadSharablePointerBase** queue_link_ = nullptr; // what points here in the queue
    Disposal* disposals_ = nullptr;                        // the calls of Dispose that run
};
} // namespace NKelmic

#endif // MEMBLOCK_THREADS_THREADSHARABLE_H
