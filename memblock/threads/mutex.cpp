#include <memblock/threads/mutex.h>

#include <memblock/base/raise.h>
#include <memblock/logging/logger.h>
#include <memblock/threads/xtime_internal.h>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>
#include <pthread.h>

namespace NKelmic {

constinit std::atomic<unsigned int> Mutex::gui_thread_id_{0};

Mutex::Mutex() = default;
Mutex::~Mutex() = default;

unsigned int Mutex::GetCurrentThreadId()
{
    return static_cast<unsigned int>((std::uintptr_t)pthread_self()); // a pointer elsewhere
}

unsigned int GetCurrentThreadId()
{
    return Mutex::GetCurrentThreadId();
}

int Mutex::SetTimeout(int ms)
{
    return timeout_ms_.exchange(ms, std::memory_order_relaxed);
}

int Mutex::GetTimeout() const
{
    return timeout_ms_.load(std::memory_order_relaxed);
}

bool Mutex::IsLocked() const
{
    return GetLockCount() > 0;
}

int Mutex::GetLockCount() const
{
    return lock_count_.load(std::memory_order_relaxed);
}

unsigned int Mutex::GetLockingThreadId() const
{
    return thread_id_.load(std::memory_order_relaxed);
}

char const* Mutex::GetFile() const
{
    return file_.load(std::memory_order_relaxed);
}

int Mutex::GetLine() const
{
    return line_.load(std::memory_order_relaxed);
}

bool Mutex::IsLockedByCurrentThread() const
{
    // The stored thread id would need a lock to be read with its count: the mutex itself knows.
    boost::unique_lock<boost::recursive_timed_mutex> lock(mutex_, boost::try_to_lock);
    return lock.owns_lock() && GetLockCount() > 0; // a free mutex is ours now, with count 0
}

void Mutex::SetGuiThread(bool on)
{
    gui_thread_id_.store(on ? GetCurrentThreadId() : 0, std::memory_order_relaxed);
    if (on)
        Logger::SetThreadName(GetCurrentThreadId(), "GUI thread");
}

bool Mutex::IsGuiThread()
{
    return GetCurrentThreadId() == gui_thread_id_.load(std::memory_order_relaxed);
}

Lock::Lock(Mutex& mutex, char const* file, int line) : lock_(mutex.mutex_), mutex_(&mutex)
{
    auto const order = std::memory_order_relaxed; // diagnostics: the mutex does the ordering
    short const count = mutex.lock_count_.load(order);
    mutex.lock_count_.store(static_cast<short>(count + 1), order);
    if (count == 0) {
        mutex.thread_id_.store(GetCurrentThreadId(), order);
        mutex.file_.store(file, order);
        mutex.line_.store(static_cast<unsigned short>(line), order);
    }
}

Lock::~Lock()
{
    auto const order = std::memory_order_relaxed;
    short const count = mutex_->lock_count_.load(order);
    mutex_->lock_count_.store(static_cast<short>(count - 1), order);
    if (count == 1) {
        mutex_->thread_id_.store(0, order);
        mutex_->file_.store("", order);
        mutex_->line_.store(0, order);
    }
}

MutexTimeOutException::MutexTimeOutException(char const* file, int line)
    : std::runtime_error(Text("GUI thread timeout caused by lock at %s (%d)", file, line).c_str())
{
}

timespec AddTimeout(timespec now, int timeout_ms, bool gui_thread)
{
    if (gui_thread) {
        now.tv_nsec += 500'000'000;
        return now;
    }
    // Settled: a timeout counts tens of milliseconds here, and the nanoseconds are left as they
    // come out; callers have their limits tuned to both.
    long long const wait_ms = timeout_ms * 10LL;
    if (wait_ms >= 1000) {
        now.tv_sec += wait_ms / 1000;
        now.tv_nsec += wait_ms % 1000 * 1'000'000;
    } else {
        now.tv_nsec += wait_ms * 1'000'000;
    }
    return now;
}

timespec PrepareXTime(int timeout_ms)
{
    static boost::posix_time::ptime const epoch(boost::gregorian::date(1970, 1, 1));
    auto const since = boost::posix_time::microsec_clock::universal_time() - epoch;
    timespec now{};
    now.tv_sec = since.ticks() / since.ticks_per_second();
    now.tv_nsec = since.total_microseconds() % 1'000'000 * 1000;
    return AddTimeout(now, timeout_ms, Mutex::IsGuiThread());
}

} // namespace NKelmic
