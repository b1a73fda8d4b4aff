#ifndef MEMBLOCK_CORE_MEMBLOCKIMPL_H
#define MEMBLOCK_CORE_MEMBLOCKIMPL_H

#include <memblock/core/dataitem.h>

#include <map>
#include <vector>

namespace NKelmic {
/// The cache of one object: values by integer key.
///
/// Keys up to `MemBlock::key_last_volatile` hold what is derived from the content and go when it
/// changes; keys above it are sticky and stay. A value may own objects whose destructors come
/// back to this cache, or drop the owner: so nothing is destroyed before all else is done.
class MEMBLOCK_API MemBlockImpl : public mb_malloced {
public:
    explicit MemBlockImpl(MemBlock const* owner);
    virtual ~MemBlockImpl() noexcept(false);
    virtual void FlushSecondary();                      ///< drop all items but the sticky ones
    virtual void CloneFrom(MemBlockImpl const* source); ///< copy the sticky items; null: nothing
    virtual DataItem DoVerb(char const* verb, int argc, SafeValue* argv);
    /// Compute an item. Failures go to the handler; undefined is then the result.
    ///
    /// Throws: 4096 "MemBlockImpl::CalculateSecondaryItem(): key not implemented:%d".
    virtual DataItem CalculateSecondaryItem(int key, ThrowHandlerFunc handler) const;

    /// The item of a key, computed and stored if it is not there. Undefined is never stored.
    DataItem SecondaryItem(int key, ThrowHandlerFunc handler);
    /// The same as a number; 0 without one.
    ///
    /// Throws: 128 "Cannot calculate subkey: %s" for an undefined item.
    int SecondaryInt(int key, ThrowHandlerFunc handler)
    {
        DataItem const* const stored = Find(key);
        return stored && stored->GetType() == it_int ? stored->GetInt()
                                                     : CalculateInt(key, handler);
    }
    double SecondaryDouble(int key, ThrowHandlerFunc handler)
    {
        DataItem const* const stored = Find(key);
        return stored && IsNumber(*stored) ? stored->GetDouble() : CalculateDouble(key, handler);
    }
    /// The same as an object.
    ///
    /// Throws: 128 "Could not calculate key %d for: %s".
    PMemBlock SecondaryMemBlock(int key, ThrowHandlerFunc handler);
    void SetSecondaryItem(int key, DataItem const& item); ///< undefined erases
    // Nothing is computed by these.
    bool ExistsSecondaryItem(int key, DataItem& out) const;
    bool ExistsSecondaryInt(int key, int& out) const;
    bool ExistsSecondaryDouble(int key, double& out) const;
    /// Move the items to `out` that are derived from the content and are objects.
    void TakeDerivedObjects(std::vector<DataItem>& out, bool keep_transient);
    /// Offer the two attribute containers as children, and the other sticky objects to a visitor
    /// that wants them. A visitor may change, flush or drop the cache meanwhile.
    bool Entertain(MemBlockVisitor& v, safestring const& path, MemBlock::entertainmode_t mode);
    /// Walk the sticky items under the names "@sticky:" with the key.
    void Traverse(TraverseVisitor& v, TraverseNode const& node);
    MemBlock* Owner() const { return owner_; }
    void CountFlush() { ++flushes_; }
    unsigned int Flushes() const { return flushes_; } ///< how often the content was said to change

protected:
    MemBlock* owner_; // not counted
    std::map<int, DataItem> items_;

private:
    static bool EntertainSticky(MemBlock const& owner, MemBlockVisitor& v, safestring const& path,
                                MemBlock::entertainmode_t mode);
    /// The place of an object in the cache of an owner; null if there is none.
    static PMemBlock* FindObject(MemBlock const& owner, int key);
    DataItem const* Find(int key) const
    {
        auto const found = items_.find(key);
        return found != items_.end() ? &found->second : nullptr;
    }
    /// Reads as a double without fail; extremes of integers are stored as integers.
    static bool IsNumber(DataItem const& item)
    {
        constexpr unsigned numbers = 1U << it_int | 1U << it_double | 1U << it_int64;
        return (numbers >> item.GetType() & 1U) != 0;
    }
    // Apart, so that reading a stored number stays a look-up and no more.
    int CalculateInt(int key, ThrowHandlerFunc handler);
    double CalculateDouble(int key, ThrowHandlerFunc handler);

    unsigned int flushes_ = 0;
};
MEMBLOCK_API void PimplFlushSecondary(MemBlockImpl* pimpl); ///< null: nothing
/// The name of a key of the cache for messages.
MEMBLOCK_API safestring MemKey2String(int key);

template <class T>
class VectorImpl; // see vector/summary.h

} // namespace NKelmic

#endif // MEMBLOCK_CORE_MEMBLOCKIMPL_H
