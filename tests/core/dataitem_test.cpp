#include <memblock/core/dataitem.h>

#include <memblock/core/visitor.h>

#include <support/failing_alloc.h>
#include <support/raises.h>
#include <support/testblock.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <tuple>
#include <vector>

using namespace NKelmic;

namespace {

double const not_a_number = std::numeric_limits<double>::quiet_NaN();
double const inf = std::numeric_limits<double>::infinity();

safestring Repeated(char const* piece, int times)
{
    safestring text;
    while (times-- > 0)
        text += piece;
    return text;
}

/// One item of each kind that can be copied.
std::vector<DataItem> OneOfEach(DerivedPointer<TestBlock> const& block, TestSharable& sharable)
{
    static int target = 0;
    return {DataItem(),
            DataItem(7),
            DataItem(0.5),
            DataItem(1LL << 40),
            DataItem(static_cast<void*>(&target)),
            DataItem("short"),
            DataItem(Repeated("long ", 10)),
            DataItem(PMemBlock(block)),
            DataItem(sharable)};
}

} // namespace

TEST(DataItem, TakesTheTypeThatHoldsTheValue)
{
    int target = 0;
    auto const block = TestBlock::Create();
    std::tuple<DataItem, ItemType> const cases[] = {
        {DataItem(), it_undefined},
        {DataItem(true), it_int},
        {DataItem(0x7FFFFFFFU), it_int},
        {DataItem(4294967295U), it_double},
        {DataItem(5L), it_int64},
        {DataItem(5UL), it_int64},
        {DataItem(0x7FFFFFFFFFFFFFFFULL), it_int64},
        {DataItem(0x8000000000000000UL), it_double},
        {DataItem(1.5F), it_double},
        {DataItem(triple(0x030201U)), it_int},
        {DataItem(static_cast<void*>(&target)), it_pointer},
        {DataItem(static_cast<char const*>(nullptr)), it_shortstring},
        {DataItem(safestring(20, 'x')), it_shortstring},
        {DataItem(safestring(21, 'x')), it_string},
        {DataItem("a text of twenty-one."), it_string},
        {DataItem(block), it_memblock},
        {DataItem(PMemBlock()), it_undefined},
        {DataItem(ThreadSharablePointer<TestSharable>()), it_undefined},
    };
    for (auto const& [item, type] : cases)
        EXPECT_EQ(item.GetType(), type) << item.GetDescription().c_str();
    EXPECT_EQ(DataItem(triple(0x030201U)).GetInt(), 0x030201);
    EXPECT_EQ(DataItem(4294967295U).GetDouble(), 4294967295.0);
    EXPECT_EQ(DataItem(safestring(20, 'x')).GetString(), safestring(20, 'x'));
    static_assert(!std::is_constructible_v<DataItem, TestBlock*>);
    static_assert(!std::is_constructible_v<DataItem, TestSharable*>);
}

TEST(DataItem, UnusedBytesAreZeroAndAnInnerNulEndsAShortText)
{
    alignas(DataItem) unsigned char a[sizeof(DataItem)], b[sizeof(DataItem)];
    std::memset(a, 0xAA, sizeof a);
    std::memset(b, 0x55, sizeof b);
    auto* const x = new (a) DataItem(safestring("ab\0cd", 5));
    auto* const y = new (b) DataItem("ab");
    EXPECT_EQ(std::memcmp(a, b, 20), 0);
    x->~DataItem();
    y->~DataItem();
    new (a) DataItem(-1);
    new (b) DataItem("a longer text");
    *reinterpret_cast<DataItem*>(b) = DataItem(-1);
    EXPECT_EQ(std::memcmp(a, b, 20), 0);
}

