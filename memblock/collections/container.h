#ifndef MEMBLOCK_COLLECTIONS_CONTAINER_H
#define MEMBLOCK_COLLECTIONS_CONTAINER_H

#include <memblock/core/memblock.h>
#include <memblock/core/safevalue.h>

#include <map>

namespace NKelmic {

class ContainerImpl;
class ContainerWalk;
class OrderedImpl;

/// Items in the order of their names, letters folded. The spelling that came first stays.
using ContainerMap = std::map<safestring, SafeValue>;
using ContainerIterator = ContainerMap::iterator;
using ContainerConstIterator = ContainerMap::const_iterator;

/// Gets the items of a container one by one.
class MEMBLOCK_API ItemVisitor {
public:
    virtual void Visit(safestring const& name, SafeValue const& value) = 0;
    virtual ~ItemVisitor();
};

/// Named values of any type: a record, a set of options, the results of a module.
///
/// Plain, its items stand in the order of their names. Ordered, each also has a position, and
/// position is what lists, descriptions, expressions and `GetAt` go by; iteration always goes by
/// name. A plain container becomes an ordered one by itself, in name order, as soon as a position
/// is written to. Names are compared without regard to ASCII case.
///
/// Iterators stay valid until their item goes. Visitors and what destructors call may add and
/// remove items during a walk; it then goes on behind the item that it was at.
///
/// Complexity: n items; by name O(log n), by position O(1) if ordered and O(n) if not, finding or
/// removing the position of an item O(n).
class MEMBLOCK_API Container : public MemBlock {
public:
    static char const* StaticClass() { return "container"; }

    explicit Container(bool ordered);
    /// Take over the implementation; it must not be null.
    explicit Container(ContainerImpl* impl);
    static DerivedPointer<Container> Create(); ///< empty, not ordered
    static DerivedPointer<Container> CreateOrdered();
    ~Container() override;

    // ---- MemBlock

    char const* Class() const override;
    bool Conforms(char const* classname) const override;
    bool Entertain(MemBlockVisitor& v, safestring const& path, entertainmode_t mode) override;
    /// "md5" feeds this container and what hangs below it to the visitor whose address is given.
    DataItem DoVerb(char const* verb, int argc, SafeValue* argv) override;
    bool AddConvertArg(safestring const& key, DataItem const& value, ConvertOptions& options,
                       ThrowHandlerFunc handler) const override;
    /// A container comes back as it is, anything else as the one item of a new one, under the name
    /// in the option "itemname", "x" without it.
    PMemBlock ConvertFrom(PMemBlock source, ConvertOptions const& options) const override;
    bool Consistent(safestring& message, bool deep) const override;
    char const* ClassDescription() const override;

protected:
    /// The same items, objects shared.
    Container(Container const& o);
    /// 2 shares the items; 1 and 0 clone the objects among them, with shared or own payload.
    PMemBlock DoClone(int mode) const override;

public:
    /// Equal values in name order. Settled: neither names nor positions count.
    bool Equals(MemBlock const& other) const override;

protected:
    bool DoSetSubItem(safestring const& key, SafeValue const& value, safestring const& full_path,
                      ThrowHandlerFunc handler) override;
    safestring DoGetDescription() const override;

public:
    /// A stored item comes before a key of the base; the own keys come before both. A missing item
    /// is made, as an empty container, if the handler asks for that.
    ///
    /// A quoted key that is no name itself, "@two words@", stands for the name in the quotes, in
    /// reading and in writing by key. Each name of the lists is read and written so.
    DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const override;

protected:
    /// Format 4 is the XML form, 7 the script form.
    /// Throws: 4096 "Serialization format %d not supported for: %s".
    void DoSerialize(int format, SerializeVisitor& v, safestring const& path,
                     Formatter const& formatter, safestring& output) const override;

public:
    // ---- Appended virtuals, in this order.

    /// Store a value under a name; an item of that name keeps its spelling and position.
    /// Throws: 32 "Missing item name."
    virtual void Put(SafeValue const& value, safestring const& name);
    /// The value of a name, or of a position if the key reads as a number; undefined if it is not
    /// there. "x:@pos" gives the position of x or -1, "x:@name" its stored name or "", and any
    /// other "x:..." the value of x.
    virtual SafeValue Get(safestring const& key) const;
    virtual bool Delete(safestring const& name); ///< false if it is not there
    virtual void erase(ContainerIterator item);
    virtual void clear(); ///< stays ordered, or not
    /// Exchange all items, and being ordered or not. Attributes stay where they are.
    virtual void Swap(Container& other);

    // ---- Queries

    bool IsOrdered() const;
    unsigned int Length() const { return Count(); }
    unsigned int Count() const;
    bool exists(safestring const& name) const;
    ContainerIterator begin();
    ContainerIterator end();
    ContainerConstIterator begin() const;
    ContainerConstIterator end() const;
    ContainerIterator find(safestring const& name);
    ContainerConstIterator find(safestring const& name) const;
    /// The position of an item; `Count()` for one that has none, see `MoveInto`.
    unsigned int GetPos(ContainerConstIterator item) const;
    /// Throws: 32 "Container element index %u is out of range for: %s."
    SafeValue GetAt(unsigned int pos) const;
    safestring GetNameByPos(int pos) const; ///< "" where no item is
    /// The object under a name, null for anything else. With a class name only one that conforms,
    /// or the vector or image of an attribute object that does.
    PMemBlock GetMemory(safestring const& name, char const* classname) const;
    /// The text by which a macro makes the items: "cnt(...)", or "ocnt(...)" by position.
    safestring GetExpression() const;
    /// Append the names joined by ", ", by position. A name is quoted if it is no word, or would
    /// mean something else as a key: "@two words@", "@5@".
    void ListItems(safestring& list) const;
    /// Write the names, by position, to `Count()` strings.
    void ListItems(safestring* names) const;
    /// Append the names, in name order; returns how many.
    int List(safestringlist& names) const;

