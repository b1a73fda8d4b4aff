#ifndef MEMBLOCK_VECTOR_VECTOR_H
#define MEMBLOCK_VECTOR_VECTOR_H

#include <memblock/core/dataitem.h>
#include <memblock/core/memblock.h>
#include <memblock/core/safevalue.h>
#include <memblock/core/typedchunk.h>
#include <memblock/vector/summary.h>

namespace NKelmic {

/// How `Vector::RealToPixel` comes to an integer.
enum rounding_t : int { rounding_floor = 1, rounding_ceil = 2, rounding_nearest = 3 };

/// The typed one-dimensional array, base of all array classes.
///
/// It holds one buffer view and one raw factor: the cooked value of an element is its raw value
/// times the factor. Copies share the buffer until one of them is written. A length is at most
/// 0x7FFFFFFF, so that each `int` position and count in this interface is good for all of it.
///
/// Read through a `Vector const&` (`cref(pointer)`): the non-const data accessors make a shared
/// buffer private first. They do not drop cached summary values either; who writes through a
/// pointer calls `ContentHasBeenChanged()` when it is done.
///
/// Errors raised here have code 128 unless stated otherwise.
class MEMBLOCK_API Vector : public MemBlock, public DataTypeBase {
public:
    static char const* StaticClass() { return "vector"; }

    // ---- Creation: each function returns an object with one owner.

    static DerivedPointer<Vector> Create(); ///< empty, of type Int
    /// Share the buffer of `chunk`. Throws, as all that wrap memory: "A null buffer cannot hold %u
    /// elements.", unless a delayed initialization is to bring it.
    static DerivedPointer<Vector> Create(TypedChunk const& chunk, double factor);
    static DerivedPointer<Vector> Create(TypedChunk&& chunk, double factor); ///< or take it over
    /// Make a vector of zeros, empty texts, undefined values or null objects.
    ///
    /// The bool is ignored: a new buffer is always initialized. With `first` above 0 that many
    /// elements precede index 0, see `SetFirstIndex`; plain element types only.
    /// Throws: 256 for lengths above the limit; 4096 "Operation not supported: VC139".
    static DerivedPointer<Vector> Create(unsigned long length, DataType, bool ignored, int first,
                                         double factor);
    /// Wrap a foreign buffer of `first + length` elements. `deleter` runs once, when the last
    /// user of the buffer is gone; null leaves the buffer to the caller.
    /// Throws, and leaves the buffer to the caller too: 256 for lengths above the limit; "A null
    /// buffer cannot hold %u elements.".
    static DerivedPointer<Vector> Create(unsigned long length, DataType, void* buffer,
                                         void (*deleter)(void*), int first, double factor);
    static DerivedPointer<Vector> Create(unsigned long length, DataType, void* buffer,
                                         void (*deleter)(void*, void*), void* context, int first,
                                         double factor);
    /// Make a vector of one element: Int, Double, String, PolyType, PMemory.
    static DerivedPointer<Vector> CreateFrom(int);
    static DerivedPointer<Vector> CreateFrom(double);
    static DerivedPointer<Vector> CreateFrom(safestring const&);
    static DerivedPointer<Vector> CreateFrom(char const*);
    static DerivedPointer<Vector> CreateFrom(DataItem const&);
    static DerivedPointer<Vector> CreateFrom(PMemBlock const&);
    /// Take over the memory of the carrier as Byte elements; the carrier is left empty.
    static DerivedPointer<Vector> CreateFrom(Carrier const&);
    /// Take over the characters of a text as Byte elements, without a copy; it is left empty.
    static DerivedPointer<Vector> CreateFromSafeString(safestring&);
    /// Count from one number to the other, both included, up or down, as Int. If either text is
    /// not a whole decimal or 0x number: the two texts as String elements.
    static DerivedPointer<Vector> MakeSequence(safestring const& from, safestring const& to);

    // ---- MemBlock

    char const* Class() const override;
    bool Conforms(char const*) const override; ///< "vector"; "color_data" for colour planes
    bool Entertain(MemBlockVisitor&, safestring const& key, entertainmode_t) override;
    DataItem DoVerb(char const*, int, SafeValue*) override;
    bool AddConvertArg(safestring const&, DataItem const&, ConvertOptions&,
                       ThrowHandlerFunc) const override;
    PMemBlock ConvertFrom(PMemBlock, ConvertOptions const&) const override;
    bool Consistent(safestring& message, bool deep) const override;
    char const* ClassDescription() const override;
    PMemBlock op(char, PMemBlock, op_options const&) const override;

protected:
    /// 0 or less copies the payload, and objects in it with their own payload; others share.
    PMemBlock DoClone(int mode) const override;
    MemBlockImpl* DoPimpl() const override;

public:
    /// Equal factor (to 4.4e-16) and equal bytes; texts are so only in one shared buffer.
    bool Equals(MemBlock const&) const override;

protected:
    bool DoSetSubItem(safestring const&, SafeValue const&, safestring const&,
                      ThrowHandlerFunc) override;
    safestring DoGetDescription() const override;

public:
    DataItem ResolveSubItem(safestring const&, ThrowHandlerFunc) const override;

protected:
    void DoSerialize(int, SerializeVisitor&, safestring const&, Formatter const&,
                     safestring&) const override;

public:
    ~Vector() override;

