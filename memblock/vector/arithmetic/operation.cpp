#include <memblock/vector/arithmetic/op.h>

#include <memblock/core/imageclass.h>
#include <memblock/vector/arithmetic/dispatch_internal.h>
#include <memblock/vector/arithmetic/kernelpairs_internal.h>
#include <memblock/vector/arithmetic/resulttype_internal.h>
#include <memblock/vector/elemtypechange_internal.h>
#include <memblock/vector/packedlimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>
#include <cmath>

namespace NKelmic {

/// The one step of an operation that reaches into a vector.
class VectorOperation {
public:
    static void Retype(Vector& result, DataType type) { result.Retype(type); }
};

namespace ops {
namespace {

/// The greatest magnitude for which + and - of integers are computed in 32 bits.
constexpr double integer_limit = 1073741824.0;

/// The object that a kernel writes into.
struct Result {
    DerivedPointer<Vector> vector;
    bool bare = false; // of the array only type and elements make the result
    bool from_stencil = false;
};

/// The result is of the class and shape of the array operand; its contents are left open, since a
/// kernel writes them all.
Result MakeResult(OperandPair const& operands, DataType type)
{
    Vector const& array = operands.Array();
    if (IsBare(array))
        return {Vector::Create(OpenChunk(array.Length(), type), 1.0), true};
    Result result{DerivedPointer<Vector>(array.Clone(true))};
    result.from_stencil = array.LgType() == lg_stencil && array.Conforms("image");
    if (result.vector->ElemType() == type) // a stencil looks at the pixels that it gets
        result.vector->SetTypedChunk(result.from_stencil ? NewChunk(array.Length(), type)
                                                         : OpenChunk(array.Length(), type));
    else
        VectorOperation::Retype(*result.vector, type);
    result.vector->SetFactor(1.0);
    return result;
}

/// Only plain data carries a factor: an image of another class becomes data first.
void SetFactor(Vector& result, double factor)
{
    if (factor == result.Factor())
        return;
    if (factor != 1.0 && result.LgType() != 0 && result.Conforms("image"))
        result.DoSetLgType(0);
    result.SetFactor(factor);
}

void SetResultFactor(Vector& result, OperandPair const& operands, OpRequest const& request)
{
    double const factor = result.Factor();
    double const x = operands.x->Factor();
    double const y = operands.y->Factor();
    switch (request.op.result) {
    case ResultFactor::product:
        return SetFactor(result, factor * x * y);
    case ResultFactor::quotient:
        return SetFactor(result, factor * x / y);
    case ResultFactor::common:
        if (!IsPracticallyZero(x - y))
            ThrowAssertException(__FILE__, __LINE__,
                                 "IsPracticallyZero(x->Factor() - y->Factor())");
        return SetFactor(result, factor * x);
    case ResultFactor::of_x:
        return SetFactor(result, x);
    case ResultFactor::one:
        if (request.op.kind == OpKind::none) // no kernel computes with an unknown operator
            Raise(err_request, "Never happens (JQW98)");
    }
}

// ---- the routes ----------------------------------------------------------------------------

PMemBlock RunOnNumbersInStrings(OperandPair& operands, OpRequest const& request)
{
    for (Operand* operand : {&operands.x, &operands.y})
        if (operand->Type() == DataTypeBase::String)
            operand->Replace(ConvertToNumericVector(operand->Pointer()));
    return operands.x->op(request.name, operands.y.Pointer(), request.options);
}

Result RunOnStrings(OperandPair& operands, OpRequest const& request)
{
    for (Operand* operand : {&operands.x, &operands.y})
        if (IsInSet<NumericTypes>(operand->Type()) && (*operand)->Factor() != 1.0 &&
            !request.no_factor)
            operand->Replace(EnsureNoRawFactor(operand->Pointer()));
    return {StringOp(request.name, operands.x.Pointer(), operands.y.Pointer())};
}

/// The type in which two operands, one of them floating at least, are computed.
DataType FloatTypeOf(OperandPair const& operands, OpRequest const& request)
{
    static_assert(type_count<FloatTypes> == 2, "two different ones meet in Double");
    DataType const x = operands.x.Type(), y = operands.y.Type();
    if (request.fixed && IsInSet<FloatTypes>(request.route))
        return request.route;
    if (!IsInSet<FloatTypes>(x) || !IsInSet<FloatTypes>(y))
        return IsInSet<FloatTypes>(x) ? x : y;
    return x == y ? x : DataTypeBase::Double;
}

Result RunOnFloats(OperandPair& operands, OpRequest const& request)
{
    DataType type = FloatTypeOf(operands, request);
    operands.Convert(type);
    if (request.by_operator != OpRequest::any_type)
        type = request.by_operator;
    // A type that does not exist is refused by the conversion at the end.
    if (IsInSet<AllTypes>(request.requested) &&
        TypedChunk::SizeOf(request.requested) > TypedChunk::SizeOf(type))
        type = request.requested;
    Result result = MakeResult(operands, type);
    ApplyToFloats(operands, request, *result.vector);
    return result;
}

PMemBlock RunInDouble(OperandPair& operands, OpRequest const& request)
{
    operands.Convert(DataTypeBase::Double);
    return operands.x->op(request.name, operands.y.Pointer(), request.options);
}

/// Returns the whole answer where the operation ends outside the integers; null where `result`
/// holds what the kernel computed.
PMemBlock RunOnIntegers(OperandPair& operands, OpRequest const& request, Result& result)
{
    WidenNarrower(operands);
    Operand& x = operands.x;
    Operand& y = operands.y;
    if (x->ElemSize() != y->ElemSize())
        ThrowAssertException(__FILE__, __LINE__, "SizeOf(x->ElemType()) == SizeOf(y->ElemType())");

    bool const compares = request.op.kind == OpKind::comparison && IsInSet<KernelTypes>(x.Type());
    if (compares && x.Type() == y.Type() && IsBare(*x) && IsBare(*y)) {
        result = MakeResult(operands, DataTypeBase::Byte); // whatever their ranges
        ApplyToIntegers(operands, request, *result.vector);
        return {};
    }
    double const spread = request.options.GetValue("spread_factor", 1).GetDouble();
    Range xrange = RawRange(*x);
    Range yrange = RawRange(*y);
    if (spread != 1.0)
        for (double* bound : {&xrange.min, &xrange.max, &yrange.min, &yrange.max})
            *bound *= spread;
    bool const large = std::max(xrange.max, yrange.max) >= integer_limit - 1 ||
                       std::min(xrange.min, yrange.min) <= -integer_limit;
    if (large && !request.op.stays_integer)
        return RunInDouble(operands, request);

    DataType wanted = PredictType(request, xrange, yrange);
    if (x.Type() != y.Type())
        ReconcileSigns(operands, xrange, yrange);
    if (wanted == DataTypeBase::Double)
        return RunInDouble(operands, request);
    if (!compares) // comparisons write their bytes at once
        wanted = RaiseToWidth(wanted, x.Type());
    // Fails for 64-bit integers: small ones have no kernel.
    if (!compares && TypedChunk::SizeOf(wanted) < TypedChunk::SizeOf(x.Type()))
        ThrowAssertException(__FILE__, __LINE__, "SizeOf(restype) >= SizeOf(x->ElemType())");

    result = MakeResult(operands, wanted);
    ApplyToIntegers(operands, request, *result.vector);
    if (request.op.result == ResultFactor::quotient && !request.no_factor)
        SetFactor(*result.vector, result.vector->Factor() / spread);
    return {};
}

// ---- the end -------------------------------------------------------------------------------

/// Make the pixel list of the point operator. Every pair of coordinates must be in the image:
/// throws before any index leaves the operation.
PMemBlock PixelList(Result const& result, OperandPair const& operands, OpRequest const& request)
{
    int const width = request.options.GetValue("image_width", 0).GetInt();
    int const height = request.options.GetValue("image_height", 0).GetInt();
    if (width <= 0 || height <= 0)
        Raise(err_kind, "Cannot determine image dimensions for point() vector operation.");
    auto const pixels = static_cast<unsigned long long>(width) * static_cast<unsigned>(height);
    unsigned int const* index = cref(result.vector).UnsignedIntPointer(0);
    for (unsigned int i = 0; i < result.vector->Length(); ++i)
        if (index[i] >= pixels)
            Raise(err_request, "Invalid point() operands for element %d: x=%d, y=%d", i,
                  (*operands.x)[operands.XIsScalar() ? 0 : i],
                  (*operands.y)[operands.YIsScalar() ? 0 : i]);
    return PixelListOf(result.vector, static_cast<unsigned int>(width),
                       static_cast<unsigned int>(height));
}

PMemBlock Finished(Result result, OperandPair const& operands, OpRequest const& request)
{
    if (!request.no_factor)
        SetResultFactor(*result.vector, operands, request);
    if (request.op.kind == OpKind::point)
        return PixelList(result, operands, request);
    bool const on_request = request.requested != OpRequest::any_type;
    DataType const wanted = on_request ? request.requested : request.by_operator;
    if (wanted != OpRequest::any_type && result.vector->ElemType() != wanted)
        result.vector =
            result.vector->ConvertElemsToType(wanted, true, !on_request || request.no_factor);
    if (request.no_factor)
        result.vector->SetFactor(1.0);
    if (request.op.kind == OpKind::negation && result.from_stencil &&
        result.vector->Conforms("image"))
        result.vector->SetLgType("mask");
    CountObjects(*result.vector);
    return result.bare ? result.vector : PlainUnlessOwnType(result.vector);
}

/// The answer of '=' and '#' for operands that cannot be compared element by element.
PMemBlock WholeComparison(char op)
{
    return Vector::CreateFrom(op == '#' ? 1 : 0);
}

bool ComparesWholes(Operator const& op)
{
    return op.kind == OpKind::comparison && op.commutes;
}

/// The steps of one operation, each of which may end it.
PMemBlock Run(OperandPair operands, OpRequest const& request)
{
    Simplify(operands);
    unsigned const xlen = operands.x->Length();
    unsigned const ylen = operands.y->Length();
    if (xlen != ylen && xlen != 1 && ylen != 1) {
        if (ComparesWholes(request.op))
            return WholeComparison(request.name);
        Raise(err_value, "Cannot apply operation '%c' to vectors of lengths %d and %d elements.",
              request.name, xlen, ylen);
    }
    PrepareScalar(operands, request);
    if (xlen == 0 || ylen == 0)
        return xlen == 0 ? operands.x.Pointer() : operands.y.Pointer();

    if (operands.AnyOf(DataTypeBase::String))
        return request.op.strings ? Finished(RunOnStrings(operands, request), operands, request)
                                  : RunOnNumbersInStrings(operands, request);
    PrepareFactors(operands, request);
    if (request.op.kind == OpKind::point)
        for (Operand* operand : {&operands.x, &operands.y})
            if (IsInSet<FloatTypes>(operand->Type()))
                operand->Convert(DataTypeBase::UnsignedInt);

    if (operands.AnyIn<FloatTypes>() || (request.fixed && IsInSet<FloatTypes>(request.route)))
        return Finished(RunOnFloats(operands, request), operands, request);
    if (!operands.BothIn<IntegerTypes>())
        Raise(err_request, "Vector::op(): data types not supported: (%s) (%s)", *operands.x,
              *operands.y);
    Result result;
    if (PMemBlock const done = RunOnIntegers(operands, request, result))
        return done;
    return Finished(std::move(result), operands, request);
}

} // namespace
} // namespace ops

PMemBlock Vector::op(char operation, PMemBlock other, op_options const& options) const
{
    Vector* const vector = ops::AsVector(other);
    if (vector == nullptr) {
        if (ops::ComparesWholes(ops::Find(operation)))
            return ops::WholeComparison(operation);
        if (!other)
            Raise(err_value, "Missing second operand for the operation '%c'.", operation);
        Raise(err_request, "Operation '%c' not supported with \"%s\" and \"%s\" type operands.",
              operation, Class(), other->Class());
    }
    // The operand moves in: a caller that moved its only reference cannot notice what becomes of
    // it.
    DerivedPointer<Vector> y(vector);
    other = PMemBlock();
    if (auto const limits = PackedLimits(cref(y)))
        y = limits;
    return ops::Run({ops::Operand(*this), ops::Operand(std::move(y))},
                    ops::OpRequest(operation, options));
}

bool IsPracticallyZero(double value)
{
    return std::fabs(value) < 1e-12;
}

void throw_no_float_support()
{
    Raise(err_request, "Operation not implemented for floating-point data.");
}

} // namespace NKelmic
