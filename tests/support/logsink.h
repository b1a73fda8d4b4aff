#ifndef MEMBLOCK_TESTS_SUPPORT_LOGSINK_H
#define MEMBLOCK_TESTS_SUPPORT_LOGSINK_H

#include <memblock/logging/logger.h>

#include <string>
#include <vector>

/// A log sink that keeps its lines as "topic/subtopic level message", and the thread names apart.
/// It is connected for its lifetime.
class KeepingSink : public NKelmic::LogSink {
public:
    KeepingSink() { NKelmic::Logger::AddLogSink(*this); }
    ~KeepingSink() { NKelmic::Logger::RemoveLogSink(*this); }
    KeepingSink(KeepingSink const&) = delete;
    KeepingSink& operator=(KeepingSink const&) = delete;

    void Log(NKelmic::safestring const& topic, NKelmic::safestring const& subtopic,
             NKelmic::level_t level, NKelmic::safestring const& message,
             NKelmic::safestring const& threadname) override
    {
        lines.push_back(std::string(topic.c_str()) + "/" + subtopic.c_str() + " " +
                        std::to_string(level) + " " + message.c_str());
        threads.push_back(threadname.c_str());
    }

    std::vector<std::string> lines;
    std::vector<std::string> threads;
};

#endif // MEMBLOCK_TESTS_SUPPORT_LOGSINK_H
