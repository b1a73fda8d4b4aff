#ifndef MEMBLOCK_EXAMPLES_MEASURE_OPTIONS_H
#define MEMBLOCK_EXAMPLES_MEASURE_OPTIONS_H

#include <measure/colours.h>
#include <measure/measures.h>
#include <measure/pixelscale.h>
#include <memblock/measure/measurer.h>

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

/// How objects are found, and what is measured of them.
struct ObjectOptions {
    bool wanted = false;
    std::optional<double> threshold; ///< none: Otsu's
    bool dark = false;               ///< objects are up to the threshold, not above it
    NKelmic::Neighbours neighbours = NKelmic::Neighbours::edges;
    Channel channel = Channel::grey;
    std::string within;    ///< a picture that is not 0 where objects may be; empty: everywhere
    std::string labels;    ///< a picture of labels to take them from; empty: they are looked for
    bool keep_gaps = true; ///< labels that no pixel has get a row
    long long min_area = 0, max_area = INT64_MAX; ///< in pixels
    bool drop_at_edge = false;
    std::string properties = "basic,intensity";
    std::optional<PixelScale> scale; ///< none: the file's
    bool zones = false;              ///< measure the dark and the bright half of each object, too
    bool summary = false;            ///< a row a page
    std::string label_file, outline_file;

    bool AnyFilter() const { return min_area > 0 || max_area < INT64_MAX || drop_at_edge; }
};

struct Options {
    std::vector<std::string> files; ///< none: a picture is made
    double factor = 1;
    Policies policies;
    std::string format; ///< "csv", "text" ... for a table; empty: objects as "text", else lines
    ObjectOptions objects;
    std::string report;         ///< a folder for pages to look at; empty: none
    std::optional<int> threads; ///< none: one a processor; 0: the program's own
    std::string output;         ///< a file to print to; empty: standard output
    bool force = false;         ///< overwrite it without a question
    bool quiet = false;
    bool help = false, version = false;
    /// Pictures of more bytes are read in strips where the work allows it.
    unsigned long hold_bytes = 32UL << 20, strip_bytes = 4UL << 20;

    /// Whether all pixels of a page must be in memory at once.
    bool NeedWholePages() const
    {
        return !objects.wanted || !report.empty() || objects.zones || !objects.within.empty() ||
               !objects.label_file.empty() || !objects.outline_file.empty();
    }
    /// Whether the pixels of each object must be known.
    bool NeedLists() const { return objects.wanted && NeedWholePages(); }
};

extern char const* const usage_text;

/// Read the arguments behind the program's name. Throws `UsageError`.
Options ReadOptions(std::vector<std::string> const& arguments);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_OPTIONS_H
