#ifndef MEMBLOCK_IMAGING_SETOPS_KERNELS_H
#define MEMBLOCK_IMAGING_SETOPS_KERNELS_H

#include <memblock/base/multiversion.h>

#include <algorithm>
#include <cstddef>

/// Set operations on lists of pixel numbers. Objects are drawn in rows, so their sorted lists are
/// made of runs of successive numbers: these are gone through as a whole.
namespace NKelmic::setops {

/// Whether each number is above the one before it.
MEMBLOCK_MULTIVERSION inline bool IncreasesLong(int const* __restrict list, std::ptrdiff_t n)
{
    constexpr std::ptrdiff_t block = 256; // then look whether it is decided
    for (std::ptrdiff_t i = 1; i < n; i += block) {
        std::ptrdiff_t const end = std::min(n, i + block);
        int falls = 0;
        for (std::ptrdiff_t k = i; k < end; ++k)
            falls += list[k] <= list[k - 1];
        if (falls != 0)
            return false;
    }
    return true;
}

/// The same; small objects are many, and not worth a call.
inline bool Increases(int const* list, std::ptrdiff_t n)
{
    if (n > 64)
        return IncreasesLong(list, n);
    for (std::ptrdiff_t i = 1; i < n; ++i)
        if (list[i] <= list[i - 1])
            return false;
    return true;
}

/// The first number from `a` on that is not below `limit`, which is above *a.
inline int const* SkipBelow(int const* a, int const* end, int limit)
{
    // Numbers that increase reach limit - 1 no sooner than an unbroken run does.
    auto const distance =
        static_cast<std::size_t>(static_cast<unsigned int>(limit) - static_cast<unsigned int>(*a));
    if (distance <= static_cast<std::size_t>(end - a) && a[distance - 1] == limit - 1)
        return a + distance;
    do
        ++a;
    while (a != end && *a < limit);
    return a;
}

/// Which parts of two increasing lists go into the result.
template <bool common, bool single>
int* Merge(int const* a, int const* a_end, int const* b, int const* b_end, int* out)
{
    auto const take_below = [&out](int const*& list, int const* end, int limit) {
        int const* const stop = SkipBelow(list, end, limit);
        if constexpr (single)
            out = std::copy(list, stop, out);
        list = stop;
    };
    while (a != a_end && b != b_end) {
        if (*a < *b) {
            take_below(a, a_end, *b);
        } else if (*b < *a) {
            take_below(b, b_end, *a);
        } else {
            do {
                if constexpr (common)
                    *out++ = *a;
                ++a;
                ++b;
            } while (a != a_end && b != b_end && *a == *b);
        }
    }
    if constexpr (single)
        out = std::copy(b, b_end, std::copy(a, a_end, out));
    return out;
}

} // namespace NKelmic::setops

#endif // MEMBLOCK_IMAGING_SETOPS_KERNELS_H
