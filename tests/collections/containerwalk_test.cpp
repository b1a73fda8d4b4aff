#include "container_fixture.h"

#include <memblock/core/md5.h>
#include <memblock/serial/serializer.h>
#include <memblock/vector/vector.h>
#include <support/raises.h>
#include <support/testblock.h>
#include <support/vectors.h>

#include <algorithm>
#include <gtest/gtest.h>

using namespace NKelmic;

namespace {

/// Notes the paths that it sees; does at each what a test wants.
struct PathVisitor : MemBlockVisitor {
    using MemBlockVisitor::Visit;
    int Visit(safestring const& path, PMemBlock& block) override
    {
        paths += path.c_str() + std::string("|");
        return at_each ? at_each(path, block) : int(go_on);
    }
    std::string paths;
    std::function<int(safestring const&, PMemBlock&)> at_each;
};

std::string Fed(safestring const& text)
{
    return std::string(text.data(), text.size()) + '\0';
}

template <class T>
std::string Raw(T value)
{
    return std::string(reinterpret_cast<char const*>(&value), sizeof value);
}

} // namespace

TEST(ContainerWalk, ObjectsAreVisitedInNameOrderUnderTheirPaths)
{
    ThreadSharablePointer<NamedSharable> const sharable = new NamedSharable("s");
    auto const c = Cnt("b", DataItem(Ints({1})), "a", DataItem(Cnt("[x", DataItem(Ints({2})))), "n",
                       1, "s", DataItem(sharable), "z", DataItem(Ints({3})));
    c->GetAttr(true);
    PathVisitor all;
    EXPECT_TRUE(c->Entertain(all, "r", MemBlock::em_all));
    EXPECT_EQ(all.paths, "r.@sticky|r|r.a|r.a.[x|r.b|r.z|");
    EXPECT_EQ(sharable->asked, "entertain r.s");
    EXPECT_EQ(sharable->argument.GetPointer(), static_cast<MemBlockVisitor*>(&all));

    PathVisitor self;
    EXPECT_TRUE(c->Entertain(self, "", MemBlock::em_no_attr));
    EXPECT_EQ(self.paths, "|");
    sharable->answer = 0;
    PathVisitor children;
    EXPECT_FALSE(c->Entertain(children, "", MemBlock::em_no_self));
    EXPECT_EQ(children.paths, "@sticky|a|a.[x|b|");
    PathVisitor skips;
    skips.at_each = [](safestring const&, PMemBlock&) {
        return int(MemBlockVisitor::skip_children);
    };
    c->Entertain(skips, "", MemBlock::em_no_self);
    EXPECT_EQ(skips.paths, "@sticky|a|b|");
}

TEST(ContainerWalk, ItemsMayComeAndGoMeanwhile)
{
    std::tuple<std::function<void(Container&)>, char const*> const cases[] = {
        {[](Container& c) { c.Delete("b"); }, "b|d|"},
        {[](Container& c) { c.Delete("c"), c.Delete("d"); }, "b|"},
        {[](Container& c) { c.clear(); }, "b|"},
        {[](Container& c) { c.Put(DataItem(Ints({1})), "c"); }, "b|c|d|"},
        {[](Container& c) { c.SetOrdered(!c.IsOrdered()); }, "b|d|"},
        {[](Container& c) { c.Swap(*Cnt("y", 1)); }, "b|"}};
    for (auto const& [change, paths] : cases) {
        SCOPED_TRACE(&change - &std::get<0>(cases[0]));
        for (bool const ordered : {false, true}) {
            auto const c = Cnt("a", 1, "b", DataItem(Ints({1})), "d", DataItem(Ints({1})));
            c->SetOrdered(ordered);
            PathVisitor visitor;
            visitor.at_each = [&, first = true](safestring const&, PMemBlock&) mutable {
                if (std::exchange(first, false))
                    change(*c);
                return int(MemBlockVisitor::go_on);
            };
            c->ScanItems(visitor, nullptr);
            EXPECT_EQ(visitor.paths, paths);
        }
    }
}