    // ---- Appended virtuals, in this order.

    /// Change the element type in place. With `contents` the cooked values stay, see
    /// `ConvertElemsToType`; without it the bytes are read as the other type and the length
    /// follows, or for object types the elements start anew.
    virtual void SetElemType(DataType, bool contents, bool keep_factor);
    /// Raw element as int: floats round half away from zero, 64 bits keep their low word.
    /// Throws: "Vector::operator[]: index out of bounds (%d): %d" (length, index).
    virtual int operator[](unsigned int) const;
    /// Raw element as double. Throws: "Vector index out of bounds (%d): %d" (length, index).
    virtual double Elem(unsigned int) const;
    virtual int GetRank() const;                ///< 1
    virtual unsigned int GetDimSize(int) const; ///< the length for 0, otherwise 0
    virtual DerivedPointer<Vector> GetDimSizes() const;
    virtual void ChangeDimSizes(unsigned int const* dims, int n);
    /// Change the length; for a class with a shape the outermost dimension follows.
    /// Throws, with nothing changed: 256 above the length limit; "Cannot set total length %u for
    /// object: %s" if the other dimensions do not divide `n`.
    virtual void ResizeVector(unsigned long n, bool keep, bool init);
    /// Make `newlen` elements of which element k is the old element `idx[k]`, for k below `n`.
    /// Object elements move, so an index counts once only there. A bad index is reported to the
    /// handler and leaves the vector as it was.
    virtual void Rearrange(int const* idx, unsigned int n, unsigned int newlen, ThrowHandlerFunc);
    /// Move all elements `n` places up, zeros behind them, or with a negative `n` down, where the
    /// first ones go.
    virtual void ShiftVector(int n);
    /// Add the elements of another vector at the end, which may be this one.
    ///
    /// Cooked values count: the operand is taken to the factor of this vector, and either side to
    /// a type that covers both. An image whose logical class has no pixels of that type becomes one
    /// of data. Throws, with nothing changed: "Cannot append non-vector to a vector: %s",
    /// "Vector::Append(): Could not convert another vector in my representation."; 32 "Cannot
    /// change image pixel type to: %s" for objects.
    virtual void Append(DerivedPointer<Vector>);

protected:
    /// Copy the elements `from` up to, not including, `to`; from < to <= length.
    virtual DerivedPointer<Vector> DoCloneSlice(unsigned int from, unsigned int to) const;

public:
    // ---- Queries

    unsigned int Length() const { return static_cast<unsigned int>(chunk_.Length()); }
    DataType ElemType() const { return chunk_.Type(); }
    unsigned int ElemSize() const { return chunk_.ElemSize(); }
    double Factor() const { return factor_; }
    void const* Pointer() const; ///< runs a delayed initialization
    void* Pointer();             ///< makes the buffer private, too
    /// Whether the elements may be read as `type`: the same type, or the same width with no Float
    /// on either side; never as PMemory.
    bool CanBeCast(DataType type) const;
    TypedChunk const& Chunk() const { return chunk_; }
    static unsigned int SizeOf(DataType type) { return TypedChunk::SizeOf(type); }
    static char const* TypeToString(DataType type) { return NKelmic::TypeToString(type); }
    static bool IsObject(DataType type) { return TypedChunk::IsObject(type); }

    // Typed pointers to element i: IntPointer(i), BytePointer(i) and so on, a const and a
    // non-const form for each row of the element type list.
    // Throws: "Cannot cast data to Int type: %s" and the like where `CanBeCast` says no.
#define MEMBLOCK_VECTOR_POINTERS(NAME, ID, T, TEXT)                                                \
    T const* NAME##Pointer(unsigned int i = 0) const;                                              \
    T* NAME##Pointer(unsigned int i = 0);
    MEMBLOCK_ELEM_TYPES(MEMBLOCK_VECTOR_POINTERS)
#undef MEMBLOCK_VECTOR_POINTERS

