#ifndef MEMBLOCK_MEASURE_FOREGROUND_KERNELS_H
#define MEMBLOCK_MEASURE_FOREGROUND_KERNELS_H

#include <memblock/base/multiversion.h>
#include <memblock/core/datatype.h>
#include <memblock/imaging/pixel_kernels.h>
#include <memblock/vector/elemnumber_internal.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

/// Rows of pixels cut into runs.
namespace NKelmic::measuring {

/// The values that belong to objects: from `least` to `greatest`, both included. NaN is never in
/// it.
template <class T>
struct ValueRange {
    wide_t<T> least, greatest;

    bool Has(T pixel) const
    {
        wide_t<T> const v = pixel;
        return (v >= least) & (v <= greatest); // `&`: without a branch the loop becomes vector code
    }
};

/// The finite values above a threshold, or for dark objects those up to it.
///
/// The bounds are values of the pixel type itself, so no pixel is converted to be compared.
template <class T>
ValueRange<T> RangeOf(double threshold, bool dark)
{
    using V = wide_t<T>;
    using Limits = std::numeric_limits<T>;
    V const lowest = Limits::lowest(), highest = Limits::max();
    if (threshold < static_cast<double>(lowest)) // dark: nothing is so low, an empty range
        return dark ? ValueRange<T>{highest, lowest} : ValueRange<T>{lowest, highest};
    // `>=`: the double next to the highest 64-bit integer is above it.
    if (threshold >= static_cast<double>(highest))
        return dark ? ValueRange<T>{lowest, highest} : ValueRange<T>{highest, lowest};
    if constexpr (std::is_floating_point_v<V>) {
        V below = static_cast<V>(threshold); // the greatest value up to the threshold
        if (static_cast<double>(below) > threshold)
            below = std::nextafter(below, lowest);
        V const above = std::nextafter(below, highest);
        return dark ? ValueRange<T>{lowest, below} : ValueRange<T>{above, highest};
    } else {
        V const below = static_cast<V>(std::floor(threshold));
        return dark ? ValueRange<T>{lowest, below}
                    : ValueRange<T>{static_cast<V>(below + 1), highest};
    }
}

/// Store in turn the columns at which a row enters and leaves a range of values; returns their end.
///
/// `flags` and `out` have room for width + 64 entries. 64 pixels become a bit mask, in which only
/// the changes are looked at.
template <class T>
MEMBLOCK_MULTIVERSION std::uint32_t* CutRow(T const* __restrict pixels, std::uint32_t width,
                                            ValueRange<T> range, unsigned char* __restrict flags,
                                            std::uint32_t* __restrict out)
{
    for (std::uint32_t x = 0; x < width; ++x)
        flags[x] = range.Has(pixels[x]);
    for (std::uint32_t x = width; x < width + pixels::block; ++x)
        flags[x] = 0;         // ends the last run, and fills the last mask
    std::uint64_t inside = 0; // 1 while the pixel before the mask belongs to an object
    for (std::uint32_t x = 0; x <= width; x += pixels::block) {
        std::uint64_t const mask = pixels::NonZeroMask(flags + x);
        for (std::uint64_t changes = mask ^ (mask << 1 | inside); changes != 0;
             changes &= changes - 1)
            *out++ = x + static_cast<std::uint32_t>(__builtin_ctzll(changes));
        inside = mask >> (pixels::block - 1);
    }
    return out;
}

} // namespace NKelmic::measuring

#endif // MEMBLOCK_MEASURE_FOREGROUND_KERNELS_H
