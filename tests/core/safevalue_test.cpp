#include <memblock/core/safevalue.h>

#include <support/failing_alloc.h>
#include <support/raises.h>
#include <support/testblock.h>

#include <functional>

using namespace NKelmic;

namespace {

/// Each getter under one shape, told by the words of its messages.
struct Getter {
    char const* target;    // of "Cannot convert to %s: ..."
    char const* undefined; // of "Value is undefined, cannot convert to %s."
    std::function<void(SafeValue const&, ThrowHandlerFunc)> get;
};

Getter const getters[] = {
    {"integer", "int", [](auto& v, auto h) { EXPECT_EQ(v.GetInt(h), 0); }},
    {"double", "double", [](auto& v, auto h) { EXPECT_EQ(v.GetFloating(h), 0.0); }},
    {"boolean", "int", [](auto& v, auto h) { EXPECT_FALSE(v.GetBool(h)); }},
    {"string", "string", [](auto& v, auto h) { EXPECT_EQ(v.GetString(h), ""); }},
    {"MemBlock", "MemBlock", [](auto& v, auto h) { EXPECT_FALSE(v.GetMemory(h)); }},
};

} // namespace

TEST(SafeValue, TellsUndefinedFromWrong)
{
    SafeValue const undefined, pointer(reinterpret_cast<void*>(0x1234));
    for (Getter const& getter : getters) {
        SCOPED_TRACE(getter.target);
        safestring const no_value =
            Text("Value is undefined, cannot convert to %s.", getter.undefined);
        safestring const wrong = Text("Cannot convert to %s: 0x1234", getter.target);
        EXPECT_RAISES(getter.get(undefined, throw_always), err_value, no_value);
        EXPECT_RAISES(getter.get(pointer, throw_always), err_value, wrong);
        Reports reports;
        getter.get(undefined, reports);
        getter.get(pointer, reports);
        EXPECT_EQ(reports.texts, (std::vector<std::string>{no_value.c_str(), wrong.c_str()}));
    }
    EXPECT_RAISES(undefined.GetPointer(), err_value,
                  "Value is undefined, cannot convert to naked pointer.");
    EXPECT_RAISES(undefined.GetSharable(), err_value,
                  "Cannot convert to a Sharable object: {Undefined}");
    EXPECT_RAISES(SafeValue(5).GetSharable(), err_value, "Cannot convert to a Sharable object: 5");
}

TEST(SafeValue, ASoftGetterNeverThrows)
{
    SafeValue const text("no number"), large(3e9);
    Reports reports;
    EXPECT_EQ(text.GetInt(reports), 0);
    EXPECT_EQ(reports.texts.size(), 1u);
    EXPECT_EQ(text.GetFloating(throw_never), 0.0);
    EXPECT_EQ(large.GetInt(reports), 0);
    EXPECT_EQ(reports.texts.back(), "Cannot convert data item to int: 3000000000");
    EXPECT_FALSE(large.GetBool(throw_never));
    EXPECT_EQ(SafeValue(5).GetPointer(reports), nullptr);
    EXPECT_EQ(reports.texts.back(), "Cannot convert data item to void pointer: 5");
    EXPECT_THROW(text.GetInt(), Exception);

    bool ok = true;
    CheckOk handler(ok);
    memtest::AllocationCount count;
    SafeValue().GetFloating(handler);
    SafeValue(static_cast<void*>(&ok)).GetInt(handler);
    EXPECT_FALSE(ok);
    EXPECT_EQ(count.All(), 0U);
}

TEST(SafeValue, ReadsWhatIsLegal)
{
    SafeValue const values[] = {SafeValue(2), SafeValue(2.0), SafeValue("2"), SafeValue(2LL)};
    for (SafeValue const& value : values) {
        EXPECT_EQ(value.GetInt(), 2);
        EXPECT_EQ(value.GetFloating(), 2.0);
        EXPECT_EQ(value.GetString(), "2");
    }
    EXPECT_EQ(SafeValue(1.0 / 3).GetString(), "0.333333333333");
    int target = 0;
    EXPECT_EQ(SafeValue(static_cast<void*>(&target)).GetPointer(), &target);
    ThreadSharablePointer<TestSharable> const sharable(new TestSharable);
    EXPECT_EQ(SafeValue(sharable).GetSharable().Pointer(), sharable.Pointer());
}

TEST(SafeValue, AnObjectIsReadByItsScalar)
{
    auto const block = TestBlock::Create();
    SafeValue const value{DataItem(block)};
    EXPECT_EQ(value.GetString(), block->GetDescription());
    EXPECT_THROW(value.GetFloating(), Exception);
    EXPECT_EQ(value.GetInt(), 0);
    EXPECT_TRUE(value.GetMemory() == block);
    EXPECT_RAISES(value.GetBool(), err_value,
                  "Cannot convert to boolean: " + DataItem(block).GetExpression());
    EXPECT_RAISES(value.GetPointer(), err_value,
                  "Cannot convert to naked pointer: " + Describe(block.Pointer()));
    block->scalar = 2.5;
    EXPECT_EQ(value.GetFloating(), 2.5);
    EXPECT_EQ(value.GetInt(), 3);
    EXPECT_EQ(value.GetString(), "2.5");
}

TEST(SafeValue, BooleansComeFromWordsAndNumbers)
{
    std::pair<SafeValue, bool> const cases[] = {
        {SafeValue("yes"), true}, {SafeValue("no"), false},     {SafeValue(1), true},
        {SafeValue(0), false},    {SafeValue(0.4), false},      {SafeValue(0.5), true},
        {SafeValue(0LL), false},  {SafeValue(1LL << 40), true},
    };
    for (auto const& [value, expected] : cases)
        EXPECT_EQ(value.GetBool(), expected) << value.GetDescription().c_str();
    EXPECT_RAISES(SafeValue("maybe").GetBool(), err_value, "Cannot convert to boolean: \"maybe\"");
}
