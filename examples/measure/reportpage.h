#ifndef MEMBLOCK_EXAMPLES_MEASURE_REPORTPAGE_H
#define MEMBLOCK_EXAMPLES_MEASURE_REPORTPAGE_H

#include <memblock/collections/table.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/stencil.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace measure {

/// Why a file cannot be written, in one line.
class WriteError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What a page to look at shows of one picture.
struct Section {
    std::string title;
    NKelmic::DerivedPointer<NKelmic::Image> picture; ///< 8 or 16 bit grey
    NKelmic::DerivedPointer<NKelmic::Stencil> objects;
    NKelmic::DerivedPointer<NKelmic::Table> table; ///< a row an object
    std::optional<double> threshold;               ///< shown in the histogram
};

/// The part of a page that shows one picture, as HTML: the picture with the outlines of its
/// objects, its histogram, and its table, which sorts by the column whose name is clicked.
std::string SectionHtml(Section const& section);

/// The name of the page of `file`: that of the file itself and ".html", with "-2", "-3" ... behind
/// where `files` names others of the same name in other folders before it.
std::string ReportName(std::vector<std::string> const& files, std::string const& file);

/// Write a page, one HTML file that needs no other, into a folder, which is made where it is
/// missing. Throws: WriteError.
void WriteReport(std::string const& folder, std::string const& name, std::string const& title,
                 std::vector<std::string> const& sections);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_REPORTPAGE_H
