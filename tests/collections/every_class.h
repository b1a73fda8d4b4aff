#ifndef MEMBLOCK_TESTS_COLLECTIONS_EVERY_CLASS_H
#define MEMBLOCK_TESTS_COLLECTIONS_EVERY_CLASS_H

#include <memblock/collections/table.h>
#include <memblock/imaging/datacube.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/mask.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>
#include <memblock/imaging/stencil.h>
#include <support/vectors.h>

#include <vector>

namespace NKelmic {

/// An object of each class, and a vector of each kind of elements.
inline std::vector<PMemBlock> EveryClass()
{
    auto const pixels = IndexVector::Create(UInts({6, 7}), 5, 4);
    auto const labels = IntervalVector::Create(1, DerivedPointer<Vector>(pixels));
    return {Bytes({1, 2, 3}),
            Doubles({1.5}, 2.0),
            Triples({5u, 6u}),
            Texts({"a"}),
            Objects({Ints({1})}),
            Items({DataItem(1), DataItem("t")}),
            Cnt("a", 1, "b c", "text", "5", 7),
            Table::Create("a", Ints({1}), "q r", Texts({"t"})),
            Image::Create(5, 4, Vector::Byte, 1.0),
            DataCube::Create(2, 2, 2, Vector::Byte, 1.0),
            pixels,
            labels,
            Point::Create(1, 2),
            NumRange::Create(1, 4),
            Mask::Create(DerivedPointer<Vector>(pixels)),
            Stencil::Create(DerivedPointer<Vector>(labels))};
}

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_COLLECTIONS_EVERY_CLASS_H
