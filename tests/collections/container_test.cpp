#include "container_fixture.h"

#include <memblock/core/memblockimpl.h>
#include <memblock/vector/vector.h>
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
    EXPECT_EQ(c->find("Alpha")->first.compare(0, 5, "ALPHA"), 0);
    EXPECT_STREQ(c->find("Alpha")->first.c_str(), "ALPHA");
    EXPECT_EQ(c->Get("aLPHA").GetString(), "new");
    EXPECT_TRUE(c->exists("BETA"));
    EXPECT_EQ(c->Count(), 5u);
    EXPECT_TRUE(c->Delete("Beta"));
    EXPECT_FALSE(c->Delete("Beta"));
    EXPECT_RAISES(c->Put(1, ""), 32, "Missing item name.");
    EXPECT_RAISES(c->InsertAt(0, "", 1), 32, "Missing item name.");
    EXPECT_FALSE(c->IsOrdered()) << "a refused item changes nothing";
}

TEST(Container, ManyItemsAreFoundByNameWhateverComesAndGoes)
{
    auto const c = Container::CreateOrdered();
    std::map<std::string, int> expected;
    auto const name = [](unsigned i) { return std::string(1 + i % 23, 'n') + std::to_string(i); };
    for (unsigned i = 1; i < 20000; ++i) {
        std::string const added = name(i * 7919 % 1000), removed = name(i * 104729 % 1000);
        c->Put(static_cast<int>(i), added.c_str());
        expected[added] = static_cast<int>(i);
        EXPECT_EQ(c->Delete(removed.c_str()), expected.erase(removed) == 1);
        if (i % 5000 == 0) // the items change their owner
            c->SetOrdered(!c->IsOrdered());
        std::string const asked = name(i * 31 % 1000);
        auto const found = expected.find(asked);
        ASSERT_EQ(c->Get(asked.c_str()).DataItem::GetInt(),
                  found == expected.end() ? 0 : found->second);
    }
    EXPECT_EQ(c->Count(), expected.size());
}

TEST(Container, APositionMakesItOrderedInNameOrder)
{
    std::pair<char const*, std::function<void(Container&)>> const touches[] = {
        {"a=1 b=2 c=9", [](Container& c) { c.ReplaceValueAt(2, 9); }},
        {"x=9 b=2 c=3", [](Container& c) { c.ReplaceAt(0, "x", 9); }},
        {"a=1 x=9 b=2 c=3", [](Container& c) { c.InsertAt(1, "x", 9); }},
        {"a=1 b=2 c=3", [](Container& c) { c.GetOrderedImpl(); }},
        {"a=1 b=2 c=3 0x=9", [](Container& c) { c.Insert("0x:@last", 9); }},
    };
    for (auto const& [listed, touch] : touches) {
        SCOPED_TRACE(listed);
        auto const c = Cnt("c", 3, "a", 1, "b", 2);
        EXPECT_EQ(c->GetOrderedImplIfOrdered(), nullptr);
        touch(*c);
        EXPECT_TRUE(c->IsOrdered());
        EXPECT_EQ(Listed(c), listed);
    }
    auto const c = Ordered("cab");
    auto const item = c->find("a");
    c->SetOrdered(false);
    EXPECT_EQ(Listed(c), "a=1 b=2 c=0");
    c->SetOrdered(true);
    EXPECT_EQ(c->GetPos(item), 0u);
}

