// The arithmetic operators. `Kernel` times one run of a kernel into a buffer that is there, beside
// a loop by hand for the same instruction set, Eigen and OpenCV; `Op` times the whole operation,
// result included, beside the same loop into a fresh block of malloc. Names are made of the
// operator, its types and shape, the length and who computes, so that bench/ratios.py can put the
// peers side by side; bench/vector/numpy_peer.py times NumPy under the same names.

#include <memblock/vector/arithmetic/apply_kernels.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>

#ifdef MEMBLOCK_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

#ifdef MEMBLOCK_HAVE_EIGEN
#pragma GCC push_options
#pragma GCC target("arch=x86-64-v3") // what the kernels use where the machine has it
#include <Eigen/Core>
#pragma GCC pop_options
#endif

using namespace NKelmic;

namespace {

using u8 = unsigned char;
using u16 = unsigned short;
using i16 = short;
using i32 = int;
using f32 = float;
using f64 = double;

template <class T>
constexpr char const* name_of = nullptr;
template <>
constexpr char const* name_of<u8> = "u8";
template <>
constexpr char const* name_of<u16> = "u16";
template <>
constexpr char const* name_of<i16> = "i16";
template <>
constexpr char const* name_of<i32> = "i32";
template <>
constexpr char const* name_of<f32> = "f32";
template <>
constexpr char const* name_of<f64> = "f64";

template <class T>
DerivedPointer<Vector> Data(std::size_t n, unsigned seed)
{
    auto v = Vector::Create(n, type_of<T>::value, true, 0, 1.0);
    std::mt19937 random(seed);
    T* const data = v->template TypedPointer<T>();
    for (std::size_t i = 0; i < n; ++i)
        data[i] = static_cast<T>(sizeof(T) == 1 ? random() % 256 : random() % 20000 + 1);
    // Sums of bytes and shorts leave the type at whatever length, and are signed where it is.
    data[0] = static_cast<T>(sizeof(T) == 1 ? 255 : n == 1 ? 15000 : 20000);
    if (std::is_signed_v<T> && n > 1)
        data[n / 2] = -20000;
    return v;
}

/// Two operands, the second a scalar or not, and space for a result.
template <class T, class R>
struct Run {
    DerivedPointer<Vector> x, y, out;
    std::size_t n, ylen;

