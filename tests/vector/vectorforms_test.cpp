#include <memblock/vector/vectorforms.h>

#include <memblock/serial/serializer.h>

#include "support/program.h"
#include "support/raises.h"
#include "support/vectors.h"
#include "support/warnings.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>

using namespace NKelmic;

namespace {

std::string Form(DerivedPointer<Vector> const& v, int format, char const* options = "",
                 safestring const& path = "x")
{
    Formatter formatter;
    formatter.Init(SplitString(options, "|", true), throw_never);
    SerializeVisitor visitor("t");
    safestring output;
    v->Serialize(format, visitor, path, formatter, output);
    return std::string(output.data(), output.size());
}

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

} // namespace

TEST(VectorForms, NumbersAreTextLines)
{
    struct Case {
        DerivedPointer<Vector> v;
        char const* options;
        char const* text;
    };
    Case const cases[] = {
        {Doubles({1.5, not_a_number, -inf, inf, -not_a_number}), "", "1.5\nNaN\n-inf\ninf\nNaN\n"},
        {Doubles({2.0 / 3, 1e20, -0.0}), "precision=3", "0.667\n1e+20\n-0\n"},
        {Doubles({2.0 / 3}), "precision=-1", "0.666667\n"},
        {Floats({0.1F}), "precision=17", "0.10000000149011612\n"},
        {Doubles({12.0, 0.5}), "precision=0", "1e+01\n0.5\n"},
        {Bytes({0, 255}), "", "0\n255\n"},
        {Bytes({0, 255}, 0.5), "", "0\n127.5\n"},
        {Chars({-128, 65}), "", "-128\n65\n"},
        {Shorts({-1}), "", "-1\n"},
        {Triples({0xFFFFFFU}), "", "16777215\n"},
        {UInts({4294967295U}), "", "4294967295\n"},
        {UInt64s({18446744073709551615ULL}), "", "18446744073709551615\n"},
        {Int64s({std::numeric_limits<long long>::min()}), "", "-9223372036854775808\n"},
        {Texts({"a\nb", "<\"c\">"}), "", "a\nb\n<\"c\">\n"},
        {Texts({"a\nb", "\"c\""}), "quotemode=1", "a\\nb\n\\\"c\\\"\n"},
        {Texts({"a\nb", "<\"c\">"}), "quotemode=2", "a<br>b\n&lt;&quot;c&quot;&gt;\n"},
        {Texts({"a\r\nb", ""}), "quotemode=3", "ab\n\n"},
        {Items({DataItem(5), DataItem(Bytes({1, 2})), DataItem()}), "", "5\n1\n2\n"},
        {Items({DataItem(5), DataItem(Bytes({1, 2})), DataItem()}), "single_line_per_elem",
         "0\t5\n1\t1 2\n2\t\n"},
        {Objects({Bytes({1}), PMemBlock()}), "", "1\n"},
        {Bytes({}), "", ""},
    };
    for (auto const& c : cases)
        EXPECT_EQ(Form(c.v, Formatter::ser_ascii, c.options), c.text) << c.options;
    safestring raw;
    float const values[] = {0.5F, 1e10F};
    serialize1_tmpl<float>(values, 2, raw);
    EXPECT_EQ(raw, "0.5\n1e+10\n");
}

TEST(VectorForms, FloatsAreTheBytesOfPrintf)
{
    std::mt19937_64 random(5);
    for (int precision : {0, 1, 6, 9, 15, 17, 40, 767, 1000000}) {
        std::vector<double> values{0.0, 5e-324, 1.7976931348623157e308, 0.0001, 0.00001, 999999.5};
        std::string expected;
        for (int i = 0; i < 100; ++i)
            values.push_back(std::bit_cast<double>(random()));
        std::erase_if(values, [](double v) { return !std::isfinite(v); });
        for (double v : values) {
            char text[1200]; // the test runs under a comma locale, too
            std::snprintf(text, sizeof text, "%.*g\n", precision, v);
            std::string line = text;
            std::replace(line.begin(), line.end(), ',', '.');
            expected += line;
        }
        EXPECT_EQ(Form(Doubles(values), 2, Text("precision=%d", precision).c_str()), expected);
    }
}

TEST(VectorForms, SeventeenDigitsAreReadBackToTheBitByAnotherReader)
{
    std::mt19937_64 random(6);
    std::vector<double> values{inf, -inf, not_a_number, -0.0, 5e-324, 1.7976931348623157e308};
    for (int i = 0; i < 1000; ++i)
        values.push_back(std::ldexp(static_cast<double>(random()), int(random() % 2000) - 1000));
    std::string const bytes(reinterpret_cast<char const*>(values.data()), values.size() * 8);
    EXPECT_EQ(Through("python3 -c 'import struct, sys\n"
                      "for line in sys.stdin: sys.stdout.buffer.write("
                      "struct.pack(\"<d\", float(line)))'",
                      Form(Doubles(values), 2, "precision=17")),
              bytes);
}

