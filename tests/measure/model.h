#ifndef MEMBLOCK_TESTS_MEASURE_MODEL_H
#define MEMBLOCK_TESTS_MEASURE_MODEL_H

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <set>
#include <string>
#include <vector>

/// Objects as sets of pixels, measured pixel by pixel as the definitions read.
namespace model {

struct Pixel {
    long y, x;
    auto operator<=>(Pixel const&) const = default;
};
using Object = std::set<Pixel>;

struct Picture {
    long width, height;
    std::vector<double> values;

    double At(Pixel p) const { return values[static_cast<std::size_t>(p.y * width + p.x)]; }
    bool Has(Pixel p) const { return p.x >= 0 && p.y >= 0 && p.x < width && p.y < height; }
};

/// Connected finite values above the threshold, or up to it, by flood fill.
inline std::vector<Object> Find(Picture const& picture, double threshold, bool dark, int neighbours)
{
    auto const wanted = [&](Pixel p) {
        double const v = picture.At(p);
        return std::isfinite(v) && (v > threshold) != dark;
    };
    std::vector<Object> objects;
    std::set<Pixel> seen;
    for (long y = 0; y < picture.height; ++y)
        for (long x = 0; x < picture.width; ++x) {
            if (!wanted({y, x}) || seen.count({y, x}))
                continue;
            Object object;
            std::vector<Pixel> todo{{y, x}};
            while (!todo.empty()) {
                Pixel const p = todo.back();
                todo.pop_back();
                if (!picture.Has(p) || !wanted(p) || !seen.insert(p).second)
                    continue;
                object.insert(p);
                for (long dy = -1; dy <= 1; ++dy)
                    for (long dx = -1; dx <= 1; ++dx)
                        if (neighbours == 8 || dy == 0 || dx == 0)
                            todo.push_back({p.y + dy, p.x + dx});
            }
            objects.push_back(std::move(object));
        }
    return objects;
}

/// Pieces of a set of pixels of a box one pixel wider than the object, or of what is outside of it.
inline int CountParts(Object const& object, bool outside, int neighbours, Pixel low, Pixel high)
{
    Picture box{high.x - low.x + 3, high.y - low.y + 3, {}};
    for (long y = low.y - 1; y <= high.y + 1; ++y)
        for (long x = low.x - 1; x <= high.x + 1; ++x)
            box.values.push_back(object.count({y, x}) != outside);
    return static_cast<int>(Find(box, 0.5, false, neighbours).size());
}

struct Point {
    double x, y;
};

inline double Turn(Point a, Point b, Point c)
{
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

/// The middles of all pixel edges: the points whose hull is meant.
inline std::vector<Point> EdgeMiddles(Object const& object)
{
    std::vector<Point> points;
    for (auto const [y, x] : object)
        for (auto const& [dx, dy] : {std::pair(0.5, 0.0), {-0.5, 0.0}, {0.0, 0.5}, {0.0, -0.5}})
            points.push_back({static_cast<double>(x) + dx, static_cast<double>(y) + dy});
    return points;
}

/// By wrapping: each corner is followed by the point that leaves all others on one side.
inline std::vector<Point> HullOf(std::vector<Point> const& points)
{
    auto const less = [](Point a, Point b) { return a.x != b.x ? a.x < b.x : a.y < b.y; };
    Point const start = *std::ranges::min_element(points, less);
    std::vector<Point> hull;
    Point at = start;
    do {
        hull.push_back(at);
        Point next = points.front();
        for (Point const p : points) {
            double const turn = Turn(at, next, p);
            double const farther =
                std::hypot(p.x - at.x, p.y - at.y) - std::hypot(next.x - at.x, next.y - at.y);
            if ((next.x == at.x && next.y == at.y) || turn < 0 || (turn == 0 && farther > 0))
                next = p;
        }
        at = next;
    } while (at.x != start.x || at.y != start.y);
    return hull;
}

using Row = std::map<std::string, double>;

inline void AddHull(Object const& object, Pixel low, Pixel high, Row& row)
{
    auto const points = EdgeMiddles(object);
    auto const hull = HullOf(points);
    double most = 0, least = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < hull.size(); ++i) {
        Point const a = hull[i], b = hull[(i + 1) % hull.size()];
        double reach = 0;
        for (Point const p : hull) {
            most = std::max(most, std::hypot(p.x - a.x, p.y - a.y));
            reach = std::max(reach, Turn(a, b, p) / std::hypot(b.x - a.x, b.y - a.y));
        }
        least = std::min(least, reach);
    }
    int inside = 0;
    for (long y = low.y; y <= high.y; ++y)
        for (long x = low.x; x <= high.x; ++x) {
            bool in = true;
            for (std::size_t i = 0; i < hull.size(); ++i) // the corners are halves: exact
                in = in && Turn(hull[i], hull[(i + 1) % hull.size()],
                                {static_cast<double>(x), static_cast<double>(y)}) >= 0;
            inside += in;
        }
    row["convex_area"] = inside;
    row["solidity"] = static_cast<double>(object.size()) / inside;
    row["feret_max"] = most;
    row["feret_min"] = least;
}

inline void AddOutline(Object const& object, Pixel low, Pixel high, Row& row)
{
    auto const has = [&](long y, long x) { return object.count({y, x}) != 0; };
    Object border;
    for (auto const [y, x] : object)
        if (!has(y - 1, x) || !has(y + 1, x) || !has(y, x - 1) || !has(y, x + 1))
            border.insert({y, x});
    double perimeter = 0;
    double enter[4] = {};
    for (auto const [y, x] : object) {
        enter[0] += !has(y, x - 1);
        enter[1] += !has(y - 1, x);
        enter[2] += !has(y - 1, x - 1);
        enter[3] += !has(y - 1, x + 1);
    }
    for (auto const [y, x] : border) {
        int beside = 0, across = 0;
        for (long dy = -1; dy <= 1; ++dy)
            for (long dx = -1; dx <= 1; ++dx)
                if ((dy != 0 || dx != 0) && border.count({y + dy, x + dx}))
                    ++(dy == 0 || dx == 0 ? beside : across);
        if ((beside == 2 || beside == 3) && across <= 2)
            perimeter += 1;
        else if ((beside == 0 && across == 2) || (beside == 1 && across == 3))
            perimeter += std::numbers::sqrt2;
        else if (beside == 1 && (across == 1 || across == 2))
            perimeter += (1 + std::numbers::sqrt2) / 2;
    }
    row["perimeter"] = perimeter;
    double const crofton =
        std::numbers::pi / 4 * (enter[0] + enter[1] + (enter[2] + enter[3]) / std::numbers::sqrt2);
    row["perimeter_crofton"] = crofton;
    row["circularity"] =
        4 * std::numbers::pi * static_cast<double>(object.size()) / (crofton * crofton);
    int const parts = CountParts(object, false, 8, low, high);
    row["holes"] = CountParts(object, true, 4, low, high) - 1;
    row["euler"] = parts - row["holes"];
}

inline void AddAxes(Object const& object, Row& row)
{
    double const n = static_cast<double>(object.size());
    double xx = 0, xy = 0, yy = 0;
    for (auto const [y, x] : object) {
        double const dx = static_cast<double>(x) - row["x"], dy = static_cast<double>(y) - row["y"];
        xx += dx * dx / n;
        xy += dx * dy / n;
        yy += dy * dy / n;
    }
    double const half = (xx + yy) / 2, radius = std::sqrt(std::pow((xx - yy) / 2, 2) + xy * xy);
    row["major_axis"] = 4 * std::sqrt(half + radius);
    row["minor_axis"] = 4 * std::sqrt(std::max(0.0, half - radius));
}

inline void AddIntensities(Object const& object, Picture const& values, Row& row)
{
    std::vector<double> sorted;
    double sum = 0, x_sum = 0, y_sum = 0;
    for (Pixel const p : object) {
        double const v = values.At(p);
        if (!std::isfinite(v))
            continue;
        sorted.push_back(v);
        sum += v;
        x_sum += v * static_cast<double>(p.x);
        y_sum += v * static_cast<double>(p.y);
    }
    std::ranges::sort(sorted);
    std::size_t const n = sorted.size();
    double const none = std::numeric_limits<double>::quiet_NaN(), count = static_cast<double>(n);
    auto const rank = [&](double q) {
        return n ? sorted[std::min(n - 1, static_cast<std::size_t>(count * q + 0.5))] : none;
    };
    double squares = 0;
    for (double const v : sorted)
        squares += (v - sum / count) * (v - sum / count);
    row["minimum"] = n ? sorted.front() : none;
    row["maximum"] = n ? sorted.back() : none;
    row["sum"] = sum;
    row["mean"] = n ? sum / count : none;
    row["stddev"] = n > 1 ? std::sqrt(squares / (count - 1)) : none;
    row["median"] = n ? (sorted[n / 2] + sorted[(n - 1) / 2]) / 2 : none;
    row["lower_quartile"] = rank(0.25);
    row["upper_quartile"] = rank(0.75);
    row["wx"] = sum != 0 ? x_sum / sum : none;
    row["wy"] = sum != 0 ? y_sum / sum : none;
}

/// All properties but the orientation, in pixels.
inline Row Measure(Object const& object, Picture const& values)
{
    Row row;
    Pixel low = *object.begin(), high = low;
    double const n = static_cast<double>(object.size());
    for (auto const [y, x] : object) {
        low = {std::min(low.y, y), std::min(low.x, x)};
        high = {std::max(high.y, y), std::max(high.x, x)};
        row["x"] += static_cast<double>(x) / n;
        row["y"] += static_cast<double>(y) / n;
    }
    row["area"] = n;
    row["first"] = static_cast<double>(object.begin()->y * values.width + object.begin()->x);
    row["x0"] = static_cast<double>(low.x);
    row["y0"] = static_cast<double>(low.y);
    row["x1"] = static_cast<double>(high.x);
    row["y1"] = static_cast<double>(high.y);
    row["at_edge"] =
        low.x == 0 || low.y == 0 || high.x + 1 == values.width || high.y + 1 == values.height;
    row["extent"] = n / static_cast<double>((high.x - low.x + 1) * (high.y - low.y + 1));
    row["diameter"] = 2 * std::sqrt(n / std::numbers::pi);
    AddAxes(object, row);
    AddOutline(object, low, high, row);
    AddHull(object, low, high, row);
    AddIntensities(object, values, row);
    return row;
}

} // namespace model

#endif // MEMBLOCK_TESTS_MEASURE_MODEL_H
