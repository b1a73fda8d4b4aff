#include <memblock/core/dataitem.h>

#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/vector/vector.h>

#include <climits>
#include <optional>

namespace NKelmic {

namespace {

/// Halves go away from zero. Settled: 0.5 is added and the rest cut off, nothing better.
double AddHalf(double v)
{
    return v > 0 ? v + 0.5 : v - 0.5;
}

std::optional<int> RoundToInt(double v)
{
    if (v >= INT_MIN && v <= INT_MAX) // false for NaN
        return static_cast<int>(AddHalf(v));
    return {};
}

} // namespace

PMemBlock const& DataItem::Block() const
{
    return *reinterpret_cast<PMemBlock const*>(bits_.value);
}

PMemBlock& DataItem::MemoryRef()
{
    static_assert(sizeof(PMemBlock) == sizeof(MemBlock*) &&
                  alignof(PMemBlock) == alignof(MemBlock*));
    if (bits_.type != it_memblock)
        ThrowAssertException("dataitem", __LINE__, "GetType() == it_memblock");
    return *reinterpret_cast<PMemBlock*>(bits_.value);
}

Vector* DataItem::AsVector() const
{
    return bits_.type == it_memblock ? MemCast<Vector>(Block()) : nullptr;
}

DataItem::View DataItem::AsText() const
{
    if (bits_.type == it_string)
        return Long();
    return {Chars(), strnlen(Chars(), max_inline)};
}

int DataItem::GetInt() const
{
    switch (bits_.type) {
    case it_shortstring:
    case it_string: {
        int i = 0;
        double d = 0;
        if (StrToNumber(GetString(), i, d))
            return i;
        if (auto const rounded = RoundToInt(d))
            return *rounded;
        break;
    }
    case it_int:
        return Load<int>();
    case it_double:
        if (auto const rounded = RoundToInt(Load<double>()))
            return *rounded;
        break;
    case it_pointer:
        Raise(err_value, "An attempt to convert a raw pointer to 32-bit int");
    case it_memblock:
        return Block() ? Block()->SecondaryInt(MemBlock::key_int, throw_never) : 0;
    case it_int64:
        if (auto const v = Load<long long>(); v >= INT_MIN && v <= INT_MAX)
            return static_cast<int>(v);
        break;
    case it_undefined:
        return 0;
    default:
        break;
    }
    Raise(err_value, "Cannot convert data item to int: %s", GetString());
}

long long DataItem::GetInt64() const
{
    constexpr double limit = 9223372036854775808.0;
    switch (bits_.type) {
    case it_shortstring:
    case it_string:
        return StringToInt64()(GetString());
    case it_int:
        return Load<int>();
    case it_double:
        // Settled: the limit itself is in range and gives the greatest value.
        if (double const v = Load<double>(); v >= -limit && v <= limit)
            return AddHalf(v) >= limit ? LLONG_MAX : static_cast<long long>(AddHalf(v));
        break;
    case it_pointer:
        return static_cast<long long>(reinterpret_cast<unsigned long>(Load<void*>()));
    case it_memblock:
        return GetInt();
    case it_int64:
        return Load<long long>();
    case it_undefined:
        return 0;
    default:
        break;
    }
    Raise(err_value, "Cannot convert data item to int64: %s", *this);
}

double DataItem::GetDouble() const
{
    switch (bits_.type) {
    case it_shortstring:
    case it_string: {
        int i = 0;
        double d = 0;
        return StrToNumber(GetString(), i, d) ? i : d;
    }
    case it_int:
        return Load<int>();
    case it_double:
        return Load<double>();
    case it_pointer:
        return 0.0;
    case it_memblock:
        return Block() ? Block()->SecondaryDouble(MemBlock::key_double, throw_never) : 0.0;
    case it_int64:
        return static_cast<double>(Load<long long>());
    default:
        break;
    }
    Raise(err_value, "Cannot convert data item to double: %s", GetString());
}

/// The one string of a string vector, detached from other owners; null for anything else.
safestring* DataItem::SingleString() const
{
    Vector* const vector = AsVector();
    if (!vector || vector->ElemType() != Vector::String || vector->Length() != 1 ||
        !vector->CanBeCast(Vector::String))
        return nullptr;
    return vector->StringPointer();
}

char const* DataItem::GetStringPointer() const
{
    if (bits_.type == it_shortstring)
        return Chars();
    if (bits_.type == it_string)
        return Long().c_str();
    if (bits_.type == it_memblock)
        return SingleStringRef().c_str();
    [[gnu::nonstring]] static char buffer[512];
    std::strncpy(buffer, GetString().c_str(), sizeof buffer);
    return buffer;
}

safestring const& DataItem::SingleStringRef() const
{
    safestring const* const text = SingleString();
    if (!text)
        Raise(err_kind, "Cannot cast data to String type: %s",
              bits_.type == it_memblock ? Describe(Block().Pointer()) : GetDescription());
    return *text;
}

void* DataItem::GetPointer() const
{
    if (bits_.type == it_pointer)
        return Load<void*>();
    if (Vector* const vector = AsVector())
        return vector->Pointer();
    Raise(err_value, "Cannot convert data item to void pointer: %s", GetString());
}

void* DataItem::GetPrivatePointer() const
{
    switch (bits_.type) {
    case it_shortstring:
    case it_int:
    case it_double:
    case it_pointer:
    case it_int64:
        return bits_.value;
    case it_memblock:
        return GetPointer();
    case it_string:
        return Long().data();
    default:
        return nullptr;
    }
}

PMemBlock DataItem::GetMemory() const
{
    switch (bits_.type) {
    case it_shortstring:
    case it_string:
        return Vector::CreateFrom(GetString());
    case it_int:
        return Vector::CreateFrom(Load<int>());
    case it_double:
        return Vector::CreateFrom(Load<double>());
    case it_memblock:
        return Block();
    case it_int64: {
        auto vector = Vector::Create(1, Vector::Int64, false, 0, 1.0);
        vector->SetElem(0, Load<long long>());
        return vector;
    }
    default:
        return {};
    }
}

PMemBlock DataItem::GetMemoryOfClass(char const* classname, bool may_be_null) const
{
    PMemBlock const block = GetMemory();
    if (!block && may_be_null)
        return {};
    if (block.Conforms(classname)) // false for null
        return block;
    if (block.Conforms("attribute"))
        for (char const* key : {"vector", "image"})
            if (PMemBlock inner = block->GetSubItemMemBlock(key, throw_never, nullptr);
                inner.Conforms(classname))
                return inner;
    Raise(err_value, "Cannot convert data item to %s: %s", classname, *this);
}

PMemBlock DataItem::GetMemoryClass(char const* classname, bool may_be_null) const
{
    return GetMemoryOfClass(classname, may_be_null);
}

ThreadSharablePointer<ThreadSharable> DataItem::GetSharable() const
{
    return bits_.type == it_sharable ? Load<ThreadSharable*>() : nullptr;
}

bool DataItem::IsSingleStringVector() const
{
    Vector const* const vector = AsVector();
    return vector && vector->ElemType() == Vector::String && vector->Length() == 1;
}

bool DataItem::IsString() const
{
    return IsText() || IsSingleStringVector();
}

} // namespace NKelmic
