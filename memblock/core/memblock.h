#ifndef MEMBLOCK_CORE_MEMBLOCK_H
#define MEMBLOCK_CORE_MEMBLOCK_H

#include <memblock/base/alloc.h>
#include <memblock/base/exception.h>
#include <memblock/core/pmemblock.h>

#include <utility>

namespace NKelmic {

/// The text by which messages name an object: "none" for null.
MEMBLOCK_API safestring Describe(MemBlock const* block);

/// Compare class names and other fixed words: ASCII case is ignored, the locale too.
inline bool SameName(char const* a, char const* b)
{
    for (; safestring_traits::eq(*a, *b); ++a, ++b) {
        if (*a == '\0')
            return true;
    }
    return false;
}

/// Base of every data object: one lifetime rule, one flag word, a cache of derived values, and
/// one virtual interface by which a macro engine reads any object without knowing its class.
///
/// An object is created with count 0 and is deleted by the release that brings the count back to
/// 0 or less. It may also live on the stack or as a member, as long as nobody takes a `PMemBlock`
/// on it; who must, raises `mem_undeletable` first. The cache is made on its first use.
class MEMBLOCK_API MemBlock : public mb_malloced {
public:
    enum flags_t {
        mem_undeletable = 0x0004, ///< the last release does not delete
        mem_const = 0x0008,       ///< not to be changed, nor what hangs below
        mem_has_sticky = 0x0020,  ///< the cache holds items that survive a flush
        mem_clone_kept = 0x0080   ///< for derived code; a clone keeps it
    };
    /// What a walk by `Entertain` looks at.
    enum entertainmode_t {
        em_all = 0,             ///< this object, its attributes, its children
        em_no_self_no_attr = 1, ///< attributes in mode 2, and children
        em_no_attr = 2,         ///< this object only
        em_traverse = 3,        ///< the logical type, fields and children, for `Traverse`
        em_no_self = 4          ///< attributes and children
    };
    /// Keys of the cache that all classes share. Those above `key_last_volatile` survive a
    /// change of the content and go over to clones.
    enum {
        key_md5 = 1,
        key_int = 2,
        key_double = 3,
        key_md5_plain = 4,
        key_readonly = 6,
        key_transient = 7,
        key_last_volatile = 10000,
        key_thread_id = 10002,
        key_sticky = 10003
    };

    // 24 virtual slots: plug-ins are built against this order
    virtual char const* Class() const = 0;
    /// Tell if the content can be taken as one of that class.
    ///
    /// Says nothing about the C++ class: use `MemCast` or `DerivedPointer` to get at that.
    virtual bool Conforms(char const* classname) const = 0;
    /// Pass a visitor over this object, its attributes and its children, as the mode says.
    ///
    /// A class with children calls the base form, ends with false if that does, and then calls
    /// `EntertainChild` for each child with the pointer in its place, not a copy: visitors look
    /// at reference counts and exchange children. In mode `em_traverse` it also offers its fields
    /// by `Visit(path, DataItem&)`. A visitor may change the object meanwhile, so the class looks
    /// for its children anew after each call. It may also drop the last pointer to the object.
    virtual bool Entertain(MemBlockVisitor& v, safestring const& path, entertainmode_t mode) = 0;
    /// Do what a verb says and return its answer, undefined for an unknown verb.
    ///
    /// `argv` is input only and may be null with `argc` 0.
    virtual DataItem DoVerb(char const* verb, int argc, SafeValue* argv);
    virtual bool AddConvertArg(safestring const& key, DataItem const& value,
                               ConvertOptions& options, ThrowHandlerFunc handler) const = 0;
    virtual PMemBlock ConvertFrom(PMemBlock source, ConvertOptions const& options) const;
    virtual PMemBlock ConvertTo(safestring const& classname) const;
    virtual bool SerialArgs(safestringlist const& list, Formatter& formatter,
                            ThrowHandlerFunc handler) const;
    /// Check what must always hold. Appends to `message` what does not, and returns false.
    virtual bool Consistent(safestring& message, bool deep) const = 0;
    virtual char const* ClassDescription() const = 0;
    virtual safestring LgType2String(int lg_type) const; ///< "" for an unknown number
    virtual int String2LgType(safestring const& text);   ///< -1 for an unknown word
    /// Apply a binary operator. The base knows '=' and '#', by class name and `Equals`; the
    /// result is then a `Vector` of one element. The right operand must not be null.
    ///
    /// Throws: 4096 "Operation '%c' not supported for object type: %s".
    virtual PMemBlock op(char operation, PMemBlock other, op_options const& options) const;

protected:
    /// Copy this object: mode 1 shares the payload, 0 duplicates it. 2 serves `CloneToBranch` and 3
    /// `MakeDeepCopy`: both share the payload and also the children, those that `Entertain` offers.
    virtual PMemBlock DoClone(int mode) const = 0;
    /// Make the cache object; the class of it depends on what the content is.
    virtual MemBlockImpl* DoPimpl() const;

public:
    /// Compare contents. `operator==` has seen to it that both class names are equal.
    virtual bool Equals(MemBlock const& other) const;

protected:
    virtual bool DoSetSubItem(safestring const& key, SafeValue const& value,
                              safestring const& full_path, ThrowHandlerFunc handler) = 0;
    virtual safestring DoGetDescription() const = 0;

public:
    virtual DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const = 0;
    virtual void DoSetLgType(int lg_type);

protected:
    virtual void DoSerialize(int format, SerializeVisitor& v, safestring const& path,
                             Formatter const& formatter, safestring& output) const;
    virtual PMemBlock DoUnSerialize(int format, Formatter const& formatter, char const* text,
                                    char const** end) const;

public:
    // Destructors of derived classes may throw: the last release contains it.
    virtual ~MemBlock() noexcept(false);

