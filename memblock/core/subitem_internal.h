#ifndef MEMBLOCK_CORE_SUBITEM_INTERNAL_H
#define MEMBLOCK_CORE_SUBITEM_INTERNAL_H

#include <memblock/core/safevalue.h>

namespace NKelmic {

/// Holds an object while one of its own operations runs. One that nobody owns (a local, or fresh
/// from `new`) survives pointers that come and go meanwhile, and is as free afterwards as before.
class HoldSelf {
public:
    explicit HoldSelf(MemBlock const& object)
        : object_(object),
          unowned_(object.RefCount() <= 0 && !(object.Flags() & MemBlock::mem_undeletable))
    {
        if (unowned_)
            object.RaiseFlags(MemBlock::mem_undeletable);
        object.Capture();
    }
    ~HoldSelf()
    {
        object_.Release();
        if (unowned_)
            object_.ClearFlags(MemBlock::mem_undeletable);
    }
    HoldSelf(HoldSelf const&) = delete;
    HoldSelf& operator=(HoldSelf const&) = delete;

private:
    MemBlock const& object_;
    bool unowned_;
};

/// The failure of a key behind a value that is no object.
inline void ReportNoSubKeyOfScalar(DataItem const& scalar, safestring const& key,
                                   ThrowHandlerFunc handler)
{
    Report(handler, err_kind, "A scalar data item (%s) does not have subkey: %s", scalar, key);
}

/// The failure of a look-up of an object by path.
inline void ReportNoSubItem(MemBlock const& object, safestring const& path,
                            ThrowHandlerFunc handler)
{
    Report(handler, err_value, "Subitem not found: \"%s\": %s", path, object);
}

/// For a change that only the description tells: hashes are made of it, nothing else is.
void DropHashes(MemBlock& object);

} // namespace NKelmic

#endif // MEMBLOCK_CORE_SUBITEM_INTERNAL_H
