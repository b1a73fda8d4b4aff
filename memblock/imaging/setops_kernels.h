#ifndef MEMBLOCK_IMAGING_SETOPS_KERNELS_H
#define MEMBLOCK_IMAGING_SETOPS_KERNELS_H

#include <memblock/base/multiversion.h>

#include <algorithm>
#include <cstddef>

/// Set operations on lists of pixel numbers. Objects are drawn in rows, so what two sorted lists
/// have in common are runs of successive numbers: these are gone through some numbers at a time.
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

/// Which parts of two increasing lists go into the result.
template <bool common, bool single>
MEMBLOCK_INLINE_LOOP int* Merge(int const* a, int const* a_end, int const* b, int const* b_end,
                                int* out)
{
    constexpr int step = 8;
    while (a != a_end && b != b_end) {
        int x = *a, y = *b;
        if (x < y) {
            do {
                if constexpr (single)
                    *out++ = x;
                ++a;
            } while (a != a_end && (x = *a) < y);
        } else if (y < x) {
            do {
                if constexpr (single)
                    *out++ = y;
                ++b;
            } while (b != b_end && (y = *b) < x);
        } else if (a_end - a >= step && b_end - b >= step && a[step - 1] == b[step - 1] &&
                   static_cast<unsigned int>(a[step - 1]) - static_cast<unsigned int>(x) ==
                       step - 1) { // eight numbers that increase by seven: a run
            if constexpr (common)
                out = std::copy_n(a, step, out);
            a += step;
            b += step;
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
