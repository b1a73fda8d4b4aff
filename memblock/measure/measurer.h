#ifndef MEMBLOCK_MEASURE_MEASURER_H
#define MEMBLOCK_MEASURE_MEASURER_H

#include <memblock/collections/table.h>
#include <memblock/core/datatype.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace NKelmic {
namespace measuring {
struct MeasurerState;
}

/// Which neighbours of a pixel belong to the same object.
enum class Neighbours {
    edges = 4,   ///< left, right, above, below
    corners = 8, ///< and the four across the corners
};

/// Which pixels are objects.
struct Segmentation {
    enum kind_t {
        above,  ///< connected finite values above the threshold
        up_to,  ///< connected finite values up to the threshold: dark objects
        labels, ///< object k is all pixels of value k, connected or not; 0 is none
    };
    kind_t kind = above;
    double threshold = 0; ///< raw
    Neighbours neighbours = Neighbours::edges;
};

/// The distances of neighbouring pixels and their unit. Without a unit places are in pixels and
/// areas are counts.
struct PixelSize {
    double x = 1, y = 1, z = 1;
    safestring unit;
};

/// What is measured of the objects, and which of them are kept.
struct MeasureOptions {
    /// Names and groups, see `Property`; without intensity images groups leave those out.
    safestring properties = "basic,intensity";
    PixelSize pixel_size;
    /// What becomes of NaN and of infinities among the intensities: "exclude", "include", or the
    /// number that replaces, as for `Statistic`.
    safestring nan = "exclude", inf = "exclude";
    /// Objects of fewer or more pixels are left out, and do not count as objects.
    std::int64_t min_pixels = 0, max_pixels = INT64_MAX;
    bool drop_at_edge = false; ///< those with a pixel at the edge of the picture, too
    /// Whether labels between 1 and the greatest that no pixel has become objects without pixels;
    /// not where objects are left out by size or place.
    bool keep_gaps = true;
};

/// An image of intensities, as it is fed.
struct PlaneFormat {
    safestring name; ///< goes, with '_', ahead of the names of its columns, unless it is ""
    DataType type = DataTypeBase::Byte;
    double factor = 1.0;
};

/// The picture and what is sought in it: equal for all measurers whose results are merged.
struct MeasureSetup {
    std::uint32_t width = 0;
    std::int64_t height = 0;
    DataType type = DataTypeBase::Byte; ///< of the values that make the objects
    Segmentation segmentation;
    std::vector<PlaneFormat> planes;
    MeasureOptions options;
};

/// Finds and measures the objects of a picture that need not fit into memory.
///
/// The picture is fed as rows from top to bottom, as many at a time as you like. An object is
/// measured as soon as no pixel of it can follow; of the others, runs of pixels and their
/// intensities are kept, and nothing else. So memory goes with the objects at the last row, and
/// with the rows of the table.
///
/// A picture may be cut into parts that are fed to measurers of their own, by several threads or on
/// several machines; the measurer of a part takes over that of the part below. The table has the
/// same bits, whatever the cut:
///
///     Measurer upper(setup, 0), lower(setup, 500);
///     upper.Feed(500, pixels, {pixels});
///     lower.Feed(setup.height - 500, pixels + 500 * setup.width, {pixels + 500 * setup.width});
///     upper.Merge(lower.Save());
///     DerivedPointer<Table> const table = upper.Finish();
///
/// A measurer belongs to one thread at a time. Linear in the pixels.
class MEMBLOCK_API Measurer {
public:
    /// Starts at a row of the picture.
    ///
    /// Throws: 4096 "No such property of objects: \"%s\"; there are: %s"; 128 for properties that
    /// need what is not there; 512 "A threshold must be a number.", "A pixel size must be above
    /// 0.", "A picture of %d x %d pixels cannot be measured from row %d on."; as `Statistic` for
    /// the policies.
    explicit Measurer(MeasureSetup setup, std::int64_t first_row = 0);
    Measurer(Measurer&&) noexcept;
    Measurer& operator=(Measurer&&) noexcept;
    ~Measurer();

    /// Take the next rows: of the values that make the objects and of each plane of intensities,
    /// row after row without gaps, all of the setup's width. They are not needed afterwards.
    ///
    /// Throws, and the measurer is as before: 512 "%d rows from row %d on are more than the picture
    /// has, which is %d.", "Rows of %d planes are needed, not of %d."; "Labels must be whole
    /// numbers from 0 on: found %s at column %d, row %d."; 256 if memory does not suffice.
    void Feed(std::int64_t rows, void const* objects, std::vector<void const*> const& planes);
    /// Take over what was found in the part that begins at `EndRow`. It is empty afterwards.
    ///
    /// Throws, with nothing changed: 512 "The part from row %d on does not follow one that ends at
    /// row %d.", "Parts of different setups cannot be merged.".
    void Merge(Measurer& below);

    std::int64_t FirstRow() const;
    std::int64_t EndRow() const; ///< the row that comes next
    std::size_t CompleteObjects() const;

    /// The table of all objects: a row each, by their first pixels or by their labels. The column
    /// "label" counts from 1, or has the labels.
    ///
    /// Throws: 256 "Rows %d to %d of the picture were not measured."
    DerivedPointer<Table> Finish();
    /// The table of the objects that are complete by now, of a run that was cancelled.
    DerivedPointer<Table> Complete() const;

    /// All that was found, and the setup, in a form that can be sent; the same for the same part.
    safestring Save() const;
    /// Throws: 512 "This is no state of a measurer: %s" for what was damaged or has another
    /// version.
    static Measurer Load(safestring const& state);

private:
    explicit Measurer(std::unique_ptr<measuring::MeasurerState> state);
    std::unique_ptr<measuring::MeasurerState> state_;
};

} // namespace NKelmic

#endif // MEMBLOCK_MEASURE_MEASURER_H
