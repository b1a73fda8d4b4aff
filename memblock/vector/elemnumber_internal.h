#ifndef MEMBLOCK_VECTOR_ELEMNUMBER_INTERNAL_H
#define MEMBLOCK_VECTOR_ELEMNUMBER_INTERNAL_H

#include <memblock/base/number.h>
#include <memblock/core/datatype.h>

#include <limits>
#include <type_traits>

namespace NKelmic {

/// The type in which elements of type T are computed with.
template <class T>
using wide_t = std::conditional_t<std::is_same_v<T, triple>, unsigned int, T>;

/// The integer element types of the same width, with and without a sign. `triple` has no twin, and
/// the signed type of a byte is plain `char`.
template <class T>
struct SignTwins {
    using with_sign = std::conditional_t<sizeof(T) == 1, char, std::make_signed_t<T>>;
    using without_sign = std::make_unsigned_t<T>;
};
template <>
struct SignTwins<triple> {
    using with_sign = triple;
    using without_sign = triple;
};
template <class T>
using signed_twin = typename SignTwins<T>::with_sign;
template <class T>
using unsigned_twin = typename SignTwins<T>::without_sign;

template <class T>
constexpr wide_t<T> elem_lowest = std::numeric_limits<T>::lowest();
template <class T>
constexpr wide_t<T> elem_greatest = std::numeric_limits<T>::max();

/// A number as an element; it must fit, and fractions are cut off.
template <class T, class V>
constexpr T ToElem(V v)
{
    return T(static_cast<wide_t<T>>(v));
}

/// Whether a double, truncated, is in the range of an integer element type. False for NaN.
template <class T>
constexpr bool FitsElem(double v)
{
    if constexpr (std::is_same_v<T, triple>)
        return v > -1.0 && v < 16777216.0;
    else
        return FitsAfterTrunc<T>(v);
}

/// Whether a whole number is in the range of an integer element type.
template <class T, class V>
constexpr bool InRange(V v)
{
    using W = wide_t<T>;
    if constexpr (std::is_signed_v<V> == std::is_signed_v<W>)
        return v >= elem_lowest<T> && v <= elem_greatest<T>;
    else if constexpr (std::is_signed_v<V>)
        return v >= 0 && static_cast<std::make_unsigned_t<V>>(v) <= elem_greatest<T>;
    else
        return v <= static_cast<std::make_unsigned_t<W>>(elem_greatest<T>);
}

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_ELEMNUMBER_INTERNAL_H
