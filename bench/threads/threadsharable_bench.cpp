// What a lock, a shared reference and a weak pointer cost, beside the bare primitives.

#include <memblock/core/dataitem.h>
#include <memblock/threads/mutex.h>
#include <memblock/threads/threadsharable.h>

#include <benchmark/benchmark.h>
#include <boost/thread/recursive_mutex.hpp>
#include <memory>
#include <vector>

using namespace NKelmic;

namespace {

struct Target : ThreadSharable {
    ThreadSharablePointer<ThreadSharable> DoClone() const override { return new Target; }
};

struct Weak : WeakThreadSharablePointerBase {
    explicit Weak(ThreadSharable* target) : WeakThreadSharablePointerBase(target) {}
    ~Weak() { Detach(); }
    void Dispose() override {}
};

void BareRecursiveMutex(benchmark::State& state)
{
    boost::recursive_timed_mutex mutex;
    for (auto _ : state)
        boost::unique_lock<boost::recursive_timed_mutex> const lock(mutex);
}
BENCHMARK(BareRecursiveMutex);

void LockWithRecord(benchmark::State& state)
{
    Mutex mutex;
    for (auto _ : state)
        Lock const lock(mutex, __FILE__, __LINE__);
}
BENCHMARK(LockWithRecord);

void CopyStdSharedPtr(benchmark::State& state)
{
    auto const p = std::make_shared<int>(1);
    for (auto _ : state) {
        auto const copy = p;
        benchmark::DoNotOptimize(copy.get());
    }
}
BENCHMARK(CopyStdSharedPtr);

void CopySharablePointer(benchmark::State& state)
{
    ThreadSharablePointer<Target> const p(new Target);
    for (auto _ : state) {
        auto const copy = p;
        benchmark::DoNotOptimize(copy.Pointer());
    }
}
BENCHMARK(CopySharablePointer);

void LockStdWeakPtr(benchmark::State& state)
{
    auto const p = std::make_shared<int>(1);
    std::weak_ptr<int> const weak = p;
    for (auto _ : state)
        benchmark::DoNotOptimize(weak.lock().get());
}
BENCHMARK(LockStdWeakPtr);

void GetWeakPointer(benchmark::State& state)
{
    ThreadSharablePointer<Target> const p(new Target);
    Weak const weak(p.Pointer());
    for (auto _ : state)
        benchmark::DoNotOptimize(weak.Get().Pointer());
}
BENCHMARK(GetWeakPointer);

// The end of an object with many weak pointers: the time for each has to stay flat.
void EndOfTarget(benchmark::State& state)
{
    for (auto _ : state) {
        state.PauseTiming();
        ThreadSharablePointer<Target> p(new Target);
        std::vector<std::unique_ptr<Weak>> weak;
        for (long i = 0; i < state.range(0); ++i)
            weak.push_back(std::make_unique<Weak>(p.Pointer()));
        state.ResumeTiming();
        p = nullptr;
        state.PauseTiming();
        weak.clear();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(EndOfTarget)->Arg(100)->Arg(100'000);

} // namespace
