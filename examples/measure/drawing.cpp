#include <measure/drawing.h>

#include <measure/picture.h>
#include <memblock/measure/threshold.h>

#include <algorithm>
#include <cmath>
#include <png.h>

namespace measure {

using namespace NKelmic;

namespace {

FiniteRange RangeOf(Image const& picture)
{
    FiniteRange range;
    range.Add(picture.ElemType(), picture.Pointer(), picture.Length());
    if (std::isnan(range.least))
        range.least = range.greatest = 0;
    return range;
}

/// Call `take` with the step of each pixel in turn, every `shrink`th of a row and of the rows: from
/// 0, the lowest value, to `last`, the highest; without a number `none`.
template <class Take>
void ForSteps(Image const& picture, FiniteRange const& range, double last, unsigned shrink,
              int none, Take take)
{
    // Halves do not overflow.
    double const span = range.greatest / 2 - range.least / 2;
    double const scale = span > 0 ? last / 2 / span : 0;
    WithElemType<NumericTypes>(picture.ElemType(), "%s", [&]<class T>(Elem<T>) {
        T const* const pixels = picture.TypedPointer<T>();
        for (std::size_t y = 0; y < picture.height(); y += shrink)
            for (std::size_t x = 0; x < picture.width(); x += shrink) {
                auto const value = static_cast<double>(pixels[y * picture.width() + x]);
                take(std::isfinite(value) ? static_cast<int>((value - range.least) * scale + 0.5)
                                          : none);
            }
    });
}

} // namespace

std::string GreyPng(Image const& picture, unsigned shrink)
{
    std::vector<unsigned char> pixels;
    constexpr int white = 255;
    ForSteps(picture, RangeOf(picture), white, shrink, 0,
             [&](int step) { pixels.push_back(static_cast<unsigned char>(step)); });
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = (picture.width() + shrink - 1) / shrink;
    png.height = (picture.height() + shrink - 1) / shrink;
    png.format = PNG_FORMAT_GRAY;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(png);
    std::string file(size, '\0');
    if (!png_image_write_to_memory(&png, file.data(), &size, 0, pixels.data(), 0, nullptr))
        throw ReadError(std::string("cannot be drawn: ") + png.message);
    file.resize(size);
    return file;
}

ValueCounts CountValues(Image const& picture)
{
    FiniteRange const range = RangeOf(picture);
    bool const whole = !IsInSet<FloatTypes>(picture.ElemType());
    double const last = whole ? std::min(range.greatest - range.least, 255.0) : 255.0;
    ValueCounts result{range.least, range.greatest, {}};
    result.counts.resize(static_cast<std::size_t>(last) + 1);
    ForSteps(picture, range, last, 1, -1, [&](int step) {
        if (step >= 0)
            ++result.counts[static_cast<std::size_t>(step)];
    });
    return result;
}

} // namespace measure
