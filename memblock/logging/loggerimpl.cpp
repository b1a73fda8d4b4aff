#include <memblock/logging/loggerimpl_internal.h>

#include <memblock/base/raise.h>
#include <memblock/base/text.h>
#include <memblock/threads/mutex.h>

#include <algorithm>
#include <bit>
#include <boost/container/small_vector.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/locks.hpp>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <cxxabi.h>

namespace NKelmic {

namespace {

typedef boost::lock_guard<boost::recursive_mutex> Guard;

constexpr topic_t key_all = ~0ULL; // of "all" in the map of levels; no topic has this value
constexpr int max_sink_depth = 8;  // of lines that sinks log themselves, see LogSink
constexpr char const* default_format = "%d %t %l {%i/%a} [%h/%s] %m";

// Saves the look-up by thread id for each line. No destructor: also good at thread end.
constinit thread_local threadinfo_struc* current_thread = nullptr;

struct DepthGuard {
    explicit DepthGuard(int& depth) : depth_(depth) { ++depth_; }
    ~DepthGuard() { --depth_; }
    DepthGuard(DepthGuard const&) = delete;
    DepthGuard& operator=(DepthGuard const&) = delete;

private:
    int& depth_;
};

} // namespace

constinit int LoggerImpl::s_next_threadno = 0;

LoggerImpl& LoggerImpl::Instance()
{
    // Never destroyed: destructors of statics and threads that outlive main log to the last.
    static LoggerImpl* const impl = Logger::logger_ = new LoggerImpl;
    return *impl;
}

LoggerImpl::LoggerImpl()
{
    for (topic_row const& row : topic_table)
        topic_names_[std::countr_zero(row.value)] = row.name;
}

void LoggerImpl::SetLogging(topic_t topic, safestring const& name, level_t level)
{
    Guard const lock(mutex_);
    if (topic == topic_all) {
        levels_.clear();
        custom_levels_.clear();
        levels_[key_all] = level;
    } else if (topic == topic_custom) {
        custom_levels_[name] = level;
    } else {
        levels_[topic] = level;
    }
    // Settled: all custom topics share their bits. Switching one off switches off the test that
    // the call sites of all others make.
    if (level > 0)
        Logger::logmask_.fetch_or(topic, std::memory_order_relaxed);
    else
        Logger::logmask_.fetch_and(~topic, std::memory_order_relaxed);

    // What call sites test without a lock follows the levels, which the lock guards: a stale value
    // costs a look-up or a line near the change, nothing more.
    level_t const highest = GetMaxLoggedLevel();
    Logger::max_logged_level_.store(highest, std::memory_order_relaxed);
    // The base library calls back only while some level is on: its messages cost nothing else.
    if (level > 0)
        SetLoggerCallbackBase(&bridge_);
    if (highest == 0)
        SetLoggerCallbackBase(nullptr);
    SetLoggerFilter(highest == 0 ? 0 : ~LogBase::subsys_t(0), highest);
}

level_t LoggerImpl::GetLogging(topic_t topic, safestring const& name) const
{
    Guard const lock(mutex_);
    return LevelOf_lk(topic, name);
}

level_t LoggerImpl::GetMaxLoggedLevel() const
{
    Guard const lock(mutex_);
    level_t highest = 0;
    for (auto const& [topic, level] : levels_)
        highest = std::max(highest, level);
    for (auto const& [name, level] : custom_levels_)
        highest = std::max(highest, level);
    return highest;
}

safestring const& LoggerImpl::TopicName(topic_t topic) const
{
    if (!std::has_single_bit(topic)) // a set of topics, or custom ones, which share several bits
        return custom_name_;
    safestring const& name = topic_names_[std::countr_zero(topic)];
    return name.empty() ? custom_name_ : name;
}

level_t LoggerImpl::LevelOf_lk(topic_t topic, safestring const& name) const
{
    if (topic == topic_custom) {
        if (auto const own = custom_levels_.find(name); own != custom_levels_.end())
            return own->second;
    } else if (auto const own = levels_.find(topic); own != levels_.end()) {
        return own->second;
    }
    auto const all = levels_.find(key_all);
    return all != levels_.end() ? all->second : 0;
}

void LoggerImpl::Log(topic_t topic, safestring const& name, safestring const& subtopic,
                     level_t level, safestring const& message)
{
    // Recursive: sinks are called with it held, and may log. The lines of all threads so reach the
    // file and the sinks in one order.
    boost::unique_lock<boost::recursive_mutex> lock(mutex_);
    if (level > LevelOf_lk(topic, name) || sink_depth_ > max_sink_depth ||
        !PassesRules_lk(name, subtopic, message))
        return;
    if (!current_thread) {
        lock.unlock(); // a new thread is logged, by a line of its own before this one
        CurrentThread();
        lock.lock();
    }
    // A copy, short as a rule: a sink may rename the thread while the line is on its way.
    safestring const thread_name = current_thread->Shown();
    LogFields const fields{name,        subtopic,
                           level,       message,
                           thread_name, current_thread->number,
                           session_id_, file_ ? std::time(nullptr) : 0};
    WriteToFile_lk(fields);
    CallSinks_lk(fields);
    if (topic == topic_custom)
        known_topics_.insert(name);
}

bool rule_t::Matches(safestring const& line_topic, safestring const& line_subtopic,
                     safestring const& message) const
{
    return (topic == "all" || line_topic == "all" || WildCardMatch(line_topic, topic)) &&
           WildCardMatch(line_subtopic, subtopic) && WildCardMatch(message, pattern);
}

bool LoggerImpl::PassesRules_lk(safestring const& topic, safestring const& subtopic,
                                safestring const& message) const
{
    bool passes = true;
    for (rule_t const& rule : rules_) {
        if (!rule.Matches(topic, subtopic, message))
            continue;
        if (rule.enabling)
            return true;
        passes = false; // goes on: an enabling rule wins, wherever it comes
    }
    return passes;
}

void LoggerImpl::WriteToFile_lk(LogFields const& fields)
{
    if (!file_)
        return;
    if (format_.Text().empty())
        format_ = LogFormat(default_format);
    format_.Format(fields, line_);
    line_.resize(std::strlen(line_.c_str())); // a line is a C text: it ends at a NUL
    line_ += '\n';
    // One buffer, one flush: the line reaches the system in one piece.
    std::size_t const written = std::fwrite(line_.data(), 1, line_.size(), file_);
    if (std::fflush(file_) != 0 || written != line_.size())
        std::fputs("Error while writing to log file.\n", stderr);
}

void LoggerImpl::CallSinks_lk(LogFields const& fields)
{
    if (sinks_.empty())
        return;
    // Over a copy, as sinks add and remove sinks; on the stack, as nearly all programs have a few.
    DepthGuard const deeper(sink_depth_);
    boost::container::small_vector<LogSink*, 8> const sinks(sinks_.begin(), sinks_.end());
    for (LogSink* sink : sinks) {
        if (!sinks_.contains(sink)) // another sink has just removed it
            continue;
        try {
            sink->Log(fields.topic, fields.subtopic, fields.level, fields.message,
                      fields.threadname);
        } catch (abi::__forced_unwind const&) {
            throw;
        } catch (...) {
            std::fprintf(stderr, "Exception while logging to log sink %p\n",
                         static_cast<void*>(sink));
        }
    }
}

void LoggerImpl::AddRule(bool enabling, safestring const& topic, safestring const& subtopic,
                         safestring pattern)
{
    // A pattern matches anywhere in the message; stars at its ends make it one of WildCardMatch.
    if (pattern.empty() || pattern.front() != '*')
        pattern.insert(0, 1, '*');
    if (pattern.back() != '*')
        pattern += '*';
    Guard const lock(mutex_);
    rules_.push_back({topic, subtopic, pattern, enabling});
}

void LoggerImpl::ClearRules()
{
    Guard const lock(mutex_);
    rules_.clear();
}

void LoggerImpl::CloseFile_lk()
{
    std::FILE* const file = file_;
    file_ = nullptr;
    if (file && file != stdout && file != stderr && std::fclose(file) != 0)
        std::fputs("Error while closing log file.\n", stderr);
}

void LoggerImpl::SetLogFile(safestring const& name, safestring const& format)
{
    Guard const lock(mutex_);
    // The former file is closed even if the new one can't be opened: its owner may move it away.
    CloseFile_lk();
    file_name_ = name;
    format_ = LogFormat(format);
    if (name == "stdout")
        file_ = stdout;
    else if (name == "stderr")
        file_ = stderr;
    else if (!name.empty() && !(file_ = std::fopen(name.c_str(), "ae")))
        Raise(err_state, "Cannot open log file for appending: %s: %s", name, std::strerror(errno));
}

void LoggerImpl::AddLogSink(LogSink& sink)
{
    Guard const lock(mutex_);
    sinks_.insert(&sink);
}

void LoggerImpl::RemoveLogSink(LogSink& sink)
{
    Guard const lock(mutex_);
    sinks_.erase(&sink);
}

threadinfo_struc& LoggerImpl::Thread(unsigned int id)
{
    threadinfo_struc* info = nullptr;
    {
        Guard const lock(mutex_);
        if (auto const known = threads_.find(id); known != threads_.end())
            return known->second;
        threadinfo_struc const fresh{id, s_next_threadno + 1, safestring(), Text("%u", id)};
        info = &threads_.emplace(id, fresh).first->second;
        ++s_next_threadno;
    }
    // The number is stored: the line below comes back here, and the lock is free for its sinks.
    if (Logger::Enabled(topic_thread, 5))
        Logger::Log(
            topic_thread, "init", 5,
            Text("Assigning thread number {%d} for thread_id=%s", info->number, info->id_text));
    return *info;
}

threadinfo_struc& LoggerImpl::CurrentThread()
{
    if (!current_thread)
        current_thread = &Thread(GetCurrentThreadId());
    return *current_thread;
}

int LoggerImpl::GetThreadNo(unsigned int id)
{
    return (id == GetCurrentThreadId() ? CurrentThread() : Thread(id)).number;
}

void LoggerImpl::SetThreadName(unsigned int id, safestring const& name)
{
    threadinfo_struc& info = Thread(id);
    {
        Guard const lock(mutex_);
        info.name = name;
    }
    if (Logger::Enabled(topic_thread, 5))
        Logger::Log(
            topic_thread, "init", 5,
            Text("Naming thread {%d} (thread_id=%s) as: %s", info.number, info.id_text, name));
}

safestring LoggerImpl::GetCurrentThreadName()
{
    threadinfo_struc const& info = CurrentThread();
    Guard const lock(mutex_);
    return info.Shown();
}

void LoggerImpl::SetVelSessionId(int id)
{
    Guard const lock(mutex_);
    session_id_ = id;
}

int LoggerImpl::GetVelSessionId() const
{
    Guard const lock(mutex_);
    return session_id_;
}

void TarnwickLogger::Log(subsys_t subsys, int level, safestring const& message)
{
    safestring subtopic = "tarnwick";
    if (subsys == 4)
        subtopic = "memory";
    else if (subsys == 8)
        subtopic = "exception";
    else if (subsys == 1 || subsys == 2) // the message begins with the word for it
        subtopic = message.substr(0, message.find_first_of(" \t,:;()[]{}<>"));
    Logger::Log(topic_morvane, subtopic, level, message);
}

} // namespace NKelmic
