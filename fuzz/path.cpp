// Paths, keys, soft links, conversion arguments and format words, on damaged texts.

#include "fuzz.h"

#include <memblock/core/subitem.h>
#include <memblock/serial/serializer.h>
#include <memblock/vector/vector.h>

using namespace NKelmic;

namespace {

/// A vector of values that are objects, texts and numbers in turn, nested a few levels deep.
PMemBlock Tree(int depth)
{
    auto const values = Vector::Create(4, Vector::PolyType, false, 0, 1.0);
    values->SetElem(0, DataItem(7));
    values->SetElem(1, DataItem("a text too long for the item's own room"));
    values->SetElem(2, DataItem(Vector::CreateFrom(2.5)));
    values->SetElem(3, depth > 0 ? DataItem(Tree(depth - 1)) : DataItem());
    return values;
}
} // namespace

void FuzzOne(std::string const& input)
{
    static PMemBlock const root = Tree(3);
    safestring const text(input.data(), input.size());
    bool ok = true;
    CheckOk check(ok);
    Ignore([&] { root->GetSubItem(text, throw_always); });
    Ignore([&] { root->GetSubItem(text, check); });
    Ignore([&] { root->GetSubItemMemBlock(text, throw_never, "vector"); });
    Ignore([&] { root->Clone(true)->SetSubItem(text, DataItem(1), throw_always); });
    Ignore([&] { IsSystemSubKey(*root, text); });

    safestring result;
    CollapseSoftLink(input.c_str(), ".tail", input.c_str(), result);
    ConvertOptions options;
    Ignore([&] { root->ConvertArgs(safestringlist(text, ','), options, throw_always); });
    Formatter formatter;
    Ignore([&] { root->SerialArgs(safestringlist(text, '|'), formatter, throw_always); });
}

std::vector<std::string> FuzzSeeds()
{
    return {"3.3.2.0",
            "3.2.@self.@subkeys.0",
            "a[b.c].d(e.f).g",
            "@sticky.x.y",
            "@slice:0:2",
            "3..5",
            "@!@",
            "@quoted name@.%@type",
            "1.length",
            "<.<.x.<",
            " a = 5 ,b=5.5,flag,c=0x10",
            "xml, plot2d;precision=3\tsep=;",
            std::string(40, '[') + "." + std::string(40, '('),
            std::string(400, '.')};
}
