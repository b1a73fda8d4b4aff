// Rows of tables and their forms, at sizes that tell whether the time is linear.

#include <memblock/collections/table.h>
#include <memblock/serial/serializer.h>

#include <benchmark/benchmark.h>

using namespace NKelmic;

namespace {

constexpr int columns = 10;

void AppendRows(benchmark::State& state)
{
    auto const row = Container::Create();
    for (int i = 0; i < columns; ++i)
        row->Put(i + 0.5, DefaultColName(i));
    for (auto _ : state) {
        auto const table = Table::Create(0, columns, Vector::Double);
        for (long i = 0; i < state.range(0); ++i)
            table->AppendRow(*row, false, true);
        benchmark::DoNotOptimize(table->RowCount());
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(AppendRows)->RangeMultiplier(10)->Range(1000, 100000)->Complexity(benchmark::oN);

void Form(benchmark::State& state, int format)
{
    auto const table = Table::Create(static_cast<int>(state.range(0)), columns, Vector::Double);
    for (int i = 0; i < columns; ++i)
        for (int row = 0; row < table->RowCount(); ++row)
            table->Column(i)->DoublePointer()[row] = row / 7.0 + i;
    Formatter const formatter;
    for (auto _ : state) {
        SerializeVisitor visitor;
        safestring text;
        cref(table).Serialize(format, visitor, "t", formatter, text);
        benchmark::DoNotOptimize(text.data());
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK_CAPTURE(Form, text, 2)->RangeMultiplier(10)->Range(1000, 100000)->Complexity();
BENCHMARK_CAPTURE(Form, html, 3)->RangeMultiplier(10)->Range(1000, 100000)->Complexity();

} // namespace
