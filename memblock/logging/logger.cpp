#include <memblock/logging/logger.h>

#include <memblock/base/text.h>
#include <memblock/logging/loggerimpl_internal.h>
#include <memblock/threads/mutex.h>

#include <cstdio>
#include <cxxabi.h>

namespace NKelmic {

constinit std::atomic<topic_t> Logger::logmask_{0};
constinit std::atomic<int> Logger::max_logged_level_{0};
constinit LoggerImpl* Logger::logger_ = nullptr;

namespace {

// Makes the logger at load. Whatever runs still earlier makes it itself.
[[gnu::constructor]] void MakeLogger()
{
    LoggerImpl::Instance();
}

template <class Function>
void ContainLogging(Function&& function)
{
    try {
        function();
    } catch (abi::__forced_unwind const&) { // the thread is being cancelled
        throw;
    } catch (...) { // a log line must not change what the program does
        std::fputs("Exception in Logger::Log()\n", stderr);
    }
}

/// Every topic's level is below, and no lock needed to see it.
bool AboveAllLevels(level_t level)
{
    return level > Logger::max_logged_level_.load(std::memory_order_relaxed);
}

} // namespace

void Logger::SetLogging(safestring const& topic, level_t level)
{
    LoggerImpl::Instance().SetLogging(String2Topic(topic), topic, level);
}

level_t Logger::GetLogging(safestring const& topic)
{
    return LoggerImpl::Instance().GetLogging(String2Topic(topic), topic);
}

level_t Logger::GetLogging(topic_t topic)
{
    LoggerImpl const& impl = LoggerImpl::Instance();
    return impl.GetLogging(topic, impl.TopicName(topic));
}

void Logger::Log(safestring const& topic, safestring const& subtopic, level_t level,
                 safestring const& message)
{
    if (AboveAllLevels(level))
        return;
    ContainLogging(
        [&] { LoggerImpl::Instance().Log(String2Topic(topic), topic, subtopic, level, message); });
}

void Logger::Log(topic_t topic, safestring const& subtopic, level_t level,
                 safestring const& message)
{
    if (AboveAllLevels(level))
        return;
    ContainLogging([&] {
        LoggerImpl& impl = LoggerImpl::Instance();
        impl.Log(topic, impl.TopicName(topic), subtopic, level, message);
    });
}

void Logger::AddEnablingRule(safestring const& topic, safestring const& subtopic,
                             safestring const& pattern)
{
    LoggerImpl::Instance().AddRule(true, topic, subtopic, pattern);
}

void Logger::AddDisablingRule(safestring const& topic, safestring const& subtopic,
                              safestring const& pattern)
{
    LoggerImpl::Instance().AddRule(false, topic, subtopic, pattern);
}

void Logger::ClearRules()
{
    LoggerImpl::Instance().ClearRules();
}

void Logger::SetLogFile(safestring const& name, safestring const& format)
{
    LoggerImpl::Instance().SetLogFile(name, format);
}

void Logger::AddLogSink(LogSink& sink)
{
    LoggerImpl::Instance().AddLogSink(sink);
}

void Logger::RemoveLogSink(LogSink& sink)
{
    LoggerImpl::Instance().RemoveLogSink(sink);
}

void Logger::SetThreadName(unsigned int id, safestring const& name)
{
    LoggerImpl::Instance().SetThreadName(id, name);
}

safestring Logger::GetCurrentThreadName()
{
    return LoggerImpl::Instance().GetCurrentThreadName();
}

int Logger::GetCurrentThreadNo()
{
    return LoggerImpl::Instance().GetThreadNo(GetCurrentThreadId());
}

void Logger::SetVelSessionId(int id)
{
    LoggerImpl::Instance().SetVelSessionId(id);
}

int Logger::GetVelSessionId()
{
    return LoggerImpl::Instance().GetVelSessionId();
}

topic_t Logger::String2Topic(safestring const& text)
{
    if (text == "all")
        return topic_all;
    for (topic_row const& row : topic_table)
        if (text == row.name)
            return row.value;
    return topic_custom;
}

safestring Logger::Topic2String(topic_t topic)
{
    return LoggerImpl::Instance().TopicName(topic);
}

safestring Logger::GetLoggerStatus()
{
    return LoggerImpl::Instance().GetLoggerStatus();
}

void AddXmlAttr(char const* name, safestring const& value, safestring& output)
{
    output.append(1, ' ').append(name).append("=\"");
    EncodeXmlEntities(value.data(), static_cast<int>(value.size()), output);
    output += '"';
}

} // namespace NKelmic