TEST(DataItem, CopiesShareObjectsAndOwnTexts)
{
    auto const block = TestBlock::Create();
    {
        ThreadSharablePointer<TestSharable> const sharable(new TestSharable);
        auto items = OneOfEach(block, *sharable);
        int line = 0;
        for (DataItem& item : items)
            item.SetCreator(++line);
        EXPECT_EQ(block->RefCount(), 2);
        for (DataItem const& from : items) {
            for (DataItem const& over : items) { // every kind is written over every other
                DataItem to(over);
                to = from;
                EXPECT_TRUE(to == from) << from.GetDescription().c_str();
                EXPECT_EQ(to.GetCreator(), from.GetCreator());
                DataItem moved(over);
                moved = std::move(to);
                EXPECT_TRUE(moved == from);
                EXPECT_TRUE(to.IsUndefined());
                DataItem& self = moved;
                self = moved;
                EXPECT_TRUE(moved == from);
                self = std::move(moved);
                EXPECT_TRUE(self == from);
            }
        }
        DataItem const text(Repeated("long ", 10));
        DataItem copy(text);
        EXPECT_NE(copy.GetStringPointer(), text.GetStringPointer());
        EXPECT_EQ(block->RefCount(), 2);
        EXPECT_EQ(TestSharable::alive, 1);
    }
    EXPECT_EQ(TestSharable::alive, 0);
    EXPECT_EQ(block->RefCount(), 1);
}

TEST(DataItem, AnItemOfAnUnusedTypeCannotBeCopied)
{
    for (unsigned char type : {3, 8, 9}) {
        DataItem item;
        reinterpret_cast<unsigned char*>(&item)[20] = type;
        try {
            DataItem const copy(item);
            ADD_FAILURE();
        } catch (char const* text) {
            EXPECT_STREQ(text, "Never happens - DI259");
        }
        EXPECT_THROW(item == item, Exception);
        EXPECT_RAISES(item.GetInt(), err_value, "Cannot convert data item to int: {Undefined}");
        reinterpret_cast<unsigned char*>(&item)[20] = it_undefined;
    }
}

TEST(DataItem, TheCreatorIsASigned16BitLine)
{
    DataItem item(1);
    EXPECT_EQ(item.GetCreator(), -1);
    for (int line : {-32768, 0, 32767}) {
        item.SetCreator(line);
        EXPECT_EQ(item.GetCreator(), line);
    }
    for (int line : {-32769, 32768})
        EXPECT_RAISES(item.SetCreator(line), err_request, "Script too long(?)");
}

TEST(DataItem, LongTextsAreHandedOverWithoutACopy)
{
    safestring text = Repeated("0123456789", 4);
    char const* const bytes = text.data();
    DataItem item;
    item.AssignOrSwap(text);
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(item.GetStringPointer(), bytes);

    UtfPosCache* cache = nullptr;
    item.Swap(text, cache);
    EXPECT_EQ(text.data(), bytes);
    EXPECT_EQ(item.GetType(), it_string);
    EXPECT_EQ(item.GetString(), "");

    DataItem const again(text, DataItem::c_IsAscii);
    EXPECT_EQ(again.GetStringPointer(), bytes);
    EXPECT_TRUE(text.empty());

    safestring brief("brief");
    item.AssignOrSwap(brief);
    EXPECT_EQ(item.GetType(), it_shortstring);
    EXPECT_TRUE(brief.empty());
    safestring other("other");
    item.Swap(other, cache);
    EXPECT_EQ(item.GetType(), it_string);
    EXPECT_EQ(item.GetString(), "other");
    EXPECT_EQ(other, "brief");
}

TEST(DataItem, FailedAllocationsLeaveTheTargetAsItWas)
{
    DataItem source(Repeated("\xC3\xA4", 30));
    source.BuildUtfPosCache();
    auto const assign = [&](auto const& attempt) {
        DataItem const other(Repeated("other ", 5));
        DataItem small(5), text(other);
        bool const done = attempt([&] {
            small = source;
            text = source;
        });
        EXPECT_TRUE(small == DataItem(5) || small == source);
        EXPECT_TRUE(text == (done ? source : other));
    };
    memtest::FailEach<memtest::FailNews>(assign); // first, so that the kept blocks are there
    long const blocks = memtest::LiveBlocks(), news = memtest::LiveNews();
    memtest::FailEach(assign);
    EXPECT_EQ(memtest::LiveBlocks(), blocks);
    EXPECT_EQ(memtest::LiveNews(), news);
}

