#ifndef MEMBLOCK_THREADS_MUTEX_H
#define MEMBLOCK_THREADS_MUTEX_H

#include <memblock/export.h>

#include <atomic>
#include <boost/thread/locks.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <stdexcept>
#include <time.h>

namespace NKelmic {

/// A recursive mutex that remembers, for diagnostics, which thread holds it and where it was taken.
///
/// It is taken by a `Lock`. The record (file, line, count, thread) changes only while the mutex is
/// held and may be read at any time without it: what is read is then a snapshot, each field by
/// itself.
class MEMBLOCK_API Mutex {
public:
    Mutex();
    ~Mutex();
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    /// The native thread handle, cut to its low 32 bits. An id may come again after its thread
    /// has ended.
    static unsigned int GetCurrentThreadId();

    /// Set the limit for timed acquisitions by calling code, in milliseconds (6000 at first), and
    /// return the old one. `Lock` itself waits without a limit.
    int SetTimeout(int ms);
    int GetTimeout() const;

    bool IsLocked() const;
    int GetLockCount() const;                ///< how often the holder has taken it, 0 when free
    unsigned int GetLockingThreadId() const; ///< 0 when free
    char const* GetFile() const;             ///< of the holder's outermost lock, "" when free
    int GetLine() const;                     ///< of the holder's outermost lock, 0 when free

    /// Return whether the calling thread holds the mutex, without waiting.
    bool IsLockedByCurrentThread() const;

    /// Name the calling thread the GUI thread of the process, also at the logger ("GUI thread");
    /// with false the process has none.
    static void SetGuiThread(bool on);
    static bool IsGuiThread();

private:
    friend class Lock;
    mutable boost::recursive_timed_mutex mutex_;
    std::atomic<char const*> file_{""};
    std::atomic<unsigned short> line_{0};
    std::atomic<short> lock_count_{0};
    std::atomic<unsigned int> thread_id_{0};
    std::atomic<int> timeout_ms_{6000};
    static std::atomic<unsigned int> gui_thread_id_; // 0: none
};

/// The same as `Mutex::GetCurrentThreadId`.
MEMBLOCK_API unsigned int GetCurrentThreadId();

/// Holds a `Mutex` for a scope; the same thread may hold it many times.
class MEMBLOCK_API Lock {
public:
    /// Wait for the mutex, without a limit. The file name is kept by pointer: static text.
    Lock(Mutex& mutex, char const* file, int line);
    ~Lock();
    Lock(Lock const&) = delete;
    Lock& operator=(Lock const&) = delete;

private:
    boost::unique_lock<boost::recursive_timed_mutex> lock_;
    Mutex* mutex_;
};

/// For calling code that gave up waiting on the GUI thread: names the lock that was in its way,
/// "GUI thread timeout caused by lock at %s (%d)".
class MEMBLOCK_API MutexTimeOutException : public std::runtime_error {
public:
    MutexTimeOutException(char const* file, int line);
};

/// The absolute time (universal time since 1970) at which a timed acquisition gives up.
///
/// The GUI thread gets half a second, whatever the timeout; any other thread `timeout_ms` times
/// ten milliseconds. `tv_nsec` is not normalised and may be 1,000,000,000 or more: callers rest on
/// that, but a system call needs it carried over first (it fails with EINVAL otherwise).
MEMBLOCK_API timespec PrepareXTime(int timeout_ms);

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_MUTEX_H