TEST(VectorForms, HtmlIsATable)
{
    EXPECT_EQ(Form(Doubles({1.5, not_a_number}, 2.0), 3),
              "<table>\n<tr><td>3</td></tr>\n<tr><td>nan</td></tr>\n</table>\n");
    EXPECT_EQ(Form(Ints({1234567}), 3), "<table>\n<tr><td>1.23457e+06</td></tr>\n</table>\n");
    EXPECT_EQ(Form(Texts({"<a>\n"}), 3), "<table>\n<tr><td>&lt;a&gt;<br></td></tr>\n</table>\n");
    EXPECT_EQ(Form(Items({DataItem("&"), DataItem(Bytes({1}))}), 3),
              "<table>\n<tr><td>&amp;</td></tr>\n<tr><td><table>\n<tr><td>1</td></tr>\n</table>\n"
              "</td></tr>\n</table>\n");
}

TEST(VectorForms, BinaryFormsHoldTheBytesInMemory)
{
    std::string bytes;
    std::vector<unsigned char> values;
    for (int i = 0; i < 1000; ++i) {
        values.push_back(static_cast<unsigned char>(i * 7));
        bytes += static_cast<char>(i * 7);
    }
    auto const v = Bytes(values);
    EXPECT_EQ(Form(v, 1), bytes);
    EXPECT_EQ(Through("gunzip", Form(v, 10)), bytes);
    EXPECT_EQ(Through("base64 -d", Form(v, 11)), bytes);
    EXPECT_EQ(Through("base64 -d | gunzip", Form(v, 12)), bytes);
    EXPECT_EQ(Form(Bytes({10, 255}), 13), "0AFF");
    EXPECT_EQ(Form(UShorts({0x1234}), 13), "3412");
    EXPECT_EQ(Form(Objects({Bytes({10}), UShorts({1, 2})}), 13), "0A01000200");
    safestring hexa = "kept";
    SerializeHexa(Shorts({-2}).operator->(), hexa);
    EXPECT_EQ(hexa, "keptFEFF");

    WarningLog warnings;
    EXPECT_EQ(Form(Bytes({3}, 2.0), 1), "\3");
    ASSERT_EQ(warnings.Lines().size(), 1u);
    EXPECT_EQ(warnings.Lines()[0].first, 128u);
    EXPECT_EQ(warnings.Lines()[0].second,
              "Raw factor 2 cannot be merged in the binary output data; set .factor to 1 to avoid "
              "this message.");
}

TEST(VectorForms, TheScriptFormMakesTheVectorAgain)
{
    std::string const base64 = Form(Bytes(std::vector<unsigned char>(33, 1)), 12);
    struct Case {
        DerivedPointer<Vector> v;
        char const* options;
        std::string text;
    };
    Case const cases[] = {
        {Ints({1, -2}), "", "set(x=vec(1,-2))\n"},
        {Doubles({0.1, 2.0 / 3, not_a_number}), "", "set(x=vec(0.1,0.6666666666666666,nan))\n"},
        {Bytes({1, 2}, 0.5), "",
         "set(x=vec(1,2))\nConvElems(x,\"integral\",1,\"unsigned\")\nset(x.factor=x.factor*0.5)\n"},
        {Floats({0.1F}), "", "set(x=vec(0.1))\nConvElems(x,\"floating\",4,\"signed\")\n"},
        {Bytes(std::vector<unsigned char>(33, 1), 2.0), "",
         "Decode(\"base64\", \"" + base64 +
             "\"|t0=decoded)\nDecode(\"gzip\", t0|t0=decoded)\n"
             "ReadVector(\"x\",\"<t0\",\"raw\",\"byte\")\nDelete(t0)\nset(x.factor=x.factor*2)\n"},
        {Bytes({1, 255}), "blob_threshold=1|bin_fmt=13",
         "Decode(\"hexadecimal\", \"01FF\"|t0=decoded)\n"
         "ReadVector(\"x\",\"<t0\",\"raw\",\"byte\")\nDelete(t0)\n"},
        {Ints({1, 2}), "blob_threshold=1|bin_fmt=2", "set(x=vec(1,2))\n"},
        {Texts({"a\"\n", ""}), "", "set(x=vec(\"a\\\"\\n\",\"\"))\n"},
        {Objects({Ints({1}), PMemBlock(), Bytes({2})}), "",
         "Create(\"vector\",3,9|x=vector)\nset(x[0]=vec(1))\n"
         "set(t0=vec(2))\nConvElems(t0,\"integral\",1,\"unsigned\")\nSet(x[2]=t0)\nDelete(t0)\n"},
        {Items({DataItem(5), DataItem("a"), DataItem()}), "",
         "Create(\"vector\",3,14|x=vector)\nset(x[0]=5)\nset(x[1]=\"a\")\n"},
    };
    WarningLog warnings;
    for (auto const& c : cases)
        EXPECT_EQ(Form(c.v, 7, c.options), c.text);
    EXPECT_TRUE(warnings.Lines().empty()) << "the factor is written";
    EXPECT_EQ(Form(Bytes(std::vector<unsigned char>(32, 1)), 7).find("Decode"), std::string::npos);
}

