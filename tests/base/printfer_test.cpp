#include <memblock/base/raise.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <limits>

#include <gtest/gtest.h>
#include <locale.h>

using namespace Ntarnwick;

namespace {

/// The C library in the C locale, for this thread, while the object lives.
struct CLocale {
    locale_t c = newlocale(LC_ALL_MASK, "C", nullptr);
    locale_t before = uselocale(c);
    ~CLocale()
    {
        uselocale(before);
        freelocale(c);
    }
};

template <class V>
void ExpectAsInC(char const* format, V v)
{
    CLocale locale;
    char expected[1000];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(expected, sizeof expected, format, v);
#pragma GCC diagnostic pop
    EXPECT_STREQ(Text(format, v).c_str(), expected) << format;
}

} // namespace

TEST(Printfer, FormatsAsTheCLanguage)
{
    for (char const* format :
         {"%d", "%5d|", "%-5d|", "%05d", "%+d", "% d", "%.3d", "%8.3d", "%.0d", "%i", "%u", "%x",
          "%X", "%04x", "%#x", "%#10x|", "%o", "%#o", "%+.4i"})
        for (int v : {0, 1, -1, 42, INT_MAX, INT_MIN})
            ExpectAsInC(format, v);
    for (char const* format :
         {"%g",      "%e",  "%f",     "%.0f", "%.3e",     "%10.2f|", "%-10.2f|",
          "%010.2f", "%+g", "% g",    "%G",   "%E",       "%.17g",   "%a",
          "%.2a",    "%A",  "%.100f", "%.0e", "%20.10g|", "%F",      "%.300f"})
        for (double v : {0.0, -0.0, 1.0, -1.5, 0.1, 1e100, 1e-300, 123456789.0, 0.5, 2.5, 1e300,
                         double(INFINITY), double(-INFINITY), 5e-324})
            ExpectAsInC(format, v);
    for (char const* format : {"%s", "%10s|", "%-10s|", "%.2s", "%5.1s|", "%.0s"})
        for (char const* v : {"", "abc", "a longer text, longer than any inline buffer"})
            ExpectAsInC(format, v);
    ExpectAsInC("%c|", int('x'));
    ExpectAsInC("%4c|", int('%'));
    int target = 0;
    ExpectAsInC("%p", static_cast<void const*>(&target));
    ExpectAsInC("%20p|", static_cast<void const*>(&target));
    ExpectAsInC("%p", static_cast<void const*>(nullptr));
}

TEST(Printfer, TakesTheArgumentsOwnWidth)
{
    EXPECT_STREQ(Text("%u %d", 5000000000ul, 5000000000ll).c_str(), "5000000000 5000000000");
    EXPECT_STREQ(Text("%d %d", 4000000000u, ~0ul).c_str(), "4000000000 18446744073709551615");
    EXPECT_STREQ(Text("%lld %hd %zx", 7, 70000, -1).c_str(), "7 70000 ffffffff");
    EXPECT_STREQ(Text("%x %u", -1ll, -1).c_str(), "ffffffffffffffff 4294967295");
    EXPECT_STREQ(Text("%d", LLONG_MIN).c_str(), "-9223372036854775808");
    EXPECT_STREQ(Text("%d %u %x", 3.9, -3.9, 255.0).c_str(), "3 18446744073709551613 ff");
    EXPECT_STREQ(Text("%d %d %d", 1e19, 1e20, std::nan("")).c_str(),
                 "10000000000000000000 100000000000000000000 nan");
    EXPECT_STREQ(Text("%g %.1f", 3, 5u).c_str(), "3 5.0");
    EXPECT_STREQ(Text("%s %s %3s|", 12, 0.1, -1ll).c_str(), "12 0.1  -1|");
    EXPECT_STREQ(Text("%d %.2x", "text", safestring("abc")).c_str(), "text ab");
    EXPECT_STREQ(Text("%s", static_cast<char const*>(nullptr)).c_str(), "(null)");
    EXPECT_STREQ(Text("%g", -std::numeric_limits<double>::quiet_NaN()).c_str(), "nan");
}

TEST(Printfer, NeverScansArgumentsAndBearsAnyNumberOfThem)
{
    EXPECT_STREQ(Text("%s and %s", "%d%s", "%").c_str(), "%d%s and %");
    EXPECT_STREQ(Text("100%% of %d%%", 5).c_str(), "100% of 5%");
    EXPECT_STREQ(Text("a%sb%dc").c_str(), "abc");
    EXPECT_STREQ(Text("only %d", 1, 2, "three").c_str(), "only 1");
    EXPECT_STREQ(Text("odd %y %d %", 1).c_str(), "odd %y 1 %");
    EXPECT_STREQ(Text("%s", safestring("a\0b", 3)).substr(2).c_str(), "b");

    printfer chain = Printf("%s-%s-%s");
    chain("1")(2u);
    printfer copy = chain; // stands on its own
    EXPECT_STREQ(safestring(chain(3.5).Finalize()).c_str(), "1-2-3.5");
    EXPECT_STREQ(safestring(copy.Finalize().Finalize()).c_str(), "1-2-");
}
