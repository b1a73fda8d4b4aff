#ifndef MEMBLOCK_CORE_DATAITEM_H
#define MEMBLOCK_CORE_DATAITEM_H

#include <memblock/core/datatype.h>
#include <memblock/core/memblock.h>
#include <memblock/threads/threadsharable.h>

#include <concepts>
#include <cstddef>
#include <cstring>
#include <map>
#include <string_view>
#include <type_traits>
#include <utility>

namespace NKelmic {

/// What a `DataItem` holds. The numbers are stored by scripts and never change.
enum ItemType {
    it_shortstring = 0, ///< up to 20 bytes of text, inline
    it_int = 1,
    it_double = 2,
    it_unused3 = 3,
    it_pointer = 4,  ///< a raw pointer, not owned
    it_memblock = 5, ///< an object, one count
    it_string = 6,   ///< a text on the heap, owned
    it_sharable = 7, ///< a `ThreadSharable`, one count
    it_any = 8,      ///< a tag for `Type2XmlType`, never stored
    it_unused9 = 9,
    it_int64 = 10,
    it_undefined = 11
};

/// The short name of an item type in XML forms; "" for a type without one.
MEMBLOCK_API char const* Type2XmlType(ItemType type);

/// Character positions just behind multibyte characters, each with its byte position.
typedef std::map<int, int> UtfPosCache;

/// Compare a text with a value so that numbers in text act as numbers.
///
/// Two numbers (the words pi, oo, nan, inf, -inf among them) compare by value, everything else as
/// text without regard to ASCII case. Returns -1, 0 or 1, and -2 if a NaN is involved.
MEMBLOCK_API int string_compare(safestring const& left, DataItem const& rhs);

/// Tell whether a text reads as a number in comparisons, and whether as an integer.
///
/// Settled: "+", "-", "0x" and "5e" pass too. A false result writes nothing.
MEMBLOCK_API bool is_numeric_ex(char const* text, bool& is_integer);

/// The polytype value: undefined, a number, a text, a raw pointer, or a counted reference to an
/// object or a sharable.
///
/// 24 bytes. Numbers and texts of up to 20 bytes are copied by plain stores and own nothing. An
/// item belongs to one thread at a time. Unused bytes of the value area are zero, so that equal
/// numbers and short texts are equal bytes. An item may be moved to another place byte by byte.
///
/// The readers convert as far as they can and raise what they can't; `SafeValue` states which
/// conversions are legal. An undefined item is no error in itself: soft look-ups answer with it.
class MEMBLOCK_API DataItem {
public:
    /// Text of up to this many bytes is held inline.
    static constexpr std::size_t max_inline = 20;

    DataItem() noexcept { SetUndefined(); }
    DataItem(int v) noexcept { Set(it_int, v); }
    /// An int below 0x80000000, else a double of the same value.
    DataItem(unsigned int v) noexcept;
    DataItem(long v) noexcept : DataItem(static_cast<long long>(v)) {}
    DataItem(unsigned long v) noexcept : DataItem(static_cast<unsigned long long>(v)) {}
    DataItem(long long v) noexcept { Set(it_int64, v); }
    /// An int64 while the top bit is clear, else a double.
    DataItem(unsigned long long v) noexcept;
    DataItem(double v) noexcept { Set(it_double, v); }
    /// An int of the three bytes.
    DataItem(triple const& v) noexcept : DataItem(static_cast<int>(static_cast<unsigned>(v))) {}
    DataItem(void* v) noexcept { Set(it_pointer, v); }
    /// An object goes in by reference or by its pointer class; a bare pointer would lose its count.
    template <class T, class = std::enable_if_t<!std::is_void_v<T> &&
                                                !std::is_same_v<std::remove_cv_t<T>, char>>>
    DataItem(T*) = delete;
    /// Null gives the empty text.
    DataItem(char const* text);
    /// A text of up to 20 bytes ends at an inner NUL.
    DataItem(safestring const& text);
    /// Take over a text and the position cache that belongs to it.
    ///
    /// A text above 20 bytes is swapped in and leaves `text` empty. A shorter one is copied, and
    /// the cache is freed unless it is null or `c_IsAscii`.
    DataItem(safestring& text, UtfPosCache* cache);
    DataItem(MemBlock& block) noexcept { Hold(&block); }
    /// Null gives undefined.
    DataItem(PMemBlock const& block) noexcept { Hold(block.Pointer()); }
    DataItem(ThreadSharable& sharable) { Hold(&sharable); }
    /// Null gives undefined.
    DataItem(ThreadSharablePointer<ThreadSharable> const& sharable) { Hold(sharable.Pointer()); }
    template <class T>
    DataItem(ThreadSharablePointer<T> const& sharable)
    {
        Hold(static_cast<ThreadSharable*>(sharable.Pointer()));
    }