TEST(VectorForms, FailuresAreToldWithTheirPlace)
{
    safestring const wrapped = "Exception during serialization of (x): ";
    for (int format : {0, 4, 5, 6, 8, 9, 14, -1})
        EXPECT_RAISES(Form(Bytes({1}), format), err_request,
                      Text("Serialization format %d not supported for: Vector of 1 elements of "
                           "type byte",
                           format));
    for (int format : {1, 10, 11, 12, 13})
        for (auto const& v : {Texts({"a"}), Items({DataItem(1)})})
            EXPECT_RAISES(Form(v, format), err_request,
                          Text("Serialization format %d not supported for: %s", format, *v));
    EXPECT_RAISES(Form(Texts({"a"}), 2, "quotemode=4"), err_request,
                  wrapped + "Quoting mode not supported: 4");
    EXPECT_RAISES(Form(Ints({1, 2}), 7, "blob_threshold=1|bin_fmt=10"), err_kind,
                  wrapped + "Morvane script dump not supported for blob format: 10");
    EXPECT_THROW(Form(Ints({1, 2}), 7, "blob_threshold=1|bin_fmt=7"), Exception);
    EXPECT_RAISES(Form(Objects({PMemBlock()}), 1), err_value,
                  wrapped + "Data does not conform to \"vector\" class: none");
    EXPECT_RAISES(
        Form(Objects({Bytes({1}), Texts({"a"})}), 1), err_request,
        wrapped + "Serialization format 1 not supported for: Vector of 1 elements of type string");
    EXPECT_THROW(Form(Vector::Create(1, Vector::VoidStar, true, 0, 1.0), 2), Exception);

    auto const self = Objects({Bytes({1}), PMemBlock()});
    self->SetElem(1, PMemBlock(self));
    SerializeVisitor visitor;
    safestring output = "kept";
    EXPECT_THROW(self->Serialize(2, visitor, "x", Formatter(), output), Exception);
    EXPECT_EQ(output, "kept");
    self->SetElem(1, PMemBlock());
}

TEST(VectorForms, DeepNestingIsNoDanger)
{
    PMemBlock deep = Ints({7});
    for (int level = 0; level < 2000; ++level)
        deep = Objects({deep});
    EXPECT_EQ(Form(VectorOf(deep), 2), "7\n");
    EXPECT_EQ(Form(VectorOf(deep), 13), "07000000");
    EXPECT_EQ(VectorOf(deep)->DoVerb("expr", 0, nullptr).GetString().size(), 2001 * 5 + 1u);
    deep->SetSubItem("0",
                     DataItem(Objects({deep->GetSubItem("0", throw_always).GetMemory(),
                                       Vector::Create(1, Vector::VoidStar, true, 0, 1.0)})),
                     throw_always);
    EXPECT_THROW(Form(VectorOf(deep), 7), Exception);
}

TEST(VectorForms, TextsAreQuotedForHtmlScriptsAndLines)
{
    safestring html = "a<b>&\"c\"\td\r\n\r\ne\n\nf\ng\r\nh\ri\n\r\n";
    safestring plain = html;
    HtmlQuote(html, true);
    EXPECT_STREQ(html.c_str(), "a&lt;b&gt;&amp;&quot;c&quot;&nbsp;&nbsp;&nbsp;&nbsp;d<p>e<p>f<br>g"
                               "<br>h\ri<br><br>");
    HtmlQuote(plain, false);
    EXPECT_TRUE(plain.ends_with("d\r\n\r\ne\n\nf\ng\r\nh\ri\n\r\n"));
    for (int byte = 0; byte < 256; ++byte) {
        safestring const hex = byte2hex(static_cast<unsigned char>(byte));
        EXPECT_STREQ(hex.c_str(), Text("%02X", byte).c_str());
        EXPECT_EQ(hex2byte(hex[0], safestring_traits::fold_down(hex[1])), byte);
    }
    EXPECT_RAISES(hex2byte('G', '0'), err_value, "Invalid hexadecimal digits: G0");
}
