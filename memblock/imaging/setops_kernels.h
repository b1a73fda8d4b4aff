#ifndef MEMBLOCK_IMAGING_SETOPS_KERNELS_H
#define MEMBLOCK_IMAGING_SETOPS_KERNELS_H

#include <algorithm>

namespace NKelmic::setops {

// Sorted lists in, sorted list out; equal numbers pair off one to one, as in the standard
// algorithms. Which list goes on is computed, not branched on: pixels of two segmentations
// interleave in no order that a processor could guess. Each returns the end of `out`.

template <class T>
T* And(T const* a, T const* a_end, T const* b, T const* b_end, T* out)
{
    while (a != a_end && b != b_end) {
        T const x = *a, y = *b;
        *out = x;
        out += x == y;
        a += x <= y;
        b += y <= x;
    }
    return out;
}

template <class T>
T* Or(T const* a, T const* a_end, T const* b, T const* b_end, T* out)
{
    while (a != a_end && b != b_end) {
        T const x = *a, y = *b;
        *out++ = x < y ? x : y;
        a += x <= y;
        b += y <= x;
    }
    return std::copy(b, b_end, std::copy(a, a_end, out));
}

template <class T>
T* Xor(T const* a, T const* a_end, T const* b, T const* b_end, T* out)
{
    while (a != a_end && b != b_end) {
        T const x = *a, y = *b;
        *out = x < y ? x : y;
        out += x != y;
        a += x <= y;
        b += y <= x;
    }
    return std::copy(b, b_end, std::copy(a, a_end, out));
}

} // namespace NKelmic::setops

#endif // MEMBLOCK_IMAGING_SETOPS_KERNELS_H
