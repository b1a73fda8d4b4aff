#ifndef MEMBLOCK_MEASURE_FACTS_INTERNAL_H
#define MEMBLOCK_MEASURE_FACTS_INTERNAL_H

#include <memblock/core/datatype.h>
#include <memblock/measure/run_internal.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

/// What is found out about objects before properties are computed from it. Each family of facts
/// costs a pass of its own over the runs, and is looked for only where a property needs it.
namespace NKelmic::measuring {

/// The picture or cube in which objects lie, in pixels.
struct Frame {
    std::uint32_t width = 0;
    std::int64_t height = 0;
    std::int64_t depth = 1;

    bool IsCube() const { return depth > 1; }
    std::int64_t Rows() const { return height * depth; }
};

/// The distances between the centres of neighbouring pixels.
struct Spacing {
    double x = 1, y = 1, z = 1;
};

constexpr double nothing = std::numeric_limits<double>::quiet_NaN();

/// Counted in pixels; of an object without pixels as it is initialized here.
struct Geometry {
    std::int64_t area = 0, first = -1;
    std::int64_t x0 = -1, y0 = -1, z0 = -1, x1 = -1, y1 = -1, z1 = -1; ///< both ends included
    double x = nothing, y = nothing, z = nothing;                      ///< the centroid
    bool at_edge = false;
};

/// The covariances of the pixel centres, in pixels.
struct Moments {
    double xx, xy, yy, xz, yz, zz;
};

/// Axes of the ellipse, or ellipsoid, that has the same covariances; in units of length.
struct Axes {
    double major, medium, minor, orientation;
};

/// What the outline of an object is measured by, in units of length.
struct Outline {
    double perimeter, crofton;
    std::int64_t euler, holes;
};

/// The convex hull of the middles of the pixels' edges.
struct Hull {
    std::int64_t area; ///< pixel centres inside or on the border
    double feret_max, feret_min;
};

/// Raw values of one plane.
struct Intensity {
    std::int64_t count; ///< of the values that take part
    double minimum, maximum, sum, deviation, x, y, z;
    double median, lower_quartile, upper_quartile;
};

struct Facts {
    Geometry geometry;
    Axes axes;
    Outline outline;
    Hull hull;
    Intensity intensity; ///< of one plane at a time
};

/// The families of facts, for sets of them.
enum Need : unsigned {
    need_geometry = 0, // always there
    need_axes = 1,
    need_outline = 2,
    need_hull = 4,
    need_intensity = 8,
    need_order = 16, ///< median and quartiles
};

/// What becomes of NaN or of infinities: left out, taken as they are, or replaced.
struct Policy {
    enum { exclude, include, replace } kind = exclude;
    double value = 0;
};

/// One plane of values below the objects. `at` of a run counts from `values`.
struct Plane {
    DataType type = DataTypeBase::Byte;
    void const* values = nullptr;
};

// Each of these fills its part of the facts of all objects of a batch.

void FindGeometry(RunList const& objects, Frame const& frame, std::span<Facts> facts);
void FindAxes(RunList const& objects, Frame const& frame, Spacing const& spacing,
              std::span<Facts> facts);
/// Not for cubes.
void FindOutlines(RunList const& objects, Spacing const& spacing, std::span<Facts> facts);
/// Not for cubes.
void FindHulls(RunList const& objects, Spacing const& spacing, std::span<Facts> facts);
void FindIntensities(RunList const& objects, Frame const& frame, Plane const& plane, Policy nan,
                     Policy inf, unsigned needs, std::span<Facts> facts);

} // namespace NKelmic::measuring

#endif // MEMBLOCK_MEASURE_FACTS_INTERNAL_H
