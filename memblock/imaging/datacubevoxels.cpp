#include <memblock/imaging/datacube.h>

#include <memblock/base/number.h>
#include <memblock/imaging/indexvector.h>
#include <memblock/vector/elemnumber_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cmath>
#include <limits>

namespace NKelmic {

namespace {

template <class T>
void zvector_tmpl(T const* src, unsigned long stride, unsigned int n, T* dst)
{
    for (unsigned int z = 0; z < n; ++z, src += stride)
        dst[z] = *src;
}

template <class T>
void ReplaceZVector_tmpl_int(Vector const& v, unsigned long stride, T* dst)
{
    for (unsigned int z = 0; z < v.Length(); ++z, dst += stride)
        *dst = ToElem<T>(v[z]);
}

template <class T>
void ReplaceZVector_tmpl_double(Vector const& v, unsigned long stride, T* dst)
{
    for (unsigned int z = 0; z < v.Length(); ++z, dst += stride)
        *dst = static_cast<T>(v.Elem(z));
}

/// Whether an element has a value; without a change of the sign on the way.
template <class T, class V>
bool HasValue(T element, V value)
{
    if constexpr (std::is_floating_point_v<T> || std::is_floating_point_v<V>)
        return static_cast<double>(element) == static_cast<double>(value);
    else if constexpr (std::is_signed_v<wide_t<T>>)
        return element == value;
    else
        // Without the test -1 would find the greatest element of 32 bits.
        return value >= 0 && static_cast<wide_t<T>>(element) == static_cast<unsigned int>(value);
}

template <class T, class V>
unsigned int count_pixels(T const* p, unsigned int n, V value)
{
    unsigned int count = 0;
    for (unsigned int i = 0; i < n; ++i)
        count += HasValue(p[i], value);
    return count;
}

/// Writes one entry more than it finds.
template <class T, class V>
void copy_pixels(T const* p, unsigned int n, V value, unsigned int* out)
{
    for (unsigned int i = 0; i < n; ++i) {
        *out = i;
        out += HasValue(p[i], value);
    }
}

template <class V>
DerivedPointer<IndexVector> ListOfValue(DataCube const& cube, V value)
{
    unsigned int count = 0;
    // Two passes: most values are rare, and a list with room for every element would be as large as
    // the cube.
    WithElemType<NumericTypes>(
        cube.ElemType(), "Function n=count_pixels not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) {
            count = count_pixels(cube.TypedPointer<T>(), cube.Length(), value);
        });
    // One more than there are: the loop needs no branch then.
    auto list = IndexVector::Create(count + 1UL, DerivedPointer<Vector>(&cube));
    WithElemType<NumericTypes>(
        cube.ElemType(), "Function copy_pixels not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) {
            copy_pixels(cube.TypedPointer<T>(), cube.Length(), value, list->UnsignedIntPointer());
        });
    list->ResizeVector(count, true, false);
    return list;
}

} // namespace

bool DataCube::Holds(int x, int y) const
{
    return x >= 0 && y >= 0 && static_cast<unsigned int>(x) < width() &&
           static_cast<unsigned int>(y) < height();
}

DerivedPointer<Vector> DataCube::GetZVector(int x, int y) const
{
    if (!Holds(x, y))
        Raise(err_kind, "Point x,y is out of range: %d, %d", x, y);
    TypedChunk column = OpenChunk(depth(), ElemType());
    unsigned int const first =
        static_cast<unsigned int>(x) + static_cast<unsigned int>(y) * width();
    WithElemType<NumericTypes>(
        ElemType(), "Function zvector_tmpl not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) {
            zvector_tmpl(TypedPointer<T>() + first, static_cast<unsigned long>(width()) * height(),
                         depth(), static_cast<T*>(column.Data()));
        });
    return Vector::Create(column, Factor());
}

void DataCube::ReplaceZVector(int x, int y, DerivedPointer<Vector> const& v)
{
    if (!Holds(x, y))
        Raise(err_kind, "Point x=%d,y=%d is outside of datacube.", x, y);
    if (!v || !PMemBlock(v).Conforms("vector"))
        Raise(err_kind, "Not a vector: %s", v ? v.GetDescription() : safestring("NULL"));
    if (v->Length() != depth())
        Raise(err_kind, "Wrong z-vector length %d, should be %d", v->Length(), depth());
    DerivedPointer<Vector> const values(
        v->Clone(true)); // a text may fail half way: read them first
    DerivedPointer<Vector> column = GetZVector(x, y);
    bool const floating = IsInSet<FloatTypes>(ElemType());
    auto const write = [&](Vector& target, unsigned int first, unsigned long stride,
                           Vector const& source) {
        if (floating)
            WithElemType<FloatTypes>(
                ElemType(),
                "Function ReplaceZVector_tmpl_double not implemented for data type '%s'",
                [&]<class T>(TypeTag<T>) {
                    ReplaceZVector_tmpl_double(source, stride, target.TypedPointer<T>() + first);
                });
        else
            WithElemType<IntegerTypes>(
                ElemType(), "Function ReplaceZVector_tmpl_int not implemented for data type '%s'",
                [&]<class T>(TypeTag<T>) {
                    ReplaceZVector_tmpl_int(source, stride, target.TypedPointer<T>() + first);
                });
    };
    // The first write is a rehearsal on a copy of the column: what it refuses has changed nothing.
    write(*column, 0, 1, cref(values));
    unsigned int const first =
        static_cast<unsigned int>(x) + static_cast<unsigned int>(y) * width();
    write(*this, first, static_cast<unsigned long>(width()) * height(), cref(values));
    ContentHasBeenChanged();
}

DerivedPointer<IndexVector> DataCube::GetMaskVector(int value) const
{
    return ListOfValue(*this, value);
}

DerivedPointer<IndexVector> DataCube::GetMaskVector(double value) const
{
    if (IsInSet<FloatTypes>(ElemType()))
        return ListOfValue(*this, value);
    if (!IsInSet<IntegerTypes>(ElemType()))
        Raise(err_kind, "Element type not supported.");
    // Elements are whole numbers, so the question is for the nearest one.
    double const rounded = RoundHalfAway(value);
    if (!FitsAfterTrunc<int>(rounded)) // no element is NaN, and the others are compared as int
        return IndexVector::Create(0, DerivedPointer<Vector>(this));
    return GetMaskVector(static_cast<int>(rounded));
}

} // namespace NKelmic
