#ifndef MEMBLOCK_VECTOR_ARITHMETIC_DISPATCH_INTERNAL_H
#define MEMBLOCK_VECTOR_ARITHMETIC_DISPATCH_INTERNAL_H

#include <memblock/vector/arithmetic/operands_internal.h>

/// From the element types of operands and result to the kernel of that pair.
namespace NKelmic::ops {

/// Both operands have the same floating type. Throws 128 "Vector::op(): ERR A1" and its like for a
/// result type that has no kernel.
void ApplyToFloats(OperandPair const& operands, OpRequest const& request, Vector& result);

/// Both operands have the same integer type. Throws 128 "Vector::op(): ERR B1" and its like for a
/// result type that has no kernel; 4096 "Vector::op(): data type not supported: %s".
void ApplyToIntegers(OperandPair const& operands, OpRequest const& request, Vector& result);

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_ARITHMETIC_DISPATCH_INTERNAL_H
