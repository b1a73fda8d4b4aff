#include <memblock/vector/op.h>

#include <memblock/imaging/elemtypechange_internal.h>
#include <memblock/imaging/indexvector.h>
#include <memblock/imaging/packedlimits_internal.h>
#include <memblock/vector/op_kernels.h>
#include <memblock/vector/operand_internal.h>
#include <memblock/vector/optypes_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace NKelmic {

using namespace ops;

namespace {

/// The greatest magnitude for which + and - of integers are computed in 32 bits.
constexpr double integer_limit = 1073741824.0;

/// lg_type of images: a stencil, whose logical negation is a mask.
constexpr int lg_stencil = 13;

/// The greatest value of an integer type; infinity for any other.
double GreatestInteger(DataType type)
{
    return WithElemTypeOr<IntegerTypes>(
        type, [] { return std::numeric_limits<double>::infinity(); },
        []<class T>(Elem<T>) { return static_cast<double>(std::numeric_limits<T>::max()); });
}

bool Is64BitInteger(DataType type)
{
    return type == DataTypeBase::Int64 || type == DataTypeBase::UnsignedInt64;
}

/// An integer in a vector of its own, under a type that holds it.
DerivedPointer<Vector> ScalarOf(double value, DataType type)
{
    TypedChunk const chunk = OpenChunk(1, type);
    WithElemTypeOr<IntegerTypes>(
        type, [] {}, [&]<class T>(Elem<T>) { *static_cast<T*>(chunk.Data()) = T(value); });
    return Vector::Create(chunk, 1.0);
}

} // namespace

/// One run of an operator: the steps in order, each of which may end it.
class VectorOperation {
public:
    VectorOperation(char op, Vector const& x, DerivedPointer<Vector> y, op_options const& options);
    PMemBlock Run();

private:
    bool XIsScalar() const { return x_->Length() == 1 && y_->Length() != 1; }
    bool YIsScalar() const { return y_->Length() == 1 && x_->Length() != 1; }
    Vector const& Array() const { return XIsScalar() ? y_.Shape() : x_.Shape(); }

    void PrepareScalar(Operand& scalar, Vector const& other);
    void EqualizeFactors();
    void DropFactors();
    void ChooseResultType();
    void RunOnStrings();
    PMemBlock RunOnNumbersInStrings();
    void RunOnFloats();
    PMemBlock RunOnIntegers();
    PMemBlock RunInDouble();
    void WidenNarrower();
    void ReconcileSigns(Range x, Range y);
    void MakeResult(DataType type);
    void DispatchFloats();
    void DispatchIntegers(op_options const& options);
    void RunKernel();
    void SetFactor(double factor);
    void SetResultFactor();
    void CheckPoints() const;
    PMemBlock Finish();

    static constexpr auto no_request = static_cast<DataType>(-1);

    char op_;
    Operand x_;
    Operand y_;
    op_options const& options_;
    bool no_factor_;
    bool fixed_;                        // some result type is wanted, by the caller or the operator
    DataType route_;                    // that type: a floating one takes the floating route
    DataType requested_ = no_request;   // the caller's "result_type"
    DataType by_operator_ = no_request; // what the operator itself asks for at the end
    bool from_stencil_ = false;
    bool bare_ = false; // the array is: then its type and elements make the result
    DerivedPointer<Vector> result_;
};

VectorOperation::VectorOperation(char op, Vector const& x, DerivedPointer<Vector> y,
                                 op_options const& options)
    : op_(op), x_(x), y_(std::move(y)), options_(options),
      no_factor_(options.GetFlag("no_factor", false)), route_(DataTypeBase::Double)
{
    // Made once: it is too long for a string without allocation. Never destroyed, as jobs may
    // outlive all statics.
    static auto const& fixed = *new safestring("fixed_result_type");
    fixed_ = options.GetFlag(fixed, false);
    if (!fixed_)
        return;
    route_ = static_cast<DataType>(options.GetValue("result_type", DataTypeBase::Double).GetInt());
    requested_ = static_cast<DataType>(options.GetValue("result_type", no_request).GetInt());
}

