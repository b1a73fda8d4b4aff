#ifndef MEMBLOCK_IMAGING_TARGETDATA_INTERNAL_H
#define MEMBLOCK_IMAGING_TARGETDATA_INTERNAL_H

#include <memblock/imaging/indexvector.h>

#include <optional>

namespace NKelmic {

/// Write one of the keys by which scripts describe a target; nothing for any other key. False: the
/// value was refused and reported.
std::optional<bool> SetTargetKey(IndexVector::TargetData& target, safestring const& key,
                                 SafeValue const& value, ThrowHandlerFunc handler);

/// Offer the fields of a target to a visitor.
void VisitTarget(IndexVector::TargetData const& target, MemBlockVisitor& visitor,
                 safestring const& path);

/// The cooked elements as UnsignedInt with factor 1.0; the argument itself if it is so.
DerivedPointer<Vector> AsIndices(DerivedPointer<Vector> v);

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_TARGETDATA_INTERNAL_H
