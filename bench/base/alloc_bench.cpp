// What a large block costs: made, written, dropped, again and again. Peers are the C library's
// malloc and a fresh mapping, so the ratio can be read off one run.

#include <memblock/base/alloc.h>

#include <cstdlib>
#include <cstring>

#include <benchmark/benchmark.h>

using namespace Ntarnwick;

namespace {

struct Library {
    static void* Make(std::size_t size) { return mb_malloc(size); }
    static void Drop(void* block) { mb_free(block); }
};

struct LibraryZeroed {
    static void* Make(std::size_t size) { return mb_calloc(size, 1); }
    static void Drop(void* block) { mb_free(block); }
};

struct Malloc {
    static void* Make(std::size_t size) { return std::malloc(size); }
    static void Drop(void* block) { std::free(block); }
};

struct MallocZeroed {
    static void* Make(std::size_t size) { return std::calloc(size, 1); }
    static void Drop(void* block) { std::free(block); }
};

template <class Source>
void MakeWriteDrop(benchmark::State& state)
{
    std::size_t const size = state.range(0);
    for (auto _ : state) {
        void* const block = Source::Make(size);
        std::memset(block, 1, size);
        benchmark::DoNotOptimize(block);
        benchmark::ClobberMemory();
        Source::Drop(block);
    }
    state.SetBytesProcessed(state.iterations() * size);
}

template <class Source>
void Small(benchmark::State& state)
{
    for (auto _ : state) {
        void* const block = Source::Make(state.range(0));
        benchmark::DoNotOptimize(block);
        Source::Drop(block);
    }
}

/// A block that grows by halves, as appending one by one makes it.
template <void* (*Realloc)(void*, std::size_t), void (*Free)(void*)>
void Grow(benchmark::State& state)
{
    std::size_t const end = state.range(0);
    for (auto _ : state) {
        void* block = nullptr;
        std::size_t old = 0;
        for (std::size_t size = 4096; size < end; size += size / 2) {
            block = Realloc(block, size);
            std::memset(static_cast<char*>(block) + old, 1, size - old);
            old = size;
        }
        benchmark::ClobberMemory();
        Free(block);
    }
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    for (long mib : {1, 2, 3, 8, 64, 200, 300}) // the last is not kept
        bench->Arg(mib << 20);
}

} // namespace

BENCHMARK(MakeWriteDrop<Malloc>)->Apply(Sizes);
BENCHMARK(MakeWriteDrop<Library>)->Apply(Sizes);
BENCHMARK(MakeWriteDrop<MallocZeroed>)->Apply(Sizes);
BENCHMARK(MakeWriteDrop<LibraryZeroed>)->Apply(Sizes);
BENCHMARK(Small<Malloc>)->Arg(32)->Arg(1000);
BENCHMARK(Small<Library>)->Arg(32)->Arg(1000);
BENCHMARK(Grow<std::realloc, std::free>)->Arg(256 << 20);
BENCHMARK(Grow<mb_realloc, mb_free>)->Arg(256 << 20);

BENCHMARK_MAIN();