PMemBlock VectorOperation::Run()
{
    for (Operand* operand : {&x_, &y_})
        if (operand->Type() == DataTypeBase::PMemory)
            if (auto simple = AttemptConversionToSimpleVector(operand->Pointer()))
                operand->Replace(simple);

    unsigned const xlen = x_->Length();
    unsigned const ylen = y_->Length();
    if (xlen != ylen && xlen != 1 && ylen != 1) {
        if (op_ == '#' || op_ == '=')
            return Vector::CreateFrom(op_ == '#' ? 1 : 0);
        Raise(err_value, "Cannot apply operation '%c' to vectors of lengths %d and %d elements.",
              op_, xlen, ylen);
    }
    if (XIsScalar())
        PrepareScalar(x_, *y_);
    else if (YIsScalar())
        PrepareScalar(y_, *x_);
    if (xlen == 0 || ylen == 0)
        return xlen == 0 ? x_.Pointer() : y_.Pointer();

    if (x_.Type() == DataTypeBase::String || y_.Type() == DataTypeBase::String) {
        if (!OpImplementedForStrings(op_))
            return RunOnNumbersInStrings();
        RunOnStrings();
        return Finish();
    }
    EqualizeFactors();
    DropFactors();
    ChooseResultType();
    if (IsInSet<FloatTypes>(x_.Type()) || IsInSet<FloatTypes>(y_.Type()) ||
        (fixed_ && IsInSet<FloatTypes>(route_))) {
        RunOnFloats();
        return Finish();
    }
    if (!IsInSet<IntegerTypes>(x_.Type()) || !IsInSet<IntegerTypes>(y_.Type()))
        Raise(err_request, "Vector::op(): data types not supported: (%s) (%s)", *x_, *y_);
    if (PMemBlock const done = RunOnIntegers())
        return done;
    return Finish();
}

/// A scalar takes the factor of the array where the two are added, and the smallest type that
/// holds it, so that it never widens the array.
void VectorOperation::PrepareScalar(Operand& scalar, Vector const& other)
{
    if (!IsInSet<NumericTypes>(scalar.Type()))
        return;
    if ((op_ == '+' || op_ == '-') && !no_factor_ &&
        !IsPracticallyZero(scalar->Factor() - other.Factor()))
        scalar.Replace(EnsureScalarFactor(scalar.Pointer(), other.Factor(), throw_always));
    if (!IsInSet<IntegerTypes>(scalar.Type()))
        return;
    double const value = scalar->Elem(0);
    DataType const smallest = Vector::MinMax2Type(value, value);
    if (!IsPlain(*scalar) || scalar->Factor() != 1.0 || other.Factor() != 1.0)
        return scalar.Convert(smallest); // either may still change its type with its factor
    // Where it is going to be widened to the type of the array it takes that at once.
    bool const widened = IsInSet<IntegerTypes>(other.ElemType()) &&
                         TypedChunk::SizeOf(smallest) < other.ElemSize() && other.ElemSize() <= 4 &&
                         (value >= 0 || !TypedChunk::IsUnsignedInteger(other.ElemType()));
    DataType const type = widened ? other.ElemType() : smallest;
    if (TypedChunk::SizeOf(type) > 4)
        scalar.Convert(type);
    else if (type != scalar.Type())
        scalar.Replace(ScalarOf(value, type));
}

