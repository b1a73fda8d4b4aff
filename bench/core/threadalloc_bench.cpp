#include <memblock/core/threadalloc.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

using namespace NKelmic;

namespace {

/// Take and give back a number of small blocks, the last one first: of one size, or of many.
template <class Take, class Give>
void Stack(benchmark::State& state, Take take, Give give)
{
    long const depth = state.range(0);
    unsigned long const step = state.range(1) ? 24 : 0;
    std::vector<void*> blocks(static_cast<unsigned long>(depth));
    benchmark::DoNotOptimize(blocks.data());
    for (auto _ : state) {
        unsigned long size = 32;
        for (void*& block : blocks) {
            block = take(size);
            benchmark::ClobberMemory();
            size = (size + step) % 256;
        }
        for (auto block = blocks.rbegin(); block != blocks.rend(); ++block)
            give(*block);
    }
    state.SetItemsProcessed(state.iterations() * depth);
}

void Depths(benchmark::internal::Benchmark* b)
{
    for (int mixed : {0, 1})
        for (int depth : {1, 8, 64, 1000})
            b->Args({depth, mixed});
}

void ThreadBound(benchmark::State& state)
{
    Stack(state, SingleThreadAlloced::Alloc, SingleThreadAlloced::Free);
}
BENCHMARK(ThreadBound)->Apply(Depths);

void Malloc(benchmark::State& state)
{
    Stack(state, std::malloc, std::free);
}
BENCHMARK(Malloc)->Apply(Depths);

} // namespace
