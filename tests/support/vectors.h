#ifndef MEMBLOCK_TESTS_SUPPORT_VECTORS_H
#define MEMBLOCK_TESTS_SUPPORT_VECTORS_H

#include <memblock/vector/vector.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

namespace NKelmic {

/// A vector of the element type of T, with these raw values.
template <class T>
DerivedPointer<Vector> MakeVector(std::vector<T> const& values, double factor = 1.0)
{
    DerivedPointer<Vector> v = Vector::Create(values.size(), type_of<T>::value, true, 0, factor);
    std::copy(values.begin(), values.end(), v->template TypedPointer<T>());
    return v;
}

// Bytes({1, 2}), Doubles({0.5}, factor) and so on.
#define MEMBLOCK_VECTOR_MAKER(NAME, T)                                                             \
    inline DerivedPointer<Vector> NAME(std::vector<T> const& values, double factor = 1.0)          \
    {                                                                                              \
        return MakeVector<T>(values, factor);                                                      \
    }
MEMBLOCK_VECTOR_MAKER(Bytes, unsigned char)
MEMBLOCK_VECTOR_MAKER(Chars, char)
MEMBLOCK_VECTOR_MAKER(UShorts, unsigned short)
MEMBLOCK_VECTOR_MAKER(Shorts, short)
MEMBLOCK_VECTOR_MAKER(Triples, triple)
MEMBLOCK_VECTOR_MAKER(UInts, unsigned int)
MEMBLOCK_VECTOR_MAKER(Ints, int)
MEMBLOCK_VECTOR_MAKER(UInt64s, unsigned long long)
MEMBLOCK_VECTOR_MAKER(Int64s, long long)
MEMBLOCK_VECTOR_MAKER(Floats, float)
MEMBLOCK_VECTOR_MAKER(Doubles, double)
MEMBLOCK_VECTOR_MAKER(Texts, safestring)
MEMBLOCK_VECTOR_MAKER(Items, DataItem)
MEMBLOCK_VECTOR_MAKER(Objects, PMemBlock)
#undef MEMBLOCK_VECTOR_MAKER

/// The result of an operation as the vector that it must be.
inline DerivedPointer<Vector> VectorOf(PMemBlock const& block)
{
    return DerivedPointer<Vector>(block, "vector");
}

/// The raw elements; the vector must be of that type.
template <class T>
std::vector<T> ElementsOf(Vector const& v)
{
    T const* const data = v.TypedPointer<T>();
    return std::vector<T>(data, data + v.Length());
}
template <class T>
std::vector<T> ElementsOf(DerivedPointer<Vector> const& v)
{
    return ElementsOf<T>(cref(v));
}

/// All elements in text form, raw, to compare vectors of any type at one glance.
inline std::string TextOf(Vector const& v)
{
    std::string text;
    for (unsigned int i = 0; i < v.Length(); ++i)
        text.append(i ? " " : "").append(v.GetString(static_cast<int>(i)).c_str());
    return text;
}
inline std::string TextOf(DerivedPointer<Vector> const& v)
{
    return TextOf(cref(v));
}

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_SUPPORT_VECTORS_H
