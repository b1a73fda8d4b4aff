#include <measure/drawing.h>

#include <measure/objects.h>
#include <measure/report.h>

#include <algorithm>
#include <cmath>
#include <png.h>
#include <vector>

namespace measure {

using namespace NKelmic;

namespace {

using Bytes = std::vector<unsigned char>;

/// A PNG file of a byte a pixel: grey, or an index into `colours` where they are given.
std::string Png(Bytes const& pixels, Image const& like, std::uint8_t const* colours = nullptr,
                unsigned colour_count = 0)
{
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = like.width();
    png.height = like.height();
    png.format = colours ? PNG_FORMAT_RGBA_COLORMAP : PNG_FORMAT_GRAY;
    png.colormap_entries = colour_count;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(png);
    std::string file(size, '\0');
    if (!png_image_write_to_memory(&png, file.data(), &size, 0, pixels.data(), 0, colours))
        throw ReadError(std::string("cannot be drawn: ") + png.message);
    file.resize(size);
    return file;
}

struct Range {
    double low, high;
};

Range RangeOf(Image const& picture)
{
    return WithPixels(picture, [&](auto const* pixels) {
        auto const [low, high] = std::minmax_element(pixels, pixels + picture.Length());
        return Range{static_cast<double>(*low), static_cast<double>(*high)};
    });
}

/// Each pixel as a step from 0, the lowest value, to `last`, the highest.
Bytes Steps(Image const& picture, Range const& range, double last)
{
    double const scale = range.high > range.low ? last / (range.high - range.low) : 0;
    Bytes steps(picture.Length());
    WithPixels(picture, [&](auto const* pixels) {
        for (unsigned long i = 0; i < steps.size(); ++i)
            steps[i] = static_cast<unsigned char>((pixels[i] - range.low) * scale + 0.5);
    });
    return steps;
}

/// The axes of the plot, in the units of its view box.
constexpr double plot_left = 52, plot_right = 638, plot_top = 12, plot_bottom = 160;

std::string Number(double value)
{
    return NumberText(std::round(value * 100) / 100);
}

/// Places counts on a logarithmic axis that ends at the next power of ten.
class CountAxis {
public:
    explicit CountAxis(unsigned long highest)
        : decades_(std::max(1.0, std::ceil(std::log10(static_cast<double>(highest)))))
    {
    }
    /// One pixel is told from none by a tenth of the first decade.
    double Y(double count) const
    {
        double const up = count > 0 ? (std::log10(count) + 0.1) / (decades_ + 0.1) : 0;
        return plot_bottom - up * (plot_bottom - plot_top);
    }
    std::string Ticks() const
    {
        std::string text;
        for (int power = 0; power <= decades_; ++power) {
            std::string const y = Number(Y(std::pow(10, power)));
            text += "<line class=\"grid\" x1=\"52\" x2=\"638\" y1=\"" + y + "\" y2=\"" + y +
                    "\"/><text class=\"count\" x=\"46\" y=\"" + y + "\" dy=\"4\">" +
                    NumberText(std::pow(10, power)) + "</text>\n";
        }
        return text;
    }

private:
    double decades_;
};

std::string Label(double x, std::string const& text, char const* kind)
{
    return std::string("<text class=\"") + kind + "\" x=\"" + Number(x) + "\" y=\"176\">" + text +
           "</text>\n";
}

std::string Columns(std::vector<unsigned long> const& counts, CountAxis const& axis)
{
    double const step = (plot_right - plot_left) / static_cast<double>(counts.size());
    std::string path =
        "<path class=\"columns\" d=\"M" + Number(plot_left) + ' ' + Number(plot_bottom);
    for (std::size_t i = 0; i < counts.size(); ++i)
        path += 'V' + Number(axis.Y(static_cast<double>(counts[i]))) + 'H' +
                Number(plot_left + step * static_cast<double>(i + 1));
    return path + 'V' + Number(plot_bottom) + "Z\"/>\n";
}

std::string ThresholdLine(double threshold, Range const& range)
{
    double const share = (threshold - range.low) / std::max(range.high - range.low, 1.0);
    std::string const x = Number(plot_left + (plot_right - plot_left) * std::clamp(share, 0., 1.));
    return "<line class=\"threshold\" x1=\"" + x + "\" x2=\"" + x + "\" y1=\"12\" y2=\"160\"/>\n" +
           Label(std::stod(x), "threshold " + NumberText(threshold), "middle");
}

} // namespace

std::string GreyPng(Image const& picture)
{
    return Png(Steps(picture, RangeOf(picture), 255), picture);
}

std::string OutlinePng(Stencil const& objects)
{
    auto const drawn =
        objects.GetImageRepr()->ConvertElemsToType(DataTypeBase::UnsignedInt, true, true);
    DerivedPointer<Image> const labels(drawn);
    unsigned int const width = labels->width(), height = labels->height();
    unsigned int const* const label = cref(labels).UnsignedIntPointer();
    Bytes outline(labels->Length());
    for (unsigned long y = 0, i = 0; y < height; ++y)
        for (unsigned long x = 0; x < width; ++x, ++i) {
            auto const other = [&](bool inside, unsigned long at) {
                return !inside || label[at] != label[i];
            };
            outline[i] =
                label[i] != 0 && (other(x > 0, i - 1) || other(x + 1 < width, i + 1) ||
                                  other(y > 0, i - width) || other(y + 1 < height, i + width));
        }
    constexpr std::uint8_t clear_and_orange[] = {0, 0, 0, 0, 255, 140, 0, 255};
    return Png(outline, cref(labels), clear_and_orange, 2);
}

std::string HistogramSvg(Image const& picture, std::optional<double> threshold)
{
    Range const range = RangeOf(picture);
    double const last = std::min(range.high - range.low, 255.0);
    std::vector<unsigned long> counts(static_cast<unsigned long>(last) + 1);
    for (unsigned char const step : Steps(picture, range, last))
        ++counts[step];
    CountAxis const axis(*std::max_element(counts.begin(), counts.end()));
    std::string text = "<svg class=\"histogram\" viewBox=\"0 0 650 184\" role=\"img\" "
                       "aria-label=\"Histogram\">\n" +
                       axis.Ticks() + Columns(counts, axis) +
                       Label(plot_left, NumberText(range.low), "start") +
                       Label(plot_right, NumberText(range.high), "end");
    if (threshold)
        text += ThresholdLine(*threshold, range);
    return text + "</svg>\n";
}

} // namespace measure
