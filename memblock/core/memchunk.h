#ifndef MEMBLOCK_CORE_MEMCHUNK_H
#define MEMBLOCK_CORE_MEMCHUNK_H

#include <memblock/base/carrier.h>
#include <memblock/base/safestring.h>
#include <memblock/core/fwd.h>

namespace NKelmic {

/// A raw buffer that many chunks may share; the last one lets it go.
///
/// The buffer is the chunk's own (`mb_malloc`), or a caller's with the caller's release function,
/// or (no release function) only borrowed. Copies share it. Only the counts are safe between
/// threads: chunks on one buffer may be copied and dropped anywhere, a single chunk belongs to one
/// thread. Failed allocation of a counts block or of a new buffer throws `std::bad_alloc` and
/// changes nothing.
class MEMBLOCK_API MemChunk {
public:
    typedef void (*release_t)(void*);
    typedef void (*release2_t)(void*, void*);

    MemChunk(); ///< no data, size 0, a counts block of its own
    /// Allocate `size` bytes of zeros.
    explicit MemChunk(unsigned long size);
    /// Take over a caller's buffer; a null `release` borrows it.
    ///
    /// The release function is called once, on whichever thread drops the last chunk, and also
    /// when this constructor fails. What it throws becomes a warning.
    MemChunk(void* data, release_t release, unsigned long size);
    MemChunk(void* data, release2_t release, void* user_data, unsigned long size);
    /// Take the buffer out of the carrier, which keeps neither data nor release functions.
    MemChunk(Carrier const& carrier);
    MemChunk(MemChunk const& o);     ///< shares the buffer: one atomic add
    MemChunk(MemChunk&& o) noexcept; ///< takes its place; `o` is left as by `Dismiss`
    MemChunk& operator=(MemChunk const& o);
    ~MemChunk();

    /// Let the buffer go without releasing it. All fields but the read-only mark become zero.
    void Dismiss();
    bool operator==(MemChunk const& o) const; ///< equal sizes and equal bytes
    void swap(MemChunk& o) noexcept;

    /// Count the typed views on the buffer; each returns the new count. The object elements of a
    /// buffer live as long as this is positive. Without a block, the first makes one.
    int IncrTypeCount() const;
    int DecrTypeCount() const;
    bool IsDataTyped() const;
    void InitCloneCount();  ///< a new block with clone count 1
    int CloneCount() const; ///< 0 without a block
    bool IsShared() const { return CloneCount() > 1; }

    /// Give the buffer a new size, in place where it is the chunk's own and unshared.
    ///
    /// keep: the old bytes stay, as many as fit. zero_new: the bytes that are not kept become 0.
    /// Otherwise (shared, borrowed, a caller's release function) the bytes move into a new block
    /// from `mb_malloc` and the old one is released. The read-only mark is left as it is.
    /// Throws: 16 "Cannot reallocate %u bytes"; the chunk is then as it was.
    void Resize(unsigned long size, bool keep, bool zero_new);

    /// Hand the buffer out of the library; this chunk is then empty.
    ///
    /// An unshared buffer goes as it is, with its release function. A shared one stays with its
    /// other owners and the carrier gets a copy with a NUL behind it.
    Carrier TransferToCarrier();

    /// Touch the first and the last byte, so that a bad buffer fails here, and check the fields.
    ///
    /// Appends what is wrong to `message` and returns false.
    bool Consistent(safestring& message) const;

    void* Data() const { return data_; }
    unsigned long Size() const { return size_; } ///< in bytes
    bool IsReadOnly() const { return read_only_; }
    void SetReadOnly(bool on) { read_only_ = on; } ///< a mapped file, for instance

private:
    friend class TypedChunk;
    /// Clone count in the lower half, type count in the upper: two ints to look at, one word, so
    /// that a typed view is counted by a single atomic add.
    typedef unsigned long counts_t;
    static constexpr counts_t one_clone = 1;
    static constexpr counts_t one_type = 1UL << 32;
    static counts_t* NewCounts(counts_t value);

    MemChunk(MemChunk const& o, counts_t added);
    void MoveTo(void* fresh, unsigned long kept);
    void ReleaseData() const noexcept;
    void Cleanup() noexcept;
    void Forget() noexcept;
    bool DropClone() noexcept;

    release_t release_ = nullptr; // at most one of the two is set
    release2_t release2_ = nullptr;
    void* user_data_ = nullptr;
    mutable counts_t* counts_ = nullptr; // changes only by atomic add
    void* data_ = nullptr;
    unsigned long size_ = 0;
    bool read_only_ = false;
};

} // namespace NKelmic

#endif // MEMBLOCK_CORE_MEMCHUNK_H
