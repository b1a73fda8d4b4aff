#include <memblock/measure/objects.h>

#include <memblock/threads/jobpool.h>

#include <algorithm>

namespace NKelmic {
namespace {

/// Rows of a picture, which the thread that waits keeps alive.
struct Rows {
    char const* objects;
    std::size_t size; ///< bytes of a row
    std::vector<std::pair<char const*, std::size_t>> planes;

    void Feed(Measurer& part, std::int64_t from, std::int64_t to) const
    {
        std::vector<void const*> values;
        for (auto const& [first, bytes] : planes)
            values.push_back(first + static_cast<std::size_t>(from) * bytes);
        part.Feed(to - from, objects + static_cast<std::size_t>(from) * size, values);
    }
};

/// Measures a part of the rows into a place that only this job writes.
class PartJob : public Job {
public:
    PartJob(Rows const& rows, std::int64_t end, Measurer& part)
        : rows_(rows), end_(end), part_(part)
    {
    }
    DataItem Run() override
    {
        CheckAbortion();
        rows_.Feed(part_, part_.FirstRow(), end_);
        return {};
    }
    void OnFinished() override { delete this; }

private:
    Rows const& rows_;
    std::int64_t end_;
    Measurer& part_;
};

} // namespace

DerivedPointer<Table> FindAndMeasure(Image const& image, Segmentation const& by,
                                     std::vector<IntensityPlane> const& intensities,
                                     MeasureOptions const& options, int threads)
{
    MeasureSetup setup{image.width(), image.height(), image.ElemType(), by, {}, options};
    Rows rows{static_cast<char const*>(image.Pointer()), image.width() * image.ElemSize(), {}};
    for (IntensityPlane const& plane : intensities) {
        Image const* const values = MemCast<Image>(plane.values);
        if (!values || values->width() != image.width() || values->height() != image.height())
            Raise(err_kind, "Intensities of %s lie not below objects of %s.", plane.values, image);
        setup.planes.push_back({plane.name, values->ElemType(), values->Factor()});
        rows.planes.emplace_back(static_cast<char const*>(values->Pointer()),
                                 values->width() * values->ElemSize());
    }
    std::int64_t const height = setup.height;
    std::int64_t const count =
        std::clamp<std::int64_t>(threads, 1, std::max<std::int64_t>(1, height));
    std::vector<Measurer> parts;
    for (std::int64_t k = 0; k < count; ++k)
        parts.emplace_back(setup, height * k / count);
    if (count == 1) {
        rows.Feed(parts.front(), 0, height);
        return parts.front().Finish();
    }
    JobPool pool;
    for (std::int64_t k = 0; k < count; ++k)
        pool.AddNewJob(new PartJob(rows, height * (k + 1) / count, parts[k]));
    pool.Wait();
    for (std::int64_t k = 1; k < count; ++k)
        parts.front().Merge(parts[k]);
    return parts.front().Finish();
}

} // namespace NKelmic
