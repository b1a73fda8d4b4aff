#include <memblock/base/number.h>
#include <memblock/base/text.h>

#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <zlib.h>

using namespace Ntarnwick;

namespace {

safestring Trimmed(safestring text)
{
    apply_trim(text);
    return text;
}

safestring Unquoted(safestring text)
{
    UnquoteName(text);
    return text;
}

std::vector<unsigned char> SomeBytes(unsigned long size)
{
    std::vector<unsigned char> bytes(size);
    unsigned state = 7;
    for (auto& byte : bytes)
        byte = (state = state * 1664525u + 1013904223u) >> 24;
    return bytes;
}

/// Base64 by its definition, bit by bit.
std::string SlowBase64(std::vector<unsigned char> const& bytes)
{
    std::string const letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string encoded;
    for (std::size_t bit = 0; bit < 8 * bytes.size(); bit += 6) {
        int value = 0;
        for (std::size_t b = bit; b < bit + 6; ++b)
            value = 2 * value + (b / 8 < bytes.size() ? bytes[b / 8] >> (7 - b % 8) & 1 : 0);
        encoded += letters[value];
    }
    while (encoded.size() % 4 != 0)
        encoded += '=';
    return encoded;
}

} // namespace

TEST(Text, QuotingAndEntities)
{
    safestring text = "say \"no\"\\\n\r\tA";
    EXPECT_STREQ(QuoteAdd(text).c_str(), "say \\\"no\\\"\\\\\\n\\r\\tA");
    ApplyQuoting(text);
    EXPECT_STREQ(text.c_str(), "say \\\"no\\\"\\\\\\n\\r\\tA");

    safestring xml = "<x>";
    EncodeXmlEntities("a<b & \"c\">'d'\r\n\x01\xC3\xA4 not this", 18, xml);
    EXPECT_STREQ(xml.c_str(), "<x>a&lt;b &amp; &quot;c&quot;&gt;&apos;d&apos;&#13;\n&#1;\xC3\xA4");
}

TEST(Text, QuotedNamesPassAsNamesAndComeBack)
{
    for (char const* name : {"", "a b", "@", "@mean", "a@b", "@x@", "\xC3\xA4", "plain"}) {
        safestring text = name;
        QuoteName(text);
        EXPECT_STREQ(text.c_str(), (std::string("@") + name + "@").c_str());
        EXPECT_TRUE(is_alphanumeric(text)) << name;
        EXPECT_STREQ(Unquoted(text).c_str(), name);
    }
    for (char const* stays : {"", "@", "@mean", "mean@", "name"})
        EXPECT_STREQ(Unquoted(stays).c_str(), stays);
    EXPECT_TRUE(is_alphanumeric("Name_2"));
    for (char const* text : {"", "a b", "a.b", "@mean", "\xC3\xA4", "@"})
        EXPECT_FALSE(is_alphanumeric(text)) << text;
}

TEST(Text, SearchSkipsBracketsAndParentheses)
{
    struct {
        char const* text;
        char const* what;
        unsigned long from, found;
    } const cases[] = {{"a[b.c].d", ".", 0, 6},
                       {"a(b.[c.]).d", ".", 0, 9},
                       {"a.b.c", ".", 2, 3},
                       {"a[b.c", ".", 0, safestring::npos},
                       {"a].b", ".", 0, 2},
                       {"a)(.).b", ".", 0, 5},
                       {"x[END]End", "eND", 0, 6},
                       {"abc", "", 3, 3},
                       {"abc", "c", 3, safestring::npos},
                       {"abc", "", 4, safestring::npos},
                       {"abc", "c", safestring::npos, safestring::npos},
                       {"ab[", "[", 0, 2}};
    for (auto const& c : cases)
        EXPECT_EQ(find_smart_skip_brackets_and_parens(c.text, c.what, c.from), c.found)
            << c.text << " from " << c.from;
    EXPECT_STREQ(Trimmed(" \t a b\r\n").c_str(), "a b");
    EXPECT_STREQ(Trimmed(" \n").c_str(), "");
    EXPECT_STREQ(Trimmed("\va\v").c_str(), "\va\v");
}

TEST(Text, LocalTimeIsThatOfTheZone)
{
    char const* const zone = getenv("TZ");
    std::string const before = zone ? zone : "";
    setenv("TZ", "XYZ-2", 1); // two hours east, all year
    tzset();
    EXPECT_STREQ(FormatLocalTime(1000000000, "%Y-%m-%d %H:%M:%S").c_str(), "2001-09-09 03:46:40");
    EXPECT_STREQ(FormatLocalTime(-1, "%Y-%m-%d %H:%M:%S").c_str(), "1970-01-01 01:59:59");
    EXPECT_STREQ(FormatLocalTime(0, "").c_str(), "");
    std::string format, expected;
    for (int i = 0; i < 300; ++i) {
        format += "%Y;";
        expected += "1970;";
    }
    EXPECT_STREQ(FormatLocalTime(0, format.c_str()).c_str(), expected.c_str());
    zone ? setenv("TZ", before.c_str(), 1) : unsetenv("TZ");
    tzset();
}

TEST(Encode, Base64OfAllLengths)
{
    for (unsigned long size = 0; size < 40; ++size) {
        auto const bytes = SomeBytes(size);
        EXPECT_STREQ(Encode_base64(bytes.data(), size).c_str(), SlowBase64(bytes).c_str()) << size;
    }
    auto const bytes = SomeBytes(10000);
    EXPECT_STREQ(Encode_base64(bytes.data(), bytes.size()).c_str(), SlowBase64(bytes).c_str());
}

TEST(Encode, GzipIsAFileThatZlibReadsBack)
{
    for (unsigned long size : {0ul, 1ul, 1000ul, 3000000ul}) {
        auto const bytes = SomeBytes(size);
        safestring const packed = Encode_gzip(bytes.data(), size);
        ASSERT_GE(packed.size(), 18u);
        EXPECT_EQ(static_cast<unsigned char>(packed[0]), 0x1F);
        EXPECT_EQ(static_cast<unsigned char>(packed[1]), 0x8B);

        std::vector<unsigned char> unpacked(size + 1);
        z_stream stream{};
        ASSERT_EQ(inflateInit2(&stream, 15 + 16), Z_OK); // gzip only
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
        stream.avail_in = packed.size();
        stream.next_out = unpacked.data();
        stream.avail_out = unpacked.size();
        EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
        EXPECT_EQ(stream.total_out, size);
        EXPECT_EQ(stream.avail_in, 0u);
        inflateEnd(&stream);
        unpacked.resize(size);
        EXPECT_TRUE(unpacked == bytes);
    }
}
