#ifndef MEMBLOCK_VECTOR_ELEMTYPECHANGE_INTERNAL_H
#define MEMBLOCK_VECTOR_ELEMTYPECHANGE_INTERNAL_H

#include <memblock/core/dataitem.h>
#include <memblock/vector/vector.h>

namespace NKelmic {

// What classes of the upper folders want done differently where vectors change their type or
// length; imaging implements these hooks.

class Image;

/// Stands around a change of the element type, which drops the cache with all that is recorded in
/// it. What an image says of itself there is put back. Does nothing for other objects.
class ElemTypeChange {
public:
    explicit ElemTypeChange(Vector& v);
    void PutBack() const;
    void Finish(); ///< also makes colours of Triple elements

private:
    Image* image_;
    DataItem stencil_count_;
    DataItem edge_width_;
};

/// Let a stencil count at least as many objects as its greatest pixel says. Does nothing for other
/// objects, and for pixels that wait for their initialization.
void CountObjects(Vector const& v);

/// The one-byte form of an image of integers; null for any other object.
DerivedPointer<Vector> ImageAsBytes(Vector const& v);

/// The vector itself; but if its class demands an element type (or factor 1.0) that it no longer
/// has, a plain vector on the same chunk.
DerivedPointer<Vector> PlainUnlessOwnType(DerivedPointer<Vector> const& v);

/// Throw if the class of the vector has a length that never changes.
void CheckLengthIsFree(Vector const& v);

// Objects of those classes that vectors give.

/// A list of pixels of an image of this size; the indices have been checked.
PMemBlock PixelListOf(DerivedPointer<Vector> const& indices, unsigned int width,
                      unsigned int height);

/// The range of the indices 0 to `length`, which is not included.
PMemBlock RangeOfIndices(unsigned int length);

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_ELEMTYPECHANGE_INTERNAL_H
