#include <memblock/core/dataitem.h>

#include <support/raises.h>
#include <support/testblock.h>

#include <cmath>
#include <limits>
#include <tuple>

using namespace NKelmic;

namespace {

double const not_a_number = std::numeric_limits<double>::quiet_NaN();
double const inf = std::numeric_limits<double>::infinity();

} // namespace

TEST(DataItemCompare, NumbersInTextActAsNumbers)
{
    auto const three = TestBlock::Create();
    three->scalar = 3;
    class FiveInWords : public TestSharable {
        safestring GetDescription() const override { return "5"; }
    };
    DataItem const five(ThreadSharablePointer<ThreadSharable>(new FiveInWords));
    std::tuple<DataItem, DataItem, int> const cases[] = {
        {"10", 9, 1},
        {"10", "9", 1},
        {"abc", "ABC", 0},
        {"abc", "abd", -1},
        {"ab", "abc", -1},
        {"a_", "ab", 1}, // '_' stands behind the letters
        {"\xC3\xA4", "a", -1},
        {"nan", 1.5, -2},
        {"pi", 3, 1},
        {"OO", 2147483647, 0},
        {"-INF", -1e300, -1},
        {"x", 5, 1},
        {"5", "x", -1},
        {"a long text that lies on the heap", "A LONG TEXT THAT LIES ON THE HEAP", 0},
        {3, three, 0},
        {"4", three, 1},
        {"5", five, -2}, // a number in words, with no value
        {5, five, -2},
        {"x", five, 1},
        {three, 4, -1},
        {1, 1.0, 0},
        {1, 1.5, -1},
        {1, not_a_number, -2},
        {1, "0x1", 0},
        {1, "1.0", 0},
        {1, "1e0", 0},
        {2, "10", -1},
        {2, "pi", -1}, // no number here: texts
        {2, "+", 1},   // reads as an integer and is none
        {2, "0x", 1},
        {1, "99999999999", -1},          // beyond an int
        {1, "99999999999999999999", -1}, // beyond an int64: as double
        {1, 2LL, -1},
        {1, DataItem(), -1},
        {9007199254740993LL, 9007199254740992LL, 1},
        {9007199254740993LL, 1, 1},
        {9007199254740993LL, "9007199254740992", 1},
        {5LL, 5.0, 0},
        {5LL, not_a_number, -2},
        {0.5, 1, -1},
        {0.5, 1LL, -1},
        {not_a_number, 1, -2},
        {not_a_number, "x", -2},
        {1.0, not_a_number, -2},
        {0.5, "0.25", 1},
        {1.00000001, "1", 0}, // six digits against a text
        {inf, 1, 1},
    };
    for (auto const& [left, right, expected] : cases)
        EXPECT_EQ(left.Compare(right), expected)
            << left.GetDescription().c_str() << " against " << right.GetDescription().c_str();
}

TEST(DataItemCompareDeathTest, ComparingAnUndefinedValueEndsTheProcess)
{
    EXPECT_DEATH(DataItem().Compare(DataItem(1)), "dataitem.*Assertion `false' failed");
}

TEST(DataItemCompare, EqualityAsksForTheSameType)
{
    auto const block = TestBlock::Create(), twin = TestBlock::Create(), other = TestBlock::Create();
    other->class_name = "other";
    std::tuple<DataItem, DataItem, bool> const cases[] = {
        {1, 1, true},
        {1, 2, false},
        {1, 1.0, false},
        {1, 1LL, false},
        {0.0, -0.0, true},
        {not_a_number, not_a_number, true},
        {not_a_number, inf, false},
        {inf, -inf, true},
        {inf, 1.0, false},
        {"Key", "kEY", true},
        {"key", "key ", false},
        {"this text lies on the heap", "THIS TEXT LIES ON THE HEAP", true},
        {DataItem(), DataItem(), true},
        {5LL, 5LL, true},
        {1LL, 1LL + (1LL << 32), false},
        {block, block, true},
        {block, twin, true},
        {block, other, false},
    };
    for (auto const& [left, right, expected] : cases)
        EXPECT_EQ(left == right, expected)
            << left.GetDescription().c_str() << " against " << right.GetDescription().c_str();
}

TEST(DataItemCompare, LessIsNumericOnlyWhereTheLeftSideSaysSo)
{
    std::tuple<DataItem, DataItem, bool> const cases[] = {
        {9, 10, true},      {9, 9.5, true},       {10.0, 9, false},
        {9LL, 10, true},    {9LL, "10", true},    {9, 10LL, false}, // as text: "9" is above "10"
        {"9", "10", false}, {"abc", "ABD", true},
    };
    for (auto const& [left, right, expected] : cases)
        EXPECT_EQ(left < right, expected)
            << left.GetDescription().c_str() << " against " << right.GetDescription().c_str();
}

TEST(DataItemCompare, TheNumberGrammarOfTexts)
{
    std::tuple<char const*, bool, bool> const cases[] = {
        {"", false, false},     {"5", true, true},     {"-5", true, true},
        {"+", true, true},      {"-", true, true},     {".", false, false},
        {".5", true, false},    {"5.", true, false},   {"1.2.3", false, false},
        {".5.", false, false},  {"1e5", true, false},  {"1E-5", true, false},
        {"1e5e", false, false}, {"1-5", false, false}, {"0x", true, true},
        {"0XfF", true, true},   {"0xg", false, false}, {"-0x1", false, false},
        {" 1", false, false},   {"pi", false, false},
    };
    for (auto [text, numeric, integer] : cases) {
        bool is_integer = !integer;
        EXPECT_EQ(is_numeric_ex(text, is_integer), numeric) << text;
        EXPECT_EQ(is_integer, numeric ? integer : !integer) << text;
    }
}
