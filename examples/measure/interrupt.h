#ifndef MEMBLOCK_EXAMPLES_MEASURE_INTERRUPT_H
#define MEMBLOCK_EXAMPLES_MEASURE_INTERRUPT_H

#include <atomic>
#include <csignal>
#include <thread>

namespace measure {

/// Keeps Ctrl-C from the threads that are made in its scope, so that an `Interrupter` gets it.
class InterruptsHeld {
public:
    InterruptsHeld();
    ~InterruptsHeld();
    InterruptsHeld(InterruptsHeld const&) = delete;
    InterruptsHeld& operator=(InterruptsHeld const&) = delete;

private:
    sigset_t before_;
};

/// Calls a function on a thread of its own when Ctrl-C is pressed; the second time it ends the
/// process at once. A signal handler could call next to nothing.
class Interrupter {
public:
    template <class Function>
    explicit Interrupter(Function stop)
        : thread_([this, stop] {
              for (; NextInterrupt(); stop())
                  CountOne();
          })
    {
    }
    ~Interrupter();
    Interrupter(Interrupter const&) = delete;
    Interrupter& operator=(Interrupter const&) = delete;

private:
    bool NextInterrupt() const; ///< false when it is time to end
    void CountOne();

    std::atomic<bool> ending_{false};
    int count_ = 0;
    std::thread thread_;
};

constexpr int interrupted_status = 130; ///< of a process, as shells have it

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_INTERRUPT_H
