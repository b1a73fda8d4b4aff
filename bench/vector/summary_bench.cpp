#include <memblock/vector/summary.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <map>

#include "../samples.h"

#ifdef MEMBLOCK_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

using namespace NKelmic;

namespace {

template <class T>
void MinMaxAndPlaces(benchmark::State& state)
{
    auto const data = Samples<T>();
    for (auto _ : state)
        benchmark::DoNotOptimize(CalcMinMax(data.data(), length, nullptr));
    state.SetItemsProcessed(state.iterations() * length);
}

// Both extremes of each block by vectors of the compiler, then the first place in that block.
template <class T>
__attribute__((target("arch=x86-64-v4"))) void HandMinMax(T const* data, T& least, T& most)
{
    typedef T Lane __attribute__((vector_size(64), aligned(1), may_alias));
    constexpr std::size_t lanes = 64 / sizeof(T), rows_a_block = 16384 / 64;
    for (std::size_t block = 0; block < length / lanes; block += rows_a_block) {
        auto const* const rows = reinterpret_cast<Lane const*>(data) + block;
        Lane a = rows[0], b = rows[0], c = rows[0], d = rows[0];
        for (std::size_t i = 0; i < rows_a_block; i += 2) {
            a = rows[i] < a ? rows[i] : a;
            b = rows[i + 1] < b ? rows[i + 1] : b;
            c = rows[i] > c ? rows[i] : c;
            d = rows[i + 1] > d ? rows[i + 1] : d;
        }
        a = b < a ? b : a;
        c = d > c ? d : c;
        for (std::size_t i = 0; i < lanes; ++i) {
            least = std::min<T>(least, a[i]);
            most = std::max<T>(most, c[i]);
        }
    }
}

template <class T>
void HandMinMaxAndPlaces(benchmark::State& state)
{
    if (!__builtin_cpu_supports("avx512bw")) {
        state.SkipWithError("needs AVX-512");
        return;
    }
    auto const data = Samples<T>();
    for (auto _ : state) {
        T least = data[0], most = data[0];
        HandMinMax(data.data(), least, most);
        benchmark::DoNotOptimize(std::find(data.begin(), data.end(), least));
        benchmark::DoNotOptimize(std::find(data.begin(), data.end(), most));
    }
    state.SetItemsProcessed(state.iterations() * length);
}

template <class T>
void MeanAndStddev(benchmark::State& state)
{
    auto const vector = VectorOfSamples<T>();
    for (auto _ : state) {
        vector->ContentHasBeenChanged();
        benchmark::DoNotOptimize(vector->SecondaryDouble(key_stddev, throw_always));
        benchmark::DoNotOptimize(vector->SecondaryDouble(key_mean, throw_always));
    }
    state.SetItemsProcessed(state.iterations() * length);
}

template <class T>
void TwoPassesByHand(benchmark::State& state)
{
    auto const data = Samples<T>();
    for (auto _ : state) {
        double sum = 0, squares = 0;
        for (T v : data)
            sum += v;
        for (T v : data)
            squares += (v - sum / length) * (v - sum / length);
        benchmark::DoNotOptimize(std::sqrt(squares / (length - 1)));
    }
    state.SetItemsProcessed(state.iterations() * length);
}

template <class T>
void Median(benchmark::State& state)
{
    auto const data = Samples<T>();
    for (auto _ : state)
        benchmark::DoNotOptimize(calc_median(data.data(), length, true, throw_always));
    state.SetItemsProcessed(state.iterations() * length);
}

template <class T>
void NthElementOfACopy(benchmark::State& state)
{
    auto const data = Samples<T>();
    for (auto _ : state) {
        auto copy = data;
        std::nth_element(copy.begin(), copy.begin() + length / 2, copy.end());
        benchmark::DoNotOptimize(copy[length / 2]);
    }
    state.SetItemsProcessed(state.iterations() * length);
}

#ifdef MEMBLOCK_HAVE_OPENCV
template <class T>
void OpenCVMinMaxLoc(benchmark::State& state)
{
    cv::setNumThreads(1);
    auto data = Samples<T>();
    cv::Mat const mat(1, length, cv::DataType<T>::type, data.data());
    for (auto _ : state) {
        double least, most;
        cv::Point where_least, where_most;
        cv::minMaxLoc(mat, &least, &most, &where_least, &where_most);
        benchmark::DoNotOptimize(where_least);
        benchmark::DoNotOptimize(where_most);
    }
    state.SetItemsProcessed(state.iterations() * length);
}

template <class T>
void OpenCVMeanStdDev(benchmark::State& state)
{
    cv::setNumThreads(1);
    auto data = Samples<T>();
    cv::Mat const mat(1, length, cv::DataType<T>::type, data.data());
    for (auto _ : state) {
        cv::Scalar mean, stddev;
        cv::meanStdDev(mat, mean, stddev);
        benchmark::DoNotOptimize(stddev);
    }
    state.SetItemsProcessed(state.iterations() * length);
}
#define MEMBLOCK_BENCH_OPENCV(FUNCTION, T, NAME) MEMBLOCK_NAMED(FUNCTION, T, NAME)
#else
#define MEMBLOCK_BENCH_OPENCV(FUNCTION, T, NAME)
#endif

// Named for bench/ratios.py: subject, type, who.
#define MEMBLOCK_NAMED(FUNCTION, T, NAME) BENCHMARK_TEMPLATE(FUNCTION, T)->Name(NAME);
#define MEMBLOCK_BENCH(T, NAME)                                                                    \
    MEMBLOCK_NAMED(MinMaxAndPlaces, T, "MinMax/" NAME "/memblock")                                 \
    MEMBLOCK_NAMED(HandMinMaxAndPlaces, T, "MinMax/" NAME "/hand")                                 \
    MEMBLOCK_BENCH_OPENCV(OpenCVMinMaxLoc, T, "MinMax/" NAME "/opencv")                            \
    MEMBLOCK_NAMED(MeanAndStddev, T, "MeanStddev/" NAME "/memblock")                               \
    MEMBLOCK_NAMED(TwoPassesByHand, T, "MeanStddev/" NAME "/hand")                                 \
    MEMBLOCK_BENCH_OPENCV(OpenCVMeanStdDev, T, "MeanStddev/" NAME "/opencv")                       \
    MEMBLOCK_NAMED(Median, T, "Median/" NAME "/memblock")                                          \
    MEMBLOCK_NAMED(NthElementOfACopy, T, "Median/" NAME "/hand")

MEMBLOCK_BENCH(unsigned char, "u8")
MEMBLOCK_BENCH(unsigned short, "u16")
MEMBLOCK_BENCH(float, "f32")
MEMBLOCK_BENCH(double, "f64")

// Keys in an order that no branch predictor learns.
std::vector<int> const keys = [] {
    std::vector<int> drawn;
    std::mt19937 random(5);
    for (int i = 0; i < 1 << 14; ++i)
        drawn.push_back(std::array{100, 101, 111, 112, 113, 114}[random() % 6]);
    return drawn;
}();

void MapLookUp(benchmark::State& state)
{
    std::map<int, double> const values = {{100, 3.0}, {101, 1.0}, {111, 0.0},
                                          {112, 1.0}, {113, 1.0}, {114, 3.0}};
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(values.find(keys[i++ % keys.size()])->second);
}
BENCHMARK(MapLookUp)->Name("CachedKey/map");

void CachedKey(benchmark::State& state)
{
    auto const vector = Vector::CreateFrom(3.5);
    vector->SecondaryDouble(key_max, throw_always); // and with it the others
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(vector->SecondaryDouble(keys[i++ % keys.size()], throw_always));
}
BENCHMARK(CachedKey)->Name("CachedKey/memblock");

} // namespace
