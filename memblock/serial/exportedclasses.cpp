#include <memblock/collections/container.h>
#include <memblock/collections/table.h>
#include <memblock/serial/loader_internal.h>
#include <memblock/vector/vector.h>

#include <array>

namespace NKelmic {
namespace {
// The classes of this library, in the order in which they are told. A new class gets a row here
// and nothing else.
constexpr auto classes = std::to_array<ClassInfo>({
    {"container", []() -> PMemBlock { return Container::Create(); }},
    {"table", []() -> PMemBlock { return Table::Create(); }},
    {"vector", []() -> PMemBlock { return Vector::Create(); }},
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