    /// Copy value and creator. A long text is duplicated, its position cache too.
    ///
    /// Throws the `char const*` "Never happens - DI259" for an item of a type that is not in use.
    DataItem(DataItem const& o) : bits_(o.bits_)
    {
        if (!IsPlain())
            CountCopy();
    }
    /// Leaves `o` undefined.
    DataItem(DataItem&& o) noexcept : bits_(o.bits_) { o.SetUndefined(); }
    ~DataItem()
    {
        if (!IsPlain())
            Drop();
    }
    /// The copy is made first: if it fails, this item is as it was.
    DataItem& operator=(DataItem const& o)
    {
        if (IsPlain() && o.IsPlain())
            bits_ = o.bits_;
        else if (this != &o)
            AssignOwner(o);
        return *this;
    }
    DataItem& operator=(DataItem&& o) noexcept
    {
        DataItem(std::move(o)).swap(*this);
        return *this;
    }

    ItemType GetType() const { return static_cast<ItemType>(bits_.type); }
    bool IsUndefined() const { return bits_.type == it_undefined; }
    bool IsDefined() const { return bits_.type != it_undefined; }

    /// The line of the macro text that made the value, -1 if none is known.
    int GetCreator() const { return bits_.creator; }
    /// Throws: 4096 "Script too long(?)" outside -32768 to 32767.
    void SetCreator(int line);

    /// Hold a copy of the text, as a new item would.
    void Assign(safestring const& text);
    /// The same, but a long text is swapped in. `text` is empty afterwards.
    void AssignOrSwap(safestring& text);
    /// Exchange text and position cache with the caller's.
    ///
    /// An item that holds no long text becomes one first, by `GetString`. A cache that comes out is
    /// the caller's to free, see `FreeUtfPosCache`.
    void Swap(safestring& text, UtfPosCache*& cache);
    /// Exchange all 24 bytes; no count changes.
    void swap(DataItem& o) noexcept { std::swap(bits_, o.bits_); }

    /// The value as an integer; halves round away from zero, undefined is 0.
    ///
    /// An object reads as its verb "scalar", as 0 without one.
    /// Throws: 512 "Cannot convert data item to int: %s" (%s: `GetString`) out of range, for NaN
    ///         and for a sharable; 512 "An attempt to convert a raw pointer to 32-bit int"; a text
    ///         that is no number raises what `StrToNumber` raises.
    int GetInt() const;
    /// The same in 64 bits. A raw pointer gives its address, 2^63 gives the greatest value.
    ///
    /// Throws: 512 "Cannot convert data item to int64: %s" (%s: `GetDescription`).
    long long GetInt64() const;
    /// The value as a double; a raw pointer is 0.0.
    ///
    /// Settled: undefined raises here, although it reads as 0 by `GetInt` and `GetInt64`.
    /// Throws: 512 "Cannot convert data item to double: %s" (%s: `GetString`).
    double GetDouble() const;
    /// The value as text, doubles with 12 digits; an object gives its scalar or its description.
    safestring GetString() const;
    void GetStringTo(safestring& out) const;
    void GetString(opaquestring& out) const;
    /// The characters of a text, or of a string vector of one element, which is detached.
    ///
    /// Settled: any other value is printed into one process-wide buffer of 512 bytes, which the
    /// next such call of any thread overwrites and which a full text leaves without a NUL.
    /// Throws: 128 "Cannot cast data to String type: %s" for any other object.
    char const* GetStringPointer() const;
    /// The one string of a string vector. Throws as `GetStringPointer`, for all else too.
    safestring const& SingleStringRef() const;
    /// A raw pointer, or the elements of a vector, detached so that the caller may write.
    ///
    /// Throws: 512 "Cannot convert data item to void pointer: %s" (%s: `GetString`).
    void* GetPointer() const;
    /// Where the value is: in the item itself for numbers and short text, else its data or null.
    void* GetPrivatePointer() const;
    /// The object; a number or text gives a new vector of one element on each call, all else null.
    PMemBlock GetMemory() const;
    /// The object if it conforms, else the "vector" or "image" of an attribute object that does.
    ///
    /// Throws: 512 "Cannot convert data item to %s: %s", for null unless `may_be_null`.
    PMemBlock GetMemoryOfClass(char const* classname, bool may_be_null) const;
    PMemBlock GetMemoryClass(char const* classname, bool may_be_null) const;
    /// The stored pointer itself, so that a walk can replace the object in place.
    ///
    /// Throws an assertion for an item that holds no object.
    PMemBlock& MemoryRef();
    /// Null unless the item holds a sharable.
    ThreadSharablePointer<ThreadSharable> GetSharable() const;
    /// A text, or a string vector of one element.
    bool IsString() const;
    bool IsSingleStringVector() const;

