#include <memblock/measure/facts_internal.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numbers>
#include <numeric>

namespace NKelmic::measuring {
namespace {

using Word = std::uint64_t;
constexpr std::uint32_t bits = 64;

/// One row of an object as bits, with an empty column on either side: bit i + 1 is column i of the
/// box.
using Row = std::vector<Word>;

void SetBits(Row& row, std::uint32_t from, std::uint32_t to)
{
    for (std::uint32_t at = from; at < to;) {
        std::uint32_t const bit = at % bits, count = std::min(bits - bit, to - at);
        row[at / bits] |= (~Word{0} >> (bits - count)) << bit;
        at += count;
    }
}

/// The pixels to the left (or right) of those of word i.
Word Left(Row const& row, std::size_t i)
{
    return row[i] << 1 | (i > 0 ? row[i - 1] >> (bits - 1) : 0);
}
Word Right(Row const& row, std::size_t i)
{
    return row[i] >> 1 | (i + 1 < row.size() ? row[i + 1] << (bits - 1) : 0);
}

std::int64_t Count(Word w)
{
    return std::popcount(w);
}

/// Counts in each bit place how many of the words handed in have it set, up to three.
struct BitCounter {
    Word ones = 0, twos = 0;

    void Add(Word w)
    {
        Word const carry = ones & w;
        ones ^= w;
        twos ^= carry; // two and two never meet: see the callers
    }
    Word None() const { return ~ones & ~twos; }
    Word One() const { return ones & ~twos; }
    Word Two() const { return ~ones & twos; }
};

/// Counts over all rows of an object.
struct Counts {
    // Where a line enters the object: along rows, columns and both diagonals.
    std::int64_t along_row = 0, along_column = 0, falling = 0, rising = 0;
    // What the object covers as a set of closed squares.
    std::int64_t corners = 0, edges = 0, squares = 0;
    // Border pixels by their neighbours on the border, see `CountBorder`: so many beside in the
    // row, so many above and below.
    std::int64_t row2 = 0, column2 = 0, row1_column1 = 0, row2_column1 = 0, row1_column2 = 0;
    std::int64_t diagonal = 0, row1 = 0, column1 = 0;
};

/// Rows `above` and `here` of an object, one above the other.
void CountCrossings(Row const& above, Row const& here, Counts& c)
{
    for (std::size_t i = 0; i < here.size(); ++i) {
        Word const o = here[i], up = above[i], left = Left(here, i), up_left = Left(above, i);
        c.along_row += Count(o & ~left);
        c.along_column += Count(o & ~up);
        c.falling += Count(o & ~up_left);
        c.rising += Count(o & ~Right(above, i));
        c.corners += Count(o | up | left | up_left);
        c.edges += Count(o | up) + Count(o | left);
        c.squares += Count(o);
    }
}

/// The pixels of `here` with a neighbour beside, above or below that is outside the object.
void FindBorder(Row const& above, Row const& here, Row const& below, Row& border)
{
    for (std::size_t i = 0; i < here.size(); ++i)
        border[i] = here[i] & ~(above[i] & below[i] & Left(here, i) & Right(here, i));
}

/// Sort the border pixels of a row by their neighbours on the border: n beside, above and below,
/// d across the corners. Others add nothing to the length: n = 2 or 3 with d up to 2 is a straight
/// step, n = 0, d = 2 and n = 1, d = 3 a diagonal one, n = 1 with d = 1 or 2 half of each.
/// Source: K. Benkrid, D. Crookes, "Design and FPGA implementation of a perimeter estimator",
/// Proceedings of the Irish Machine Vision and Image Processing Conference, 2000.
void CountBorder(Row const& above, Row const& here, Row const& below, Counts& c)
{
    for (std::size_t i = 0; i < here.size(); ++i) {
        Word const o = here[i];
        if (o == 0)
            continue;
        BitCounter row, column;
        row.Add(Left(here, i));
        row.Add(Right(here, i));
        column.Add(above[i]);
        column.Add(below[i]);
        Word const corner[] = {Left(above, i), Right(above, i), Left(below, i), Right(below, i)};
        Word const all = corner[0] & corner[1] & corner[2] & corner[3];
        BitCounter diagonal; // modulo 4: what has all four is sorted out
        for (Word const w : corner)
            diagonal.Add(w);
        Word const three = diagonal.ones & diagonal.twos;
        Word const straight = o & ~three & ~all; // up to two corners
        c.row2 += Count(straight & row.Two() & column.None());
        c.column2 += Count(straight & row.None() & column.Two());
        c.row1_column1 += Count(straight & row.One() & column.One());
        c.row2_column1 += Count(straight & row.Two() & column.One());
        c.row1_column2 += Count(straight & row.One() & column.Two());
        Word const some = o & (diagonal.One() | diagonal.Two());
        c.row1 += Count(some & row.One() & column.None());
        c.column1 += Count(some & row.None() & column.One());
        Word const single = (row.One() & column.None()) | (row.None() & column.One());
        c.diagonal += Count(o & diagonal.Two() & row.None() & column.None());
        c.diagonal += Count(o & three & single);
    }
}

/// Walks the rows of an object from the one above its box to the second below, with five of them
/// in view: a border pixel depends on the rows next to it, its class on the border there.
class Window {
public:
    Counts Walk(std::span<Run const> runs, Geometry const& g)
    {
        std::size_t const words = static_cast<std::size_t>(g.x1 - g.x0 + 2) / bits + 1;
        for (Row& row : rows_)
            row.assign(words, 0);
        for (Row& row : borders_)
            row.assign(words, 0);
        Counts counts;
        auto run = runs.begin();
        for (std::int64_t y = g.y0; y <= g.y1 + 2; ++y) {
            std::rotate(rows_.begin(), rows_.begin() + 1, rows_.end());
            Row& last = rows_.back();
            std::ranges::fill(last, 0);
            for (; run != runs.end() && run->row == y; ++run)
                SetBits(last, static_cast<std::uint32_t>(run->x0 - g.x0 + 1),
                        static_cast<std::uint32_t>(run->x1 - g.x0 + 1));
            Step(counts);
        }
        return counts;
    }

private:
    void Step(Counts& counts)
    {
        CountCrossings(rows_[1], rows_[2], counts);
        std::rotate(borders_.begin(), borders_.begin() + 1, borders_.end());
        FindBorder(rows_[0], rows_[1], rows_[2], borders_[2]);
        CountBorder(borders_[0], borders_[1], borders_[2], counts);
    }

