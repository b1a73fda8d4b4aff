#include <memblock/core/serializer.h>

#include <memblock/base/listitems_internal.h>
#include <memblock/core/conversion_internal.h>

#include <array>
#include <strings.h>

namespace NKelmic {
namespace {

constexpr auto option_names = std::to_array<char const*>(
    {"plot2d", "plot3d", "line", "skipnulls", "rowindices", "data_in_end", "uselocale", "usecomma",
     "shortmemblockdescr", "detect_numerics"});

safestring WithoutLeadingBlanks(safestring const& word)
{
    auto const first = word.find_first_not_of(' ');
    return first == safestring::npos ? safestring() : word.substr(first);
}

bool Names(FormatTag const& row, safestring const& word)
{
    for (int i = 0; i < 2 && row.names[i]; ++i)
        if (strcasecmp(row.names[i], word.c_str()) == 0)
            return true;
    return false;
}

int FindRow(FormatTag const* table, unsigned n, unsigned start, safestring const& word)
{
    for (unsigned i = start; i < n; ++i)
        if (Names(table[i], word))
            return static_cast<int>(i);
    return -1;
}

void ReadOption(OptionsBase& options, safestring const& word)
{
    auto const equals = word.find('=');
    safestring const name = Trimmed(word.substr(0, equals));
    if (name == "fmt")
        return; // the number of the format: no word chooses the script form, or none that there is
    if (equals != safestring::npos)
        options.SetValue(name, NumberOrText(Trimmed(word.substr(equals + 1))));
    else
        options.SetFlag(name, true);
}
} // namespace

safestring ListTags(FormatTag* table, int n)
{
    safestring list;
    for (int row = 0; row < n; ++row)
        for (int i = 0; i < 2 && table[row].names[i]; ++i) {
            if (!list.empty())
                list += ", ";
            list += table[row].names[i];
        }
    return list;
}

Formatter::~Formatter() = default;

int Formatter::FindTag(safestringlist& list, FormatTag* table, unsigned n, unsigned start,
                       bool quiet)
{
    int found = -1;
    bool any_left = false;
    safestring left;
    for (safestring const& item : ItemsOf(list)) {
        int const row = FindRow(table, n, start, WithoutLeadingBlanks(item));
        if (row < 0) {
            if (any_left)
                left += list.Separator();
            left += item;
            any_left = true;
            continue;
        }
        if (found >= 0 && row != found && !quiet)
            Raise(err_kind, "Conflicting tags in format string: %s", JoinString(list, ","));
        if (found < 0)
            found = row;
    }
    list = safestringlist(left, list.Separator());
    return found < 0 ? -1 : table[found].value;
}

int Formatter::FindTag(safestringlist& list, FormatTag* table, unsigned n)
{
    int const value = FindTag(list, table, n, 0, false);
    if (value == -1)
        Raise(err_kind, "No relevant tag was found in format string: %s", JoinString(list, ","));
    return value;
}

bool Formatter::Init(safestringlist const& list, ThrowHandlerFunc handler)
{
    FormatTag table[] = {
        {ser_binary, {"binary", "raw"}},
        {ser_ascii, {"ascii"}},
        {ser_xml, {"xml"}},
        {ser_hdf, {"hdf"}},
        {ser_bmp, {"bmp"}},
        {ser_html, {"html", "htm"}},
    };
    safestringlist words = list;
    bool found = false;
    try {
        SetValue("fmt", FindTag(words, table, std::size(table)));
        found = true;
    } catch (Exception const& e) {
        SetValue("fmt", "ascii");
        Throw(e, handler);
    }
    for (safestring const& item : ItemsOf(words))
        if (safestring const word = Trimmed(item); !word.empty())
            ReadOption(*this, word);
    return found;
}

bool Formatter::HasOption(options_t option) const
{
    safestring const name = Opt2String(option);
    if (name.empty())
        Raise(err_kind, "Formatter::HasOption(): unknown option value: %d",
              static_cast<int>(option));
    return GetFlag(name, false);
}

safestring Formatter::Opt2String(options_t option)
{
    auto const i = static_cast<std::size_t>(option);
    return i < option_names.size() ? option_names[i] : "";
}

int Formatter::FormatNumber() const
{
    DataItem const format = GetValue("fmt", {});
    return format.GetType() == it_int ? format.GetInt() : ser_ascii;
}

bool SerializeVisitor::DescendIntoScalars() const
{
    return false;
}

void SerializeVisitor::Descend(DataItem item, int format, safestring const& path,
                               Formatter const& formatter, safestring& output)
{
    item.Serialize(format, *this, path, formatter, output);
}

SerializeVisitor::~SerializeVisitor() = default;

} // namespace NKelmic
