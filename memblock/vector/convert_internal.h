#ifndef MEMBLOCK_VECTOR_CONVERT_INTERNAL_H
#define MEMBLOCK_VECTOR_CONVERT_INTERNAL_H

#include <memblock/vector/convert.h>
#include <memblock/vector/range_kernels.h>
#include <memblock/vector/summary.h>

namespace NKelmic {

/// The outcome of a conversion: as many elements, and their factor.
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

/// Colour images keep the summary of their bytes in the cache, which says nothing about
/// their 24-bit numbers.
inline bool SummaryIsOfBytes(Vector const& v)
{
    return v.ElemType() == Vector::Triple && v.Conforms("image");
}

/// The exact range of the elements of an integer vector that is not empty.
template <class T>
MinMax<wide_t<T>> RangeOf(Vector const& v)
{
    using W = wide_t<T>;
    // What has more than 32 bits is beyond what the cached doubles can distinguish.
    if (sizeof(T) > 4 || SummaryIsOfBytes(v))
        return MinMaxOf<false>(v.TypedPointer<T>(), v.Length());
    return {static_cast<W>(v.SecondaryDouble(key_min, throw_always)),
            static_cast<W>(v.SecondaryDouble(key_max, throw_always))};
}

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_CONVERT_INTERNAL_H
