// Copies of small values, against std::variant<int, double, std::string>. Each round copies a
// block of items into raw memory and destroys the copies: what containers and caches do.

#include <memblock/core/dataitem.h>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <string>
#include <variant>
#include <vector>

using NKelmic::DataItem;

namespace {

typedef std::variant<int, double, std::string> Variant;
constexpr std::size_t block = 256;

std::string const text15(15, 'x');
std::string const text20(20, 'x');
std::string const text40(40, 'x');

template <class Item>
Item Made(int v)
{
    return Item(v);
}
template <class Item>
Item Made(double v)
{
    return Item(v);
}
template <class Item>
Item Made(std::string const& v)
{
    if constexpr (std::is_same_v<Item, DataItem>)
        return DataItem(v.c_str());
    else
        return Item(v);
}

template <class Item, class Value>
void CopyAndDrop(benchmark::State& state, Value const& value)
{
    std::vector<Item> const source(block, Made<Item>(value));
    std::allocator<Item> raw;
    Item* const copies = raw.allocate(block);
    for (auto _ : state) {
        std::uninitialized_copy(source.begin(), source.end(), copies);
        benchmark::DoNotOptimize(copies);
        benchmark::ClobberMemory();
        std::destroy_n(copies, block);
    }
    raw.deallocate(copies, block);
    state.SetItemsProcessed(static_cast<long>(state.iterations() * block));
}

/// One copy at a time, as results are handed on.
template <class Item, class Value>
void CopyOne(benchmark::State& state, Value const& value)
{
    std::vector<Item> const source(block, Made<Item>(value));
    for (auto _ : state) {
        for (Item const& item : source) {
            Item copy(item);
            benchmark::DoNotOptimize(copy);
        }
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * block));
}

template <class Item, class Value>
void Assign(benchmark::State& state, Value const& value)
{
    std::vector<Item> const source(block, Made<Item>(value));
    std::vector<Item> target(block, Made<Item>(1));
    for (auto _ : state) {
        for (std::size_t i = 0; i < block; ++i)
            target[i] = source[i];
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations() * block));
}

template <class Value>
void Register(std::string const& name, Value const& value)
{
    using benchmark::RegisterBenchmark;
    auto const add = [&](std::string const& title, auto run) {
        RegisterBenchmark((title + "/" + name).c_str(),
                          [run, value](benchmark::State& state) { run(state, value); });
    };
    add("copy/DataItem", CopyAndDrop<DataItem, Value>);
    add("copy/variant", CopyAndDrop<Variant, Value>);
    add("one/DataItem", CopyOne<DataItem, Value>);
    add("one/variant", CopyOne<Variant, Value>);
    add("assign/DataItem", Assign<DataItem, Value>);
    add("assign/variant", Assign<Variant, Value>);
}

} // namespace

int main(int argc, char** argv)
{
    Register("int", 7);
    Register("double", 0.5);
    Register("text15", text15);
    Register("text20", text20);
    Register("text40", text40);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