TEST(DataItem, NumbersRoundHalvesAwayFromZeroWithinTheirRange)
{
    std::tuple<double, int> const fits[] = {{2.5, 3},
                                            {-2.5, -3},
                                            {2.4, 2},
                                            {-0.5, -1},
                                            {2147483647.0, INT_MAX},
                                            {-2147483648.0, INT_MIN}};
    for (auto [v, rounded] : fits) {
        EXPECT_EQ(DataItem(v).GetInt(), rounded) << v;
        EXPECT_EQ(DataItem(v).GetInt64(), rounded) << v;
    }
    EXPECT_RAISES(DataItem(2147483647.6).GetInt(), err_value,
                  "Cannot convert data item to int: 2147483647.6");
    EXPECT_RAISES(DataItem(1LL << 31).GetInt(), err_value,
                  "Cannot convert data item to int: 2147483648");
    EXPECT_RAISES(DataItem("3e9").GetInt(), err_value, "Cannot convert data item to int: 3e9");
    for (double v : {not_a_number, inf, -inf}) {
        EXPECT_THROW(DataItem(v).GetInt(), Exception);
        EXPECT_THROW(DataItem(v).GetInt64(), Exception);
    }
    EXPECT_EQ(DataItem(9223372036854775808.0).GetInt64(), LLONG_MAX);
    EXPECT_EQ(DataItem(-9223372036854775808.0).GetInt64(), LLONG_MIN);
    EXPECT_RAISES(DataItem(1e19).GetInt64(), err_value,
                  "Cannot convert data item to int64: 1e+19 (floating-point)");
    EXPECT_EQ(DataItem("-9223372036854775808").GetInt64(), LLONG_MIN);
    EXPECT_EQ(DataItem("2.5").GetInt(), 3);
    EXPECT_EQ(DataItem("oo").GetInt(), INT_MAX);
    EXPECT_EQ(DataItem().GetInt(), 0);
    EXPECT_EQ(DataItem().GetInt64(), 0);
    EXPECT_RAISES(DataItem().GetDouble(), err_value,
                  "Cannot convert data item to double: {Undefined}");
}

TEST(DataItem, APointerIsItsAddressAndNoNumber)
{
    int target = 0;
    DataItem const item(static_cast<void*>(&target));
    EXPECT_EQ(item.GetPointer(), &target);
    EXPECT_EQ(item.GetPrivatePointer(), static_cast<void const*>(&item));
    EXPECT_EQ(item.GetInt64(), reinterpret_cast<long>(&target));
    EXPECT_EQ(item.GetDouble(), 0.0);
    EXPECT_RAISES(item.GetInt(), err_value, "An attempt to convert a raw pointer to 32-bit int");
    EXPECT_RAISES(DataItem(5).GetPointer(), err_value,
                  "Cannot convert data item to void pointer: 5");
    EXPECT_FALSE(item.GetMemory());
}

TEST(DataItem, AnObjectReadsAsItsScalar)
{
    auto const block = TestBlock::Create();
    block->RaiseFlags(0);
    DataItem const item(block);
    EXPECT_EQ(item.GetInt(), 0);
    EXPECT_EQ(item.GetDouble(), 0.0);
    EXPECT_EQ(item.GetString(), block->GetDescription());
    block->scalar = 2.5;
    EXPECT_EQ(item.GetInt(), 3);
    EXPECT_EQ(item.GetInt64(), 3);
    EXPECT_EQ(item.GetDouble(), 2.5);
    EXPECT_EQ(item.GetString(), "2.5");
    block->ContentHasBeenChanged();
    block->scalar = "1,2,3";
    EXPECT_EQ(item.GetInt(), 0);
    EXPECT_EQ(item.GetString(), "1,2,3");
    EXPECT_RAISES(item.GetPointer(), err_value, "Cannot convert data item to void pointer: 1,2,3");
    EXPECT_RAISES(item.GetStringPointer(), err_kind,
                  "Cannot cast data to String type: " + block->GetDescription());
    block->scalar = DataItem();
}

