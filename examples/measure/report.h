#ifndef MEMBLOCK_EXAMPLES_MEASURE_REPORT_H
#define MEMBLOCK_EXAMPLES_MEASURE_REPORT_H

#include <measure/measures.h>
#include <measure/options.h>

#include <ostream>

namespace measure {

/// A number as short as it reads back the same, independent of the locale: whole numbers below
/// 2^53 without exponent, others to 17 digits.
std::string NumberText(double value);

/// Measure the blocks of one page and print them.
void PrintPage(std::ostream& out, std::string const& title, Page page, Options const& options);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_REPORT_H
