#include <measure/forms.h>

#include <memblock/base/text.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace measure {
namespace {

std::string_view TextOf(Cell const& cell)
{
    auto const* const text = std::get_if<std::string>(&cell);
    return text ? std::string_view(*text) : std::string_view();
}

/// A cell as it reads back; nothing is an empty text.
std::string Exact(Cell const& cell)
{
    if (auto const* const whole = std::get_if<long long>(&cell))
        return std::to_string(*whole);
    if (auto const* const real = std::get_if<double>(&cell))
        return NumberText(*real);
    return std::string(TextOf(cell));
}

bool IsNumber(Cell const& cell)
{
    return cell.index() >= 2;
}

class Form : public TableForm {
public:
    explicit Form(std::ostream& out) : out_(out) {}

protected:
    std::ostream& out_;
};

/// Lines of fields with a separator between them, and in quotes where they need it.
class CsvForm : public Form {
public:
    using Form::Form;
    void Begin(std::vector<Column> const& columns) override
    {
        std::vector<Cell> names;
        names.reserve(columns.size());
        for (Column const& column : columns)
            names.emplace_back(column.name);
        Row(names);
    }
    void Row(std::span<Cell const> cells) override
    {
        std::string line;
        for (Cell const& cell : cells)
            line.append(&cell == &cells.front() ? "" : ",").append(Quoted(Exact(cell)));
        out_ << line << "\r\n";
    }

private:
    static std::string Quoted(std::string text)
    {
        if (text.find_first_of(",\"\r\n") == std::string::npos)
            return text;
        for (std::size_t i = text.find('"'); i != std::string::npos; i = text.find('"', i + 2))
            text.insert(i, 1, '"');
        return std::string(1, '"').append(text).append(1, '"');
    }
};

/// Lines of fields with tabs between them; a tab or line end inside a text becomes a blank.
class TsvForm : public Form {
public:
    using Form::Form;
    void Begin(std::vector<Column> const& columns) override
    {
        for (Column const& column : columns)
            out_ << (&column == &columns.front() ? "" : "\t") << column.name;
        out_ << '\n';
    }
    void Row(std::span<Cell const> cells) override
    {
        std::string line;
        for (Cell const& cell : cells) {
            std::string text = Exact(cell);
            std::ranges::replace_if(
                text, [](char c) { return c == '\t' || c == '\n' || c == '\r'; }, ' ');
            line.append(&cell == &cells.front() ? "" : "\t").append(text);
        }
        out_ << line << '\n';
    }
};

/// Columns below their names, numbers to the right.
class TextForm : public Form {
public:
    using Form::Form;
    void Begin(std::vector<Column> const& columns) override
    {
        constexpr std::size_t number = 12;
        for (Column const& column : columns) {
            std::string const name =
                column.name + (column.unit.empty() ? "" : " (" + column.unit + ")");
            widths_.push_back(std::max(name.size(), number));
            names_.push_back(name);
        }
    }
    void Row(std::span<Cell const> cells) override
    {
        if (!names_.empty())
            Names(cells);
        std::string line;
        for (std::size_t i = 0; i < cells.size(); ++i)
            Add(line, Rounded(cells[i]), widths_[i], IsNumber(cells[i]));
        Put(line);
    }
    void End() override
    {
        if (!names_.empty()) // no row has said how wide the texts are
            Names({});
    }

private:
    static void Add(std::string& line, std::string const& text, std::size_t width, bool right)
    {
        std::string const blanks(width - std::min(width, text.size()), ' ');
        line.append(line.empty() ? "" : " ").append(right ? blanks : text);
        line.append(right ? text : blanks);
    }
    /// Texts of the first row make their columns as wide as it needs.
    void Names(std::span<Cell const> cells)
    {
        std::string line;
        for (std::size_t i = 0; i < names_.size(); ++i) {
            bool const right = i < cells.size() && IsNumber(cells[i]);
            if (i < cells.size() && !right)
                widths_[i] = std::max(names_[i].size(), TextOf(cells[i]).size());
            Add(line, names_[i], widths_[i], right);
        }
        names_.clear();
        Put(line);
    }
    void Put(std::string& line)
    {
        line.erase(line.find_last_not_of(' ') + 1);
        out_ << line << '\n';
    }
    static std::string Rounded(Cell const& cell)
    {
        auto const* const real = std::get_if<double>(&cell);
        if (!real)
            return Exact(cell);
        std::array<char, 40> text;
        constexpr int digits = 6;
        auto const end =
            std::to_chars(text.begin(), text.end(), *real, std::chars_format::general, digits);
        return {text.begin(), end.ptr};
    }

