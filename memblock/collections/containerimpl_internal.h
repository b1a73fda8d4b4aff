#ifndef MEMBLOCK_COLLECTIONS_CONTAINERIMPL_INTERNAL_H
#define MEMBLOCK_COLLECTIONS_CONTAINERIMPL_INTERNAL_H

#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/collections/nameindex_internal.h>
#include <memblock/core/memblock_internal.h>

#include <vector>

namespace NKelmic {

/// The items of a container.
///
/// Values own objects whose destructors may come back to the container: a value is dropped only
/// when all else is done.
class ContainerImpl : public mb_malloced {
public:
    ContainerImpl() = default;
    ContainerImpl& operator=(ContainerImpl const&) = delete;

    virtual ~ContainerImpl() noexcept(false);
    virtual ContainerImpl* Clone() const;
    virtual ContainerIterator Put(safestring const& name, SafeValue const& value);
    virtual unsigned int GetPos(ContainerConstIterator item) const;
    virtual ContainerIterator GetAt(unsigned int pos); ///< `end()` where no item is
    virtual bool Delete(safestring const& name);
    virtual void Delete(ContainerIterator item);
    virtual bool IsOrdered() const;
    virtual void Clear();
    /// Append the expression that makes these items.
    virtual void GetExpression(safestring& expression) const;

    ContainerMap& Map() { return map_; } ///< to look at and to change values in
    ContainerIterator Find(safestring const& name) { return index_.Find(name); }
    /// The item of that name; for a quoted key without one, the item of the name in the quotes.
    ContainerIterator FindByKey(safestring const& key);
    /// The item of a name; a new one is undefined, and true is told. It gets no position.
    std::pair<ContainerIterator, bool> Add(safestring const& name);
    unsigned int Count() const { return static_cast<unsigned int>(map_.size()); }
    /// Take over all items of another one, and the walks over them; this one is empty yet.
    void TakeItems(ContainerImpl& other);

protected:
    ContainerImpl(ContainerImpl const& o) : mb_malloced(o), map_(o.map_) {}
    ContainerMap::node_type Unlink(ContainerIterator item);

    ContainerMap map_;
    NameIndex index_{map_};

private:
    friend class ContainerWalk;
    ContainerWalk* walks_ = nullptr; // the innermost one
};

/// The items with their positions.
///
/// Each item stands in the position vector once, but for those that `Container::MoveInto` has
/// added: they have no position. The vector holds iterators, which stay valid when others go.
class OrderedImpl : public ContainerImpl {
public:
    ContainerImpl* Clone() const override;
    ContainerIterator Put(safestring const& name, SafeValue const& value) override;
    unsigned int GetPos(ContainerConstIterator item) const override; ///< `Count()`: none
    ContainerIterator GetAt(unsigned int pos) override;
    using ContainerImpl::Delete;
    void Delete(ContainerIterator item) override;
    bool IsOrdered() const override;
    void Clear() override;
    void GetExpression(safestring& expression) const override;

    /// Take over all items of a plain one, and place them in name order.
    static OrderedImpl* CreateFrom(ContainerImpl& items);
    ContainerIterator InsertAt(unsigned int pos, safestring const& name, SafeValue const& value);
    /// False if an item of that name stands elsewhere; the one at `pos` has gone in any case.
    bool ReplaceAt(unsigned int pos, safestring const& name, SafeValue const& value);
    std::vector<ContainerIterator> const& Positions() const { return positions_; }

private:
    void MakeRoom();
    void Move(unsigned int from, unsigned int pos);

    std::vector<ContainerIterator> positions_;
};

/// A walk over the items in name order, during which items may come and go.
///
///     ContainerWalk walk(container);
///     while (auto* item = walk.Next())
///         Use(item->first, item->second);
///
/// It keeps the container alive. Walks over one container are nested, as calls are.
///
/// A walk that goes down into objects tells its purpose, an address. Where one of this purpose is
/// under way already the container holds itself, and a second one would have no end.
class ContainerWalk {
public:
    explicit ContainerWalk(Container const& container, void const* purpose = nullptr);
    static bool IsUnderWay(Container const& container, void const* purpose);
    ~ContainerWalk();
    ContainerWalk(ContainerWalk const&) = delete;
    ContainerWalk& operator=(ContainerWalk const&) = delete;
    ContainerMap::value_type* Next(); ///< null at the end
    /// Tell if the item that `Next` gave last has been removed since.
    bool HasGone() const { return gone_; }

private:
    friend class ContainerImpl;
    KeepAlive alive_;
    ContainerImpl* impl_; // null when its items are gone
    ContainerWalk* outer_;
    void const* purpose_;
    ContainerIterator item_; // the one given last or, where that has gone, the next one
    bool gone_ = true;
};

/// Whether a key is a position; most are names, and seen not to be a number by their first byte.
inline bool IsPosition(safestring const& key)
{
    return !key.empty() && key[0] <= '9' && is_numeric(key);
}

inline bool IsQuotedName(safestring const& key)
{
    return key.size() >= 2 && key.front() == '@' && key.back() == '@';
}

/// The key under which lists and expressions name an item, so that it is read and written by it.
/// `exists(name)` says which names there are.
template <class Exists>
safestring KeyOfItem(safestring const& name, Exists&& exists)
{
    bool const is_word = is_alphanumeric(name) && !IsPosition(name) && name != "_";
    if (is_word)
        return name;
    safestring key = name;
    QuoteName(key);
    // Another item may bear the quoted name. A third pair of quotes then leads past it.
    for (bool taken = false; exists(key) || taken; QuoteName(key))
        taken = exists(key);
    return key;
}

/// Call `visit(item)` for each item in the order in which lists name them: by position, or by
/// name if the container is not ordered.
template <class Visit>
void ForEachListed(Container const& container, Visit&& visit)
{
    if (OrderedImpl const* const ordered = container.GetOrderedImplIfOrdered()) {
        for (ContainerIterator const item : ordered->Positions())
            visit(*item);
    } else {
        for (auto const& item : container)
            visit(item);
    }
}

} // namespace NKelmic

#endif // MEMBLOCK_COLLECTIONS_CONTAINERIMPL_INTERNAL_H
