#include <memblock/logging/logger.h>

#include <memblock/base/log_internal.h>
#include <memblock/base/raise.h>
#include <memblock/threads/mutex.h>

#include <boost/thread/thread.hpp>
#include <functional>
#include <set>

#include "logging/log_fixture.h"
#include "support/failing_alloc.h"
#include "support/raises.h"

using namespace NKelmic;

namespace {

typedef std::vector<std::string> Lines;

/// Calls a function for each line.
struct CallingSink : LogSink {
    explicit CallingSink(std::function<void(safestring const&)> f) : function(std::move(f))
    {
        Logger::AddLogSink(*this);
    }
    ~CallingSink() { Logger::RemoveLogSink(*this); }
    void Log(safestring const&, safestring const&, level_t, safestring const& message,
             safestring const&) override
    {
        function(message);
    }
    std::function<void(safestring const&)> function;
};

template <class Function>
void RunInThread(Function function)
{
    boost::thread(function).join();
}

} // namespace

TEST_F(LoggerTest, TopicsHaveNamesAndBits)
{
    std::pair<char const*, topic_t> const cases[] = {
        {"wormhole", 0x1},     {"thread", 0x4},
        {"file", 0x8},         {"module", 0x10},
        {"run", 0x20},         {"http", 0x40},
        {"vel", 0x80},         {"htmlview", 0x100},
        {"conv", 0x200},       {"backcompatibility", 0x400},
        {"databundle", 0x800}, {"debugger", 0x2000},
        {"parsing", 0x4000},   {"cache", 0x8000},
        {"morvane", 0x10000},  {"online_help", 0x20000},
        {"gui", 0x40000},      {"external", 0x80000},
        {"input", 0x100000},   {"call", 0x200000},
    };
    for (auto [name, value] : cases) {
        EXPECT_EQ(Logger::String2Topic(name), value);
        EXPECT_STREQ(Logger::Topic2String(value).c_str(), name);
    }
    EXPECT_EQ(Logger::String2Topic("GuI"), 0x40000u);
    EXPECT_EQ(Logger::String2Topic("ALL"), 0xFFFFFFFFu);
    EXPECT_EQ(Logger::String2Topic(""), 0xFFFFFFFF80000000u);
    for (topic_t topic : {topic_t(0), topic_t(0x2), topic_t(0x5), topic_t(1) << 63})
        EXPECT_STREQ(Logger::Topic2String(topic).c_str(), "custom");
}

TEST_F(LoggerTest, LevelsOfTopicsOfAllAndOfCustomTopics)
{
    EXPECT_FALSE(Logger::Enabled(topic_gui, 1));
    Logger::SetLogging("gui", 5);
    EXPECT_TRUE(Logger::Enabled(topic_gui, 5));
    EXPECT_FALSE(Logger::Enabled(topic_gui, 6));
    EXPECT_FALSE(Logger::Enabled(topic_cache, 1));

    Logger::SetLogging("My Topic", 7);
    EXPECT_EQ(Logger::max_logged_level_, 7);
    EXPECT_TRUE(Logger::Enabled(topic_custom, 7));
    EXPECT_EQ(Logger::GetLogging("my topic"), 7);
    EXPECT_EQ(Logger::GetLogging("another"), 0);

    Logger::SetLogging("all", 3); // forgets both
    EXPECT_EQ(Logger::GetLogging("gui"), 3);
    EXPECT_EQ(Logger::GetLogging("my topic"), 3);
    EXPECT_EQ(Logger::GetLogging(topic_cache), 3);
    EXPECT_EQ(Logger::max_logged_level_, 3);

    Logger::SetLogging("gui", 0); // off under "all" too
    EXPECT_EQ(Logger::GetLogging(topic_gui), 0);
    EXPECT_FALSE(Logger::Enabled(topic_gui, 1));

    Logger::SetLogging("a", 4);
    Logger::SetLogging("b", 9);
    Logger::SetLogging("b", 0);
    EXPECT_EQ(Logger::GetLogging("a"), 4);
    EXPECT_FALSE(Logger::Enabled(topic_custom, 1)); // all custom topics share their bits
    EXPECT_EQ(Logger::max_logged_level_, 4);
    Logger::SetLogging("all", 0);
    EXPECT_EQ(Logger::max_logged_level_, 0);
    EXPECT_EQ(Logger::logmask_, 0u);
}

