#ifndef MEMBLOCK_EXAMPLES_MEASURE_OPTIONS_H
#define MEMBLOCK_EXAMPLES_MEASURE_OPTIONS_H

#include <measure/measures.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace measure {

/// A call that cannot be understood; the text says what is wrong with it.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Options {
    std::vector<std::string> files; ///< none: a picture is made
    double factor = 1;
    Policies policies;
    bool help = false;
};

extern char const* const usage_text;

/// Read the arguments behind the program's name. Throws `UsageError`.
Options ReadOptions(std::vector<std::string> const& arguments);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_OPTIONS_H