    Run(long length, bool scalar)
        : x(Data<T>(static_cast<std::size_t>(length), 1)),
          y(Data<T>(scalar ? 1 : static_cast<std::size_t>(length), 2)),
          out(Vector::Create(static_cast<std::size_t>(length), type_of<R>::value, true, 0, 1.0)),
          n(static_cast<std::size_t>(length)), ylen(scalar ? 1 : n)
    {
        std::fill_n(Out(), n, R(1)); // its pages are there before the first run that counts
    }
    T const* X() const { return cref(x).template TypedPointer<T>(); }
    T const* Y() const { return cref(y).template TypedPointer<T>(); }
    R* Out() const { return out->template TypedPointer<R>(); }
};

// ---- by hand

template <char op, class T>
MEMBLOCK_INLINE_LOOP auto Apply(T x, T y)
{
    if constexpr (op == '<')
        return x < y;
    else if constexpr (op == '=')
        return x == y;
    else if constexpr (op == '/')
        return y == 0 ? T(0) : static_cast<T>((x + (y >> 1)) / y);
    else {
        using C = std::conditional_t<std::is_floating_point_v<T>, T, unsigned int>;
        auto const a = static_cast<C>(x), b = static_cast<C>(y);
        return op == '+' ? a + b : op == '-' ? a - b : a * b;
    }
}

template <char op, class T, class R>
MEMBLOCK_MULTIVERSION void HandLoop(T const* __restrict x, T const* __restrict y, std::size_t ylen,
                                    std::size_t n, R* __restrict out)
{
    if (ylen == 1) {
        T const b = y[0];
        for (std::size_t i = 0; i < n; ++i)
            out[i] = static_cast<R>(Apply<op>(x[i], b));
    } else {
        for (std::size_t i = 0; i < n; ++i)
            out[i] = static_cast<R>(Apply<op>(x[i], y[i]));
    }
}

// ---- one run of a kernel

template <char op, class T, class R>
void KernelOurs(benchmark::State& state, long length, bool scalar)
{
    Run<T, R> const run(length, scalar);
    op_options const options;
    auto const n = static_cast<unsigned int>(run.n), ylen = static_cast<unsigned int>(run.ylen);
    R* const out = run.Out();
    for (auto _ : state) {
        if constexpr (sizeof(R) < sizeof(T) && !std::is_floating_point_v<T>)
            ops::CompareKernel<T, R>(op, {run.X(), run.Y(), false, scalar, run.n}, out);
        else if constexpr (op == '/')
            ApplyOp(op, run.X(), n, run.Y(), ylen, out, n, options);
        else
            ApplyOpSimple(op, run.X(), n, run.Y(), ylen, out, n, options);
        benchmark::ClobberMemory();
    }
}

template <char op, class T, class R>
void KernelByHand(benchmark::State& state, long length, bool scalar)
{
    Run<T, R> const run(length, scalar);
    R* const out = run.Out();
    for (auto _ : state) {
        HandLoop<op>(run.X(), run.Y(), run.ylen, run.n, out);
        benchmark::ClobberMemory();
    }
}

#ifdef MEMBLOCK_HAVE_OPENCV
/// OpenCV saturates and compares into 0 and 255, always as bytes.
template <char op>
void OpenCV(cv::Mat const& x, cv::Mat const& y, double scalar, cv::Mat& out, int type)
{
    bool const spread = y.empty();
    auto const with = [&](auto function, auto... more) {
        spread ? function(x, scalar, out, more...) : function(x, y, out, more...);
    };
    auto const arithmetic = [&](auto function) { with(function, cv::noArray(), type); };
    if constexpr (op == '+')
        arithmetic([](auto&&... a) { cv::add(a...); });
    else if constexpr (op == '-')
        arithmetic([](auto&&... a) { cv::subtract(a...); });
    else if constexpr (op == '*')
        with([](auto&&... a) { cv::multiply(a...); }, 1.0, type);
    else if constexpr (op == '/')
        with([](auto&&... a) { cv::divide(a...); }, 1.0, type);
    else
        with([](auto&&... a) { cv::compare(a...); }, op == '<' ? cv::CMP_LT : cv::CMP_EQ);
}

template <char op, class T, class R, bool allocates>
void ByOpenCV(benchmark::State& state, long length, bool scalar)
{
    cv::setNumThreads(1);
    Run<T, R> const run(length, scalar);
    int const n = static_cast<int>(length);
    cv::Mat const x(1, n, cv::DataType<T>::type, const_cast<T*>(run.X()));
    cv::Mat const y =
        scalar ? cv::Mat() : cv::Mat(1, n, cv::DataType<T>::type, const_cast<T*>(run.Y()));
    cv::Mat out = cv::Mat::ones(1, n, cv::DataType<R>::type);
    for (auto _ : state) {
        if (allocates)
            out = cv::Mat();
        OpenCV<op>(x, y, static_cast<double>(run.Y()[0]), out, cv::DataType<R>::type);
        benchmark::DoNotOptimize(out.data);
        benchmark::ClobberMemory();
    }
}
#endif

#ifdef MEMBLOCK_HAVE_EIGEN
#pragma GCC push_options
#pragma GCC target("arch=x86-64-v3")
template <char op, class T, class R>
void EigenRun(T const* xdata, T const* ydata, bool scalar, std::size_t n, R* out)
{
    auto const size = static_cast<Eigen::Index>(n);
    Eigen::Map<Eigen::ArrayX<T> const> const x(xdata, size), y(ydata, size);
    Eigen::Map<Eigen::ArrayX<R>> result(out, size);
    R const b = static_cast<R>(ydata[0]);
    auto const wide = x.template cast<R>();
    if constexpr (op == '+')
        scalar ? result = wide + b : result = wide + y.template cast<R>();
    else if constexpr (op == '-')
        scalar ? result = wide - b : result = wide - y.template cast<R>();
    else if constexpr (op == '*')
        scalar ? result = wide* b : result = wide * y.template cast<R>();
    else if constexpr (op == '<')
        scalar ? result = (x < ydata[0]).template cast<R>() : result = (x < y).template cast<R>();
    else
        scalar ? result = (x == ydata[0]).template cast<R>() : result = (x == y).template cast<R>();
}
#pragma GCC pop_options

template <char op, class T, class R>
void KernelByEigen(benchmark::State& state, long length, bool scalar)
{
    if (!__builtin_cpu_supports("avx2"))
        return state.SkipWithError("needs AVX2");
    Run<T, R> const run(length, scalar);
    R* const out = run.Out();
    for (auto _ : state) {
        EigenRun<op>(run.X(), run.Y(), scalar, run.n, out);
        benchmark::ClobberMemory();
    }
}
#endif

// ---- the whole operation

template <char op, class T, class R>
void OpOurs(benchmark::State& state, long length, bool scalar, bool cached)
{
    Run<T, R> const run(length, scalar);
    op_options const options;
    PMemBlock const y(run.y);
    PMemBlock first = cref(run.x).op(op, y, options);
    if (MemCast<Vector>(first)->ElemType() != type_of<R>::value)
        return state.SkipWithError("the result is of another type");
    first = PMemBlock(); // its block is there for the first result that counts
    for (auto _ : state) {
        if (!cached) {
            run.x->ContentHasBeenChanged();
            run.y->ContentHasBeenChanged();
        }
        benchmark::DoNotOptimize(cref(run.x).op(op, y, options));
    }
}

template <char op, class T, class R>
void OpByHand(benchmark::State& state, long length, bool scalar)
{
    Run<T, R> const run(length, scalar);
    for (auto _ : state) {
        R* const out = static_cast<R*>(std::malloc(run.n * sizeof(R)));
        HandLoop<op>(run.X(), run.Y(), run.ylen, run.n, out);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
        std::free(out);
    }
}

// ---- names

template <char op, class T, class R>
std::string Name(char const* what, bool scalar, long length)
{
    return std::string(what) + "/" + name_of<T> + op + (scalar ? "scalar" : name_of<T>)+":" +
           name_of<R> + "/" + std::to_string(length) + "/";
}

template <char op, class T, class R>
void RegisterKernel()
{
    for (long length : {1L << 16, 1L << 20, 1L << 24})
        for (bool scalar : {false, true}) {
            auto const add = [&](char const* who, auto function) {
                auto const name = Name<op, T, R>("Kernel", scalar, length) + who;
                benchmark::RegisterBenchmark(name.c_str(), function, length, scalar);
            };
            add("memblock", KernelOurs<op, T, R>);
            add("hand", KernelByHand<op, T, R>);
#ifdef MEMBLOCK_HAVE_EIGEN
            if constexpr (op != '/')
                add("eigen", KernelByEigen<op, T, R>);
#endif
#ifdef MEMBLOCK_HAVE_OPENCV
            add("opencv", ByOpenCV<op, T, R, false>);
#endif
        }
}

template <char op, class T, class R>
void RegisterOp()
{
    for (long length : {16L, 1L << 20, 1L << 24})
        for (bool scalar : {false, true}) {
            auto const add = [&](char const* who, auto function, auto... more) {
                auto const name = Name<op, T, R>("Op", scalar, length) + who;
                benchmark::RegisterBenchmark(name.c_str(), function, length, scalar, more...);
            };
            add("memblock", OpOurs<op, T, R>, true);
            add("uncached", OpOurs<op, T, R>, false);
            add("hand", OpByHand<op, T, R>);
#ifdef MEMBLOCK_HAVE_OPENCV
            add("opencv", ByOpenCV<op, T, R, true>);
#endif
        }
}

template <class T, class Wider>
void RegisterType()
{
    RegisterKernel<'+', T, T>();
    RegisterKernel<'-', T, T>();
    RegisterKernel<'*', T, T>();
    RegisterKernel<'<', T, u8>();
    RegisterKernel<'=', T, u8>();
    if constexpr (!std::is_same_v<T, Wider>) {
        RegisterKernel<'+', T, Wider>();
        RegisterKernel<'-', T, Wider>();
        RegisterKernel<'*', T, Wider>();
        RegisterKernel<'<', T, Wider>();
        RegisterKernel<'=', T, Wider>();
    }
}

bool const registered = [] {
    RegisterType<u8, u16>();
    RegisterType<i16, i32>();
    RegisterType<i32, i32>();
    RegisterType<f32, f64>();
    RegisterType<f64, f64>();
    RegisterKernel<'/', i16, i16>();
    RegisterKernel<'/', i32, i32>();
    RegisterOp<'+', u8, u16>();
    RegisterOp<'-', u8, i16>();
    RegisterOp<'*', u8, u16>();
    RegisterOp<'<', u8, u8>();
    RegisterOp<'+', i16, i32>();
    RegisterOp<'<', i16, u8>();
    RegisterOp<'+', i32, i32>();
    RegisterOp<'=', i32, u8>();
    RegisterOp<'+', f32, f32>();
    RegisterOp<'<', f32, u8>();
    RegisterOp<'+', f64, f64>();
    RegisterOp<'*', f64, f64>();
    RegisterOp<'<', f64, u8>();
    return true;
}();

} // namespace
