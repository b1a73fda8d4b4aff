#include "container_fixture.h"

#include <memblock/base/number.h>
#include <memblock/vector/vector.h>
#include <support/failing_alloc.h>
#include <support/logsink.h>
#include <support/raises.h>
#include <support/testblock.h>
#include <support/vectors.h>

#include <gtest/gtest.h>

using namespace NKelmic;

TEST(Container, ANameIsOneItemInAnyLetterCaseAndKeepsItsFirstSpelling)
{
    auto const c = Cnt("beta", 1, "ALPHA", 2, "_x", 3, "Alphabet", 4, "\xC4", 5);
    EXPECT_EQ(Listed(c), "\xC4=5 ALPHA=2 Alphabet=4 beta=1 _x=3")
        << "bytes above ASCII stand first";
    c->Put("new", "alpha");
    EXPECT_STREQ(c->find("Alpha")->first.c_str(), "ALPHA");
    EXPECT_EQ(c->Get("aLPHA").GetString(), "new");
    EXPECT_RAISES(c->Put(1, ""), 32, "Missing item name.");
    EXPECT_RAISES(c->InsertAt(0, "", 1), 32, "Missing item name.");
    EXPECT_TRUE(c->IsOrdered()) << "by the place, ahead of the refusal";
}

TEST(Container, ManyItemsAreFoundByNameWhateverComesAndGoes)
{
    auto const c = Container::CreateOrdered();
    std::map<safestring, int> expected;
    auto const name = [](int i) { return safestring(1 + i % 23, 'n') + str(i); };
    for (int i = 1; i < 10000; ++i) {
        safestring const added = name(i * 7919 % 1000), removed = name(i * 7727 % 1000);
        c->Put(i, added);
        expected[added] = i;
        EXPECT_EQ(c->Delete(removed), expected.erase(removed) == 1);
        if (i % 1000 == 0) { // the items change their owner
            c->SetOrdered(false);
            expected.erase(c->GetNameByPos(0));
            c->ReplaceAt(0, name(1000 + i), expected[name(1000 + i)] = i);
        }
        for (safestring const& asked : {name(i * 31 % 1000), name(1000 + i)}) {
            auto const found = expected.find(asked);
            ASSERT_EQ(c->Get(asked).DataItem::GetInt(),
                      found == expected.end() ? 0 : found->second);
        }
    }
    EXPECT_EQ(c->Count(), expected.size());
}

TEST(Container, AnItemThatIsThereMovesToThePlaceOfAnInsertion)
{
    std::tuple<unsigned, char const*, char const*> const cases[] = {
        {0, "x", "x=9 a=0 b=2 c=3"},     {1, "x", "a=0 x=9 b=2 c=3"},
        {2, "x", "a=0 x=9 b=2 c=3"},     {3, "x", "a=0 b=2 x=9 c=3"},
        {4, "x", "a=0 b=2 c=3 x=9"},     {99, "x", "a=0 b=2 c=3 x=9"},
        {0, "c", "c=9 a=0 x=1 b=2"},     {99, "c", "a=0 x=1 b=2 c=9"},
        {9, "n", "a=0 x=1 b=2 c=3 n=9"}, {1, "n", "a=0 n=9 x=1 b=2 c=3"}};
    for (auto const& [pos, name, listed] : cases) {
        SCOPED_TRACE(Text("%s at %u", name, pos).c_str());
        auto const c = Ordered("axbc");
        EXPECT_EQ(c->InsertAt(pos, name, 9)->second.GetInt(), 9);
        EXPECT_EQ(Listed(c), listed);
    }
}

TEST(Container, AReplacementUnderATakenNameLosesTheOldItem)
{
    auto const c = Ordered("abcd");
    c->ReplaceAt(1, "B", 7);
    EXPECT_EQ(Listed(c), "a=0 B=7 c=2 d=3");
    EXPECT_RAISES(c->ReplaceAt(2, "A", 9), 32,
                  "Cannot replace element 2 of an ordered container, because an item with the same "
                  "name already exists in the container: A");
    EXPECT_EQ(Listed(c), "a=0 B=7 d=3");
    c->ReplaceAt(0, c->begin()->first, c->begin()->second); // both go with the item
    EXPECT_EQ(Listed(c), "a=0 B=7 d=3");
    safestring const out = "Container element index 3 is out of range for: Ordered container: 3 "
                           "elements: a, B, d..";
    EXPECT_RAISES(c->ReplaceAt(3, "n", 1), 32, out);
    EXPECT_RAISES(c->ReplaceValueAt(3, 1), 32, out);
    EXPECT_RAISES(c->GetAt(3), 32, out);
}

