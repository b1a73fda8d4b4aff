#include <memblock/collections/container.h>
#include <memblock/imaging/datacube.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/indexvector.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>
#include <memblock/serial/loader_internal.h>
#include <memblock/vector/vector.h>

#include <array>

namespace NKelmic {
namespace {
// The classes of this library, in the order in which they are told. A new class gets a row here
// and nothing else.
constexpr auto classes = std::to_array<ClassInfo>({
    {"container", []() -> PMemBlock { return Container::Create(); }},
    {"image", []() -> PMemBlock { return Image::Create(1, 1, Vector::Byte, 1.0); }},
    {"vector", []() -> PMemBlock { return Vector::Create(); }},
    {"indexvector", []() -> PMemBlock { return IndexVector::Create(); }},
    {"point", []() -> PMemBlock { return Point::Create(); }},
    {"numrange", []() -> PMemBlock { return NumRange::Create(); }},
    {"datacube", []() -> PMemBlock { return DataCube::Create(); }},
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
