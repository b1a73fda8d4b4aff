#include <memblock/statistic/statistic.h>

#include <benchmark/benchmark.h>

#include <algorithm>

#include "../samples.h"

#ifdef MEMBLOCK_HAVE_EIGEN
#include <Eigen/Core>
#endif

using namespace NKelmic;

namespace {

template <class T>
void Ours(benchmark::State& state, char const* word, char const* policy)
{
    Statistic const statistic(VectorOfSamples<T>(), word, policy, policy, 0.25);
    for (auto _ : state)
        benchmark::DoNotOptimize(statistic.Comp(0, -1));
    state.SetItemsProcessed(state.iterations() * length);
}

// A loop by hand on vectors of the compiler, as wide as this program is compiled for.
template <class T>
__attribute__((target("arch=x86-64-v4"))) T HandMin(T const* data, std::size_t n)
{
    typedef T Lane __attribute__((vector_size(64), aligned(1), may_alias));
    constexpr std::size_t lanes = 64 / sizeof(T);
    auto const* const rows = reinterpret_cast<Lane const*>(data);
    Lane a = rows[0], b = rows[1], c = rows[2], d = rows[3];
    for (std::size_t i = 4; i + 4 <= n / lanes; i += 4) {
        a = rows[i] < a ? rows[i] : a;
        b = rows[i + 1] < b ? rows[i + 1] : b;
        c = rows[i + 2] < c ? rows[i + 2] : c;
        d = rows[i + 3] < d ? rows[i + 3] : d;
    }
    a = b < a ? b : a;
    c = d < c ? d : c;
    a = c < a ? c : a;
    T least = a[0];
    for (std::size_t i = 1; i < lanes; ++i)
        least = std::min<T>(least, a[i]);
    return least;
}

template <class T>
void HandLoopMin(benchmark::State& state)
{
    if (!__builtin_cpu_supports("avx512bw")) {
        state.SkipWithError("needs AVX-512");
        return;
    }
    auto const data = Samples<T>();
    for (auto _ : state)
        benchmark::DoNotOptimize(HandMin(data.data(), data.size()));
    state.SetItemsProcessed(state.iterations() * length);
}

template <class T, class Sum>
void LoopSum(benchmark::State& state)
{
    auto const data = Samples<T>();
    for (auto _ : state) {
        Sum sum = 0;
        for (T v : data)
            sum += v;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * length);
}

template <class T>
void FullSort(benchmark::State& state)
{
    auto const data = Samples<T>();
    for (auto _ : state) {
        auto copy = data;
        std::sort(copy.begin(), copy.end());
        benchmark::DoNotOptimize(copy[length / 4]);
    }
    state.SetItemsProcessed(state.iterations() * length);
}

#ifdef MEMBLOCK_HAVE_EIGEN
template <class T>
void EigenMin(benchmark::State& state)
{
    auto const data = Samples<T>();
    Eigen::Map<Eigen::Array<T, Eigen::Dynamic, 1> const> const array(data.data(), length);
    for (auto _ : state)
        benchmark::DoNotOptimize(array.minCoeff());
    state.SetItemsProcessed(state.iterations() * length);
}
#define MEMBLOCK_BENCH_EIGEN(T) BENCHMARK_TEMPLATE(EigenMin, T);
#else
#define MEMBLOCK_BENCH_EIGEN(T)
#endif

#ifndef BENCHMARK_TEMPLATE1_CAPTURE
#define BENCHMARK_TEMPLATE1_CAPTURE(FUNCTION, T, NAME, ...)                                        \
    BENCHMARK_PRIVATE_DECLARE(FUNCTION) = (::benchmark::internal::RegisterBenchmarkInternal(       \
        new ::benchmark::internal::FunctionBenchmark(                                              \
            #FUNCTION "<" #T ">/" #NAME,                                                           \
            [](::benchmark::State& state) { FUNCTION<T>(state, __VA_ARGS__); })))
#endif

#define MEMBLOCK_BENCH(T, SUM)                                                                     \
    BENCHMARK_TEMPLATE(HandLoopMin, T);                                                            \
    MEMBLOCK_BENCH_EIGEN(T)                                                                        \
    BENCHMARK_TEMPLATE1_CAPTURE(Ours, T, min, "min", "include");                                   \
    BENCHMARK_TEMPLATE1_CAPTURE(Ours, T, min_exclude, "min", "exclude");                           \
    BENCHMARK_TEMPLATE1_CAPTURE(Ours, T, max_replace, "max", "0");                                 \
    BENCHMARK_TEMPLATE(LoopSum, T, SUM);                                                           \
    BENCHMARK_TEMPLATE1_CAPTURE(Ours, T, sum, "sum", "include");                                   \
    BENCHMARK_TEMPLATE1_CAPTURE(Ours, T, stddev, "stddev", "exclude");                             \
    BENCHMARK_TEMPLATE(FullSort, T);                                                               \
    BENCHMARK_TEMPLATE1_CAPTURE(Ours, T, quantile, "quantile", "include");                         \
    BENCHMARK_TEMPLATE1_CAPTURE(Ours, T, quantile_exclude, "quantile", "exclude");

MEMBLOCK_BENCH(unsigned char, long long)
MEMBLOCK_BENCH(short, long long)
MEMBLOCK_BENCH(int, long long)
MEMBLOCK_BENCH(float, double)
MEMBLOCK_BENCH(double, double)

} // namespace
