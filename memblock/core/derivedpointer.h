// Ahead of the guard: memblock.h includes this header itself, at its end.
#include <memblock/core/memblock.h>

#ifndef MEMBLOCK_CORE_DERIVEDPOINTER_H
#define MEMBLOCK_CORE_DERIVEDPOINTER_H

#include <memblock/core/memcast.h>

#include <cstddef>
#include <type_traits>
#include <utility>

namespace NKelmic {

/// Owning pointer to an object of one class.
///
/// Two ways lead here from a `PMemBlock`, and they fail differently: construction takes null as
/// it is and raises 128 "Illegal MemBlock cast: %s --> %s" for another class; assignment, and
/// construction with a class name, raise 512 "Data does not conform to \"%s\" class: %s" for
/// another class and for null. Both may exchange the object that the source holds, see
/// `PMemBlock::MakeBackwardCompatAutoConversionsToConform`.
///
/// A const pointer gives a non-const object. Read through `cref`: the non-const forms of data
/// access copy a shared buffer.
template <class T>
class DerivedPointer : public PMemBlock {
    template <class D>
    static constexpr bool is_upcast = !std::is_same_v<D, T> && std::is_convertible_v<D*, T*>;

public:
    DerivedPointer() {}
    DerivedPointer(std::nullptr_t) {}
    explicit DerivedPointer(T const* object) : PMemBlock(object) {}
    DerivedPointer(DerivedPointer const& o) : PMemBlock(o) {}
    DerivedPointer(DerivedPointer&& o) noexcept : PMemBlock(std::move(o)) {}
    template <class D, class = std::enable_if_t<is_upcast<D>>>
    DerivedPointer(DerivedPointer<D> const& o) : PMemBlock(o)
    {
    }
    template <class D, class = std::enable_if_t<is_upcast<D>>>
    DerivedPointer(DerivedPointer<D>&& o) noexcept : PMemBlock(std::move(o))
    {
    }
    DerivedPointer(PMemBlock const& p) : PMemBlock(NCast::CastOrNull<T>(p)) {}
    DerivedPointer(PMemBlock const& p, char const* classname)
        : PMemBlock(NCast::CastForAssignment<T>(p, classname))
    {
    }
    ~DerivedPointer() {}
    DerivedPointer const& operator=(DerivedPointer const& o) const
    {
        Assign(o.block_);
        return *this;
    }
    DerivedPointer const& operator=(DerivedPointer&& o) const noexcept
    {
        PMemBlock::operator=(std::move(o));
        return *this;
    }
    template <class D, class = std::enable_if_t<is_upcast<D>>>
    DerivedPointer const& operator=(DerivedPointer<D> const& o) const
    {
        Assign(o.Pointer());
        return *this;
    }
    DerivedPointer const& operator=(std::nullptr_t) const
    {
        Assign(nullptr);
        return *this;
    }
    DerivedPointer const& operator=(PMemBlock const& p) const
    {
        Assign(NCast::CastForAssignment<T>(p, T::StaticClass()));
        return *this;
    }
    T* operator->() const { return Pointer(); } // no null test
    T& operator*() const { return *Pointer(); }
    // All ways in have checked the class, so this one cast down is free.
    T* Pointer() const { return static_cast<T*>(block_); }
};

/// Read an object through this: the const forms of data access leave shared buffers alone.
template <class T>
T const& cref(DerivedPointer<T> const& p)
{
    return *p.Pointer();
}

} // namespace NKelmic

#endif // MEMBLOCK_CORE_DERIVEDPOINTER_H
