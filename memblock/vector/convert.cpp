#include <memblock/vector/convert.h>

#include <memblock/vector/convert_internal.h>
#include <memblock/vector/elemtypechange_internal.h>
#include <memblock/vector/packedlimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <typeinfo>

namespace NKelmic {

namespace {

std::atomic<void (*)(bool)> performance_callback{nullptr};

/// The factor under which elements are left open; an image that turns Triple must have 1.0, and
/// there is nothing yet to bring there.
double FactorOfOpen(Vector const& v, DataType type)
{
    return type == Vector::Triple && v.Conforms("image") ? 1.0 : v.Factor();
}

/// The same buffer under another type; a copy of the bytes if they are not aligned for it.
TypedChunk ReadChunkAs(TypedChunk const& chunk, DataType type, unsigned long length)
{
    // Foreign buffers may begin anywhere: bytes from a file read as doubles need not be aligned.
    std::size_t const alignment = WithElemType<PlainTypes>(
        type, "Conversion not supported: %s", []<class T>(TypeTag<T>) { return alignof(T); });
    if (reinterpret_cast<std::uintptr_t>(chunk.Data()) % alignment == 0)
        return TypedChunk(length, type, chunk.Chunk(), chunk.GetOffset());
    TypedChunk const copy = OpenChunk(length, type);
    std::memcpy(copy.Data(), chunk.Data(), length * TypedChunk::SizeOf(type));
    return copy;
}

} // namespace

void SetConvertElemsToTypePerformanceCallback(void (*callback)(bool))
{
    performance_callback.store(callback);
}

DerivedPointer<Vector> PrivateCopy(DerivedPointer<Vector>&& v)
{
    if (!v)
        return nullptr;
    // Nobody else holds an object with a single count, so it may be changed in place.
    if (v->RefCount() > 1)
        return DerivedPointer<Vector>(v->Clone(true));
    v->ContentHasBeenChanged();
    v->SetConst(false);
    return std::move(v);
}

Converted ConvertContents(Vector const& v, DataType type, bool keep_factor)
{
    DataType const source = v.ElemType();
    bool const from_object = IsInSet<ObjectTypes>(source);
    bool const from_number = IsInSet<NumericTypes>(source);
    bool const to_number = IsInSet<NumericTypes>(type);
    if (from_object && to_number)
        return ObjectsToNumbers(v, type, keep_factor);
    if (from_number && IsInSet<ObjectTypes>(type))
        return NumbersToObjects(v, type);
    if (from_number && IsInSet<FloatTypes>(type))
        return NumbersToFloats(v, type);
    if (IsInSet<FloatTypes>(source) && to_number)
        return FloatsToIntegers(v, type, keep_factor);
    if (from_number && to_number)
        return IntegersToIntegers(v, type, keep_factor);
    // What is left has no conversion; floats on either side have texts of their own.
    if (type == Vector::Float)
        Raise(err_kind, "Conversion to float not supported: %s", v);
    if (type == Vector::Double)
        Raise(err_kind, "Conversion to double type not supported: %s", v);
    if (source == Vector::Float)
        Raise(err_kind, "Conversion from float not supported: %s", v);
    if (source == Vector::Double)
        Raise(err_kind, "Conversion from double not supported: %s", v);
    Raise(err_kind, "Conversion not supported: %s", v);
}

/// This object with other data, without a copy of its own payload where the class allows it.
DerivedPointer<Vector> Vector::CloneWith(TypedChunk const& chunk, double factor) const
{
    // A derived class knows more than elements, for which a clone of the whole object is needed.
    if (typeid(*this) == typeid(Vector)) {
        DerivedPointer<Vector> plain(new Vector(*this, chunk, factor));
        plain->CopyStickyAttributesFrom(*this);
        return plain;
    }
    DerivedPointer<Vector> clone(Clone(true));
    if (chunk.Type() != ElemType())
        clone->InstallConverted(chunk, factor);
    else
        clone->SetTypedChunk(chunk);
    return clone;
}

DerivedPointer<Vector> Vector::ConvertElemsToType(DataType type, bool contents,
                                                  bool keep_factor) const
{
    if (type == ElemType() || type == NoType)
        return DerivedPointer<Vector>(this);
    if (!IsInSet<AllTypes>(type))
        Raise(err_kind, "Conversion not supported: %s", *this);
    if (auto const limits = PackedLimits(*this))
        return cref(limits).ConvertElemsToType(type, contents, keep_factor);
    // Elements that nobody asked to keep, or none at all: nothing is converted, so nothing is
    // refused.
    if (!contents || Length() == 0)
        return CloneWith(OpenChunk(Length(), type), FactorOfOpen(*this, type));
    // An image turns into bytes by Depth8, which averages colours and scales by whole divisors.
    if (type == Byte && !keep_factor)
        if (DerivedPointer<Vector> bytes = ImageAsBytes(*this))
            return bytes;
    Converted const result = ConvertContents(*this, type, keep_factor);
    return CloneWith(result.chunk, result.factor);
}

void Vector::SetElemType(DataType type, bool contents, bool keep_factor)
{
    if (type == ElemType() || type == NoType)
        return;
    if (!IsInSet<AllTypes>(type))
        Raise(err_kind, "Conversion not supported: %s", *this);
    if (!contents) {
        ReadAs(type);
    } else if (Length() == 0) {
        Retype(type);
    } else {
        Converted const result = ConvertContents(*this, type, keep_factor);
        InstallConverted(result.chunk, result.factor);
    }
}

/// Derived classes that can't stay what they are with other elements change or refuse here.
void Vector::NotifyElemType(DataType type)
{
    SafeValue argument(static_cast<int>(type));
    DoVerb("notif_elmtyp_chng", 1, &argument);
}

/// The same bytes, or for objects new elements, under another type.
void Vector::ReadAs(DataType type)
{
    if (IsObject(type) || IsObject(ElemType()))
        return InstallConverted(NewChunk(Length(), type), factor_);
    unsigned long const length = chunk_.Length() * ElemSize() / SizeOf(type);
    if (length != chunk_.Length())
        CheckNewLength(length);
    std::as_const(*this).Pointer(); // a delayed initialization is for the old type
    SetTypedChunk(ReadChunkAs(chunk_, type, length));
}

void Vector::InstallConverted(TypedChunk const& chunk, double factor)
{
    // Both may refuse, so they come before the first change.
    NotifyElemType(chunk.Type());
    if (factor != factor_)
        CheckFactor(factor);
    ElemTypeChange change(*this);
    chunk_ = chunk;
    factor_ = factor;
    // The cache is of the old element type. What an image keeps there is not, and is put back.
    ResetPimpl();
    change.Finish();
}

void Vector::Retype(DataType type)
{
    InstallConverted(OpenChunk(Length(), type), FactorOfOpen(*this, type));
}

} // namespace NKelmic
