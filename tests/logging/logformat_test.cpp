#include <memblock/logging/logformat_internal.h>

#include <memblock/base/text.h>

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <unistd.h>

using namespace NKelmic;

namespace {

constexpr long noon = 1'000'036'000; // 2001-09-09 nearly everywhere

struct Line {
    safestring topic = "gui", subtopic = "draw", message = "hello", threadname = "main";

    LogFields Fields() const { return {topic, subtopic, 5, message, threadname, 3, 77, noon}; }
    std::string ByReplacement(safestring const& format) const
    {
        safestring output = "what stood there before";
        FormatByReplacement(format, Fields(), output);
        return output.c_str();
    }
    std::string ByOnePass(safestring const& format) const
    {
        safestring output = "what stood there before";
        LogFormat taken_apart(format);
        taken_apart.Format(Fields(), output);
        return output.c_str();
    }
};

safestring RandomText(std::mt19937& random, char const* alphabet, int most)
{
    safestring text;
    for (int n = static_cast<int>(random() % (most + 1)); n > 0; --n)
        text += alphabet[random() % std::char_traits<char>::length(alphabet)];
    return text;
}

/// The rule in its simplest words.
bool MatchByRecursion(char const* text, char const* pattern)
{
    if (*pattern == '*')
        return MatchByRecursion(text, pattern + 1) ||
               (*text && MatchByRecursion(text + 1, pattern));
    if (!*pattern || !*text)
        return *pattern == *text;
    return std::tolower(*pattern) == std::tolower(*text) && MatchByRecursion(text + 1, pattern + 1);
}

} // namespace

TEST(LogFormat, ReplacesPlaceholdersOneKindAfterTheOther)
{
    struct {
        char const *format, *message, *expected;
    } const cases[] = {
        {"%l {%i/%a} [%h/%s] %n %r %m", "hello", "5 {3/77} [gui/draw] gui/draw main hello"},
        {"%L%I%A%H%S%N%R", "hello", "5377guidrawgui/drawmain"},
        {"", "hello", ""},
        {"100% %x %", "hello", "100% %x %"},
        {"%m", "two\r\nlines\n", "two  lines "},
        {"%m|%M", "say \"x\"", nullptr}, // see below: quoting is the base library's
        {"%m", "%m %d %s", "%m %d %s"},  // the format names none of them
        {"%s: %m", "in %s, %S", "draw: in draw, draw"},
        {"%m %i", "%i %l", "%i %l 3"}, // numbers of threads come before messages
        {"%l %m", "%l %n", "5 5 %n"},
        {"%h", "unused %h", "gui"},
        {"%%m", "x", "%x"},
        {"%%d%%", "x", "%2001-09-09%"},
        {"%m", "100%% sure", "100% sure"},
        {"%m", "%%%", "%%"},
        {"%%%m", "l%l", "%l%l"},
    };
    Line line;
    for (auto const& c : cases) {
        line.message = c.message;
        safestring quoted = line.message;
        ApplyQuoting(quoted);
        std::string const expected =
            c.expected ? c.expected : std::string(c.message) + "|\"" + quoted.c_str() + "\"";
        EXPECT_EQ(line.ByReplacement(c.format), expected) << c.format;
        EXPECT_EQ(line.ByOnePass(c.format), expected) << c.format;
    }
}

TEST(LogFormat, QuotedMessageGoesBeforeThePlainOne)
{
    Line line;
    line.message = "a%mb%M";
    // The plain step also reads the quoted text that was put in before it.
    EXPECT_EQ(line.ByReplacement("%M"), "\"aa%mb%Mba%mb%M\"");
    EXPECT_EQ(line.ByReplacement("%m %M"), "a%mb%M \"aa%mb%Mba%mb%M\"");
}

TEST(LogFormat, PrintsProcessAndTime)
{
    Line const line;
    EXPECT_EQ(line.ByOnePass("%p"), std::to_string(getpid()));
    safestring const day = FormatLocalTime(noon, "%Y-%m-%d");
    safestring const hour = FormatLocalTime(noon, "%H:%M:%S");
    EXPECT_EQ(line.ByOnePass("%d %t"), (day + " " + hour).c_str());

    LogFormat format("%t");
    safestring const none;
    for (long time : {noon, noon, noon + 1, 5L}) {
        safestring output;
        format.Format({none, none, 1, none, none, 1, 0, time}, output);
        EXPECT_STREQ(output.c_str(), FormatLocalTime(time, "%H:%M:%S").c_str());
    }
}

TEST(LogFormat, OnePassGivesTheSameBytesAsTheStepsForAnyFormatAndText)
{
    std::mt19937 random(20240607);
    int differing = 0;
    for (int i = 0; i < 50'000 && differing < 5; ++i) {
        safestring const format = RandomText(random, "%%%%%dtnpairmlshDMNxy /\n", 14);
        bool const percent = random() % 2;
        char const* const alphabet = percent ? "%%aimlshMrn \n\"" : "aimlshMrn \r\n\"\\";
        Line line;
        line.topic = RandomText(random, alphabet, 4);
        line.subtopic = RandomText(random, alphabet, 4);
        line.threadname = RandomText(random, alphabet, 4);
        line.message = RandomText(random, alphabet, 10);
        std::string const expected = line.ByReplacement(format);
        std::string const got = line.ByOnePass(format);
        EXPECT_EQ(got, expected) << "format: " << format.c_str();
        differing += got != expected;
    }
}

TEST(ReplaceWildCard, GoesOnBehindWhatItPutIn)
{
    struct {
        char c;
        char const *value, *text, *expected;
    } const cases[] = {
        {'m', "%m%m", "a%mb%Mc", "a%m%mb%m%mc"},
        {'M', "x", "%m", "x"},
        {'d', "", "%d%d%", "%"},
        {'d', "%", "%dd", "%d"},
        {'%', "%", "%%%%%", "%%%"},
    };
    for (auto const& c : cases) {
        safestring text = c.text;
        ReplaceWildCard(c.c, c.value, text);
        EXPECT_STREQ(text.c_str(), c.expected) << c.text;
    }
}

TEST(WildCardMatch, MatchesAsTheRecursiveRuleDoes)
{
    std::mt19937 random(4711);
    for (int i = 0; i < 50'000; ++i) {
        safestring const text = RandomText(random, "abA*", 8);
        safestring const pattern = RandomText(random, "abB**", 7);
        ASSERT_EQ(WildCardMatch(text, pattern), MatchByRecursion(text.c_str(), pattern.c_str()))
            << text.c_str() << " against " << pattern.c_str();
    }
}

TEST(WildCardMatch, StartsAtTheGivenPositionsAndCopesWithLongTexts)
{
    EXPECT_TRUE(WildCardMatch("xxabc", 2, "yA*", 1));
    EXPECT_FALSE(WildCardMatch("xxabc", 1, "yA*", 1));
    EXPECT_TRUE(WildCardMatch("abc", 3, "abc", 3));
    EXPECT_FALSE(WildCardMatch("abc", 9, "x", 0));
    safestring const text(5000, 'a');
    EXPECT_FALSE(WildCardMatch(text, "*a*a*a*a*a*a*a*a*a*b"));
    EXPECT_TRUE(WildCardMatch(text + "b", "*a*a*a*a*a*a*a*a*a*b"));
}
