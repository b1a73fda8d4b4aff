#ifndef MEMBLOCK_VECTOR_VECTORCHUNK_INTERNAL_H
#define MEMBLOCK_VECTOR_VECTORCHUNK_INTERNAL_H

#include <memblock/core/typedchunk.h>

namespace NKelmic {

/// Throw 256 for a length that `int` positions can't count.
void CheckLength(unsigned long length);

/// A buffer of zeros, or of default-constructed objects.
TypedChunk NewChunk(unsigned long length, DataType type);

/// A buffer for a caller that overwrites it: plain bytes are not cleared, objects are constructed.
TypedChunk OpenChunk(unsigned long length, DataType type);

/// A copy of `count` elements from index `from`, which must be there.
TypedChunk CopyOfRange(TypedChunk const& source, unsigned long from, unsigned long count);

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_VECTORCHUNK_INTERNAL_H
