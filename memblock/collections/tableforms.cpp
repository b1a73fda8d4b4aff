#include <memblock/collections/table.h>

#include <memblock/base/chars_internal.h>
#include <memblock/base/listitems_internal.h>
#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/base/text.h>
#include <memblock/collections/columnsbyname_internal.h>
#include <memblock/core/deepstack_internal.h>
#include <memblock/core/serializer.h>
#include <memblock/vector/vectorforms.h>
#include <memblock/vector/vectorforms_internal.h>

#include <algorithm>

namespace NKelmic {
namespace {

constexpr int default_precision = 6;
constexpr int rows_at_once = 1024; // rows are made of columns by blocks, so that memory stays small

/// The decimal text of a number; a whole one gets ".0", so that it reads back as floating.
safestring FloatingText(double value, int precision)
{
    safestring text = str(value, precision);
    bool const whole =
        std::all_of(text.begin(), text.end(), [](char c) { return IsDigit(c) || c == '-'; });
    if (whole)
        text += ".0";
    return text;
}

template <class T>
safestring IntegerText(T value)
{
    if constexpr (std::is_same_v<T, triple>)
        return str(static_cast<unsigned int>(value));
    else if constexpr (sizeof(T) < sizeof(int))
        return str(static_cast<int>(value));
    else
        return str(value);
}

safestring Quoted(safestring text, int mode)
{
    if (mode != 0)
        QuoteByMode(text, mode);
    safestring quoted = "\"";
    for (char const c : text)
        quoted.append(c == '"' ? 2 : 1, c);
    return quoted += '"';
}

/// Numbers in decimal; false for a column of anything else.
bool NumberTexts(Vector const& column, std::vector<safestring>& strings, int first, int count,
                 int precision)
{
    auto const each = [&](auto const* data, auto&& text_of) {
        for (int i = 0; i < count; ++i)
            strings.push_back(text_of(data[first + i]));
    };
    double const factor = column.Factor();
    auto const cooked = [&](auto raw) {
        return FloatingText(static_cast<double>(raw) * factor, precision);
    };
    return WithElemTypeOr<NumericTypes>(
        column.ElemType(), [] { return false; },
        [&]<class T>(TypeTag<T>) {
            T const* const data = column.TypedPointer<T>();
            if constexpr (IntegerTypes::has<T>) {
                if (factor == 1.0)
                    each(data, [](T value) { return IntegerText(value); });
                else if constexpr (std::is_same_v<T, triple>)
                    each(data, [&](T value) { return cooked(static_cast<unsigned int>(value)); });
                else
                    each(data, cooked);
            } else {
                each(data, cooked);
            }
            return true;
        });
}

/// The text of a cell that is no number, as HTML.
safestring HtmlText(Vector const& column, int row)
{
    DataItem const value = column.GetDataItemWithFactor(row);
    // An object is told by its description: its own form could be of any size.
    safestring text = value.GetType() == it_memblock ? value.GetDescription() : value.GetString();
    HtmlQuote(text, true);
    return text;
}

/// Call `write(strings)` for blocks of rows; `strings[k]` are the texts of selected column k.
template <class Texts, class Write>
void ByBlocks(int rows, std::size_t columns, Texts&& texts, Write&& write)
{
    std::vector<std::vector<safestring>> strings(columns);
    for (int first = 0; first < rows; first += rows_at_once) {
        int const count = std::min(rows_at_once, rows - first);
        for (std::size_t k = 0; k < columns; ++k) {
            strings[k].clear();
            texts(k, strings[k], first, count);
        }
        for (int i = 0; i < count; ++i)
            write(strings, i);
    }
}

int Precision(Formatter const& formatter)
{
    int const told = SafeValue(formatter.GetValue("precision", default_precision)).GetInt();
    return told < 0 ? default_precision : told;
}

/// The cells of a column of objects or values, as the visitor writes them: one line each.
void VisitorTexts(Vector const& column, std::vector<safestring>& strings, int first, int count,
                  SerializeVisitor& v, safestring const& path, Formatter const& words)
{
    for (int row = first; row < first + count; ++row) {
        safestring text;
        WithEnoughStack([&] {
            v.Descend(column.GetDataItem(row), Formatter::ser_ascii,
                      path + ElementName(static_cast<unsigned int>(row)), words, text);
        });
        strings.push_back(OnOneLine(text));
    }
}

void SerializeText(Table const& t, std::vector<int> const& selected, SerializeVisitor& v,
                   safestring const& path, Formatter const& formatter, safestring& output)
{
    if (OnTheWay::Is(t))
        Raise(err_state, "An object that holds itself cannot be serialized: %s", t);
    OnTheWay const mark(t);
    int const precision = Precision(formatter);
    int const mode = SafeValue(formatter.GetValue("quotemode", 0)).GetInt();
    Formatter words = formatter; // those that the form of a value in a cell goes by
    words.SetFlag("shortmemblockdescr", true);
    words.SetFlag("single_line_per_elem", true);
    ByBlocks(
        t.RowCount(), selected.size(),
        [&](std::size_t k, std::vector<safestring>& strings, int first, int count) {
            auto const column = t.Column(selected[k]);
            bool const values =
                column->ElemType() == Vector::PMemory || column->ElemType() == Vector::PolyType;
            if (values && v.DescendIntoScalars())
                VisitorTexts(cref(column), strings, first, count, v,
                             path + "." + t.ColumnName(selected[k]), words);
            else
                table_serialize_aux1(cref(column), strings, first, count, precision, mode);
        },
        [&](std::vector<std::vector<safestring>> const& strings, int row) {
            for (std::size_t k = 0; k < strings.size(); ++k) {
                if (k > 0)
                    output += '\t';
                output += strings[k][row];
            }
            output += '\n';
        });
}

void HtmlTexts(Vector const& column, int index, std::vector<safestring>& strings, int first,
               int count, int precision)
{
    if (NumberTexts(column, strings, first, count, precision))
        return;
    for (int row = first; row < first + count; ++row) {
        try {
            strings.push_back(HtmlText(column, row));
        } catch (Exception const&) {
            Raise(err_kind, "Could not serialize column %d, at row %d", index, row);
        }
    }
}

void SerializeHtml(Table const& t, std::vector<int> const& selected, int precision,
                   safestring& output)
{
    output += "<table class=\"nowrap\" border=1 rules=all style=\"border-collapse:collapse\">\n"
              "<colgroup>";
    for (std::size_t k = 0; k < selected.size(); ++k)
        output += "<col style=\"white-space:nowrap\"/>";
    output += "</colgroup>\n<tr>";
    for (int const column : selected) {
        safestring name = t.ColumnName(column);
        HtmlQuote(name, true);
        output += "<th>";
        output += name;
        output += "</th>";
    }
    output += "</tr>\n";
    ByBlocks(
        t.RowCount(), selected.size(),
        [&](std::size_t k, std::vector<safestring>& strings, int first, int count) {
            HtmlTexts(cref(t.Column(selected[k])), selected[k], strings, first, count, precision);
        },
        [&](std::vector<std::vector<safestring>> const& strings, int row) {
            output += "<tr>";
            for (auto const& column : strings) {
                output += "<td>";
                output += column[row];
                output += "</td>";
            }
            output += "</tr>\n";
        });
    output += "</table>\n";
}

} // namespace

void table_serialize_aux1(Vector const& column, std::vector<safestring>& strings, int first,
                          int count, int precision, int quotemode)
{
    int const length = static_cast<int>(column.Length());
    if (first < 0 || count < 0 || first > length || count > length - first)
        Raise(err_kind, "Vector index out of bounds (%d): %d", length, first);
    strings.reserve(strings.size() + count);
    if (NumberTexts(column, strings, first, count, precision))
        return;
    if (column.ElemType() != Vector::String)
        Raise(err_kind, "Column type not supported: %s", column);
    safestring const* const texts = column.StringPointer();
    std::transform(texts + first, texts + first + count, std::back_inserter(strings),
                   [&](safestring const& text) { return Quoted(text, quotemode); });
}

std::vector<int> Table::SelectColumns(Formatter const& formatter) const
{
    std::vector<int> selected;
    DataItem const told = formatter.GetValue("columns", {});
    if (told.IsUndefined()) {
        for (int i = 0; i < ColumnCount(); ++i)
            selected.push_back(i);
        return selected;
    }
    ColumnsByName const columns(*this);
    for (safestring const& name : ItemsOf(SplitString(told.GetString(), ",; \t", true))) {
        int const column = columns.Find(name);
        if (column < 0)
            Raise(err_kind, "No such column in the table: %s", name);
        selected.push_back(column);
    }
    return selected;
}

void Table::DoSerialize(int format, SerializeVisitor& v, safestring const& path,
                        Formatter const& formatter, safestring& output) const
{
    if (format == Formatter::ser_ascii)
        SerializeText(*this, SelectColumns(formatter), v, path, formatter, output);
    else if (format == Formatter::ser_html)
        SerializeHtml(*this, SelectColumns(formatter), Precision(formatter), output);
    else
        Vector::DoSerialize(format, v, path, formatter, output);
}

} // namespace NKelmic
