// A log line off, to a sink and to a file, beside two plain loads and beside spdlog.

#include <memblock/base/raise.h>
#include <memblock/logging/logformat_internal.h>
#include <memblock/logging/logger.h>

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <ctime>
#ifdef MEMBLOCK_HAVE_SPDLOG
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

using namespace NKelmic;

namespace {

constexpr char const* log_path = "/tmp/memblock_logger_bench.log";

std::atomic<unsigned long long> plain_mask{0};
std::atomic<int> plain_level{0};

// The work that stands behind the test, so that the test can't be dropped.
[[gnu::noinline]] void Wanted(benchmark::State& state)
{
    state.SkipWithError("the log is off");
}

struct NullSink final : LogSink {
    void Log(safestring const&, safestring const&, level_t, safestring const& message,
             safestring const&) override
    {
        benchmark::DoNotOptimize(message.data());
    }
};

void Silence()
{
    Logger::SetLogFile("", "");
    Logger::SetLogging("all", 0);
}

void OffPlainLoads(benchmark::State& state)
{
    for (auto _ : state) {
        if ((plain_mask.load(std::memory_order_relaxed) & 0x20) != 0 &&
            plain_level.load(std::memory_order_relaxed) >= 5)
            Wanted(state);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(OffPlainLoads);

void OffLogger(benchmark::State& state)
{
    Silence();
    for (auto _ : state) {
        if (Logger::Enabled(topic_run, 5))
            Wanted(state);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(OffLogger);

// The mask lets the topic pass, the level doesn't: both tests are made.
void OnMaskPlainLoads(benchmark::State& state)
{
    plain_mask = 0x20;
    OffPlainLoads(state);
    plain_mask = 0;
}
BENCHMARK(OnMaskPlainLoads);

void OnMaskLogger(benchmark::State& state)
{
    Silence();
    Logger::SetLogging("run", 4);
    for (auto _ : state) {
        if (Logger::Enabled(topic_run, 5))
            Wanted(state);
        benchmark::ClobberMemory();
    }
    Silence();
}
BENCHMARK(OnMaskLogger);

void NullSinkLogger(benchmark::State& state)
{
    Silence();
    Logger::SetLogging("run", 5);
    NullSink sink;
    Logger::AddLogSink(sink);
    int n = 0;
    for (auto _ : state)
        if (Logger::Enabled(topic_run, 5))
            Logger::Log(topic_run, "bench", 5, Text("line number %d of the run", ++n));
    Logger::RemoveLogSink(sink);
    Silence();
}
BENCHMARK(NullSinkLogger);

// Sinks get the parts of a line; what formats a line is the log file. /dev/null still costs a
// write, so this times the formatting by itself.
void FormattedLogger(benchmark::State& state)
{
    LogFormat format("%d %t %l {%i/%a} [%h/%s] %m");
    safestring const topic = "run", subtopic = "bench", thread = "main";
    safestring line;
    int n = 0;
    for (auto _ : state) {
        safestring const message = Text("line number %d of the run", ++n);
        format.Format({topic, subtopic, 5, message, thread, 1, 0, std::time(nullptr)}, line);
        benchmark::DoNotOptimize(line.data());
    }
}
BENCHMARK(FormattedLogger);

void FormattedByReplacement(benchmark::State& state)
{
    safestring line;
    int n = 0;
    for (auto _ : state) {
        FormatLogMessage("%d %t %l {%i/%a} [%h/%s] %m", "run", "bench", 5,
                         Text("line number %d of the run", ++n), "main", 1, 0, line);
        benchmark::DoNotOptimize(line.data());
    }
}
BENCHMARK(FormattedByReplacement);

void FileLogger(benchmark::State& state)
{
    Silence();
    Logger::SetLogging("run", 5);
    std::remove(log_path);
    Logger::SetLogFile(log_path, "");
    int n = 0;
    for (auto _ : state)
        if (Logger::Enabled(topic_run, 5))
            Logger::Log(topic_run, "bench", 5, Text("line number %d of the run", ++n));
    Silence();
    std::remove(log_path);
}
BENCHMARK(FileLogger);

#ifdef MEMBLOCK_HAVE_SPDLOG
// What our default format prints, in the peer's words.
constexpr char const* peer_pattern = "%Y-%m-%d %H:%M:%S %l {%t/%P} [%n] %v";

/// Formats and drops: the peer's own null sink doesn't format.
struct FormattedNullSink final : spdlog::sinks::base_sink<std::mutex> {
    void sink_it_(spdlog::details::log_msg const& message) override
    {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        benchmark::DoNotOptimize(line.data());
    }
    void flush_() override {}
};

void OffSpdlog(benchmark::State& state)
{
    spdlog::logger peer("run", std::make_shared<FormattedNullSink>());
    peer.set_level(spdlog::level::off);
    for (auto _ : state) {
        if (peer.should_log(spdlog::level::debug))
            Wanted(state);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(OffSpdlog);

void NullSinkSpdlogFormatted(benchmark::State& state)
{
    spdlog::logger peer("run", std::make_shared<FormattedNullSink>());
    peer.set_pattern(peer_pattern);
    int n = 0;
    for (auto _ : state)
        peer.info("line number {} of the run", ++n);
}
BENCHMARK(NullSinkSpdlogFormatted);

void FileSpdlog(benchmark::State& state)
{
    std::remove(log_path);
    spdlog::logger peer("run", std::make_shared<spdlog::sinks::basic_file_sink_mt>(log_path));
    peer.set_pattern(peer_pattern);
    peer.flush_on(spdlog::level::trace);
    int n = 0;
    for (auto _ : state)
        peer.info("line number {} of the run", ++n);
    std::remove(log_path);
}
BENCHMARK(FileSpdlog);
#endif

} // namespace
