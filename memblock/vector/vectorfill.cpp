#include <memblock/vector/vector.h>

#include <memblock/base/number.h>
#include <memblock/vector/elemnumber_internal.h>
#include <memblock/vector/packedlimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace NKelmic {

namespace {

/// The filling value of an integer type that goes through a double.
template <class T>
T FillValue(SafeValue const& value)
{
    // Through double for all types but Int: a 64-bit value above 2^53 loses bits.
    double const rounded = RoundHalfAway(value.GetFloating());
    if (FitsElem<T>(rounded))
        return ToElem<T>(rounded);
    if constexpr (std::is_same_v<T, long long>)
        Raise(err_kind,
              "The initialization value does not fit in the destination type \"int64\": %d",
              rounded);
    else if constexpr (std::is_same_v<T, unsigned long long>)
        Raise(err_kind,
              "The initialization value does not fit in the destination type \"uint64\": %d",
              rounded);
    else
        Raise(err_kind, "The initialization value does not fit in the destination type: %d",
              rounded);
}

/// The stored form of the filling value. It is read before the vector is touched.
template <class T>
T StoredForm(SafeValue const& value)
{
    if constexpr (std::is_same_v<T, int>)
        return value.GetInt();
    else if constexpr (FloatTypes::has<T>)
        return static_cast<T>(value.GetFloating());
    else if constexpr (std::is_same_v<T, safestring>)
        return value.GetString();
    else if constexpr (std::is_same_v<T, PMemBlock>)
        return value.GetMemory();
    else if constexpr (std::is_same_v<T, DataItem>)
        return value;
    else
        return FillValue<T>(value);
}

} // namespace

template <class T>
void fill_tmpl(void* buffer, int length, SafeValue const& value, T*)
{
    T* const data = static_cast<T*>(buffer);
    std::fill(data, data + length, StoredForm<T>(value));
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template void fill_tmpl<T>(void*, int, SafeValue const&, T*);
MEMBLOCK_VALUE_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

void Vector::Fill(DataItem const& item)
{
    if (EditPacked(*this, [&](Vector& limits) { limits.Fill(item); }))
        return;
    SafeValue const value(item); // a copy: the item may be an element of this vector
    WithElemType<TypeUnion<NumericTypes, ObjectTypes>>(
        ElemType(), "Function fill_tmpl not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) {
            if constexpr (std::is_same_v<T, PMemBlock>) {
                // Asked once, for the first place: all elements are the same object.
                PMemBlock const object = value.GetMemory();
                AskForObjects(*this, 0, &object, std::min(Length(), 1U));
            }
            fill_tmpl<T>(Pointer(), static_cast<int>(Length()), value, nullptr);
        });
    Changed();
}

void Vector::Clear()
{
    if (EditPacked(*this, [](Vector& limits) { limits.Clear(); }))
        return;
    // A class that gives names to its objects may refuse empty places.
    PMemBlock const none;
    AskForObjects(*this, 0, &none, std::min(Length(), 1U));
    void* const data = Pointer();
    if (IsObject(ElemType())) {
        // Objects end and begin anew: zero bytes are no value of theirs.
        TypedChunk::Destroy_Buffer(data, Length(), ElemType());
        TypedChunk::Initialize_Buffer(data, Length(), ElemType());
    } else if (Length() > 0) {
        std::memset(data, 0, static_cast<unsigned long>(Length()) * ElemSize());
    }
    Changed();
}

} // namespace NKelmic