TEST_F(LoggerTest, LinesUpToTheLevelReachTheSinks)
{
    KeepingSink sink;
    Logger::SetLogging("gui", 5);
    Logger::SetLogging("mine", 2);
    Logger::Log(topic_gui, "draw", 5, "shown");
    Logger::Log("GUI", "draw", 6, "too high");
    Logger::Log("cache", "draw", 1, "another topic");
    Logger::Log("mine", "draw", 2, "shown");
    Logger::Log("mine", "draw", 3, "too high");
    Logger::Log("yours", "draw", 1, "another custom topic");
    EXPECT_EQ(sink.lines, (Lines{"gui/draw 5 shown", "mine/draw 2 shown"}));
}

TEST_F(LoggerTest, LineThatItsLevelHoldsBackAllocatesNothing)
{
    safestring const topic = "backcompatibility", subtopic = "draw", message(100, 'x');
    for (char const* other : {"all", "cache", "mine"}) { // below all levels, below its own
        Logger::SetLogging("all", 0);
        Logger::SetLogging(other, other[0] == 'a' ? 2 : 8);
        memtest::AllocationCount const count;
        Logger::Enabled(topic_backcompatibility, 3);
        Logger::Log(topic_backcompatibility, subtopic, 3, message);
        Logger::Log(topic_custom, subtopic, 3, message);
        Logger::Log(topic, subtopic, 3, message);
        EXPECT_EQ(count.All(), 0u) << other;
    }
}

TEST_F(LoggerTest, EnablingRulesWinOverDisablingOnesInAnyOrder)
{
    struct Rule {
        bool enabling;
        char const *topic, *subtopic, *pattern;
    };
    Rule const off{false, "gui", "*", "abc"}, on{true, "g*", "draw", "xx*abc"};
    struct {
        std::vector<Rule> rules;
        Lines passing;
    } const cases[] = {
        {{}, {"xxABCyy", "abc", "other"}},
        {{on}, {"xxABCyy", "abc", "other"}},
        {{off}, {"other"}},
        {{off, on}, {"xxABCyy", "other"}},
        {{on, off}, {"xxABCyy", "other"}},
        {{{false, "ALL", "*", ""}, on}, {"xxABCyy"}},
        {{{false, "cache", "*", ""}}, {"xxABCyy", "abc", "other"}},
        {{{false, "gui", "dra", ""}}, {"xxABCyy", "abc", "other"}}, // subtopics stay as given
        {{{false, "gui", "D*W", "*"}}, {}},
    };
    Logger::SetLogging("gui", 5);
    for (auto const& c : cases) {
        SCOPED_TRACE(&c - cases);
        Logger::ClearRules();
        for (Rule const& rule : c.rules)
            (rule.enabling ? Logger::AddEnablingRule
                           : Logger::AddDisablingRule)(rule.topic, rule.subtopic, rule.pattern);
        Lines passed;
        CallingSink const sink([&](safestring const& m) { passed.push_back(m.c_str()); });
        for (char const* message : {"xxABCyy", "abc", "other"})
            Logger::Log(topic_gui, "draw", 1, message);
        EXPECT_EQ(passed, c.passing);
    }
}