    std::array<Row, 3> rows_, borders_;
};

/// Weights by the steps that the classes stand for, in units of length.
double PerimeterOf(Counts const& c, Spacing const& d)
{
    double const slant = std::hypot(d.x, d.y), both = (d.x + d.y) / 2;
    auto const times = [](std::int64_t n, double length) {
        return static_cast<double>(n) * length;
    };
    return times(c.row2, d.x) + times(c.column2, d.y) + times(c.row1_column1, both) +
           times(c.row2_column1, (2 * d.x + d.y) / 3) + times(c.row1_column2, (d.x + 2 * d.y) / 3) +
           times(c.diagonal, slant) + times(c.row1, (d.x + slant) / 2) +
           times(c.column1, (d.y + slant) / 2);
}

/// The mean extent over the four directions of the grid times pi, each weighted by the angles that
/// it is the nearest to. Source: M. Crofton, "On the theory of local probability", Philosophical
/// Transactions of the Royal Society 158, 1868; discrete as in G. Lehmann, D. Legland, "Efficient
/// N-dimensional surface estimation using Crofton formula and run-length encoding", 2012.
double CroftonOf(Counts const& c, Spacing const& d)
{
    double const angle = std::atan2(d.y, d.x); // of the diagonal
    double const across = d.x * d.y / std::hypot(d.x, d.y), slant = std::numbers::pi / 4;
    return static_cast<double>(c.along_row) * d.y * angle +
           static_cast<double>(c.along_column) * d.x * (std::numbers::pi / 2 - angle) +
           static_cast<double>(c.falling + c.rising) * across * slant;
}

/// Counts the parts of an object that do not touch, not even by a corner.
class Parts {
public:
    std::int64_t Count(std::span<Run const> runs)
    {
        parent_.resize(runs.size());
        std::iota(parent_.begin(), parent_.end(), std::size_t{0});
        std::int64_t parts = static_cast<std::int64_t>(runs.size());
        std::size_t above =
            0; // runs that end before the row above, or too far left in it, are past
        for (std::size_t i = 0; i < runs.size(); ++i) {
            while (runs[above].row + 1 < runs[i].row ||
                   (runs[above].row + 1 == runs[i].row && runs[above].x1 < runs[i].x0))
                ++above;
            for (std::size_t k = above; runs[k].row < runs[i].row && runs[k].x0 <= runs[i].x1; ++k)
                parts -= Join(k, i);
        }
        return parts;
    }

private:
    bool Join(std::size_t a, std::size_t b)
    {
        a = Root(a);
        b = Root(b);
        parent_[std::max(a, b)] = std::min(a, b);
        return a != b;
    }
    std::size_t Root(std::size_t i)
    {
        while (parent_[i] != i)
            i = parent_[i] = parent_[parent_[i]];
        return i;
    }

    std::vector<std::size_t> parent_;
};

} // namespace

void FindOutlines(RunList const& objects, Spacing const& spacing, std::span<Facts> facts)
{
    Window window;
    Parts parts;
    for (std::size_t k = 0; k < facts.size(); ++k) {
        Outline& outline = facts[k].outline;
        outline = {nothing, nothing, 0, 0};
        std::span<Run const> const runs = objects.Object(k);
        if (runs.empty())
            continue;
        Counts const counts = window.Walk(runs, facts[k].geometry);
        outline.perimeter = PerimeterOf(counts, spacing);
        outline.crofton = CroftonOf(counts, spacing);
        // Euler: corners - edges + squares, of the closed squares.
        outline.euler = counts.corners - counts.edges + counts.squares;
        outline.holes = parts.Count(runs) - outline.euler;
    }
}

} // namespace NKelmic::measuring
