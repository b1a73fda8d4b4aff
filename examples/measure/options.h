#ifndef MEMBLOCK_EXAMPLES_MEASURE_OPTIONS_H
#define MEMBLOCK_EXAMPLES_MEASURE_OPTIONS_H

#include <measure/measures.h>
#include <measure/segment.h>

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

/// How objects are found.
struct ObjectOptions {
    bool wanted = false;
    std::optional<double> threshold; ///< none: Otsu's
    Neighbours neighbours = Neighbours::edges;
    std::string within; ///< a picture that is not 0 where objects may be; empty: everywhere
    bool zones = false; ///< tell of the dark and the bright half of each object
    std::string labels; ///< a picture of labels to take them from; empty: they are looked for
};

struct Options {
    std::vector<std::string> files; ///< none: a picture is made
    double factor = 1;
    Policies policies;
    std::string format; ///< "text", "html" or "xml" for a table; empty for lines to read
    ObjectOptions objects;
    std::string report;         ///< a folder for pages to look at; empty: none
    std::optional<int> threads; ///< none: one a processor; 0: the program's own
    std::string output;         ///< a file to print to; empty: standard output
    bool force = false;         ///< overwrite it without a question
    bool quiet = false;
    bool help = false;
};

extern char const* const usage_text;

/// Read the arguments behind the program's name. Throws `UsageError`.
Options ReadOptions(std::vector<std::string> const& arguments);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_OPTIONS_H
