#include <memblock/measure/facts_internal.h>

#include <algorithm>
#include <cmath>

namespace NKelmic::measuring {
namespace {

/// A place in half pixels, counted from the corner of the box.
struct Point {
    std::int64_t x, y;
};

/// Positive if a, b, c turn from the x axis towards the y axis; exact for any box.
Exact Turn(Point a, Point b, Point c)
{
    return static_cast<Exact>(b.x - a.x) * (c.y - a.y) -
           static_cast<Exact>(b.y - a.y) * (c.x - a.x);
}

/// The left or the right side of a hull, from top to bottom: it bends one way only.
class Side {
public:
    explicit Side(bool right) : sign_(right ? 1 : -1) {}

    void Clear() { points_.clear(); }
    void Add(Point p)
    {
        if (!points_.empty() && points_.back().y == p.y) { // two rows share the edge between them
            if (sign_ * (p.x - points_.back().x) <= 0)
                return;
            points_.pop_back();
        }
        while (points_.size() > 1 &&
               sign_ * Turn(points_[points_.size() - 2], points_.back(), p) <= 0)
            points_.pop_back();
        points_.push_back(p);
    }
    std::vector<Point> const& Points() const { return points_; }

private:
    int sign_;
    std::vector<Point> points_;
};

/// Rounds towards minus infinity; the divisor is positive.
std::int64_t Floor(Exact a, Exact b)
{
    Exact const q = a / b;
    return static_cast<std::int64_t>(q - (a % b < 0));
}

/// Where a side is in rows that are asked for from top to bottom.
class Reader {
public:
    explicit Reader(std::vector<Point> const& points) : at_(points.data()) {}

    /// The last pixel column whose centre is not right of the side (or, of the left side negated,
    /// the first one not left of it): floor(x / 2), x being a fraction.
    std::int64_t Column(std::int64_t y, int sign)
    {
        while (at_[1].y < y)
            ++at_;
        Point const &a = at_[0], &b = at_[1];
        Exact const height = b.y - a.y;
        return Floor(sign * (a.x * height + static_cast<Exact>(b.x - a.x) * (y - a.y)), 2 * height);
    }

private:
    Point const* at_;
};

/// The corners in turn, in units of length.
struct Corner {
    double x, y;
};

double Cross(Corner a, Corner b, Corner p)
{
    return (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
}

class HullFinder {
public:
    Hull Find(std::span<Run const> runs, Geometry const& g, Spacing const& spacing)
    {
        BuildSides(runs, g);
        Hull hull{0, 0, 0};
        hull.area = CountPixels(g);
        CollectCorners(spacing);
        FindFerets(hull);
        return hull;
    }

private:
    void BuildSides(std::span<Run const> runs, Geometry const& g)
    {
        left_.Clear();
        right_.Clear();
        for (std::size_t i = 0; i < runs.size();) {
            std::int64_t const y = 2 * (runs[i].row - g.y0), x0 = 2 * (runs[i].x0 - g.x0);
            std::size_t last = i;
            while (last + 1 < runs.size() && runs[last + 1].row == runs[i].row)
                ++last;
            std::int64_t const x1 = 2 * (runs[last].x1 - 1 - g.x0);
            // The middles of the edges above, at the sides and below.
            left_.Add({x0, y - 1});
            left_.Add({x0 - 1, y});
            left_.Add({x0, y + 1});
            right_.Add({x1, y - 1});
            right_.Add({x1 + 1, y});
            right_.Add({x1, y + 1});
            i = last + 1;
        }
    }
    std::int64_t CountPixels(Geometry const& g) const
    {
        Reader left(left_.Points()), right(right_.Points());
        std::int64_t count = 0;
        for (std::int64_t y = 0; y <= 2 * (g.y1 - g.y0); y += 2)
            count += right.Column(y, 1) + left.Column(y, -1) + 1;
        return count;
    }
    void CollectCorners(Spacing const& d)
    {
        corners_.clear();
        auto const add = [&](Point p) {
            corners_.push_back(
                {static_cast<double>(p.x) / 2 * d.x, static_cast<double>(p.y) / 2 * d.y});
        };
        std::ranges::for_each(right_.Points(), add);
        auto const& left = left_.Points();
        // Where the sides meet in one point, the right one has it.
        auto const meet = [](Point a, Point b) { return a.x == b.x; };
        std::size_t const first = meet(left.front(), right_.Points().front()) ? 1 : 0;
        std::size_t const last = left.size() - (meet(left.back(), right_.Points().back()) ? 1 : 0);
        for (std::size_t i = last; i-- > first;)
            add(left[i]);
    }
    /// For each edge the farthest corner, which moves on as the edge does: both diameters come from
    /// such pairs. Source: G. Toussaint, "Solving geometric problems with the rotating calipers",
    /// Proceedings of IEEE MELECON, 1983.
    void FindFerets(Hull& hull) const
    {
        std::size_t const n = corners_.size();
        auto const next = [n](std::size_t i) { return i + 1 == n ? 0 : i + 1; };
        double longest = 0, narrowest = std::numeric_limits<double>::infinity();
        auto const measure = [&](std::size_t i, std::size_t k) {
            longest = std::max(
                longest, std::hypot(corners_[k].x - corners_[i].x, corners_[k].y - corners_[i].y));
        };
        std::size_t far = 1;
        for (std::size_t i = 0; i < n; ++i) {
            Corner const a = corners_[i], b = corners_[next(i)];
            measure(i, far);
            while (Cross(a, b, corners_[next(far)]) > Cross(a, b, corners_[far])) {
                far = next(far);
                measure(i, far);
            }
            measure(i, next(far)); // the other end of an edge that is parallel to this one
            narrowest =
                std::min(narrowest, Cross(a, b, corners_[far]) / std::hypot(b.x - a.x, b.y - a.y));
        }
        hull.feret_max = longest;
        hull.feret_min = narrowest;
    }

    Side left_{false}, right_{true};
    std::vector<Corner> corners_;
};

} // namespace

void FindHulls(RunList const& objects, Spacing const& spacing, std::span<Facts> facts)
{
    HullFinder finder;
    for (std::size_t k = 0; k < facts.size(); ++k) {
        std::span<Run const> const runs = objects.Object(k);
        facts[k].hull = runs.empty() ? Hull{0, nothing, nothing}
                                     : finder.Find(runs, facts[k].geometry, spacing);
    }
}

} // namespace NKelmic::measuring
