#ifndef MEMBLOCK_VECTOR_SUMMARY_KERNELS_H
#define MEMBLOCK_VECTOR_SUMMARY_KERNELS_H

#include <memblock/base/multiversion.h>
#include <memblock/vector/range_kernels.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <type_traits>

/// One-pass loops behind the summary values. `triple` is computed as unsigned int.
namespace NKelmic::summary {

// ---- extremes ------------------------------------------------------------------------------

/// Elements looked at together: small enough to stay in the nearest cache for the second look.
template <class T>
constexpr std::size_t block = 16384 / sizeof(T);

/// The index of the first element equal to `value`, searched from `from`; n if there is none.
template <class T>
std::size_t FirstAt(T const* x, std::size_t from, std::size_t n, wide_t<T> value)
{
    if constexpr (sizeof(T) == 1) {
        auto const* hit = static_cast<T const*>(
            std::memchr(x + from, static_cast<unsigned char>(value), n - from));
        return hit ? static_cast<std::size_t>(hit - x) : n;
    } else {
        return static_cast<std::size_t>(
            std::find_if(x + from, x + n, [value](wide_t<T> v) { return v == value; }) - x);
    }
}

/// The range of an array, with the start of the block in which each end was met first.
template <class V>
struct PlacedMinMax : MinMax<V> {
    std::size_t min_block = 0;
    std::size_t max_block = 0;
};

template <class T>
PlacedMinMax<wide_t<T>> FindExtremes(T const* x, std::size_t n)
{
    PlacedMinMax<wide_t<T>> found;
    for (std::size_t start = 0; start < n; start += block<T>) {
        auto const here = MinMaxOf<false>(x + start, std::min(block<T>, n - start));
        if (here.min < found.min)
            found.min_block = start;
        if (here.max > found.max)
            found.max_block = start;
        found.Merge(here);
    }
    return found;
}

// ---- sums ----------------------------------------------------------------------------------

static_assert(type_count<FloatTypes> == 2, "all sums grow in double");

/// Up to this length sums run in element order; beyond, in a fixed number of lanes, so that every
/// machine gives the same bits.
constexpr std::size_t longest_sequential_sum = 64;
constexpr std::size_t sum_lanes = 16;

/// What a floating pass gives: sums over the finite elements, and what was left out.
struct Sums {
    double first = 0;  // of v, or of v - centre
    double second = 0; // of squares of the same
    std::size_t count = 0;
    std::size_t infinities = 0;
    std::size_t nans = 0;
};

/// Where sums grow: element i of the lanes goes to lane i modulo their number.
struct SumLanes {
    double first[sum_lanes] = {};
    double second[sum_lanes] = {};