TEST_F(LoggerTest, AppendsWholeLinesToTheLogFile)
{
    Logger::SetLogging("gui", 5);
    Logger::SetVelSessionId(12);
    EXPECT_EQ(Logger::GetVelSessionId(), 12);
    Logger::SetLogFile(path_.c_str(), "%l %a [%h/%s] %m");
    Logger::Log(topic_gui, "draw", 5, "one\ntwo");
    EXPECT_EQ(LogFile(), "5 12 [gui/draw] one two\n"); // flushed
    Logger::SetLogFile(path_.c_str(), "%m");
    Logger::Log(topic_gui, "draw", 1, safestring("cut at\0NUL", 10));
    Logger::SetLogFile("", "%m");
    Logger::Log(topic_gui, "draw", 1, "nowhere");
    EXPECT_EQ(LogFile(), "5 12 [gui/draw] one two\ncut at\n");
}

TEST_F(LoggerTest, LogFileThatCannotBeOpenedIsAnErrorAndLeavesNone)
{
    Logger::SetLogging("gui", 5);
    EXPECT_RAISES(Logger::SetLogFile("/no/such/dir/x.log", "%m"), err_state,
                  Text("Cannot open log file for appending: %s: %s", "/no/such/dir/x.log",
                       std::strerror(ENOENT)));
    Logger::Log(topic_gui, "draw", 1, "nowhere");
}

TEST_F(LoggerTest, StandardStreamsAreNamedInAnyCaseAndGetTheDefaultFormat)
{
    Logger::SetLogging("gui", 5);
    int const number = Logger::GetCurrentThreadNo();
    testing::internal::CaptureStderr();
    Logger::SetLogFile("STDERR", "");
    Logger::Log(topic_gui, "draw", 3, "to stderr");
    std::string const line = testing::internal::GetCapturedStderr();
    // date and time take 20 characters
    EXPECT_EQ(line.substr(20), Text("3 {%d/0} [gui/draw] to stderr\n", number).c_str()) << line;
    EXPECT_NE(Logger::GetLoggerStatus().find("<LogFile name=\"STDERR\" format=\"%d %t %l"),
              safestring::npos);

    testing::internal::CaptureStdout();
    Logger::SetLogFile("StdOut", "%m");
    Logger::Log(topic_gui, "draw", 3, "to stdout");
    Logger::SetLogFile("", ""); // must not close it
    std::puts("still open");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "to stdout\nstill open\n");
}

TEST_F(LoggerTest, SinkThatThrowsDoesNotKeepTheLineFromTheOthers)
{
    Logger::SetLogging("gui", 5);
    int calls = 0;
    auto throwing = [&](safestring const&) {
        ++calls;
        throw 1;
    };
    CallingSink const first(throwing), second(throwing);
    KeepingSink kept;
    testing::internal::CaptureStderr();
    Logger::Log(topic_gui, "draw", 1, "for all");
    safestring const expected = "Exception while logging to log sink %p\n";
    std::string const report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(kept.lines.size(), 1u);
    for (CallingSink const* sink : {&first, &second})
        EXPECT_NE(report.find(Text(expected.c_str(), static_cast<void const*>(sink)).c_str()),
                  std::string::npos);
}

TEST_F(LoggerTest, SinkMayRemoveOtherSinksDuringALine)
{
    Logger::SetLogging("gui", 5);
    std::unique_ptr<CallingSink> sinks[2];
    int calls = 0;
    for (auto& sink : sinks)
        sink = std::make_unique<CallingSink>([&](safestring const&) {
            ++calls;
            for (auto& other : sinks)
                if (other)
                    Logger::RemoveLogSink(*other);
        });
    Logger::Log(topic_gui, "draw", 1, "x");
    EXPECT_EQ(calls, 1);
}

TEST_F(LoggerTest, LineKeepsItsThreadNameWhenASinkRenamesTheThread)
{
    struct RenamingSink : LogSink {
        void Log(safestring const&, safestring const&, level_t, safestring const&,
                 safestring const& threadname) override
        {
            Logger::SetThreadName(GetCurrentThreadId(), "after");
            seen = threadname;
        }
        safestring seen;
    } sink;
    Logger::SetLogging("gui", 5);
    RunInThread([&] {
        Logger::SetThreadName(GetCurrentThreadId(), "before");
        Logger::AddLogSink(sink);
        Logger::Log(topic_gui, "draw", 1, "x");
        Logger::RemoveLogSink(sink);
        EXPECT_EQ(Logger::GetCurrentThreadName(), "after");
    });
    EXPECT_EQ(sink.seen, "before");
}

