#ifndef MEMBLOCK_EXAMPLES_MEASURE_REPORT_H
#define MEMBLOCK_EXAMPLES_MEASURE_REPORT_H

#include <measure/measures.h>
#include <measure/options.h>

#include <ostream>

namespace measure {

/// Measure the blocks of one page and print them.
void PrintPage(std::ostream& out, std::string const& title, Page page, Options const& options);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_REPORT_H
