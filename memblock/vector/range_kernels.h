#ifndef MEMBLOCK_VECTOR_RANGE_KERNELS_H
#define MEMBLOCK_VECTOR_RANGE_KERNELS_H

#include <memblock/base/multiversion.h>
#include <memblock/vector/elemnumber_internal.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

/// The least and the greatest of many numbers, found once for all that need them.
namespace NKelmic::ranges {

/// The start of a search for the least (the greatest): beyond every number of the type.
template <class V>
constexpr V above_all = std::is_floating_point_v<V> ? std::numeric_limits<V>::infinity()
                                                    : std::numeric_limits<V>::max();
template <class V>
constexpr V below_all = std::is_floating_point_v<V> ? -std::numeric_limits<V>::infinity()
                                                    : std::numeric_limits<V>::lowest();

template <class V>
bool IsFinite(V v)
{
    if constexpr (std::is_floating_point_v<V>)
        return std::fabs(v) <= std::numeric_limits<V>::max();
    else
        return true;
}

/// A range of numbers, both ends included. The range of no number is empty.
template <class V>
struct MinMax {
    V min = above_all<V>;
    V max = below_all<V>;

    bool IsEmpty() const { return !(min <= max); }
    bool IsFinite() const { return ranges::IsFinite(min) && ranges::IsFinite(max); }
    /// Of equal ends, zeros of different sign, the one that was there stays.
    void Merge(MinMax const& o)
    {
        min = o.min < min ? o.min : min;
        max = o.max > max ? o.max : max;
    }
    /// The same range in another type of number, which must hold both ends.
    template <class W>
    MinMax<W> As() const
    {
        return {static_cast<W>(min), static_cast<W>(max)};
    }
};

/// Floating searches run in this many lanes: the compiler may not part such a search by itself.
template <class T>
constexpr std::size_t range_lanes = std::is_floating_point_v<T> ? 256 / sizeof(T) : 1;

/// `MinMaxOf` as a part of its caller, for arrays so short that a call would cost more.
template <bool finite_only, class T>
MEMBLOCK_INLINE_LOOP MinMax<wide_t<T>> MinMaxOfShort(T const* __restrict x, std::size_t n)
{
    using V = wide_t<T>;
    constexpr std::size_t lanes = range_lanes<T>;
    auto const take = [](V v, V& least, V& greatest) {
        bool const counts = !finite_only || IsFinite(v);
        least = counts && v < least ? v : least;
        greatest = counts && v > greatest ? v : greatest;
    };
    MinMax<V> range;
    std::size_t i = 0;
    if (lanes > 1 && n >= lanes) {
        // Two arrays, not one of ranges: interleaved ends would not become vector code.
        V low[lanes];
        V high[lanes];
        std::fill_n(low, lanes, above_all<V>);
        std::fill_n(high, lanes, below_all<V>);
        for (; i + lanes <= n; i += lanes)
            for (std::size_t lane = 0; lane < lanes; ++lane)
                take(x[i + lane], low[lane], high[lane]);
        for (std::size_t lane = 0; lane < lanes; ++lane)
            range.Merge({low[lane], high[lane]});
    }
    for (; i < n; ++i)
        take(x[i], range.min, range.max);
    return range;
}

/// The range of the elements. NaN takes no part, with `finite_only` infinities do not either. Which
/// of two zeros of different sign comes out is open.
template <bool finite_only, class T>
MEMBLOCK_MULTIVERSION MinMax<wide_t<T>> MinMaxOf(T const* __restrict x, std::size_t n)
{
    return MinMaxOfShort<finite_only>(x, n);
}

/// The range of the finite elements, where that of all is known. Only where an infinity is an end
/// of it the elements are read again.
template <class T>
MinMax<wide_t<T>> FiniteMinMaxOf(T const* x, std::size_t n, MinMax<wide_t<T>> const& all)
{
    return all.IsFinite() ? all : MinMaxOf<true>(x, n);
}

} // namespace NKelmic::ranges

namespace NKelmic {
using ranges::FiniteMinMaxOf;
using ranges::IsFinite;
using ranges::MinMax;
using ranges::MinMaxOf;
using ranges::MinMaxOfShort;
} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_RANGE_KERNELS_H
