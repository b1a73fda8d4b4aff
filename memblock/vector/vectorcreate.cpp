#include <memblock/vector/vector.h>

#include <memblock/base/alloc.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>

namespace NKelmic {

namespace {

/// The element ahead of index 0 may be asked for, a position before the buffer not.
unsigned long CheckedFirst(int first)
{
    if (first < 0)
        Raise(err_request, "Vector::Create() called with a negative first index: %d", first);
    return static_cast<unsigned long>(first);
}

TypedChunk NewChunkWithFirst(unsigned long length, DataType type, unsigned long first)
{
    if (first == 0)
        return NewChunk(length, type);
    if (TypedChunk::IsObject(type))
        Raise(err_request, "Operation not supported: VC139");
    // Each by itself: the sum of two lengths beyond the limit could wrap and pass.
    CheckLength(length);
    CheckLength(length + first);
    unsigned long const width = TypedChunk::SizeOf(type);
    return TypedChunk(length, type, MemChunk((length + first) * width), first * width);
}

/// The whole text as a number, within the range of Int elements; false if it is not one.
bool ReadWhole(safestring const& text, long& number)
{
    bool const hexadecimal =
        text.size() > 1 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    char* end = nullptr;
    long const read = std::strtol(text.c_str(), &end, hexadecimal ? 16 : 10);
    // Elements are Int: a number beyond is the nearest one, as strtol does it for long.
    number =
        std::clamp<long>(read, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
    return end != text.c_str() && *end == '\0';
}

} // namespace

DerivedPointer<Vector> Vector::Create()
{
    return DerivedPointer<Vector>(new Vector);
}

DerivedPointer<Vector> Vector::Create(TypedChunk const& chunk, double factor)
{
    return DerivedPointer<Vector>(new Vector(chunk, factor));
}

DerivedPointer<Vector> Vector::Create(TypedChunk&& chunk, double factor)
{
    return DerivedPointer<Vector>(new Vector(std::move(chunk), factor));
}

DerivedPointer<Vector> Vector::Create(unsigned long length, DataType type, bool, int first,
                                      double factor)
{
    return Create(NewChunkWithFirst(length, type, CheckedFirst(first)), factor);
}

DerivedPointer<Vector> Vector::Create(unsigned long length, DataType type, void* buffer,
                                      void (*deleter)(void*), int first, double factor)
{
    return Create(ForeignChunk(length, type, buffer, CheckedFirst(first), deleter), factor);
}

DerivedPointer<Vector> Vector::Create(unsigned long length, DataType type, void* buffer,
                                      void (*deleter)(void*, void*), void* context, int first,
                                      double factor)
{
    return Create(ForeignChunk(length, type, buffer, CheckedFirst(first), deleter, context),
                  factor);
}

template <class T>
DerivedPointer<Vector> memblock_tmpl(T const& value)
{
    // By value, not over Fill: a scalar is made for nearly each answer of a script.
    TypedChunk chunk = NewChunk(1, type_of<T>::value);
    *static_cast<T*>(chunk.Data()) = value;
    return Vector::Create(chunk, 1.0);
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template DerivedPointer<Vector> memblock_tmpl<T>(T const&);
MEMBLOCK_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

DerivedPointer<Vector> Vector::CreateFrom(int value)
{
    return memblock_tmpl(value);
}

DerivedPointer<Vector> Vector::CreateFrom(double value)
{
    return memblock_tmpl(value);
}

DerivedPointer<Vector> Vector::CreateFrom(safestring const& text)
{
    return memblock_tmpl(text);
}

DerivedPointer<Vector> Vector::CreateFrom(char const* text)
{
    return memblock_tmpl(safestring(text ? text : ""));
}

DerivedPointer<Vector> Vector::CreateFrom(DataItem const& item)
{
    return memblock_tmpl(item);
}

DerivedPointer<Vector> Vector::CreateFrom(PMemBlock const& block)
{
    return memblock_tmpl(block);
}

DerivedPointer<Vector> Vector::CreateFrom(Carrier const& carrier)
{
    CheckLength(carrier.size); // while the carrier still owns the memory
    MemChunk chunk(carrier);
    return Create(TypedChunk(chunk.Size(), Byte, chunk, 0), 1.0);
}

void SafeStringDeleter(void*, void* string)
{
    delete static_cast<safestring*>(string);
}

DerivedPointer<Vector> Vector::CreateFromSafeString(safestring& text)
{
    CheckLength(text.size());
    auto owner = std::make_unique<safestring>();
    // Swapped, not copied: the bytes stay where they are, and the caller keeps an empty text.
    owner->swap(text);
    safestring* const taken = owner.release(); // from here on the chunk's
    return Create(taken->size(), Byte, taken->data(), SafeStringDeleter, taken, 0, 1.0);
}

DerivedPointer<Vector> Vector::MakeSequence(safestring const& from, safestring const& to)
{
    long first = 0;
    long last = 0;
    if (!ReadWhole(from, first) || !ReadWhole(to, last)) {
        // Not two numbers: scripts get both ends back as they wrote them.
        auto texts = Create(2, String, true, 0, 1.0);
        texts->StringPointer()[0] = from;
        texts->StringPointer()[1] = to;
        return texts;
    }
    // In long, for the distance between two Ints is no Int.
    long const step = last < first ? -1 : 1;
    long const count = (last - first) * step + 1;
    auto numbers = Create(count, Int, true, 0, 1.0);
    int* out = numbers->IntPointer();
    for (long i = 0; i < count; ++i)
        out[i] = static_cast<int>(first + i * step);
    return numbers;
}

} // namespace NKelmic
