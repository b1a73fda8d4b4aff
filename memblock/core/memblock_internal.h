#ifndef MEMBLOCK_CORE_MEMBLOCK_INTERNAL_H
#define MEMBLOCK_CORE_MEMBLOCK_INTERNAL_H

#include <memblock/core/memblock.h>

namespace NKelmic {

/// Make the object behind a pointer one that nobody else sees and that may be written: by a clone
/// in its place if it has other owners. Its cached values go.
void MakeExclusive(PMemBlock const& block);

/// Make an object ready for another thread: all that it reaches is its own, as by `MakeDeepCopy`,
/// and no value of a cache is an object but the sticky ones.
void MakeIndependent(MemBlock& root);

/// The mode of `DoClone` for deep copies: the walk over the copy then replaces the children that it
/// shares, each by one copy for all places that held it.
constexpr int deep_copy_mode = 3;

/// Keeps an object alive for the length of a call that takes and drops pointers on it.
///
/// Unlike with a `PMemBlock`, an object that nobody owns yet, fresh or on the stack, is not
/// deleted at the end: it is as free as before.
class KeepAlive {
public:
    explicit KeepAlive(MemBlock const& block)
        : block_(block), was_owned_(block.RefCount() > 0),
          was_undeletable_((block.Flags() & MemBlock::mem_undeletable) != 0)
    {
        block_.Capture();
    }
    ~KeepAlive()
    {
        if (was_owned_) {
            block_.Release();
            return;
        }
        block_.RaiseFlags(MemBlock::mem_undeletable);
        block_.Release();
        if (!was_undeletable_)
            block_.ClearFlags(MemBlock::mem_undeletable);
    }
    KeepAlive(KeepAlive const&) = delete;
    KeepAlive& operator=(KeepAlive const&) = delete;

private:
    MemBlock const& block_;
    bool was_owned_;
    bool was_undeletable_;
};

} // namespace NKelmic

#endif // MEMBLOCK_CORE_MEMBLOCK_INTERNAL_H
