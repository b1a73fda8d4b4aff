#include <memblock/vector/arithmetic/resulttype_internal.h>

#include <memblock/base/number.h>
#include <memblock/core/summarykeys.h>
#include <memblock/vector/arithmetic/kernelpairs_internal.h>
#include <memblock/vector/convert_internal.h>

#include <algorithm>
#include <cmath>

namespace NKelmic::ops {

// ---- ranges of results ---------------------------------------------------------------------

Range SumRange(Range x, Range y, op_options const&)
{
    return {x.min + y.min, x.max + y.max};
}

Range DifferenceRange(Range x, Range y, op_options const& options)
{
    // Settled: where every difference is replaced, the maximum can be below the minimum of 0.
    if (options.GetFlag("neg_abs", false) || options.GetFlag("neg_zero", false))
        return {0, x.max - y.min};
    return {x.min - y.max, x.max - y.min};
}

Range ProductRange(Range x, Range y, op_options const&)
{
    return {std::min({x.min * y.min, x.min * y.max, x.max * y.min, x.max * y.max}),
            std::max(x.max * y.max, x.min * y.min)};
}

Range QuotientRange(Range x, Range y, op_options const&)
{
    double const m = std::max({std::abs(x.min), std::abs(x.max), std::abs(y.min), std::abs(y.max)});
    return {-m, m};
}

Range RemainderRange(Range x, Range y, op_options const&)
{
    if (x.min >= 0 && y.min >= 0)
        return {0, y.max};
    double const m = std::max(std::abs(y.min), std::abs(y.max));
    return {-m, m};
}

Range UnionRange(Range x, Range y, op_options const&)
{
    return {std::min(x.min, y.min), std::max(x.max, y.max)};
}

// Settled: the wider result of a left shift is not predicted, so the shifted value wraps.
Range LeftShiftRange(Range x, Range y, op_options const& options)
{
    if (y.min < 0)
        Raise(err_request, "Shifting by negative amount of bits (%d) not supported.",
              TruncToInt(y.min));
    return UnionRange(x, y, options);
}

Range RightShiftRange(Range x, Range y, op_options const& options)
{
    Range const range = LeftShiftRange(x, y, options);
    if (x.min < 0)
        Raise(err_request, "Righshifting of negative values (%d) not supported.",
              TruncToInt(x.min));
    return range;
}

Range PixelRange(Range, Range, op_options const&)
{
    return {0, 16777216.0}; // beyond what the narrower types hold, so that UnsignedInt comes out
}

namespace {

/// The unsigned type of the same width; the type itself where there is none.
///
/// Settled: a 64-bit type keeps its sign. Such operands meet only in `Double`, or not at all.
DataType UnsignedTwin(DataType type)
{
    return WithElemTypeOr<KernelTypes>(
        type, [type] { return type; },
        []<class T>(TypeTag<T>) { return type_of<unsigned_twin<T>>::value; });
}

DataType SignedTwin(DataType type)
{
    return WithElemTypeOr<IntegerTypes>(
        type, [type] { return type; },
        []<class T>(TypeTag<T>) { return type_of<signed_twin<T>>::value; });
}

/// Look at an operand as at the type of the other sign, if its values have the same bits there.
bool TurnSign(Operand& operand, Range range)
{
    unsigned const bits = 8 * TypedChunk::SizeOf(operand.Type());
    bool const is_unsigned = TypedChunk::IsUnsignedInteger(operand.Type());
    DataType twin = operand.Type();
    if (!is_unsigned && range.min >= 0)
        twin = UnsignedTwin(operand.Type());
    else if (is_unsigned && std::ldexp(1.0, static_cast<int>(bits) - 1) > range.max)
        twin = SignedTwin(operand.Type());
    if (twin == operand.Type())
        return false;
    operand.Reinterpret(twin);
    return true;
}

} // namespace

// ---- operands of one type ------------------------------------------------------------------

/// Short vectors are looked through on the spot, which is quicker than a cache; a vector that has
/// its summary values, and every longer one, answers from them.
Range RawRange(Vector const& v)
{
    constexpr unsigned int short_vector = 64;
    if (v.Length() <= short_vector && v.PimplIfAny() == nullptr &&
        (IsPlain(v) || !v.Conforms("image")))
        return WithElemType<IntegerTypes>(
            v.ElemType(), "Vector::op(): data type not supported: %s",
            [&]<class T>(TypeTag<T>) {
                return MinMaxOfShort<false>(v.TypedPointer<T>(), v.Length()).template As<double>();
            },
            err_request);
    return {v.SecondaryDouble(key_min, throw_always), v.SecondaryDouble(key_max, throw_always)};
}

void WidenNarrower(OperandPair& operands)
{
    unsigned const xwidth = operands.x->ElemSize();
    unsigned const ywidth = operands.y->ElemSize();
    if (xwidth == ywidth)
        return;
    Operand& narrow = xwidth < ywidth ? operands.x : operands.y;
    Operand& wide = xwidth < ywidth ? operands.y : operands.x;
    bool const negative_into_unsigned = TypedChunk::IsUnsignedInteger(wide.Type()) &&
                                        !TypedChunk::IsUnsignedInteger(narrow.Type()) &&
                                        RawRange(*narrow).min < 0;
    if (!negative_into_unsigned) {
        narrow.Convert(wide.Type());
    } else if (wide.Type() == DataTypeBase::Triple) { // there is no signed type of three bytes
        narrow.Convert(DataTypeBase::Int);
        wide.Convert(DataTypeBase::Int);
    } else {
        narrow.Convert(SignedTwin(wide.Type()));
    }
}

void ReconcileSigns(OperandPair& operands, Range x, Range y)
{
    if (!TurnSign(operands.x, x) && !TurnSign(operands.y, y)) {
        if (TypedChunk::SizeOf(operands.x.Type()) >= sizeof(int))
            ThrowAssertException(__FILE__, __LINE__, "SizeOf(x->ElemType())<sizeof(int)");
        operands.x.Convert(DataTypeBase::Int);
        operands.y.Convert(DataTypeBase::Int);
    }
    if (operands.x.Type() != operands.y.Type())
        ThrowAssertException(__FILE__, __LINE__, "x->ElemType()==y->ElemType()");
}

// ---- the result ----------------------------------------------------------------------------

DataType PredictType(OpRequest const& request, Range x, Range y)
{
    Operator const& op = request.op;
    if (GivesTruth(op))
        return DataTypeBase::Byte;
    if (op.range.predict == nullptr)
        Raise(err_request, "Vector::op(): unsupported operator: '%c'", request.name);
    Range const range = op.range.predict(x, y, request.options);
    if (op.range.predict == DifferenceRange && range.max < 0 && range.min == 0)
        return DataTypeBase::Byte; // every difference is replaced by 0 or its magnitude
    return Vector::MinMax2Type(range.min, range.max);
}

DataType RaiseToWidth(DataType wanted, DataType operands)
{
    if (TypedChunk::SizeOf(wanted) >= TypedChunk::SizeOf(operands))
        return wanted;
    // Kernels end at 32 bits; for wider operands the caller raises what it reports.
    int const width = std::min<int>(TypedChunk::SizeOf(operands), 4);
    bool const is_unsigned =
        TypedChunk::IsUnsignedInteger(wanted) && TypedChunk::IsUnsignedInteger(operands);
    if (is_unsigned)
        return TypeOfDepth(width, false, false);
    return TypeOfDepth(width == 3 ? 4 : width, true, false); // three bytes are never signed
}

} // namespace NKelmic::ops
