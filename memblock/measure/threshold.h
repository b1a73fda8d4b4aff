#ifndef MEMBLOCK_MEASURE_THRESHOLD_H
#define MEMBLOCK_MEASURE_THRESHOLD_H

#include <memblock/core/datatype.h>
#include <memblock/vector/vector.h>

#include <cstdint>
#include <vector>

namespace NKelmic {

/// The least and the greatest finite value of some pixels; NaN and NaN of none.
struct MEMBLOCK_API FiniteRange {
    double least, greatest;

    FiniteRange();
    void Add(DataType type, void const* pixels, std::size_t count);
    void Add(FiniteRange const& other);
};

/// Counts of pixels by their values, from which a threshold is found; may be filled in parts.
///
/// Integers have a bin for each value, as long as there are no more than 2^20 of them in the range;
/// wider ranges and floats are cut into 65536 bins of equal width. What is not finite is not
/// counted.
class MEMBLOCK_API PixelHistogram {
public:
    /// Of all values that 8 and 16 bits can have.
    /// Throws: 128 "A range of values is needed for pixels of type \"%s\".".
    explicit PixelHistogram(DataType type);
    /// Of a range of values, into which all that are added must fall.
    PixelHistogram(DataType type, FiniteRange const& range);

    void Add(void const* pixels, std::size_t count);
    /// Throws: 512 "Histograms of different bins cannot be added.".
    void Add(PixelHistogram const& other);

    std::vector<std::uint64_t> const& Counts() const { return counts_; }
    /// The least value that goes into the bin after this one; values up to, not including, it are
    /// in the bin or before it. Exact for integers with a bin each: the value of the next bin.
    double UpperBound(std::size_t bin) const;

    /// The threshold that parts the pixels best into dark and bright: of all splits between two
    /// bins the first one with the greatest variance between both sides. Pixels above it are
    /// bright. With a bin for each value, exact: variances are compared as fractions.
    /// Source: N. Otsu, "A threshold selection method from gray-level histograms", IEEE
    /// Transactions on Systems, Man, and Cybernetics 9(1), 1979.
    double OtsuThreshold() const;

private:
    DataType type_;
    double least_, width_; // of a bin
    std::vector<std::uint64_t> counts_;
};

/// Otsu's threshold of all elements of a vector or image, raw. See `PixelHistogram`.
/// Throws: 128 "Pixels of type \"%s\" have no threshold.".
MEMBLOCK_API double OtsuThreshold(Vector const& pixels);

} // namespace NKelmic

#endif // MEMBLOCK_MEASURE_THRESHOLD_H