TEST(Container, AMovedInItemHasNoPositionUntilItIsPlaced)
{
    auto const c = Ordered("ba");
    SafeValue value("a text that is longer than twenty bytes");
    c->MoveInto("n", value);
    EXPECT_TRUE(value.IsUndefined());
    value = 5;
    c->MoveInto("A", value);
    EXPECT_EQ(value.GetInt(), 1) << "comes back with the old value";
    EXPECT_EQ(c->Count(), 3u);
    EXPECT_EQ(c->GetPos(c->find("n")), 3u);
    EXPECT_TRUE(c->GetAt(2).IsUndefined());
    EXPECT_EQ(c->GetNameByPos(2), "");
    EXPECT_RAISES(c->ReplaceValueAt(2, 1), 32,
                  "Container element index 2 is out of range for: Ordered container: 3 elements: "
                  "b, a..");
    auto const clone = DerivedPointer<Container>(c->Clone(true));
    EXPECT_EQ(clone->GetPos(clone->find("n")), 3u);
    EXPECT_TRUE(clone->Delete("n"));
    c->InsertAt(1, "n", 6);
    EXPECT_EQ(Listed(c), "b=0 n=6 a=5");
}

TEST(Container, AChangeDropsCachedValuesAndWhatGoesMayComeBack)
{
    SafeValue value(3);
    std::function<void(Container&)> const changes[] = {
        [](Container& c) { c.Put(1, "b"); },
        [](Container& c) { c.Delete("b"); },
        [](Container& c) { c.erase(c.find("b")); },
        [](Container& c) { c.clear(); },
        [](Container& c) { c.Insert("b", 1); },
        [](Container& c) { c.InsertAt(0, "b", 1); },
        [](Container& c) { c.ReplaceAt(1, "n", 1); },
        [](Container& c) { c.ReplaceValueAt(1, 1); },
        [](Container& c) { c.Append(Cnt("b", 1)); },
        [&](Container& c) { c.MoveInto("b", value), value = 1; },
        [](Container& c) { c.Swap(*Container::CreateOrdered()); }};
    for (std::size_t i = 0; i < 2 * std::size(changes); ++i) {
        SCOPED_TRACE(i);
        bool const comes_back = i % 2 == 1;
        auto const c = Ordered("abc");
        int destroyed = 0;
        auto block = TestBlock::Create();
        block->destroyed = &destroyed;
        if (comes_back)
            block->on_destroy = [&c](TestBlock&) { c->Put(7, "z"); };
        c->Put(DataItem(block), "b");
        block = nullptr;
        c->SecondaryItem(MemBlock::key_md5, throw_always);
        changes[i / 2](*c);
        DataItem hash;
        EXPECT_FALSE(c->ExistsSecondaryItem(MemBlock::key_md5, hash));
        EXPECT_EQ(destroyed, 1);
        EXPECT_EQ(c->Get("z:@pos").GetInt(), comes_back ? static_cast<int>(c->Count()) - 1 : -1);
    }
    auto const c = Cnt("d", DataItem(Cnt("x", 0)));
    safestring const before = c->GetSubItem("@md5", throw_always).GetString();
    c->Merge(Cnt("d", DataItem(Cnt("x", 1)))); // changes an item of an item
    EXPECT_NE(c->GetSubItem("@md5", throw_always).GetString(), before);
}

TEST(Container, MergeGoesIntoContainersAndVectorsOfTheSameName)
{
    auto const numbers = Ints({1, 2});
    auto const block = TestBlock::Create();
    auto const c = Cnt("c", DataItem(Cnt("x", 1, "y", 2)), "n", 1, "o", DataItem(block), "v",
                       DataItem(numbers));
    auto const plain = DerivedPointer<Container>(c->Clone(true));
    auto const news = Cnt("C", DataItem(Cnt("y", 3, "z", 4)), "n", DataItem(Cnt("q", 1)), "o",
                          DataItem(Cnt("lost", 1)), "v",
                          DataItem(Cnt("@@sticky@", DataItem(Cnt("s", 5)), "@no", 1)));
    KeepingSink sink;
    Logger::SetLogging("conv", 3);
    c->Merge(news);
    Logger::SetLogging("conv", 0);
    ASSERT_EQ(sink.lines.size(), 1u);
    EXPECT_EQ(sink.lines[0], "conv/MergeContainer 3 Could not merge into vector (" +
                                 std::string(numbers->GetDescription().c_str()) + "): 1 (integer)");
    EXPECT_EQ(Listed(c->GetMemory("c", "container")), "x=1 y=3 z=4");
    EXPECT_EQ(c->GetSubItem("n.q", throw_always).GetInt(), 1);
    EXPECT_EQ(c->GetMemory("o", nullptr), block);
    EXPECT_EQ(numbers->GetSubItem("@sticky.s", throw_always).GetInt(), 5);
    plain->Append(news);
    EXPECT_EQ(Listed(plain->GetMemory("c", "container")), "y=3 z=4");
    EXPECT_RAISES(c->Append(nullptr), 128, "Cannot append from non-container");
    EXPECT_RAISES(c->Merge(nullptr), 128, "Cannot append from non-container");
    c->Append(c);
    c->Merge(c);
    EXPECT_EQ(c->Count(), 4u);
}