    bool AreFinite() const
    {
        double total = 0; // infinities and NaN do not go away again
        for (std::size_t lane = 0; lane < sum_lanes; ++lane)
            total += (first[lane] - first[lane]) + (second[lane] - second[lane]);
        return total == 0;
    }
};

/// Add whole rows of lanes that are all finite. The squares go in a loop of their own: one with
/// both would keep its lanes in memory.
template <bool squares, class T>
MEMBLOCK_INLINE_LOOP void AddFinite(T const* __restrict x, std::size_t n, double centre,
                                    SumLanes& lanes)
{
    auto const about = [=](T v) { return static_cast<double>(static_cast<wide_t<T>>(v)) - centre; };
    for (std::size_t i = 0; i < n; i += sum_lanes)
        for (std::size_t lane = 0; lane < sum_lanes; ++lane)
            lanes.first[lane] += about(x[i + lane]);
    if constexpr (squares)
        for (std::size_t i = 0; i < n; i += sum_lanes)
            for (std::size_t lane = 0; lane < sum_lanes; ++lane) {
                double const d = about(x[i + lane]);
                lanes.second[lane] += d * d;
            }
}

/// Add elements from lane 0 on, passing over what is not finite, which is counted.
template <bool squares, class T>
void AddWithTest(T const* x, std::size_t n, double centre, SumLanes& lanes, Sums& sums,
                 std::size_t width)
{
    for (std::size_t i = 0; i < n; ++i) {
        wide_t<T> const v = x[i];
        if (!IsFinite(v)) {
            ++(v == v ? sums.infinities : sums.nans);
            continue;
        }
        double const d = static_cast<double>(v) - centre;
        lanes.first[i % width] += d;
        if constexpr (squares)
            lanes.second[i % width] += d * d;
    }
}

/// Sum v - centre, and its squares where asked for, over the finite elements.
///
/// Blocks go without a test of each element. A sum that is not finite after one means that the
/// block has to be done again with it; the same additions in the same lanes then leave out what is
/// not finite.
template <bool squares, class T>
MEMBLOCK_MULTIVERSION Sums SumAbout(T const* __restrict x, std::size_t n, double centre)
{
    constexpr std::size_t run = 64 * sum_lanes;
    Sums sums;
    SumLanes lanes;
    std::size_t i = 0;
    for (std::size_t size; n > longest_sequential_sum && i + sum_lanes <= n; i += size) {
        size = std::min(run, (n - i) / sum_lanes * sum_lanes);
        SumLanes const before = lanes;
        AddFinite<squares>(x + i, size, centre, lanes);
        if (std::is_floating_point_v<T> && !lanes.AreFinite()) {
            lanes = before;
            AddWithTest<squares>(x + i, size, centre, lanes, sums, sum_lanes);
        }
    }
    AddWithTest<squares>(x + i, n - i, centre, lanes, sums, 1); // what is left goes to lane 0
    for (std::size_t lane = 0; lane < sum_lanes; ++lane) {
        sums.first += lanes.first[lane];
        sums.second += lanes.second[lane];
    }
    sums.count = n - sums.nans - sums.infinities;
    return sums;
}

/// Exact sums of integers of at most two bytes and of their squares.
struct ExactSums {
    long long first = 0;
    unsigned long long second = 0;
};

/// Sums of a short run: so short that a sum of bytes fits 16 bits, one of 16-bit numbers 32.
template <class T>
MEMBLOCK_INLINE_LOOP void AddExactly(T const* __restrict x, std::size_t n, ExactSums& sums)
{
    using Sum =
        std::conditional_t<sizeof(T) == 1,
                           std::conditional_t<std::is_signed_v<T>, short, unsigned short>, int>;
    Sum first = 0;
    for (std::size_t i = 0; i < n; ++i)
        first = static_cast<Sum>(first + x[i]);
    sums.first += first;
}

/// Elements of bytes that are widened together.
constexpr std::size_t byte_run = 4096;

/// Sums of a run of bytes and of their squares. Vector units multiply pairs of 16-bit numbers and
/// add the products at once, where they come from memory as such; the sum of v is that of
/// v * (v + 1) less that of v * v.
template <class T>
MEMBLOCK_INLINE_LOOP void AddSquaresOfBytes(T const* __restrict x, std::size_t n, ExactSums& sums)
{
    short wide[byte_run];
    for (std::size_t i = 0; i < n; ++i)
        wide[i] = x[i];
    int both = 0;
    int second = 0;
    for (std::size_t i = 0; i < n; ++i) {
        second += wide[i] * wide[i];
        both += wide[i] * static_cast<short>(wide[i] + 1);
    }
    sums.first += both - second;
    sums.second += static_cast<unsigned long long>(second);
}

template <class T>
MEMBLOCK_INLINE_LOOP void AddSquares(T const* __restrict x, std::size_t n, ExactSums& sums)
{
    for (std::size_t i = 0; i < n; ++i) {
        int const v = x[i];
        sums.second += static_cast<unsigned int>(v) * static_cast<unsigned int>(v);
    }
}

template <bool squares, class T>
MEMBLOCK_MULTIVERSION ExactSums SumExactly(T const* __restrict x, std::size_t n)
{
    static_assert(std::is_integral_v<T> && sizeof(T) <= 2);
    constexpr bool bytes = sizeof(T) == 1;
    constexpr std::size_t run = !bytes ? 8192 : squares ? byte_run : 256;
    ExactSums sums;
    for (std::size_t start = 0; start < n; start += run) {
        std::size_t const size = std::min(run, n - start);
        if constexpr (bytes && squares) {
            AddSquaresOfBytes(x + start, size, sums);
        } else {
            AddExactly(x + start, size, sums);
            if constexpr (squares)
                AddSquares(x + start, size, sums);
        }
    }
    return sums;
}

/// Whether sums of squares of a long array stay exact.
template <class T>
constexpr bool is_small_integer = std::is_integral_v<T> && sizeof(T) <= 2;

__extension__ typedef __int128 int128;

/// Sample variance of n > 1 integers: exact but for the rounding of the numerator and of the
/// quotient.
inline double ExactVariance(ExactSums const& sums, std::size_t n)
{
    auto const first = static_cast<int128>(sums.first);
    int128 const numerator = static_cast<int128>(sums.second) * static_cast<int128>(n);
    auto const count = static_cast<double>(n);
    return static_cast<double>(numerator - first * first) / (count * (count - 1));
}

/// Exact sum of integers of three or four bytes, of an array whose sum fits 64 bits.
template <class T>
MEMBLOCK_MULTIVERSION long long SumWide(T const* __restrict x, std::size_t n)
{
    long long sum = 0;
    for (std::size_t i = 0; i < n; ++i)
        sum += static_cast<wide_t<T>>(x[i]);
    return sum;
}

} // namespace NKelmic::summary

#endif // MEMBLOCK_VECTOR_SUMMARY_KERNELS_H