TEST(ContainerWalk, AScanShowsObjectsOfAClassAndTakesOthersInTheirPlace)
{
    auto const c =
        Cnt("a", DataItem(Ints({1})), "b", DataItem(Cnt("x", 1)), "v", DataItem(Ints({2})));
    PathVisitor visitor;
    auto const fresh = Ints({9});
    visitor.at_each = [&](safestring const& path, PMemBlock& block) {
        block = path == "a" ? PMemBlock(fresh) : PMemBlock();
        return 0; // a scan has no end but the last item
    };
    c->ScanItems(visitor, "Vector");
    EXPECT_EQ(visitor.paths, "a|v|");
    EXPECT_EQ(c->GetMemory("a", nullptr), fresh);
    EXPECT_TRUE(c->Get("v").IsUndefined());
}

TEST(ContainerWalk, AClonesItemsAreSharedClonedOrCopiedByItsMode)
{
    auto const numbers = Ints({1, 2});
    ThreadSharablePointer<NamedSharable> const sharable = new NamedSharable("s");
    auto const c = Cnt("n", 1, "s", DataItem(sharable), "v", DataItem(numbers));
    c->InsertAt(0, "v", DataItem(numbers));
    for (bool const share : {true, false}) {
        auto const clone = DerivedPointer<Container>(c->Clone(share));
        DerivedPointer<Vector> const copy = clone->GetMemory("v", "vector");
        EXPECT_NE(copy.Pointer(), numbers.Pointer());
        EXPECT_EQ(cref(copy).Pointer() == cref(numbers).Pointer(), share);
        EXPECT_EQ(clone->Get("s").GetSharable()->GetDescription(), "s'");
        EXPECT_EQ(clone->GetNameByPos(0), "v");
        clone->Put(2, "n");
        EXPECT_EQ(c->Get("n").GetInt(), 1);
    }
    c->Put(DataItem(Cnt("x", 1)), "c");
    auto const branch = DerivedPointer<Container>(c->CloneToBranch("c"));
    EXPECT_EQ(branch->GetMemory("v", nullptr), numbers);
    EXPECT_FALSE(branch->GetMemory("c", nullptr) == c->GetMemory("c", nullptr));
}

TEST(ContainerWalk, TheHashIsThatOfDescriptionNamesAndValues)
{
    auto const numbers = Bytes({1, 2});
    ThreadSharablePointer<NamedSharable> const sharable = new NamedSharable("one");
    auto const c = Cnt("t", "short", "i", 5, "f", 0.5, "l", 6LL, "v", DataItem(numbers), "s",
                       DataItem(sharable), "x", "a text of more than twenty bytes");
    c->Put(SafeValue(), "u");
    std::string const fed =
        Fed(c->GetDescription()) + Fed("f") + Raw(0.5) + Fed("i") + Raw(5) + Fed("l") + Raw(6LL) +
        Fed("s") + Fed("one") + Fed("t") + "short" + Fed("u") + "undef\xff" + Fed("v") + Fed("x") +
        "a text of more than twenty bytes" + Fed(numbers->GetDescription()) + "\1\2";
    safestring const hash = md5_hash(fed.data(), static_cast<unsigned>(fed.size()));
    EXPECT_EQ(c->GetSubItem("@md5", throw_always).GetString(), hash);
    sharable->answer = 1; // it has fed itself
    c->ContentHasBeenChanged();
    EXPECT_NE(c->GetSubItem("@md5", throw_always).GetString(), hash);

    std::string const empty = Fed("Container: 0 elements.") + "qv7xk20915lmzt[]hgrpn-=-bcsa#%$!@&";
    EXPECT_EQ(Container::Create()->GetSubItem("@md5", throw_always).GetString(),
              md5_hash(empty.data(), static_cast<unsigned>(empty.size())));
    EXPECT_RAISES(c->DoVerb("MD5", 0, nullptr), 4096,
                  "Assertion failed: visitor, file memblockimpl, line 204");
    PathVisitor visitor;
    SafeValue argument(static_cast<void*>(static_cast<MemBlockVisitor*>(&visitor)));
    c->DoVerb("md5", 1, &argument);
    EXPECT_EQ(visitor.paths, "|v|");
}

