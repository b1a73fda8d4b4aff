#include <memblock/vector/arithmetic/operands_internal.h>

#include <memblock/vector/arithmetic/op.h>
#include <memblock/vector/vectorchunk_internal.h>

namespace NKelmic::ops {

OpRequest::OpRequest(char op_name, op_options const& from)
    : name(op_name), op(Find(op_name)), options(from), no_factor(from.GetFlag("no_factor", false))
{
    // Made once: it is too long for a string without allocation. Never destroyed, as jobs may
    // outlive all statics.
    static auto const& fixed_name = *new safestring("fixed_result_type");
    fixed = options.GetFlag(fixed_name, false);
    if (fixed) {
        route = static_cast<DataType>(options.GetValue("result_type", route).GetInt());
        requested = static_cast<DataType>(options.GetValue("result_type", requested).GetInt());
    }
    if (op.kind == OpKind::point) {
        fixed = true;
        route = DataTypeBase::UnsignedInt;
    } else if (!fixed && GivesTruth(op)) {
        by_operator = DataTypeBase::Byte;
    } else if (op.result == ResultFactor::quotient) {
        fixed = true; // integers divide into Double, unless the caller wants them rounded
    }
}

void Simplify(OperandPair& operands)
{
    // A macro's list of results is a vector of one-element vectors; as flat numbers it has kernels.
    for (Operand* operand : {&operands.x, &operands.y})
        if (operand->Type() == DataTypeBase::PMemory)
            if (auto simple = AttemptConversionToSimpleVector(operand->Pointer()))
                operand->Replace(simple);
}

namespace {

/// An integer in a vector of its own, under a type that holds it.
DerivedPointer<Vector> ScalarOf(double value, DataType type)
{
    // Directly, as this runs for nearly every operation with a constant; a conversion costs more
    // than the operation on a short vector.
    TypedChunk const chunk = OpenChunk(1, type);
    WithElemTypeOr<IntegerTypes>(
        type, [] {}, [&]<class T>(TypeTag<T>) { *static_cast<T*>(chunk.Data()) = T(value); });
    return Vector::Create(chunk, 1.0);
}

void PrepareScalar(Operand& scalar, Vector const& array, OpRequest const& request)
{
    if (!IsInSet<NumericTypes>(scalar.Type()))
        return;
    if (request.op.result == ResultFactor::common && !request.no_factor &&
        !IsPracticallyZero(scalar->Factor() - array.Factor()))
        scalar.Replace(EnsureScalarFactor(scalar.Pointer(), array.Factor(), throw_always));
    if (!IsInSet<IntegerTypes>(scalar.Type()))
        return;
    // A constant must not widen the result: 1 as Int added to bytes would give Ints.
    double const value = scalar->Elem(0);
    DataType const smallest = Vector::MinMax2Type(value, value);
    if (!IsPlain(*scalar) || scalar->Factor() != 1.0 || array.Factor() != 1.0)
        return scalar.Convert(smallest); // either may still change its type with its factor
    // Where it is going to be widened to the type of the array it takes that at once.
    bool const widened = IsInSet<IntegerTypes>(array.ElemType()) &&
                         TypedChunk::SizeOf(smallest) < array.ElemSize() && array.ElemSize() <= 4 &&
                         (value >= 0 || !TypedChunk::IsUnsignedInteger(array.ElemType()));
    DataType const type = widened ? array.ElemType() : smallest;
    if (TypedChunk::SizeOf(type) > 4)
        scalar.Convert(type);
    else if (type != scalar.Type())
        scalar.Replace(ScalarOf(value, type));
}

/// Two integer operands of different factors leave the integer world.
void EqualizeFactors(OperandPair& operands)
{
    Operand& x = operands.x;
    Operand& y = operands.y;
    // The floating operand takes the factor of the other, since only floats change it without
    // rounding.
    if (!IsInSet<FloatTypes>(y.Type()) && IsInSet<FloatTypes>(x.Type())) {
        x.EnsureFactor(y->Factor());
        return;
    }
    if (!IsInSet<FloatTypes>(y.Type()))
        y.Convert(DataTypeBase::Double);
    y.EnsureFactor(x->Factor());
}

} // namespace

void PrepareScalar(OperandPair& operands, OpRequest const& request)
{
    if (operands.XIsScalar())
        PrepareScalar(operands.x, *operands.y, request);
    else if (operands.YIsScalar())
        PrepareScalar(operands.y, *operands.x, request);
}

void PrepareFactors(OperandPair& operands, OpRequest const& request)
{
    if (request.op.operands == OperandFactors::equal && !request.no_factor &&
        operands.x->Factor() != operands.y->Factor() && operands.BothIn<NumericTypes>())
        EqualizeFactors(operands);
    // Settled: under "no_factor" too, since callers combine raw values with the other operators
    // alone.
    if (request.op.operands == OperandFactors::dropped)
        for (Operand* operand : {&operands.x, &operands.y})
            if ((*operand)->Factor() != 1.0 && IsInSet<NumericTypes>(operand->Type()))
                operand->Replace(EnsureNoRawFactor(operand->Pointer()));
}

} // namespace NKelmic::ops