TEST(DataItem, TextFormsSuitTheirReaders)
{
    ThreadSharablePointer<TestSharable> const sharable(new TestSharable);
    void* const address = reinterpret_cast<void*>(0x1234);
    std::tuple<DataItem, char const*, char const*, char const*> const cases[] = {
        {DataItem(-5), "-5", "-5", "-5 (integer)"},
        {DataItem(2147483647), "2147483647", "oo", "oo (integer)"},
        {DataItem(2147483647.0005), "2147483647", "oo", "oo (floating-point)"},
        {DataItem(1.0 / 3), "0.333333333333", "0.333333333333", "0.333333333333 (floating-point)"},
        {DataItem(2147483647LL), "2147483647", "2147483647", "2147483647 (integer64)"},
        {DataItem(address), "<Pointer> 0x1234", "0x1234", "0x1234 (naked pointer)"},
        {DataItem("a b"), "a b", "\"a b\"", "\"a b\" (string)"},
        {DataItem(sharable), "a sharable", "{Pointer to a ThreadSharable object.}", "a sharable"},
    };
    for (auto const& [item, string, expression, description] : cases) {
        SCOPED_TRACE(description);
        EXPECT_STREQ(item.GetString().c_str(), string);
        EXPECT_STREQ(item.GetExpression().c_str(), expression);
        EXPECT_STREQ(item.GetDescription().c_str(), description);
        safestring to;
        item.GetStringTo(to);
        EXPECT_EQ(to, item.GetString());
        EXPECT_STREQ(item.GetStringPointer(), string);
    }
    EXPECT_EQ(DataItem(1.0 / 3).GetExpression(3), "0.333");
    EXPECT_EQ(DataItem().GetDescription(), "{Undefined}");
    EXPECT_THROW(DataItem().GetExpression(), Exception);
    DataItem missing(TestBlock::Create());
    missing.MemoryRef() = PMemBlock();
    EXPECT_EQ(missing.GetString(), "missing");
    EXPECT_EQ(missing.GetExpression(), "none");
    EXPECT_EQ(missing.GetDescription(), "missing memblock");
    EXPECT_EQ(missing.GetInt(), 0);
    safestring const whole(80, 'x'); // the most that a description takes
    EXPECT_EQ(DataItem(whole).GetDescription(), Text("\"%s\" (string)", whole));
    safestring const cut = Text("\"%s...\" (string, 81 bytes)", safestring(77, 'x'));
    EXPECT_EQ(DataItem(whole + "y").GetDescription(), cut);
}

