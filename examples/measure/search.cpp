#include <measure/search.h>

#include <memblock/core/options.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/measure/objects.h>
#include <memblock/measure/threshold.h>

#include <algorithm>

namespace measure {

using namespace NKelmic;

namespace {

/// A table cell as a number.
double CellOf(Table const& table, char const* column, int row)
{
    return cref(table.Column(safestring(column))).GetDouble(row);
}

/// Part each object into two zones: the pixels up to its mean, and those above it. Zones 2k - 1 and
/// 2k belong to object k: a "subobj" structure.
DerivedPointer<IntervalVector> ZonesOf(Image const& picture, IntervalVector const& objects)
{
    unsigned int const count = objects.IntervalCount();
    auto const pixels_of = objects.IndexVectorTarget();
    unsigned int const* const index = cref(pixels_of).UnsignedIntPointer();
    MeasureOptions only_mean;
    only_mean.properties = "mean";
    auto const means = MeasureObjects(DerivedPointer<IntervalVector>(&objects),
                                      {{"", DerivedPointer<Vector>(&picture)}}, only_mean);
    std::vector<std::vector<unsigned int>> zones(2UL * count);
    double const factor = picture.Factor();
    for (unsigned int k = 0; k < count; ++k) {
        double const mean = CellOf(cref(means), "mean", static_cast<int>(k));
        for (unsigned int i = objects.Start(0)[k]; i < objects.End(0)[k]; ++i) {
            bool const bright = picture.GetDouble(static_cast<int>(index[i])) * factor > mean;
            zones[2 * k + bright].push_back(index[i]);
        }
    }
    auto const medium = IntervalVector::CreateFromStdVectors(2 * count, zones.data(),
                                                             cref(pixels_of).GetTargetData());
    auto const outer = IntervalVector::Create(count, medium);
    for (unsigned int k = 0; k <= count; ++k)
        outer->Start(0)[k] = 2 * k;
    return outer;
}

/// Add area and mean of both zones of each object to its row.
void AddZones(Table& table, Image const& picture, IntervalVector const& objects,
              MeasureOptions options)
{
    options.properties = "area,mean";
    auto const zones = MeasureObjects(ZonesOf(picture, objects),
                                      {{"", DerivedPointer<Vector>(&picture)}}, options);
    for (int zone : {1, 2})
        for (char const* const name : {"area", "mean"}) {
            auto const from = safestring("zone") + (zone == 1 ? "1_" : "2_") + name;
            if (auto const column = zones->Column(from)) // none at all where there is no object
                table.SetColumn(safestring(zone == 1 ? "dark_" : "bright_") + name, column);
        }
}

/// Objects that were found are numbered again without those that are left out.
void NumberAgain(Table& table)
{
    auto const labels = table.Column("label")->Clone(false);
    DerivedPointer<Vector> const numbers(labels);
    for (int k = 0; k < table.RowCount(); ++k)
        numbers->TypedPointer<long long>()[k] = k + 1;
    numbers->ContentHasBeenChanged();
    table.SetColumn("label", numbers);
}

/// 1 where a picture of any type is not 0.
DerivedPointer<Image> MaskOf(Image const& picture)
{
    auto const mask = Image::Create(picture.width(), picture.height(), DataTypeBase::Byte, 1.0);
    WithElemType<NumericTypes>(picture.ElemType(), "%s", [&]<class T>(Elem<T>) {
        T const* const from = picture.TypedPointer<T>();
        std::transform(from, from + picture.Length(), mask->BytePointer(),
                       [](T v) { return static_cast<unsigned char>(v != T(0) && v == v); });
    });
    return mask;
}

/// The pixels of the objects that have a row; `numbers` has their places in the lists, from 1.
LabelRuns RunsOf(IntervalVector const& objects, std::vector<long long> const& numbers,
                 Table const& table, Image const& picture)
{
    LabelRuns result{picture.width(), picture.height(), 0, {}};
    auto const pixels_of = objects.IndexVectorTarget();
    unsigned int const* const index = cref(pixels_of).UnsignedIntPointer();
    for (std::size_t row = 0; row < numbers.size(); ++row) {
        auto const k = static_cast<unsigned int>(numbers[row] - 1);
        auto const label =
            static_cast<std::uint32_t>(CellOf(table, "label", static_cast<int>(row)));
        result.greatest = std::max(result.greatest, label);
        unsigned int const end = objects.End(0)[k];
        for (unsigned int i = objects.Start(0)[k]; i < end;) {
            unsigned int const y = index[i] / result.width, x0 = index[i] % result.width;
            unsigned int x1 = x0;
            for (; i < end && x1 < result.width && index[i] == y * result.width + x1; ++i)
                ++x1;
            result.runs.push_back({y, x0, x1, label});
        }
    }
    return result;
}

Segmentation SegmentationFor(Options const& options, bool labels, double threshold)
{
    ObjectOptions const& wanted = options.objects;
    Segmentation by;
    by.kind = labels        ? Segmentation::labels
              : wanted.dark ? Segmentation::up_to
                            : Segmentation::above;
    by.threshold = threshold;
    by.neighbours = wanted.neighbours;
    return by;
}

MeasureOptions MeasureOptionsFor(Options const& options, PixelScale const& scale)
{
    ObjectOptions const& wanted = options.objects;
    MeasureOptions result;
    result.properties = wanted.properties.c_str();
    result.pixel_size = {scale.x, scale.y, 1, scale.unit.c_str()};
    result.nan = options.policies.nan;
    result.inf = options.policies.inf;
    bool const gaps = wanted.keep_gaps && !wanted.AnyFilter();
    result.keep_gaps = gaps;
    result.min_pixels = std::max<long long>(wanted.min_area, gaps ? 0 : 1);
    result.max_pixels = wanted.max_area;
    result.drop_at_edge = wanted.drop_at_edge;
    return result;
}

/// Measure objects whose pixels are needed for more than their row.
void SearchLists(SearchedPage const& page, Options const& options, PageObjects& result)
{
    Image const& picture = cref(page.picture);
    bool const labels = static_cast<bool>(page.labels);
    auto const by = SegmentationFor(options, labels, result.threshold.value_or(0));
    auto objects = FindObjects(labels ? cref(page.labels) : picture, by);
    if (page.within)
        objects = DerivedPointer<IntervalVector>(
            cref(objects).op('&', MaskOf(cref(page.within)), op_options()));
    objects->EnsureStartAndEnd();
    MeasureOptions const measure = MeasureOptionsFor(options, page.scale);
    IntensityPlane const plane{"", page.picture};
    result.table = MeasureObjects(objects, {plane}, measure);
    if (options.objects.zones)
        AddZones(*result.table, picture, cref(objects), measure);
    std::vector<long long> numbers;
    numbers.reserve(static_cast<std::size_t>(std::max(0, result.table->RowCount())));
    for (int row = 0; row < result.table->RowCount(); ++row)
        numbers.push_back(static_cast<long long>(CellOf(cref(result.table), "label", row)));
    if (!labels && !page.within)
        NumberAgain(*result.table);
    result.objects = RunsOf(cref(objects), numbers, cref(result.table), picture);
}

} // namespace

MeasureSetup SetupFor(PageHeader const& page, std::optional<DataType> label_type, double threshold,
                      Options const& options)
{
    MeasureSetup setup;
    setup.width = static_cast<std::uint32_t>(page.width);
    setup.height = static_cast<std::int64_t>(page.height);
    setup.type = label_type.value_or(page.type);
    setup.segmentation = SegmentationFor(options, label_type.has_value(), threshold);
    setup.planes = {{"", page.type, options.factor}};
    setup.options = MeasureOptionsFor(options, page.scale);
    return setup;
}

PageObjects SearchPage(SearchedPage const& page, Options const& options)
{
    Image const& picture = cref(page.picture);
    PageObjects result;
    result.scale = page.scale;
    result.width = picture.width();
    result.height = picture.height();
    if (!page.labels)
        result.threshold =
            options.objects.threshold ? *options.objects.threshold : OtsuThreshold(picture);
    if (options.NeedLists()) {
        SearchLists(page, options, result);
        return result;
    }
    auto const by =
        SegmentationFor(options, static_cast<bool>(page.labels), result.threshold.value_or(0));
    result.table = FindAndMeasure(page.labels ? cref(page.labels) : picture, by,
                                  {{"", page.picture}}, MeasureOptionsFor(options, page.scale));
    return result;
}

DerivedPointer<Table> NoObjects(Options const& options)
{
    PageHeader page;
    page.width = 1;
    auto const table = Measurer(SetupFor(page, std::nullopt, 0, options)).Finish();
    if (options.objects.zones)
        for (char const* const name : {"dark_area", "dark_mean", "bright_area", "bright_mean"})
            table->SetColumn(name, Vector::Create(0, DataTypeBase::Double, true, 0, 1.0));
    return table;
}

} // namespace measure
