#include <memblock/serial/serializer.h>

#include "support/raises.h"
#include "support/testblock.h"

using namespace NKelmic;

namespace {
FormatTag tags[] = {{1, {"binary", "raw"}}, {4, {"xml", "markup", "third"}}, {2, {"ascii"}}};

bool Init(Formatter& formatter, char const* words, char separator,
          ThrowHandlerFunc handler = throw_always)
{
    return formatter.Init(safestringlist(words, separator), handler);
}
} // namespace

TEST(Formatter, EveryWordNamesItsFormat)
{
    std::pair<char const*, int> const cases[] = {
        {"binary", 1}, {"RAW", 1},  {"raw|binary", 1}, {"ascii", 2}, {"html", 3},
        {"htm", 3},    {" xml", 4}, {"hdf", 5},        {"bmp", 6},
    };
    for (auto const& [word, number] : cases) {
        Formatter formatter;
        EXPECT_TRUE(Init(formatter, word, '|')) << word;
        EXPECT_EQ(formatter.FormatNumber(), number) << word;
    }
    EXPECT_EQ(Formatter().FormatNumber(), Formatter::ser_ascii);
}

TEST(Formatter, OptionsAreReadBesideTheFormat)
{
    Formatter formatter;
    EXPECT_TRUE(Init(formatter,
                     "precision=3|fmt=7|xml| FMT |  Sep=;| a = b c |half=.5||plot2d |e=1e3", '|'));
    EXPECT_EQ(formatter.GetValue("precision", {}).GetType(), it_int);
    EXPECT_EQ(formatter.GetValue("precision", {}).GetInt(), 3);
    EXPECT_EQ(formatter.GetValue("sep", {}).GetString(), ";");
    EXPECT_EQ(formatter.GetValue("a", {}).GetString(), "b c");
    EXPECT_EQ(formatter.GetValue("half", {}).GetDouble(), 0.5);
    EXPECT_EQ(formatter.GetValue("e", {}).GetDouble(), 1000.0);
    EXPECT_TRUE(formatter.HasOption(Formatter::opt_plot2d));
    EXPECT_FALSE(formatter.HasOption(Formatter::opt_line));
    EXPECT_FALSE(formatter.GetFlag("xml", false)) << "a format word is no flag";
    EXPECT_EQ(formatter.FormatNumber(), Formatter::ser_xml) << "fmt=7 chooses nothing";
    for (int option : {-1, 10})
        EXPECT_RAISES(formatter.HasOption(Formatter::options_t(option)), err_kind,
                      Text("Formatter::HasOption(): unknown option value: %d", option));
    EXPECT_EQ(Formatter::Opt2String(Formatter::opt_detect_numerics), "detect_numerics");
    EXPECT_EQ(Formatter::Opt2String(Formatter::options_t(10)), "");
}

TEST(Formatter, UnclearFormatsAreReportedAndReadAsText)
{
    std::pair<char const*, char const*> const cases[] = {
        {"xml|html|plot2d", "Conflicting tags in format string: xml,html,plot2d"},
        {"plot2d|fmt", "No relevant tag was found in format string: plot2d,fmt"},
        {"", "No relevant tag was found in format string: "},
    };
    for (auto const& [words, text] : cases) {
        SCOPED_TRACE(words);
        Formatter formatter;
        EXPECT_RAISES(Init(formatter, words, '|'), err_kind, text);
        EXPECT_FALSE(Init(formatter, words, '|', throw_never));
        EXPECT_EQ(formatter.GetValue("fmt", {}).GetString(), "ascii");
        EXPECT_EQ(formatter.FormatNumber(), Formatter::ser_ascii);
        EXPECT_EQ(formatter.HasOption(Formatter::opt_plot2d), *words != 0) << "still read";
    }
}

TEST(Formatter, TagsAreTakenOutOfTheList)
{
    auto const find = [](char const* words, unsigned start, bool quiet, safestring& left) {
        safestringlist list(words, ' ');
        int const value = Formatter::FindTag(list, tags, 3, start, quiet);
        left = list.Text();
        return value;
    };
    safestring left;
    EXPECT_EQ(find("a XML b markup", 0, false, left), 4);
    EXPECT_EQ(left, "a b");
    EXPECT_EQ(find("third a", 0, false, left), -1) << "two names of a row are compared";
    EXPECT_EQ(find("raw xml", 1, false, left), 4);
    EXPECT_EQ(left, "raw");
    EXPECT_EQ(find("raw xml", 0, true, left), 1);
    EXPECT_EQ(left, "");
    EXPECT_EQ(ListTags(tags, 3), "binary, raw, xml, markup, ascii");
    EXPECT_EQ(ListTags(tags, 0), "");
}

TEST(Serialization, OneTokenWithCommasIsSplit)
{
    Formatter formatter;
    auto const block = TestBlock::Create();
    EXPECT_TRUE(
        block->SerialArgs(safestringlist("xml, plot2d;precision=2", '|'), formatter, throw_always));
    EXPECT_EQ(formatter.FormatNumber(), Formatter::ser_xml);
    EXPECT_TRUE(formatter.HasOption(Formatter::opt_plot2d));
    EXPECT_EQ(formatter.GetValue("precision", {}).GetInt(), 2);
    Formatter whole;
    EXPECT_FALSE(block->SerialArgs(safestringlist("xml plot2d", '|'), whole, throw_never));
}

TEST(Serialization, ClassesWithoutAFormSayWhichFormIsMissing)
{
    auto const block = TestBlock::Create();
    SerializeVisitor visitor;
    Formatter const formatter;
    safestring output = "kept";
    EXPECT_RAISES(block->Serialize(5, visitor, "", formatter, output), err_request,
                  "Serialization format 5 not supported for: " + block->GetDescription());
    EXPECT_RAISES(block->UnSerialize(1, formatter, "", nullptr), err_request,
                  "Unserialization not supported by: " + block->GetDescription());
    EXPECT_EQ(output, "kept");
}

TEST(Serialization, VisitorsSeeEveryChildTheyAreGiven)
{
    class Nested : public TestBlock {
    protected:
        void DoSerialize(int format, SerializeVisitor& v, safestring const& path,
                         Formatter const& formatter, safestring& output) const override
        {
            output += "(";
            for (auto const& [name, item] : items)
                v.Descend(item, format, path + "." + name, formatter, output);
            output += ")";
        }
    };
    class Paths : public SerializeVisitor {
    public:
        void Descend(DataItem item, int format, safestring const& path, Formatter const& formatter,
                     safestring& output) override
        {
            output += path;
            SerializeVisitor::Descend(item, format, path, formatter, output);
        }
    };
    DerivedPointer<Nested> const inner(new Nested), outer(new Nested);
    inner->items["x"] = 5; // a scalar has no form of its own
    outer->items["in"] = PMemBlock(inner);
    Paths visitor;
    safestring output;
    outer->Serialize(7, visitor, "top", Formatter(), output);
    EXPECT_EQ(output, "(top.in(top.in.x))");
    EXPECT_FALSE(visitor.DescendIntoScalars());
}
