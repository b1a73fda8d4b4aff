#ifndef MEMBLOCK_THREADS_XTIME_INTERNAL_H
#define MEMBLOCK_THREADS_XTIME_INTERNAL_H

#include <time.h>

namespace NKelmic {

/// The rule of `PrepareXTime` without its clock.
timespec AddTimeout(timespec now, int timeout_ms, bool gui_thread);

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_XTIME_INTERNAL_H
