#ifndef MEMBLOCK_EXAMPLES_MEASURE_SEGMENT_H
#define MEMBLOCK_EXAMPLES_MEASURE_SEGMENT_H

#include <span>
#include <vector>

namespace measure {

/// The threshold that parts a picture best into dark and bright: the lowest value t for which the
/// variance between the pixels up to t and those above it is greatest.
///
/// `histogram[v]` counts the pixels of value v. Exact: the variances are compared as fractions.
/// Source: N. Otsu, "A threshold selection method from gray-level histograms", IEEE Transactions
/// on Systems, Man, and Cybernetics 9(1), 1979.
unsigned OtsuThreshold(std::span<unsigned long const> histogram);

/// Which neighbours of a pixel belong to the same object.
enum class Neighbours {
    edges = 4,   ///< left, right, above, below
    corners = 8, ///< and the four across the corners
};

/// Number the objects of a picture: connected pixels other than 0 get the same number, the objects
/// 1, 2, ... in the order of their first pixels. Returns the count of objects.
///
/// `mask` and `labels` hold width * height pixels, row after row. Linear in the pixels: each row is
/// cut into runs, and runs that touch are joined.
unsigned LabelObjects(std::span<unsigned char const> mask, unsigned long width,
                      Neighbours neighbours, std::span<unsigned> labels);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_SEGMENT_H
