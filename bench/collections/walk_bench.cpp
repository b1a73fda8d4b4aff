// One script read, table.a.@mean with its mean in the cache, as a whole and step by step, against
// one look-up in a map with the same comparison of names.

#include <memblock/collections/container.h>
#include <memblock/collections/table.h>

#include <benchmark/benchmark.h>
#include <map>

using namespace NKelmic;

namespace {

constexpr char const* names[] = {"image", "mask",  "labels", "table", "zones",
                                 "speed", "angle", "note",   "first", "last"};

/// A container of ten items; "table" holds a table of five columns.
PMemBlock World()
{
    auto const column = [] { return Vector::Create(1000, DataTypeBase::Double, true, 1, 1.0); };
    auto const table =
        Table::Create("x", column(), "y", column(), "a", column(), "b", column(), "area", column());
    auto const world = Container::Create();
    for (char const* name : names)
        world->Insert(name, DataItem(1));
    world->Put(DataItem(table), "table");
    return world;
}

void OneMapLookUp(benchmark::State& state)
{
    std::map<safestring, DataItem> map;
    for (char const* name : names)
        map.emplace(name, DataItem(1));
    safestring const key = "table";
    for (auto _ : state)
        benchmark::DoNotOptimize(map.find(key));
}
BENCHMARK(OneMapLookUp);

void WholePath(benchmark::State& state)
{
    PMemBlock const world = World();
    safestring const path = "table.a.@mean";
    for (auto _ : state)
        benchmark::DoNotOptimize(world->GetSubItem(path, throw_always));
}
BENCHMARK(WholePath);

void Step(benchmark::State& state, char const* place, char const* name)
{
    PMemBlock const world = World();
    PMemBlock const object =
        *place ? world->GetSubItemMemBlock(place, throw_always, nullptr) : world;
    safestring const key = name;
    for (auto _ : state)
        benchmark::DoNotOptimize(object->ResolveSubItem(key, throw_always));
}
BENCHMARK_CAPTURE(Step, Container_table, "", "table");
BENCHMARK_CAPTURE(Step, Table_a, "table", "a");
BENCHMARK_CAPTURE(Step, Vector_mean, "table.a", "@mean");

} // namespace
