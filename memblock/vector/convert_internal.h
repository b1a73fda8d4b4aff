#ifndef MEMBLOCK_VECTOR_CONVERT_INTERNAL_H
#define MEMBLOCK_VECTOR_CONVERT_INTERNAL_H

#include <memblock/vector/convert.h>
#include <memblock/vector/elemnumber_internal.h>
#include <memblock/vector/summary.h>

namespace NKelmic {

/// The outcome of a conversion: as many elements, and the factor that they stand under.
struct Converted {
    TypedChunk chunk;
    double factor;
};

/// Convert all elements, at least one, to another type.
Converted ConvertContents(Vector const& v, DataType type, bool keep_factor);

// One function for each family of conversions; the types are of the kinds that they name.
Converted IntegersToIntegers(Vector const& v, DataType type, bool keep_factor);
Converted FloatsToIntegers(Vector const& v, DataType type, bool keep_factor);
Converted NumbersToFloats(Vector const& v, DataType type);
Converted NumbersToObjects(Vector const& v, DataType type);
Converted ObjectsToNumbers(Vector const& v, DataType type, bool keep_factor);

/// The integer, floating or Triple type of a byte depth; `NoType` if there is none.
DataType TypeOfDepth(int bytes, bool is_signed, bool floating);

/// Colour images keep the summary of their bytes in the cache, so that it tells nothing about
/// their 24-bit numbers.
inline bool SummaryIsOfBytes(Vector const& v)
{
    return v.ElemType() == Vector::Triple && v.Conforms("image");
}

template <class T>
struct ElemRange {
    T min, max;
};

/// The exact range of the elements of a vector that is not empty, by one pass over them.
template <class T>
ElemRange<wide_t<T>> ScannedRangeOf(Vector const& v)
{
    using W = wide_t<T>;
    T const* const data = v.TypedPointer<T>();
    W low = data[0];
    W high = data[0];
    for (unsigned int i = 1; i < v.Length(); ++i) {
        W const value = data[i];
        low = value < low ? value : low;
        high = value > high ? value : high;
    }
    return {low, high};
}

/// The exact range of the elements of an integer vector that is not empty.
template <class T>
ElemRange<wide_t<T>> RangeOf(Vector const& v)
{
    using W = wide_t<T>;
    if constexpr (sizeof(T) > 4) { // beyond what the cached doubles can tell
        return ScannedRangeOf<T>(v);
    } else {
        if (SummaryIsOfBytes(v))
            return ScannedRangeOf<T>(v);
        return {static_cast<W>(v.SecondaryDouble(key_min, throw_always)),
                static_cast<W>(v.SecondaryDouble(key_max, throw_always))};
    }
}

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_CONVERT_INTERNAL_H
