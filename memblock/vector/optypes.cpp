#include <memblock/vector/optypes_internal.h>

#include <memblock/base/number.h>

#include <algorithm>
#include <cmath>

namespace NKelmic::ops {

namespace {

template <class T>
Range RangeOf(T const* data, unsigned int n)
{
    T low = data[0];
    T high = data[0];
    for (unsigned int i = 1; i < n; ++i) {
        low = data[i] < low ? data[i] : low;
        high = data[i] > high ? data[i] : high;
    }
    return {static_cast<double>(low), static_cast<double>(high)};
}

/// The range that the result of an integer operator can take.
Range PredictRange(char op, Range x, Range y, op_options const& options)
{
    switch (op) {
    case '+':
        return {x.min + y.min, x.max + y.max};
    case '-':
        if (options.GetFlag("neg_abs", false) || options.GetFlag("neg_zero", false))
            return {0, x.max - y.min};
        return {x.min - y.max, x.max - y.min};
    case '*':
        return {std::min({x.min * y.min, x.min * y.max, x.max * y.min, x.max * y.max}),
                std::max(x.max * y.max, x.min * y.min)};
    case '/': {
        double const m =
            std::max({std::abs(x.min), std::abs(x.max), std::abs(y.min), std::abs(y.max)});
        return {-m, m};
    }
    case '~': {
        if (x.min >= 0 && y.min >= 0)
            return {0, y.max};
        double const m = std::max(std::abs(y.min), std::abs(y.max));
        return {-m, m};
    }
    case 'p':
        return {0, 16777216.0};
    case 'l':
    case 'r':
        if (y.min < 0)
            Raise(err_request, "Shifting by negative amount of bits (%d) not supported.",
                  TruncToInt(y.min));
        if (op == 'r' && x.min < 0)
            Raise(err_request, "Righshifting of negative values (%d) not supported.",
                  TruncToInt(x.min));
        [[fallthrough]];
    case '&':
    case '^':
    case '|':
    case 'a':
    case 'o':
    case 'x':
        return {std::min(x.min, y.min), std::max(x.max, y.max)};
    default:
        Raise(err_request, "Vector::op(): unsupported operator: '%c'", op);
    }
}

} // namespace

DataType UnsignedTwin(DataType type)
{
    switch (TypedChunk::SizeOf(type)) {
    case 1:
        return DataTypeBase::Byte;
    case 2:
        return DataTypeBase::UnsignedShort;
    case 4:
        return DataTypeBase::UnsignedInt;
    default:
        return type;
    }
}

DataType SignedTwin(DataType type)
{
    switch (TypedChunk::SizeOf(type)) {
    case 1:
        return DataTypeBase::Char;
    case 2:
        return DataTypeBase::Short;
    case 4:
        return DataTypeBase::Int;
    case 8:
        return DataTypeBase::Int64;
    default:
        return type;
    }
}

/// Short vectors are looked through on the spot, which is quicker than a cache; a vector that has
/// its summary values, and every longer one, answers from them.
Range RawRange(Vector const& v)
{
    constexpr unsigned int short_vector = 64;
    if (v.Length() <= short_vector && v.PimplIfAny() == nullptr &&
        (IsPlain(v) || !v.Conforms("image")))
        return WithElemType<IntegerTypes>(
            v.ElemType(), "Vector::op(): data type not supported: %s",
            [&]<class T>(Elem<T>) { return RangeOf(v.TypedPointer<T>(), v.Length()); },
            err_request);
    return {v.SecondaryDouble(101, throw_always), v.SecondaryDouble(100, throw_always)};
}

DataType PredictType(char op, Range x, Range y, op_options const& options)
{
    if (op == '!' || IsOneOf(op, comparisons))
        return DataTypeBase::Byte;
    Range const range = PredictRange(op, x, y, options);
    if (op == '-' && range.max < 0 && range.min == 0) // every difference is replaced
        return DataTypeBase::Byte;
    return Vector::MinMax2Type(range.min, range.max);
}

DataType RaiseToWidth(DataType wanted, DataType operands)
{
    if (TypedChunk::SizeOf(wanted) >= TypedChunk::SizeOf(operands))
        return wanted;
    unsigned const width = TypedChunk::SizeOf(operands);
    if (TypedChunk::IsUnsignedInteger(wanted) && TypedChunk::IsUnsignedInteger(operands))
        return width == 2   ? DataTypeBase::UnsignedShort
               : width == 3 ? DataTypeBase::Triple
                            : DataTypeBase::UnsignedInt;
    return width == 2 ? DataTypeBase::Short : DataTypeBase::Int;
}

} // namespace NKelmic::ops
