#ifndef MEMBLOCK_BASE_LOG_INTERNAL_H
#define MEMBLOCK_BASE_LOG_INTERNAL_H

#include <memblock/base/logbase.h>

namespace Ntarnwick {

// The subsystems of the base library, as bits.
constexpr LogBase::subsys_t log_memory = 4;
constexpr LogBase::subsys_t log_exception = 8;

/// Whether a line would be passed on: test it before its text is built.
bool LogEnabled(LogBase::subsys_t subsys, int level);

/// Pass a line on to the callback. Nothing passes out of it, and a line that is logged while the
/// same thread is inside the callback is dropped: it would go round for ever.
void Log(LogBase::subsys_t subsys, int level, safestring const& message);

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_LOG_INTERNAL_H
