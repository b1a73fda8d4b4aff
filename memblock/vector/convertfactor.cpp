#include <memblock/vector/convert_internal.h>

#include <memblock/serial/warning.h>
#include <memblock/vector/packedlimits_internal.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace NKelmic {

namespace {

constexpr unsigned int warning_precision = 1048576;

/// Summary values that a change of the factor only multiplies. Where an element is rounded, the
/// index of an extreme and all mean values are other ones afterwards.
class CarriedSummary {
public:
    CarriedSummary(Vector const& v, double ratio) : ratio_(ratio)
    {
        if (!(ratio > 0) || !std::isfinite(ratio) || SummaryIsOfBytes(v) || !v.PimplIfAny())
            return;
        for (Entry& entry : entries_)
            entry.known = v.ExistsSecondaryDouble(entry.key, entry.value);
    }

    /// Put back what is known; without memory for it, it is computed again when asked for.
    template <class T>
    void Restore(Vector const& v) const noexcept
    {
        try {
            Store<T>(v);
        } catch (std::bad_alloc const&) {
        }
    }

private:
    template <class T>
    void Store(Vector const& v) const
    {
        for (Entry const& entry : entries_) {
            if (!entry.known)
                continue;
            double const value = entry.value * ratio_;
            if constexpr (FloatTypes::has<T>) {
                T const stored = static_cast<T>(value);
                // What left the range of the type is infinite now, and another value is finite.
                if (std::isfinite(entry.value) && std::isfinite(stored))
                    v.SetSecondaryItem(entry.key, DataItem(static_cast<double>(stored)));
            } else if (entry.key == key_min || entry.key == key_max) {
                v.SetSecondaryItem(entry.key, IntegerItem<T>(RoundHalfAway(value)));
            } else {
                v.SetSecondaryItem(entry.key, DataItem(RoundHalfAway(value)));
            }
        }
    }

    template <class T>
    static DataItem IntegerItem(double value)
    {
        if constexpr (sizeof(T) < sizeof(int))
            return DataItem(static_cast<int>(value));
        else
            return DataItem(static_cast<T>(value));
    }

    struct Entry {
        int key;
        bool known = false;
        double value = 0.0;
    };
    Entry entries_[4] = {{key_min}, {key_max}, {key_finitemin}, {key_finitemax}};
    double ratio_;
};

/// Greatest and lowest element as doubles; the vector is not empty.
template <class T>
MinMax<double> DoubleRangeOf(Vector const& v)
{
    if (SummaryIsOfBytes(v))
        return MinMaxOf<false>(v.TypedPointer<T>(), v.Length()).template As<double>();
    return {v.SecondaryDouble(key_min, throw_always), v.SecondaryDouble(key_max, throw_always)};
}

template <class T>
void MultiplyFloats(T* data, unsigned int n, double ratio)
{
    for (unsigned int i = 0; i < n; ++i)
        // In double: a ratio cut to float would round a second time.
        data[i] = static_cast<T>(data[i] * ratio);
}

/// The integer type for the cooked values of a vector, by the thresholds of MinMax2Type.
DataType TypeOfCooked(Vector const& x)
{
    return WithElemType<IntegerTypes>(
        x.ElemType(), "Vector::EnsureFactor() not supported for vector type: %s",
        [&]<class T>(TypeTag<T>) {
            MinMax<double> const range = DoubleRangeOf<T>(x);
            // A negative factor turns the range round.
            double const a = range.min * x.Factor();
            double const b = range.max * x.Factor();
            return Vector::MinMax2Type(std::min(a, b), std::max(a, b));
        });
}

} // namespace

template <class T>
void ensure_factor_integral_tmpl(Vector* vector, T* data, double ratio)
{
    MinMax<double> const range = DoubleRangeOf<T>(*vector);
    double const max = range.max * ratio;
    double const min = range.min * ratio;
    if (!FitsElem<T>(RoundHalfAway(max)) || !FitsElem<T>(RoundHalfAway(min)))
        Raise(err_value,
              "Data overflow: either %g or %g does not fit into destination data type of %d byte, "
              "%s.",
              max, min, sizeof(T), *vector);
    unsigned int const n = vector->Length();
    for (unsigned int i = 0; i < n; ++i) {
        double const v = static_cast<double>(static_cast<wide_t<T>>(data[i])) * ratio;
        data[i] = ToElem<T>(v + std::copysign(0.5, v));
    }
}

void Vector::EnsureFactor(double factor)
{
    // Before any check: an unchanged factor must be possible for every object.
    if (factor == factor_ ||
        EditPacked(*this, [factor](Vector& limits) { limits.EnsureFactor(factor); }))
        return;
    DataType const type = ElemType();
    if (type == String || type == PolyType)
        return;
    // Before the first element changes.
    CheckFactor(factor);
    double const ratio = factor_ / factor;
    WithElemType<NumericTypes>(
        type, "Vector::EnsureFactor() not supported for vector type: %s", [&]<class T>(TypeTag<T>) {
            bool const multiply = ratio != 1.0 && Length() > 0;
            if constexpr (IntegerTypes::has<T>) {
                if (multiply)
                    ensure_factor_integral_tmpl(this, TypedPointer<T>(), ratio);
            } else if (multiply) {
                MultiplyFloats(TypedPointer<T>(), Length(), ratio);
            }
            CarriedSummary const summary(*this, ratio);
            SetFactor(factor);
            summary.template Restore<T>(*this);
        });
}

DerivedPointer<Vector> EnsureScalarFactor(DerivedPointer<Vector> x, double factor,
                                          ThrowHandlerFunc handler)
{
    if (x->Length() != 1)
        ThrowAssertException(__FILE__, __LINE__, "x->Length()==1");
    DerivedPointer<Vector> const clone(x->Clone(true));
    double value = 0;
    try {
        value = cref(x).Elem(0) * x->Factor();
        clone->EnsureFactor(factor);
    } catch (Exception const& e) {
        Throw(e, handler);
        return nullptr;
    }
    // Rounded to the other factor, a constant changes its value; the script should know.
    double const changed = cref(clone).Elem(0) * clone->Factor();
    if (std::fabs(value - changed) >= 1e-12)
        Warning(warning_precision,
                Text("Loss of precision; scalar operand changed %s -> %s because of nontrivial raw "
                     "factor of the other operand.",
                     str(value, 6), str(changed, 6)));
    return clone;
}

DerivedPointer<Vector> EnsureNoRawFactor(DerivedPointer<Vector> x)
{
    if (!x || x->Factor() == 1.0 || !IsInSet<NumericTypes>(x->ElemType()))
        return x;
    // Nothing is rounded here, so the element type can stay.
    if (x->Length() == 0 || IsInSet<FloatTypes>(x->ElemType())) {
        DerivedPointer<Vector> cooked(x->Clone(true));
        cooked->EnsureFactor(1.0);
        return cooked;
    }
    // By way of Double: the raw values may need more room than the cooked ones.
    DataType const type = TypeOfCooked(cref(x));
    auto cooked = PrivateCopy(cref(x).ConvertElemsToType(Vector::Double, true, true));
    cooked->EnsureFactor(1.0);
    return cref(cooked).ConvertElemsToType(type, true, true);
}

} // namespace NKelmic
