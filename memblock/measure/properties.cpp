#include <memblock/measure/properties.h>

#include <memblock/measure/request_internal.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace NKelmic {
namespace measuring {
namespace {

using F = Facts const&;
using S = CellSource const&;

double Area(F f, S s)
{
    double const pixel = s.spacing.x * s.spacing.y * (s.cube ? s.spacing.z : 1);
    return static_cast<double>(f.geometry.area) * pixel;
}

double Box(F f)
{
    Geometry const& g = f.geometry;
    return static_cast<double>(g.x1 - g.x0 + 1) * static_cast<double>(g.y1 - g.y0 + 1) *
           static_cast<double>(g.z1 - g.z0 + 1);
}

double Mean(F f)
{
    return f.intensity.sum / static_cast<double>(f.intensity.count);
}

/// A value that a negative factor exchanges with its counterpart.
double Cooked(S s, double value, double counterpart)
{
    return s.factor * (s.factor < 0 ? counterpart : value);
}

double OrNothing(F f, double value)
{
    return f.geometry.area > 0 ? value : nothing;
}

/// Write the cells of one column for all objects; `stride` cells lie between two of them.
template <class Value, class Make>
void FillColumn(std::span<Facts const> facts, CellSource const& source, Cell* out,
                std::size_t stride, Make make)
{
    for (Facts const& f : facts) {
        *out = std::bit_cast<Cell>(static_cast<Value>(make(f, source)));
        out += stride;
    }
}

// A function for each column, so that no cell costs a call.
#define FILL(VALUE, EXPRESSION)                                                                    \
    [](std::span<Facts const> facts, CellSource const& source, Cell* out, std::size_t stride) {    \
        FillColumn<VALUE>(facts, source, out, stride,                                              \
                          [](F f, [[maybe_unused]] S s) { return EXPRESSION; });                   \
    }
#define WHOLE(EXPRESSION) FILL(std::int64_t, EXPRESSION), nullptr
#define REAL(EXPRESSION) nullptr, FILL(double, EXPRESSION)

// Name, group, unit, whether for images and for cubes, words; what is needed; how a cell is made,
// as a whole number, as a real one, or as either: without a unit counts stay whole.
using P = Property;
constexpr auto rows = std::to_array<PropertyRow>({
    {{"area", P::basic, P::size, true, true, "the pixels, or voxels, times their size"},
     need_geometry,
     FILL(std::int64_t, f.geometry.area),
     FILL(double, Area(f, s))},
    {{"first", P::basic, P::pixels, true, true,
      "the lowest pixel number, x + width * y; -1 of none"},
     need_geometry,
     WHOLE(f.geometry.first)},
    {{"x0", P::basic, P::pixels, true, true, "the first column of the bounding box"},
     need_geometry,
     WHOLE(f.geometry.x0)},
    {{"y0", P::basic, P::pixels, true, true, "the first row of the bounding box"},
     need_geometry,
     WHOLE(f.geometry.y0)},
    {{"z0", P::basic, P::pixels, false, true, "the first plane of the bounding box"},
     need_geometry,
     WHOLE(f.geometry.z0)},
    {{"x1", P::basic, P::pixels, true, true, "its last column, included"},
     need_geometry,
     WHOLE(f.geometry.x1)},
    {{"y1", P::basic, P::pixels, true, true, "its last row, included"},
     need_geometry,
     WHOLE(f.geometry.y1)},
    {{"z1", P::basic, P::pixels, false, true, "its last plane, included"},
     need_geometry,
     WHOLE(f.geometry.z1)},
    {{"x", P::basic, P::length, true, true,
      "the mean of the pixel centres, the first column being 0"},
     need_geometry,
     REAL(f.geometry.x* s.spacing.x)},
    {{"y", P::basic, P::length, true, true, "the same of the rows"},
     need_geometry,
     REAL(f.geometry.y* s.spacing.y)},
    {{"z", P::basic, P::length, false, true, "the same of the planes"},
     need_geometry,
     REAL(f.geometry.z* s.spacing.z)},
    {{"at_edge", P::basic, P::number, true, true,
      "1 if a pixel lies at the edge of the picture, so that part may be missing"},
     need_geometry,
     WHOLE(f.geometry.at_edge)},
    {{"extent", P::shape, P::number, true, true, "the part of the bounding box that is filled"},
     need_geometry,
     REAL(OrNothing(f, static_cast<double>(f.geometry.area) / Box(f)))},
    {{"diameter", P::shape, P::length, true, true, "of the circle, or ball, of equal area"},
     need_geometry,
     REAL(OrNothing(f, s.cube ? std::cbrt(6 / std::numbers::pi * Area(f, s))
                              : std::sqrt(4 / std::numbers::pi * Area(f, s))))},
    {{"major_axis", P::shape, P::length, true, true,
      "of the ellipse, or ellipsoid, with the same covariances"},
     need_axes,
     REAL(f.axes.major)},
    {{"medium_axis", P::shape, P::length, false, true, "the second axis of the ellipsoid"},
     need_axes,
     REAL(f.axes.medium)},
    {{"minor_axis", P::shape, P::length, true, true, "the least axis"},
     need_axes,
     REAL(f.axes.minor)},
    {{"eccentricity", P::shape, P::number, true, false,
      "of the ellipse: 0 of a circle, 1 of a line"},
     need_axes,
     REAL(f.axes.major == 0 ? 0 : std::sqrt(1 - std::pow(f.axes.minor / f.axes.major, 2)))},
    {{"orientation", P::shape, P::angle, true, false,
      "of the major axis against the x axis, positive towards greater y, above -pi/2 and up to "
      "pi/2"},
     need_axes,
     REAL(f.axes.orientation)},
    {{"perimeter", P::shape, P::length, true, false,
      "the length of the line through the border pixels, those with one of 4 neighbours outside "
      "(Benkrid, Crookes 2000)"},
     need_outline,
     REAL(f.outline.perimeter)},
    {{"perimeter_crofton", P::shape, P::length, true, false,
      "by Crofton's formula in 4 directions"},
     need_outline,
     REAL(f.outline.crofton)},
    {{"circularity", P::shape, P::number, true, false,
      "4 pi area / perimeter_crofton^2: 1 of a circle"},
     need_outline,
     REAL(4 * std::numbers::pi * Area(f, s) / (f.outline.crofton * f.outline.crofton))},
    {{"convex_area", P::shape, P::size, true, false,
      "the pixels whose centres are in the convex hull of the pixel edges' middles"},
     need_hull,
     FILL(std::int64_t, f.hull.area),
     FILL(double, static_cast<double>(f.hull.area) * s.spacing.x * s.spacing.y)},
    {{"solidity", P::shape, P::number, true, false, "area / convex_area"},
     need_hull,
     REAL(static_cast<double>(f.geometry.area) / static_cast<double>(f.hull.area))},
    {{"feret_max", P::shape, P::length, true, false, "the greatest distance within that hull"},
     need_hull,
     REAL(f.hull.feret_max)},
    {{"feret_min", P::shape, P::length, true, false,
      "the least distance of two parallel lines that the hull is between"},
     need_hull,
     REAL(f.hull.feret_min)},
    {{"euler", P::shape, P::number, true, false, "parts less holes, for 8 neighbours"},
     need_outline,
     WHOLE(f.outline.euler)},
    {{"holes", P::shape, P::number, true, false, "holes, for 8 neighbours"},
     need_outline,
     WHOLE(f.outline.holes)},
    {{"minimum", P::intensity, P::value, true, true, "the least value"},
     need_intensity,
     REAL(Cooked(s, f.intensity.minimum, f.intensity.maximum))},
    {{"maximum", P::intensity, P::value, true, true, "the greatest value"},
     need_intensity,
     REAL(Cooked(s, f.intensity.maximum, f.intensity.minimum))},
    {{"sum", P::intensity, P::value, true, true,
      "of the values; exact for integers of up to 32 bits"},
     need_intensity,
     REAL(s.factor* f.intensity.sum)},
    {{"mean", P::intensity, P::value, true, true, "sum / number of values"},
     need_intensity,
     REAL(s.factor* Mean(f))},
    {{"stddev", P::intensity, P::value, true, true, "the standard deviation, with divisor n - 1"},
     need_intensity,
     REAL(std::fabs(s.factor) * f.intensity.deviation)},
    {{"median", P::intensity, P::value, true, true,
      "the middle value; the mean of both of an even number"},
     need_intensity | need_order,
     REAL(s.factor* f.intensity.median)},
    {{"lower_quartile", P::intensity, P::value, true, true,
      "the value of rank n / 4, rounded half up, from 0"},
     need_intensity | need_order,
     REAL(Cooked(s, f.intensity.lower_quartile, f.intensity.upper_quartile))},
    {{"upper_quartile", P::intensity, P::value, true, true,
      "the value of rank 3 n / 4, rounded half up, from 0"},
     need_intensity | need_order,
     REAL(Cooked(s, f.intensity.upper_quartile, f.intensity.lower_quartile))},
    {{"wx", P::intensity, P::length, true, true, "the mean of the columns, weighted by the values"},
     need_intensity,
     REAL(f.intensity.x* s.spacing.x)},
    {{"wy", P::intensity, P::length, true, true, "the same of the rows"},
     need_intensity,
     REAL(f.intensity.y* s.spacing.y)},
    {{"wz", P::intensity, P::length, false, true, "the same of the planes"},
     need_intensity,
     REAL(f.intensity.z* s.spacing.z)},
});
#undef WHOLE
#undef REAL
#undef FILL

constexpr char const* group_names[] = {"basic", "shape", "intensity", "all"};

bool Applies(PropertyRow const& row, bool cube)
{
    return cube ? row.property.for_cubes : row.property.for_images;
}

/// Every word that is understood, for the one that is not.
safestring AllWords()
{
    safestring words;
    for (char const* const group : group_names)
        words += safestring(group) + ", ";
    for (PropertyRow const& row : rows)
        words += safestring(row.property.name) + (&row == &rows.back() ? "" : ", ");
    return words;
}

/// Mark what a word asks for.
void SelectWord(std::string_view word, bool cube, bool intensities, std::span<bool> selected)
{
    auto const group = std::ranges::find(group_names, word);
    bool known = group != std::end(group_names);
    bool const all = known && word == "all";
    for (std::size_t i = 0; i < rows.size(); ++i) {
        PropertyRow const& row = rows[i];
        bool const usable =
            Applies(row, cube) && (intensities || row.property.group != Property::intensity);
        if (word == row.property.name) {
            known = true;
            if (!Applies(row, cube))
                Raise(err_kind, "Property \"%s\" is not defined for %s.", row.property.name,
                      cube ? "cubes" : "images");
            if (!usable)
                Raise(err_kind, "Property \"%s\" needs an intensity image.", row.property.name);
            selected[i] = true;
        } else if (known && (all || group - group_names == row.property.group)) {
            selected[i] = selected[i] || usable;
        }
    }
    if (!known)
        Raise(err_request, "No such property of objects: \"%s\"; there are: %s",
              safestring(word.data(), word.size()), AllWords());
}

} // namespace

std::span<PropertyRow const> PropertyRows()
{
    return rows;
}

std::vector<PropertyRow const*> SelectProperties(safestring const& words, bool cube,
                                                 bool intensities)
{
    bool selected[rows.size()] = {};
    std::string_view rest(words.c_str());
    while (!rest.empty()) {
        std::size_t const end = std::min(rest.find(','), rest.size());
        std::string_view word = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        while (word.starts_with(' '))
            word.remove_prefix(1);
        while (word.ends_with(' '))
            word.remove_suffix(1);
        if (!word.empty())
            SelectWord(word, cube, intensities, selected);
    }
    std::vector<PropertyRow const*> result;
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (selected[i])
            result.push_back(&rows[i]);
    return result;
}

} // namespace measuring

std::span<Property const> Properties()
{
    static auto const properties = [] {
        std::array<Property, measuring::rows.size()> all{};
        std::ranges::transform(measuring::rows, all.begin(), &measuring::PropertyRow::property);
        return all;
    }();
    return properties;
}

} // namespace NKelmic
