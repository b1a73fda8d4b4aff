#include <memblock/serial/warning.h>

#include <memblock/core/subitem.h>
#include <memblock/serial/loader.h>

#include <cstdio>

namespace NKelmic {
namespace {
constinit std::atomic<WarningFunc> warning_hook{nullptr};
constinit std::atomic<SendAlarmFunc> alarm_hook{nullptr};

template <class Func>
void Install(std::atomic<Func>& hook, SafeValue const& argument)
{
    hook.store(reinterpret_cast<Func>(argument.GetPointer()), std::memory_order_release);
}
} // namespace

constinit std::atomic<CallDistributionFunc> g_calldistributionfunc{nullptr};

void Warning(unsigned int code, safestring const& text)
{
    if (WarningFunc const hook = warning_hook.load(std::memory_order_acquire))
        hook(code, text.c_str());
    else
        std::fprintf(stderr, "Warning: %s\n", text.c_str());
}

int HandleWarningMemBlock(unsigned int code, char const* text)
{
    static constinit EngineFunction<HandleWarningFunc> handle_warning{"HandleWarning"};
    auto const function = handle_warning.Find();
    return function ? function(code, text) : 0;
}

void SendAlarmMemBlock(safestring const& text, int severity, int code, safestring const& source)
{
    if (SendAlarmFunc const hook = alarm_hook.load(std::memory_order_acquire))
        hook(text.c_str(), severity, code, source.c_str());
    else
        std::fprintf(stderr, "ALARM (level %d): %s\n", severity, text.c_str());
}

void SendAlarmMemBlock(char const* text, int severity, int code, char const* source)
{
    if (SendAlarmFunc const hook = alarm_hook.load(std::memory_order_acquire))
        hook(text, severity, code, source);
    else
        std::fprintf(stderr, "ALARM (severity %d/5): %s\n", severity, text);
}

DataItem MemBlock_DoVerb(safestring const& verb, SafeValue const& argument)
{
    if (verb == "set_calldistributionfunc")
        Install(g_calldistributionfunc, argument);
    else if (verb == "set_kelmicwarningfunc")
        Install(warning_hook, argument);
    else if (verb == "set_sendalarmkelmicfunc")
        Install(alarm_hook, argument);
    else
        return {};
    return 1;
}

unsigned int LogWarnings_::operator()(Exception const& e)
{
    Warning(e.Code(), e.what());
    return e.Code();
}

LogWarnings_& LogWarnings()
{
    static LogWarnings_& instance = *new LogWarnings_; // outlives every static that may report
    return instance;
}

void MemBlockDllCleanup() {}

} // namespace NKelmic