TEST(Container, AnItemThatIsThereMovesToThePlaceOfAnInsertion)
{
    std::tuple<unsigned, char const*, char const*> const cases[] = {
        {0, "x", "x=9 a=0 b=2 c=3"},     {1, "x", "a=0 x=9 b=2 c=3"},
        {2, "x", "a=0 x=9 b=2 c=3"},     {3, "x", "a=0 b=2 x=9 c=3"},
        {4, "x", "a=0 b=2 c=3 x=9"},     {99, "x", "a=0 b=2 c=3 x=9"},
        {0, "c", "c=9 a=0 x=1 b=2"},     {99, "c", "a=0 x=1 b=2 c=9"},
        {9, "n", "a=0 x=1 b=2 c=3 n=9"}, {1, "n", "a=0 n=9 x=1 b=2 c=3"},
    };
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

TEST(Container, EveryChangeDropsTheCachedValues)
{
    auto const other = Cnt("o", 1);
    SafeValue value(3);
    std::function<void(Container&)> const changes[] = {
        [](Container& c) { c.Put(1, "a"); },
        [](Container& c) { c.Delete("a"); },
        [](Container& c) { c.erase(c.begin()); },
        [](Container& c) { c.clear(); },
        [&](Container& c) { c.Swap(*other); },
        [&](Container& c) { c.MoveInto("a", value); },
        [](Container& c) { c.SetOrdered(true); },
        [](Container& c) { c.Insert("a", 1); },
        [](Container& c) { c.InsertAt(0, "a", 1); },
        [](Container& c) { c.ReplaceAt(0, "n", 1); },
        [](Container& c) { c.ReplaceValueAt(0, 1); },
        [](Container& c) { c.Append(Cnt("a", 1)); },
        [](Container& c) { c.Merge(Cnt("d", DataItem(Cnt("x", 1)))); },
    };
    for (auto const& change : changes) {
        SCOPED_TRACE(&change - changes);
        auto const c = Cnt("a", 0, "d", DataItem(Cnt("x", 0)));
        c->SecondaryItem(MemBlock::key_md5, throw_always);
        change(*c);
        DataItem hash;
        EXPECT_FALSE(c->ExistsSecondaryItem(MemBlock::key_md5, hash));
    }
}

TEST(Container, AValueThatGoesMayComeBackToItsContainer)
{
    std::function<void(Container&)> const changes[] = {
        [](Container& c) { c.Put(1, "b"); },
        [](Container& c) { c.Delete("b"); },
        [](Container& c) { c.clear(); },
        [](Container& c) { c.InsertAt(0, "b", 1); },
        [](Container& c) { c.ReplaceAt(1, "n", 1); },
        [](Container& c) { c.ReplaceValueAt(1, 1); },
    };
    for (auto const& change : changes) {
        SCOPED_TRACE(&change - changes);
        auto const c = Ordered("abc");
        auto const block = TestBlock::Create();
        int destroyed = 0;
        block->destroyed = &destroyed;
        block->on_destroy = [&c](TestBlock&) {
            EXPECT_LE(Listed(c).size(), 15u);
            c->Put(7, "z");
        };
        c->Put(DataItem(block), "b");
        block.Assign(nullptr);
        change(*c);
        EXPECT_EQ(destroyed, 1);
        EXPECT_EQ(c->Get("z").GetInt(), 7);
        EXPECT_EQ(c->GetAt(c->Count() - 1).GetInt(), 7);
    }
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

TEST(Container, GetMemoryLooksForTheClassAlsoInsideAttributes)
{
    auto const numbers = Ints({1});
    auto const attribute = TestBlock::Create({{"vector", PMemBlock(numbers)}});
    attribute->conforms = "attribute";
    auto const c = Cnt("v", DataItem(numbers), "a", DataItem(attribute), "i", 1);
    EXPECT_EQ(c->GetMemory("V", nullptr), numbers);
    EXPECT_EQ(c->GetMemory("v", "Vector"), numbers);
    EXPECT_EQ(c->GetMemory("a", "vector"), numbers);
    EXPECT_EQ(c->GetMemory("a", "attribute"), attribute);
    EXPECT_FALSE(c->GetMemory("a", "table"));
    EXPECT_FALSE(c->GetMemory("v", "container"));
    EXPECT_FALSE(c->GetMemory("i", nullptr));
    EXPECT_FALSE(c->GetMemory("none", nullptr));
}

TEST(Container, EqualityIsThatOfTheValuesInNameOrder)
{
    auto const c = Cnt("a", 1, "b", DataItem(Cnt("x", "t")));
    auto const same = Cnt("m", 1, "n", DataItem(Cnt("y", "t")));
    same->SetOrdered(true);
    EXPECT_TRUE(*c == *same);
    EXPECT_FALSE(*c == *Cnt("a", 1));
    EXPECT_FALSE(*c == *Cnt("a", 1.0, "b", DataItem(Cnt("x", "t"))));
    EXPECT_FALSE(*c == *Cnt("a", 1, "b", DataItem(Cnt("x", "u"))));
}

TEST(Container, ItIsWhatEveryObjectConvertsTo)
{
    auto const numbers = Ints({1, 2});
    auto const wrapped = numbers->Convert(safestringlist(), "container", throw_always);
    EXPECT_EQ(wrapped->GetSubItem("x", throw_always).GetMemory(), numbers);
    auto const named =
        numbers->Convert(safestringlist("itemname=data", ','), "container", throw_always);
    EXPECT_EQ(named->GetSubItem("data", throw_always).GetMemory(), numbers);
    EXPECT_EQ(named->Convert(safestringlist(), "container", throw_always), named);
}

TEST(Container, DescriptionAndListsGoByPosition)
{
    auto const c = Ordered("ba");
    EXPECT_EQ(c->GetDescription(), "Ordered container: 2 elements: b, a.");
    safestring list, names[2];
    c->ListItems(list);
    EXPECT_EQ(list, "@b@, @a@");
    c->ListItems(names);
    EXPECT_EQ(names[0] + names[1], "ba");
    safestringlist by_name(';');
    EXPECT_EQ(c->List(by_name), 2);
    EXPECT_EQ(by_name.Text(), "a;b");
    EXPECT_EQ(Container::Create()->GetDescription(), "Container: 0 elements.");
    EXPECT_EQ(Container::CreateOrdered()->GetDescription(), "Ordered container: 0 elements.");
    EXPECT_STREQ(c->Class(), "container");
    EXPECT_TRUE(c->Conforms("Container") && c->Conforms("memblock"));
}
