#ifndef MEMBLOCK_LOGGING_LOGGER_H
#define MEMBLOCK_LOGGING_LOGGER_H

#include <memblock/base/safestring.h>

#include <atomic>

namespace NKelmic {
using namespace Ntarnwick;

class LoggerImpl;

/// A topic has one bit; its name is the enumerator's behind "topic_". "all" names topic_all, every
/// name outside of the table names topic_custom, and such topics differ by their text.
typedef unsigned long long topic_t;

/// 0 is off, levels in use are 1 to 9, higher is more detail: 2 errors and performance warnings,
/// 3 anomalies, 5 configuration events, 6 thread life, 7 tasks, 8 wait loops.
typedef int level_t;

enum : unsigned long long {
    topic_wormhole = 0x1,
    topic_thread = 0x4,
    topic_file = 0x8,
    topic_module = 0x10,
    topic_run = 0x20,
    topic_http = 0x40,
    topic_vel = 0x80,
    topic_htmlview = 0x100,
    topic_conv = 0x200,
    topic_backcompatibility = 0x400,
    topic_databundle = 0x800,
    topic_debugger = 0x2000,
    topic_parsing = 0x4000,
    topic_cache = 0x8000,
    topic_morvane = 0x10000,
    topic_online_help = 0x20000,
    topic_gui = 0x40000,
    topic_external = 0x80000,
    topic_input = 0x100000,
    topic_call = 0x200000,
    topic_all = 0xFFFFFFFFULL,
    topic_custom = 0xFFFFFFFF80000000ULL
};

/// Gets every line that passes levels and rules.
///
/// It is called under the logger's lock: it must not wait for a thread that may log. What it
/// throws is reported on standard error, and the other sinks still get the line. It may log itself,
/// but its lines, and those that they lead to, go no deeper than 8 levels; what is deeper is lost.
class MEMBLOCK_API LogSink {
public:
    virtual void Log(safestring const& topic, safestring const& subtopic, level_t level,
                     safestring const& message, safestring const& threadname) = 0;

protected:
    ~LogSink() = default;
};

/// The process-wide log: a level for each topic, rules with wildcards, one log file and sinks.
///
/// It can be used at any time, from static constructors and destructors and from threads that
/// outlive main. A call site tests before it builds its text:
///
///     if (Logger::Enabled(topic_cache, 8))
///         Logger::Log(topic_cache, "utf8", 8, Text("Building ... of %d characters", n));
class MEMBLOCK_API Logger {
public:
    static std::atomic<topic_t> logmask_;      ///< the bits of the topics that have a level
    static std::atomic<int> max_logged_level_; ///< the highest level of any topic
    static LoggerImpl* logger_;                ///< made at load or at first use, never destroyed

    /// Return whether a line may be wanted: two plain loads and tests. A stale answer costs a line
    /// at most, as `Log` looks again.
    static bool Enabled(topic_t topic, level_t level)
    {
        return (logmask_.load(std::memory_order_relaxed) & topic) != 0 &&
               max_logged_level_.load(std::memory_order_relaxed) >= level;
    }

    /// Set the level of a topic. "all" forgets every other level and holds for all topics that get
    /// no level of their own afterwards, be it 0. Switching one custom topic off lowers the test
    /// bits of all of them.
    static void SetLogging(safestring const& topic, level_t level);
    static level_t GetLogging(safestring const& topic);
    static level_t GetLogging(topic_t topic);

    /// Write a line if the topic's level and the rules let it pass. Never throws; nothing is
    /// allocated for a line that the level holds back.
    static void Log(safestring const& topic, safestring const& subtopic, level_t level,
                    safestring const& message);
    static void Log(topic_t topic, safestring const& subtopic, level_t level,
                    safestring const& message);

    /// Add a rule: texts with `*` for any run of characters, letter case ignored; topic "all"
    /// means every topic. The pattern matches anywhere in the message, an empty one always.
    ///
    /// A line is held back if a disabling rule matches and no enabling one does, in whatever order
    /// they were added. Enabling rules alone hold nothing back.
    static void AddEnablingRule(safestring const& topic, safestring const& subtopic,
                                safestring const& pattern);
    static void AddDisablingRule(safestring const& topic, safestring const& subtopic,
                                 safestring const& pattern);
    static void ClearRules();

    /// Select the log file: "stdout", "stderr", none by an empty name, or a file to append to.
    /// Each line is flushed. The format is that of `FormatLogMessage`; an empty one means
    /// "%d %t %l {%i/%a} [%h/%s] %m".
    /// Throws: err_state "Cannot open log file for appending: %s: %s"; there is no log file then.
    static void SetLogFile(safestring const& name, safestring const& format);

    static void AddLogSink(LogSink& sink);
    static void RemoveLogSink(LogSink& sink);

    /// Name a thread by its id (`GetCurrentThreadId`). A thread without a name shows as its id in
    /// decimal; threads are numbered from 1 as the logger meets them.
    static void SetThreadName(unsigned int id, safestring const& name);
    static safestring GetCurrentThreadName();
    static int GetCurrentThreadNo();

    static void SetVelSessionId(int id); ///< what %a prints
    static int GetVelSessionId();

    static topic_t String2Topic(safestring const& text);
    static safestring Topic2String(topic_t topic); ///< "custom" for all but the named single bits

    /// An XML text with levels, rules, log file, sinks and the custom topics seen so far.
    static safestring GetLoggerStatus();
};

/// Match text `a` against pattern `b`, where `*` matches any run of characters, also an empty
/// one. Letter case is ignored. O(length of a times length of b) at worst, without recursion.
MEMBLOCK_API bool WildCardMatch(safestring const& a, safestring const& b);
/// The same from position `apos` of the text and `bpos` of the pattern on.
MEMBLOCK_API bool WildCardMatch(safestring const& a, unsigned long apos, safestring const& b,
                                unsigned long bpos);

/// Put `value` in the place of each `%` followed by `c`, in either case. What is put in is not
/// looked at again.
MEMBLOCK_API void ReplaceWildCard(char c, safestring const& value, safestring& text);

/// Append a blank, the name and the value with its XML entities in quotes.
MEMBLOCK_API void AddXmlAttr(char const* name, safestring const& value, safestring& output);

namespace NLogger {
/// Turn each carriage return and line feed into a blank.
MEMBLOCK_API void RemoveLineBreaks(safestring& text);
} // namespace NLogger

/// Build a log line from a format, as of now:
///
///     %d date   %t time   %n topic/subtopic   %p process   %a session   %i thread number
///     %r thread name   %l level   %s subtopic   %h topic   %% percent
///     %m message in one line   %M message quoted
///
/// Letter case counts only for %m. The placeholders are replaced one after the other, in the order
/// d t n p a i r m l s h: a text that was put in and holds a later placeholder which the format
/// names too is replaced in its turn, and "%%" in it becomes "%". Callers rest on it.
MEMBLOCK_API void FormatLogMessage(safestring const& format, safestring const& topic,
                                   safestring const& subtopic, level_t level,
                                   safestring const& message, safestring const& threadname,
                                   int threadno, int sessionid, safestring& output);
} // namespace NKelmic

#endif // MEMBLOCK_LOGGING_LOGGER_H
