#include <measure/reportpage.h>

#include <measure/drawing.h>
#include <measure/reportpage_parts.h>
#include <measure/tables.h>
#include <memblock/base/text.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace measure {

using namespace NKelmic;
namespace fs = std::filesystem;

namespace {

std::string Encoded(std::string const& text)
{
    safestring encoded;
    EncodeXmlEntities(text.c_str(), static_cast<int>(text.size()), encoded);
    return encoded.c_str();
}

/// A PNG file inside the page.
std::string Picture(std::string const& png, char const* attributes)
{
    return std::string("<img ") + attributes + " src=\"data:image/png;base64," +
           Ntarnwick::Encode_base64(png.data(), png.size()).c_str() + "\">\n";
}

void WritePage(std::ostream& out, std::string const& title,
               std::vector<std::string> const& sections)
{
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>"
        << Encoded(title) << "</title>\n<style>\n"
        << page_style << "</style>\n</head>\n<body>\n<h1>" << Encoded(title) << "</h1>\n";
    for (std::string const& section : sections)
        out << section;
    out << "<script>\n" << page_script << "</script>\n</body>\n</html>\n";
}

} // namespace

std::string SectionHtml(Section const& section)
{
    Image const& picture = cref(section.picture);
    std::ostringstream out;
    out << "<section>\n<h2>" << Encoded(section.title) << "</h2>\n<div class=\"views\">\n"
        << "<div class=\"picture\">\n"
        << Picture(GreyPng(picture), "alt=\"The picture\"")
        << Picture(OutlinePng(cref(section.objects)), "class=\"outlines\" alt=\"Its outlines\"")
        << "<div class=\"box\"></div>\n</div>\n<div class=\"side\">\n<p>" << picture.width()
        << " x " << picture.height() << " pixels, " << section.table->RowCount()
        << " objects. <label><input type=\"checkbox\" checked> outlines</label></p>\n"
        << HistogramSvg(picture, section.threshold)
        << "<p>Click a column's name to sort; point at a row to find its object.</p>\n"
        << "</div>\n</div>\n<div class=\"rows\">\n"
        << TableForm(cref(section.table), "html") << "</div>\n</section>\n";
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

void WriteReport(std::string const& folder, std::string const& name, std::string const& title,
                 std::vector<std::string> const& sections)
{
    std::error_code error;
    fs::create_directories(folder, error);
    auto const path = fs::path(folder) / name;
    std::ofstream out(path, std::ios::binary);
    if (out)
        WritePage(out, title, sections);
    if (!out.flush())
        throw WriteError("cannot write '" + path.string() + "'");
}

} // namespace measure
