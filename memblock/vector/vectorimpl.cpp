#include <memblock/core/memblockimpl.h>

#include <memblock/vector/packedlimits_internal.h>
#include <memblock/vector/summary.h>
#include <memblock/vector/vector.h>

#include <limits>

namespace NKelmic {

MemBlockImpl* Vector::DoPimpl() const
{
    return WithElemTypeOr<NumericTypes>(
        ElemType(), [&] { return new MemBlockImpl(this); },
        [&]<class T>(TypeTag<T>) -> MemBlockImpl* { return new VectorImpl<T>(this); });
}

template <class T>
VectorImpl<T>::VectorImpl(Vector const* owner) : MemBlockImpl(owner)
{
}

template <class T>
VectorImpl<T>::~VectorImpl()
{
}

template <class T>
DataItem VectorImpl<T>::CalculateSecondaryItemNonVirtual(int key, bool& handled,
                                                         ThrowHandlerFunc handler) const
{
    // Not stored typed: the owner of a cache is known to core as an object only.
    auto const& owner = dynamic_cast<Vector const&>(*owner_);
    auto const limits = PackedLimits(owner);
    Vector const& vector = limits ? cref(limits) : owner;
    T const* const data = vector.TypedPointer<T>();
    unsigned int const length = vector.Length();
    // Further keys that come out of the same pass go into the cache.
    auto* const cache = const_cast<VectorImpl*>(this);
    handled = true;
    if constexpr (std::is_same_v<T, triple>) {
        // Settled: the summary of a colour image is that of its bytes, all channels together.
        bool const of_pixels = key >= key_max && key <= key_last_summary && key != key_width;
        if (of_pixels && vector.Conforms("image")) {
            // In unsigned long, to refuse what the counts of the summary cannot hold.
            unsigned long const bytes = 3ul * length;
            if (bytes <= std::numeric_limits<unsigned int>::max())
                return CSINV(reinterpret_cast<unsigned char const*>(data),
                             static_cast<unsigned int>(bytes), key, cache, handled, handler);
            Report(handler, err_state, "Too many pixels for summary values: %s", vector);
            return {};
        }
    }
    return CSINV(data, length, key, cache, handled, handler);
}

template <class T>
DataItem VectorImpl<T>::CalculateSecondaryItem(int key, ThrowHandlerFunc handler) const
{
    // What is no summary value may still be a key of every object.
    bool handled = true;
    DataItem item = CalculateSecondaryItemNonVirtual(key, handled, handler);
    return handled ? item : MemBlockImpl::CalculateSecondaryItem(key, handler);
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT) template class VectorImpl<T>;
MEMBLOCK_NUMERIC_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

} // namespace NKelmic