    // lifetime and identity
    void Capture() const { ++refcount_; }
    /// Give back one count; the last one deletes the object. Returns the count, 0 at the end.
    ///
    /// Never throws: what a destructor throws goes to standard error and to the alarm hook.
    int Release() const { return --refcount_ > 0 ? refcount_ : DoLastRelease(); }
    int RefCount() const { return refcount_; }
    unsigned Flags() const { return flags_; }
    void RaiseFlags(unsigned bits) const { flags_ |= static_cast<unsigned short>(bits); }
    void ClearFlags(unsigned bits) const { flags_ &= static_cast<unsigned short>(~bits); }
    int LgType() const { return lg_type_; }
    /// Copy this object. Derived values of the cache stay behind, sticky items go along.
    ///
    /// share: the copy shares the payload and copies it when one of both writes.
    PMemBlock Clone(bool share) const;
    /// The text by which messages name this object. Also asked of null, which reads "none".
    safestring GetDescription() const;
    /// Set the logical type by its word.
    ///
    /// Throws: 4096 "Invalid lg_type \"%s\" for this object: %s".
    void SetLgType(safestring const& text);
    /// Mark this object and what hangs below it as not to be changed, or take the mark away.
    void SetConst(bool on);
    /// Drop the derived values. Every mutator calls this after it has changed the content.
    void ContentHasBeenChanged();
    MemBlockImpl* Pimpl() const; ///< made if there is none
    MemBlockImpl* PimplIfAny() const { return pimpl_; }
    /// Drop the cache with all sticky items, as a class must whose cache object no longer fits.
    void ResetPimpl();
    bool operator==(MemBlock const& o) const;
    void CopyStickyAttributesFrom(MemBlock const& source);
    /// The attribute container of this object, made and kept in the cache at the first access.
    ///
    /// sticky: the one that survives changes and clones; otherwise the one that the next change
    /// of the content drops.
    PMemBlock GetAttr(bool sticky) const;
    /// Say on standard error if another thread's id is recorded for this object, or none at all.
    ///
    /// `SecondaryItem(key_thread_id, handler)` records the id of the current thread. Never throws.
    void CheckThreadId() const;
    static MemBlockFactory& Factory();

