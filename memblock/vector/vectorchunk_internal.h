#ifndef MEMBLOCK_VECTOR_VECTORCHUNK_INTERNAL_H
#define MEMBLOCK_VECTOR_VECTORCHUNK_INTERNAL_H

#include <memblock/core/typedchunk.h>

namespace NKelmic {

/// Throw 256 for a length that `int` positions can't count.
void CheckLength(unsigned long length);

/// Throw 128 for null where elements must be.
void CheckBuffer(void const* buffer, unsigned long length);

/// Throw as the two above for a chunk that no vector can hold.
void CheckChunk(TypedChunk const& chunk);

/// A view of foreign memory, which is taken over; index 0 is `first` elements into it. Where this
/// throws the memory stays the caller's.
template <class... Release>
TypedChunk ForeignChunk(unsigned long length, DataType type, void* buffer, unsigned long first,
                        Release... release)
{
    CheckLength(length);
    CheckLength(length + first);
    CheckBuffer(buffer, length);
    unsigned long const width = TypedChunk::SizeOf(type);
    return TypedChunk(length, type, MemChunk(buffer, release..., (length + first) * width),
                      first * width);
}

/// A buffer of zeros, or of default-constructed objects.
TypedChunk NewChunk(unsigned long length, DataType type);

/// A buffer for a caller that overwrites it: plain bytes are not cleared, objects are constructed.
TypedChunk OpenChunk(unsigned long length, DataType type);

/// A copy of `count` elements from index `from`, which must be there.
TypedChunk CopyOfRange(TypedChunk const& source, unsigned long from, unsigned long count);

/// Ask a class that keeps something beside its objects, as the names of columns, for leave to hold
/// these from index `first` on. It raises if they do not fit.
void AskForObjects(Vector& v, unsigned int first, PMemBlock const* objects, unsigned long count);
/// The same for a whole new content, of any type.
void AskForContent(Vector& v, TypedChunk const& chunk);

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_VECTORCHUNK_INTERNAL_H
