#ifndef MEMBLOCK_MEASURE_REQUEST_INTERNAL_H
#define MEMBLOCK_MEASURE_REQUEST_INTERNAL_H

#include <memblock/measure/facts_internal.h>
#include <memblock/measure/properties.h>

#include <bit>
#include <vector>

namespace NKelmic::measuring {

/// Cells of a row, whole numbers or doubles as their bits, so that a row is equal cells that can be
/// sorted, sent and merged.
using Cell = std::uint64_t;

/// What cells are computed with.
struct CellSource {
    Spacing spacing;
    bool has_unit = false;
    bool cube = false;
    double factor = 1; ///< of the intensities
};

/// A property with what it needs and how its cells come from the facts.
struct PropertyRow {
    using Fill = void (*)(std::span<Facts const>, CellSource const&, Cell* out, std::size_t stride);

    Property property;
    unsigned needs;
    Fill whole, real; ///< null where there is no such form

    bool IsWhole(CellSource const& source) const { return whole && !(real && source.has_unit); }
    Fill Filler(CellSource const& source) const { return IsWhole(source) ? whole : real; }
};

std::span<PropertyRow const> PropertyRows();

/// The rows that words ask for, in the order of the table. Those that objects of the given kind
/// lack are left out of groups, and an error by name.
///
/// Throws: "No such property of objects: \"%s\"; there are: %s", "Property \"%s\" is not defined
/// for cubes.", the same for images, "Property \"%s\" needs an intensity image.".
std::vector<PropertyRow const*> SelectProperties(safestring const& words, bool cube,
                                                 bool intensities);

} // namespace NKelmic::measuring

#endif // MEMBLOCK_MEASURE_REQUEST_INTERNAL_H