    // sub-item resolution
    DataItem GetSubItem(safestring const& path, ThrowHandlerFunc handler) const;
    bool SetSubItem(safestring const& path, SafeValue const& value, ThrowHandlerFunc handler);
    PMemBlock GetSubItemMemBlock(safestring const& path, ThrowHandlerFunc handler,
                                 char const* classname) const;
    DerivedPointer<Vector> GetSubItemVector(safestring const& path, ThrowHandlerFunc handler,
                                            char const* classname, safestring const& key) const;
    // conversion and verbs protocol
    PMemBlock Convert(safestringlist const& arguments, safestring const& classname,
                      ThrowHandlerFunc handler) const;
    bool ConvertArgs(safestringlist const& arguments, ConvertOptions& options,
                     ThrowHandlerFunc handler) const;
    // secondary items cache: forwarded to the cache object, which is made first
    DataItem SecondaryItem(int key, ThrowHandlerFunc handler) const;
    int SecondaryInt(int key, ThrowHandlerFunc handler) const;
    double SecondaryDouble(int key, ThrowHandlerFunc handler) const;
    PMemBlock SecondaryMemBlock(int key, ThrowHandlerFunc handler) const;
    void SetSecondaryItem(int key, DataItem const& item) const;
    bool ExistsSecondaryItem(int key, DataItem& out) const;
    bool ExistsSecondaryInt(int key, int& out) const;
    bool ExistsSecondaryDouble(int key, double& out) const;
    // visitors, traversal and deep copy
    /// Walk this object with start, data and end events.
    void Traverse(TraverseVisitor& v, TraverseNode const& node);
    /// The bytes that this object and what hangs below it hold; what is shared counts once.
    ///
    /// Counted are arrays of elements, texts too long for their value, and what objects
    /// answer to "memusage_self". Containers answer nothing: their items and names are left out,
    /// as are caches, but for the sticky values in them.
    long long CalcMemUsage() const;
    /// Replace by copies all sub-objects that somebody outside of this tree can reach, so that
    /// nothing in it changes from outside. What the tree shares within itself stays shared.
    ///
    /// report: gets the paths of the objects to which outsiders refer, between commas.
    void MakeDeepCopy();
    void MakeDeepCopy(safestring& report);
    /// Copy this object for a write to one path: the objects along the path are copies, all
    /// others are shared. A step that leads nowhere is left alone.
    PMemBlock CloneToBranch(safestring const& path) const;
    // content hash
    void CheckSum(safestring const& text, ThrowHandlerFunc handler) const; ///< does nothing
    // formatter and serialization frame
    void Serialize(int format, SerializeVisitor& v, safestring const& path,
                   Formatter const& formatter, safestring& output) const;
    PMemBlock UnSerialize(int format, Formatter const& formatter, char const* text,
                          char const** end) const;

protected:
    MemBlock() : pimpl_(nullptr), refcount_(0), flags_(0), lg_type_(0) {}
    /// A copy starts without cache and owners, writable, deletable and without sticky items.
    MemBlock(MemBlock const& o);
    MemBlock& operator=(MemBlock const&) = delete;
    /// Visit a child and then what is below it. Returns false if the visitor stops the walk.
    bool EntertainChild(PMemBlock& child, MemBlockVisitor& v, safestring const& path,
                        entertainmode_t mode);

private:
    friend class DataItem; // clones for deep copies
    friend class DeepCopier;
    PMemBlock CloneIn(int mode) const; // DoClone, then flags and sticky items
    int DoLastRelease() const;         // the count is already lowered
    void DeleteThis() const;
    void DropPimpl();
    mutable MemBlockImpl* pimpl_;
    mutable int refcount_;
    mutable unsigned short flags_;
    short lg_type_;
};

inline PMemBlock::PMemBlock(MemBlock const* block) : block_(const_cast<MemBlock*>(block))
{
    if (block)
        block->Capture();
}

inline PMemBlock::PMemBlock(PMemBlock const& o) : block_(o.block_)
{
    if (block_)
        block_->Capture();
}

// The pointer is cleared before the release, in which a destructor may come back to it.
inline PMemBlock::~PMemBlock()
{
    if (MemBlock* old = std::exchange(block_, nullptr))
        old->Release();
}

inline void PMemBlock::Assign(MemBlock const* block) const
{
    if (block)
        block->Capture();
    if (MemBlock* old = std::exchange(block_, nullptr))
        old->Release();
    block_ = const_cast<MemBlock*>(block);
}

inline PMemBlock const& PMemBlock::operator=(PMemBlock&& o) const noexcept
{
    MemBlock* const taken = std::exchange(o.block_, nullptr);
    if (MemBlock* old = std::exchange(block_, nullptr))
        old->Release();
    block_ = taken;
    return *this;
}

// Error texts take objects as they are, see base/raise.h.
inline safestring TextArg(MemBlock const& block)
{
    return Describe(&block);
}
inline safestring TextArg(MemBlock const* block)
{
    return Describe(block);
}
inline safestring TextArg(PMemBlock const& block)
{
    return Describe(block.Pointer());
}

/// The library's hook at unload: the class factory drops all classes.
MEMBLOCK_API void MemBlockCleanup();
} // namespace NKelmic

// What was a part of this header.
#include <memblock/base/number.h>
#include <memblock/base/warning.h>
#include <memblock/core/derivedpointer.h>
#include <memblock/core/memcast.h>
#include <memblock/core/memtrack.h>

#endif // MEMBLOCK_CORE_MEMBLOCK_H
