// Object pointers, the cache of derived values, walks and the content hash, each beside what it
// is measured against.

#include <memblock/core/md5.h>
#include <memblock/core/memblockimpl.h>

#include "../../tests/support/testblock.h"

#include <benchmark/benchmark.h>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <dlfcn.h>
#include <map>
#include <string>
#include <vector>

using namespace NKelmic;

namespace {

struct Plain : boost::intrusive_ref_counter<Plain, boost::thread_unsafe_counter> {};
struct Atomic : boost::intrusive_ref_counter<Atomic, boost::thread_safe_counter> {};

template <class Pointer>
void CopyAndDrop(benchmark::State& state, Pointer const& source)
{
    for (auto _ : state) {
        Pointer copy(source);
        benchmark::DoNotOptimize(copy);
    }
}

void PointerPlainCounter(benchmark::State& state)
{
    CopyAndDrop(state, boost::intrusive_ptr<Plain>(new Plain));
}
void PointerAtomicCounter(benchmark::State& state)
{
    CopyAndDrop(state, boost::intrusive_ptr<Atomic>(new Atomic));
}
void PointerPMemBlock(benchmark::State& state)
{
    CopyAndDrop(state, PMemBlock(TestBlock::Create()));
}
void PointerDerived(benchmark::State& state)
{
    CopyAndDrop(state, TestBlock::Create());
}
BENCHMARK(PointerPlainCounter);
BENCHMARK(PointerAtomicCounter);
BENCHMARK(PointerPMemBlock);
BENCHMARK(PointerDerived);

constexpr int cached_keys = 12;

void CacheMapOfDoubles(benchmark::State& state)
{
    std::map<int, double> map;
    for (int i = 0; i < cached_keys; ++i)
        map[100 + i] = i;
    int key = 105;
    for (auto _ : state) {
        benchmark::DoNotOptimize(key);
        benchmark::DoNotOptimize(map.find(key)->second);
    }
}
void CacheSecondaryDouble(benchmark::State& state)
{
    auto const block = TestBlock::Create();
    for (int i = 0; i < cached_keys; ++i)
        block->SetSecondaryItem(100 + i, DataItem(double(i)));
    int key = 105;
    for (auto _ : state) {
        benchmark::DoNotOptimize(key);
        benchmark::DoNotOptimize(block->SecondaryDouble(key, throw_always));
    }
}
void CacheFailedLookUp(benchmark::State& state)
{
    auto const block = TestBlock::Create();
    bool ok = true;
    CheckOk check(ok);
    for (auto _ : state)
        benchmark::DoNotOptimize(block->SecondaryDouble(555, check));
}
BENCHMARK(CacheMapOfDoubles);
BENCHMARK(CacheSecondaryDouble);
BENCHMARK(CacheFailedLookUp);

/// A tree of `nodes` objects, a hundred children each.
DerivedPointer<TestBlock> Tree(long nodes)
{
    auto root = TestBlock::Create();
    std::vector<DerivedPointer<TestBlock>> level{root}, next;
    for (long made = 1; made < nodes;) {
        for (auto const& parent : level) {
            for (int i = 0; i < 100 && made < nodes; ++i, ++made) {
                next.push_back(TestBlock::Create());
                parent->items[std::to_string(i).c_str()] = DataItem(next.back());
            }
        }
        level.swap(next);
        next.clear();
    }
    return root;
}

void WalkMemUsage(benchmark::State& state)
{
    auto const tree = Tree(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(tree->CalcMemUsage());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
void WalkDeepCopy(benchmark::State& state)
{
    auto const tree = Tree(state.range(0));
    PMemBlock const held = tree->items["7"].GetMemory();
    for (auto _ : state) {
        auto const copy = DerivedPointer<TestBlock>(tree->Clone(true));
        copy->MakeDeepCopy();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(WalkMemUsage)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(WalkDeepCopy)->Arg(10'000)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

void Md5Ours(benchmark::State& state)
{
    std::vector<unsigned char> const data(state.range(0), 0x5a);
    for (auto _ : state)
        benchmark::DoNotOptimize(md5_hash(data.data(), static_cast<unsigned int>(data.size())));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
void Md5OpenSsl(benchmark::State& state)
{
    void* const library = dlopen("libcrypto.so.3", RTLD_NOW);
    auto const digest =
        reinterpret_cast<unsigned char* (*)(unsigned char const*, std::size_t, unsigned char*)>(
            library ? dlsym(library, "MD5") : nullptr);
    if (!digest) {
        state.SkipWithError("no libcrypto here");
        return;
    }
    std::vector<unsigned char> const data(state.range(0), 0x5a);
    unsigned char out[16];
    for (auto _ : state)
        benchmark::DoNotOptimize(digest(data.data(), data.size(), out));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Md5OpenSsl)->Arg(64 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(Md5Ours)->Arg(64 << 20)->Unit(benchmark::kMillisecond);

} // namespace
