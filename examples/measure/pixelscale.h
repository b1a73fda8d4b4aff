#ifndef MEMBLOCK_EXAMPLES_MEASURE_PIXELSCALE_H
#define MEMBLOCK_EXAMPLES_MEASURE_PIXELSCALE_H

#include <string>

namespace measure {

/// The distances of neighbouring pixels, and where they are known from.
struct PixelScale {
    double x = 1, y = 1;
    std::string unit;   ///< "um", "mm", "inch" ...; empty: unknown
    std::string source; ///< "its OME description" ...

    bool Known() const { return !unit.empty(); }
};

/// The resolution fields of a TIFF page: pixels in a unit, 2 an inch, 3 a centimetre, 1 another.
struct TiffResolution {
    float x = 0, y = 0;
    unsigned unit = 2;
};

/// What a TIFF file says of its pixels: an OME description comes first, then one of ImageJ, whose
/// unit belongs to the resolution, then the resolution alone. Micrometres are "um".
PixelScale ScaleOfTiff(TiffResolution const& resolution, std::string const& description);

/// "um" for all ways in which it is written; other units as they are.
std::string PlainUnit(std::string const& unit);

/// Read "0.65um" or "0.65um,0.7um" (columns, rows). False for what is not that.
bool ReadScale(std::string const& text, PixelScale& scale);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_PIXELSCALE_H
