#include <memblock/core/threadalloc.h>

#include <benchmark/benchmark.h>

#include <cstdlib>

using namespace NKelmic;

namespace {

/// Take and give back so many blocks of 32 bytes, the last one first.
template <int depth, class Take, class Give>
void Stack(benchmark::State& state, Take take, Give give)
{
    void* blocks[depth];
    for (auto _ : state) {
        for (void*& block : blocks)
            benchmark::DoNotOptimize(block = take(32));
        for (int i = depth; i-- > 0;)
            give(blocks[i]);
    }
    state.SetItemsProcessed(state.iterations() * depth);
}

template <int depth>
void ThreadBound(benchmark::State& state)
{
    Stack<depth>(state, SingleThreadAlloced::Alloc, SingleThreadAlloced::Free);
}
BENCHMARK(ThreadBound<1>);
BENCHMARK(ThreadBound<8>);
BENCHMARK(ThreadBound<64>);

template <int depth>
void Malloc(benchmark::State& state)
{
    Stack<depth>(state, std::malloc, std::free);
}
BENCHMARK(Malloc<1>);
BENCHMARK(Malloc<8>);
BENCHMARK(Malloc<64>);

} // namespace
