#include <memblock/vector/vector.h>

#include <memblock/base/number.h>
#include <memblock/vector/elemtext_internal.h>

namespace NKelmic {

namespace {

PMemBlock const& NotNull(PMemBlock const& object, unsigned int i)
{
    if (!object)
        Raise(err_kind, "Element [%d] is NULL memblock pointer. ", i);
    return object;
}

/// One element as int or double; objects answer with their scalar.
template <class Number, class T>
Number ReadNumber(T const* data, unsigned int i)
{
    constexpr bool as_int = std::is_same_v<Number, int>;
    if constexpr (as_int && FloatTypes::has<T>)
        // Rounded, while an integer of another width is cut: a script reads 2.9999999 as 3.
        return TruncToInt(data[i] < 0 ? data[i] - 0.5 : data[i] + 0.5);
    else if constexpr (NumericTypes::has<T>)
        return static_cast<Number>(data[i]);
    else if constexpr (std::is_same_v<T, safestring>)
        return as_int ? StrToInt(data[i]) : StrToDouble(data[i]);
    else if constexpr (std::is_same_v<T, DataItem>)
        return as_int ? data[i].GetInt() : data[i].GetDouble();
    else if constexpr (std::is_same_v<T, PMemBlock>)
        return as_int ? NotNull(data[i], i)->SecondaryInt(MemBlock::key_int, throw_always)
                      : NotNull(data[i], i)->SecondaryDouble(MemBlock::key_double, throw_always);
    else
        return 0; // pointers
}

template <class T>
safestring ReadText(T const& value)
{
    if constexpr (NumericTypes::has<T>)
        return ElemText(value);
    else if constexpr (std::is_same_v<T, safestring>)
        return value;
    else if constexpr (std::is_same_v<T, DataItem>)
        return value.GetString();
    else
        return DataItem(value).GetString();
}

/// One element in the nearest kind of value.
template <class T>
DataItem ReadItem(T const& value)
{
    if constexpr (std::is_same_v<T, float>)
        return DataItem(static_cast<double>(value));
    else if constexpr (SignedTypes::has<T> && sizeof(T) < sizeof(int))
        return DataItem(static_cast<int>(value));
    else if constexpr (UnsignedTypes::has<T> && sizeof(T) < sizeof(int))
        return DataItem(static_cast<int>(static_cast<unsigned int>(value)));
    else
        return DataItem(value);
}

} // namespace

void Vector::CheckElemIndex(unsigned int i) const
{
    if (i >= Length())
        Raise(err_kind, "Vector index out of bounds (%d): %d", Length(), static_cast<int>(i));
}

int Vector::operator[](unsigned int i) const
{
    if (i >= Length())
        Raise(err_kind, "Vector::operator[]: index out of bounds (%d): %d", Length(),
              static_cast<int>(i));
    return WithElemType<AllTypes>(
        ElemType(), "Vector::operator[]: element type not supported: %s",
        [&]<class T>(TypeTag<T>) { return ReadNumber<int>(TypedPointer<T>(), i); });
}

double Vector::Elem(unsigned int i) const
{
    CheckElemIndex(i);
    return WithElemType<AllTypes>(
        ElemType(), "Vector::Elem(): element type not supported: %s",
        [&]<class T>(TypeTag<T>) { return ReadNumber<double>(TypedPointer<T>(), i); });
}

unsigned int Vector::ElemUInt(unsigned int i) const
{
    if (ElemType() != UnsignedInt)
        return static_cast<unsigned int>((*this)[i]);
    CheckElemIndex(i);
    return *UnsignedIntPointer(i);
}

PMemBlock Vector::ElemMemory(unsigned int i) const
{
    CheckElemIndex(i);
    return *PMemoryPointer(i);
}

int Vector::GetInt(int i) const
{
    return (*this)[static_cast<unsigned int>(i)];
}

double Vector::GetDouble(int i) const
{
    return Elem(static_cast<unsigned int>(i));
}

safestring Vector::GetString(int i) const
{
    CheckElemIndex(static_cast<unsigned int>(i));
    return WithElemType<AllTypes>(
        ElemType(), "Vector::GetString() not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) { return ReadText(TypedPointer<T>()[i]); });
}

DataItem Vector::GetDataItem(int i) const
{
    CheckElemIndex(static_cast<unsigned int>(i));
    return WithElemType<AllTypes>(
        ElemType(), "Vector::GetDataItem() not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) { return ReadItem(TypedPointer<T>()[i]); });
}

DataItem Vector::GetDataItemWithFactor(int i) const
{
    DataItem item = GetDataItem(i);
    if (factor_ != 1.0 && !IsObject(ElemType()))
        ApplyFactor(item, factor_);
    return item;
}

void ApplyFactor(DataItem& item, double factor)
{
    item = DataItem(item.GetDouble() * factor);
}

} // namespace NKelmic
