#ifndef MEMBLOCK_CORE_PMEMBLOCK_H
#define MEMBLOCK_CORE_PMEMBLOCK_H

#include <memblock/core/fwd.h>
#include <memblock/export.h>

#include <utility>

namespace NKelmic {

/// Owning pointer to an object, exactly one machine word.
///
/// The count that it keeps is a plain integer: an object, and with it all pointers to it, belongs
/// to one thread at a time. Assignment is const, because a pointer may exchange the object behind
/// it where a conversion asks for that.
class MEMBLOCK_API PMemBlock {
public:
    PMemBlock() : block_(nullptr) {}
    PMemBlock(MemBlock const* block);
    PMemBlock(PMemBlock const& o);
    PMemBlock(PMemBlock&& o) noexcept : block_(std::exchange(o.block_, nullptr)) {}
    /// Take the object of `source` as one of class `classname`.
    ///
    /// An object of an older form is converted on the way, see
    /// `MakeBackwardCompatAutoConversionsToConform`. A null source is an error too.
    /// Throws: 512 "Data does not conform to \"%s\" class: %s".
    PMemBlock(PMemBlock const& source, char const* classname);
    ~PMemBlock();
    PMemBlock const& operator=(PMemBlock const& o) const
    {
        Assign(o.block_);
        return *this;
    }
    PMemBlock const& operator=(PMemBlock&& o) const noexcept;
    /// Hold another object, or none. The new one is taken before the old one is released.
    void Assign(MemBlock const* block) const;
    MemBlock* operator->() const { return block_; }
    MemBlock& operator*() const { return *block_; }
    MemBlock* Pointer() const { return block_; }
    explicit operator bool() const { return block_ != nullptr; }
    bool operator!() const { return !block_; }
    bool operator==(PMemBlock const& o) const { return block_ == o.block_; } // identity
    void swap(PMemBlock& o) { std::swap(block_, o.block_); }
    /// Tell if the object is of that class, or has been made so by the backward compatible
    /// conversion. False for null.
    bool Conforms(char const* classname) const;
    /// Turn a plain image of earlier files into the stencil or mask that it stands for.
    ///
    /// Changes the object if this is its only pointer; otherwise holds a changed clone, and the
    /// other owners keep theirs. Returns false, with nothing changed, in all other cases.
    bool MakeBackwardCompatAutoConversionsToConform(char const* classname) const;
    safestring GetDescription() const;  ///< "none" for null
    static bool do_dereference_check(); ///< false

protected:
    mutable MemBlock* block_;
};

static_assert(sizeof(PMemBlock) == sizeof(void*));

} // namespace NKelmic

#include <memblock/core/memblock.h> // whose counts the inline members keep

#endif // MEMBLOCK_CORE_PMEMBLOCK_H