/// Two integer operands of different factors leave the integer world.
void VectorOperation::EqualizeFactors()
{
    bool const needed = IsOneOf(op_, "+-=#<>()") && !no_factor_ && x_->Factor() != y_->Factor() &&
                        IsInSet<NumericTypes>(x_.Type()) && IsInSet<NumericTypes>(y_.Type());
    if (!needed)
        return;
    if (!IsInSet<FloatTypes>(y_.Type()) && IsInSet<FloatTypes>(x_.Type())) {
        x_.EnsureFactor(y_->Factor());
        return;
    }
    if (!IsInSet<FloatTypes>(y_.Type()))
        y_.Convert(DataTypeBase::Double);
    y_.EnsureFactor(x_->Factor());
}

/// Bits, shifts, remainders and coordinates are those of the cooked values. Settled: under
/// "no_factor" too, since callers combine raw values with the other operators alone.
void VectorOperation::DropFactors()
{
    if (!IsOneOf(op_, "~aoxlrp"))
        return;
    for (Operand* operand : {&x_, &y_})
        if ((*operand)->Factor() != 1.0 && IsInSet<NumericTypes>(operand->Type()))
            operand->Replace(EnsureNoRawFactor(operand->Pointer()));
}

void VectorOperation::ChooseResultType()
{
    if (op_ == 'p') {
        for (Operand* operand : {&x_, &y_})
            if (IsInSet<FloatTypes>(operand->Type()))
                operand->Convert(DataTypeBase::UnsignedInt);
        fixed_ = true;
        route_ = DataTypeBase::UnsignedInt;
    } else if (!fixed_ && (op_ == '!' || IsOneOf(op_, comparisons))) {
        by_operator_ = DataTypeBase::Byte;
    } else if (!fixed_ && op_ == '/') {
        fixed_ = true; // integers divide into Double, unless the caller wants them rounded
    }
}

// ---- strings -------------------------------------------------------------------------------

PMemBlock VectorOperation::RunOnNumbersInStrings()
{
    for (Operand* operand : {&x_, &y_})
        if (operand->Type() == DataTypeBase::String)
            operand->Replace(ConvertToNumericVector(operand->Pointer()));
    return x_->op(op_, y_.Pointer(), options_);
}

void VectorOperation::RunOnStrings()
{
    for (Operand* operand : {&x_, &y_})
        if (IsInSet<NumericTypes>(operand->Type()) && (*operand)->Factor() != 1.0 && !no_factor_)
            operand->Replace(EnsureNoRawFactor(operand->Pointer()));
    result_ = StringOp(op_, x_.Pointer(), y_.Pointer());
}

// ---- floating numbers ----------------------------------------------------------------------

void VectorOperation::RunOnFloats()
{
    DataType const wider = x_.Type() == y_.Type() ? x_.Type() : DataTypeBase::Double;
    DataType type = fixed_ && IsInSet<FloatTypes>(route_) ? route_
                    : !IsInSet<FloatTypes>(x_.Type())     ? y_.Type()
                    : !IsInSet<FloatTypes>(y_.Type())     ? x_.Type()
                                                          : wider;
    x_.Convert(type);
    y_.Convert(type);
    if (by_operator_ != no_request)
        type = by_operator_;
    // A type that does not exist is refused by the conversion at the end.
    if (IsInSet<AllTypes>(requested_) && TypedChunk::SizeOf(requested_) > TypedChunk::SizeOf(type))
        type = requested_;
    MakeResult(type);
    DispatchFloats();
}

