#include <memblock/vector/vectorchunk_internal.h>

#include <memblock/base/alloc.h>

#include <new>

namespace NKelmic {

namespace {

constexpr unsigned long max_length = 0x7FFFFFFF;

} // namespace

void CheckLength(unsigned long length)
{
    if (length > max_length)
        Raise(err_state, "Vector length %u is above the limit of %u elements.", length, max_length);
}

void CheckBuffer(void const* buffer, unsigned long length)
{
    if (!buffer && length > 0)
        Raise(err_kind, "A null buffer cannot hold %u elements.", length);
}

void CheckChunk(TypedChunk const& chunk)
{
    CheckLength(chunk.Length());
    if (!chunk.HasDelayed()) // which may bring the memory
        CheckBuffer(chunk.Chunk().Data(), chunk.Length());
}

TypedChunk NewChunk(unsigned long length, DataType type)
{
    CheckLength(length);
    // A temporary: while a second MemChunk lives, Init takes the buffer for shared.
    TypedChunk chunk(length, type, MemChunk(length * TypedChunk::SizeOf(type)), 0);
    chunk.Init();
    return chunk;
}

TypedChunk OpenChunk(unsigned long length, DataType type)
{
    if (TypedChunk::IsObject(type))
        return NewChunk(length, type);
    CheckLength(length);
    unsigned long const size = length * TypedChunk::SizeOf(type);
    void* const block = mb_malloc(size);
    if (!block && size > 0)
        throw std::bad_alloc();
    return TypedChunk(length, type, MemChunk(block, mb_free, size), 0);
}

TypedChunk CopyOfRange(TypedChunk const& source, unsigned long from, unsigned long count)
{
    source.DelayedInitialize();
    TypedChunk copy = OpenChunk(count, source.Type());
    if (count > 0)
        TypedChunk::Copy_Buffer(copy.Data(),
                                static_cast<char const*>(source.Data()) + from * source.ElemSize(),
                                count, source.Type());
    return copy;
}

} // namespace NKelmic
