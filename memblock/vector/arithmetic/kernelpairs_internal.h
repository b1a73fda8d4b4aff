#ifndef MEMBLOCK_VECTOR_ARITHMETIC_KERNELPAIRS_INTERNAL_H
#define MEMBLOCK_VECTOR_ARITHMETIC_KERNELPAIRS_INTERNAL_H

#include <memblock/core/datatype.h>

/// For which pairs of operand type T and result type R kernels exist.
namespace NKelmic::ops {

/// Integers of at most 32 bits: wider ones are computed in double.
using KernelTypes = TypesUpTo<IntegerTypes, 4>;

/// The result is never narrower than the operands: 31 pairs.
template <class T, class R>
concept IntegerPair = KernelTypes::has<T> && KernelTypes::has<R> && sizeof(T) <= sizeof(R);

/// What floating operands give: numbers, and truth values as bytes.
using FloatResultTypes = TypeUnion<FloatTypes, TypeSet<unsigned char>>;

template <class T, class R>
concept FloatPair = FloatTypes::has<T> && FloatResultTypes::has<R> &&
    (std::is_same_v<R, unsigned char> || sizeof(T) <= sizeof(R));

/// A comparison whose truth values are bytes, whatever the operands are.
template <class T>
void CompareToBytes(char op, T const* x, unsigned int xlen, T const* y, unsigned int ylen,
                    unsigned char* dest, unsigned int destlen);

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_ARITHMETIC_KERNELPAIRS_INTERNAL_H
