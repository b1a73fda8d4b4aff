#ifndef MEMBLOCK_IMAGING_SHAPE_INTERNAL_H
#define MEMBLOCK_IMAGING_SHAPE_INTERNAL_H

#include <memblock/base/safestring.h>

#include <array>
#include <cstddef>
#include <optional>

namespace NKelmic {
using namespace Ntarnwick;

/// The number of elements that the sizes make. Throws 256 where a size, or all together, are more
/// than a vector can hold.
unsigned long ShapeLength(unsigned int const* sizes, int rank);

/// The natural numbers between the commas of a key such as "12,7".
///
/// Holds as many as the key has, up to three; none for any other key. A number that is too large
/// for any vector comes out as `beyond`. Where `blanks` are allowed, they may stand around numbers.
struct Coordinates {
    static constexpr unsigned long beyond = 0x80000000UL;
    std::array<unsigned long, 3> at{};
    int count = 0;
};
Coordinates ReadCoordinates(char const* key, std::size_t length, bool blanks = false);

/// The index x + size0 * (y + size1 * z) as the text of a key, which no overflow makes valid.
safestring IndexKey(Coordinates const& point, unsigned int size0, unsigned int size1);

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_SHAPE_INTERNAL_H
