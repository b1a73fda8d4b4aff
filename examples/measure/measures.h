#ifndef MEMBLOCK_EXAMPLES_MEASURE_MEASURES_H
#define MEMBLOCK_EXAMPLES_MEASURE_MEASURES_H

#include <measure/picture.h>
#include <memblock/vector/vector.h>

#include <string>
#include <vector>

namespace measure {

/// How elements count that are no finite numbers: "exclude", "include", or a number that
/// replaces them.
struct Policies {
    NKelmic::safestring nan = "exclude";
    NKelmic::safestring inf = "exclude";
};

/// An extreme value and the lowest index that reaches it; index -1 if no element is a number.
struct Extreme {
    double value = 0;
    long index = -1;
};

/// What is measured of one vector. All values are raw.
struct Measures {
    Extreme minimum, maximum; ///< among the elements that are not NaN, whatever the policies
    double mean, stddev, sum, median, lower_quartile, upper_quartile;
};

/// A vector under the name that the report gives it.
struct Block {
    std::string name; ///< "grey", "rgb", "red", "green", "blue", "average"
    NKelmic::DerivedPointer<NKelmic::Vector> vector;
    bool measured = true; ///< false for packed colours, whose numbers mean nothing as values
};

/// Turn a page into vectors: the pixels as they stand, without a copy (`page` gives them away),
/// and for RGB a block for each channel and one for their rounded average, (r + g + b + 2) / 3.
///
/// RGB of 8 bits is wrapped as one `Triple` a pixel, red in the lowest byte; of more bits as its
/// samples side by side.
std::vector<Block> BlocksOf(Page& page, double factor);

/// Measure a numeric vector. Throws `Exception` where `Statistic` does.
Measures Measure(NKelmic::DerivedPointer<NKelmic::Vector> const& vector, Policies const& policies);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_MEASURES_H
