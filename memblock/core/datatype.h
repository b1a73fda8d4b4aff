#ifndef MEMBLOCK_CORE_DATATYPE_H
#define MEMBLOCK_CORE_DATATYPE_H

#include <memblock/base/raise.h>
#include <memblock/core/fwd.h>
#include <memblock/export.h>

#include <algorithm>
#include <limits>
#include <type_traits>
#include <utility>

namespace NKelmic {
using namespace Ntarnwick;

/// An unsigned 24-bit integer of three bytes, least significant first; range 0 to 16777215.
struct MEMBLOCK_API triple {
    unsigned char b[3];
    triple() = default;
    constexpr triple(unsigned int v)
        : b{static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
            static_cast<unsigned char>(v >> 16)}
    {
    }
    constexpr operator unsigned int() const { return b[0] | b[1] << 8 | b[2] << 16; }
};
static_assert(sizeof(triple) == 3 && alignof(triple) == 1 && std::is_trivially_copyable_v<triple>);

/// The one list of element types, by kind: enumerator, id, C++ type, text. Sets, dispatch,
/// instances and per-type sources are made from it; a type is in exactly one of the first five
/// lists. Ids are stored in files, options and scripts, so no row ever changes; 11 and 12 are
/// unused.
#define MEMBLOCK_SIGNED_ELEM_TYPES(X)                                                              \
    X(Int, 0, int, "signed int")                                                                   \
    X(Short, 2, short, "signed short")                                                             \
    X(Char, 4, char, "signed char")                                                                \
    X(Int64, 15, long long, "signed int64")
#define MEMBLOCK_UNSIGNED_ELEM_TYPES(X)                                                            \
    X(UnsignedInt, 1, unsigned int, "unsigned int")                                                \
    X(UnsignedShort, 3, unsigned short, "unsigned short")                                          \
    X(Byte, 5, unsigned char, "byte")                                                              \
    X(Triple, 10, triple, "triple")                                                                \
    X(UnsignedInt64, 16, unsigned long long, "unsigned int64")
#define MEMBLOCK_FLOAT_ELEM_TYPES(X)                                                               \
    X(Float, 6, float, "float")                                                                    \
    X(Double, 7, double, "double")
#define MEMBLOCK_OBJECT_ELEM_TYPES(X)                                                              \
    X(PMemory, 9, PMemBlock, "memblock")                                                           \
    X(String, 13, safestring, "string")                                                            \
    X(PolyType, 14, DataItem, "polytype")
#define MEMBLOCK_ADDRESS_ELEM_TYPES(X) X(VoidStar, 8, void*, "voidstar")

#define MEMBLOCK_NUMERIC_ELEM_TYPES(X)                                                             \
    MEMBLOCK_SIGNED_ELEM_TYPES(X)                                                                  \
    MEMBLOCK_UNSIGNED_ELEM_TYPES(X)                                                                \
    MEMBLOCK_FLOAT_ELEM_TYPES(X)
/// All but bare addresses.
#define MEMBLOCK_VALUE_ELEM_TYPES(X)                                                               \
    MEMBLOCK_NUMERIC_ELEM_TYPES(X)                                                                 \
    MEMBLOCK_OBJECT_ELEM_TYPES(X)
#define MEMBLOCK_ELEM_TYPES(X)                                                                     \
    MEMBLOCK_VALUE_ELEM_TYPES(X)                                                                   \
    MEMBLOCK_ADDRESS_ELEM_TYPES(X)

static_assert(std::is_signed_v<char>, "Char elements are plain char: build with -fsigned-char");

/// Holds the element type ids, so that `Vector::Int` and the like can be written.
struct DataTypeBase {
    /// A fixed underlying type: any int may be stored and tested without undefined behaviour.
    enum DataType : int {
#define MEMBLOCK_ENUMERATOR(NAME, ID, T, TEXT) NAME = ID,
        MEMBLOCK_ELEM_TYPES(MEMBLOCK_ENUMERATOR)
#undef MEMBLOCK_ENUMERATOR
            NoType = 11 ///< "no change" where a type is asked for; never an element type
    };
};
using DataType = DataTypeBase::DataType;

/// Tag that carries an element type into a kernel: `[&]<class T>(TypeTag<T>) { ... }`.
template <class T>
struct TypeTag {
    using type = T;
};
/// The tag by its earlier name. Inside of `Vector` it is hidden by the member function.
template <class T>
using Elem = TypeTag<T>;

/// The greatest id of an element type.
#define MEMBLOCK_ID(NAME, ID, T, TEXT) , ID
constexpr int greatest_elem_type_id = [](int, auto... id) {
    return std::max({id...});
}(0 MEMBLOCK_ELEM_TYPES(MEMBLOCK_ID));
#undef MEMBLOCK_ID

/// The element type id of a C++ type: `type_of<float>::value == DataTypeBase::Float`.
template <class T>
struct type_of;
#define MEMBLOCK_TYPE_OF(NAME, ID, T, TEXT)                                                        \
    template <>                                                                                    \
    struct type_of<T> {                                                                            \
        static constexpr DataType value = DataTypeBase::NAME;                                      \
    };
MEMBLOCK_ELEM_TYPES(MEMBLOCK_TYPE_OF)
#undef MEMBLOCK_TYPE_OF

/// A set of element types, named by the caller of `WithElemType`.
template <class First, class... T>
struct TypeSet {
    using first = First;
    template <class U>
    static constexpr bool has = std::is_same_v<First, U> || (std::is_same_v<T, U> || ...);
};

/// The union of sets.
template <class First, class... Set>
struct TypeUnion {
    using first = typename First::first;
    template <class U>
    static constexpr bool has = First::template has<U> || (Set::template has<U> || ...);
};

#define MEMBLOCK_LISTED(NAME, ID, T, TEXT) , T
template <class None, class First, class... T>
using ListedTypes = TypeSet<First, T...>; // a list begins with a comma, hence the unused parameter
using SignedTypes = ListedTypes<void MEMBLOCK_SIGNED_ELEM_TYPES(MEMBLOCK_LISTED)>;
using UnsignedTypes = ListedTypes<void MEMBLOCK_UNSIGNED_ELEM_TYPES(MEMBLOCK_LISTED)>;
using FloatTypes = ListedTypes<void MEMBLOCK_FLOAT_ELEM_TYPES(MEMBLOCK_LISTED)>;
using ObjectTypes = ListedTypes<void MEMBLOCK_OBJECT_ELEM_TYPES(MEMBLOCK_LISTED)>;
#undef MEMBLOCK_LISTED
using IntegerTypes = TypeUnion<SignedTypes, UnsignedTypes>;
using NumericTypes = TypeUnion<IntegerTypes, FloatTypes>;
using PlainTypes = TypeUnion<NumericTypes, TypeSet<void*>>;
using AllTypes = TypeUnion<PlainTypes, ObjectTypes>;

/// How many types a set has. A source that decides for each type of a set by hand asserts the
/// number that it knows, so that a new row of the list finds it.
#define MEMBLOCK_COUNTED(NAME, ID, T, TEXT) +Set::template has<T>
template <class Set>
constexpr int type_count = 0 MEMBLOCK_ELEM_TYPES(MEMBLOCK_COUNTED);
#undef MEMBLOCK_COUNTED

/// The numbers of a set that take at most so many bytes.
template <class Set, unsigned int bytes>
struct TypesUpTo {
    using first = typename Set::first;
    template <class U>
    static constexpr bool has = [] {
        if constexpr (Set::template has<U>)
            return sizeof(U) <= bytes;
        else
            return false; // of another type the size may be unknown here
    }();
};

/// The text of an element type; "" for an id out of range.
constexpr char const* TypeToString(DataType type)
{
    switch (type) {
#define MEMBLOCK_TEXT(NAME, ID, T, TEXT)                                                           \
    case DataTypeBase::NAME:                                                                       \
        return TEXT;
        MEMBLOCK_ELEM_TYPES(MEMBLOCK_TEXT)
#undef MEMBLOCK_TEXT
    case DataTypeBase::NoType:
        break;
    }
    return "";
}

/// Call `kernel(TypeTag<T>{})` for the C++ type of `type` if it is in `Set`, `missed()` otherwise.
///
/// This is the only switch from a runtime type to a template. Every kernel of one call returns the
/// same type.
template <class Set, class Miss, class Kernel>
decltype(auto) WithElemTypeOr(DataType type, Miss&& missed, Kernel&& kernel)
{
    switch (type) {
#define MEMBLOCK_CASE(NAME, ID, T, TEXT)                                                           \
    case DataTypeBase::NAME:                                                                       \
        if constexpr (Set::template has<T>)                                                        \
            return kernel(TypeTag<T>{});                                                           \
        else                                                                                       \
            break;
        MEMBLOCK_ELEM_TYPES(MEMBLOCK_CASE)
#undef MEMBLOCK_CASE
    case DataTypeBase::NoType:
        break;
    }
    return missed();
}

/// The same; a type outside `Set` raises `code` with the text `miss`, whose one %s is the type.
template <class Set, class Kernel>
decltype(auto) WithElemType(DataType type, char const* miss, Kernel&& kernel,
                            unsigned int code = err_kind)
{
    using Result = decltype(kernel(TypeTag<typename Set::first>{}));
    return WithElemTypeOr<Set>(
        type, [&]() -> Result { Raise(code, miss, TypeToString(type)); },
        std::forward<Kernel>(kernel));
}

/// Whether a runtime type belongs to a set; ids out of range belong to none.
template <class Set>
constexpr bool IsInSet(DataType type)
{
    return WithElemTypeOr<Set>(
        type, [] { return false; }, []<class T>(TypeTag<T>) { return true; });
}

} // namespace NKelmic

/// Without this `std::numeric_limits<triple>` would give 0 for every bound.
template <>
class std::numeric_limits<NKelmic::triple> {
public:
    static constexpr bool is_specialized = true;
    static constexpr bool is_signed = false;
    static constexpr bool is_integer = true;
    static constexpr bool is_exact = true;
    static constexpr bool has_infinity = false;
    static constexpr bool has_quiet_NaN = false;
    static constexpr int digits = 24;
    static constexpr NKelmic::triple min() { return 0U; }
    static constexpr NKelmic::triple lowest() { return 0U; }
    static constexpr NKelmic::triple max() { return 0xFFFFFFU; }
};

#endif // MEMBLOCK_CORE_DATATYPE_H
