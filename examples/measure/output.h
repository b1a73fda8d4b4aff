#ifndef MEMBLOCK_EXAMPLES_MEASURE_OUTPUT_H
#define MEMBLOCK_EXAMPLES_MEASURE_OUTPUT_H

#include <fstream>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>

namespace measure {

/// Why a file cannot be written, in one line.
class WriteError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Write a file under a temporary name beside it, by a function that gets this name, and rename it:
/// whatever happens, nobody sees half of it. Of a link the file that it points to is written; what
/// is no regular file, a device or pipe, is written as it is.
/// Throws: WriteError, and what the function throws.
void WriteAside(std::string const& path, std::function<void(std::string const&)> const& write);

/// The same for what a function prints.
void PrintAside(std::string const& path, std::function<void(std::ostream&)> const& print);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_OUTPUT_H
