#ifndef MEMBLOCK_VECTOR_PACKEDLIMITS_INTERNAL_H
#define MEMBLOCK_VECTOR_PACKEDLIMITS_INTERNAL_H

#include <memblock/vector/vector.h>

namespace NKelmic {

// What `IntervalVector` wants done differently where vectors work on their elements; it implements
// these hooks. The elements of an interval vector with separate ends are half of its limits.
// Whatever works on the elements of any vector, from `Vector::Erase` to the key "max", works there
// on the limits of the contiguous form. An edit ends in that form; a reader leaves the object as it
// is.

/// The lowest logical class of interval vectors.
constexpr int first_interval_class = 23;

bool HasSeparateEnds(Vector const& v); ///< false for all but interval vectors

/// Whether this is an interval vector with separate ends. Costs one comparison for all others.
inline bool HoldsStartsOnly(Vector const& v)
{
    return v.LgType() >= first_interval_class && HasSeparateEnds(v);
}

/// The number of elements that scripts see: of limits, not of starts.
inline unsigned int LimitCount(Vector const& v)
{
    return v.Length() + HoldsStartsOnly(v);
}

/// The contiguous form, another object, of an interval vector with separate ends. Null for
/// everything else, whose elements are what they seem.
DerivedPointer<Vector> PackedLimits(Vector const& v);

/// Make an interval vector what such another object is by now.
void TakePacked(Vector& v, Vector const& packed);

/// Do an edit on the contiguous form; if it throws, nothing has changed. False, and nothing done,
/// where the vector itself can be edited.
template <class Edit>
bool EditPacked(Vector& v, Edit&& edit)
{
    if (!HoldsStartsOnly(v))
        return false;
    DerivedPointer<Vector> const packed = PackedLimits(v);
    edit(*packed);
    TakePacked(v, cref(packed));
    return true;
}

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_PACKEDLIMITS_INTERNAL_H
