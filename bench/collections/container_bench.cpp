// Containers beside a plain std::map with the same names, comparison and values. The counter
// "to_map" is the time of a container's look-up in those of the map, measured in turns.

#include <memblock/collections/container.h>
#include <memblock/serial/serializer.h>
#include <memblock/vector/vector.h>

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <random>
#include <vector>

using namespace NKelmic;

namespace {

std::vector<safestring> Names(long n)
{
    std::vector<safestring> names;
    for (long i = 0; i < n; ++i)
        names.push_back(Text("Item_%d", static_cast<int>(i)));
    std::shuffle(names.begin(), names.end(), std::mt19937(1));
    return names;
}

double Seconds(auto&& work)
{
    auto const start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <class LookUp>
void BesideMap(benchmark::State& state, LookUp&& look_up)
{
    auto const names = Names(state.range(0));
    std::map<safestring, SafeValue> map;
    auto const container = Container::Create();
    for (safestring const& name : names) {
        map[name] = 1;
        container->Put(1, name);
    }
    std::vector<double> ratios;
    auto const rounds = 200000 / names.size();
    for (auto _ : state) {
        double const of_map = Seconds([&] {
            for (std::size_t i = 0; i < rounds; ++i)
                for (safestring const& name : names)
                    benchmark::DoNotOptimize(SafeValue(map.find(name)->second));
        });
        double const of_container = Seconds([&] {
            for (std::size_t i = 0; i < rounds; ++i)
                for (safestring const& name : names)
                    benchmark::DoNotOptimize(look_up(*container, name));
        });
        ratios.push_back(of_container / of_map);
        state.SetIterationTime(of_container / static_cast<double>(rounds * names.size()));
    }
    std::nth_element(ratios.begin(), ratios.begin() + ratios.size() / 2, ratios.end());
    state.counters["to_map"] = ratios[ratios.size() / 2];
}

void LookUpByFind(benchmark::State& state)
{
    BesideMap(state, [](Container const& c, safestring const& name) {
        return SafeValue(c.find(name)->second);
    });
}

void LookUpByGet(benchmark::State& state)
{
    BesideMap(state, [](Container const& c, safestring const& name) { return c.Get(name); });
}

void LookUpByPath(benchmark::State& state)
{
    BesideMap(state, [](Container const& c, safestring const& name) {
        return c.GetSubItem(name, throw_never);
    });
}

BENCHMARK(LookUpByFind)->Arg(10)->Arg(1000)->UseManualTime()->Iterations(50);
BENCHMARK(LookUpByGet)->Arg(10)->Arg(1000)->UseManualTime()->Iterations(50);
BENCHMARK(LookUpByPath)->Arg(10)->Arg(1000)->UseManualTime()->Iterations(50);

template <class Store>
void StoreAll(benchmark::State& state, Store&& store)
{
    auto const names = Names(state.range(0));
    for (auto _ : state) {
        auto const container = Container::Create();
        for (safestring const& name : names)
            store(*container, name);
        benchmark::DoNotOptimize(container->Count());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

void PutAll(benchmark::State& state)
{
    StoreAll(state, [](Container& c, safestring const& name) { c.Put(1, name); });
}

void InsertAllAtTheEnd(benchmark::State& state)
{
    StoreAll(state, [](Container& c, safestring const& name) { c.InsertAt(c.Count(), name, 1); });
}

void WriteAllByPath(benchmark::State& state)
{
    StoreAll(state,
             [](Container& c, safestring const& name) { c.SetSubItem(name, 1, throw_never); });
}

void MapOfAll(benchmark::State& state)
{
    auto const names = Names(state.range(0));
    for (auto _ : state) {
        std::map<safestring, SafeValue> map;
        for (safestring const& name : names)
            map[name] = 1;
        benchmark::DoNotOptimize(map.size());
    }
    state.SetComplexityN(state.range(0));
}

#define MEMBLOCK_GROWTH(NAME)                                                                      \
    BENCHMARK(NAME)                                                                                \
        ->RangeMultiplier(10)                                                                      \
        ->Range(10000, 1000000)                                                                    \
        ->Complexity(benchmark::oNLogN)                                                            \
        ->Unit(benchmark::kMillisecond)
MEMBLOCK_GROWTH(MapOfAll);
MEMBLOCK_GROWTH(PutAll);
MEMBLOCK_GROWTH(InsertAllAtTheEnd);
MEMBLOCK_GROWTH(WriteAllByPath);

/// A thousand containers in a row, each with so many vectors, and one that holds them.
DerivedPointer<Container> Tree(long vectors)
{
    auto const root = Container::Create();
    auto const names = Names(vectors);
    for (safestring const& branch : Names(1000)) {
        auto const container = Container::Create();
        for (safestring const& name : names)
            container->Put(DataItem(Container::Create()), name);
        root->Put(DataItem(container), branch);
    }
    return root;
}

template <class Walk>
void WalkTree(benchmark::State& state, Walk&& walk)
{
    auto const tree = Tree(state.range(0));
    for (auto _ : state)
        walk(*tree);
    state.SetItemsProcessed(state.iterations() * state.range(0) * 1000);
}

void DeepCopy(benchmark::State& state)
{
    WalkTree(state,
             [](Container& tree) { DerivedPointer<Container>(tree.Clone(false))->MakeDeepCopy(); });
}

void MemoryCount(benchmark::State& state)
{
    WalkTree(state, [](Container& tree) { benchmark::DoNotOptimize(tree.CalcMemUsage()); });
}

void Hash(benchmark::State& state)
{
    WalkTree(state, [](Container& tree) {
        tree.ContentHasBeenChanged();
        benchmark::DoNotOptimize(tree.SecondaryItem(MemBlock::key_md5, throw_always));
    });
}

void XmlForm(benchmark::State& state)
{
    WalkTree(state, [](Container& tree) {
        SerializeVisitor visitor;
        Formatter formatter;
        safestring text;
        tree.Serialize(Formatter::ser_xml, visitor, "t", formatter, text);
        benchmark::DoNotOptimize(text.data());
    });
}

BENCHMARK(DeepCopy)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(MemoryCount)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(Hash)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(XmlForm)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

} // namespace
