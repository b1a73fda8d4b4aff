#ifndef MEMBLOCK_THREADS_JOBLOG_INTERNAL_H
#define MEMBLOCK_THREADS_JOBLOG_INTERNAL_H

#include <memblock/base/raise.h>
#include <memblock/logging/logger.h>

namespace NKelmic {

/// Log a line about jobs or workers; its words are put together only where somebody reads them.
template <class... Arg>
void LogJobs(level_t level, char const* text, Arg const&... arg)
{
    if (Logger::Enabled(topic_thread, level))
        Logger::Log(topic_thread, "jobpool", level, Text(text, arg...));
}

} // namespace NKelmic

#endif // MEMBLOCK_THREADS_JOBLOG_INTERNAL_H