    /// The same by C++ type, for the families.
    template <class T>
    T const* TypedPointer() const
    {
        CheckCast(type_of<T>::value);
        return static_cast<T const*>(Pointer());
    }
    template <class T>
    T* TypedPointer()
    {
        CheckCast(type_of<T>::value);
        return static_cast<T*>(Pointer());
    }

    // ---- Element reads; all raw but `GetDataItemWithFactor`. A bad index throws as in `Elem`.

    /// As `operator[]`, but an UnsignedInt keeps its upper half.
    unsigned int ElemUInt(unsigned int) const;
    PMemBlock ElemMemory(unsigned int) const; ///< of a PMemory vector
    int GetInt(int) const;
    double GetDouble(int) const;
    safestring GetString(int) const; ///< floats with 6 significant digits, "NaN", "inf", "-inf"
    DataItem GetDataItem(int) const; ///< in the nearest kind of value
    DataItem GetDataItemWithFactor(int) const;

    // ---- Element writes
    // Throws: "Vector::SetElem() called with invalid index: %d (must be <%d)"; "Vector::SetElem():
    // Value (%s) out of range for data item: %s" and the like for a value that the type can't hold.

    /// Store a cooked value: it is divided by the factor, and truncated for integer types.
    void SetElem(unsigned int, double);
    // Settled: integers are stored as they are. The factor of integer data is mostly a calibration
    // that scripts set after they have filled in the counts.
    void SetElem(unsigned int, int);
    void SetElem(unsigned int, unsigned int);
    void SetElem(unsigned int, long long);
    void SetElem(unsigned int, unsigned long long);
    void SetElem(unsigned int i, long v)
    {
        SetElem(i, static_cast<long long>(v));
    }
    void SetElem(unsigned int i, unsigned long v)
    {
        SetElem(i, static_cast<unsigned long long>(v));
    }
    void SetElem(unsigned int, safestring const&); ///< read as a number where one is wanted
    void SetElem(unsigned int, char const*);
    /// Store the object, or the cooked element 0 of a vector where a number or text is wanted.
    void SetElem(unsigned int, PMemBlock);
    /// Store by the kind of the item. Throws: "Cannot insert into a vector: %s".
    void SetElem(unsigned int, DataItem const&);

    // ---- Structure. Each of these leaves the vector as it was if it throws.

    /// Take out `count` elements, or as many as there are. Throws for negative arguments:
    /// "Vector::Erase() called with illegal parameters: %d, %d".
    void Erase(int pos, int count);
    /// Throws: "Cannot insert element at position %d into: %s"; "Function movebyone_tmpl not
    /// implemented for data type '%s'" for objects and pointers.
    void Insert(int pos, DataItem const&);
    /// Store one raw value everywhere; integers round half away from zero.
    /// Throws: "The initialization value does not fit in the destination type: %d".
    void Fill(DataItem const&);
    void Clear(); ///< all elements as in a new vector; type and length stay
    /// Copy a part, `to` not included. 0 for `to` means `from + 1`, but equal limits, 0 and 0
    /// among them, give an empty vector. Throws: 32 "Vector::CloneSlice(): start index invalid
    /// (%d): %s".
    DerivedPointer<Vector> CloneSlice(unsigned int from, unsigned int to) const;
    /// Let the first `n` elements vanish without a copy; a negative `n` brings back such ones, or
    /// those that `Create` put ahead of index 0. What those hold is open after other edits.
    void SetFirstIndex(int n);
    /// Exchange buffer, type and length; a class with a shape follows through `ResizeVector`, and
    /// the logical class of an image as in `Append`. Throws, with nothing changed, as `Create`,
    /// `ResizeVector` and `Append` do for the chunk, the length and the type.
    void SetTypedChunk(TypedChunk const&);
    /// Look at the memory of another vector through the own type and length. Returns whether both
    /// buffers had one size before. Object elements need equal types and lengths.
    bool UseMemoryOf(DerivedPointer<Vector> const& other);
    /// Let `target` use the memory of this vector, which is left as an empty Byte vector.
    void TransferOwnerShip(DerivedPointer<Vector> target);
    /// Change the meaning of the elements, not the elements. Throws: 512 "Cannot set raw factor
    /// to %g for a non-data image, set image.@type=\"data\" beforehand: %s".
    void SetFactor(double);
    /// The raw integer nearest to, below or above a cooked value. "Nearest" adds 0.5 and
    /// truncates, so it is meant for values that are not negative.
    int RealToPixel(double, rounding_t) const;
    void ClearBorders() const; ///< asks the class for the conversion "clearedborders"

    // ---- Element type conversion, see also convert.h

