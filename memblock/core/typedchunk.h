#ifndef MEMBLOCK_CORE_TYPEDCHUNK_H
#define MEMBLOCK_CORE_TYPEDCHUNK_H

#include <memblock/core/datatype.h>
#include <memblock/core/memchunk.h>

namespace NKelmic {

/// Fills an array at its first access. The library has none: the maker of a chunk brings it.
class MEMBLOCK_API DelayedInitializer {
public:
    virtual ~DelayedInitializer() {}
    virtual void Initialize(TypedChunk& chunk) = 0;
    virtual DelayedInitializer* Clone() const = 0; ///< for a copy of the chunk
};

/// A typed array on a `MemChunk`, at an offset in bytes.
///
/// Copies share the buffer; a writer detaches first. The object elements (`String`, `PMemory`,
/// `PolyType`) belong to the typed views: the last view on a buffer destroys them in place,
/// also when a plain `MemChunk` outlives it. Elements are reached by `Data()` as they are; callers
/// run a pending initializer first.
class MEMBLOCK_API TypedChunk {
public:
    typedef DataTypeBase::DataType DataType;

    TypedChunk(); ///< empty, of type `Byte`
    /// Lay a view over a chunk. Object elements must be live in it, or `Init` must follow.
    ///
    /// Throws: 128 "MemChunk too small (%u bytes) to contain %u*%u+%u bytes of data.";
    ///         the text of `SizeOf` for a type without a size.
    TypedChunk(unsigned long length, DataType type, MemChunk const& chunk,
               unsigned long byte_offset);
    TypedChunk(unsigned long length, DataType type, MemChunk&& chunk, unsigned long byte_offset);
    TypedChunk(TypedChunk const& o);     ///< with a copy of a pending initializer
    TypedChunk(TypedChunk&& o) noexcept; ///< takes its place; `o` is left without elements
    TypedChunk& operator=(TypedChunk const& o);
    ~TypedChunk();

    /// Make the elements live: object elements are constructed, plain bytes stay.
    ///
    /// A shared or read-only buffer is left: for object elements, which aren't live in it, by a
    /// fresh one, otherwise by a copy.
    void Init();

    /// Equal length, type and element bytes.
    ///
    /// Settled: object elements compare by their bit pattern. Equal texts in different buffers are
    /// not equal here.
    bool operator==(TypedChunk const& o) const;

    /// Put another buffer under the same type and length; object elements must be live in it.
    ///
    /// Throws as the constructor, with nothing changed. Clears `NoDestroy`.
    void SetMemChunk(MemChunk const& chunk, unsigned long byte_offset);
    void SwapMemChunk(MemChunk& chunk, unsigned long byte_offset); ///< the caller gets the old one

    unsigned long GetOffset() const; ///< of element 0 in the buffer, in bytes

    /// Copy on write: make the buffer private if it is shared or read-only.
    ///
    /// The offset stays, the bytes before it are zero. Reads the clone count without a lock: the
    /// chunk that is written belongs to one thread.
    void DetachSharedData();

    /// Run the pending initializer, once. `HasDelayed` says whether there is one.
    void DelayedInitialize() const;
    bool HasDelayed() const { return delayed_ != nullptr; }
    void SetDelayed(DelayedInitializer* initializer); ///< takes ownership; null drops it

    /// Change the length.
    ///
    /// keep: the elements stay, as many as fit. init: the bytes of new plain elements become 0; new
    /// object elements are always constructed. Growth by one or two elements reserves half as much
    /// again, so that appending is linear; any other change gets the exact size.
    /// Throws: 16 "Cannot reallocate %u bytes", and 256 for a size that no address can hold. The
    /// elements are then those of the stored length.
    void ResizeVector(unsigned long length, bool keep, bool init);

    /// Check chunk, type, element size and extent; appends what is wrong and returns false.
    bool Consistent(safestring& message) const;

    MemChunk const& Chunk() const { return chunk_; }
    MemChunk& Chunk() { return chunk_; }
    void* Data() const { return data_; } ///< element 0; no delayed initialization
    unsigned long Length() const { return length_; }
    DataType Type() const { return type_; }
    unsigned ElemSize() const { return elem_size_; }
    bool NoDestroy() const { return no_destroy_; } ///< somebody else destroys the object elements
    void SetNoDestroy(bool on) { no_destroy_ = on; }

    /// Bytes of an element. Throws the plain text "TypedChunk::SizeOf(): unknown vector type".
    static unsigned SizeOf(DataType type);
    static char const* TypeToString(DataType type);
    static bool IsObject(DataType type); ///< `String`, `PMemory`, `PolyType`
    static bool IsUnsignedInteger(DataType type);
    static bool IsInteger(DataType type);

    /// Operations on rows of elements. Raw memory holds no objects, live memory does.
    static void Initialize_Buffer(void* raw, unsigned long count, DataType type);
    static void Copy_Buffer(void* live, void const* src, unsigned long count, DataType type);
    static void Init_Copy_Buffer(void* raw, void const* src, unsigned long count, DataType type);
    static void Destroy_Buffer(void* live, unsigned long count, DataType type);
    /// Move to raw memory and leave the source raw; the two may overlap. No count changes.
    static void Init_Move_Buffer(void* raw, void* src, unsigned long count, DataType type);

private:
    struct shared_view {};
    TypedChunk(TypedChunk const& o, shared_view); // without the initializer
    void Rebase(unsigned long byte_offset);
    void* At(unsigned long index) const;
    unsigned long BytesFor(unsigned long count) const;
    void DestroyElements();
    void LeaveBuffer();
    void ReplaceBuffer(MemChunk& fresh, unsigned long byte_offset);
    void ResizePlain(unsigned long length, bool keep, bool init, unsigned long size);
    void ResizeObjects(unsigned long length, bool keep, unsigned long size);
    void Reallocate(unsigned long size, bool keep, bool zero_new);
    void MoveToNewBlock(unsigned long size);
    void swap(TypedChunk& o) noexcept;

    MemChunk chunk_;
    void* data_ = nullptr;
    unsigned long length_ = 0;
    DataType type_ = DataTypeBase::Byte;
    unsigned char elem_size_ = 1;
    bool no_destroy_ = false;
    mutable DelayedInitializer* delayed_ = nullptr; // owned
};

/// The same as `Consistent`; the message goes to standard error.
MEMBLOCK_API bool IsConsistent(TypedChunk& chunk);

} // namespace NKelmic

#endif // MEMBLOCK_CORE_TYPEDCHUNK_H
