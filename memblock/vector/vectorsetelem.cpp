#include <memblock/vector/vector.h>

#include <memblock/base/number.h>
#include <memblock/vector/elemnumber_internal.h>
#include <memblock/vector/packedlimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cmath>
#include <limits>

namespace NKelmic {

namespace {

using ElementTypes = TypeUnion<NumericTypes, ObjectTypes>;

/// Store a number; false, and nothing stored, if `T` can't hold it.
template <class T, class V>
bool StoreRaw(T* place, V raw)
{
    if constexpr (FloatTypes::has<T>) {
        if constexpr (std::is_same_v<V, double> && std::is_same_v<T, float>)
            // A finite value must not turn into an infinity on its way to a float.
            if (std::isfinite(raw) && std::fabs(raw) > std::numeric_limits<float>::max())
                return false;
        *place = static_cast<T>(raw);
        return true;
    } else {
        bool fits = false;
        if constexpr (std::is_same_v<V, double>)
            fits = FitsElem<T>(raw);
        else
            fits = InRange<T>(raw);
        if (fits)
            *place = ToElem<T>(raw);
        return fits;
    }
}

/// A number as an element that is an object.
template <class T, class V>
T AsObject(V value)
{
    if constexpr (std::is_same_v<T, DataItem>)
        return DataItem(value);
    else if constexpr (std::is_same_v<T, PMemBlock>)
        return memblock_tmpl(value);
    else if constexpr (std::is_same_v<V, double>)
        // Six digits, as every text of a number has unless a precision is asked for.
        return str(value, 6);
    else
        return str(value);
}

/// Put a stored form into its place; an object only where it fits beside the others.
template <class T>
void Place(Vector& v, unsigned int i, T&& stored)
{
    if constexpr (std::is_same_v<T, PMemBlock>)
        AskForObjects(v, i, &stored, 1);
    v.TypedPointer<T>()[i] = std::move(stored);
}

/// Store `raw` into a number element, `value` into an object element; false if it does not fit.
/// The test comes first: a refused value leaves a shared buffer shared.
template <class V>
bool StoreNumber(Vector& v, unsigned int i, V raw, V value)
{
    return WithElemTypeOr<ElementTypes>(
        v.ElemType(), [] { return false; },
        [&]<class T>(TypeTag<T>) {
            T stored{};
            if constexpr (ObjectTypes::has<T>)
                stored = AsObject<T>(value);
            else if (!StoreRaw(&stored, raw))
                return false;
            Place(v, i, std::move(stored));
            return true;
        });
}

/// The stored form of a 64-bit number.
template <class T, class V>
T FromInt64(V value, char const* refusal, char const* triple_refusal, char const* uint64_refusal)
{
    if constexpr (ObjectTypes::has<T>) {
        return AsObject<T>(value);
    } else {
        T stored{};
        if (StoreRaw(&stored, value))
            return stored;
        if constexpr (std::is_same_v<T, triple>)
            Raise(err_kind, triple_refusal, value);
        else if constexpr (std::is_same_v<T, unsigned long long>)
            Raise(err_kind, uint64_refusal, value);
        else
            Raise(err_kind, refusal, value, TypeToString(type_of<T>::value));
    }
}

} // namespace

void Vector::CheckSetIndex(unsigned int i) const
{
    if (i >= Length())
        Raise(err_kind, "Vector::SetElem() called with invalid index: %d (must be <%d)",
              static_cast<int>(i), Length());
}

void Vector::SetElem(unsigned int i, double value)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.SetElem(i, value); }))
        return;
    CheckSetIndex(i);
    // No division by 1.0: it would cost more than the store.
    double const raw = factor_ == 1.0 ? value : value / factor_;
    // A small factor may take a finite value beyond double: no infinity comes out of that.
    bool const beyond = ElemType() == Float && std::isinf(raw) && std::isfinite(value);
    if (beyond || !StoreNumber(*this, i, raw, value))
        Raise(err_kind, "Vector::SetElem(): Value (%s) out of range for data item: %s",
              str(value, 6), *this);
    Changed();
}

void Vector::SetElem(unsigned int i, int value)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.SetElem(i, value); }))
        return;
    CheckSetIndex(i);
    // An int is a raw value, which the factor does not touch; a double is a cooked one.
    if (!StoreNumber(*this, i, value, value))
        Raise(err_kind, "Vector::SetElem(): Value (%d) out of range for data item: %s", value,
              *this);
    Changed();
}

