#include <measure/interrupt.h>

#include <cstdlib>
#include <pthread.h>

namespace measure {
namespace {

sigset_t Interrupts()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    return set;
}

} // namespace

InterruptsHeld::InterruptsHeld()
{
    sigset_t const set = Interrupts();
    pthread_sigmask(SIG_BLOCK, &set, &before_);
}

InterruptsHeld::~InterruptsHeld()
{
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

Interrupter::~Interrupter()
{
    ending_ = true;
    pthread_kill(thread_.native_handle(), SIGINT);
    thread_.join();
}

bool Interrupter::NextInterrupt() const
{
    sigset_t const set = Interrupts();
    int signal = 0;
    sigwait(&set, &signal);
    return !ending_;
}

void Interrupter::CountOne()
{
    if (++count_ > 1)
        std::_Exit(interrupted_status);
}

} // namespace measure
