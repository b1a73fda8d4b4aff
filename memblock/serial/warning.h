#ifndef MEMBLOCK_SERIAL_WARNING_H
#define MEMBLOCK_SERIAL_WARNING_H

#include <memblock/base/warning.h>
#include <memblock/core/fwd.h>

#include <atomic>

namespace NKelmic {

/// The hooks that a host installs. They may be called from any thread, workers included.
typedef void (*WarningFunc)(unsigned int code, char const* text);
typedef void (*SendAlarmFunc)(char const* text, int severity, int code, char const* source);
typedef PMemBlock (*CallDistributionFunc)(PMemBlock vector, int bins, bool flag);

/// The host's histogram function; null until the host installs one.
MEMBLOCK_API extern std::atomic<CallDistributionFunc> g_calldistributionfunc;

/// Hand a warning to the engine's function "HandleWarning" and return what it answers; 0 if the
/// engine is not loaded in this process or has no such function.
MEMBLOCK_API int HandleWarningMemBlock(unsigned int code, char const* text);

/// Install a hook: the verbs are "set_calldistributionfunc", "set_kelmicwarningfunc" and
/// "set_sendalarmkelmicfunc", in any letter case; the argument is the raw function pointer, null
/// takes the hook out. Returns the int 1, or undefined for another verb.
MEMBLOCK_API DataItem MemBlock_DoVerb(safestring const& verb, SafeValue const& argument);

/// Does nothing; callers in other libraries link against it.
MEMBLOCK_API void MemBlockDllCleanup();

} // namespace NKelmic

#endif // MEMBLOCK_SERIAL_WARNING_H
