// What a script's look-up costs: key tables, and a miss that nobody reads. Whole paths: walk_bench.

#include <memblock/core/keytable.h>
#include <memblock/core/memblock.h>
#include <memblock/vector/vector.h>

#include <benchmark/benchmark.h>
#include <map>

using namespace NKelmic;

namespace {

constexpr KeyTable table{std::to_array<KeyName>({
    {"length"},   {"size"},    {"factor"}, {"mean"},      {"stddev"},    {"min"},
    {"max"},      {"minat"},   {"maxat"},  {"sum"},       {"median"},    {"type"},
    {"elemtype"}, {"@length"}, {"@size"},  {"@mean"},     {"@min"},      {"@max"},
    {"first"},    {"last"},    {"data"},   {"_min"},      {"_max"},      {"_mean"},
    {"_sum"},     {"width"},   {"height"}, {"@rowcount"}, {"@rowrange"}, {"@columns"},
})};
safestring const keys[] = {"@Mean", "length", "elemtype", "@rowrange", "missing", "@nothing"};

void FindInTable(benchmark::State& state)
{
    for (auto _ : state)
        for (auto const& key : keys)
            benchmark::DoNotOptimize(table.Find(key));
    state.SetItemsProcessed(static_cast<long>(state.iterations() * std::size(keys)));
}
BENCHMARK(FindInTable);

void FindInMap(benchmark::State& state)
{
    std::map<safestring, int> map;
    for (auto const& row : table)
        map.emplace(row.name, 1);
    for (auto _ : state)
        for (auto const& key : keys)
            benchmark::DoNotOptimize(map.find(key));
    state.SetItemsProcessed(static_cast<long>(state.iterations() * std::size(keys)));
}
BENCHMARK(FindInMap);

void MissThatNobodyReads(benchmark::State& state)
{
    auto const root = Vector::CreateFrom(5);
    bool ok = true;
    CheckOk check(ok);
    safestring const path = "@nothing";
    for (auto _ : state)
        benchmark::DoNotOptimize(root->GetSubItem(path, check));
}
BENCHMARK(MissThatNobodyReads);
} // namespace
