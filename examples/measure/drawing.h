#ifndef MEMBLOCK_EXAMPLES_MEASURE_DRAWING_H
#define MEMBLOCK_EXAMPLES_MEASURE_DRAWING_H

#include <memblock/imaging/image.h>

#include <string>
#include <vector>

namespace measure {

/// A picture as a PNG file of 8 bit grey, its lowest finite value black and its highest white. Of
/// each square of `shrink` x `shrink` pixels the first one is drawn.
std::string GreyPng(NKelmic::Image const& picture, unsigned shrink);

/// How often each value occurs, in at most 256 columns from the lowest finite value to the highest.
struct ValueCounts {
    double low = 0, high = 0;
    std::vector<unsigned long> counts;
};
ValueCounts CountValues(NKelmic::Image const& picture);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_DRAWING_H
