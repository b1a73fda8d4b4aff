#ifndef MEMBLOCK_MEASURE_PROPERTIES_H
#define MEMBLOCK_MEASURE_PROPERTIES_H

#include <memblock/base/safestring.h>
#include <memblock/export.h>

#include <span>

namespace NKelmic {
using namespace Ntarnwick;

/// What is measured of an object, one column of a table each.
///
/// Properties are asked for by words, separated by commas: names, or the groups "basic", "shape",
/// "intensity" and "all". What is asked for twice comes once, in the order of `Properties()`.
///
///     safestring const words = "basic,mean,perimeter_crofton";
struct Property {
    enum group_t { basic, shape, intensity };
    /// What a value is measured in; a number without a unit counts or is a ratio.
    enum unit_t {
        number, ///< a count, or a ratio
        pixels, ///< a place or number of pixels, whatever their size
        length, ///< the unit of the pixel size
        size,   ///< its square; its cube for voxels
        angle,  ///< radians
        value   ///< cooked values of the intensity image
    };

    char const* name;
    group_t group;
    unit_t unit;
    bool for_images;  ///< objects of pixels have it
    bool for_cubes;   ///< objects of voxels have it
    char const* what; ///< in words, with the source of the formula
};

/// All properties, in the order of their columns.
MEMBLOCK_API std::span<Property const> Properties();

} // namespace NKelmic

#endif // MEMBLOCK_MEASURE_PROPERTIES_H
