#include <memblock/measure/facts_internal.h>

#include <algorithm>
#include <cmath>
#include <functional>

namespace NKelmic::measuring {
namespace {

double Quotient(Exact sum, Exact count)
{
    return ToDouble(sum) / ToDouble(count);
}

/// 0 + 1 + ... + (n - 1)
Exact SumBelow(std::int64_t n)
{
    return Exact(n) * (n - 1) / 2;
}

/// 0 + 1 + 4 + ... + (n - 1)^2
Exact SquaresBelow(std::int64_t n)
{
    constexpr std::int64_t small = 1 << 20; // the product fits 64 bits, whose division is faster
    if (n < small)
        return n * (n - 1) * (2 * n - 1) / 6;
    return Exact(n) * (n - 1) * (2 * n - 1) / 6;
}

void ExtendBox(Geometry& g, Run const& run, std::int64_t y, std::int64_t z)
{
    g.x0 = std::min<std::int64_t>(g.x0, run.x0);
    g.x1 = std::max<std::int64_t>(g.x1, run.x1 - 1);
    g.y0 = std::min(g.y0, y);
    g.y1 = std::max(g.y1, y);
    g.z1 = z; // runs ascend
}

bool TouchesEdge(Geometry const& g, Frame const& frame)
{
    return g.x0 == 0 || g.x1 + 1 == frame.width || g.y0 == 0 || g.y1 + 1 == frame.height ||
           (frame.IsCube() && (g.z0 == 0 || g.z1 + 1 == frame.depth));
}

Geometry GeometryOf(std::span<Run const> runs, Frame const& frame)
{
    Geometry g;
    if (runs.empty())
        return g;
    Run const& head = runs.front();
    bool const cube = frame.IsCube();
    std::int64_t const head_z = cube ? head.row / frame.height : 0;
    g.first = head.row * frame.width + head.x0;
    g.x0 = g.x1 = head.x0;
    g.y0 = g.y1 = head.row - head_z * frame.height;
    g.z0 = g.z1 = head_z;
    Exact twice_x = 0, sum_y = 0, sum_z = 0;
    for (Run const& run : runs) {
        std::int64_t const z = cube ? run.row / frame.height : 0;
        std::int64_t const y = run.row - z * frame.height, n = run.Length();
        ExtendBox(g, run, y, z);
        g.area += n;
        twice_x += n * (std::int64_t(run.x0) + run.x1 - 1);
        sum_y += n * y;
        sum_z += n * z;
    }
    g.x = Quotient(twice_x, Exact(2) * g.area);
    g.y = Quotient(sum_y, g.area);
    g.z = Quotient(sum_z, g.area);
    g.at_edge = TouchesEdge(g, frame);
    return g;
}

/// Sums over the pixels of an object, counted from the corner of its box.
struct Sums {
    Exact x = 0, y = 0, z = 0, xx = 0, xy = 0, yy = 0, xz = 0, yz = 0, zz = 0;
};

Sums SumsOf(std::span<Run const> runs, Geometry const& g, Frame const& frame)
{
    Sums s;
    bool const cube = frame.IsCube();
    for (Run const& run : runs) {
        std::int64_t const plane = cube ? run.row / frame.height : 0;
        std::int64_t const n = run.Length(), a = run.x0 - g.x0;
        std::int64_t const y = run.row - plane * frame.height - g.y0, z = plane - g.z0;
        Exact const x = n * a + SumBelow(n);
        s.x += x;
        s.y += n * y;
        s.xx += Exact(n * a) * a + 2 * a * SumBelow(n) + SquaresBelow(n);
        s.xy += x * y;
        s.yy += Exact(n * y) * y;
        if (cube) {
            s.z += n * z;
            s.xz += x * z;
            s.yz += Exact(n * y) * z;
            s.zz += Exact(n * z) * z;
        }
    }
    return s;
}

/// mean(a * b) - mean(a) * mean(b), with one rounding wherever the products fit.
double Covariance(std::int64_t n, Exact ab, Exact a, Exact b)
{
    constexpr Exact fits = Exact(1) << 95;
    double const count = static_cast<double>(n);
    if (n < (std::int64_t{1} << 31) && ab < fits)
        return ToDouble(n * ab - a * b) / (count * count);
    auto const wide = [n](Exact sum) { return static_cast<long double>(sum) / n; };
    return static_cast<double>(wide(ab) - wide(a) * wide(b));
}

Moments MomentsOf(Sums const& s, std::int64_t n)
{
    return {Covariance(n, s.xx, s.x, s.x), Covariance(n, s.xy, s.x, s.y),
            Covariance(n, s.yy, s.y, s.y), Covariance(n, s.xz, s.x, s.z),
            Covariance(n, s.yz, s.y, s.z), Covariance(n, s.zz, s.z, s.z)};
}

Moments Scaled(Moments m, Spacing const& d)
{
    return {m.xx * d.x * d.x, m.xy * d.x * d.y, m.yy * d.y * d.y,
            m.xz * d.x * d.z, m.yz * d.y * d.z, m.zz * d.z * d.z};
}

/// The ellipse of equal covariances has axes of four standard deviations.
Axes EllipseOf(Moments const& m)
{
    double const half = (m.xx + m.yy) / 2, radius = std::hypot((m.xx - m.yy) / 2, m.xy);
    double const least = std::max(0.0, half - radius); // of a line it is 0 but for rounding
    return {4 * std::sqrt(half + radius), 0, 4 * std::sqrt(least),
            std::atan2(2 * m.xy, m.xx - m.yy) / 2};
}

/// The eigenvalues of a symmetric matrix, greatest first, by Jacobi's rotations: closed forms lose
/// half of the digits where two eigenvalues are equal, as of every voxel and every straight line.
void Eigenvalues(Moments const& m, double (&value)[3])
{
    double a[3][3] = {{m.xx, m.xy, m.xz}, {m.xy, m.yy, m.yz}, {m.xz, m.yz, m.zz}};
    auto const rotate = [&a](int p, int q) {
        if (a[p][q] == 0)
            return;
        double const theta = (a[q][q] - a[p][p]) / (2 * a[p][q]);
        double const t = std::copysign(1.0, theta) / (std::fabs(theta) + std::hypot(theta, 1));
        double const c = 1 / std::hypot(t, 1), s = t * c;
        int const r = 3 - p - q;
        double const pr = a[p][r], qr = a[q][r];
        a[p][p] -= t * a[p][q];
        a[q][q] += t * a[p][q];
        a[p][q] = a[q][p] = 0;
        a[p][r] = a[r][p] = c * pr - s * qr;
        a[q][r] = a[r][q] = s * pr + c * qr;
    };
    constexpr int sweeps = 12; // each squares what is left beside the diagonal
    for (int sweep = 0; sweep < sweeps; ++sweep) {
        rotate(0, 1);
        rotate(0, 2);
        rotate(1, 2);
    }
    for (int i = 0; i < 3; ++i)
        value[i] = a[i][i];
    std::ranges::sort(value, std::greater());
}

/// The ellipsoid of equal covariances: the square of half an axis is five variances.
Axes EllipsoidOf(Moments const& m)
{
    double value[3];
    Eigenvalues(m, value);
    auto const axis = [](double v) { return 2 * std::sqrt(5 * std::max(0.0, v)); };
    return {axis(value[0]), axis(value[1]), axis(value[2]), nothing};
}

} // namespace

void FindGeometry(RunList const& objects, Frame const& frame, std::span<Facts> facts)
{
    for (std::size_t k = 0; k < facts.size(); ++k)
        facts[k].geometry = GeometryOf(objects.Object(k), frame);
}

void FindAxes(RunList const& objects, Frame const& frame, Spacing const& spacing,
              std::span<Facts> facts)
{
    for (std::size_t k = 0; k < facts.size(); ++k) {
        Geometry const& g = facts[k].geometry;
        if (g.area == 0) {
            facts[k].axes = {nothing, nothing, nothing, nothing};
            continue;
        }
        Sums const sums = SumsOf(objects.Object(k), g, frame);
        Moments const moments = Scaled(MomentsOf(sums, g.area), spacing);
        facts[k].axes = frame.IsCube() ? EllipsoidOf(moments) : EllipseOf(moments);
    }
}

} // namespace NKelmic::measuring
