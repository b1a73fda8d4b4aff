#ifndef MEMBLOCK_COLLECTIONS_NAMEINDEX_INTERNAL_H
#define MEMBLOCK_COLLECTIONS_NAMEINDEX_INTERNAL_H

#include <memblock/collections/container.h>

#include <cstdint>

namespace NKelmic {

/// Finds the items of a map by name without walking its tree.
///
/// It comes into being at a look-up among many items, so that who only stores pays nothing, and
/// is let go when memory is short: then the map itself is searched.
class NameIndex {
public:
    explicit NameIndex(ContainerMap& map) : map_(map) {}
    ~NameIndex() { Drop(); }
    NameIndex(NameIndex const&) = delete;
    NameIndex& operator=(NameIndex const&) = delete;

    ContainerIterator Find(safestring const& name);
    void Added(ContainerIterator item);            ///< it is in the map already
    void Removed(ContainerIterator item) noexcept; ///< it is in the map still
    void Drop() noexcept;

private:
    struct Slot {
        std::uint64_t hash; // 0: free
        ContainerIterator item;
    };
    static constexpr std::size_t least_items = 8; // below, the tree is as quick

    bool Build(std::size_t slot_count);
    void Place(Slot const& slot);
    Slot* Look(std::uint64_t hash, safestring const& name) const;

    ContainerMap& map_;
    Slot* slots_ = nullptr;
    std::size_t mask_ = 0; // their number, a power of two, less one
};

} // namespace NKelmic

#endif // MEMBLOCK_COLLECTIONS_NAMEINDEX_INTERNAL_H
