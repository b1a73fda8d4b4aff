#include <measure/pixelscale.h>

#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

namespace measure {
namespace {

/// The number at the beginning of a text, which is cut off from it.
std::optional<double> TakeNumber(std::string_view& text)
{
    double value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc())
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
}

bool IsLength(double value)
{
    return std::isfinite(value) && value > 0;
}

/// What follows `name` in a text, up to `end`; empty if it is not there.
std::string Between(std::string const& text, std::string const& name, char end)
{
    auto const from = text.find(name);
    if (from == std::string::npos)
        return {};
    auto const start = from + name.size();
    return text.substr(start, text.find(end, start) - start);
}

std::optional<PixelScale> OmeScale(std::string const& description)
{
    if (description.find("<OME") == std::string::npos)
        return std::nullopt;
    std::string const x = Between(description, " PhysicalSizeX=\"", '"');
    std::string const y = Between(description, " PhysicalSizeY=\"", '"');
    std::string const unit = Between(description, " PhysicalSizeXUnit=\"", '"');
    std::string const other = Between(description, " PhysicalSizeYUnit=\"", '"');
    std::string_view left = x, below = y;
    auto const dx = TakeNumber(left), dy = TakeNumber(below);
    if (!dx || !dy || !IsLength(*dx) || !IsLength(*dy) || PlainUnit(unit) != PlainUnit(other))
        return std::nullopt;
    return PixelScale{*dx, *dy, unit.empty() ? "um" : PlainUnit(unit), "its OME description"};
}

bool IsResolution(TiffResolution const& r)
{
    return IsLength(r.x) && IsLength(r.y);
}

std::optional<PixelScale> ImageJScale(TiffResolution const& r, std::string const& description)
{
    if (!description.starts_with("ImageJ=") || !IsResolution(r))
        return std::nullopt;
    std::string unit = PlainUnit(Between(description, "\nunit=", '\n'));
    while (unit.ends_with('\r'))
        unit.pop_back();
    if (unit.empty() || unit.starts_with("pixel"))
        return std::nullopt;
    return PixelScale{1 / static_cast<double>(r.x), 1 / static_cast<double>(r.y), unit,
                      "its ImageJ description"};
}

} // namespace

std::string PlainUnit(std::string const& unit)
{
    for (char const* const word :
         {"\xC2\xB5m", "\xCE\xBCm", "\xB5m", "\\u00B5m", "\\u00b5m", "micron", "microns",
          "micrometer", "micrometre", "&#181;m", "&#xB5;m"})
        if (unit == word)
            return "um";
    return unit;
}

PixelScale ScaleOfTiff(TiffResolution const& r, std::string const& description)
{
    if (auto const ome = OmeScale(description))
        return *ome;
    if (auto const imagej = ImageJScale(r, description))
        return *imagej;
    constexpr double inch_um = 25400, cm_um = 10000;
    bool const inches = r.unit == 2;
    if (!IsResolution(r) || (!inches && r.unit != 3))
        return {};
    double const um = inches ? inch_um : cm_um;
    return {um / static_cast<double>(r.x), um / static_cast<double>(r.y), "um",
            "its TIFF resolution"};
}

bool ReadScale(std::string const& text, PixelScale& scale)
{
    std::string_view rest = text;
    auto const x = TakeNumber(rest);
    std::string_view const unit = rest.substr(0, rest.find(','));
    rest.remove_prefix(unit.size());
    std::optional<double> y = x;
    if (!rest.empty()) {
        rest.remove_prefix(1);
        y = TakeNumber(rest);
        if (rest != unit)
            return false;
    }
    if (!x || !y || !IsLength(*x) || !IsLength(*y) || unit.empty())
        return false;
    scale = {*x, *y, PlainUnit(std::string(unit)), "--pixel-size"};
    return true;
}

} // namespace measure
