#include <memblock/core/safevalue.h>
#include <memblock/core/subitem.h>

#include <support/failing_alloc.h>
#include <support/raises.h>
#include <support/testblock.h>

using namespace NKelmic;

TEST(DataItemSubItem, ATextAnswersItsOwnKeysInAnyLetterCase)
{
    DataItem text("\xC3\xA4"
                  "ab");
    text.SetCreator(12);
    EXPECT_TRUE(text.ResolveSubItem("") == text);
    EXPECT_EQ(text.ResolveSubItem("@Creator").GetInt(), 12);
    for (char const* key : {"expression", "@EXPRESSION"})
        EXPECT_EQ(text.ResolveSubItem(key).GetString(), "\"\xC3\xA4"
                                                        "ab\"");
    for (char const* key : {"length", "size", "@size", "@Length"})
        EXPECT_EQ(text.ResolveSubItem(key).GetInt(), 3) << key;
    for (char const* key : {"buffer", "@buffer"})
        EXPECT_EQ(text.ResolveSubItem(key).GetPointer(), text.GetStringPointer()) << key;
}

TEST(DataItemSubItem, AnObjectAnswersItsKeysItself)
{
    DataItem const item(TestBlock::Create({{"expression", DataItem(1)}, {"x", DataItem(2)}}));
    EXPECT_EQ(item.ResolveSubItem("x").GetInt(), 2);
    EXPECT_EQ(item.ResolveSubItem("expression").GetInt(), 1);
    EXPECT_EQ(item.ResolveSubItem("@creator").GetInt(), -1);
    EXPECT_THROW(item.ResolveSubItem("y"), Exception);
    EXPECT_TRUE(item.ResolveSubItem("y", throw_never).IsUndefined());
}

TEST(DataItemSubItem, ASharableIsAskedByVerb)
{
    ThreadSharablePointer<TestSharable> const sharable(new TestSharable);
    DataItem const item(sharable);
    EXPECT_EQ(item.ResolveSubItem("answer").GetInt(), 42);
    EXPECT_RAISES(item.ResolveSubItem("question"), err_kind,
                  "A scalar data item (a sharable) does not have subkey: question");
}

TEST(DataItemSubItem, AMissedKeyIsReportedToTheHandler)
{
    EXPECT_RAISES(DataItem().ResolveSubItem("x"), err_kind,
                  "A scalar data item ({Undefined}) does not have subkey: x");
    bool ok = true;
    CheckOk handler(ok);
    memtest::AllocationCount count;
    EXPECT_TRUE(DataItem().ResolveSubItem("x", handler).IsUndefined());
    EXPECT_FALSE(ok);
    EXPECT_EQ(count.All(), 0U);
}

TEST(DataItemSubItem, FetchConvertsOrRaises)
{
    DataItem const item(TestBlock::Create({{"n", DataItem("2.5")}, {"b", TestBlock::Create()}}));
    int i = 0;
    double d = 0;
    safestring s;
    PMemBlock b;
    DataItem any;
    item.Fetch("n", i);
    item.Fetch("n", d);
    item.Fetch("n", s);
    item.Fetch("b", b);
    item.Fetch("n", any);
    EXPECT_EQ(i, 3);
    EXPECT_EQ(d, 2.5);
    EXPECT_EQ(s, "2.5");
    EXPECT_TRUE(b);
    EXPECT_EQ(any.GetType(), it_shortstring);
    EXPECT_THROW(item.Fetch("missing", i), Exception);
}

TEST(DataItemSubItem, FetchWithADefaultNeverThrows)
{
    int target = 0;
    DataItem const item(TestBlock::Create({{"n", DataItem(5)},
                                           {"text", DataItem("no number")},
                                           {"pointer", DataItem(static_cast<void*>(&target))}}));
    int i = 0;
    EXPECT_TRUE(item.Fetch("n", i, 7));
    EXPECT_EQ(i, 5);
    for (char const* key : {"x", "text", "pointer"}) {
        EXPECT_FALSE(item.Fetch(key, i, 7)) << key;
        EXPECT_EQ(i, 7);
        i = 0;
    }
    PMemBlock block;
    auto const def = TestBlock::Create();
    EXPECT_FALSE(item.Fetch("pointer", block, def));
    EXPECT_TRUE(block == def);
    safestring text;
    EXPECT_FALSE(DataItem().Fetch("x", text, "none"));
    EXPECT_EQ(text, "none");
}

TEST(DataItemSubItem, AnItemWithoutExpressionReportsIt)
{
    for (char const* key : {"expression", "@expression"}) {
        CollectThrowMessage collect(false);
        EXPECT_TRUE(DataItem().ResolveSubItem(key, collect).IsUndefined());
        EXPECT_EQ(collect.Messages(), "Data item has no expression: {Undefined}; ");
        EXPECT_TRUE(DataItem().ResolveSubItem(key, throw_never).IsUndefined());
    }
}
