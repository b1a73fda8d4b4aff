#include <memblock/vector/vector.h>

#include <memblock/vector/convert.h>
#include <memblock/vector/convert_internal.h>
#include <memblock/vector/elemtypechange_internal.h>
#include <memblock/vector/packedlimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

namespace NKelmic {

namespace {

/// The type that holds the elements of `mine` and those of `other` behind them.
DataType CoverForAppend(Vector const& mine, Vector const& other, bool other_factor)
{
    DataType const type = mine.ElemType();
    DataType const added = other.ElemType();
    if (other_factor && IsInSet<IntegerTypes>(type) && IsInSet<IntegerTypes>(added))
        // Under two factors the cooked values of integers are fractions of each other.
        return Vector::Double;
    if (type == added)
        return type;
    // Negative elements and unsigned ones meet in Double, although a wider signed type
    // would hold both. An empty vector has no negative element.
    bool const sign_mix = IsInSet<SignedTypes>(type) && IsInSet<UnsignedTypes>(added);
    if (sign_mix && mine.Length() > 0 && mine.SecondaryDouble(key_min, throw_always) < 0)
        return Vector::Double;
    return ChooseCoverType(type, added);
}

/// Copy elements into place; a failure leaves them unchanged or partly assigned, all alive.
void CopyElements(void* to, void const* from, unsigned long count, DataType type)
{
    if (count > 0)
        TypedChunk::Copy_Buffer(to, from, count, type);
}

char* At(void* data, unsigned long index, unsigned long width)
{
    return static_cast<char*>(data) + index * width;
}

DerivedPointer<Vector> WithType(DerivedPointer<Vector> const& v, DataType cover)
{
    try {
        // The caller reads of the append, not of the conversion that it needed.
        return cref(v).ConvertElemsToType(cover, true, true);
    } catch (Exception const&) {
        Raise(err_kind, "Vector::Append(): Could not convert another vector in my representation.");
    }
}

/// Settled: integers of another factor go through Double, also where the factor would divide.
DerivedPointer<Vector> WithFactor(DerivedPointer<Vector> v, double factor)
{
    if (!IsInSet<FloatTypes>(v->ElemType()))
        v = cref(v).ConvertElemsToType(Vector::Double, true, true);
    // The operand may be somebody else's object, and the conversion may have returned it as it is.
    v = PrivateCopy(std::move(v));
    v->EnsureFactor(factor);
    return v;
}

} // namespace

void Vector::Append(DerivedPointer<Vector> v)
{
    if (!v)
        return;
    if (!PMemBlock(v).Conforms("vector"))
        Raise(err_kind, "Cannot append non-vector to a vector: %s", v);
    if (auto limits = PackedLimits(cref(v)))
        v = limits;
    bool const numbers = IsInSet<NumericTypes>(ElemType()) && IsInSet<NumericTypes>(v->ElemType());
    bool const other_factor = numbers && v->Factor() != factor_;
    DataType const cover = CoverForAppend(*this, cref(v), other_factor);
    if (other_factor)
        v = WithFactor(std::move(v), factor_);
    if (cover != v->ElemType())
        v = WithType(v, cover);
    unsigned long const old_length = Length();
    unsigned long const added = v->Length(); // fixed now: v may be this vector
    CheckNewLength(old_length + added);
    // The common case grows in place; a wider type needs a new buffer anyhow.
    if (cover == ElemType())
        return AppendSameType(cref(v), added);

    // Made aside: this vector changes in one step that cannot fail half-way.
    TypedChunk whole = ConvertContents(*this, cover, true).chunk;
    whole.ResizeVector(old_length + added, true, false);
    CopyElements(At(whole.Data(), old_length, whole.ElemSize()), cref(v).Pointer(), added, cover);
    SetTypedChunk(whole);
}

void Vector::AppendSameType(Vector const& v, unsigned long added)
{
    unsigned long const old_length = Length();
    ResizeVector(old_length + added, true, true);
    void* const data = Pointer();
    try {
        // Appended to itself its buffer has just moved, so the old address is gone.
        CopyElements(At(data, old_length, ElemSize()), &v == this ? data : v.Pointer(), added,
                     ElemType());
    } catch (...) {
        Shorten(old_length);
        throw;
    }
    Changed();
    CountObjects(*this);
}

} // namespace NKelmic
