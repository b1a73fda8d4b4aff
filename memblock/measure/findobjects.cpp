#include <memblock/measure/objects.h>

#include <memblock/base/alloc.h>
#include <memblock/measure/measurerstate_internal.h>

#include <cmath>
#include <new>

namespace NKelmic {

using namespace measuring;

namespace {

unsigned int* NewNumbers(std::size_t count)
{
    if (void* const block = mb_calloc(count + 1, sizeof(unsigned int))) // never of size 0
        return static_cast<unsigned int*>(block);
    throw std::bad_alloc();
}

/// Lists of pixel numbers from runs: `object` has the number, from 0, of each run's object.
DerivedPointer<IntervalVector> ListsOf(CutStrip const& strip, std::span<std::uint32_t const> object,
                                       unsigned int count, std::uint32_t width,
                                       Vector const& target)
{
    auto const length = [&](std::uint32_t node) {
        return strip.columns[2UL * node + 1] - strip.columns[2UL * node];
    };
    std::unique_ptr<unsigned int, void (*)(void*)> starts(NewNumbers(count + 1UL), mb_free);
    for (std::uint32_t node = 0; node < strip.Nodes(); ++node)
        starts.get()[object[node] + 1UL] += length(node);
    std::partial_sum(starts.get(), starts.get() + count + 1, starts.get());
    unsigned int const total = starts.get()[count];
    auto const pixels = IndexVector::Create(total, DerivedPointer<Vector>(&target));
    unsigned int* const indices = pixels->UnsignedIntPointer();
    std::vector<unsigned int> next(starts.get(), starts.get() + count);
    for (std::int64_t r = 0; r < strip.rows; ++r)
        for (std::uint32_t node = strip.row_nodes[r]; node < strip.row_nodes[r + 1]; ++node) {
            unsigned int& at = next[object[node]];
            std::iota(indices + at, indices + at + length(node),
                      static_cast<unsigned int>(r) * width + strip.columns[2UL * node]);
            at += length(node);
        }
    return IntervalVector::Create(count, 0, starts.release(), mb_free, pixels);
}

CutStrip CutAll(Vector const& pixels, std::uint32_t width, std::int64_t rows,
                Segmentation const& by)
{
    if (std::isnan(by.threshold))
        Raise(err_value, "A threshold must be a number.");
    CutStrip strip;
    strip.rows = rows;
    Cut(pixels.ElemType(), by, width, pixels.Pointer(), strip);
    return strip;
}

/// Join each row with those before it that its pixels touch: in steps of rows and planes back, and
/// how far beside.
struct Back {
    std::int64_t rows, planes;
    std::uint32_t reach;
};

DerivedPointer<IntervalVector> Connected(Vector const& pixels, std::uint32_t width,
                                         std::int64_t height, std::int64_t depth,
                                         Segmentation const& by, std::span<Back const> backs)
{
    CutStrip const strip = CutAll(pixels, width, height * depth, by);
    Forest forest;
    forest.Reset(strip.Nodes());
    for (std::int64_t row = 0; row < strip.rows; ++row)
        for (Back const& back : backs) {
            std::int64_t const y = row % height - back.rows, z = row / height - back.planes;
            if (y >= 0 && y < height && z >= 0)
                ConnectRows(strip.Row(y + height * z, 0), strip.Row(row, 0), back.reach, forest);
        }
    std::uint32_t const count = forest.Number();
    return ListsOf(strip, forest.Components(), count, width, pixels);
}

DerivedPointer<IntervalVector> ConnectedPixels(Image const& image, Segmentation const& by)
{
    Back const above[] = {{1, 0, by.neighbours == Neighbours::corners ? 1U : 0U}};
    return Connected(image, image.width(), image.height(), 1, by, above);
}

} // namespace

DerivedPointer<IntervalVector> FindObjects(Image const& image, Segmentation const& by)
{
    return by.kind == Segmentation::labels ? ObjectsOfLabels(image) : ConnectedPixels(image, by);
}

DerivedPointer<IntervalVector> FindObjects(Image const& mask, Neighbours neighbours)
{
    if (!IsInSet<UnsignedTypes>(mask.ElemType()))
        Raise(err_kind, "Not a mask: %s", mask);
    return ConnectedPixels(mask, {Segmentation::above, 0, neighbours});
}

DerivedPointer<IntervalVector> ObjectsOfLabels(Image const& labels)
{
    if (!IsInSet<IntegerTypes>(labels.ElemType()))
        Raise(err_kind, "Labels must be whole numbers, not elements of type \"%s\".",
              TypeToString(labels.ElemType()));
    CutStrip const strip = CutAll(labels, labels.width(), labels.height(), {Segmentation::labels});
    std::uint64_t greatest = 0;
    for (std::uint64_t const label : strip.labels)
        greatest = std::max(greatest, label);
    if (greatest > MostLabels(labels.Length()))
        Raise(err_value, "Label %u would make as many objects of a picture of %u pixels.",
              static_cast<unsigned long long>(greatest), labels.Length());
    std::vector<std::uint32_t> object(strip.labels.size());
    for (std::size_t i = 0; i < object.size(); ++i)
        object[i] = static_cast<std::uint32_t>(strip.labels[i] - 1);
    return ListsOf(strip, object, static_cast<unsigned int>(greatest), labels.width(), labels);
}

DerivedPointer<IntervalVector> FindObjects(DataCube const& cube, double threshold, bool dark,
                                           VoxelNeighbours neighbours)
{
    Segmentation const by{dark ? Segmentation::up_to : Segmentation::above, threshold};
    static constexpr Back faces[] = {{1, 0, 0}, {0, 1, 0}};
    static constexpr Back corners[] = {{1, 0, 1}, {1, 1, 1}, {0, 1, 1}, {-1, 1, 1}};
    bool const all = neighbours == VoxelNeighbours::corners;
    return Connected(cube, cube.width(), cube.height(), cube.depth(), by,
                     all ? std::span<Back const>(corners) : std::span<Back const>(faces));
}

} // namespace NKelmic
