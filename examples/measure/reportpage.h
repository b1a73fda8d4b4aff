#ifndef MEMBLOCK_EXAMPLES_MEASURE_REPORTPAGE_H
#define MEMBLOCK_EXAMPLES_MEASURE_REPORTPAGE_H

#include <measure/search.h>
#include <memblock/imaging/image.h>

#include <string>
#include <vector>

namespace measure {

/// The part of a page that shows one picture, as HTML: its pixels, the outlines of its objects as
/// lines, its table and how often each value occurs. The page's script draws from these numbers.
std::string SectionHtml(std::string const& title, NKelmic::Image const& picture,
                        PageObjects const& found);

/// The name of the page of `file`: that of the file itself and ".html", with "-2", "-3" ... behind
/// where `files` names others of the same name in other folders before it.
std::string ReportName(std::vector<std::string> const& files, std::string const& file);

/// Write a page, one HTML file that needs no other, into a folder, which is made where it is
/// missing. Its title is the file's name without folders. Throws: WriteError.
void WriteReport(std::string const& folder, std::string const& name, std::string const& file,
                 std::vector<std::string> const& sections);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_REPORTPAGE_H
