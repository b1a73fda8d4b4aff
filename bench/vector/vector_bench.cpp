// Growth by single elements, writes, and conversions of element types. Growth stays linear: the
// time per element at 10 M is that at 100 k. Conversions are timed beside a plain loop into a
// buffer of their own and, where it is installed, the same conversion of the peer.

#include <memblock/vector/convert.h>

#include <benchmark/benchmark.h>

#ifdef MEMBLOCK_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

using namespace NKelmic;

namespace {

void PerElement(benchmark::State& state, unsigned long count)
{
    state.SetItemsProcessed(static_cast<long>(state.iterations() * count));
}

// ---- growth

void AppendByResize(benchmark::State& state, DataType type, DataItem const& value)
{
    auto const count = static_cast<unsigned int>(state.range(0));
    for (auto _ : state) {
        auto const v = Vector::Create(0, type, true, 0, 1.0);
        for (unsigned int i = 0; i < count; ++i) {
            v->ResizeVector(i + 1, true, true);
            v->SetElem(i, value);
        }
    }
    PerElement(state, count);
}

void AppendByInsert(benchmark::State& state, DataType type, DataItem const& value)
{
    auto const count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        auto const v = Vector::Create(0, type, true, 0, 1.0);
        for (int i = 0; i < count; ++i)
            v->Insert(i, value);
    }
    PerElement(state, count);
}

void AppendByVectors(benchmark::State& state, DataType type, DataItem const& value)
{
    auto const count = static_cast<int>(state.range(0));
    auto const one = Vector::Create(1, type, true, 0, 1.0);
    one->SetElem(0, value);
    for (auto _ : state) {
        auto const v = Vector::Create(0, type, true, 0, 1.0);
        for (int i = 0; i < count; ++i)
            v->Append(one);
    }
    PerElement(state, count);
}

template <class T>
void AppendToStdVector(benchmark::State& state, T const& value)
{
    for (auto _ : state) {
        std::vector<T> v;
        for (long i = 0; i < state.range(0); ++i) {
            v.push_back(value);
            benchmark::DoNotOptimize(v.data());
        }
    }
    PerElement(state, state.range(0));
}

DataItem const number(7);
DataItem const text("some text");
DataItem const object{PMemBlock(Vector::CreateFrom(1))};

#define GROWTH(FUNCTION, NAME, ...)                                                                \
    BENCHMARK_CAPTURE(FUNCTION, NAME, __VA_ARGS__)                                                 \
        ->Arg(100000)                                                                              \
        ->Arg(10000000)                                                                            \
        ->Unit(benchmark::kMillisecond)
GROWTH(AppendByResize, Int, Vector::Int, number);
GROWTH(AppendByResize, String, Vector::String, text);
GROWTH(AppendByResize, PolyType, Vector::PolyType, text);
GROWTH(AppendByResize, PMemory, Vector::PMemory, object);
GROWTH(AppendByInsert, Int, Vector::Int, number);
GROWTH(AppendByInsert, String, Vector::String, text);
GROWTH(AppendByVectors, Int, Vector::Int, number);
GROWTH(AppendByVectors, String, Vector::String, text);
GROWTH(AppendToStdVector, int, 7);
GROWTH(AppendToStdVector, string, safestring("some text"));

// ---- element access

void WriteElements(benchmark::State& state)
{
    auto const v = Vector::Create(4096, Vector::UnsignedShort, true, 0, 1.0);
    for (auto _ : state)
        for (unsigned int i = 0; i < 4096; ++i)
            v->SetElem(i, static_cast<double>(i));
    PerElement(state, 4096);
}
BENCHMARK(WriteElements);

void ReadElements(benchmark::State& state)
{
    auto const v = Vector::Create(4096, Vector::UnsignedShort, true, 0, 1.0);
    for (auto _ : state)
        for (unsigned int i = 0; i < 4096; ++i)
            benchmark::DoNotOptimize(v->Elem(i));
    PerElement(state, 4096);
}
BENCHMARK(ReadElements);

// ---- conversions

template <class S>
DerivedPointer<Vector> Source(unsigned long count, bool fractions)
{
    auto v = Vector::Create(count, type_of<S>::value, true, 0, 1.0);
    S* const data = v->template TypedPointer<S>();
    for (unsigned long i = 0; i < count; ++i)
        data[i] = static_cast<S>(static_cast<double>(i % 120) + (fractions ? 0.25 : 0.0));
    return v;
}

template <class S, class D, bool keep_factor, bool fractions>
void Convert(benchmark::State& state)
{
    auto const count = static_cast<unsigned long>(state.range(0));
    auto const source = Source<S>(count, fractions);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            cref(source).ConvertElemsToType(type_of<D>::value, true, keep_factor));
    PerElement(state, count);
}

template <class S, class D>
void PlainLoop(benchmark::State& state)
{
    auto const count = static_cast<unsigned long>(state.range(0));
    auto const source = Source<S>(count, false);
    S const* __restrict const src = cref(source).template TypedPointer<S>();
    for (auto _ : state) {
        D* __restrict const dst = static_cast<D*>(std::malloc(count * sizeof(D)));
        for (unsigned long i = 0; i < count; ++i)
            dst[i] = static_cast<D>(src[i]);
        benchmark::DoNotOptimize(dst);
        benchmark::ClobberMemory();
        std::free(dst);
    }
    PerElement(state, count);
}

#ifdef MEMBLOCK_HAVE_OPENCV
template <class S, class D>
void OpenCv(benchmark::State& state)
{
    cv::setNumThreads(1);
    int const count = static_cast<int>(state.range(0));
    cv::Mat const source(1, count, cv::DataType<S>::type, cv::Scalar(100));
    for (auto _ : state) {
        cv::Mat result;
        source.convertTo(result, cv::DataType<D>::type);
        benchmark::DoNotOptimize(result.data);
    }
    PerElement(state, count);
}
#define PEER(S, D) BENCHMARK_TEMPLATE(OpenCv, S, D)->SIZES
#else
#define PEER(S, D)
#endif

#define SIZES Arg(1 << 16)->Arg(1 << 20)->Arg(1 << 24)
#define CONVERSION(S, D, KEEP, FRACTIONS)                                                          \
    BENCHMARK_TEMPLATE(Convert, S, D, KEEP, FRACTIONS)->SIZES;                                     \
    BENCHMARK_TEMPLATE(PlainLoop, S, D)->SIZES;                                                    \
    PEER(S, D)
using byte = unsigned char;
using ushort = unsigned short;
CONVERSION(byte, ushort, true, false);
CONVERSION(byte, float, true, false);
CONVERSION(ushort, double, true, false);
CONVERSION(int, short, true, false);
CONVERSION(float, byte, true, true);
CONVERSION(double, int, true, true);
CONVERSION(double, ushort, false, true);
CONVERSION(double, int, false, false);

} // namespace