    // ---- Changes

    void SetOrdered(bool ordered);
    OrderedImpl* GetOrderedImplIfOrdered() const; ///< null if not ordered
    OrderedImpl* GetOrderedImpl();                ///< makes it ordered
    /// Store a value at a place told by the key: "x" by name, "3" by position, "x:@first",
    /// "x:@last", "x:@before:y", "x:@after:y" with y a name or a position. An unknown y is the
    /// end. An item that is there already moves.
    ///
    /// Throws: 32 "Invalid location specificator: %s", and what `ReplaceValueAt` throws.
    /// Settled: an empty key is stored as an empty name.
    void Insert(safestring const& key, SafeValue const& value);
    /// Store a value under a name ahead of the item at `pos`, at the end for a greater one. An item
    /// that is there already moves.
    /// Throws: 32 "Missing item name."
    ContainerIterator InsertAt(unsigned int pos, safestring const& name, SafeValue const& value);
    /// Put another item in the place of the one at `pos`.
    ///
    /// Throws: 32 "Container element index %u is out of range for: %s."; 32 "Cannot replace element
    /// %u of an ordered container, because an item with the same name already exists in the
    /// container: %s". Settled: the item at `pos` is then gone.
    void ReplaceAt(unsigned int pos, safestring const& name, SafeValue const& value);
    /// Throws: 32 "Container element index %u is out of range for: %s."
    void ReplaceValueAt(unsigned int pos, SafeValue const& value);
    /// Exchange the value of a name with the caller's, without a copy or a count.
    ///
    /// Settled: a new item of an ordered container gets no position. It is found by name and by
    /// iteration only, until an `InsertAt` or `SetOrdered` places it.
    void MoveInto(safestring const& name, SafeValue& value);
    /// Store all items of another container here, or none if that fails.
    /// Throws: 128 "Cannot append from non-container", for null too.
    void Append(DerivedPointer<Container> other);
    /// The same, but containers of one name are merged, and one that meets a vector is written to
    /// its sub-items. Settled: one that meets another object is dropped.
    /// Throws: 128 "Cannot append from non-container", for null too.
    void Merge(DerivedPointer<Container> other);

    // ---- Walks, in name order

    void ScanItems(ItemVisitor& v) const;
    /// Visit the objects, those of one class if `classname` is given. A visitor may put another
    /// object in the place of the one that it gets.
    void ScanItems(MemBlockVisitor& v, char const* classname);
    void ScanItems(MemBlockVisitor& v, char const* classname) const;
    /// Append a script that builds this container under a path.
    ///
    /// Settled: the script says nothing of positions; raw pointers are left out with a warning.
    void SerializeMorvane(SerializeVisitor& v, safestring const& path, Formatter const& formatter,
                          safestring& output) const;

private:
    friend class ContainerWalk;

    ContainerIterator FindItem(safestring const& name_or_position) const;
    safestring NameByKey(safestring const& key) const;
    unsigned int PlaceOf(safestring const& key, safestring::size_type colon) const;
    void CheckPosition(unsigned int pos, unsigned int count) const;
    void MergeItem(safestring const& name, SafeValue const& value);

    ContainerImpl* impl_; // owned
};

namespace NCnt {
inline void PutPairs(Container&) {}

template <class... Rest>
void PutPairs(Container& container, safestring const& name, SafeValue const& value,
              Rest const&... rest)
{
    container.Put(value, name);
    PutPairs(container, rest...);
}
} // namespace NCnt

/// Make a plain container of one to ten pairs of name and value.
template <class... Rest>
DerivedPointer<Container> Cnt(safestring const& name, SafeValue const& value, Rest const&... rest)
{
    static_assert(sizeof...(Rest) % 2 == 0 && sizeof...(Rest) <= 18, "one to ten pairs");
    DerivedPointer<Container> container = Container::Create();
    NCnt::PutPairs(*container, name, value, rest...);
    return container;
}

/// Write the items of a container to sub-items of a vector; nested containers are merged. What
/// the vector refuses is left out.
MEMBLOCK_API void MergeToVector(DerivedPointer<Vector> vector, DerivedPointer<Container> container);

/// Append the XML form of a container: one element an item, in name order, nothing around them.
///
/// A dump for other programs to look at, not to be read back: raw pointers and undefined items are
/// left out. Settled: names are not encoded, and the text of an object goes ahead of the elements
/// of the container that holds it.
MEMBLOCK_API void SerializeContainer2Xml(Container const& container, SerializeVisitor& v,
                                         safestring const& path, Formatter const& formatter,
                                         safestring& output);

} // namespace NKelmic

#endif // MEMBLOCK_COLLECTIONS_CONTAINER_H
