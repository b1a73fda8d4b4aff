#include <memblock/measure/measurer.h>

#include <memblock/measure/measurerstate_internal.h>

#include <algorithm>

namespace NKelmic {

using namespace measuring;

namespace {

bool SamePlane(PlaneFormat const& a, PlaneFormat const& b)
{
    return a.name == b.name && a.type == b.type && a.factor == b.factor;
}

bool SameOptions(MeasureOptions const& a, MeasureOptions const& b)
{
    return a.properties == b.properties && a.pixel_size.x == b.pixel_size.x &&
           a.pixel_size.y == b.pixel_size.y && a.pixel_size.z == b.pixel_size.z &&
           a.pixel_size.unit == b.pixel_size.unit && a.nan == b.nan && a.inf == b.inf &&
           a.min_pixels == b.min_pixels && a.max_pixels == b.max_pixels &&
           a.drop_at_edge == b.drop_at_edge && a.keep_gaps == b.keep_gaps;
}

bool SameSetup(MeasureSetup const& a, MeasureSetup const& b)
{
    Segmentation const &x = a.segmentation, &y = b.segmentation;
    return a.width == b.width && a.height == b.height && a.type == b.type && x.kind == y.kind &&
           x.threshold == y.threshold && x.neighbours == y.neighbours &&
           std::ranges::equal(a.planes, b.planes, SamePlane) && SameOptions(a.options, b.options);
}

} // namespace

measuring::MeasurerState::MeasurerState(MeasureSetup setup, std::int64_t first)
    : plan(std::move(setup)), first_row(first), end_row(first)
{
    if (first < 0 || first > plan.frame.height || plan.frame.height < 0)
        Raise(err_value, "A picture of %d x %d pixels cannot be measured from row %d on.",
              plan.setup.width, plan.setup.height, first);
}

Measurer::Measurer(MeasureSetup setup, std::int64_t first_row)
    : state_(std::make_unique<MeasurerState>(std::move(setup), first_row))
{
}

Measurer::Measurer(std::unique_ptr<MeasurerState> state) : state_(std::move(state)) {}
Measurer::Measurer(Measurer&&) noexcept = default;
Measurer& Measurer::operator=(Measurer&&) noexcept = default;
Measurer::~Measurer() = default;

void Measurer::Feed(std::int64_t rows, void const* objects, std::vector<void const*> const& planes)
{
    Plan const& plan = state_->plan;
    if (rows < 0 || rows > plan.frame.height - state_->end_row)
        Raise(err_value, "%d rows from row %d on are more than the picture has, which is %d.", rows,
              state_->end_row, plan.frame.height);
    if (planes.size() != plan.setup.planes.size())
        Raise(err_value, "Rows of %d planes are needed, not of %d.",
              static_cast<int>(plan.setup.planes.size()), static_cast<int>(planes.size()));
    std::vector<Plane> formats;
    for (std::size_t p = 0; p < planes.size(); ++p)
        formats.push_back({plan.setup.planes[p].type, planes[p]});
    // Node numbers have 32 bits, and strips that fit into a cache are the fastest.
    constexpr std::int64_t pixels_at_once = std::int64_t{1} << 21;
    std::int64_t const most =
        std::max<std::int64_t>(1, pixels_at_once / std::max(1U, plan.setup.width));
    auto const* from = static_cast<char const*>(objects);
    std::size_t const size = WithElemType<NumericTypes>(plan.setup.type, "%s",
                                                        []<class T>(TypeTag<T>) { return sizeof(T); });
    for (std::int64_t done = 0; done < rows; done += most) {
        std::int64_t const now = std::min(most, rows - done);
        state_->Feed(now, from, formats);
        std::size_t const fed = static_cast<std::size_t>(now) * plan.setup.width;
        from += fed * size;
        for (std::size_t p = 0; p < formats.size(); ++p)
            formats[p].values =
                static_cast<char const*>(formats[p].values) + fed * plan.PlaneSize(p);
    }
}

void Measurer::Merge(Measurer& below)
{
    if (below.FirstRow() != EndRow())
        Raise(err_value, "The part from row %d on does not follow one that ends at row %d.",
              below.FirstRow(), EndRow());
    if (!SameSetup(state_->plan.setup, below.state_->plan.setup))
        Raise(err_value, "Parts of different setups cannot be merged.");
    state_->Merge(*below.state_);
}

std::int64_t Measurer::FirstRow() const
{
    return state_->first_row;
}

std::int64_t Measurer::EndRow() const
{
    return state_->end_row;
}

std::size_t Measurer::CompleteObjects() const
{
    return state_->rows.keys.size();
}

DerivedPointer<Table> Measurer::Complete() const
{
    return TableOf(state_->plan, state_->rows);
}

DerivedPointer<Table> Measurer::Finish()
{
    std::int64_t const height = state_->plan.frame.height;
    if (state_->first_row > 0)
        Raise(err_state, "Rows %d to %d of the picture were not measured.", 0,
              state_->first_row - 1);
    if (state_->end_row < height)
        Raise(err_state, "Rows %d to %d of the picture were not measured.", state_->end_row,
              height - 1);
    return TableOf(state_->plan, state_->rows);
}

} // namespace NKelmic
