#include <memblock/core/typedchunk.h>

#include <memblock/core/dataitem.h>

#include <cstring>
#include <memory>

namespace NKelmic {

namespace {

/// Whether elements may change their place as plain bytes. A text holds the address of its own
/// short buffer; an object pointer and a polytype value hold nothing that tells where they are.
template <class T>
constexpr bool moves_as_bytes = !std::is_same_v<T, safestring>;

template <class T>
void relocate(T* dst, T* src, unsigned long count)
{
    if constexpr (moves_as_bytes<T>) {
        std::memmove(static_cast<void*>(dst), static_cast<void const*>(src), count * sizeof(T));
    } else {
        auto const one = [=](unsigned long i) {
            std::construct_at(dst + i, std::move(src[i]));
            std::destroy_at(src + i);
        };
        if (dst < src)
            for (unsigned long i = 0; i < count; ++i)
                one(i);
        else
            for (unsigned long i = count; i-- > 0;)
                one(i);
    }
}

/// Call `kernel` for the object types, `otherwise` with the byte count for all other elements.
template <class Kernel, class Otherwise>
void for_objects(DataType type, unsigned long count, Kernel&& kernel, Otherwise&& otherwise)
{
    if (count > 0)
        WithElemTypeOr<ObjectTypes>(
            type, [&] { otherwise(count * TypedChunk::SizeOf(type)); }, kernel);
}

void nothing(unsigned long) {}

} // namespace

unsigned TypedChunk::SizeOf(DataType type)
{
    return WithElemTypeOr<AllTypes>(
        type, []() -> unsigned { throw "TypedChunk::SizeOf(): unknown vector type"; },
        []<class T>(TypeTag<T>) { return static_cast<unsigned>(sizeof(T)); });
}

char const* TypedChunk::TypeToString(DataType type)
{
    return NKelmic::TypeToString(type);
}

bool TypedChunk::IsObject(DataType type)
{
    return IsInSet<ObjectTypes>(type);
}

bool TypedChunk::IsUnsignedInteger(DataType type)
{
    return IsInSet<UnsignedTypes>(type);
}

bool TypedChunk::IsInteger(DataType type)
{
    return IsInSet<IntegerTypes>(type);
}

void TypedChunk::Initialize_Buffer(void* raw, unsigned long count, DataType type)
{
    for_objects(
        type, count,
        [=]<class T>(TypeTag<T>) {
            std::uninitialized_value_construct_n(static_cast<T*>(raw), count);
        },
        nothing);
}

void TypedChunk::Copy_Buffer(void* live, void const* src, unsigned long count, DataType type)
{
    for_objects(
        type, count,
        [=]<class T>(TypeTag<T>) {
            std::copy_n(static_cast<T const*>(src), count, static_cast<T*>(live));
        },
        [=](unsigned long bytes) { std::memcpy(live, src, bytes); });
}

void TypedChunk::Init_Copy_Buffer(void* raw, void const* src, unsigned long count, DataType type)
{
    for_objects(
        type, count,
        [=]<class T>(TypeTag<T>) {
            std::uninitialized_copy_n(static_cast<T const*>(src), count, static_cast<T*>(raw));
        },
        [=](unsigned long bytes) { std::memcpy(raw, src, bytes); });
}

void TypedChunk::Destroy_Buffer(void* live, unsigned long count, DataType type)
{
    for_objects(
        type, count, [=]<class T>(TypeTag<T>) { std::destroy_n(static_cast<T*>(live), count); },
        nothing);
}

void TypedChunk::Init_Move_Buffer(void* raw, void* src, unsigned long count, DataType type)
{
    if (raw == src)
        return;
    for_objects(
        type, count,
        [=]<class T>(TypeTag<T>) { relocate(static_cast<T*>(raw), static_cast<T*>(src), count); },
        [=](unsigned long bytes) { std::memmove(raw, src, bytes); });
}

} // namespace NKelmic
