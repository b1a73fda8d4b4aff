#ifndef MEMBLOCK_LOGGING_LOGGERIMPL_INTERNAL_H
#define MEMBLOCK_LOGGING_LOGGERIMPL_INTERNAL_H

#include <memblock/base/logbase.h>
#include <memblock/logging/logformat_internal.h>

#include <array>
#include <boost/thread/recursive_mutex.hpp>
#include <cstdio>
#include <map>
#include <set>
#include <vector>

namespace NKelmic {

struct topic_row {
    char const* name;
    topic_t value;
};
/// The named topics, a bit each.
constexpr topic_row topic_table[] = {
    {"wormhole", topic_wormhole},
    {"thread", topic_thread},
    {"file", topic_file},
    {"module", topic_module},
    {"run", topic_run},
    {"http", topic_http},
    {"vel", topic_vel},
    {"htmlview", topic_htmlview},
    {"conv", topic_conv},
    {"backcompatibility", topic_backcompatibility},
    {"databundle", topic_databundle},
    {"debugger", topic_debugger},
    {"parsing", topic_parsing},
    {"cache", topic_cache},
    {"morvane", topic_morvane},
    {"online_help", topic_online_help},
    {"gui", topic_gui},
    {"external", topic_external},
    {"input", topic_input},
    {"call", topic_call},
};

/// Forwards the base library's own lines.
class TarnwickLogger final : public LogBase {
public:
    void Log(subsys_t subsys, int level, safestring const& message) override;
};

struct rule_t {
    safestring topic, subtopic, pattern;
    bool enabling;

    bool Matches(safestring const& line_topic, safestring const& line_subtopic,
                 safestring const& message) const;
    safestring GetStatus() const;
};

struct threadinfo_struc {
    unsigned int id;
    int number;
    safestring name; // may be empty
    safestring id_text;
    safestring const& Shown() const { return name.empty() ? id_text : name; }
};

/// The state of the logger, all under one recursive mutex that is taken last. Made at first use,
/// never destroyed: static destructors and threads that outlive main may still log.
class LoggerImpl {
public:
    static LoggerImpl& Instance();

    void SetLogging(topic_t topic, safestring const& name, level_t level);
    level_t GetLogging(topic_t topic, safestring const& name) const;
    level_t GetMaxLoggedLevel() const;
    safestring const& TopicName(topic_t topic) const; // made once, lives on

    void Log(topic_t topic, safestring const& name, safestring const& subtopic, level_t level,
             safestring const& message);

    void AddRule(bool enabling, safestring const& topic, safestring const& subtopic,
                 safestring pattern);
    void ClearRules();
    void SetLogFile(safestring const& name, safestring const& format);
    void AddLogSink(LogSink& sink);
    void RemoveLogSink(LogSink& sink);

    int GetThreadNo(unsigned int id);
    void SetThreadName(unsigned int id, safestring const& name);
    safestring GetCurrentThreadName();
    void SetVelSessionId(int id);
    int GetVelSessionId() const;
    safestring GetLoggerStatus() const;

private:
    LoggerImpl();
    threadinfo_struc& Thread(unsigned int id);
    threadinfo_struc& CurrentThread();
    level_t LevelOf_lk(topic_t topic, safestring const& name) const;
    bool PassesRules_lk(safestring const& topic, safestring const& subtopic,
                        safestring const& message) const;
    void WriteToFile_lk(LogFields const& fields);
    void CallSinks_lk(LogFields const& fields);
    void CloseFile_lk();

    mutable boost::recursive_mutex mutex_; // guards all below but topic_names_
    std::FILE* file_ = nullptr;
    LogFormat format_{safestring()};
    safestring file_name_;
    safestring line_; // kept for its storage
    std::set<LogSink*> sinks_;
    int sink_depth_ = 0; // of the calls to sinks under way, all in the thread with the mutex
    std::map<topic_t, level_t> levels_;
    std::map<safestring, level_t> custom_levels_;
    std::set<safestring> known_topics_;
    std::map<unsigned int, threadinfo_struc> threads_; // entries stay
    std::vector<rule_t> rules_;
    int session_id_ = 0;
    TarnwickLogger bridge_;
    std::array<safestring, 64> topic_names_; // by bit
    safestring const custom_name_ = "custom";
    static int s_next_threadno;
};

} // namespace NKelmic

#endif // MEMBLOCK_LOGGING_LOGGERIMPL_INTERNAL_H
