#ifndef MEMBLOCK_THREADS_SPINNER_INTERNAL_H
#define MEMBLOCK_THREADS_SPINNER_INTERNAL_H

#include <algorithm>
#include <thread>

namespace NKelmic {

/// Looks for something a few times before its owner goes to sleep, giving the processor away in
/// between. It looks longer where that paid lately, so that long waits cost next to nothing.
class Spinner {
public:
    /// It looks `most` times at the most, some 0.3 us each on a free processor.
    explicit Spinner(int most) : most_(most) {}

    template <class Condition>
    bool Until(Condition condition)
    {
        for (int i = 0; i < budget_; ++i) {
            if (condition()) {
                budget_ = std::min(budget_ * 2, most_);
                return true;
            }
            std::this_thread::yield();
        }
        budget_ = std::max(budget_ / 2, least);
        return false;
    }

private:
    static constexpr int least = 2;
    int const most_;
    int budget_ = 16;
};

/// Take a lock that is held for some 100 ns at a time: a sleep would cost far more.
template <class Lock>
void LockSoon(Lock& lock)
{
    for (int i = 0; i < 50; ++i) {
        if (lock.try_lock())
            return;
        __builtin_ia32_pause();
    }
    lock.lock();
}

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_SPINNER_INTERNAL_H
