#ifndef MEMBLOCK_VECTOR_SUMMARY_H
#define MEMBLOCK_VECTOR_SUMMARY_H

#include <memblock/core/memblockimpl.h>
#include <memblock/core/summarykeys.h>

namespace NKelmic {

/// The cache of a vector with elements of type T: it works out the summary values.
template <class T>
class VectorImpl : public MemBlockImpl {
public:
    explicit VectorImpl(Vector const* owner);
    ~VectorImpl() override;
    DataItem CalculateSecondaryItem(int key, ThrowHandlerFunc handler) const override;
    DataItem CalculateSecondaryItemNonVirtual(int key, bool& handled,
                                              ThrowHandlerFunc handler) const;
};

/// Work out a summary value of an array and keep it in the cache. `handled` comes out false for a
/// key that is none; the value is then undefined.
template <class T>
MEMBLOCK_API DataItem CSINV(T const* data, unsigned int n, int key, MemBlockImpl* impl,
                            bool& handled, ThrowHandlerFunc handler);

/// The extremes of an array and the place of the first of each.
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

/// The element at n / 2 when all finite ones are sorted, or for an even n and `average`
/// the mean of the two middle ones. NaN if there is none. O(n), by selection; the data stays.
///
/// Warns: 512 "Ignored %d infinities and %d NaN-s in vector of %d elements."
template <class T>
MEMBLOCK_API double calc_median(T const* data, unsigned int n, bool average,
                                ThrowHandlerFunc handler);

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_SUMMARY_H
