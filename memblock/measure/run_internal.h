#ifndef MEMBLOCK_MEASURE_RUN_INTERNAL_H
#define MEMBLOCK_MEASURE_RUN_INTERNAL_H

#include <memblock/measure/buffer_internal.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace NKelmic::measuring {

/// Sums and products of coordinates and values are exact, so that neither the order of the runs nor
/// the place of an object changes a bit of what is made of them.
__extension__ using Exact = __int128;
__extension__ using UnsignedExact = unsigned __int128;

/// Rounded once. Most sums fit 64 bits, whose conversion is one instruction.
inline double ToDouble(Exact v)
{
    std::int64_t const low = static_cast<std::int64_t>(v);
    return low == v ? static_cast<double>(low) : static_cast<double>(v);
}

/// Pixels of an object side by side in one row: the columns x0 up to, not including, x1.
struct Run {
    std::int64_t row; ///< y; in a cube y + height * z
    std::uint32_t x0, x1;
    std::uint64_t at; ///< the place of the value of column x0 in each plane of values

    std::uint32_t Length() const { return x1 - x0; }
};

inline bool IsBefore(Run const& a, Run const& b)
{
    return a.row != b.row ? a.row < b.row : a.x0 < b.x0;
}

/// A batch of objects: the runs of object k, in ascending order, are those from limits[k] up to,
/// not including, limits[k + 1].
struct RunList {
    Buffer<Run> runs;
    std::vector<std::size_t> limits{0};

    std::size_t Count() const { return limits.size() - 1; }
    std::span<Run const> Object(std::size_t k) const
    {
        return {runs.data() + limits[k], limits[k + 1] - limits[k]};
    }
    void EndObject() { limits.push_back(runs.size()); }
    void Clear()
    {
        runs.clear();
        limits.resize(1);
    }
};

} // namespace NKelmic::measuring

#endif // MEMBLOCK_MEASURE_RUN_INTERNAL_H
