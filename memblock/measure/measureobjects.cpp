#include <memblock/measure/objects.h>

#include <memblock/imaging/mask.h>
#include <memblock/imaging/stencil.h>
#include <memblock/measure/measurerstate_internal.h>

#include <algorithm>

namespace NKelmic {

using namespace measuring;

namespace {

/// Sizes of the picture or cube that pixel numbers count in.
Frame FrameOf(IndexVector::TargetData const& target, PMemBlock const& objects)
{
    auto const& d = target.dims;
    if (d.size() != 2 && d.size() != 3)
        Raise(err_kind, "Objects cannot be measured: %s", objects);
    return {d[0], d[1], d.size() == 3 ? static_cast<std::int64_t>(d[2]) : 1};
}

/// Append the runs of a list of pixel numbers; one that is listed twice counts once.
void AppendRuns(std::span<unsigned int const> pixels, std::uint32_t width, Buffer<Run>& runs)
{
    std::vector<unsigned int> sorted;
    if (!std::ranges::is_sorted(pixels, std::ranges::less_equal())) {
        sorted.assign(pixels.begin(), pixels.end());
        std::ranges::sort(sorted);
        sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
        pixels = sorted;
    }
    for (std::size_t i = 0; i < pixels.size();) {
        unsigned int const first = pixels[i], row = first / width, x0 = first % width;
        std::size_t const most = std::min<std::size_t>(pixels.size() - i, width - x0);
        std::size_t n = 1;
        while (n < most && pixels[i + n] == first + n)
            ++n;
        runs.push_back({row, x0, static_cast<std::uint32_t>(x0 + n), first});
        i += n;
    }
}

/// Objects of pixel numbers, each of one list or, of zones, of several.
class ObjectLists {
public:
    explicit ObjectLists(DerivedPointer<IntervalVector> const& objects) : objects_(objects)
    {
        IntervalVector const& v = *objects_;
        zones_ = MemCast<IntervalVector>(v.Target());
        IntervalVector const& innermost = zones_ ? *zones_ : v;
        pixels_ = DerivedPointer<IndexVector>(MemCast<IndexVector>(innermost.Target()));
        if (!pixels_ || MemCast<IntervalVector>(innermost.Target()))
            Raise(err_kind, "Objects cannot be measured: %s", v);
    }

    unsigned int Count() const { return objects_->IntervalCount(); }
    IndexVector const& Pixels() const { return *pixels_; }
    /// The most zones that an object has; 0 if there are none but the objects.
    unsigned int MostZones() const
    {
        unsigned int most = 0;
        for (unsigned int k = 0; zones_ && k < Count(); ++k)
            most = std::max(most, End(*objects_, k) - Begin(*objects_, k));
        return most;
    }
    /// The runs of a whole object.
    void AppendObject(unsigned int k, std::uint32_t width, Buffer<Run>& runs) const
    {
        if (!zones_)
            return AppendList(*objects_, k, width, runs);
        std::vector<unsigned int> all;
        for (unsigned int z = Begin(*objects_, k); z < End(*objects_, k); ++z) {
            auto const list = List(*zones_, z);
            all.insert(all.end(), list.begin(), list.end());
        }
        AppendRuns(all, width, runs);
    }
    /// The runs of one of its zones, from 0; none if it has fewer.
    void AppendZone(unsigned int k, unsigned int zone, std::uint32_t width, Buffer<Run>& runs) const
    {
        unsigned int const z = Begin(*objects_, k) + zone;
        if (z < End(*objects_, k))
            AppendList(*zones_, z, width, runs);
    }

private:
    /// Limits are not checked when they are stored; what is read stays inside the target.
    unsigned int Begin(IntervalVector const& v, unsigned int k) const
    {
        return std::min(v.Start(0)[k], Items(v));
    }
    unsigned int End(IntervalVector const& v, unsigned int k) const
    {
        return std::clamp(v.End(0)[k], Begin(v, k), Items(v));
    }
    unsigned int Items(IntervalVector const& v) const
    {
        return &v == zones_ || !zones_ ? static_cast<unsigned int>(pixels_->Length())
                                       : zones_->IntervalCount();
    }
    std::span<unsigned int const> List(IntervalVector const& v, unsigned int k) const
    {
        unsigned int const* const all = cref(pixels_).UnsignedIntPointer();
        return {all + Begin(v, k), all + End(v, k)};
    }
    void AppendList(IntervalVector const& v, unsigned int k, std::uint32_t width,
                    Buffer<Run>& runs) const
    {
        AppendRuns(List(v, k), width, runs);
    }

