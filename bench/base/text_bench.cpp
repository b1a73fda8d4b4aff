// Texts and numbers, beside the C library and fmt.

#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/base/text.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/printf.h>
#include <strings.h>

using namespace Ntarnwick;

namespace {

constexpr char const* line_format = "Setting %s of thread %d to: %u (%s)";

void TextOfALine(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Text(line_format, "worker", 12, 5000u, "by request"));
}
BENCHMARK(TextOfALine);

void SnprintfOfALine(benchmark::State& state)
{
    for (auto _ : state) {
        char text[100];
        std::snprintf(text, sizeof text, line_format, "worker", 12, 5000u, "by request");
        benchmark::DoNotOptimize(std::string(text));
    }
}
BENCHMARK(SnprintfOfALine);

void FmtSprintfOfALine(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(fmt::sprintf(line_format, "worker", 12, 5000u, "by request"));
}
BENCHMARK(FmtSprintfOfALine);

void StrOfDouble(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(str(123.456, 12));
}
BENCHMARK(StrOfDouble);

void SnprintfOfDouble(benchmark::State& state)
{
    for (auto _ : state) {
        char text[40];
        std::snprintf(text, sizeof text, "%.12g", 123.456);
        benchmark::DoNotOptimize(std::string(text));
    }
}
BENCHMARK(SnprintfOfDouble);

void ReadDouble(benchmark::State& state)
{
    safestring const text = "-123.456e2";
    for (auto _ : state)
        benchmark::DoNotOptimize(StrToDouble(text));
}
BENCHMARK(ReadDouble);

void StrtodDouble(benchmark::State& state)
{
    std::string const text = "-123.456e2";
    for (auto _ : state)
        benchmark::DoNotOptimize(std::strtod(text.c_str(), nullptr));
}
BENCHMARK(StrtodDouble);

struct FoldingLess {
    bool operator()(std::string const& a, std::string const& b) const
    {
        return strcasecmp(a.c_str(), b.c_str()) < 0;
    }
};

/// Look up each of some names in a map that ignores case.
template <class Map>
void LookUp(benchmark::State& state)
{
    Map map;
    std::vector<typename Map::key_type> names;
    for (int i = 0; i < state.range(0); ++i) {
        names.push_back(("Column_name_" + std::to_string(i * 7919 % 1000)).c_str());
        map[names.back()] = i;
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(map.find(names[next]));
        next = next + 1 < names.size() ? next + 1 : 0;
    }
}
BENCHMARK(LookUp<std::map<safestring, int>>)->Arg(10)->Arg(1000);
BENCHMARK(LookUp<std::map<std::string, int, FoldingLess>>)->Arg(10)->Arg(1000);

void Base64(benchmark::State& state)
{
    std::vector<unsigned char> const bytes(1 << 20, 0x5A);
    for (auto _ : state)
        benchmark::DoNotOptimize(Encode_base64(bytes.data(), bytes.size()));
    state.SetBytesProcessed(state.iterations() * bytes.size());
}
BENCHMARK(Base64);

void FormatTime(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(FormatLocalTime(1000000000, "%H:%M:%S"));
}
BENCHMARK(FormatTime);

} // namespace

BENCHMARK_MAIN();