    /// Convert to another element type so that the cooked values stay; this object never changes.
    ///
    /// The result is of the same class and shape, or this object itself if there is nothing to do.
    /// Without `contents` its elements are left open, for callers that overwrite them all.
    /// Integers that do not fit are shifted right, floats are scaled, and the factor makes up for
    /// it; with `keep_factor` this is an error instead.
    DerivedPointer<Vector> ConvertElemsToType(DataType, bool contents, bool keep_factor) const;
    /// Bring the raw values to another factor, rounding integers half away from zero.
    /// Throws: 512 "Data overflow: either %g or %g does not fit into destination data type of %d
    /// byte, %s."; "Vector::EnsureFactor() not supported for vector type: %s".
    void EnsureFactor(double);
    /// The smallest type for a range of values. Never Triple or 64 bits; Double where no integer
    /// type fits, or for NaN.
    static DataType MinMax2Type(double min, double max);
    /// Read an element type as scripts write it: "unsigned,short", "8bpp", "double", "5".
    /// Errors go to the handler; the result is then `NoType`.
    static DataType String2Type(safestring const&, ThrowHandlerFunc);

    // ---- Forms and summary values

    void SerializeMorvane(SerializeVisitor&, safestring const& name, Formatter const&,
                          safestring& out) const;
    PMemBlock GetHistogram(int bins, bool flag) const;
    static char const* Key2string(int); ///< a thread's own buffer for unnamed keys

protected:
    Vector();
    Vector(TypedChunk const&, double factor);
    Vector(TypedChunk&&, double factor);
    /// Share plain data; object elements are copied at once.
    Vector(Vector const&);
    /// The same kind of object, with other data.
    Vector(Vector const&, TypedChunk const&, double factor);

    /// What every `DoClone` does behind its copy constructor: as `mode` asks, give the copy its own
    /// payload and its own objects.
    void FinishClone(int mode);
    /// Take another element type with the same length and shape; the elements are left open.
    void Retype(DataType);
    friend class VectorOperation; // gives results their type
    /// Take converted elements of the same length: notice, buffer, factor, cache.
    void InstallConverted(TypedChunk const&, double factor);
    /// Throw as `ResizeVector` does if the vector can't have this length.
    void CheckNewLength(unsigned long n) const;

private:
    void Changed() // without a cache there is nothing to call
    {
        if (PimplIfAny())
            ContentHasBeenChanged();
    }
    void CheckCast(DataType type) const
    {
        if (type != ElemType())
            CheckCast(type, "Cannot cast data array into requested type: %s");
    }
    void CheckCast(DataType type, char const* refusal) const;
    void CheckElemIndex(unsigned int i) const;
    void CheckSetIndex(unsigned int i) const;
    void CheckFactor(double factor) const;
    bool UseMemoryOf(Vector const& other);
    void FollowLength(unsigned long n);
    void Shorten(unsigned long n);
    void NotifyElemType(DataType type);
    void ReadAs(DataType type);
    DerivedPointer<Vector> CloneWith(TypedChunk const&, double factor) const;
    void AppendSameType(Vector const& v, unsigned long added);

    double factor_;
    TypedChunk chunk_;
};

/// A vector of one element of the type that fits `T`.
template <class T>
MEMBLOCK_API DerivedPointer<Vector> memblock_tmpl(T const&);

// The workers behind Vector, a member per element type.
template <class T>
MEMBLOCK_API void SetElemInt64(Vector&, unsigned int, long long);
template <class T>
MEMBLOCK_API void SetElemUInt64(Vector&, unsigned int, unsigned long long);
template <class T>
MEMBLOCK_API void fill_tmpl(void* buffer, int length, SafeValue const&, T*);
/// Swap `src[idx[k]]` into `dst[k]`.
template <class T>
MEMBLOCK_API void rearrange_swap(T* dst, T* src, int const* idx, unsigned int n,
                                 unsigned int srclen);
/// Swap the `count` elements at `pos` behind all that follow them, whose order stays.
template <class T>
MEMBLOCK_API void move_range_to_end_by_swap(T* data, unsigned int pos, unsigned int count,
                                            unsigned int length);
/// Move the elements from `pos` one place up; the last one's old value ends at `pos`.
template <class T>
MEMBLOCK_API void movebyone_tmpl(T* data, unsigned int pos, unsigned int length);

/// The release function of `CreateFromSafeString`: deletes the text.
MEMBLOCK_API void SafeStringDeleter(void* data, void* string);
/// Whether the object is a vector of three images of equal dimensions, type and factor.
MEMBLOCK_API bool IsVectorOfColorPlanes(PMemBlock const&);
/// Multiply a value by a factor; it turns into a double.
MEMBLOCK_API void ApplyFactor(DataItem&, double);

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_VECTOR_H
