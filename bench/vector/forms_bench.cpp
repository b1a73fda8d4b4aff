// Text and binary forms of vectors, and reads by key. Each form is timed beside what a program
// would write by hand: snprintf per element, EVP_EncodeBlock where OpenSSL is installed, a map
// look-up.

#include <memblock/base/text.h>
#include <memblock/serial/serializer.h>
#include <memblock/vector/vector.h>

#include <benchmark/benchmark.h>

#ifdef MEMBLOCK_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

#include <cstdio>
#include <map>
#include <random>

using namespace NKelmic;

namespace {

DerivedPointer<Vector> RandomDoubles(unsigned long n)
{
    auto const v = Vector::Create(n, Vector::Double, true, 0, 1.0);
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> numbers(-1e6, 1e6);
    double* const data = v->DoublePointer();
    for (unsigned long i = 0; i < n; ++i)
        data[i] = numbers(random);
    return v;
}

void TextForm(benchmark::State& state)
{
    auto const v = RandomDoubles(1000000);
    Formatter formatter;
    formatter.SetValue("precision", static_cast<int>(state.range(0)));
    SerializeVisitor visitor;
    for (auto _ : state) {
        safestring output;
        v->Serialize(Formatter::ser_ascii, visitor, "", formatter, output);
        benchmark::DoNotOptimize(output.data());
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations()) * v->Length());
}

void PrintfForm(benchmark::State& state)
{
    auto const v = RandomDoubles(1000000);
    double const* const data = cref(v).DoublePointer();
    for (auto _ : state) {
        std::string output;
        char line[64];
        for (unsigned int i = 0; i < cref(v).Length(); ++i) {
            int const n = std::snprintf(line, sizeof line, "%.*g\n",
                                        static_cast<int>(state.range(0)), data[i]);
            output.append(line, static_cast<std::size_t>(n));
        }
        benchmark::DoNotOptimize(output.data());
    }
    state.SetItemsProcessed(static_cast<long>(state.iterations()) * v->Length());
}

std::string const& Bytes()
{
    static std::string const bytes(16 << 20, 'x');
    return bytes;
}

void Base64(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Encode_base64(Bytes().data(), Bytes().size()).data());
    state.SetBytesProcessed(static_cast<long>(state.iterations() * Bytes().size()));
}

#ifdef MEMBLOCK_HAVE_OPENSSL
void EvpEncodeBlock(benchmark::State& state)
{
    for (auto _ : state) {
        std::string encoded(Bytes().size() / 3 * 4 + 8, '\0');
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()),
                        reinterpret_cast<unsigned char const*>(Bytes().data()),
                        static_cast<int>(Bytes().size()));
        benchmark::DoNotOptimize(encoded.data());
    }
    state.SetBytesProcessed(static_cast<long>(state.iterations() * Bytes().size()));
}
BENCHMARK(EvpEncodeBlock)->Unit(benchmark::kMillisecond);
#endif

void ReadKey(benchmark::State& state, char const* name)
{
    auto const v = RandomDoubles(100);
    safestring const key = name;
    for (auto _ : state)
        benchmark::DoNotOptimize(v->ResolveSubItem(key, throw_always));
}

void MapLookUp(benchmark::State& state)
{
    std::map<safestring, DataItem> items;
    for (char const* name :
         {"max", "min", "mean", "median", "sum", "stddev", "dims", "length", "elemsize", "factor"})
        items[name] = DataItem(1.5);
    safestring const key = "mean";
    for (auto _ : state)
        benchmark::DoNotOptimize(DataItem(items.find(key)->second));
}

} // namespace

BENCHMARK(TextForm)->Arg(6)->Arg(17)->Unit(benchmark::kMillisecond);
BENCHMARK(PrintfForm)->Arg(6)->Arg(17)->Unit(benchmark::kMillisecond);
BENCHMARK(Base64)->Unit(benchmark::kMillisecond);
BENCHMARK(MapLookUp);
BENCHMARK_CAPTURE(ReadKey, mean, "@mean");
BENCHMARK_CAPTURE(ReadKey, length, "length");
BENCHMARK_CAPTURE(ReadKey, index, "42");
