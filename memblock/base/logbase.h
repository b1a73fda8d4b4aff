#ifndef MEMBLOCK_BASE_LOGBASE_H
#define MEMBLOCK_BASE_LOGBASE_H

#include <memblock/base/safestring.h>

namespace Ntarnwick {

/// Receiver of the log lines of the base library, which knows nothing of the logger above it.
class MEMBLOCK_API LogBase {
public:
    /// The origin of a line, as a bit: 4 allocation ("memory"), 8 thrown exceptions.
    typedef unsigned int subsys_t;

    /// Take a line. Levels run from 1, most severe, upward. Called on any thread. What it throws
    /// is swallowed; lines that come up inside the call are dropped.
    virtual void Log(subsys_t subsys, int level, safestring const& message) = 0;

protected:
    ~LogBase() = default;
};

/// Install the one receiver; null uninstalls it. It has to live until it is replaced and all calls
/// under way have returned.
MEMBLOCK_API void SetLoggerCallbackBase(LogBase* sink);

/// Let lines through whose subsystem is in the mask, up to a level. At the start none are: a mask
/// or level of 0 switches logging off.
MEMBLOCK_API void SetLoggerFilter(LogBase::subsys_t mask, int level);

} // namespace Ntarnwick

#endif // MEMBLOCK_BASE_LOGBASE_H
