#ifndef MEMBLOCK_THREADS_THREADFIFO_INTERNAL_H
#define MEMBLOCK_THREADS_THREADFIFO_INTERNAL_H

#include <memblock/threads/spinner_internal.h>

#include <atomic>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <utility>
#include <vector>

namespace NKelmic {

struct WaitPolicy_Timeout {
    static constexpr int no_limit = 0x7FFFFFFF;
};

/// Messages of many threads to one, in order. The reader takes all that is there at once.
template <class T, class WaitPolicy>
class ThreadFifo {
public:
    /// False, and nothing is taken, once the fifo is closed.
    bool Push(T&& message)
    {
        boost::unique_lock<boost::mutex> lock(mutex_, boost::defer_lock);
        LockSoon(lock);
        if (closed_)
            return false;
        queue_.push_back(std::move(message));
        filled_.store(true, std::memory_order_release);
        if (sleeping_)
            condition_.notify_one();
        return true;
    }

    /// Exchange the messages with an empty vector; sleep if there are none, up to the limit.
    void TakeAll(std::vector<T>& out, int timeout_s)
    {
        if (timeout_s > 0)
            spinner_.Until([this] { return filled_.load(std::memory_order_acquire); });
        boost::unique_lock<boost::mutex> lock(mutex_, boost::defer_lock);
        LockSoon(lock);
        if (queue_.empty() && !closed_ && !roused_ && timeout_s > 0)
            Sleep_lk(lock, timeout_s);
        roused_ = false;
        out.swap(queue_);
        filled_.store(closed_, std::memory_order_relaxed);
    }

    /// Have the reader look around once, although there may be no message.
    void Rouse()
    {
        boost::mutex::scoped_lock const lock(mutex_);
        roused_ = true;
        filled_.store(true, std::memory_order_release);
        condition_.notify_all();
    }

    /// Take no more messages, wake the reader and return what it has not taken.
    std::vector<T> Close()
    {
        boost::mutex::scoped_lock const lock(mutex_);
        closed_ = true;
        filled_.store(true, std::memory_order_release);
        condition_.notify_all();
        return std::exchange(queue_, {});
    }

private:
    void Sleep_lk(boost::unique_lock<boost::mutex>& lock, int timeout_s)
    {
        auto const awake = [this] { return !queue_.empty() || closed_ || roused_; };
        struct Sleeping { // also when the wait is interrupted
            bool& flag;
            explicit Sleeping(bool& f) : flag(f) { flag = true; }
            ~Sleeping() { flag = false; }
        } const sleeping(sleeping_);
        if (timeout_s == WaitPolicy::no_limit)
            condition_.wait(lock, awake);
        else
            condition_.timed_wait(lock, boost::posix_time::seconds(timeout_s), awake);
    }

    boost::mutex mutex_;
    boost::condition_variable condition_;
    std::vector<T> queue_;            // guarded by mutex_
    bool closed_ = false;             // guarded by mutex_
    bool roused_ = false;             // guarded by mutex_
    bool sleeping_ = false;           // guarded by mutex_
    std::atomic<bool> filled_{false}; // a hint for the reader
    // The reader's. Short: where each processor has a worker, they pay for its looks.
    Spinner spinner_{16};
};

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_THREADFIFO_INTERNAL_H