TEST(ContainerWalk, TenThousandLevelsAreWalkedToTheLast)
{
    constexpr int depth = 10000;
    auto const c = Nested(depth);
    auto const clone = DerivedPointer<Container>(c->Clone(false));
    EXPECT_TRUE(*clone == *c);
    safestring path;
    for (int i = 1; i < depth; ++i)
        path += "a.";
    path += "leaf";
    safestring const hash = c->GetSubItem("@md5", throw_always).GetString();
    EXPECT_TRUE(clone->SetSubItem(path, 2, throw_always));
    EXPECT_EQ(clone->GetSubItem(path, throw_always).GetInt(), 2);
    EXPECT_FALSE(*clone == *c);
    EXPECT_NE(clone->GetSubItem("@md5", throw_always).GetString(), hash);
    clone->Merge(c);
    EXPECT_TRUE(*clone == *c);
    clone->MakeDeepCopy();
    EXPECT_EQ(clone->CalcMemUsage(), 0);
    safestring text;
    EXPECT_TRUE(clone->Consistent(text, true));

    safestring const expression = c->GetSubItem("@expression", throw_always).GetString();
    EXPECT_EQ(expression.size(), 7u * (depth - 1) + 11u);
    SerializeVisitor visitor("v");
    Formatter formatter;
    c->Serialize(Formatter::ser_xml, visitor, "r", formatter, text);
    EXPECT_EQ(text.substr(0, 24), "<a n=\"leaf\" t=\"i\">1</a>\n");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), depth);
    text.clear();
    c->Serialize(Formatter::ser_morvane, visitor, "r", formatter, text);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3 * depth - 2);
}

TEST(ContainerWalk, OneThatHoldsItselfHasAnEnd)
{
    // By itself, and by way of a vector; each has a twin that holds the same.
    auto const make = [](bool by_vector) {
        auto const c = Cnt("n", 1);
        PMemBlock const inner = by_vector ? PMemBlock(Objects({PMemBlock(c)})) : PMemBlock(c);
        c->Put(DataItem(inner), "self");
        return c;
    };
    for (bool const by_vector : {false, true}) {
        auto const c = make(by_vector), twin = make(by_vector);
        safestring text;
        EXPECT_EQ(c->GetSubItem("@expression", throw_always).GetString().find(",self="), 7u);
        EXPECT_EQ(c->GetSubItem("@md5", throw_always).GetString(),
                  twin->GetSubItem("@md5", throw_always).GetString());
        EXPECT_EQ(*c == *twin, !by_vector) << "vectors are compared by what they are";
        EXPECT_TRUE(c->Consistent(text, true));
        EXPECT_GE(c->CalcMemUsage(), 0);
        if (!by_vector)
            c->Merge(twin);
        c->Merge(c);
        c->SetConst(true);
        for (int const form : {Formatter::ser_xml, Formatter::ser_morvane}) {
            SerializeVisitor visitor("v");
            EXPECT_THROW(c->Serialize(form, visitor, "r", Formatter(), text), Exception);
            EXPECT_EQ(text, "");
        }
        EXPECT_RAISES(c->Clone(false), 256,
                      "An object that holds itself cannot be cloned: " +
                          (by_vector ? safestring("Vector of 1 elements of type memblock")
                                     : c->GetDescription()));
        EXPECT_EQ(c->Count(), 2u);
        c->clear();
        twin->clear();
    }
}
