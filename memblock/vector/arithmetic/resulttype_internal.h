#ifndef MEMBLOCK_VECTOR_ARITHMETIC_RESULTTYPE_INTERNAL_H
#define MEMBLOCK_VECTOR_ARITHMETIC_RESULTTYPE_INTERNAL_H

#include <memblock/vector/arithmetic/operands_internal.h>

/// How the result type of an integer operation follows from the data.
namespace NKelmic::ops {

/// The raw extremes of a vector that is not empty.
Range RawRange(Vector const& v);

/// The narrower operand takes the type of the wider one. A negative value has no place in an
/// unsigned type: it takes the signed one of the same width, and signs are reconciled later.
void WidenNarrower(OperandPair& operands);

/// Bring two types of equal width and different sign together, without touching a bit where the
/// values, which have these ranges, allow it.
void ReconcileSigns(OperandPair& operands, Range x, Range y);

/// The smallest type that holds the result of an integer operator on operands of these ranges.
/// `Double` where no integer type does. Throws 4096 for an operator that integers do not have, and
/// for shifts by or of negative values.
DataType PredictType(OpRequest const& request, Range x, Range y);

/// A kernel's result type is never narrower than its operands: raise `wanted` to their width.
DataType RaiseToWidth(DataType wanted, DataType operands);

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_ARITHMETIC_RESULTTYPE_INTERNAL_H
