#ifndef MEMBLOCK_MEASURE_MEASURERSTATE_INTERNAL_H
#define MEMBLOCK_MEASURE_MEASURERSTATE_INTERNAL_H

#include <memblock/measure/buffer_internal.h>
#include <memblock/measure/connect_internal.h>
#include <memblock/measure/measurer.h>
#include <memblock/measure/request_internal.h>

#include <unordered_map>

namespace NKelmic::measuring {

constexpr std::uint32_t none = UINT32_MAX;

/// The part of an object that came with one strip, with a copy of its intensities.
struct Piece {
    Buffer<Run> runs;             ///< ascending; `at` counts the pixels of the piece
    Buffer<unsigned char> values; ///< those of each plane, plane after plane
    std::size_t pixels = 0;
};

/// An object of which pixels may still follow.
struct OpenObject {
    std::vector<Piece> pieces;
    std::uint64_t label = 0; ///< of a picture of labels
    bool from_above = false; ///< it has pixels in the first row of a part that begins below row 0
};

/// The rows of complete objects: a key each, by which they will be sorted, and equally many cells.
struct ResultRows {
    Buffer<std::int64_t> keys;
    Buffer<Cell> cells;

    void Append(ResultRows const& other)
    {
        keys.Append(other.keys.data(), other.keys.size());
        cells.Append(other.cells.data(), other.cells.size());
    }
};

/// A column of the table to be.
struct ColumnPlan {
    PropertyRow const* row;
    int plane; ///< of the intensities, or -1
};

/// The setup, checked and made ready for use.
struct Plan {
    explicit Plan(MeasureSetup setup, std::int64_t depth = 1);

    MeasureSetup setup;
    Frame frame;
    CellSource source;
    Policy nan, inf;
    unsigned needs = 0;
    std::vector<ColumnPlan> columns;

    bool ByLabels() const { return setup.segmentation.kind == Segmentation::labels; }
    std::size_t PlaneSize(std::size_t plane) const; ///< bytes of a value
    std::size_t BytesOfPixel() const;               ///< of all planes
};

/// Computes rows of cells from the runs of whole objects.
class RowMaker {
public:
    /// Keys are first pixels, or the labels if there are any.
    void Make(Plan const& plan, RunList const& objects, std::span<Plane const> planes,
              std::span<std::uint64_t const> labels, ResultRows& result);

private:
    std::vector<Facts> facts_;
    std::vector<Cell> cells_;
};

/// Numbers things from 0 on by their labels, in the order in which they are asked for.
class LabelNumbers {
public:
    std::uint32_t Of(std::uint64_t label)
    {
        auto const [at, is_new] = numbers_.try_emplace(label, Count());
        return at->second;
    }
    std::uint32_t Find(std::uint64_t label) const
    {
        auto const at = numbers_.find(label);
        return at == numbers_.end() ? none : at->second;
    }
    std::uint32_t Count() const { return static_cast<std::uint32_t>(numbers_.size()); }

private:
    std::unordered_map<std::uint64_t, std::uint32_t> numbers_;
};

/// Strips of rows cut into runs, which are the nodes of `Forest`.
struct CutStrip {
    std::int64_t first_row = 0, rows = 0;
    Buffer<std::uint32_t> columns;   ///< entry and exit of each run
    Buffer<std::uint32_t> row_nodes; ///< where the nodes of each row begin, and the end
    Buffer<std::uint64_t> labels;    ///< of each run of a picture of labels

    std::uint32_t Nodes() const { return row_nodes.back(); }
    NodeRow Row(std::int64_t r, std::uint32_t offset) const
    {
        std::uint32_t const first = row_nodes[r], count = row_nodes[r + 1] - first;
        return {columns.data() + 2UL * first, count, first + offset};
    }
};

/// Cut the rows of a strip. Throws as `Measurer::Feed` does for labels.
void Cut(DataType type, Segmentation const& by, std::uint32_t width, void const* pixels,
         CutStrip& strip);

/// More labels than this are no numbers of objects, whose rows would fill the memory.
inline std::uint64_t MostLabels(std::uint64_t pixels)
{
    return std::min<std::uint64_t>(INT32_MAX, (1U << 24) + 16 * pixels);
}

/// The same rows in ascending order of their keys.
ResultRows Sorted(ResultRows const& rows, std::size_t width);

/// The table of complete objects.
DerivedPointer<Table> TableOf(Plan const& plan, ResultRows const& rows);
/// Put the columns of the rows behind those of a table that has the same rows.
void AppendColumns(Plan const& plan, ResultRows const& rows, safestring const& prefix,
                   Table& table);

/// What a `Measurer` holds.
struct MeasurerState {
    MeasurerState(MeasureSetup setup, std::int64_t first_row);

    Plan plan;
    std::int64_t first_row, end_row;
    ResultRows rows;
    std::vector<OpenObject> open;
    /// The runs of the last row, and which open object each belongs to.
    std::vector<std::uint32_t> border, border_object;

    void Feed(std::int64_t count, void const* objects, std::span<Plane const> planes);
    void Merge(MeasurerState& below);
    /// Make one piece of an object's pieces.
    Piece Gather(OpenObject const& object) const;
    void Complete(OpenObject const& object);
    /// Drop the open objects without pieces, which are complete or part of another.
    void DropClosed();
    /// Whether nothing can follow below a row of the part.
    bool IsLast(std::int64_t row) const { return row + 1 == plan.frame.height; }

    /// Measure the open objects to which nothing can be added any more.
    void CompleteEnded();

    RowMaker maker;

private:
    std::vector<std::uint32_t> JoinAtCut(std::span<std::uint32_t const> upper_border,
                                         std::span<std::uint32_t const> upper_object,
                                         std::int64_t row);
    std::vector<std::uint32_t> JoinLabels() const;
};

} // namespace NKelmic::measuring

#endif // MEMBLOCK_MEASURE_MEASURERSTATE_INTERNAL_H