    /// The text by which the value is written in a macro. 2147483647 reads "oo".
    ///
    /// Throws: 512 for an undefined item.
    safestring GetExpression() const { return GetExpression(12); }
    /// The same with this many significant digits for a double.
    safestring GetExpression(int precision) const;
    /// The text for messages: the value with the name of its type.
    safestring GetDescription() const;

    /// Compare by value across types, numbers in text as numbers.
    ///
    /// Returns -1, 0, 1 as this is below, equal or above, -2 if a NaN is involved. Ends the process
    /// if this item is undefined: that is a programming error.
    int Compare(DataItem const& rhs) const;
    /// Equal type and equal value.
    ///
    /// Settled: int 1 and double 1.0 are unequal; all infinities are equal, whatever their sign,
    /// and so are two NaNs; text is compared without regard to case.
    bool operator==(DataItem const& o) const;
    /// Settled: no strict weak order (an int against an int64 on the right compares as text), so
    /// never a sort criterion or a map key.
    bool operator<(DataItem const& o) const;

    /// One step of a path at the item level; `throw_always` without a handler.
    ///
    /// "" gives a copy, an object answers every key but "@creator" and "@expression" itself.
    /// Reports: 128 "A scalar data item (%s) does not have subkey: %s"; undefined is returned.
    DataItem ResolveSubItem(safestring const& key) const;
    DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const;
    /// Read a parameter out of this item.
    ///
    /// Throws: 128 "No such subitem \"%s\" in: %s", and what the conversion raises.
    void Fetch(safestring const& key, DataItem& out) const;
    void Fetch(safestring const& key, PMemBlock& out) const;
    void Fetch(safestring const& key, safestring& out) const;
    void Fetch(safestring const& key, double& out) const;
    void Fetch(safestring const& key, int& out) const;
    /// The same with a default for a missing or unfit value; false if the default was taken.
    bool Fetch(safestring const& key, DataItem& out, DataItem const& def) const;
    bool Fetch(safestring const& key, PMemBlock& out, PMemBlock const& def) const;
    bool Fetch(safestring const& key, safestring& out, safestring const& def) const;
    bool Fetch(safestring const& key, double& out, double const& def) const;
    bool Fetch(safestring const& key, int& out, int const& def) const;

    /// Check the object or sharable inside; a breach is appended to `message`.
    bool Consistent(safestring& message);
    /// The bytes that hang on this item; what is held twice counts once.
    long long CalcMemUsage() const;
    /// Walk this item and what it holds at the start event, which may change the item.
    void Traverse(TraverseVisitor& v, TraverseNode const& node);
    /// Serialize the object or sharable inside; false for anything else.
    bool Serialize(int format, SerializeVisitor& v, safestring const& path,
                   Formatter const& formatter, safestring& output) const;

    /// Replace a vector of one element by that element, cooked.
    void VectorToScalar();
    /// Replace a number or text by a vector of one element.
    void ScalarToVector();
    /// Give the item a private copy of its object or sharable.
    ///
    /// An object that nobody else holds stays, unless it is a vector of objects or items. What the
    /// object shares within itself stays shared in the copy.
    void MakeCopy();

    /// Make the position cache of a long text, once; other items have none.
    ///
    /// It stores the places behind multibyte characters only, so that a walk over a long text by
    /// character positions costs a look-up a step; pure ASCII gets the mark `c_IsAscii`.
    void BuildUtfPosCache() const;
    /// Convert between positions counted in characters and in bytes (UTF-8).
    int CharPosToBytePos(int c) const;
    int BytePosToCharPos(int b) const;
    static bool IsAscii(safestring const& text);
    /// Stands for the position cache of a text without multibyte characters.
    static UtfPosCache* const c_IsAscii;
    /// Free a cache that came out of `Swap`; null and `c_IsAscii` are left alone.
    static void FreeUtfPosCache(UtfPosCache* cache) noexcept
    {
        if (cache && cache != c_IsAscii)
            DestroyCache(cache);
    }