    std::vector<std::string> names_; // until they are written
    std::vector<std::size_t> widths_;
};

class HtmlForm : public Form {
public:
    HtmlForm(std::string title, std::ostream& out) : Form(out), title_(std::move(title)) {}
    void Begin(std::vector<Column> const& columns) override
    {
        out_
            << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>"
            << Encoded(title_)
            << "</title>\n<style>body { font: 15px system-ui, sans-serif } td { text-align: right }"
               "</style></head>\n<body><table>\n<tr>";
        for (Column const& column : columns)
            out_ << "<th>" << Encoded(column.name)
                 << (column.unit.empty() ? "" : " <small>" + Encoded(column.unit) + "</small>")
                 << "</th>";
        out_ << "</tr>\n";
    }
    void Row(std::span<Cell const> cells) override
    {
        std::string line = "<tr>";
        for (Cell const& cell : cells)
            line += "<td>" + Encoded(Exact(cell)) + "</td>";
        out_ << line << "</tr>\n";
    }
    void End() override { out_ << "</table></body></html>\n"; }

private:
    std::string title_;
};

/// The library's form of records: an "a" for each value, with its name and type.
class XmlForm : public Form {
public:
    using Form::Form;
    void Begin(std::vector<Column> const& columns) override
    {
        columns_ = columns;
        out_ << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<table>\n";
    }
    void Row(std::span<Cell const> cells) override
    {
        std::string line = "<row>";
        for (std::size_t i = 0; i < cells.size(); ++i) {
            if (cells[i].index() == 0)
                continue;
            char const* const types[] = {"", "s", "i", "d"};
            line += "<a n=\"" + columns_[i].name + "\" t=\"" + types[cells[i].index()] + '"';
            if (!columns_[i].unit.empty())
                line += " unit=\"" + Encoded(columns_[i].unit) + '"';
            line += '>' + Encoded(Exact(cells[i])) + "</a>";
        }
        out_ << line << "</row>\n";
    }
    void End() override { out_ << "</table>\n"; }

private:
    std::vector<Column> columns_;
};

class JsonForm : public Form {
public:
    using Form::Form;
    void Begin(std::vector<Column> const& columns) override
    {
        out_ << "{\"columns\": [";
        for (Column const& column : columns) {
            names_.push_back(JsonText(column.name));
            out_ << (&column == &columns.front() ? "" : ", ") << "{\"name\": " << names_.back()
                 << ", \"unit\": " << JsonText(column.unit) << '}';
        }
        out_ << "],\n\"rows\": [";
    }
    void Row(std::span<Cell const> cells) override
    {
        std::string line = first_ ? "\n{" : ",\n{";
        first_ = false;
        for (std::size_t i = 0; i < cells.size(); ++i)
            line.append(i > 0 ? ", " : "").append(names_[i]).append(": ").append(ValueOf(cells[i]));
        out_ << line << '}';
    }
    void End() override { out_ << "\n]}\n"; }

private:
    static std::string ValueOf(Cell const& cell)
    {
        if (!IsNumber(cell))
            return cell.index() == 0 ? "null" : JsonText(std::get<std::string>(cell));
        auto const* const real = std::get_if<double>(&cell);
        if (real && std::isnan(*real))
            return "null";
        if (real && std::isinf(*real))
            return *real > 0 ? "1e999" : "-1e999";
        return Exact(cell);
    }

    std::vector<std::string> names_;
    bool first_ = true;
};

} // namespace

std::string NumberText(double value)
{
    constexpr double exact = 9007199254740992.0; // 2^53: whole numbers below are exact
    std::array<char, 40> text;
    bool const whole = std::trunc(value) == value && std::abs(value) < exact &&
                       !(value == 0 && std::signbit(value));
    if (std::isnan(value))
        return "nan";
    auto const end = whole ? std::to_chars(text.begin(), text.end(), static_cast<long>(value))
                           : std::to_chars(text.begin(), text.end(), value);
    return {text.begin(), end.ptr};
}

std::string Encoded(std::string const& text)
{
    Ntarnwick::safestring encoded;
    Ntarnwick::EncodeXmlEntities(text.c_str(), static_cast<int>(text.size()), encoded);
    return encoded.c_str();
}

std::string JsonText(std::string const& text)
{
    std::string result = "\"";
    for (char const c : text) {
        auto const code = static_cast<unsigned char>(c);
        constexpr char digits[] = "0123456789abcdef";
        if (c == '"' || c == '\\')
            result += std::string("\\") + c;
        else if (code < 0x20 || c == '<')
            result += std::string("\\u00") + digits[code / 16] + digits[code % 16];
        else
            result += c;
    }
    return result + '"';
}

bool IsForm(std::string const& form)
{
    static constexpr std::string_view forms[] = {"csv", "tsv", "text", "html", "xml", "json"};
    return std::ranges::find(forms, form) != std::end(forms);
}

std::unique_ptr<TableForm> MakeForm(std::string const& form, std::string const& title,
                                    std::ostream& out)
{
    if (form == "csv")
        return std::make_unique<CsvForm>(out);
    if (form == "tsv")
        return std::make_unique<TsvForm>(out);
    if (form == "text")
        return std::make_unique<TextForm>(out);
    if (form == "html")
        return std::make_unique<HtmlForm>(title, out);
    if (form == "xml")
        return std::make_unique<XmlForm>(out);
    return std::make_unique<JsonForm>(out);
}

} // namespace measure
