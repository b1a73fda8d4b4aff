#ifndef MEMBLOCK_VECTOR_ELEMTEXT_INTERNAL_H
#define MEMBLOCK_VECTOR_ELEMTEXT_INTERNAL_H

#include <memblock/base/number.h>
#include <memblock/core/datatype.h>

#include <cmath>

namespace NKelmic {

/// The text of a number element: integers in decimal, floats with 6 significant digits.
template <class T>
safestring ElemText(T value)
{
    if constexpr (FloatTypes::has<T>) {
        if (std::isnan(value))
            return "NaN";
        if (std::isinf(value))
            return value > 0 ? "inf" : "-inf";
        return str(static_cast<double>(value), 6);
    } else if constexpr (std::is_same_v<T, triple>) {
        return str(static_cast<unsigned int>(value));
    } else if constexpr (sizeof(T) <= sizeof(int) && std::is_signed_v<T>) {
        return str(static_cast<int>(value));
    } else if constexpr (sizeof(T) <= sizeof(int)) {
        return str(static_cast<unsigned int>(value));
    } else {
        return str(value);
    }
}

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_ELEMTEXT_INTERNAL_H