void Vector::SetElem(unsigned int i, unsigned int value)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.SetElem(i, value); }))
        return;
    CheckSetIndex(i);
    if (!StoreNumber(*this, i, value, value))
        Raise(err_kind, "Vector::SetElem(): Value (%u) out of range for data item: %s", value,
              *this);
    Changed();
}

template <class T>
void SetElemInt64(Vector& v, unsigned int i, long long value)
{
    T stored = FromInt64<T>(value, "Vector::SetElem(): Value (%d) out of range for data type: %s",
                            "Vector::SetElem(): Value (%d) out of range for data type: triple",
                            "Vector::SetElem(): Value (%d) out of range for data type: uint64");
    Place(v, i, std::move(stored));
}

template <class T>
void SetElemUInt64(Vector& v, unsigned int i, unsigned long long value)
{
    T stored = FromInt64<T>(value, "Vector::SetElem(): Value (%u) out of range for data type: %s",
                            "Vector::SetElem(): Value (%u) out of range for data type: triple",
                            nullptr); // uint64 holds them all
    Place(v, i, std::move(stored));
}

void Vector::SetElem(unsigned int i, long long value)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.SetElem(i, value); }))
        return;
    CheckSetIndex(i);
    WithElemType<ElementTypes>(ElemType(),
                               "Function SetElemInt64 not implemented for data type '%s'",
                               [&]<class T>(TypeTag<T>) { SetElemInt64<T>(*this, i, value); });
    Changed();
}

void Vector::SetElem(unsigned int i, unsigned long long value)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.SetElem(i, value); }))
        return;
    CheckSetIndex(i);
    WithElemType<ElementTypes>(ElemType(),
                               "Function SetElemUInt64 not implemented for data type '%s'",
                               [&]<class T>(TypeTag<T>) { SetElemUInt64<T>(*this, i, value); });
    Changed();
}

void Vector::SetElem(unsigned int i, safestring const& text)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.SetElem(i, text); }))
        return;
    CheckSetIndex(i);
    if (ElemType() == String) {
        *StringPointer(i) = text;
    } else if (ElemType() == PolyType) {
        *PolyTypePointer(i) = DataItem(text);
    } else if (ElemType() == PMemory) {
        Place(*this, i, PMemBlock(CreateFrom(text)));
    } else {
        // One reading says both what the number is and whether it is a whole, raw one.
        int whole = 0;
        double real = 0.0;
        // A whole number in a text is a raw value, as an int is.
        return StrToNumber(text, whole, real) ? SetElem(i, whole) : SetElem(i, real);
    }
    Changed();
}

void Vector::SetElem(unsigned int i, char const* text)
{
    SetElem(i, safestring(text ? text : ""));
}

void Vector::SetElem(unsigned int i, PMemBlock object)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.SetElem(i, object); }))
        return;
    CheckSetIndex(i);
    if (ElemType() == PMemory) {
        Place(*this, i, PMemBlock(object));
    } else if (ElemType() == PolyType) {
        *PolyTypePointer(i) = DataItem(object);
    } else {
        DerivedPointer<Vector> const source(object, StaticClass());
        // A polytype value has no kind for the upper half of these.
        bool const has_uint64 = source->ElemType() == UnsignedInt64 && source->Factor() == 1.0;
        if (ElemType() == UnsignedInt64 && has_uint64 && source->Length() > 0)
            return SetElem(i, *cref(source).UnsignedInt64Pointer());
        // A vector put into a number is its first element, cooked.
        DataItem const value = cref(source).GetDataItemWithFactor(0);
        if (value.GetType() == it_memblock) // a vector may hold itself: look no deeper
            Raise(err_kind, "Cannot insert into a vector: %s", object);
        return SetElem(i, value);
    }
    Changed();
}

void Vector::SetElem(unsigned int i, DataItem const& item)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.SetElem(i, item); }))
        return;
    CheckSetIndex(i);
    if (ElemType() == PolyType) {
        // A value element keeps the kind of the item; only typed elements convert.
        *PolyTypePointer(i) = item;
        return Changed();
    }
    switch (item.GetType()) {
    case it_shortstring:
    case it_string:
        return SetElem(i, item.GetString());
    case it_memblock:
        return SetElem(i, item.GetMemory());
    case it_int64:
        return SetElem(i, item.GetInt64());
    case it_double:
        return SetElem(i, item.GetDouble());
    case it_int:
        return SetElem(i, item.GetInt());
    default:
        Raise(err_kind, "Cannot insert into a vector: %s", item.GetExpression());
    }
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template void SetElemInt64<T>(Vector&, unsigned int, long long);                               \
    template void SetElemUInt64<T>(Vector&, unsigned int, unsigned long long);
MEMBLOCK_VALUE_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

} // namespace NKelmic