    DerivedPointer<IntervalVector> objects_;
    IntervalVector const* zones_ = nullptr;
    DerivedPointer<IndexVector> pixels_;
};

DerivedPointer<IntervalVector> ListsOf(PMemBlock const& objects)
{
    if (Stencil const* const stencil = MemCast<Stencil>(objects))
        return DerivedPointer<IntervalVector>(stencil->GetVectorRepr());
    if (Image const* const labels = MemCast<Image>(objects))
        return ObjectsOfLabels(*labels);
    if (IntervalVector const* const lists = MemCast<IntervalVector>(objects))
        return DerivedPointer<IntervalVector>(lists);
    DerivedPointer<IndexVector> one;
    if (Mask const* const mask = MemCast<Mask>(objects))
        one = mask->GetVectorRepr();
    else if (IndexVector const* const pixels = MemCast<IndexVector>(objects))
        one = DerivedPointer<IndexVector>(pixels);
    else
        Raise(err_kind, "Objects cannot be measured: %s", objects);
    auto const list = IntervalVector::Create(1, one);
    list->Start(0)[1] = static_cast<unsigned int>(one->Length());
    return list;
}

bool Matches(Vector const& values, Frame const& frame)
{
    bool const cube = values.GetRank() == 3;
    return (cube || values.GetRank() == 2) && values.GetDimSize(0) == frame.width &&
           values.GetDimSize(1) == frame.height && (cube ? values.GetDimSize(2) : 1) == frame.depth;
}

/// Measures lists of runs by batches.
class ListMeasurer {
public:
    ListMeasurer(Plan const& plan, std::vector<IntensityPlane> const& intensities) : plan_(plan)
    {
        for (IntensityPlane const& plane : intensities)
            planes_.push_back({cref(plane.values).ElemType(), cref(plane.values).Pointer()});
    }

    /// `append` appends the runs of an object.
    template <class Append>
    ResultRows Measure(std::vector<std::uint64_t> const& labels, Append&& append)
    {
        constexpr std::size_t batch = 256;
        ResultRows rows;
        RowMaker maker;
        RunList list;
        for (std::size_t k = 0; k < labels.size();) {
            std::size_t const from = k;
            list.Clear();
            for (; k < labels.size() && k < from + batch; ++k) {
                append(static_cast<unsigned int>(labels[k] - 1), list.runs);
                list.EndObject();
            }
            maker.Make(plan_, list, planes_, std::span(labels).subspan(from, k - from), rows);
        }
        return rows;
    }

private:
    Plan const& plan_;
    std::vector<Plane> planes_;
};

MeasureSetup SetupFor(Frame const& frame, std::vector<IntensityPlane> const& intensities,
                      MeasureOptions const& options, PMemBlock const& objects)
{
    MeasureSetup setup;
    setup.width = frame.width;
    setup.height = frame.height;
    setup.segmentation.kind = Segmentation::labels; // a row is known by its number, not its place
    setup.options = options;
    setup.options.keep_gaps = false; // objects without pixels are in the lists
    for (IntensityPlane const& plane : intensities) {
        if (!plane.values || !Matches(cref(plane.values), frame))
            Raise(err_kind, "Intensities of %s lie not below objects of %s.", plane.values,
                  objects);
        Vector const& values = cref(plane.values);
        setup.planes.push_back({plane.name, values.ElemType(), values.Factor()});
    }
    return setup;
}

std::vector<std::uint64_t> NumbersTo(unsigned int count)
{
    std::vector<std::uint64_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), std::uint64_t{1});
    return numbers;
}

} // namespace

DerivedPointer<Table> MeasureObjects(PMemBlock const& objects,
                                     std::vector<IntensityPlane> const& intensities,
                                     MeasureOptions const& options)
{
    ObjectLists const lists(ListsOf(objects));
    Frame const frame = FrameOf(lists.Pixels().GetTargetData(), objects);
    MeasureSetup setup = SetupFor(frame, intensities, options, objects);
    unsigned int const zones = lists.MostZones();
    if (zones == 0) {
        Plan const plan(setup, frame.depth);
        return TableOf(plan,
                       ListMeasurer(plan, intensities)
                           .Measure(NumbersTo(lists.Count()), [&](unsigned int k, auto& runs) {
                               lists.AppendObject(k, frame.width, runs);
                           }));
    }
    // Whether an object is kept is asked of the whole, what is measured of its zones.
    MeasureSetup of_wholes = setup;
    of_wholes.planes.clear();
    of_wholes.options.properties = "";
    Plan const wholes(of_wholes, frame.depth);
    ResultRows const kept =
        ListMeasurer(wholes, {}).Measure(NumbersTo(lists.Count()), [&](unsigned int k, auto& runs) {
            lists.AppendObject(k, frame.width, runs);
        });
    DerivedPointer<Table> const table = TableOf(wholes, kept);

    setup.options.min_pixels = 0;
    setup.options.max_pixels = INT64_MAX;
    setup.options.drop_at_edge = false;
    Plan const plan(setup, frame.depth);
    std::vector<std::uint64_t> const labels(kept.keys.begin(), kept.keys.end());
    for (unsigned int zone = 0; zone < zones; ++zone) {
        ResultRows const rows =
            ListMeasurer(plan, intensities).Measure(labels, [&](unsigned int k, auto& runs) {
                lists.AppendZone(k, zone, frame.width, runs);
            });
        AppendColumns(plan, rows, Text("zone%d_", static_cast<int>(zone) + 1), *table);
    }
    return table;
}

} // namespace NKelmic