TEST(DataItem, PositionsCountCharactersOrBytes)
{
    // every position of texts on both sides of the inline limit, against a slow count
    char const* const pieces[] = {"a", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x99\x82"};
    for (int length : {0, 3, 20, 21, 60, 300}) {
        std::string text;
        std::vector<int> starts; // byte position of each character
        for (unsigned random = 12345; text.size() < static_cast<std::size_t>(length);) {
            random = random * 1103515245U + 12345U;
            starts.push_back(static_cast<int>(text.size()));
            text += pieces[random >> 16 & 3];
        }
        starts.push_back(static_cast<int>(text.size()));
        DataItem const item(text.c_str());
        for (std::size_t c = 0; c < starts.size(); ++c) {
            EXPECT_EQ(item.CharPosToBytePos(static_cast<int>(c)), starts[c]) << text;
            EXPECT_EQ(item.BytePosToCharPos(starts[c]), static_cast<int>(c)) << text;
        }
        EXPECT_EQ(item.ResolveSubItem("length").GetInt(), static_cast<int>(starts.size() - 1));
    }
    DataItem const brief("\xC3\xA4"
                         "ab");
    EXPECT_EQ(brief.CharPosToBytePos(-3), -3);
    EXPECT_EQ(brief.CharPosToBytePos(5), 6); // behind the end a byte is a character
    for (int length : {2, 60}) {
        DataItem const item(safestring(length, 'x') + "\xC3\xA4");
        EXPECT_EQ(item.CharPosToBytePos(INT_MAX), INT_MAX);
        EXPECT_EQ(item.BytePosToCharPos(INT_MAX), INT_MAX - 1);
    }
}

TEST(DataItem, BytePositionsOfMalformedTextsFollowTheLastEntryNotAbove)
{
    // lead bytes without what they promise point behind their successors
    unsigned random = 1;
    auto const next = [&] { return (random = random * 1103515245U + 12345U) >> 16; };
    for (int round = 0; round < 200; ++round) {
        safestring text;
        while (text.size() < 40) {
            unsigned const byte = next() & 0x7F;
            text += static_cast<char>(next() % 4 == 0 ? byte : next() % 3 ? byte | 0xC0 : 0x80);
        }
        safestring const kept = text;
        DataItem const item(kept);
        DataItem made(item);
        made.BuildUtfPosCache();
        UtfPosCache* cache = nullptr;
        made.Swap(text, cache);
        ASSERT_TRUE(cache && cache != DataItem::c_IsAscii);
        for (int b = -2; b < 50; ++b) {
            int expected = b;
            for (auto const& [chars, bytes] : *cache)
                if (bytes <= b)
                    expected = b - bytes + chars;
            ASSERT_EQ(item.BytePosToCharPos(b), expected) << kept.c_str() << " at " << b;
        }
        DataItem::FreeUtfPosCache(cache);
    }
}

TEST(DataItem, AsciiTextGetsAMarkAndNoPositionCache)
{
    safestring ascii(50, 'x'), mixed = ascii + "\xC3\xA4";
    UtfPosCache* cache = nullptr;
    DataItem item(ascii);
    {
        memtest::AllocationCount count;
        EXPECT_EQ(item.CharPosToBytePos(7), 7);
        EXPECT_EQ(count.All(), 0U);
    }
    item.Swap(mixed, cache);
    EXPECT_EQ(cache, DataItem::c_IsAscii);

    DataItem fresh(item.GetString());
    EXPECT_EQ(fresh.CharPosToBytePos(51), 52);
    DataItem const copy(fresh); // the cache is duplicated
    cache = nullptr;
    fresh.Swap(mixed, cache);
    ASSERT_NE(cache, nullptr);
    EXPECT_EQ(*cache, (UtfPosCache{{51, 52}}));
    DataItem::FreeUtfPosCache(cache);
    EXPECT_EQ(copy.CharPosToBytePos(51), 52);
    EXPECT_TRUE(DataItem::IsAscii(ascii));
    EXPECT_FALSE(DataItem::IsAscii(copy.GetString()));
}

TEST(DataItem, StatisticsCountAllLengthsBut32)
{
    auto const printed = [](char const* line) {
        std::string const text = StderrOf(DataItem::PrintStat);
        auto const at = text.find(line);
        return at == std::string::npos ? -1 : std::atol(text.c_str() + at + std::strlen(line));
    };
    long const before = printed("Total DataItem string allocations: ");
    for (int i = 0; i < 100000; ++i) {
        DataItem::AddStat(10);
        DataItem::AddStat(32);
    }
    EXPECT_EQ(printed("Total DataItem string allocations: "), before + 100000);
    EXPECT_EQ(printed("Average DataItem string allocation size: "), 10);
    EXPECT_EQ(printed("Median DataItem string allocation size: "), 10);
    EXPECT_EQ(printed("DataItem size: "), 24);
}

TEST(DataItem, MakeCopyCutsOffWhatOthersHold)
{
    DataItem shared(ThreadSharablePointer<TestSharable>(new TestSharable));
    shared.SetCreator(3);
    shared.MakeCopy();
    EXPECT_EQ(shared.GetCreator(), 3);
    EXPECT_EQ(TestSharable::alive, 1); // the original is gone with its last owner

    DataItem alone(TestBlock::Create());
    PMemBlock* const held = &alone.MemoryRef();
    MemBlock* const before = held->Pointer();
    alone.MakeCopy();
    EXPECT_EQ(held->Pointer(), before);

    auto const child = TestBlock::Create();
    auto const block = TestBlock::Create({{"child", DataItem(child)}});
    DataItem item(block);
    item.MakeCopy();
    EXPECT_NE(item.GetMemory().Pointer(), block.Pointer());
    EXPECT_EQ(block->RefCount(), 1);
    EXPECT_EQ(child->RefCount(), 2); // the copy has a child of its own

    DataItem number(5);
    number.MakeCopy();
    EXPECT_TRUE(number == DataItem(5));
}

TEST(DataItem, ConsistencyOfTheObjectIsToldWithItsDescription)
{
    DataItem item(TestBlock::Create());
    safestring message;
    EXPECT_TRUE(item.Consistent(message));
    EXPECT_TRUE(DataItem(5).Consistent(message));
    EXPECT_EQ(message, "");
    MemBlock* const block = item.MemoryRef().Pointer();
    block->RaiseFlags(MemBlock::mem_undeletable);
    block->Release();
    EXPECT_FALSE(item.Consistent(message));
    block->Capture();
    block->ClearFlags(MemBlock::mem_undeletable);
    EXPECT_EQ(message.substr(0, 46), "Reference count negative.  (Item description: ");
}

TEST(DataItem, XmlNamesOfTheTypes)
{
    char const* const names[] = {"", "i", "f", "", "p", "m", "s", "sh", "any", "", "i64", "", ""};
    for (int type = 0; type < 13; ++type)
        EXPECT_STREQ(Type2XmlType(static_cast<ItemType>(type)), names[type]) << type;
}