TEST_F(LoggerTest, SinkThatLogsGoesEightLevelsDeep)
{
    Logger::SetLogging("gui", 5);
    Lines lines;
    CallingSink const sink([&](safestring const& message) {
        lines.push_back(message.c_str());
        Logger::Log(topic_gui, "draw", 1, message + "+");
    });
    for (int round = 0; round < 2; ++round) { // and is not shut out for good
        lines.clear();
        Logger::Log(topic_gui, "draw", 1, "");
        ASSERT_EQ(lines.size(), 9u);
        EXPECT_EQ(lines.back(), "++++++++");
    }
}

TEST_F(LoggerTest, StatusTellsLevelsRulesFileSinksAndCustomTopics)
{
    Logger::SetLogging("all", 2);
    Logger::SetLogging("gui", 5);
    Logger::SetLogging("A&B", 3);
    Logger::AddDisablingRule("gui", "*", "abc");
    Logger::AddEnablingRule("all", "", "*<x");
    Logger::SetLogFile(path_.c_str(), "%m");
    KeepingSink sink;
    Logger::Log("A&B", "s", 3, "seen");
    Logger::Log("never seen", "s", 8, "above its level");
    Logger::Log("gui", "s", 5, "of a topic that needs no list");
    safestring const expected =
        Text("<MorvaneLoggerStatus ver=\"1\"><Topic name=\"gui\" level=\"5\"/>\n"
             "<Topic name=\"all\" level=\"2\"/>\n"
             "<Topic name=\"A&amp;B\" level=\"3\"/>\n"
             "<Rule topic=\"gui\" subtopic=\"*\" pattern=\"*abc*\" enabling=\"false\"/>\n"
             "<Rule topic=\"all\" subtopic=\"\" pattern=\"*&lt;x*\" enabling=\"true\"/>\n"
             "<LogFile name=\"%s\" format=\"%%m\"/>\n"
             "<LogSink addr=\"%p\"/>\n",
             path_.c_str(), static_cast<void const*>(static_cast<LogSink*>(&sink)));
    std::string const status = Logger::GetLoggerStatus().c_str();
    auto const known = status.find("<KnownTopic"); // those of other tests are there too
    EXPECT_EQ(status.substr(0, known), expected.c_str());
    EXPECT_NE(status.find("<KnownTopic name=\"A&amp;B\"/>\n", known), std::string::npos);
    EXPECT_EQ(status.find("never seen"), std::string::npos);
    EXPECT_EQ(status.find("gui", known), std::string::npos);
    EXPECT_TRUE(status.ends_with("/>\n</MorvaneLoggerStatus>"));
}

TEST_F(LoggerTest, NewThreadsAreNumberedAndNamed)
{
    KeepingSink sink;
    int const own = Logger::GetCurrentThreadNo();
    Logger::SetLogging("thread", 5);
    Logger::SetLogging("gui", 5);
    unsigned int id = 0;
    int number = 0;
    std::string before;
    RunInThread([&] {
        id = GetCurrentThreadId();
        // An id of an ended thread may come again, with number and name; a fresh one is logged.
        before = Logger::GetCurrentThreadName().c_str();
        Logger::Log(topic_gui, "draw", 1, "first");
        number = Logger::GetCurrentThreadNo();
        Logger::SetThreadName(id, "painter");
        Logger::Log(topic_gui, "draw", 1, "second");
        EXPECT_STREQ(Logger::GetCurrentThreadName().c_str(), "painter");
        Logger::SetThreadName(id, "");
    });
    EXPECT_NE(number, own);
    EXPECT_EQ(Logger::GetCurrentThreadNo(), own);
    Lines expected{
        "gui/draw 1 first",
        Text("thread/init 5 Naming thread {%d} (thread_id=%u) as: painter", number, id).c_str(),
        "gui/draw 1 second",
        Text("thread/init 5 Naming thread {%d} (thread_id=%u) as: ", number, id).c_str()};
    std::string const decimal = std::to_string(id);
    Lines threads{before, "painter", "painter", decimal};
    if (sink.lines.size() == 5) {
        expected.insert(
            expected.begin(),
            Text("thread/init 5 Assigning thread number {%d} for thread_id=%u", number, id)
                .c_str());
        threads.insert(threads.begin(), decimal);
    }
    EXPECT_EQ(sink.lines, expected);
    EXPECT_EQ(sink.threads, threads);
}

