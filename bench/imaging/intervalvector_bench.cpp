#include <memblock/core/options.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

using namespace NKelmic;

namespace {

// A picture of 4096 x 4096 with objects on a grid: 19,881 at a distance of 29 pixels, and 1,046,529
// of five pixels at a distance of 4.
constexpr unsigned int side = 4096;

/// Discs, or with a seed such whose rows are cut at random: no two are alike then.
std::vector<unsigned int> Labels(unsigned int pitch, unsigned int seed = 0)
{
    std::vector<unsigned int> labels(side * side);
    std::minstd_rand random(seed);
    int const radius = static_cast<int>(pitch) * 3 / 8, grid = static_cast<int>((side - 2) / pitch);
    unsigned int label = 0;
    for (int gy = 0; gy < grid; ++gy)
        for (int gx = 0; gx < grid; ++gx) {
            ++label;
            int const cx = 1 + gx * static_cast<int>(pitch) + radius;
            int const cy = 1 + gy * static_cast<int>(pitch) + radius;
            for (int y = -radius; y <= radius; ++y) {
                int const from = -radius + (seed ? static_cast<int>(random() % pitch) / 2 : 0);
                int const to = radius - (seed ? static_cast<int>(random() % pitch) / 2 : 0);
                for (int x = from; x <= to; ++x)
                    if (x * x + y * y <= radius * radius)
                        labels[static_cast<unsigned int>((cy + y) * static_cast<int>(side) + cx +
                                                         x)] = label;
            }
        }
    return labels;
}

DerivedPointer<Image> LabelImage(unsigned int pitch, unsigned int seed = 0)
{
    auto const labels = Labels(pitch, seed);
    unsigned int const count = *std::max_element(labels.begin(), labels.end());
    bool const narrow = count <= 65535;
    auto const image =
        Image::Create(side, side, narrow ? Vector::UnsignedShort : Vector::UnsignedInt, 1.0);
    if (narrow)
        std::copy(labels.begin(), labels.end(), image->UnsignedShortPointer());
    else
        std::copy(labels.begin(), labels.end(), image->UnsignedIntPointer());
    image->SetType(Image::stencil);
    return image;
}

void StencilVector(benchmark::State& state, unsigned int pitch)
{
    auto const image = LabelImage(pitch);
    for (auto _ : state)
        benchmark::DoNotOptimize(image->GetStencilVector());
}

/// Count, then fill, run by run: the lists without an object around them.
void GroupRuns(benchmark::State& state, unsigned int pitch)
{
    auto const image = LabelImage(pitch);
    auto const group = [&]<class T>(T const* labels) {
        std::vector<unsigned int> start(image->GetStencilCount() + 2ul);
        auto const each_run = [&](auto take) {
            for (unsigned int i = 0; i < side * side;) {
                unsigned int const from = i;
                T const label = labels[i];
                while (i < side * side && labels[i] == label)
                    ++i;
                if (label != 0)
                    take(label, from, i);
            }
        };
        each_run(
            [&](T label, unsigned int from, unsigned int to) { start[label + 1] += to - from; });
        std::partial_sum(start.begin(), start.end(), start.begin());
        auto* const pixels =
            static_cast<unsigned int*>(mb_malloc(start.back() * sizeof(unsigned int)));
        each_run([&](T label, unsigned int from, unsigned int to) {
            std::iota(pixels + start[label], pixels + start[label] + (to - from), from);
            start[label] += to - from;
        });
        benchmark::DoNotOptimize(pixels);
        mb_free(pixels);
    };
    for (auto _ : state)
        if (image->ElemSize() == 2)
            group(cref(image).UnsignedShortPointer());
        else
            group(cref(image).UnsignedIntPointer());
}

// The peer sorts pixel numbers by label, as array languages do.
void SortPixelsByLabel(benchmark::State& state, unsigned int pitch)
{
    auto const labels = Labels(pitch);
    for (auto _ : state) {
        std::vector<unsigned int> order;
        for (unsigned int i = 0; i < labels.size(); ++i)
            if (labels[i] != 0)
                order.push_back(i);
        std::stable_sort(order.begin(), order.end(),
                         [&](unsigned int a, unsigned int b) { return labels[a] < labels[b]; });
        benchmark::DoNotOptimize(order.data());
    }
}

struct Numbers {
    unsigned int area = 0, least = ~0u, greatest = 0;
    unsigned long sum = 0;
    void Add(unsigned int v)
    {
        ++area;
        least = std::min(least, v);
        greatest = std::max(greatest, v);
        sum += v;
    }
};

std::vector<unsigned short> Picture()
{
    std::vector<unsigned short> pixels(side * side);
    for (unsigned int i = 0; i < pixels.size(); ++i)
        pixels[i] = static_cast<unsigned short>(i * 2654435761u >> 16);
    return pixels;
}

void MeasureByStructure(benchmark::State& state, unsigned int pitch)
{
    auto const objects = LabelImage(pitch)->GetStencilVector();
    auto const pixels = Picture();
    IntervalVector const& v = cref(objects);
    for (auto _ : state) {
        unsigned int const* const index = cref(v.IndexVectorTarget()).UnsignedIntPointer();
        unsigned int const* const limit = v.StartAndEnd(0, false, true, nullptr);
        std::vector<Numbers> table(v.IntervalCount());
        for (unsigned int k = 0; k < table.size(); ++k) {
            Numbers numbers;
            for (unsigned int i = limit[k]; i < limit[k + 1]; ++i)
                numbers.Add(pixels[index[i]]);
            table[k] = numbers;
        }
        benchmark::DoNotOptimize(table.data());
    }
}

void MeasureByRuns(benchmark::State& state, unsigned int pitch)
{
    auto const labels = Labels(pitch);
    auto const pixels = Picture();
    unsigned int const count = *std::max_element(labels.begin(), labels.end());
    for (auto _ : state) {
        std::vector<Numbers> table(count + 1);
        for (unsigned int i = 0; i < labels.size();) {
            unsigned int const label = labels[i];
            if (label == 0) {
                ++i;
                continue;
            }
            Numbers numbers = table[label];
            for (; i < labels.size() && labels[i] == label; ++i)
                numbers.Add(pixels[i]);
            table[label] = numbers;
        }
        benchmark::DoNotOptimize(table.data());
    }
}

void Draw(benchmark::State& state, unsigned int pitch)
{
    auto const objects = LabelImage(pitch)->GetStencilVector();
    for (auto _ : state)
        benchmark::DoNotOptimize(cref(objects).GetMaskImage());
}

void ClearAndStore(benchmark::State& state, unsigned int pitch)
{
    auto const objects = LabelImage(pitch)->GetStencilVector();
    IntervalVector const& v = cref(objects);
    std::vector<unsigned int> image(side * side);
    bool const narrow = v.IntervalCount() <= 32000;
    for (auto _ : state) {
        unsigned int const* const index = cref(v.IndexVectorTarget()).UnsignedIntPointer();
        unsigned int const* const limit = v.Start(0);
        auto const store = [&](auto* pixels) {
            std::memset(pixels, 0, side * side * sizeof *pixels);
            for (unsigned int k = 0; k < v.IntervalCount(); ++k)
                for (unsigned int i = limit[k]; i < limit[k + 1]; ++i)
                    pixels[index[i]] =
                        static_cast<std::remove_reference_t<decltype(*pixels)>>(k + 1);
        };
        if (narrow)
            store(reinterpret_cast<unsigned short*>(image.data()));
        else
            store(image.data());
        benchmark::DoNotOptimize(image.data());
    }
}

/// The same objects, moved by some pixels, so that about half of each is common.
DerivedPointer<IntervalVector> Moved(DerivedPointer<IntervalVector> const& v)
{
    DerivedPointer<IntervalVector> const moved(v->Clone(false));
    auto const pixels = moved->IndexVectorTarget();
    unsigned int* const index = pixels->UnsignedIntPointer();
    for (unsigned int i = 0; i < pixels->Length(); ++i)
        index[i] += 4;
    return moved;
}

struct Operands {
    DerivedPointer<IntervalVector> a, b;
    Operands(unsigned int pitch, bool alike)
    {
        a = LabelImage(pitch, alike ? 0 : 1)->GetStencilVector();
        b = alike ? Moved(a) : LabelImage(pitch, 2)->GetStencilVector();
    }
};

void LogicalOp(benchmark::State& state, unsigned int pitch, char op, bool alike)
{
    auto const [a, b] = Operands(pitch, alike);
    for (auto _ : state)
        benchmark::DoNotOptimize(a->op(op, b, op_options()));
}

void StandardAlgorithm(benchmark::State& state, unsigned int pitch, char op, bool alike)
{
    auto const [a, b] = Operands(pitch, alike);
    unsigned int const *const limit = cref(a).Start(0), *const limit_b = cref(b).Start(0);
    unsigned int const count = std::min(a->IntervalCount(), b->IntervalCount());
    unsigned long const room =
        cref(a).IndexVectorTarget()->Length() + 1ul * cref(b).IndexVectorTarget()->Length();
    for (auto _ : state) {
        unsigned int const* const x = cref(cref(a).IndexVectorTarget()).UnsignedIntPointer();
        unsigned int const* const y = cref(cref(b).IndexVectorTarget()).UnsignedIntPointer();
        auto* const result = static_cast<unsigned int*>(mb_malloc(room * sizeof(unsigned int)));
        unsigned int* out = result;
        for (unsigned int k = 0; k < count; ++k) {
            auto const combine = [&](auto&& algorithm) {
                out = algorithm(x + limit[k], x + limit[k + 1], y + limit_b[k], y + limit_b[k + 1],
                                out);
            };
            if (op == '&')
                combine([](auto... p) { return std::set_intersection(p...); });
            else if (op == '|')
                combine([](auto... p) { return std::set_union(p...); });
            else
                combine([](auto... p) { return std::set_symmetric_difference(p...); });
        }
        benchmark::DoNotOptimize(out);
        mb_free(result);
    }
}

// ---- One pass over the pixels: packing, appending, flattening, beside a copy of as many pixels

/// The objects backwards, with separate ends.
DerivedPointer<IntervalVector> Backwards(DerivedPointer<IntervalVector> const& objects)
{
    DerivedPointer<IntervalVector> const turned(objects->Clone(false));
    std::vector<int> order(turned->IntervalCount());
    std::iota(order.rbegin(), order.rend(), 0);
    auto const count = static_cast<unsigned int>(order.size());
    turned->Rearrange(order.data(), count, count, throw_always);
    return turned;
}

void Reformat(benchmark::State& state, unsigned int pitch)
{
    auto const objects = Backwards(LabelImage(pitch)->GetStencilVector());
    for (auto _ : state) {
        DerivedPointer<IntervalVector> const packed(objects->Clone(true));
        packed->EnsureStartAndEnd();
        benchmark::DoNotOptimize(cref(packed).Start(0));
    }
}

void Merged(benchmark::State& state, unsigned int pitch)
{
    auto const objects = Backwards(LabelImage(pitch)->GetStencilVector());
    for (auto _ : state)
        benchmark::DoNotOptimize(cref(objects).MergedIndexVector());
}

void CopyBackwards(benchmark::State& state, unsigned int pitch)
{
    auto const objects = Backwards(LabelImage(pitch)->GetStencilVector());
    IntervalVector const& v = cref(objects);
    unsigned int const* const pixels = cref(v.IndexVectorTarget()).UnsignedIntPointer();
    unsigned int const *const start = v.Start(0), *const end = v.End(0);
    for (auto _ : state) {
        auto* const copy = static_cast<unsigned int*>(
            mb_malloc(v.IndexVectorTarget()->Length() * sizeof(unsigned int)));
        unsigned int* out = copy;
        for (unsigned int k = 0; k < v.IntervalCount(); ++k)
            out = std::copy(pixels + start[k], pixels + end[k], out);
        benchmark::DoNotOptimize(out);
        mb_free(copy);
    }
}

void Append(benchmark::State& state, unsigned int pitch)
{
    auto const objects = LabelImage(pitch)->GetStencilVector();
    for (auto _ : state) {
        DerivedPointer<IntervalVector> const both(objects->Clone(true));
        both->Append(objects);
        benchmark::DoNotOptimize(both.Pointer());
    }
}

void CopyTwice(benchmark::State& state, unsigned int pitch)
{
    auto const objects = LabelImage(pitch)->GetStencilVector();
    auto const pixels = cref(objects).IndexVectorTarget();
    unsigned long const n = pixels->Length();
    for (auto _ : state) {
        auto* const copy = static_cast<unsigned int*>(mb_malloc(2 * n * sizeof(unsigned int)));
        std::copy_n(cref(pixels).UnsignedIntPointer(), n, copy);
        std::copy_n(cref(pixels).UnsignedIntPointer(), n, copy + n);
        benchmark::DoNotOptimize(copy);
        mb_free(copy);
    }
}

// Named for bench/ratios.py: subject, distance of the objects, who; bench/imaging/scipy_peer.py
// times array programs under the same names.
template <class Work, class... Option>
void Register(char const* subject, char const* who, Work work, Option... option)
{
    for (unsigned int const pitch : {29u, 4u}) {
        std::string const name = std::string(subject) + "/" + std::to_string(pitch) + "/" + who;
        benchmark::RegisterBenchmark(name.c_str(), work, pitch, option...)
            ->Unit(benchmark::kMillisecond);
    }
}

[[maybe_unused]] bool const registered = [] {
    Register("StencilVector", "memblock", StencilVector);
    Register("StencilVector", "grouping", GroupRuns);
    Register("StencilVector", "sort", SortPixelsByLabel);
    Register("Measure", "memblock", MeasureByStructure);
    Register("Measure", "runs", MeasureByRuns);
    Register("Draw", "memblock", Draw);
    Register("Draw", "stores", ClearAndStore);
    for (char const op : {'&', '|', '^'})
        for (bool const alike : {true, false}) {
            std::string const subject = std::string(1, op) + (alike ? " alike" : " cut");
            Register(subject.c_str(), "memblock", LogicalOp, op, alike);
            Register(subject.c_str(), "std", StandardAlgorithm, op, alike);
        }
    Register("Reformat", "memblock", Reformat);
    Register("Reformat", "copy", CopyBackwards);
    Register("Merged", "memblock", Merged);
    Register("Merged", "copy", CopyBackwards);
    Register("Append", "memblock", Append);
    Register("Append", "copy", CopyTwice);
    return true;
}();

} // namespace
