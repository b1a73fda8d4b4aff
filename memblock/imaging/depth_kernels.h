#ifndef MEMBLOCK_IMAGING_DEPTH_KERNELS_H
#define MEMBLOCK_IMAGING_DEPTH_KERNELS_H

#include <memblock/vector/range_kernels.h>

#include <algorithm>
#include <array>
#include <limits>
#include <type_traits>

/// Loops that take pixels to one byte.
namespace NKelmic::depth {

template <int bytes>
MEMBLOCK_MULTIVERSION void AverageBytes(unsigned char const* __restrict src, unsigned int n,
                                        unsigned char* __restrict dst)
{
    for (unsigned int i = 0; i < n; ++i, src += bytes) {
        int sum = (bytes + 1) / 2;
        for (int byte = 0; byte < bytes; ++byte)
            sum += src[byte];
        dst[i] = static_cast<unsigned char>(sum / bytes);
    }
}

/// The greatest pixel that is finite; 0 if none is above 0.
template <class T>
double FiniteMaximum(T const* src, unsigned int n)
{
    return static_cast<double>(std::max(T(0), MinMaxOf<true>(src, n).max));
}

/// Truncate; what a byte can't hold, and NaN, becomes 0.
inline unsigned char ToByte(double v)
{
    return v > -1.0 && v < 256.0 ? static_cast<unsigned char>(static_cast<int>(v)) : 0;
}

template <class T>
MEMBLOCK_MULTIVERSION void CutToBytes(T const* __restrict src, unsigned int n,
                                      unsigned char* __restrict dst)
{
    for (unsigned int i = 0; i < n; ++i)
        if constexpr (std::is_floating_point_v<T>)
            dst[i] = ToByte(static_cast<double>(src[i]));
        else
            dst[i] = src[i] <= 255 ? static_cast<unsigned char>(src[i]) : 0;
}

/// One scaled pixel, rounded half away from 0. Integers are not negative here.
template <class T>
MEMBLOCK_INLINE_LOOP unsigned char Scaled(T pixel, double scale)
{
    double const v = static_cast<double>(pixel) * scale;
    if constexpr (std::is_floating_point_v<T>)
        return ToByte(v > 0 ? v + 0.5 : v - 0.5);
    double const rounded = v + 0.5;
    double const cut = rounded < 256.0 ? rounded : 256.0; // no branch, and 256 is 0 as a byte
    return static_cast<unsigned char>(static_cast<int>(cut));
}

template <class T>
MEMBLOCK_MULTIVERSION void ScaleEach(T const* __restrict src, unsigned int n,
                                     unsigned char* __restrict dst, double scale)
{
    for (unsigned int i = 0; i < n; ++i)
        dst[i] = Scaled(src[i], scale);
}

/// Narrow pixels come again and again: a table of all of them costs less than their scaling.
template <class T>
void ScaleToBytes(T const* src, unsigned int n, unsigned char* dst, double scale)
{
    if constexpr (std::is_integral_v<T> && sizeof(T) <= 2) {
        constexpr unsigned int values = std::numeric_limits<T>::max() + 1U;
        if (n > values) {
            std::array<unsigned char, values> table;
            for (unsigned int v = 0; v < values; ++v)
                table[v] = Scaled(v, scale);
            for (unsigned int i = 0; i < n; ++i)
                dst[i] = table[src[i]];
            return;
        }
    }
    if constexpr (std::is_same_v<T, unsigned int>)
        // There is one instruction from int to double, and a long way from unsigned int.
        if (FiniteMaximum(src, n) <= std::numeric_limits<int>::max())
            return ScaleEach(reinterpret_cast<int const*>(src), n, dst, scale);
    ScaleEach(src, n, dst, scale);
}

} // namespace NKelmic::depth

#endif // MEMBLOCK_IMAGING_DEPTH_KERNELS_H
