#include <memblock/base/logbase.h>

#include <memblock/base/log_internal.h>

#include <atomic>
#include <cxxabi.h>

namespace Ntarnwick {

namespace {

// Read at every site without a lock; a line more or less around a change of setting is harmless.
constinit std::atomic<LogBase*> callback = nullptr;
constinit std::atomic<LogBase::subsys_t> filter_mask = 0;
constinit std::atomic<int> filter_level = 0;

thread_local bool inside_callback = false;

} // namespace

void SetLoggerCallbackBase(LogBase* sink)
{
    callback.store(sink, std::memory_order_release);
}

void SetLoggerFilter(LogBase::subsys_t mask, int level)
{
    filter_mask.store(mask, std::memory_order_relaxed);
    filter_level.store(level, std::memory_order_relaxed);
}

bool LogEnabled(LogBase::subsys_t subsys, int level)
{
    return level <= filter_level.load(std::memory_order_relaxed) &&
           (subsys & filter_mask.load(std::memory_order_relaxed)) != 0;
}

void Log(LogBase::subsys_t subsys, int level, safestring const& message)
{
    LogBase* const sink = callback.load(std::memory_order_acquire);
    if (!sink || inside_callback || !LogEnabled(subsys, level))
        return;
    inside_callback = true;
    try {
        sink->Log(subsys, level, message);
    } catch (abi::__forced_unwind const&) { // the thread is being cancelled
        inside_callback = false;
        throw;
    } catch (...) {
    }
    inside_callback = false;
}

} // namespace Ntarnwick
