#ifndef MEMBLOCK_VECTOR_OPTYPES_INTERNAL_H
#define MEMBLOCK_VECTOR_OPTYPES_INTERNAL_H

#include <memblock/core/safevalue.h>
#include <memblock/vector/vector.h>

#include <typeinfo>

/// How the result type of an integer operation follows from the data.
namespace NKelmic::ops {

/// Operators on integers that never leave the integer world, however large their operands.
constexpr char integer_operators[] = "~aoxlr^&|p";
constexpr char comparisons[] = "=#<>()";

/// Some operators, made of their characters by the compiler.
class OpSet {
public:
    consteval OpSet(char const* ops) // implicit: a literal stands for its operators
    {
        for (; *ops != '\0'; ++ops)
            bits_[*ops / 64] |= 1UL << *ops % 64;
    }
    constexpr bool Has(char op) const { return op > 0 && (bits_[op / 64] >> op % 64 & 1) != 0; }

private:
    unsigned long bits_[2] = {};
};

constexpr bool IsOneOf(char op, OpSet set)
{
    return set.Has(op);
}

/// The unsigned, and the signed, type of the same width; the type itself where there is none.
DataType UnsignedTwin(DataType type);
DataType SignedTwin(DataType type);

/// The raw extremes of an operand.
struct Range {
    double min;
    double max;
};

/// Whether an object is a vector and no more: a derived class may ask for steps of its own.
inline bool IsPlain(Vector const& v)
{
    return typeid(v) == typeid(Vector);
}

/// Whether there is also nothing else about it that a clone would take over.
inline bool IsBare(Vector const& v)
{
    return IsPlain(v) && v.Flags() == 0 && v.LgType() == 0;
}

/// The raw extremes of a vector that is not empty.
Range RawRange(Vector const& v);

/// The smallest type that holds the result of an integer operator on operands of these ranges.
/// `Double` where no integer type does. Throws 4096 for an operator that integers do not have, and
/// for shifts by or of negative values.
DataType PredictType(char op, Range x, Range y, op_options const& options);

/// A kernel's result type is never narrower than its operands: raise `wanted` to their width.
DataType RaiseToWidth(DataType wanted, DataType operands);

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_OPTYPES_INTERNAL_H
