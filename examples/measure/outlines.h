#ifndef MEMBLOCK_EXAMPLES_MEASURE_OUTLINES_H
#define MEMBLOCK_EXAMPLES_MEASURE_OUTLINES_H

#include <cstdint>
#include <span>
#include <vector>

namespace measure {

/// Pixels side by side in one row that belong to an object.
struct LabelRun {
    std::uint32_t y, x0, x1; ///< x1 is behind the last one
    std::uint32_t label;
};

/// The pixels of the objects of a picture.
struct LabelRuns {
    std::uint32_t width = 0, height = 0;
    std::uint32_t greatest = 0; ///< label
    std::vector<LabelRun> runs;
};

/// A picture of labels: pixel k is of object k, 0 of none.
std::vector<std::uint32_t> DrawLabels(LabelRuns const& objects);

/// Set what is not at the border of its object to 0: beside each pixel that is left, above or below
/// it is another object or none. The edge of the picture is none.
std::vector<std::uint32_t> DrawOutlines(LabelRuns const& objects);

/// A closed line along the edges of pixels around an object or a hole of it: corners in turn, x and
/// y of each, the object on the right hand side.
struct Loop {
    std::uint32_t label;
    std::vector<std::int32_t> corners;
};

/// The outlines of all objects, in the order of their topmost pixel edges. Linear in the pixels.
std::vector<Loop> TraceOutlines(LabelRuns const& objects);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_OUTLINES_H
