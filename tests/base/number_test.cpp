#include "support/raises.h"

#include <memblock/base/number.h>
#include <memblock/base/raise.h>

#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>

using namespace Ntarnwick;

namespace {

constexpr double inf = HUGE_VAL;

/// The first locale with a comma as its decimal point that the system has, while the object lives.
struct CommaLocale {
    std::string before = std::setlocale(LC_NUMERIC, nullptr);
    bool found = false;
    CommaLocale()
    {
        for (char const* name :
             {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8", "nl_NL.UTF-8"})
            found = found || std::setlocale(LC_NUMERIC, name);
    }
    ~CommaLocale() { std::setlocale(LC_NUMERIC, before.c_str()); }
};

} // namespace

TEST(Number, TextOfIntegersAndDoubles)
{
    EXPECT_STREQ(str(INT_MIN).c_str(), "-2147483648");
    EXPECT_STREQ(str(UINT_MAX).c_str(), "4294967295");
    EXPECT_STREQ(str(LLONG_MIN).c_str(), "-9223372036854775808");
    EXPECT_STREQ(str(~0ull).c_str(), "18446744073709551615");
    struct {
        double v;
        int digits;
        char const* text;
    } const cases[] = {{0.1, 12, "0.1"},
                       {1.0 / 3, 6, "0.333333"},
                       {1e15, 12, "1e+15"},
                       {123456, 6, "123456"},
                       {1234567, 6, "1.23457e+06"},
                       {-0.0, 6, "-0"},
                       {2.5, 0, "2"},
                       {0.1, 18, "0.100000000000000006"},
                       {-inf, 12, "-inf"},
                       {-std::nan(""), 12, "nan"},
                       {5e-324, 3, "4.94e-324"},
                       {1, 100000, "1"}};
    for (auto const& c : cases)
        EXPECT_STREQ(str(c.v, c.digits).c_str(), c.text);
}

TEST(Number, WhatIsNumericIsANumberAndCanBeParsed)
{
    for (char const* text : {"0", "12", "-12", "+1.5", "1,5", ".5", "5.", "1e3", "1.5E-3", "0x1F",
                             "-0x10", "99999999999999999999", "1e-999"}) {
        EXPECT_TRUE(is_numeric(text)) << text;
        EXPECT_NO_THROW(StrToDouble(text)) << text;
    }
    for (char const* text :
         {"",    "e",  "E5", ".",  ",",     "+",  "-",   "--1", "nan",   "oo", "pi",
          "inf", "0x", " 1", "1 ", "1.5.2", "1e", "1e+", "abc", "1e999", "e5", "1,5,2"})
        EXPECT_FALSE(is_numeric(text)) << text;
    EXPECT_FALSE(is_numeric(safestring("1\0002", 3)));
}

TEST(Number, YesAndNo)
{
    for (char const* text : {"true", "YES", "on", "1", "-0.5", "0x1"}) {
        EXPECT_TRUE(is_positive(text)) << text;
        EXPECT_FALSE(is_negative(text)) << text;
    }
    for (char const* text : {"False", "no", "OFF", "0", "0.0"}) {
        EXPECT_FALSE(is_positive(text)) << text;
        EXPECT_TRUE(is_negative(text)) << text;
    }
    for (char const* text : {"", "maybe", "nan"}) {
        EXPECT_FALSE(is_positive(text)) << text;
        EXPECT_FALSE(is_negative(text)) << text;
    }
}

TEST(Number, StrToNumberTellsIntegersFromOthers)
{
    struct {
        char const* text;
        bool is_int;
        double value;
    } const cases[] = {{"12", true, 12},
                       {" -2147483648\r\n", true, INT_MIN},
                       {"2147483648", false, 2147483648.0},
                       {"1.0", false, 1},
                       {"1,25", false, 1.25},
                       {"1e3", false, 1000},
                       {"0x10", true, 16},
                       {"-0xFFFFFFFFF", false, -68719476735.0},
                       {"0xFFFFFFFFFFFFFFFFF", false, 295147905179352825855.0},
                       {"OO", true, INT_MAX},
                       {"-oo", true, -INT_MAX},
                       {"-Inf", false, -inf},
                       {"1e-999", false, 0},
                       {"0.0000000000000000000001e-310", false, 0},
                       {"4.9e-324", false, 5e-324},
                       {"123456789012345678901234567890", false, 123456789012345678901234567890.0}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        int i = 0;
        double d = 0;
        EXPECT_EQ(StrToNumber(c.text, i, d), c.is_int);
        EXPECT_EQ(c.is_int ? i : d, c.value);
    }
    int i = 0;
    double d = 0;
    EXPECT_FALSE(StrToNumber("nan", i, d));
    EXPECT_TRUE(std::isnan(d));
    EXPECT_FALSE(StrToNumber("PI", i, d));
    EXPECT_NEAR(d, 3.14159265358979, 1e-14);
}

TEST(Number, BadTextsAreReportedWithTheirWords)
{
    struct {
        char const* text;
        char const* message;
    } const cases[] = {{"", "Empty string is not accepted as a number."},
                       {" \t\r\n", "Empty string is not accepted as a number."},
                       {"--1", "Invalid numeric: --1"},
                       {"+-1", "Invalid numeric: -1"},
                       {"12abc", "Invalid numeric: abc"},
                       {"1.5.2 x", "Invalid numeric: .2 x"},
                       {"e5", "Invalid numeric: e5"},
                       {"5e", "Invalid numeric: e"},
                       {"pixel", "Invalid numeric: pixel"},
                       {"-", "Invalid numeric: "},
                       {"1 %s", "Invalid numeric: %s"}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        int i;
        double d;
        EXPECT_RAISES(StringToDouble()(c.text), err_value, c.message);
        EXPECT_RAISES(StringToInt64()(c.text), err_value, c.message);
        EXPECT_RAISES(StrToNumber(c.text, i, d), err_value, c.message);
        bool ok = true;
        CheckOk check(ok);
        EXPECT_EQ(StringToInt64()(c.text, check), 0);
        EXPECT_FALSE(ok);
    }
}

TEST(Number, IntegersAreRoundedAndKeptInTheirRange)
{
    EXPECT_EQ(StringToInt64()("-9223372036854775808"), LLONG_MIN);
    EXPECT_EQ(StringToInt64()("9223372036854775807"), LLONG_MAX);
    EXPECT_EQ(StringToInt64()(" 2.5 "), 3);
    EXPECT_EQ(StringToInt64()("-2,5"), -3);
    EXPECT_EQ(StringToInt64()("oo"), INT_MAX);
    EXPECT_EQ(StringToUInt()("4294967295"), UINT_MAX);
    EXPECT_EQ(StringToUInt()("-0"), 0u);
    EXPECT_EQ(StrToInt("-2147483648.4"), INT_MIN);

    char const* const range = "Number does not fit in the destination data type range: %s";
    for (char const* text : {"9223372036854775808", "-9223372036854775809", "1e19", "nan", "-inf"})
        EXPECT_RAISES(StringToInt64()(text), err_value, Text(range, text));
    for (char const* text : {"4294967296", "4294967295.5"})
        EXPECT_RAISES(StringToUInt()(text), err_value, Text(range, text));
    EXPECT_RAISES(StrToInt("2147483648"), err_value, Text(range, "2147483648"));
    EXPECT_RAISES(StringToDouble()("-1e309"), err_value, Text(range, "-1e309"));
    for (char const* text : {"-1", "-0.25"})
        EXPECT_RAISES(StringToUInt()(text), err_value,
                      Text("Cannot convert negative number into an unsigned type: %s", text));
}

TEST(Number, ALocaleWithACommaChangesNothingButThePointOfTheCurrentLocale)
{
    EXPECT_EQ(StringToUInt()("2.6"), 3u);
    CommaLocale locale;
    if (!locale.found)
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    EXPECT_EQ(CurrentDecimalPoint(), ',');
    EXPECT_EQ(StringToUInt()("2,6"), 3u);
    EXPECT_EQ(StringToUInt()("2.6"), 3u);
    EXPECT_EQ(StringToDouble()("2.5"), 2.5);
    EXPECT_STREQ(str(2.5, 6).c_str(), "2.5");
    EXPECT_STREQ(Text("%g %.1f", 2.5, 1).c_str(), "2.5 1.0");
}

TEST(Number, FitsAfterTruncHasTheExactBoundsOfTheType)
{
    EXPECT_TRUE(FitsAfterTrunc<int>(2147483647.9));
    EXPECT_FALSE(FitsAfterTrunc<int>(2147483648.0));
    EXPECT_TRUE(FitsAfterTrunc<int>(-2147483648.9));
    EXPECT_FALSE(FitsAfterTrunc<int>(-2147483649.0));
    EXPECT_TRUE(FitsAfterTrunc<unsigned char>(-0.9));
    EXPECT_FALSE(FitsAfterTrunc<unsigned char>(-1.0));
    EXPECT_TRUE(FitsAfterTrunc<signed char>(-128.5));
    EXPECT_FALSE(FitsAfterTrunc<unsigned char>(256.0));
    EXPECT_FALSE(FitsAfterTrunc<long long>(0x1p63));
    EXPECT_TRUE(FitsAfterTrunc<long long>(-0x1p63));
    EXPECT_FALSE(FitsAfterTrunc<long long>(std::nextafter(-0x1p63, -inf)));
    EXPECT_FALSE(FitsAfterTrunc<unsigned long long>(0x1p64));
    EXPECT_TRUE(FitsAfterTrunc<unsigned long long>(std::nextafter(0x1p64, 0)));
    for (double v : {std::nan(""), inf, -inf}) {
        EXPECT_FALSE(FitsAfterTrunc<int>(v));
        EXPECT_FALSE(FitsAfterTrunc<unsigned long long>(v));
        EXPECT_EQ(TruncToInt(v), INT_MIN);
        EXPECT_EQ(TruncToInt64(v), LLONG_MIN);
    }
    EXPECT_EQ(TruncToInt(-7.9), -7);
    EXPECT_EQ(TruncToInt64(0x1p62), 1ll << 62);
}

TEST(Number, RoundingAddsOneHalfAndTruncates)
{
    EXPECT_EQ(RoundHalfAway(2.5), 3);
    EXPECT_EQ(RoundHalfAway(-2.5), -3);
    EXPECT_EQ(RoundHalfAway(0.49999999999999994), 1);
    EXPECT_EQ(RoundHalfAway(0x1p53), 0x1p53);
    EXPECT_TRUE(std::isnan(RoundHalfAway(std::nan(""))));
}
