// The keys of containers: places of insertions, questions and paths, on damaged texts.

#include "fuzz.h"

#include <memblock/collections/container.h>

#include <cstdlib>

using namespace NKelmic;

namespace {

/// An ordered container whose positions are all in use, each once.
void CheckPositions(Container const& c)
{
    for (unsigned pos = 0; pos < c.Count(); ++pos) {
        auto const item = c.find(c.GetNameByPos(static_cast<int>(pos)));
        if (item == c.end() || c.GetPos(item) != pos)
            std::abort();
    }
}

} // namespace

void FuzzOne(std::string const& input)
{
    safestring const key(input.data(), input.size());
    auto const c = Cnt("a", 1, "b", DataItem(Cnt("x", 2)), "Long name", 3, "5", "text");
    for (bool const ordered : {false, true}) {
        c->SetOrdered(ordered);
        Ignore([&] { c->Get(key); });
        Ignore([&] { c->Insert(key, 4); });
        Ignore([&] { c->GetSubItem(key, throw_always); });
        Ignore([&] { c->SetSubItem(key, 5, throw_always); });
        Ignore([&] { c->SetSubItem("b." + key, 6, throw_never); });
        Ignore([&] { c->GetMemory(key, "vector"); });
        CheckPositions(*c);
        Ignore([&] { c->SetSubItem(key, SafeValue(), throw_always); });
        CheckPositions(*c);
    }
}

std::vector<std::string> FuzzSeeds()
{
    return {"name:@before:a", "a:@after:1", "Long name:@first",   "b:@LAST",
            "a:@pos",         "2:@name",    "b.x:@before:0",      "x:@after:4294967295",
            "-1:@pos",        "1e9",        "@isordered",         "@my name@",
            "@keys",          "::::",       std::string(300, ':')};
}
