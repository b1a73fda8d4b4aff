// A library that looks for others while it is being loaded: in its constructor, with the dynamic
// loader's lock held, and on a thread of its own at the same time.
#include <memblock/serial/loader.h>

#include <atomic>
#include <boost/thread/thread.hpp>
#include <chrono>
#include <thread>

using namespace NKelmic;

namespace {
std::atomic<int> looked = 0;

void Look()
{
    if (!GetSharedLibHandle("not there"))
        ++looked;
}

struct Early {
    boost::thread other{Look};
    Early()
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the other waits by now
        Look();
    }
} early;
} // namespace

extern "C" __attribute__((visibility("default"))) bool LookedTwice()
{
    early.other.join();
    return looked == 2;
}
