#include <memblock/core/options.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

using namespace NKelmic;

namespace {

// A picture of 4096 x 4096 with round objects on a grid: some 20,000, or a million of few pixels.
constexpr unsigned int side = 4096;

unsigned int Pitch(benchmark::State const& state)
{
    return static_cast<unsigned int>(state.range(0)); // 29: 19,881 objects; 4: 1,046,529
}

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

void StencilVector(benchmark::State& state)
{
    auto const image = LabelImage(Pitch(state));
    for (auto _ : state)
        benchmark::DoNotOptimize(image->GetStencilVector());
}

// The peer sorts pixel numbers by label, as array languages do.
void SortPixelsByLabel(benchmark::State& state)
{
    auto const labels = Labels(Pitch(state));
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

void MeasureByStructure(benchmark::State& state)
{
    auto const objects = LabelImage(Pitch(state))->GetStencilVector();
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

void MeasureByRuns(benchmark::State& state)
{
    auto const labels = Labels(Pitch(state));
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

void Draw(benchmark::State& state)
{
    auto const objects = LabelImage(Pitch(state))->GetStencilVector();
    for (auto _ : state)
        benchmark::DoNotOptimize(cref(objects).GetMaskImage());
}

void ClearAndStore(benchmark::State& state)
{
    auto const objects = LabelImage(Pitch(state))->GetStencilVector();
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
    explicit Operands(benchmark::State const& state)
    {
        bool const alike = state.range(1) == 0;
        a = LabelImage(Pitch(state), alike ? 0 : 1)->GetStencilVector();
        b = alike ? Moved(a) : LabelImage(Pitch(state), 2)->GetStencilVector();
    }
};

void LogicalOp(benchmark::State& state, char op)
{
    auto const [a, b] = Operands(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(a->op(op, b, op_options()));
}

void StandardAlgorithm(benchmark::State& state, char op)
{
    auto const [a, b] = Operands(state);
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

void Pictures(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgsProduct({{29, 4}, {0, 1}})->ArgNames({"", "cut"})->Unit(benchmark::kMillisecond);
}

BENCHMARK(SortPixelsByLabel)->Arg(29)->Unit(benchmark::kMillisecond);
BENCHMARK(StencilVector)->Arg(29)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(MeasureByRuns)->Arg(29)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(MeasureByStructure)->Arg(29)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(ClearAndStore)->Arg(29)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK(Draw)->Arg(29)->Arg(4)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(StandardAlgorithm, and, '&')->Apply(Pictures);
BENCHMARK_CAPTURE(LogicalOp, and, '&')->Apply(Pictures);
BENCHMARK_CAPTURE(StandardAlgorithm, or, '|')->Apply(Pictures);
BENCHMARK_CAPTURE(LogicalOp, or, '|')->Apply(Pictures);
BENCHMARK_CAPTURE(StandardAlgorithm, xor, '^')->Apply(Pictures);
BENCHMARK_CAPTURE(LogicalOp, xor, '^')->Apply(Pictures);

} // namespace
