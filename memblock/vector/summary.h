#ifndef MEMBLOCK_VECTOR_SUMMARY_H
#define MEMBLOCK_VECTOR_SUMMARY_H

#include <memblock/core/memblockimpl.h>

namespace NKelmic {

/// Keys of the summary values of a vector in its cache. All are raw.
enum summary_key : int {
    key_max = 100,
    key_min = 101,
    key_mean = 102,
    key_median = 103,
    key_rough_max = 104, ///< a value at or above the maximum, as an int
    key_sum = 105,
    key_width = 106, ///< a name only: images answer it
    key_stddev = 107,
    key_histogram = 108,
    key_variance = 109,
    key_fmedian = 110, ///< the two middle elements averaged
    key_maxat = 111,   ///< index of the first maximum
    key_minat = 112,
    key_finitemin = 113,
    key_finitemax = 114
};

/// The extremes of an array and where they stand first.
///
/// NaN takes no part; infinities take part in min and max alone. With no number at all min and max
/// are NaN, the indices -1; with no finite number finitemin and finitemax are 0.
template <class T>
struct stat_minmax {
    T min;
    T max;
    double finitemin;
    double finitemax;
    int minat;
    int maxat;
    bool any; ///< there is at least one number
};

/// Find the extremes of n > 0 elements in one pass, and one look inside the blocks that hold them.
/// They go into the cache under the keys 100, 101, 111 to 114 unless `impl` is null.
template <class T>
MEMBLOCK_API stat_minmax<T> CalcMinMax(T const* data, unsigned int n, MemBlockImpl* impl);

/// The element that stands at n / 2 when all finite ones are sorted, or for an even n and `average`
/// the mean of the two middle ones. NaN if there is none. O(n), by selection; the data stays.
///
/// Warns: 512 "Ignored %d infinities and %d NaN-s in vector of %d elements."
template <class T>
MEMBLOCK_API double calc_median(T const* data, unsigned int n, bool average,
                                ThrowHandlerFunc handler);

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_SUMMARY_H
