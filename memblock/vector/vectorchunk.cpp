#include <memblock/vector/vectorchunk_internal.h>

#include <memblock/base/alloc.h>
#include <memblock/vector/vector.h>

#include <new>
#include <typeinfo>

namespace NKelmic {

namespace {

constexpr unsigned long max_length = 0x7FFFFFFF;

/// A plain vector holds what it is given.
bool WatchesObjects(Vector const& v)
{
    return v.ElemType() == DataTypeBase::PMemory && typeid(v) != typeid(Vector);
}

} // namespace

void AskForObjects(Vector& v, unsigned int first, PMemBlock const* objects, unsigned long count)
{
    if (!WatchesObjects(v))
        return;
    SafeValue arguments[] = {static_cast<int>(first), static_cast<int>(count),
                             static_cast<void*>(const_cast<PMemBlock*>(objects))};
    // A verb, not a virtual function: plug-ins are built against the order of the slots.
    v.DoVerb("notif_objects_chng", 3, arguments);
}

void AskForContent(Vector& v, TypedChunk const& chunk)
{
    if (!WatchesObjects(v))
        return;
    SafeValue type(static_cast<int>(chunk.Type()));
    v.DoVerb("notif_elmtyp_chng", 1, &type);
    if (chunk.Type() != DataTypeBase::PMemory)
        return;
    // The class looks at the objects themselves, so they must be there.
    chunk.DelayedInitialize();
    AskForObjects(v, 0, static_cast<PMemBlock const*>(chunk.Data()), chunk.Length());
}

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
    // Left as it comes: every caller writes all elements, and clearing them first would cost a
    // second pass over memory.
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
