#ifndef MEMBLOCK_VECTOR_CONVERT_H
#define MEMBLOCK_VECTOR_CONVERT_H

#include <memblock/vector/vector.h>

namespace NKelmic {

/// The type that covers elements of both types, by the types alone. Symmetric for numbers.
///
/// Settled: Byte with Short gives Int. The threshold for Short lies strictly above the lowest
/// Short, and scripts compare the resulting type ids.
/// Throws: 4096 "Function return std::numeric_limits not implemented for data type '%s'".
MEMBLOCK_API DataType ChooseCoverType(DataType a, DataType b);

/// A one-element vector brought to another factor, as a copy. Tells by a warning if the cooked
/// value changed on the way; what is no number, or overflows, goes to the handler and gives
/// null.
MEMBLOCK_API DerivedPointer<Vector> EnsureScalarFactor(DerivedPointer<Vector> x, double factor,
                                                       ThrowHandlerFunc handler);
/// The cooked values with factor 1.0: floats as they are, integers rounded into the smallest type
/// for their range. Never changes its argument, but gives it back if the factor is 1.0.
MEMBLOCK_API DerivedPointer<Vector> EnsureNoRawFactor(DerivedPointer<Vector> x);
/// Read the texts of a String vector as numbers: Int if all are integers, otherwise Double.
/// Other vectors come back as they are.
MEMBLOCK_API DerivedPointer<Vector> ConvertToNumericVector(DerivedPointer<Vector> x);
/// Make a flat vector of a PMemory vector whose elements are one-element numeric vectors; null if
/// there is no such form. The type covers all of them, and Double wherever a factor is in use.
MEMBLOCK_API DerivedPointer<Vector>
AttemptConversionToSimpleVector(DerivedPointer<Vector> const& x);
/// Turn m vectors of n numbers into n vectors of m numbers.
///
/// Throws: "Transposing is supported only for vectors of vectors."; "Transposing is supported
/// only for vectors of vectors of the same length and same numeric type.".
MEMBLOCK_API DerivedPointer<Vector> TransposeVectorOfVectors(DerivedPointer<Vector> x);
/// The element type that conversion options ask for; `NoType` if they ask for none.
///
/// Read: "elemtype", an id; or "bpp", the bits of an element, "sign" and "floating".
/// Throws: "DataType id out of range: %d", "Unsupported byte depth: %d".
MEMBLOCK_API DataType FindDataType(ConvertOptions const& options);
/// Keep a function for hosts that ask for it; the library itself makes no call.
MEMBLOCK_API void SetConvertElemsToTypePerformanceCallback(void (*callback)(bool));
/// A vector that may be changed: the argument itself if it has no other owner, otherwise a clone.
MEMBLOCK_API DerivedPointer<Vector> PrivateCopy(DerivedPointer<Vector>&& v);

// ---- Families: a member per element type that they work for. `n` elements, never 0. They are
// inner tools, which the shared library does not export.

/// Copy integers of the source's type, given by `src`, that all fit.
/// Throws: "Cannot convert vector to unsigned representation, because it contains negative values
/// (min=%d): %s".
template <class D>
void CopyTo_1(void const* src, Vector const& source, D* dst);
/// Copy integers, shifted right by `shift` bits, to the elements of `dst`.
template <class S>
void CopyToShifted_tmpl1(S const* src, TypedChunk& dst, int shift);
template <class S, class D> // unsigned S: the bits move down
void AvgToShifted_tmpl2(S const* src, D* dst, unsigned int n, int shift);
template <class S, class D> // signed S: division by the power of two, towards minus infinity
void divide_tmpl(S const* src, D* dst, unsigned int n, int shift);
/// Store floats as integers, scaled so that as much as possible stays; returns the scale.
///
/// It is 1 if all finite elements are whole and fit. NaN stores 0, an infinity the end of the
/// range. Throws: "Cannot represent negative value %s in the destination type (%s)".
template <class S, class D>
double CopyToFromDouble(D* dst, S const* src, unsigned int n);
/// Store floats as integers, rounded half away from zero.
/// Throws: "Value %s does not fit in the destination type %d..%u without altering the factor.".
template <class S, class D>
void CopyToWithCheck(D* dst, S const* src, unsigned int n);
template <class S>
void ConvertToStrings_tmpl(S const* src, unsigned int n, double factor, safestring* dst);
template <class S>
void ConvertToDataItem_tmpl(S const* src, unsigned int n, double factor, DataItem* dst);
template <class S>
void ConvertToMemBlock_tmpl(S const* src, unsigned int n, double factor, PMemBlock* dst);
/// Store objects into numbers, one by one as `Vector::SetElem` reads them.
template <class S>
void ConvertFromObjects_tmpl(S const* src, unsigned int n, Vector& dst);
/// Multiply integers by a ratio, rounded half away from zero.
template <class T>
void ensure_factor_integral_tmpl(Vector* vector, T* data, double ratio);
/// The elements of one-element vectors, cooked, as a vector of T.
template <class T>
DerivedPointer<Vector> acsv_tmpl(PMemBlock const* elements, unsigned int n);

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_CONVERT_H
