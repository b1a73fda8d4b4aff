// Jobs of a given length by two workers, results collected, beside pools that collect nothing.

#include <memblock/threads/jobpool.h>

#include <atomic>
#include <benchmark/benchmark.h>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <future>
#include <vector>
#ifdef MEMBLOCK_HAVE_TBB
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>
#include <oneapi/tbb/task_group.h>
#endif

using namespace NKelmic;

namespace {

constexpr int workers = 2;

void Spend(long microseconds)
{
    if (microseconds == 0)
        return;
    auto const end = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds);
    while (std::chrono::steady_clock::now() < end) {
    }
}

struct SpendJob : Job {
    explicit SpendJob(long us) : microseconds(us) {}
    DataItem Run() override
    {
        Spend(microseconds);
        return 1;
    }
    void OnFinished() override { delete this; }
    long microseconds;
};

/// A pool of two workers, whatever the machine has.
struct TwoWorkers {
    TwoWorkers() { setenv("MORVANE_NUM_THREADS", "2", 1); }
};

void ByJobPool(benchmark::State& state)
{
    TwoWorkers const two;
    for (auto _ : state) {
        JobPool pool;
        pool.Reserve(static_cast<int>(state.range(1)));
        for (long i = 0; i < state.range(1); ++i)
            pool.AddNewJob(new SpendJob(state.range(0)));
        pool.Wait();
        benchmark::DoNotOptimize(pool.GetResults().data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(1));
}

void ByAsio(benchmark::State& state)
{
    for (auto _ : state) {
        boost::asio::thread_pool pool(workers);
        for (long i = 0; i < state.range(1); ++i)
            boost::asio::post(pool, [us = state.range(0)] { Spend(us); });
        pool.join();
    }
    state.SetItemsProcessed(state.iterations() * state.range(1));
}

void ByAsync(benchmark::State& state)
{
    for (auto _ : state) { // a thread each: two at a time, as many as there are workers
        std::future<void> running[workers];
        for (long i = 0; i < state.range(1); ++i) {
            auto& slot = running[i % workers];
            if (slot.valid())
                slot.get();
            slot = std::async(std::launch::async, [us = state.range(0)] { Spend(us); });
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(1));
}

#ifdef MEMBLOCK_HAVE_TBB
void ByTbb(benchmark::State& state)
{
    // The thread that waits works too: with it there are two.
    oneapi::tbb::global_control const limit(oneapi::tbb::global_control::max_allowed_parallelism,
                                            workers);
    oneapi::tbb::task_arena arena(workers);
    for (auto _ : state)
        arena.execute([&] {
            oneapi::tbb::task_group group;
            for (long i = 0; i < state.range(1); ++i)
                group.run([us = state.range(0)] { Spend(us); });
            group.wait();
        });
    state.SetItemsProcessed(state.iterations() * state.range(1));
}
#endif

void Lengths(benchmark::internal::Benchmark* b)
{
    b->ArgNames({"us", "jobs"})->UseRealTime()->Unit(benchmark::kMillisecond);
    b->Args({0, 100'000})->Args({10, 20'000})->Args({100, 2'000})->Args({1000, 400});
}

BENCHMARK(ByJobPool)->Apply(Lengths);
BENCHMARK(ByAsio)->Apply(Lengths);
BENCHMARK(ByAsync)->Apply(Lengths);
#ifdef MEMBLOCK_HAVE_TBB
BENCHMARK(ByTbb)->Apply(Lengths);
#endif

// The cost of a job has to stay flat.
BENCHMARK(ByJobPool)->Args({0, 1'000})->Args({0, 1'000'000})->UseRealTime();

// From an idle pool, asleep for a while, to the first instruction of a job.
void FirstJobByJobPool(benchmark::State& state)
{
    TwoWorkers const two;
    struct Stamp : Job {
        std::atomic<bool>& ran;
        explicit Stamp(std::atomic<bool>& r) : ran(r) {}
        DataItem Run() override
        {
            ran = true;
            return 1;
        }
        void OnFinished() override { delete this; }
    };
    JobPool pool;
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        std::atomic<bool> ran{false};
        auto const begin = std::chrono::steady_clock::now();
        pool.AddNewJob(new Stamp(ran));
        while (!ran) {
        }
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        pool.Wait();
    }
}
BENCHMARK(FirstJobByJobPool)->UseManualTime()->Iterations(500);

void FirstJobByAsio(benchmark::State& state)
{
    boost::asio::thread_pool pool(workers);
    for (auto _ : state) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        std::atomic<bool> ran{false};
        auto const begin = std::chrono::steady_clock::now();
        boost::asio::post(pool, [&] { ran = true; });
        while (!ran) {
        }
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
}
BENCHMARK(FirstJobByAsio)->UseManualTime()->Iterations(500);

// The processor time that an idle pool takes in 100 ms: nothing.
void IdlePool(benchmark::State& state)
{
    TwoWorkers const two;
    JobPool pool;
    pool.AddNewJob(new SpendJob(0));
    pool.Wait();
    for (auto _ : state) {
        auto const before = std::clock();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        state.SetIterationTime(static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC + 1e-9);
    }
}
BENCHMARK(IdlePool)->UseManualTime()->Iterations(5);

} // namespace
