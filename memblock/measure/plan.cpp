#include <memblock/measure/measurerstate_internal.h>

#include <memblock/base/number.h>

#include <cmath>

namespace NKelmic::measuring {
namespace {

Policy PolicyOf(safestring const& text)
{
    if (text == "exclude")
        return {Policy::exclude, 0};
    if (text == "include")
        return {Policy::include, 0};
    return {Policy::replace, StringToDouble()(text)};
}

unsigned NeedsOf(std::span<ColumnPlan const> columns)
{
    unsigned needs = 0;
    for (ColumnPlan const& column : columns)
        needs |= column.row->needs;
    return needs;
}

/// The properties of the objects themselves, then those of one plane after the other.
std::vector<ColumnPlan> ColumnsOf(MeasureSetup const& setup, bool cube)
{
    auto const selected = SelectProperties(setup.options.properties, cube, !setup.planes.empty());
    std::vector<ColumnPlan> columns;
    auto const add = [&](bool of_intensities, int plane) {
        for (PropertyRow const* const row : selected)
            if ((row->property.group == Property::intensity) == of_intensities)
                columns.push_back({row, plane});
    };
    add(false, -1);
    for (int plane = 0; plane < static_cast<int>(setup.planes.size()); ++plane)
        add(true, plane);
    return columns;
}

void Check(MeasureSetup const& setup)
{
    if (std::isnan(setup.segmentation.threshold))
        Raise(err_value, "A threshold must be a number.");
    PixelSize const& size = setup.options.pixel_size;
    for (double const d : {size.x, size.y, size.z})
        if (!(d > 0) || std::isinf(d))
            Raise(err_value, "A pixel size must be above 0.");
    auto const check_type = [](DataType type) {
        if (!IsInSet<NumericTypes>(type))
            Raise(err_kind, "Pixels of type \"%s\" cannot be measured.", TypeToString(type));
    };
    check_type(setup.type);
    for (PlaneFormat const& plane : setup.planes)
        check_type(plane.type);
    if (setup.segmentation.kind == Segmentation::labels && !IsInSet<IntegerTypes>(setup.type))
        Raise(err_kind, "Labels must be whole numbers, not elements of type \"%s\".",
              TypeToString(setup.type));
}

} // namespace

Plan::Plan(MeasureSetup s, std::int64_t depth) : setup(std::move(s))
{
    Check(setup);
    frame = {setup.width, setup.height, depth};
    PixelSize const& size = setup.options.pixel_size;
    source = {{size.x, size.y, size.z}, size.unit != "", frame.IsCube(), 1};
    nan = PolicyOf(setup.options.nan);
    inf = PolicyOf(setup.options.inf);
    columns = ColumnsOf(setup, frame.IsCube());
    needs = NeedsOf(columns);
}

std::size_t Plan::PlaneSize(std::size_t plane) const
{
    return WithElemType<NumericTypes>(setup.planes[plane].type, "%s",
                                      []<class T>(TypeTag<T>) { return sizeof(T); });
}

std::size_t Plan::BytesOfPixel() const
{
    std::size_t bytes = 0;
    for (std::size_t plane = 0; plane < setup.planes.size(); ++plane)
        bytes += PlaneSize(plane);
    return bytes;
}

void RowMaker::Make(Plan const& plan, RunList const& objects, std::span<Plane const> planes,
                    std::span<std::uint64_t const> labels, ResultRows& result)
{
    facts_.resize(objects.Count());
    FindGeometry(objects, plan.frame, facts_);
    if (plan.needs & need_axes)
        FindAxes(objects, plan.frame, plan.source.spacing, facts_);
    if (plan.needs & need_outline)
        FindOutlines(objects, plan.source.spacing, facts_);
    if (plan.needs & need_hull)
        FindHulls(objects, plan.source.spacing, facts_);

    std::size_t const width = plan.columns.size();
    cells_.resize(objects.Count() * width);
    CellSource source = plan.source;
    int current = -1;
    for (std::size_t c = 0; c < width; ++c) {
        auto const [row, plane] = plan.columns[c];
        if (plane != current) { // the columns of a plane follow one another
            FindIntensities(objects, plan.frame, planes[plane], plan.nan, plan.inf, plan.needs,
                            facts_);
            source.factor = plan.setup.planes[plane].factor;
            current = plane;
        }
        row->Filler(source)(facts_, source, cells_.data() + c, width);
    }

    MeasureOptions const& options = plan.setup.options;
    for (std::size_t k = 0; k < objects.Count(); ++k) {
        Geometry const& g = facts_[k].geometry;
        if (g.area < options.min_pixels || g.area > options.max_pixels ||
            (options.drop_at_edge && g.at_edge))
            continue;
        result.keys.push_back(labels.empty() ? g.first : static_cast<std::int64_t>(labels[k]));
        result.cells.Append(cells_.data() + k * width, width);
    }
}

} // namespace NKelmic::measuring
