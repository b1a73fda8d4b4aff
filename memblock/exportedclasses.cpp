#include <memblock/collections/container.h>
#include <memblock/collections/table.h>
#include <memblock/imaging/datacube.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/indexvector.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/mask.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>
#include <memblock/imaging/stencil.h>
#include <memblock/serial/loader_internal.h>

#include <array>

namespace NKelmic {
namespace {
template <class T>
PMemBlock CreateEmpty()
{
    return T::Create();
}

// The classes of this library, in the order in which they are told.
constexpr auto classes = std::to_array<ClassInfo>({
    {"image", []() -> PMemBlock { return Image::Create(1, 1, Vector::Byte, 1.0); }},
    {"container", CreateEmpty<Container>},
    {"vector", CreateEmpty<Vector>},
    {"indexvector", CreateEmpty<IndexVector>},
    {"intervalvector", CreateEmpty<IntervalVector>},
    {"table", CreateEmpty<Table>},
    {"point", CreateEmpty<Point>},
    {"numrange", CreateEmpty<NumRange>},
    {"mask", CreateEmpty<Mask>},
    {"stencil", CreateEmpty<Stencil>},
    {"datacube", CreateEmpty<DataCube>},
});
} // namespace

std::span<ClassInfo const> OwnClasses()
{
    return classes;
}
} // namespace NKelmic

extern "C" int ExportedClasses(NKelmic::ClassInfo const** table, int* count)
{
    *table = NKelmic::OwnClasses().data();
    *count = static_cast<int>(NKelmic::OwnClasses().size());
    return 0;
}
