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
#include <memblock/serial/factory.h>
#include <support/vectors.h>

#include <vector>

namespace NKelmic {

inline DerivedPointer<IndexVector> Pixels(std::vector<unsigned int> const& dims)
{
    return IndexVector::Create(UInts({1, 3, 2}),
                               IndexVector::TargetData(static_cast<int>(dims.size()), dims.data()));
}

inline DerivedPointer<IntervalVector> Over(DerivedPointer<Vector> const& target)
{
    auto const v = IntervalVector::Create(2, target);
    unsigned int const limits[] = {0, 1, 2};
    std::copy_n(limits, 3, v->Start(0));
    return v;
}

inline DerivedPointer<Vector> OfType(DataType type, unsigned long n)
{
    auto const v = Vector::Create(n, type, true, 0, 1.0);
    for (unsigned int i = 0; i < n && type != Vector::VoidStar; ++i)
        v->SetElem(i, static_cast<int>(i + 1));
    return v;
}

/// An object of each class, and a vector of each kind of elements.
inline std::vector<PMemBlock> EveryClass()
{
    auto const pixels = Pixels({5, 4});
    return {Bytes({1, 2, 3}),
            Doubles({1.5, -2.0}, 2.0),
            Triples({5u, 6u}),
            Texts({"a"}),
            Objects({Ints({1})}),
            Items({DataItem(1), DataItem("t")}),
            Cnt("a", 1, "b c", "text", "5", 7),
            Table::Create("a", Ints({1, 2}), "q r", Texts({"t", "u"})),
            Image::Create(5, 4, Vector::Byte, 1.0),
            DataCube::Create(2, 2, 2, Vector::Byte, 1.0),
            pixels,
            Over(pixels),
            Point::Create(1, 2),
            NumRange::Create(1, 4),
            Mask::Create(DerivedPointer<Vector>(pixels)),
            Stencil::Create(DerivedPointer<Vector>(Over(pixels)))};
}

/// At least one object of each class, element type, logical class and form.
inline std::vector<PMemBlock> EveryKind()
{
    std::vector<PMemBlock> all = EveryClass();
    for (DataType const type : {
#define MEMBLOCK_TYPE(NAME, NUMBER, T, TEXT) Vector::NAME,
             MEMBLOCK_ELEM_TYPES(MEMBLOCK_TYPE)
#undef MEMBLOCK_TYPE
         }) {
        all.push_back(OfType(type, 3));
        if (type == Vector::Byte || Vector::IsObject(type)) {
            all.push_back(OfType(type, 0));
            all.push_back(OfType(type, 1));
        }
    }
    std::pair<DataType, int> const images[] = {{Vector::Byte, Image::data},
                                               {Vector::Triple, Image::visual},
                                               {Vector::Float, Image::data},
                                               {Vector::Byte, Image::mask},
                                               {Vector::UnsignedShort, Image::stencil},
                                               {Vector::UnsignedInt, Image::stencil}};
    for (auto const& [type, logic] : images) {
        auto const image = Image::Create(4, 3, type, 1.0);
        image->SetElem(5, 2);
        image->DoSetLgType(logic);
        all.push_back(image);
    }
    all.push_back(DataCube::Create(2, 2, 2, Vector::Double, 1.0));
    for (auto const& dims : {std::vector{3u, 2u, 2u}, std::vector{9u}})
        all.push_back(Pixels(dims));
    for (auto const& target : std::initializer_list<DerivedPointer<Vector>>{
             Pixels({5, 4}), Over(Pixels({5, 4})), Doubles({1, 2, 3}), Pixels({3, 2, 2}),
             Pixels({9})}) {
        all.push_back(Over(target));
        auto const separate = Over(target);
        separate->AddEndArray();
        all.push_back(separate);
    }
    all.push_back(Mask::Create(DerivedPointer<Vector>(Image::Create(4, 3, Vector::Byte, 1.0))));
    all.push_back(
        Stencil::Create(DerivedPointer<Vector>(Image::Create(4, 3, Vector::UnsignedShort, 1.0))));
    for (bool const ordered : {false, true}) {
        auto const c = Cnt("a", 1, "b", "text", "c", Cnt("d", Ints({1, 2})));
        c->SetOrdered(ordered);
        all.push_back(c);
    }
    safestringlist const classes(ListClasses(','), ',');
    for (unsigned long i = 0; i < classes.size(); ++i)
        all.push_back(MemBlock::Factory().GetInstance(classes[i]));
    return all;
}

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_COLLECTIONS_EVERY_CLASS_H
