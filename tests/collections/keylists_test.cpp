#include <memblock/collections/table.h>
#include <memblock/core/keytable.h>
#include <memblock/imaging/datacube.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/mask.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>
#include <memblock/imaging/stencil.h>
#include <memblock/serial/warning.h>
#include <support/vectors.h>

#include <gtest/gtest.h>
#include <set>

using namespace NKelmic;

namespace {

/// What numbers have and objects have not.
bool IsSummary(std::string name)
{
    if (name[0] == '_')
        name.erase(0, 1);
    static std::set<std::string> const names{"min",    "max",       "minat",    "maxat",
                                             "mean",   "median",    "fmedian",  "sum",
                                             "stddev", "histogram", "rough_max"};
    return names.count(name) > 0;
}

} // namespace

TEST(KeyLists, OfEveryClassHoldNamesThatCanBeReadAndNoOthers)
{
    MemBlock_DoVerb("set_calldistributionfunc",
                    DataItem(reinterpret_cast<void*>(
                        +[](PMemBlock, int, bool) -> PMemBlock { return Vector::Create(); })));
    auto const pixels = IndexVector::Create(UInts({6, 7}), 5, 4);
    auto const labels = IntervalVector::Create(1, DerivedPointer<Vector>(pixels));
    PMemBlock const objects[] = {Bytes({1, 2, 3}),
                                 Doubles({1.5}, 2.0),
                                 Triples({5u, 6u}),
                                 Texts({"a"}),
                                 Objects({Ints({1})}),
                                 Items({DataItem(1), DataItem("t")}),
                                 Cnt("a", 1, "b", "text"),
                                 Table::Create("a", Ints({1}), "q r", Texts({"t"})),
                                 Image::Create(5, 4, Vector::Byte, 1.0),
                                 DataCube::Create(2, 2, 2, Vector::Byte, 1.0),
                                 pixels,
                                 labels,
                                 Point::Create(1, 2),
                                 NumRange::Create(1, 4),
                                 Mask::Create(DerivedPointer<Vector>(pixels)),
                                 Stencil::Create(DerivedPointer<Vector>(labels))};
    for (PMemBlock const& object : objects) {
        SCOPED_TRACE(object.GetDescription().c_str());
        auto const list = [&](char const* key) {
            return object->ResolveSubItem(key, throw_always).GetString();
        };
        auto const* const vector = MemCast<Vector>(object.Pointer());
        EXPECT_TRUE(!vector || list("") == list("!"));
        bool const numbers = !vector || !Vector::IsObject(vector->ElemType());
        for (char const* key : {"", "!", "*"}) {
            int names = 0;
            AnyKeyOfList(list(key), [&](KeyListEntry const& entry) {
                safestring const name(entry.name.data(), entry.name.size());
                ++names;
                if (!vector && name[0] == '@' && name.back() == '@')
                    return false; // the quoted name of an item
                DataItem const value = object->ResolveSubItem(name, throw_never);
                EXPECT_EQ(value.IsDefined(), numbers || !IsSummary(name.c_str())) << name.c_str();
                return false;
            });
            EXPECT_GT(names, 1) << key;
        }
    }
    MemBlock_DoVerb("set_calldistributionfunc", DataItem(static_cast<void*>(nullptr)));
}
