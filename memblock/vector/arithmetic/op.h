#ifndef MEMBLOCK_VECTOR_ARITHMETIC_OP_H
#define MEMBLOCK_VECTOR_ARITHMETIC_OP_H

#include <memblock/core/safevalue.h>
#include <memblock/vector/vector.h>

namespace NKelmic {

/// Run an integer operator over two arrays, or an array and a scalar (a length of 1).
///
/// A pair (T, R) exists when R is not narrower than T: 31 of them. Arithmetic is that of 32 bits
/// and wraps; results are stored by plain assignment to R, without saturation. `dest` must not
/// overlap the operands. Options read: "spread_factor", "infinity", "uncertainty",
/// "throw_if_infinity", "throw_if_uncertainty", "neg_abs", "neg_zero", "image_width"; written:
/// "nancount", the number of elements that met a zero second operand in '~', else 0.
/// Throws: 512 "Vector::op('/'): division x/0 for %d elements; division 0/0 for %d elements." and
///         "Modulos op for %d elements; second operand zero for %d elements." when asked to;
///         4096 "Vector::op(): operation not implemented: '%c'";
///         an assertion "ylen==dstlen" when the lengths do not fit.
template <class T, class R>
MEMBLOCK_API void ApplyOp(char op, T const* x, unsigned int xlen, T const* y, unsigned int ylen,
                          R* dest, unsigned int destlen, op_options const& options);

/// The same without '/'. Exists for the 31 integer pairs, and for the floating pairs (float,
/// float), (float, double), (double, double), (float, unsigned char), (double, unsigned char),
/// where '/' is plain IEEE division and '~' is `fmod`.
template <class T, class R>
MEMBLOCK_API void ApplyOpSimple(char op, T const* x, unsigned int xlen, T const* y,
                                unsigned int ylen, R* dest, unsigned int destlen,
                                op_options const& options);

/// Whether an operator works on strings: a member of "c=#<>()".
MEMBLOCK_API bool OpImplementedForStrings(char op);

/// Throws 4096 "Operation not implemented for floating-point data."
[[noreturn]] MEMBLOCK_API void throw_no_float_support();

/// Combine two vectors as texts: 'c' joins them element by element into a `String` vector, the
/// comparisons (without regard to case) give a `Byte` vector of 0 and 1. A vector of one element
/// is spread over the other. Throws: 512 "Cannot apply operation '%c' to vectors of lengths %d and
/// %d elements."; 4096 "Vector::op(): operation not implemented for string vectors: '%c'".
MEMBLOCK_API DerivedPointer<Vector> StringOp(char op, DerivedPointer<Vector> const& x,
                                             DerivedPointer<Vector> const& y);

/// The form of `StringOp` for one shape of operands that are `String` vectors already.
template <bool xscalar, bool yscalar>
MEMBLOCK_API DerivedPointer<Vector> PerformStringOp(char op, DerivedPointer<Vector> const& x,
                                                    DerivedPointer<Vector> const& y);

/// Whether a value is closer to zero than 1e-12.
MEMBLOCK_API bool IsPracticallyZero(double value);

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_ARITHMETIC_OP_H
