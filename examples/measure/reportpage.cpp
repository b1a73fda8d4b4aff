#include <measure/reportpage.h>

#include <measure/drawing.h>
#include <measure/output.h>
#include <measure/reportpage_parts.h>
#include <measure/results.h>
#include <memblock/base/text.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

namespace measure {

using namespace NKelmic;
namespace fs = std::filesystem;

namespace {

/// More pixels a side are more than a browser draws.
constexpr unsigned most_side = 4096;

/// A number of a table as a script reads it, to 6 digits, as it is shown.
std::string Short(double value)
{
    if (!std::isfinite(value))
        return "null";
    std::array<char, 40> text;
    constexpr int digits = 6;
    bool const whole = std::trunc(value) == value && std::abs(value) < 1e15;
    auto const end =
        whole ? std::to_chars(text.begin(), text.end(), static_cast<long>(value))
              : std::to_chars(text.begin(), text.end(), value, std::chars_format::general, digits);
    return {text.begin(), end.ptr};
}

/// A list of what `item` makes of each number up to `count`.
template <class Item>
std::string List(std::size_t count, Item item)
{
    std::string text = "[";
    for (std::size_t i = 0; i < count; ++i)
        text.append(i > 0 ? "," : "").append(item(i));
    return text + "]";
}

std::string ColumnsJson(Table const& table, std::string const& unit)
{
    return List(static_cast<std::size_t>(table.ColumnCount()), [&](std::size_t c) {
        std::string const name = table.ColumnName(static_cast<int>(c)).c_str();
        return "{\"name\":" + JsonText(name) + ",\"unit\":" + JsonText(UnitOf(name, unit)) + "}";
    });
}

std::string ValuesJson(Table const& table)
{
    return List(static_cast<std::size_t>(table.ColumnCount()), [&](std::size_t c) {
        auto const column = table.Column(static_cast<int>(c));
        return List(static_cast<std::size_t>(table.RowCount()), [&](std::size_t row) {
            return Short(cref(column).GetDouble(static_cast<int>(row)));
        });
    });
}

/// A closed line: its first corner, then by turns how far it goes up or down, and to the side.
std::string LoopJson(Loop const& loop)
{
    auto const& c = loop.corners;
    return List(c.size() / 2 + 1, [&](std::size_t i) {
        if (i < 2)
            return std::to_string(c[i]);
        std::size_t const to = 2 * (i - 1) + (i % 2 == 0 ? 1 : 0); // y, x, y ... of the next
        return std::to_string(c[to] - c[to - 2]);
    });
}

/// For each row of the table the closed lines around its object.
std::string OutlinesJson(Table const& table, LabelRuns const& objects)
{
    std::map<std::uint32_t, std::string> lines;
    for (Loop const& loop : TraceOutlines(objects)) {
        std::string& text = lines[loop.label];
        text.append(text.empty() ? "" : ",").append(LoopJson(loop));
    }
    auto const labels = table.Column("label");
    return List(static_cast<std::size_t>(table.RowCount()), [&](std::size_t row) {
        auto const label = cref(labels).GetDouble(static_cast<int>(row));
        return "[" + lines[static_cast<std::uint32_t>(label)] + "]";
    });
}

std::string ScaleJson(PixelScale const& scale)
{
    if (!scale.Known())
        return "null";
    return "{\"x\":" + Short(scale.x) + ",\"y\":" + Short(scale.y) +
           ",\"unit\":" + JsonText(scale.unit) + ",\"source\":" + JsonText(scale.source) + "}";
}

std::string CountsJson(ValueCounts const& values, std::optional<double> threshold)
{
    return "{\"low\":" + Short(values.low) + ",\"high\":" + Short(values.high) +
           ",\"threshold\":" + (threshold ? Short(*threshold) : "null") + ",\"counts\":" +
           List(values.counts.size(),
                [&](std::size_t i) { return std::to_string(values.counts[i]); }) +
           "}";
}

void WritePage(std::ostream& out, std::string const& title,
               std::vector<std::string> const& sections)
{
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>"
        << Encoded(title) << "</title>\n<style>\n"
        << page_style << "</style>\n</head>\n<body>\n<h1>" << Encoded(title)
        << "</h1>\n<noscript>This page draws its pictures and tables by a script, which the "
           "browser "
           "does not allow.</noscript>\n";
    for (std::string const& section : sections)
        out << section;
    out << "<script>\n" << page_script << "</script>\n</body>\n</html>\n";
}

} // namespace

std::string SectionHtml(std::string const& title, Image const& picture, PageObjects const& found)
{
    Table const& table = cref(found.table);
    unsigned const shrink =
        (std::max(picture.width(), picture.height()) + most_side - 1) / most_side;
    std::string const png = GreyPng(picture, std::max(1U, shrink));
    std::ostringstream out;
    out << "<section>\n<h2>" << Encoded(title)
        << "</h2>\n<script type=\"application/json\">\n{\"width\":" << found.width
        << ",\"height\":" << found.height << ",\"scale\":" << ScaleJson(found.scale)
        << ",\n\"values\":" << CountsJson(CountValues(picture), found.threshold)
        << ",\n\"columns\":" << ColumnsJson(table, found.scale.unit)
        << ",\n\"cells\":" << ValuesJson(table)
        << ",\n\"outlines\":" << OutlinesJson(table, *found.objects)
        << ",\n\"png\":\"data:image/png;base64,"
        << Ntarnwick::Encode_base64(png.data(), png.size()).c_str()
        << "\"}\n</script>\n</section>\n";
    return out.str();
}

std::string ReportName(std::vector<std::string> const& files, std::string const& file)
{
    auto const name = fs::path(file).filename();
    std::set<std::string> namesakes;
    for (std::string const& other : files) {
        if (other == file)
            break;
        if (fs::path(other).filename() == name)
            namesakes.insert(other);
    }
    std::string result = name.string();
    if (!namesakes.empty())
        result.append(1, '-').append(std::to_string(namesakes.size() + 1));
    return result.append(".html");
}

void WriteReport(std::string const& folder, std::string const& name, std::string const& file,
                 std::vector<std::string> const& sections)
{
    std::error_code error;
    fs::create_directories(folder, error);
    PrintAside((fs::path(folder) / name).string(), [&](std::ostream& out) {
        WritePage(out, fs::path(file).filename().string(), sections);
    });
}

} // namespace measure
