// Keys of vectors, read and written: positions, slices, insertions, lists, quoted names.

#include "fuzz.h"

#include <memblock/vector/vector.h>

#include <cstdio>
#include <cstdlib>

using namespace NKelmic;

namespace {

DerivedPointer<Vector> MakeNumbers()
{
    auto const v = Vector::Create(5, Vector::Short, true, 0, 0.5);
    for (unsigned int i = 0; i < 5; ++i)
        v->SetElem(i, static_cast<int>(i));
    return v;
}

void MustBeConsistent(Vector const& v)
{
    safestring message;
    if (v.Consistent(message, true))
        return;
    std::fputs(message.c_str(), stderr);
    std::abort();
}
} // namespace

void FuzzOne(std::string const& input)
{
    safestring const key(input.data(), input.size());
    auto const numbers = MakeNumbers();
    auto const values = Vector::Create(3, Vector::PolyType, true, 0, 1.0);
    for (auto const& v : {numbers, values}) {
        Ignore([&] {
            DataItem const item = v->ResolveSubItem(key, throw_always);
            PMemBlock const object = item.GetMemory();
            if (auto const* found = MemCast<Vector>(object))
                MustBeConsistent(*found);
        });
        v->ResolveSubItem(key, throw_never);
        Ignore([&] { v->SetSubItem(key, DataItem(7), throw_always); });
        Ignore([&] { v->SetSubItem(key, DataItem("2,3"), throw_always); });
        Ignore([&] {
            SafeValue argv[4] = {DataItem("vector"), DataItem(key), DataItem(2), DataItem(1)};
            v->DoVerb("create", 4, argv);
        });
        MustBeConsistent(*v);
    }
}

std::vector<std::string> FuzzSeeds()
{
    return {"3..5",
            "0x1..0x2",
            "-1",
            "+2",
            "_3",
            "4294967296",
            "99999999999999999999..1",
            "@slice:1:4",
            "@slice:",
            "@insert:2",
            "@insert:",
            "@mean",
            "@mean@",
            "@!@",
            "length",
            "elemtype",
            "empty_dimensions",
            "@quoted name@",
            "unsigned,short"};
}
