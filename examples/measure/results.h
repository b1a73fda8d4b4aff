#ifndef MEMBLOCK_EXAMPLES_MEASURE_RESULTS_H
#define MEMBLOCK_EXAMPLES_MEASURE_RESULTS_H

#include <measure/forms.h>
#include <measure/search.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace measure {

/// What is measured of a page.
struct PageResult {
    std::string file;
    int page = 1;
    std::string lines;                   ///< statistics to read
    std::vector<std::vector<Cell>> rows; ///< or as rows of a table, below `PageColumns`
    PageObjects found;                   ///< or its objects
    std::string section;                 ///< of the page to look at
};
using Results = std::vector<std::shared_ptr<PageResult>>;

/// The columns of the statistics of pages.
std::vector<Column> PageColumns();
/// The row of one measured block of a page.
std::vector<Cell> PageRow(std::string const& file, int page, PageHeader const& header,
                          Block const& block, Policies const& policies);

/// One table of the objects of all pages: "file" and "page", what is measured, where they are
/// known the pixel size and the factor, and "threshold", raw, at the end.
void WriteObjects(Results const& results, Options const& options, TableForm& form);
/// A row a page: how many objects there are, and the means of what is measured of them.
void WriteSummary(Results const& results, Options const& options, TableForm& form);

/// Print results, in their order, in the form that is asked for.
void PrintResults(std::ostream& out, Results const& results, Options const& options);

/// What the values of a column are measured in, where the unit of length is known; otherwise "".
std::string UnitOf(std::string const& column, std::string const& length_unit);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_RESULTS_H
