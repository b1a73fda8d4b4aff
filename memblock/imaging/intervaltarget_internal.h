#ifndef MEMBLOCK_IMAGING_INTERVALTARGET_INTERNAL_H
#define MEMBLOCK_IMAGING_INTERVALTARGET_INTERNAL_H

#include <memblock/imaging/intervalvector.h>

namespace NKelmic {

/// Structures have up to three layers. Files and scripts may nest more, even without end: a walk
/// over layers stops here.
constexpr int most_layers = 32;

/// What a target offers to intervals: elements, or the intervals of an interval vector.
inline unsigned int ItemCount(MemBlock const* target)
{
    if (auto const* layer = MemCast<IntervalVector>(target))
        return layer->IntervalCount();
    auto const* vector = MemCast<Vector>(target);
    return vector ? vector->Length() : 0;
}

/// The interval vector below, or null.
inline IntervalVector* Layer(PMemBlock const& target)
{
    return MemCast<IntervalVector>(target);
}

/// The index vector below that is no further layer, or null.
inline IndexVector* PixelList(PMemBlock const& target)
{
    return Layer(target) ? nullptr : MemCast<IndexVector>(target);
}

/// An index vector of `n` indices that are not initialized, into a target of these sizes.
DerivedPointer<IndexVector> OpenIndexVector(unsigned long n, IndexVector::TargetData const& target);

/// Whether both point into arrays of the same sizes.
inline bool SameTarget(IndexVector const& a, IndexVector const& b)
{
    int rank = a.TargetRank();
    if (rank != b.TargetRank())
        return false;
    while (rank > 0 && a.TargetDimSize(rank - 1) == b.TargetDimSize(rank - 1))
        --rank;
    return rank == 0;
}

/// The innermost index vector, to be written to: all layers above are made private. Null where the
/// innermost layer has another target.
DerivedPointer<IndexVector> OwnFinalTarget(IntervalVector& v);

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_INTERVALTARGET_INTERNAL_H
