#include <memblock/imaging/image.h>
#include <memblock/imaging/indexvector.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#ifdef MEMBLOCK_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

using namespace NKelmic;

namespace {

constexpr unsigned int side = 4096;
constexpr unsigned int length = side * side;

/// Discs on a grid, some 20,000 of them; label 0 between them. Bytes hold the label's low bits.
template <class T>
DerivedPointer<Image> Discs()
{
    constexpr unsigned int cell = 29;
    constexpr unsigned int cells = side / cell; // 141 a row
    DerivedPointer<Image> image = Image::Create(side, side, type_of<T>::value, 1.0);
    T* const pixels = image->template TypedPointer<T>();
    for (unsigned int y = 0; y < cells * cell; ++y)
        for (unsigned int x = 0; x < cells * cell; ++x) {
            int const dx = static_cast<int>(x % cell) - 14;
            int const dy = static_cast<int>(y % cell) - 14;
            if (dx * dx + dy * dy < 140)
                pixels[x + y * side] = static_cast<T>(1 + x / cell + y / cell * cells);
        }
    return image;
}

/// Bytes of which each is 1 with a chance of so many percent.
DerivedPointer<Image> Noise(int percent)
{
    std::mt19937 random(1);
    DerivedPointer<Image> image = Image::Create(side, side, Vector::Byte, 1.0);
    unsigned char* const pixels = image->BytePointer();
    for (unsigned int i = 0; i < length; ++i)
        pixels[i] = static_cast<int>(random() % 100) < percent;
    image->SetType(Image::mask);
    return image;
}

DerivedPointer<Image> MaskPicture(benchmark::State const& state)
{
    if (state.range(0) > 0)
        return Noise(static_cast<int>(state.range(0)));
    DerivedPointer<Image> image = Discs<unsigned short>();
    image->SetType(Image::mask);
    return image;
}

void Done(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * length);
}

// ---- the list of a mask's pixels: discs, then noise of 1, 50 and 99 percent