namespace {

/// The floating kernels that exist.
template <class T, class R>
concept FloatPair = std::is_same_v<R, unsigned char> ||
    (std::is_floating_point_v<R> && sizeof(T) <= sizeof(R));

/// The integer kernels that exist: the result type is never narrower than the operands.
template <class T, class R>
concept IntegerPair = sizeof(T) <= sizeof(R);

using KernelTypes = TypeSet<int, unsigned int, short, unsigned short, char, unsigned char, triple>;

[[noreturn]] void RaiseNoFloatKernel(DataType result)
{
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

} // namespace

void VectorOperation::DispatchFloats()
{
    DataType const result = result_->ElemType();
    auto const missed = [&] { RaiseNoFloatKernel(result); };
    WithElemTypeOr<FloatTypes>(x_.Type(), missed, [&]<class T>(Elem<T>) {
        WithElemTypeOr<TypeSet<float, double, unsigned char>>(
            result, missed, [&]<class R>(Elem<R>) {
                if constexpr (FloatPair<T, R>)
                    ApplyOpSimple(op_, x_->TypedPointer<T>(), x_->Length(), y_->TypedPointer<T>(),
                                  y_->Length(), result_->TypedPointer<R>(), result_->Length(),
                                  options_);
                else
                    missed();
            });
    });
}

// ---- integers ------------------------------------------------------------------------------

PMemBlock VectorOperation::RunInDouble()
{
    x_.Convert(DataTypeBase::Double);
    y_.Convert(DataTypeBase::Double);
    return x_->op(op_, y_.Pointer(), options_);
}

/// Returns the result where the operation ends outside the integers, null where `result_` holds it.
PMemBlock VectorOperation::RunOnIntegers()
{
    WidenNarrower();
    if (x_->ElemSize() != y_->ElemSize())
        ThrowAssertException(__FILE__, __LINE__, "SizeOf(x->ElemType()) == SizeOf(y->ElemType())");

    bool const compares = IsOneOf(op_, comparisons) && !Is64BitInteger(x_.Type());
    if (compares && x_.Type() == y_.Type() && IsBare(*x_) && IsBare(*y_)) {
        MakeResult(DataTypeBase::Byte); // whatever their ranges
        DispatchIntegers(options_);
        return {};
    }
    double const spread = options_.GetValue("spread_factor", 1).GetDouble();
    Range x = RawRange(*x_);
    Range y = RawRange(*y_);
    if (spread != 1.0)
        for (double* bound : {&x.min, &x.max, &y.min, &y.max})
            *bound *= spread;
    bool const large =
        std::max(x.max, y.max) >= integer_limit - 1 || std::min(x.min, y.min) <= -integer_limit;
    if (large && !IsOneOf(op_, integer_operators))
        return RunInDouble();

    DataType wanted = PredictType(op_, x, y, options_);
    if (x_.Type() != y_.Type())
        ReconcileSigns(x, y);
    if (wanted == DataTypeBase::Double)
        return RunInDouble();
    if (!compares) // comparisons write their bytes at once
        wanted = RaiseToWidth(wanted, x_.Type());
    if (!compares && TypedChunk::SizeOf(wanted) < TypedChunk::SizeOf(x_.Type()))
        ThrowAssertException(__FILE__, __LINE__, "SizeOf(restype) >= SizeOf(x->ElemType())");

    MakeResult(wanted);
    RunKernel();
    if (op_ == '/' && !no_factor_)
        SetFactor(result_->Factor() / spread);
    return {};
}

/// The narrower operand takes the type of the wider one. A negative value has no place in an
/// unsigned type: it takes the signed one of the same width, and signs are reconciled later.
void VectorOperation::WidenNarrower()
{
    unsigned const xwidth = x_->ElemSize();
    unsigned const ywidth = y_->ElemSize();
    if (xwidth == ywidth)
        return;
    Operand& narrow = xwidth < ywidth ? x_ : y_;
    Operand& wide = xwidth < ywidth ? y_ : x_;
    bool const negative_into_unsigned = TypedChunk::IsUnsignedInteger(wide.Type()) &&
                                        !TypedChunk::IsUnsignedInteger(narrow.Type()) &&
                                        RawRange(*narrow).min < 0;
    if (!negative_into_unsigned) {
        narrow.Convert(wide.Type());
    } else if (wide.Type() == DataTypeBase::Triple) {
        narrow.Convert(DataTypeBase::Int);
        wide.Convert(DataTypeBase::Int);
    } else {
        narrow.Convert(SignedTwin(wide.Type()));
    }
}

/// Bring two types of equal width and different sign together, without touching a bit where the
/// values allow it.
void VectorOperation::ReconcileSigns(Range x, Range y)
{
    auto const turn = [](Operand& operand, Range range) {
        unsigned const width = TypedChunk::SizeOf(operand.Type());
        bool const is_unsigned = TypedChunk::IsUnsignedInteger(operand.Type());
        DataType twin = operand.Type();
        if (!is_unsigned && range.min >= 0)
            twin = UnsignedTwin(operand.Type());
        else if (is_unsigned && std::ldexp(1.0, static_cast<int>(8 * width) - 1) > range.max)
            twin = SignedTwin(operand.Type());
        if (twin == operand.Type())
            return false;
        operand.Reinterpret(twin);
        return true;
    };
    if (!turn(x_, x) && !turn(y_, y)) {
        if (TypedChunk::SizeOf(x_.Type()) >= sizeof(int))
            ThrowAssertException(__FILE__, __LINE__, "SizeOf(x->ElemType())<sizeof(int)");
        x_.Convert(DataTypeBase::Int);
        y_.Convert(DataTypeBase::Int);
    }
    if (x_.Type() != y_.Type())
        ThrowAssertException(__FILE__, __LINE__, "x->ElemType()==y->ElemType()");
}

/// Where a narrower type is wanted in the end, what stands for x/0 is the greatest value of that.
void VectorOperation::RunKernel()
{
    double const wanted = GreatestInteger(requested_);
    bool const narrower = op_ == '/' && wanted < GreatestInteger(result_->ElemType());
    if (!narrower || options_.GetValue("infinity", DataItem()).IsDefined())
        return DispatchIntegers(options_);
    op_options guarded = options_;
    guarded.SetValue("infinity", wanted);
    DispatchIntegers(guarded);
    options_.SetOutput("nancount", 0);
}

void VectorOperation::DispatchIntegers(op_options const& options)
{
    DataType const result = result_->ElemType();
    auto const missed = [&] { RaiseNoIntegerKernel(result); };
    WithElemType<KernelTypes>(
        x_.Type(), "Vector::op(): data type not supported: %s",
        [&]<class T>(Elem<T>) {
            auto const run = [&]<class R>(Elem<R>) {
                T const* x = x_->TypedPointer<T>();
                T const* y = y_->TypedPointer<T>();
                R* dest = result_->TypedPointer<R>();
                if constexpr (IntegerPair<T, R>) {
                    ApplyOp(op_, x, x_->Length(), y, y_->Length(), dest, result_->Length(),
                            options);
                } else if constexpr (std::is_same_v<R, unsigned char>) {
                    ops::CompareKernel<T, R>(
                        op_, {x, y, XIsScalar(), YIsScalar(), result_->Length()}, dest);
                    options.SetOutput("nancount", 0);
                } else {
                    missed();
                }
            };
            WithElemTypeOr<KernelTypes>(result, missed, run);
        },
        err_request);
}

// ---- result --------------------------------------------------------------------------------

/// The result is of the class and shape of the array operand; its contents are left open, since a
/// kernel writes them all.
void VectorOperation::MakeResult(DataType type)
{
    Vector const& array = Array();
    bare_ = IsBare(array);
    if (bare_) {
        result_ = Vector::Create(OpenChunk(array.Length(), type), 1.0);
        return;
    }
    from_stencil_ = array.LgType() == lg_stencil && array.Conforms("image");
    result_ = DerivedPointer<Vector>(array.Clone(true));
    if (result_->ElemType() == type) // a stencil looks at the pixels that it gets
        result_->SetTypedChunk(from_stencil_ ? NewChunk(array.Length(), type)
                                             : OpenChunk(array.Length(), type));
    else
        result_->Retype(type);
    result_->SetFactor(1.0);
}

/// Only plain data carries a factor: an image of another class becomes data first.
void VectorOperation::SetFactor(double factor)
{
    if (factor == result_->Factor())
        return;
    if (factor != 1.0 && result_->LgType() != 0 && result_->Conforms("image"))
        result_->DoSetLgType(0);
    result_->SetFactor(factor);
}

void VectorOperation::SetResultFactor()
{
    double const factor = result_->Factor();
    switch (op_) {
    case '*':
        return SetFactor(factor * x_->Factor() * y_->Factor());
    case '/':
        return SetFactor(factor * x_->Factor() / y_->Factor());
    case '+':
    case '-':
        if (!IsPracticallyZero(x_->Factor() - y_->Factor()))
            ThrowAssertException(__FILE__, __LINE__,
                                 "IsPracticallyZero(x->Factor() - y->Factor())");
        return SetFactor(factor * x_->Factor());
    case '&':
    case '^':
    case '|':
        return SetFactor(x_->Factor());
    default:
        if (!IsOneOf(op_, "~=#<>()!aoxlrpc"))
            Raise(err_request, "Never happens (JQW98)");
    }
}

/// Every pair of coordinates must lie in the image. Throws before any index leaves the operation.
void VectorOperation::CheckPoints() const
{
    int const width = options_.GetValue("image_width", 0).GetInt();
    int const height = options_.GetValue("image_height", 0).GetInt();
    if (width <= 0 || height <= 0)
        Raise(err_kind, "Cannot determine image dimensions for point() vector operation.");
    auto const pixels = static_cast<unsigned long long>(width) * static_cast<unsigned>(height);
    unsigned int const* index = cref(result_).UnsignedIntPointer(0);
    for (unsigned int i = 0; i < result_->Length(); ++i)
        if (index[i] >= pixels)
            Raise(err_request, "Invalid point() operands for element %d: x=%d, y=%d", i,
                  (*x_)[XIsScalar() ? 0 : i], (*y_)[YIsScalar() ? 0 : i]);
}

PMemBlock VectorOperation::Finish()
{
    if (!no_factor_)
        SetResultFactor();
    if (op_ == 'p') {
        CheckPoints();
        return IndexVector::Create(
            result_, static_cast<unsigned int>(options_.GetValue("image_width", 0).GetInt()),
            static_cast<unsigned int>(options_.GetValue("image_height", 0).GetInt()));
    }
    bool const on_request = requested_ != no_request;
    DataType const wanted = on_request ? requested_ : by_operator_;
    if (wanted != no_request && result_->ElemType() != wanted)
        result_ = result_->ConvertElemsToType(wanted, true, !on_request || no_factor_);
    if (no_factor_)
        result_->SetFactor(1.0);
    if (op_ == '!' && from_stencil_ && result_->Conforms("image"))
        result_->SetLgType("mask");
    CountObjects(*result_);
    return bare_ ? result_ : PlainUnlessOwnType(result_);
}

/// The element-wise binary operator. See VectorOperation for the steps.
PMemBlock Vector::op(char operation, PMemBlock other, op_options const& options) const
{
    Vector* const vector = AsVector(other);
    if (vector == nullptr) {
        if (operation == '#' || operation == '=')
            return CreateFrom(operation == '#' ? 1 : 0);
        if (!other)
            Raise(err_value, "Missing second operand for the operation '%c'.", operation);
        Raise(err_request, "Operation '%c' not supported with \"%s\" and \"%s\" type operands.",
              operation, Class(), other->Class());
    }
    // The operand moves in: whoever gave it away alone owns nothing else that could tell.
    DerivedPointer<Vector> y(vector);
    other = PMemBlock();
    if (auto const limits = PackedLimits(cref(y)))
        y = limits;
    return VectorOperation(operation, *this, std::move(y), options).Run();
}

// ---- small helpers -------------------------------------------------------------------------

bool IsPracticallyZero(double value)
{
    return std::fabs(value) < 1e-12;
}

void throw_no_float_support()
{
    Raise(err_request, "Operation not implemented for floating-point data.");
}

} // namespace NKelmic
