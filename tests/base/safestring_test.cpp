#include <memblock/base/safestring.h>

#include <map>
#include <vector>

#include <gtest/gtest.h>

using namespace Ntarnwick;

TEST(SafeString, EqualityOrderAndSearchIgnoreAsciiCaseOnly)
{
    EXPECT_EQ(safestring("Image.@MEAN"), "image.@mean");
    EXPECT_NE(safestring("\xC4"), "\xE4"); // no byte beyond ASCII is folded
    EXPECT_NE(safestring("@"), "`");       // nor the neighbours of the letters
    EXPECT_NE(safestring("["), "{");
    EXPECT_EQ(safestring("xABCx").find("abc"), 1u);
    EXPECT_EQ(safestring("xABCx").find('c'), 3u);
    EXPECT_EQ(safestring("xABCx").find('@'), safestring::npos);

    std::map<safestring, int> map;
    map["Name"] = 1;
    map["NAME"] = 2;
    EXPECT_EQ(map.size(), 1u);
    EXPECT_EQ(map["name"], 2);
}

TEST(SafeString, OrderIsOfUpperCaseLettersAndSignedBytes)
{
    char const* const ascending[] = {"", "\x80", "\xC4", "\xFF", "1", "A", "a1", "B", "_", "~"};
    std::vector<safestring> const texts(std::begin(ascending), std::end(ascending));
    for (std::size_t i = 0; i < texts.size(); ++i)
        for (std::size_t j = 0; j < texts.size(); ++j)
            EXPECT_EQ(texts[i] < texts[j], i < j) << i << ' ' << j;
    EXPECT_LT(safestring("AB"), "abc");
    EXPECT_TRUE((safestring("abc") <=> safestring("ABC")) == 0);
}

TEST(SafeString, EveryByteInEveryPlaceComparesAsTheRuleSays)
{
    auto by_rule = [](unsigned char x, unsigned char y) {
        auto fold = [](unsigned char c) {
            return int((signed char)(c >= 'a' && c <= 'z' ? c - 32 : c));
        };
        return fold(x) < fold(y) ? -1 : fold(x) > fold(y);
    };
    for (unsigned length : {1u, 3u, 4u, 7u, 8u, 9u, 16u, 21u}) {
        for (unsigned place = 0; place < length; ++place) {
            for (unsigned x = 0; x < 256; ++x) {
                for (unsigned y = 0; y < 256; ++y) {
                    std::string a(length, 'k'), b(length, 'K');
                    a[place] = char(x);
                    b[place] = char(y);
                    if (place + 1 < length) // what stands behind decides nothing
                        b[place + 1] = char(x ^ 0xFF);
                    int const rule = by_rule(x, y);
                    int const order = safestring_traits::compare(a.data(), b.data(), place + 1);
                    ASSERT_EQ(order, rule) << length << ' ' << place << ' ' << x << ' ' << y;
                    if (rule != 0) {
                        ASSERT_EQ(safestring_traits::compare(a.data(), b.data(), length), rule);
                    }
                }
            }
        }
    }
}

TEST(SafeStringList, ItemsAreWhatStandsBetweenSeparators)
{
    EXPECT_EQ(safestringlist("", ',').size(), 0u);
    EXPECT_EQ(safestringlist("a,,b,", ',').size(), 4u);
    EXPECT_EQ(safestringlist("axb", 'X').size(), 1u); // a separator is one very byte

    safestringlist letters('|');
    for (char const* item : {"one", "Two", "three"})
        letters.push_back(item);
    EXPECT_STREQ(letters.Text().c_str(), "one|Two|three");
    EXPECT_STREQ(letters[1].c_str(), "Two");
    EXPECT_STREQ(letters[3].c_str(), "");
    letters.erase(3);
    letters.erase(1);
    EXPECT_STREQ(letters.Text().c_str(), "one|three");
    letters.erase(1);
    EXPECT_STREQ(letters.Text().c_str(), "one");
    letters.erase(0);
    EXPECT_TRUE(letters.empty());
    EXPECT_EQ(letters.Separator(), '|');
}

TEST(SafeStringList, SplitsAtAnyOfASetAndJoinsAgain)
{
    struct {
        char const* text;
        char const* separators;
        bool skip_empty;
        char const* joined;
        unsigned long size;
    } const cases[] = {{"a b\t,c;d", " \t,;", true, "a b c d", 4},
                       {"a,;b", ",;", false, "a,,b", 3},
                       {"a,;b", ";,", false, "a;;b", 3},
                       {",,", ",", true, "", 0},
                       {",", ",", false, ",", 2},
                       {"one", "", false, "one", 1},
                       {"AbA", "a", false, "AbA", 1}};
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.text << " at " << c.separators);
        safestringlist const list = SplitString(c.text, c.separators, c.skip_empty);
        EXPECT_STREQ(list.Text().c_str(), c.joined);
        EXPECT_EQ(list.size(), c.size);
    }
    EXPECT_STREQ(JoinString(SplitString("a,b,,c", ",", false), ", ").c_str(), "a, b, , c");
}
