#include <memblock/vector/arithmetic/dispatch_internal.h>

#include <memblock/vector/arithmetic/kernelpairs_internal.h>
#include <memblock/vector/arithmetic/op.h>

#include <limits>

namespace NKelmic::ops {
namespace {

[[noreturn]] void RaiseNoFloatKernel(DataType result)
{
    // The texts only say which branch had no kernel.
    switch (static_cast<int>(result)) {
    case DataTypeBase::Float:
        Raise(err_kind, "Vector::op(): ERR A1");
    case DataTypeBase::Double:
        Raise(err_kind, "Vector::op(): ERR A2");
    case DataTypeBase::Byte:
        Raise(err_kind, "Vector::op(): ERR VR1758");
    default:
        Raise(err_kind, "Vector::op(): ERR A3");
    }
}

[[noreturn]] void RaiseNoIntegerKernel(DataType result)
{
    switch (TypedChunk::SizeOf(result)) {
    case 4:
        Raise(err_kind, "Vector::op(): ERR B1");
    case 3:
        Raise(err_kind, "Vector::op(): ERR B2");
    case 2:
        Raise(err_kind, "Vector::op(): ERR B3");
    default:
        Raise(err_kind, "Vector::op(): ERR B4");
    }
}

/// The greatest value of an integer type; infinity for any other.
double GreatestInteger(DataType type)
{
    return WithElemTypeOr<IntegerTypes>(
        type, [] { return std::numeric_limits<double>::infinity(); },
        []<class T>(TypeTag<T>) { return static_cast<double>(std::numeric_limits<T>::max()); });
}

void Dispatch(OperandPair const& operands, char op, op_options const& options, Vector& result)
{
    Operand const& x = operands.x;
    Operand const& y = operands.y;
    auto const missed = [&] { RaiseNoIntegerKernel(result.ElemType()); };
    WithElemType<KernelTypes>(
        x.Type(), "Vector::op(): data type not supported: %s",
        [&]<class T>(TypeTag<T>) {
            // Every pair is compiled into the dispatch; those without a kernel end in the report.
            auto const run = [&]<class R>(TypeTag<R>) {
                T const* const xs = x->TypedPointer<T>();
                T const* const ys = y->TypedPointer<T>();
                R* const dest = result.TypedPointer<R>();
                if constexpr (IntegerPair<T, R>) {
                    ApplyOp(op, xs, x->Length(), ys, y->Length(), dest, result.Length(), options);
                } else if constexpr (std::is_same_v<R, unsigned char>) {
                    CompareToBytes(op, xs, x->Length(), ys, y->Length(), dest, result.Length());
                    options.SetOutput("nancount", 0);
                } else {
                    missed();
                }
            };
            WithElemTypeOr<KernelTypes>(result.ElemType(), missed, run);
        },
        err_request);
}

} // namespace

void ApplyToFloats(OperandPair const& operands, OpRequest const& request, Vector& result)
{
    Operand const& x = operands.x;
    Operand const& y = operands.y;
    auto const missed = [&] { RaiseNoFloatKernel(result.ElemType()); };
    WithElemTypeOr<FloatTypes>(x.Type(), missed, [&]<class T>(TypeTag<T>) {
        WithElemTypeOr<FloatResultTypes>(result.ElemType(), missed, [&]<class R>(TypeTag<R>) {
            if constexpr (FloatPair<T, R>)
                ApplyOpSimple(request.name, x->TypedPointer<T>(), x->Length(), y->TypedPointer<T>(),
                              y->Length(), result.TypedPointer<R>(), result.Length(),
                              request.options);
            else
                missed();
        });
    });
}

void ApplyToIntegers(OperandPair const& operands, OpRequest const& request, Vector& result)
{
    op_options const& options = request.options;
    // Where a narrower type is wanted in the end, x/0 is stored as the greatest value of that.
    bool const narrower = request.op.result == ResultFactor::quotient &&
                          GreatestInteger(request.requested) < GreatestInteger(result.ElemType());
    if (!narrower || options.GetValue("infinity", DataItem()).IsDefined())
        return Dispatch(operands, request.name, options, result);
    // A copy: the options are the caller's, except for the outputs, which are written back below.
    op_options guarded = options;
    guarded.SetValue("infinity", GreatestInteger(request.requested));
    Dispatch(operands, request.name, guarded, result);
    // The count went into the copy, and a quotient counts nothing.
    options.SetOutput("nancount", 0);
}

} // namespace NKelmic::ops