TEST(Container, AppendHappensAsAWholeOrNotAtAll)
{
    char const* const longer = "a text that lies in a block of its own";
    auto const more = Cnt("a", longer, "c", longer, "d", 1, "e", 2);
    for (bool const ordered : {false, true})
        memtest::FailEach([&](auto const& attempt) {
            auto const c = ordered ? Ordered("dba") : Cnt("d", 0, "b", 1, "a", 2);
            safestring const before = c->GetExpression();
            if (!attempt([&] { c->Append(more); })) {
                EXPECT_EQ(c->GetExpression(), before);
                EXPECT_EQ(c->Count(), 3u);
            }
        });
    auto const c = Cnt("b", 1);
    auto const nameless = Cnt("z", 2);
    nameless->Insert("", 3);
    EXPECT_RAISES(c->Append(nameless), 32, "Missing item name.");
    EXPECT_EQ(Listed(c), "b=1");
}

TEST(Container, MergedIntoAVectorHasAnEndIfItHoldsItself)
{
    // Both keys give a fresh vector each time they are read.
    auto const c = Cnt("factor", 0.5);
    c->Put(DataItem(c), "vector");
    c->Put(DataItem(Cnt("vectordata", DataItem(c), "factor", 4.0)), "vectordata");
    auto const v = Ints({1, 2});
    MergeToVector(v, c);
    EXPECT_EQ(v->Factor(), 0.5);
    auto const owner = Cnt("v", DataItem(v));
    owner->Merge(Cnt("v", DataItem(c)));
    c->clear();
    EXPECT_EQ(TextOf(v), "1 2");
}

TEST(Container, EqualityIsThatOfTheValuesInNameOrder)
{
    auto const c = Cnt("a", 1, "b", DataItem(Cnt("x", "t")));
    EXPECT_TRUE(*c == *Cnt("m", 1, "n", DataItem(Cnt("y", "t"))));
    EXPECT_FALSE(*c == *Cnt("a", 1, "b", DataItem(Cnt("x", "u"))));
    EXPECT_FALSE(*c == *Cnt("a", 1));
}

TEST(Container, EveryObjectConvertsToItAndItsItemsToAVector)
{
    auto const numbers = Ints({1, 2});
    safestringlist const none, named("itemname=data", ',');
    auto const wrapped = numbers->Convert(none, "container", throw_always);
    EXPECT_EQ(wrapped->GetSubItem("x", throw_always).GetMemory(), numbers);
    EXPECT_EQ(wrapped->Convert(none, "container", throw_always), wrapped);
    EXPECT_TRUE(numbers->Convert(named, "container", throw_always)
                    ->GetSubItem("data", throw_always)
                    .IsDefined());

    auto const elements = [&none](DerivedPointer<Container> const& c) {
        auto const v = VectorOf(c->Convert(none, "vector", throw_always));
        return std::string(Vector::TypeToString(v->ElemType())) + " " + TextOf(v);
    };
    EXPECT_EQ(elements(Ordered("ba")), "signed int 0 1");
    EXPECT_EQ(elements(Cnt("a", 1, "b", 1LL << 40)), "signed int64 1 1099511627776");
    EXPECT_EQ(elements(Cnt("a", 1, "b", 0.5)), "double 1 0.5");
    EXPECT_EQ(elements(Cnt("a", "t", "b", "u")), "string t u");
    EXPECT_EQ(elements(Cnt("a", "t", "b", 1)), "polytype t 1");
    EXPECT_EQ(VectorOf(wrapped->Convert(none, "vector", throw_always))->ElemMemory(0), numbers);
    EXPECT_RAISES(Cnt("p", static_cast<void*>(nullptr))->Convert(none, "vector", throw_always), 128,
                  "Converting container into a vector not supported for item type: p");
}
