// The picture readers of the measuring example, on damaged files.

#include "fuzz.h"

#include <measure/picture.h>

#include <fstream>
#include <png.h>
#include <sys/mman.h>
#include <tiffio.h>
#include <unistd.h>

namespace {

/// A file in memory: the readers take names, and thousands of real files are slow.
int const memory_file = memfd_create("fuzz_pictures", 0);
std::string const path = "/proc/self/fd/" + std::to_string(memory_file);

std::string Contents()
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string TiffSeed(unsigned short samples, unsigned short compression, bool tiled)
{
    TIFF* tiff = TIFFOpen(path.c_str(), "w");
    unsigned char pixels[3 * 16 * 16] = {};
    for (int page = 0; page < 2; ++page) {
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, 16);
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 16);
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples);
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                     samples == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, compression);
        if (tiled) {
            TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
            TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16);
            TIFFWriteTile(tiff, pixels, 0, 0, 0, 0);
        } else {
            TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 8);
            TIFFWriteEncodedStrip(tiff, 0, pixels, 8 * 16 * samples);
            TIFFWriteEncodedStrip(tiff, 1, pixels, 8 * 16 * samples);
        }
        TIFFWriteDirectory(tiff);
    }
    TIFFClose(tiff);
    return Contents();
}

std::string PngSeed(png_uint_32 format)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = image.height = 8;
    image.format = format;
    unsigned char const pixels[8 * 8 * 8] = {};
    png_image_write_to_file(&image, path.c_str(), 0, pixels, 0, nullptr);
    return Contents();
}

} // namespace

std::vector<std::string> FuzzSeeds()
{
    std::vector<std::string> seeds{
        std::string("P5\n# grey\n4 2\n255\n12345678"),
        std::string("P6 2 1 255\nabcdef"),
        std::string("P5 2 2 65535\n\0\1\2\3\4\5\6\7P5 1 1 1\n\1\n", 33),
    };
    for (bool const tiled : {false, true})
        for (unsigned short const compression : {COMPRESSION_NONE, COMPRESSION_LZW})
            for (unsigned short const samples : {1, 3})
                seeds.push_back(TiffSeed(samples, compression, tiled));
    png_uint_32 const formats[] = {PNG_FORMAT_GRAY, PNG_FORMAT_RGBA, PNG_FORMAT_LINEAR_Y,
                                   PNG_FORMAT_LINEAR_RGB};
    for (png_uint_32 const format : formats)
        seeds.push_back(PngSeed(format));
    return seeds;
}

void FuzzOne(std::string const& input)
{
    std::ofstream(path, std::ios::binary) << input;
    try {
        auto const reader = measure::OpenPicture(path);
        for (measure::Page page; ReadPage(*reader, page); page = measure::Page()) {
        }
    } catch (measure::ReadError const&) {
    }
}
