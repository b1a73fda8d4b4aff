#ifndef MEMBLOCK_TESTS_EXAMPLES_MEASURED_H
#define MEMBLOCK_TESTS_EXAMPLES_MEASURED_H

#include <measure/measurepool.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tiffio.h>
#include <unistd.h>
#include <vector>

/// A folder that goes with the test.
class TestFolder {
public:
    TestFolder()
        : path(std::filesystem::temp_directory_path() / ("measured." + std::to_string(getpid())))
    {
        std::filesystem::create_directory(path);
    }
    ~TestFolder() { std::filesystem::remove_all(path); }

    std::string File(std::string const& name, std::string const& contents) const
    {
        std::ofstream(path / name, std::ios::binary) << contents;
        return (path / name).string();
    }

    std::filesystem::path const path;
};

/// How a TIFF file is laid out.
struct TiffLayout {
    unsigned rows_per_strip = 0; ///< 0: tiles of 16 x 16
    unsigned short compression = COMPRESSION_NONE;
    char const* mode = "w"; ///< "w8": BigTIFF, "wb": most significant byte first
    std::string description = {};
};

/// Write a grey picture; T decides about the kind of samples.
template <class T>
std::string WriteTiff(std::string const& path, unsigned width, std::vector<T> const& pixels,
                      TiffLayout const& layout)
{
    auto const height = static_cast<unsigned>(pixels.size() / width);
    TIFF* const tiff = TIFFOpen(path.c_str(), layout.mode);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8 * sizeof(T));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT,
                 std::is_floating_point_v<T> ? SAMPLEFORMAT_IEEEFP
                 : std::is_signed_v<T>       ? SAMPLEFORMAT_INT
                                             : SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, layout.compression);
    if (!layout.description.empty())
        TIFFSetField(tiff, TIFFTAG_IMAGEDESCRIPTION, layout.description.c_str());
    if (layout.rows_per_strip > 0) {
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, layout.rows_per_strip);
        for (unsigned y = 0; y < height; ++y) {
            std::vector<T> row(pixels.begin() + y * width, pixels.begin() + (y + 1) * width);
            TIFFWriteScanline(tiff, row.data(), y, 0);
        }
    } else {
        constexpr unsigned side = 16;
        TIFFSetField(tiff, TIFFTAG_TILEWIDTH, side);
        TIFFSetField(tiff, TIFFTAG_TILELENGTH, side);
        for (unsigned y = 0; y < height; y += side)
            for (unsigned x = 0; x < width; x += side) {
                std::vector<T> tile(side * side);
                for (unsigned r = y; r < std::min(y + side, height); ++r)
                    for (unsigned c = x; c < std::min(x + side, width); ++c)
                        tile[(r - y) * side + c - x] = pixels[r * width + c];
                TIFFWriteTile(tiff, tile.data(), x, y, 0, 0);
            }
    }
    TIFFClose(tiff);
    return path;
}

/// The table of the objects that a call finds; `cut` has it done strip by strip, by a few rows
/// each.
inline std::string TableOf(measure::Options options, bool cut, bool* failed = nullptr)
{
    options.quiet = true;
    options.objects.wanted = true;
    if (options.format.empty())
        options.format = "csv";
    if (cut) {
        options.hold_bytes = 0;
        options.strip_bytes = 1500;
    }
    measure::MeasurePool pool(std::make_shared<measure::Options const>(options));
    pool.Measure();
    std::ostringstream out;
    pool.Print(out);
    if (failed)
        *failed = pool.Failed();
    return out.str();
}

#endif // MEMBLOCK_TESTS_EXAMPLES_MEASURED_H
