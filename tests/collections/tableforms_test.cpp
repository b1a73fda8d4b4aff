#include <memblock/collections/table.h>

#include <memblock/serial/serializer.h>
#include <support/program.h>
#include <support/raises.h>
#include <support/vectors.h>

#include <gtest/gtest.h>
#include <limits>

using namespace NKelmic;

namespace {

safestring Form(Table const& t, char const* words)
{
    Formatter formatter;
    formatter.Init(safestringlist(words, ';'), throw_always);
    SerializeVisitor visitor;
    safestring text = "before|";
    t.Serialize(formatter.FormatNumber(), visitor, "t", formatter, text);
    return text;
}

DerivedPointer<Table> Sample()
{
    double const nan = std::numeric_limits<double>::quiet_NaN();
    return Table::Create("count", UInt64s({0, 18446744073709551615ULL}), "byte", Chars({-1, 2}),
                         "gray", UShorts({1, 3}, 0.5), "real", Doubles({-3, 1.0 / 3}), "odd",
                         Floats({1e20F, static_cast<float>(nan)}), "a <b>",
                         Texts({"say \"hi\" & <go>", ""}));
}

constexpr char const* html_form =
    "before|<table class=\"nowrap\" border=1 rules=all style=\"border-collapse:collapse\">\n"
    "<colgroup><col style=\"white-space:nowrap\"/><col style=\"white-space:nowrap\"/></colgroup>\n"
    "<tr><th>count</th><th>@a &lt;b&gt;@</th></tr>\n"
    "<tr><td>0</td><td>say &quot;hi&quot; &amp; &lt;go&gt;</td></tr>\n"
    "<tr><td>18446744073709551615</td><td></td></tr>\n"
    "</table>\n";

/// Reads a page with a parser of its own and prints the cells, a row a line.
constexpr char const* html_reader = R"(python3 -c '
import sys, html.parser
class Reader(html.parser.HTMLParser):
    rows, cell = [], None
    def handle_starttag(self, tag, attrs):
        if tag == "tr": self.rows.append([])
        if tag in ("th", "td"): self.cell = ""
    def handle_endtag(self, tag):
        if tag in ("th", "td"): self.rows[-1].append(self.cell); self.cell = None
    def handle_data(self, data):
        if self.cell is not None: self.cell += data
reader = Reader()
reader.feed(sys.stdin.buffer.read().decode("utf-8"))
for row in reader.rows: print("|".join(row))
')";

} // namespace

TEST(TableForms, TextHasARowALineWithTabsBetween)
{
    EXPECT_STREQ(Form(*Sample(), "ascii;precision=3").c_str(),
                 "before|0\t-1\t0.5\t-3.0\t1e+20\t\"say \"\"hi\"\" & <go>\"\n"
                 "18446744073709551615\t2\t1.5\t0.333\tnan\t\"\"\n");
    EXPECT_STREQ(Form(*Sample(), "ascii;columns=real, byte").c_str(),
                 "before|-3.0\t-1\n0.333333\t2\n");
    EXPECT_STREQ(Form(*Table::Create(), "ascii").c_str(), "before|");
    auto const texts = Table::Create("t", Texts({"a\n\"b"}));
    EXPECT_STREQ(Form(*texts, "ascii;quotemode=3").c_str(), "before|\"a\"\"b\"\n");
    EXPECT_RAISES(Form(*texts, "ascii;quotemode=9"), 4096, "Quoting mode not supported: 9");
    auto const objects = Table::Create("o", Objects({Ints({1})}));
    EXPECT_RAISES(Form(*objects, "ascii"), 128,
                  "Column type not supported: Vector of 1 elements of type memblock");
}

TEST(TableForms, AVisitorThatDescendsIntoScalarsWritesTheCellsOfObjectsInOneLine)
{
    struct Cells : SerializeVisitor {
        bool DescendIntoScalars() const override { return true; }
        void Descend(DataItem item, int format, safestring const& path, Formatter const& words,
                     safestring& output) override
        {
            EXPECT_TRUE(words.HasOption(Formatter::opt_shortmemblockdescr));
            EXPECT_TRUE(words.GetFlag("single_line_per_elem", false));
            output += Text("%s %d\n%s\n", path, format, item);
        }
    };
    auto const t = Table::Create("n", Ints({1, 2}), "o", Items({DataItem(7), Ints({5})}));
    Cells visitor;
    Formatter formatter;
    safestring text;
    t->Serialize(Formatter::ser_ascii, visitor, "t", formatter, text);
    EXPECT_STREQ(text.c_str(),
                 "1\tt.o[0] 2 7 (integer)\n2\tt.o[1] 2 Vector of 1 elements of type signed int\n");
    EXPECT_FALSE(formatter.GetFlag("single_line_per_elem", false)) << "those of the caller stay";
}

TEST(TableForms, HtmlIsWrittenByteByByteAndReadByAnotherParser)
{
    auto const t = Sample();
    SetTableColumnOrder(t, "count");
    t->Erase(1, 4);
    safestring const page = Form(*t, "html");
    EXPECT_STREQ(page.c_str(), html_form);

    EXPECT_EQ(Through(html_reader, page.c_str()),
              "count|@a <b>@\n0|say \"hi\" & <go>\n18446744073709551615|\n");
}