TEST_F(LoggerTest, BridgeBringsTheLinesOfTheBaseLibrary)
{
    KeepingSink sink;
    Ntarnwick::Log(4, 1, "logging is off");
    Logger::SetLogging("morvane", 3);
    std::tuple<unsigned, char const*, char const*> const cases[] = {
        {4, "freed", "morvane/memory 3 freed"},
        {8, "thrown", "morvane/exception 3 thrown"},
        {1, "parser: bad", "morvane/parser 3 parser: bad"},
        {2, "word", "morvane/word 3 word"},
        {16, "else", "morvane/tarnwick 3 else"},
    };
    for (auto [subsys, message, line] : cases) {
        sink.lines.clear();
        Ntarnwick::Log(subsys, 3, message);
        EXPECT_EQ(sink.lines, Lines{line});
    }
    sink.lines.clear();
    Ntarnwick::Log(4, 4, "above the highest level");
    Logger::SetLogging("all", 0);
    Ntarnwick::Log(4, 1, "off again");
    EXPECT_TRUE(sink.lines.empty());
}

TEST_F(LoggerTest, LinesOfThreadsComeWholeWhileSettingsChange)
{
    Logger::SetLogging("gui", 5);
    Logger::SetLogFile(path_.c_str(), "<%m %i %r>");
    constexpr int threads = 3, rounds = 300;
    boost::thread_group group;
    for (int t = 0; t < threads; ++t)
        group.create_thread([t] {
            for (int i = 0; i < rounds; ++i)
                if (Logger::Enabled(topic_gui, 5))
                    Logger::Log(topic_gui, "draw", 5, Text("%d.%d", t, i));
        });
    group.create_thread([] {
        for (int i = 0; i < rounds; ++i) {
            KeepingSink const sink; // comes and goes
            Logger::AddDisablingRule("cache", "*", "x");
            Logger::SetLogging("cache", i % 8);
            Logger::SetThreadName(GetCurrentThreadId(), i % 2 ? "settings" : "");
            Logger::GetLoggerStatus();
            Logger::ClearRules();
        }
    });
    group.join_all();
    std::istringstream file(LogFile());
    std::set<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        EXPECT_EQ(line.front(), '<');
        EXPECT_EQ(line.find('>'), line.size() - 1);
        lines.insert(line.substr(0, line.find(' ')));
    }
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(threads * rounds));
}

TEST_F(LoggerTest, StaticDestructorsAndTheirThreadsStillLog)
{
    struct AtExit {
        ~AtExit()
        {
            Logger::Log(topic_gui, "exit", 1, "static destructor");
            RunInThread([] { Logger::Log(topic_gui, "exit", 1, "its thread"); });
        }
    };
    auto log_and_exit = [&] {
        Logger::SetLogging("gui", 5);
        Logger::SetLogFile(path_.c_str(), "%m");
        static AtExit at_exit;
        std::exit(0);
    };
    testing::GTEST_FLAG(death_test_style) = "fast"; // the child shares the file's name
    EXPECT_EXIT(log_and_exit(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(LogFile(), "static destructor\nits thread\n");
}
