#include <memblock/vector/vector.h>

namespace NKelmic {

namespace {

template <DataType id>
struct elem_of;
#define MEMBLOCK_ELEM_OF(NAME, ID, T, TEXT)                                                        \
    template <>                                                                                    \
    struct elem_of<DataTypeBase::NAME> {                                                           \
        using type = T;                                                                            \
    };
MEMBLOCK_ELEM_TYPES(MEMBLOCK_ELEM_OF)
#undef MEMBLOCK_ELEM_OF

template <DataType id>
using elem_t = typename elem_of<id>::type;

} // namespace

void Vector::CheckCast(DataType type, char const* refusal) const
{
    // The text comes from the row of the type, so that a search for it leads there.
    if (!CanBeCast(type))
        Raise(err_kind, refusal, *this);
}

// One row a type; each text is whole, so that a search finds it.
#define MEMBLOCK_POINTER(NAME, REFUSAL)                                                            \
    elem_t<DataTypeBase::NAME> const* Vector::NAME##Pointer(unsigned int i) const                  \
    {                                                                                              \
        CheckCast(NAME, REFUSAL);                                                                  \
        return static_cast<elem_t<NAME> const*>(Pointer()) + i;                                    \
    }                                                                                              \
    elem_t<DataTypeBase::NAME>* Vector::NAME##Pointer(unsigned int i)                              \
    {                                                                                              \
        CheckCast(NAME, REFUSAL);                                                                  \
        return static_cast<elem_t<NAME>*>(Pointer()) + i;                                          \
    }

MEMBLOCK_POINTER(Int, "Cannot cast data to Int type: %s")
MEMBLOCK_POINTER(UnsignedInt, "Cannot cast data to UnsignedInt type: %s")
MEMBLOCK_POINTER(Short, "Cannot cast data to Short type: %s")
MEMBLOCK_POINTER(UnsignedShort, "Cannot cast data to UnsignedShort type: %s")
MEMBLOCK_POINTER(Char, "Cannot cast data to Char type: %s")
MEMBLOCK_POINTER(Byte, "Cannot cast data to Byte type: %s")
MEMBLOCK_POINTER(Float, "Cannot cast data to Float type: %s")
MEMBLOCK_POINTER(Double, "Cannot cast data to Double type: %s")
MEMBLOCK_POINTER(VoidStar, "Cannot cast data array into requested type: %s")
MEMBLOCK_POINTER(PMemory, "Cannot cast data to PMemory type: %s")
MEMBLOCK_POINTER(Triple, "Cannot cast data to Triple type: %s")
MEMBLOCK_POINTER(String, "Cannot cast data to String type: %s")
MEMBLOCK_POINTER(PolyType, "Cannot cast data to PolyType type: %s")
MEMBLOCK_POINTER(Int64, "Cannot cast data to Int64 type: %s")
MEMBLOCK_POINTER(UnsignedInt64, "Cannot cast data to UnsignedInt64 type: %s")
#undef MEMBLOCK_POINTER

// The linker names a type of the list that has no row above.
#define MEMBLOCK_HAS_POINTER(NAME, ID, T, TEXT)                                                    \
    [[gnu::used]] static constexpr T* (Vector::*NAME##_accessor)(unsigned int) =                   \
        &Vector::NAME##Pointer;
MEMBLOCK_ELEM_TYPES(MEMBLOCK_HAS_POINTER)
#undef MEMBLOCK_HAS_POINTER

} // namespace NKelmic
