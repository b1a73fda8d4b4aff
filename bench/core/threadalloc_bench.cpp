#include <memblock/core/threadalloc.h>

#include <benchmark/benchmark.h>

#include <cstdlib>

using namespace NKelmic;

namespace {

/// Take and give back eight blocks of 32 bytes, the last one first.
template <class Take, class Give>
void Stack(benchmark::State& state, Take take, Give give)
{
    constexpr int depth = 8;
    void* blocks[depth];
    for (auto _ : state) {
        for (void*& block : blocks)
            benchmark::DoNotOptimize(block = take(32));
        for (int i = depth; i-- > 0;)
            give(blocks[i]);
    }
    state.SetItemsProcessed(state.iterations() * depth);
}

void ThreadBound(benchmark::State& state)
{
    Stack(state, SingleThreadAlloced::Alloc, SingleThreadAlloced::Free);
}
BENCHMARK(ThreadBound);

void Malloc(benchmark::State& state)
{
    Stack(state, std::malloc, std::free);
}
BENCHMARK(Malloc);

} // namespace
