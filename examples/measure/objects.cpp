#include <measure/objects.h>

#include <measure/images.h>
#include <measure/segment.h>
#include <memblock/base/alloc.h>
#include <memblock/core/options.h>

#include <algorithm>
#include <cmath>

namespace measure {

using namespace NKelmic;

namespace {

template <class T>
DerivedPointer<Image> AverageOf(Page const& page)
{
    auto const image = Image::Create(static_cast<unsigned>(page.width),
                                     static_cast<unsigned>(page.height), page.type, 1.0);
    auto const* samples = reinterpret_cast<T const*>(page.bytes.get());
    T* const pixels = image->template TypedPointer<T>();
    for (unsigned long i = 0; i < page.Pixels(); ++i, samples += 3)
        pixels[i] = static_cast<T>((samples[0] + samples[1] + samples[2] + 2) / 3);
    return image;
}

DerivedPointer<Image> ImageOf(Page& page)
{
    if (page.samples == 1)
        return GreyImage(page);
    return page.type == DataTypeBase::Byte ? AverageOf<unsigned char>(page)
                                           : AverageOf<unsigned short>(page);
}

template <class T>
double Otsu(T const* pixels, unsigned long count)
{
    std::vector<unsigned long> histogram(1UL << (8 * sizeof(T)));
    for (unsigned long i = 0; i < count; ++i)
        ++histogram[pixels[i]];
    return OtsuThreshold(histogram);
}

/// 1 where a pixel is above the threshold and not in the frame.
template <class T>
std::vector<unsigned char> Foreground(T const* pixels, unsigned long width, unsigned long height,
                                      double threshold)
{
    std::vector<unsigned char> mask(width * height);
    for (unsigned long y = 1; y + 1 < height; ++y)
        for (unsigned long x = 1; x + 1 < width; ++x)
            mask[y * width + x] = pixels[y * width + x] > threshold;
    return mask;
}

/// A label picture, with as many bits as the number of objects needs.
DerivedPointer<Stencil> Drawn(std::vector<unsigned> const& labels, unsigned count,
                              Image const& like)
{
    bool const narrow = count <= 0xFFFF;
    auto image =
        Image::Create(like.width(), like.height(),
                      narrow ? DataTypeBase::UnsignedShort : DataTypeBase::UnsignedInt, 1.0);
    if (narrow)
        std::copy(labels.begin(), labels.end(), image->UnsignedShortPointer());
    else
        std::copy(labels.begin(), labels.end(), image->UnsignedIntPointer());
    image->SetType(Image::stencil);
    return Stencil::Create(std::move(image));
}

/// What is gathered of one object.
struct Numbers {
    int area = 0, first = -1, x0 = 0, y0 = 0, x1 = 0, y1 = 0, minimum = 0, maximum = 0;
    double sum = 0;
};

template <class T>
Numbers NumbersOf(T const* pixels, unsigned int width, unsigned int const* from,
                  unsigned int const* to)
{
    Numbers n;
    if (from == to)
        return n;
    n.area = static_cast<int>(to - from);
    n.first = static_cast<int>(*from); // pixels of an object are listed in ascending order
    n.x0 = n.x1 = static_cast<int>(*from % width);
    n.y0 = static_cast<int>(*from / width);
    n.y1 = static_cast<int>(to[-1] / width);
    n.minimum = n.maximum = pixels[*from];
    for (unsigned int const* i = from; i != to; ++i) {
        int const x = static_cast<int>(*i % width), value = pixels[*i];
        n.x0 = std::min(n.x0, x);
        n.x1 = std::max(n.x1, x);
        n.minimum = std::min(n.minimum, value);
        n.maximum = std::max(n.maximum, value);
        n.sum += value;
    }
    return n;
}

} // namespace

std::vector<DerivedPointer<Image>> PlanesOf(std::vector<Page>&& pages)
{
    std::vector<DerivedPointer<Image>> planes;
    if (IsStack(pages)) {
        auto const cube = CubeOf(pages);
        for (int z = 0; z < static_cast<int>(pages.size()); ++z)
            planes.push_back(cref(cube).GetPlane(z));
    } else {
        for (Page& page : pages)
            planes.push_back(ImageOf(page));
    }
    return planes;
}

double ThresholdOf(Image const& picture, ObjectOptions const& options)
{
    if (options.threshold)
        return *options.threshold;
    return WithPixels(picture, [&](auto const* p) { return Otsu(p, picture.Length()); });
}

DerivedPointer<Stencil> FindObjects(Image const& picture, ObjectOptions const& options)
{
    unsigned long const count = picture.Length();
    auto const mask = WithPixels(picture, [&](auto const* pixels) {
        return Foreground(pixels, picture.width(), picture.height(), ThresholdOf(picture, options));
    });
    std::vector<unsigned> labels(count);
    unsigned const objects = LabelObjects(mask, picture.width(), options.neighbours, labels);
    return Drawn(labels, objects, picture);
}

DerivedPointer<Stencil> TakeLabels(DerivedPointer<Image> labels, Image const& picture)
{
    if (labels->width() != picture.width() || labels->height() != picture.height())
        throw ReadError("is not as large as the picture");
    if (labels->ElemType() == DataTypeBase::Byte)
        labels = labels->ConvertElemsToType(DataTypeBase::UnsignedShort, true, true);
    check_image_borders_clear(labels, true);
    labels->SetType(Image::stencil);
    return Stencil::Create(std::move(labels));
}

DerivedPointer<Stencil> Within(Stencil const& objects, DerivedPointer<Image> other)
{
    auto const target = objects.GetTargetData();
    if (other->width() != target.dims[0] || other->height() != target.dims[1])
        throw ReadError("is not as large as the picture");
    return Stencil::Create(objects.GetVectorRepr()->op('&', std::move(other), op_options()));
}

DerivedPointer<IntervalVector> ZonesOf(Image const& picture, Stencil const& stencil)
{
    DerivedPointer<IntervalVector> const objects(stencil.GetVectorRepr());
    unsigned int const count = objects->IntervalCount();
    unsigned int const* const limit = cref(objects).StartAndEnd(0, false, true, nullptr);
    auto const pixels_of = cref(objects).IndexVectorTarget();
    unsigned int const* const index = cref(pixels_of).UnsignedIntPointer();
    std::vector<std::vector<unsigned int>> zones(2UL * count);
    WithPixels(picture, [&](auto const* pixels) {
        for (unsigned int k = 0; k < count; ++k) {
            auto const *from = index + limit[k], *to = index + limit[k + 1];
            Numbers const n = NumbersOf(pixels, picture.width(), from, to);
            for (; from != to; ++from)
                zones[2 * k + (pixels[*from] * static_cast<double>(n.area) > n.sum)].push_back(
                    *from);
        }
    });
    auto const medium = IntervalVector::CreateFromStdVectors(2 * count, zones.data(),
                                                             cref(pixels_of).GetTargetData());
    auto const outer = IntervalVector::Create(count, medium);
    for (unsigned int k = 0; k <= count; ++k)
        outer->Start(0)[k] = 2 * k;
    return outer;
}

void AddZones(Table& table, Image const& picture, DerivedPointer<IntervalVector> const& zones)
{
    unsigned int const *index = nullptr, *zone = nullptr, *object = nullptr;
    unpack_three_layer_const(zones, index, zone, object);
    char const* const names[2][2] = {{"dark_area", "dark_mean"}, {"bright_area", "bright_mean"}};
    for (unsigned int z = 0; z < 2; ++z) {
        auto const areas = Vector::Create(zones->IntervalCount(), Table::Int, true, 0, 1.0);
        auto const means = Vector::Create(zones->IntervalCount(), Table::Double, true, 0, 1.0);
        WithPixels(picture, [&](auto const* pixels) {
            for (unsigned int k = 0; k < zones->IntervalCount(); ++k) {
                unsigned int const at = object[k] + z;
                Numbers const n =
                    NumbersOf(pixels, picture.width(), index + zone[at], index + zone[at + 1]);
                areas->IntPointer()[k] = n.area;
                means->DoublePointer()[k] = n.area > 0 ? n.sum / n.area : NAN;
            }
        });
        table.SetColumn(names[z][0], areas);
        table.SetColumn(names[z][1], means);
    }
}

DerivedPointer<Table> ObjectTable(Image const& picture, Stencil const& stencil)
{
    DerivedPointer<IntervalVector> const objects(stencil.GetVectorRepr());
    unsigned int const count = objects->IntervalCount();
    unsigned int const* const limit = cref(objects).StartAndEnd(0, false, true, nullptr);
    unsigned int const* const index = cref(cref(objects).IndexVectorTarget()).UnsignedIntPointer();

    char const* const names[] = {"label", "area", "first",   "x0",     "y0",
                                 "x1",    "y1",   "minimum", "maximum"};
    constexpr int integers = 9;
    DerivedPointer<Vector> column[integers];
    for (auto& vector : column)
        vector = Vector::Create(count, DataTypeBase::Int, true, 0, 1.0);
    auto const sums = Vector::Create(count, DataTypeBase::Double, true, 0, 1.0);
    auto const means = Vector::Create(count, DataTypeBase::Double, true, 0, 1.0);
    WithPixels(picture, [&](auto const* pixels) {
        for (unsigned int k = 0; k < count; ++k) {
            Numbers const n =
                NumbersOf(pixels, picture.width(), index + limit[k], index + limit[k + 1]);
            int const row[integers] = {static_cast<int>(k) + 1,
                                       n.area,
                                       n.first,
                                       n.x0,
                                       n.y0,
                                       n.x1,
                                       n.y1,
                                       n.minimum,
                                       n.maximum};
            for (int c = 0; c < integers; ++c)
                column[c]->IntPointer()[k] = row[c];
            sums->DoublePointer()[k] = n.sum;
            means->DoublePointer()[k] = n.area > 0 ? n.sum / n.area : NAN;
        }
    });
    auto const table = Table::Create();
    for (int c = 0; c < integers; ++c)
        table->SetColumn(names[c], column[c]);
    table->SetColumn("sum", sums);
    table->SetColumn("mean", means);
    return table;
}

} // namespace measure