    /// Count a long text, for `PrintStat`. A length of 32 is not counted.
    static void AddStat(int length);
    /// Print the statistics of long texts to standard error.
    static void PrintStat();

private:
    typedef std::basic_string_view<char, safestring_traits> View;

    /// The whole item. Copying it as a plain struct is what makes copies of numbers cheap.
    struct alignas(8) Bits {
        unsigned char value[max_inline];
        unsigned char type; // directly behind: 0, short text, is the NUL of a 20-byte text
        short creator;
    };
    static_assert(sizeof(Bits) == 24 && offsetof(Bits, type) == 20 &&
                  offsetof(Bits, creator) == 22);

    static constexpr std::size_t cache_at = 8; // of a long text, behind the pointer to it
    static constexpr unsigned plain_types = 1U << it_shortstring | 1U << it_int | 1U << it_double |
                                            1U << it_pointer | 1U << it_int64 | 1U << it_undefined;

    /// Owns nothing: may be copied and dropped as it is.
    bool IsPlain() const { return (plain_types >> bits_.type & 1U) != 0; }
    void SetUndefined() noexcept { bits_ = Bits{{}, it_undefined, -1}; }
    template <class T>
    void Set(ItemType type, T word) noexcept
    {
        bits_ = Bits{{}, static_cast<unsigned char>(type), -1};
        Store(word);
    }
    template <class T>
    T Load(std::size_t at = 0) const noexcept
    {
        T word;
        std::memcpy(&word, bits_.value + at, sizeof word);
        return word;
    }
    template <class T>
    void Store(T word, std::size_t at = 0) const noexcept
    {
        std::memcpy(bits_.value + at, &word, sizeof word);
    }

    void Hold(MemBlock* block) noexcept
    {
        if (!block)
            return SetUndefined();
        block->Capture();
        Set(it_memblock, block);
    }
    void Hold(ThreadSharable* sharable);
    void HoldInline(char const* text, std::size_t length) noexcept;
    void HoldLong(safestring* text, UtfPosCache* cache) noexcept;

    /// The bits were copied: take what the copy must own itself.
    void CountCopy()
    {
        if (bits_.type != it_memblock)
            CountOther();
        else if (auto* block = Load<MemBlock*>())
            block->Capture();
    }
    void CountOther();
    void AssignOwner(DataItem const& o);
    static void DestroyCache(UtfPosCache* cache) noexcept;
    void Drop()
    {
        if (bits_.type != it_memblock)
            DropOther();
        else if (auto* block = Load<MemBlock*>())
            block->Release();
    }
    void DropOther();

    char const* Chars() const { return reinterpret_cast<char const*>(&bits_); }
    safestring& Long() const { return *Load<safestring*>(); }
    UtfPosCache* Cache() const { return Load<UtfPosCache*>(cache_at); }
    bool IsText() const { return bits_.type == it_shortstring || bits_.type == it_string; }
    View AsText() const; // of a text item
    bool FindText(View& text) const;
    PMemBlock const& Block() const; // of an object item, no count changes
    Vector* AsVector() const;       // null unless the item holds one
    safestring* SingleString() const;
    int CompareInteger(DataItem const& rhs) const;
    int CompareDouble(DataItem const& rhs) const;
    friend int string_compare(safestring const& left, DataItem const& rhs);

    mutable Bits bits_; // mutable: the position cache is made by readers
};
static_assert(sizeof(DataItem) == 24);

template <class T>
concept ItemClass = std::same_as<T, DataItem> || std::same_as<T, SafeValue>;

/// Lets a message name an item by its description, built only if somebody reads it.
///
/// Only for items as such: numbers and enumerators, which convert to one, are printed as they are.
template <ItemClass T>
safestring TextArg(T const& item)
{
    return item.GetDescription();
}

/// The forms behind `DataItem::Fetch`; instances for DataItem, PMemBlock, safestring, double, int.
template <class T>
void DataItemFetchThrow(DataItem const& item, safestring const& key, T& out);
template <class T>
bool DataItemFetchNoThrow(DataItem const& item, safestring const& key, T& out, T const& def);

/// Record the owning thread of the object inside; other items are left alone.
MEMBLOCK_API void AssignThreadId(DataItem& item, unsigned int id);

} // namespace NKelmic

#endif // MEMBLOCK_CORE_DATAITEM_H
