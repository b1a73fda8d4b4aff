#include <memblock/imaging/geomblock.h>

#include <memblock/base/number.h>
#include <memblock/imaging/shape_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>

namespace NKelmic {

unsigned long ShapeLength(unsigned int const* sizes, int rank)
{
    std::for_each(sizes, sizes + rank, CheckLength);
    // Settled: a shape without elements keeps its other sizes, each of which must be a length.
    if (std::count(sizes, sizes + rank, 0U) > 0)
        return 0;
    unsigned long length = 1;
    for (int i = 0; i < rank; ++i) {
        length *= sizes[i]; // both factors are below 2^31
        CheckLength(length);
    }
    return length;
}

Coordinates ReadCoordinates(char const* key, std::size_t length)
{
    Coordinates point;
    char const* const end = key + length;
    for (char const* p = key;; ++p) {
        char const* const first = p;
        unsigned long value = 0;
        for (; p != end && *p >= '0' && *p <= '9'; ++p)
            // Cut at each digit: a key of a thousand digits overflows nothing.
            value = std::min(10 * value + static_cast<unsigned long>(*p - '0'), point.beyond);
        // No digits between two commas, or a fourth number: no coordinates, but maybe a name.
        if (p == first || point.count == 3)
            return {};
        point.at[static_cast<std::size_t>(point.count++)] = value;
        if (p == end)
            return point;
        if (*p != ',')
            return {};
    }
}

safestring IndexKey(Coordinates const& point, unsigned int size0, unsigned int size1)
{
    // A coordinate is at most 2^31, so each step fits once the one before is cut.
    unsigned long const row = std::min(point.at[1] + size1 * point.at[2], Coordinates::beyond);
    unsigned long const index = point.at[0] + size0 * row;
    return str(std::min(index, Coordinates::beyond - 1));
}

template <int N>
GeomBlock<N>::GeomBlock(TypedChunk const& chunk, Sizes const& sizes, double factor)
    : Vector(chunk, factor), sizes_(sizes)
{
}

template <int N>
DerivedPointer<Vector> GeomBlock<N>::GetDimSizes() const
{
    DerivedPointer<Vector> sizes = Create(N, UnsignedInt, true, 0, 1.0);
    std::copy(sizes_.begin(), sizes_.end(), sizes->UnsignedIntPointer());
    return sizes;
}

template <int N>
void GeomBlock<N>::ChangeDimSizes(unsigned int const* dims, int n)
{
    if (n != N)
        Raise(err_kind,
              "GeomBlock::ChangeDimSizes() is called with an invalid number of dimensions %d for: "
              "%s",
              n, *this);
    ShapeLength(dims, N);
    // ResizeVector is virtual and checks the length against the sizes, so they are set before it
    // and taken back if it refuses.
    Sizes const old = sizes_;
    std::copy_n(dims, N, sizes_.begin());
    try {
        FitLength();
    } catch (...) {
        sizes_ = old;
        throw;
    }
    ContentHasBeenChanged();
}

template <int N>
void GeomBlock<N>::FitLength()
{
    unsigned long const length = ShapeLength(sizes_.data(), N);
    // An equal length keeps the buffer shared: a change of shape alone copies nothing.
    if (length != Length())
        ResizeVector(length, true, true);
}

template <int N>
void GeomBlock<N>::Reshape(Sizes const& sizes, TypedChunk const& chunk)
{
    // In this order: SetTypedChunk compares the length with the sizes.
    sizes_ = sizes;
    SetTypedChunk(chunk);
}

template <int N>
DerivedPointer<Vector> GeomBlock<N>::DoCloneSlice(unsigned int from, unsigned int to) const
{
    // A part of the elements is no rectangle in general, so it is a plain vector.
    return Create(CopyOfRange(Chunk(), from, to - from), Factor());
}

template class GeomBlock<2>;
template class GeomBlock<3>;

} // namespace NKelmic
