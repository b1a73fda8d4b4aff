// Ahead of the guard: memblock.h includes this header itself, at its end.
#include <memblock/core/memblock.h>

#ifndef MEMBLOCK_CORE_MEMCAST_H
#define MEMBLOCK_CORE_MEMCAST_H

namespace NKelmic {

/// The checked cast behind `DerivedPointer`: true if the object, which must not be null, is of
/// that class or converts to it.
///
/// Throws: 128 "Illegal MemBlock cast: %s --> %s".
MEMBLOCK_API bool MemBlockConformsInternal(PMemBlock const& block, char const* classname);

/// Get at the C++ class of an object: by its class name, also through the backward compatible
/// conversion, and by the type itself. Null if the object is not a T.
///
/// A class name answers for content: an image of logic class mask conforms to "mask" and is no
/// `Mask`. So nothing is ever cast down without this.
template <class T>
T* MemCast(PMemBlock const& p)
{
    return p.Conforms(T::StaticClass()) ? dynamic_cast<T*>(p.Pointer()) : nullptr;
}

/// The same for a plain pointer, without the backward compatible conversion.
template <class T>
T* MemCast(MemBlock* p)
{
    return p && p->Conforms(T::StaticClass()) ? dynamic_cast<T*>(p) : nullptr;
}

template <class T>
T const* MemCast(MemBlock const* p)
{
    return p && p->Conforms(T::StaticClass()) ? dynamic_cast<T const*>(p) : nullptr;
}

namespace NCast {
[[noreturn]] MEMBLOCK_API void RaiseIllegalCast(PMemBlock const& block, char const* classname);
[[noreturn]] MEMBLOCK_API void RaiseNotConforming(PMemBlock const& block, char const* classname);

/// The object as a T, null for null, 128 "Illegal MemBlock cast: %s --> %s" if it is none.
template <class T>
T* CastOrNull(PMemBlock const& p)
{
    if (!p)
        return nullptr;
    MemBlockConformsInternal(p, T::StaticClass());
    if (T* object = dynamic_cast<T*>(p.Pointer()))
        return object;
    RaiseIllegalCast(p, T::StaticClass());
}

/// The object as a T, 512 "Data does not conform to \"%s\" class: %s" if it is none or null.
template <class T>
T* CastForAssignment(PMemBlock const& p, char const* classname)
{
    if (p.Conforms(classname)) {
        if (T* object = dynamic_cast<T*>(p.Pointer()))
            return object;
    }
    RaiseNotConforming(p, classname);
}
} // namespace NCast

} // namespace NKelmic

#endif // MEMBLOCK_CORE_MEMCAST_H