void MaskList(benchmark::State& state)
{
    auto const image = MaskPicture(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(cref(image).GetMaskVector());
    Done(state);
}
BENCHMARK(MaskList)->Arg(0)->Arg(1)->Arg(50)->Arg(99)->Unit(benchmark::kMillisecond);

void MaskListBy64Pixels(benchmark::State& state)
{
    auto const image = MaskPicture(state);
    unsigned char const* const p = cref(image).BytePointer();
    std::vector<unsigned int> out(length);
    for (auto _ : state) {
        unsigned int* next = out.data();
        for (unsigned int base = 0; base < length; base += 64) {
            unsigned long mask = 0;
            for (unsigned int j = 0; j < 64; j += 8) {
                unsigned long eight;
                std::memcpy(&eight, p + base + j, 8);
                mask |= ((eight * 0x0102040810204080ul) >> 56) << j;
            }
            for (; mask; mask &= mask - 1)
                *next++ = base + static_cast<unsigned int>(__builtin_ctzl(mask));
        }
        benchmark::DoNotOptimize(next);
        benchmark::ClobberMemory();
    }
    Done(state);
}
BENCHMARK(MaskListBy64Pixels)->Arg(0)->Arg(1)->Arg(50)->Arg(99)->Unit(benchmark::kMillisecond);

// ---- pixels grouped by label

void GroupByLabel(benchmark::State& state)
{
    auto const image = Discs<unsigned short>();
    unsigned short const* const p = cref(image).UnsignedShortPointer();
    unsigned int const k = 141 * 141;
    std::vector<unsigned int> start(k + 12);
    for (auto _ : state) {
        unsigned int* indices = nullptr;
        std::fill(start.begin(), start.end(), 0);
        find_point_address3(length, p, k, nullptr, start.data(), &indices);
        mb_free(indices);
    }
    Done(state);
}
BENCHMARK(GroupByLabel)->Unit(benchmark::kMillisecond);

void GroupByLabelRunsInPlainLoops(benchmark::State& state)
{
    auto const image = Discs<unsigned short>();
    unsigned short const* const p = cref(image).UnsignedShortPointer();
    unsigned int const k = 141 * 141;
    std::vector<unsigned int> start(k + 2);
    auto const each_run = [p](auto take) {
        for (unsigned int i = 0; i < length;) {
            unsigned int const from = i;
            unsigned short const label = p[i];
            while (i < length && p[i] == label)
                ++i;
            if (label)
                take(label, from, i);
        }
    };
    for (auto _ : state) {
        std::fill(start.begin(), start.end(), 0);
        each_run(
            [&](unsigned int v, unsigned int from, unsigned int to) { start[v + 1] += to - from; });
        std::partial_sum(start.begin(), start.end(), start.begin());
        auto* const indices = static_cast<unsigned int*>(mb_malloc(start[k + 1] * 4ul));
        each_run([&](unsigned int v, unsigned int from, unsigned int to) {
            std::iota(indices + start[v], indices + start[v] + (to - from), from);
            start[v] += to - from;
        });
        benchmark::DoNotOptimize(indices);
        benchmark::ClobberMemory();
        mb_free(indices);
    }
    Done(state);
}
BENCHMARK(GroupByLabelRunsInPlainLoops)->Unit(benchmark::kMillisecond);

void GroupByLabelArgsort(benchmark::State& state)
{
    auto const image = Discs<unsigned short>();
    unsigned short const* const p = cref(image).UnsignedShortPointer();
    std::vector<unsigned int> order(length);
    for (auto _ : state) {
        std::iota(order.begin(), order.end(), 0u);
        std::stable_sort(order.begin(), order.end(),
                         [p](unsigned int a, unsigned int b) { return p[a] < p[b]; });
        benchmark::DoNotOptimize(order.data());
    }
    Done(state);
}
BENCHMARK(GroupByLabelArgsort)->Unit(benchmark::kMillisecond)->Iterations(2);

// ---- a mask drawn from its list

void DrawMask(benchmark::State& state)
{
    auto const list = MaskPicture(state)->GetMaskVector();
    for (auto _ : state)
        benchmark::DoNotOptimize(cref(list).GetMaskImage());
    Done(state);
}
BENCHMARK(DrawMask)->Arg(0)->Arg(50)->Unit(benchmark::kMillisecond);

void DrawMaskMemsetAndStores(benchmark::State& state)
{
    auto const list = MaskPicture(state)->GetMaskVector();
    unsigned int const* const indices = cref(list).UnsignedIntPointer();
    for (auto _ : state) {
        auto* const pixels = static_cast<unsigned char*>(mb_malloc(length));
        std::memset(pixels, 0, length);
        for (unsigned int i = 0; i < list->Length(); ++i)
            pixels[indices[i]] = 1;
        benchmark::DoNotOptimize(pixels);
        benchmark::ClobberMemory();
        mb_free(pixels);
    }
    Done(state);
}
BENCHMARK(DrawMaskMemsetAndStores)->Arg(0)->Arg(50)->Unit(benchmark::kMillisecond);

// ---- transposition

template <class T>
void Transpose(benchmark::State& state)
{
    auto const image = Image::Create(side, side, type_of<T>::value, 1.0);
    for (auto _ : state)
        benchmark::DoNotOptimize(cref(image).Transposed());
    Done(state);
}
BENCHMARK(Transpose<unsigned char>)->Unit(benchmark::kMillisecond);
BENCHMARK(Transpose<unsigned short>)->Unit(benchmark::kMillisecond);
BENCHMARK(Transpose<unsigned int>)->Unit(benchmark::kMillisecond);
BENCHMARK(Transpose<double>)->Unit(benchmark::kMillisecond);

// ---- copies of parts

void Crop(benchmark::State& state)
{
    auto const image = Image::Create(side, side, Vector::UnsignedShort, 1.0);
    for (auto _ : state)
        benchmark::DoNotOptimize(cref(image).DoCrop(5, 5, side - 5, side - 5));
    Done(state);
}
BENCHMARK(Crop)->Unit(benchmark::kMillisecond);

void CropRowByRow(benchmark::State& state)
{
    auto const image = Image::Create(side, side, Vector::UnsignedShort, 1.0);
    unsigned short const* const p = cref(image).UnsignedShortPointer();
    constexpr unsigned long part = side - 10;
    for (auto _ : state) {
        auto* const out = static_cast<unsigned short*>(mb_malloc(part * part * 2));
        for (unsigned long y = 0; y < part; ++y)
            std::memcpy(out + y * part, p + (y + 5) * side + 5, part * 2);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
        mb_free(out);
    }
    Done(state);
}
BENCHMARK(CropRowByRow)->Unit(benchmark::kMillisecond);

// ---- rewrites

template <class T>
void MaskFromWiderPixels(benchmark::State& state)
{
    auto const image = Discs<T>();
    for (auto _ : state) {
        DerivedPointer<Image> const copy(image->Clone(true));
        copy->SetType(Image::mask);
    }
    Done(state);
}
BENCHMARK(MaskFromWiderPixels<unsigned short>)->Unit(benchmark::kMillisecond);
BENCHMARK(MaskFromWiderPixels<unsigned int>)->Unit(benchmark::kMillisecond);

template <class T>
void ToBytes(benchmark::State& state)
{
    auto const image = Discs<T>();
    for (auto _ : state) {
        DerivedPointer<Image> const copy(image->Clone(true));
        copy->Depth8();
    }
    Done(state);
}
BENCHMARK(ToBytes<unsigned short>)->Unit(benchmark::kMillisecond);
BENCHMARK(ToBytes<unsigned int>)->Unit(benchmark::kMillisecond);

void Frame(benchmark::State& state)
{
    auto const image = Image::Create(side, side, Vector::UnsignedShort, 1.0);
    for (auto _ : state)
        benchmark::DoNotOptimize(check_image_borders_clear(image, false));
}
BENCHMARK(Frame);

#ifdef MEMBLOCK_HAVE_OPENCV
void MaskListOpenCV(benchmark::State& state)
{
    auto const image = MaskPicture(state);
    cv::setNumThreads(1);
    cv::Mat const mat(side, side, CV_8U, image->BytePointer());
    std::vector<cv::Point> points;
    for (auto _ : state) {
        cv::findNonZero(mat, points);
        benchmark::DoNotOptimize(points.data());
    }
    Done(state);
}
BENCHMARK(MaskListOpenCV)->Arg(0)->Arg(1)->Arg(50)->Arg(99)->Unit(benchmark::kMillisecond);

template <int type>
void TransposeOpenCV(benchmark::State& state)
{
    cv::setNumThreads(1);
    cv::Mat const mat = cv::Mat::zeros(side, side, type);
    for (auto _ : state) {
        cv::Mat turned;
        cv::transpose(mat, turned);
        benchmark::DoNotOptimize(turned.data);
    }
    Done(state);
}
BENCHMARK(TransposeOpenCV<CV_8U>)->Unit(benchmark::kMillisecond);
BENCHMARK(TransposeOpenCV<CV_16U>)->Unit(benchmark::kMillisecond);
BENCHMARK(TransposeOpenCV<CV_32S>)->Unit(benchmark::kMillisecond);
BENCHMARK(TransposeOpenCV<CV_64F>)->Unit(benchmark::kMillisecond);
#endif

} // namespace
