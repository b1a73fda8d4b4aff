#include <memblock/core/dataitem.h>
#include <memblock/core/typedchunk.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <string>
#include <vector>

using namespace NKelmic;

namespace {

// One atomic add and one subtraction: what a copy and a drop come down to.
void AtomicAddAndSub(benchmark::State& state)
{
    std::atomic<unsigned long> count = 1;
    for (auto _ : state) {
        benchmark::DoNotOptimize(count.fetch_add(1, std::memory_order_relaxed));
        benchmark::DoNotOptimize(count.fetch_sub(1, std::memory_order_acq_rel));
    }
}
BENCHMARK(AtomicAddAndSub);

void MemChunkCopyAndDrop(benchmark::State& state)
{
    MemChunk const chunk(64);
    for (auto _ : state) {
        MemChunk copy(chunk);
        benchmark::DoNotOptimize(&copy);
    }
}
BENCHMARK(MemChunkCopyAndDrop);

void TypedChunkCopyAndDrop(benchmark::State& state)
{
    TypedChunk const chunk(16, DataTypeBase::Int, MemChunk(64), 0);
    for (auto _ : state) {
        TypedChunk copy(chunk);
        benchmark::DoNotOptimize(&copy);
    }
}
BENCHMARK(TypedChunkCopyAndDrop);

// Appending one by one: the time of an element may not depend on the length.
void Append(benchmark::State& state, DataType type)
{
    auto const length = static_cast<unsigned long>(state.range(0));
    for (auto _ : state) {
        TypedChunk chunk(0, type, MemChunk(), 0);
        for (unsigned long n = 1; n <= length; ++n)
            chunk.ResizeVector(n, true, true);
        benchmark::DoNotOptimize(chunk.Data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(Append, ints, DataTypeBase::Int)->Arg(100'000)->Arg(10'000'000);
BENCHMARK_CAPTURE(Append, texts, DataTypeBase::String)->Arg(100'000)->Arg(10'000'000);
BENCHMARK_CAPTURE(Append, objects, DataTypeBase::PMemory)->Arg(100'000)->Arg(10'000'000);
BENCHMARK_CAPTURE(Append, items, DataTypeBase::PolyType)->Arg(100'000)->Arg(10'000'000);

template <class T>
void PushBack(benchmark::State& state)
{
    for (auto _ : state) {
        std::vector<T> v;
        for (long n = 0; n < state.range(0); ++n)
            v.emplace_back();
        benchmark::DoNotOptimize(v.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_TEMPLATE(PushBack, int)->Arg(100'000)->Arg(10'000'000);
BENCHMARK_TEMPLATE(PushBack, std::string)->Arg(100'000)->Arg(10'000'000);

} // namespace
