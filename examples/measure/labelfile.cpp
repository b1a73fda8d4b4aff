#include <measure/labelfile.h>

#include <measure/output.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <tiffio.h>

namespace measure {
namespace {

using File = std::unique_ptr<TIFF, void (*)(TIFF*)>;

void SetFields(TIFF* tiff, LabelRuns const& page, unsigned bits)
{
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, page.width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, page.height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
}

/// Write values row by row, each made a T by `make`.
template <class T, class Make>
bool WritePage(TIFF* tiff, LabelRuns const& page, std::vector<std::uint32_t> const& values,
               Make make)
{
    SetFields(tiff, page, 8 * sizeof(T));
    std::vector<T> row(page.width);
    auto from = values.begin();
    for (std::uint32_t y = 0; y < page.height; ++y, from += page.width) {
        std::transform(from, from + page.width, row.begin(), make);
        if (TIFFWriteScanline(tiff, row.data(), y, 0) != 1)
            return false;
    }
    return TIFFWriteDirectory(tiff) == 1;
}

/// Write each page by a function that says whether it could.
template <class Write>
void WriteFile(std::string const& path, std::vector<LabelRuns const*> const& pages, Write write)
{
    constexpr std::size_t large = 1UL << 31; // beyond what offsets of 32 bits are good for
    std::size_t bytes = 0;
    for (LabelRuns const* page : pages)
        bytes += std::size_t{page->width} * page->height * 4;
    WriteAside(path, [&](std::string const& name) {
        TIFFSetErrorHandler(nullptr);
        File file(TIFFOpen(name.c_str(), bytes < large ? "w" : "w8"), TIFFClose);
        bool written = file != nullptr;
        for (LabelRuns const* page : pages)
            written = written && write(file.get(), *page);
        if (!written)
            throw WriteError("cannot write to " + path + ": " + std::strerror(errno));
    });
}

} // namespace

void WriteLabels(std::string const& path, std::vector<LabelRuns const*> const& pages)
{
    bool const narrow = std::ranges::all_of(pages, [](LabelRuns const* page) {
        return page->greatest <= std::numeric_limits<std::uint16_t>::max();
    });
    WriteFile(path, pages, [&](TIFF* file, LabelRuns const& page) {
        auto const labels = DrawLabels(page);
        if (!narrow)
            return WritePage<std::uint32_t>(file, page, labels, [](std::uint32_t k) { return k; });
        return WritePage<std::uint16_t>(
            file, page, labels, [](std::uint32_t k) { return static_cast<std::uint16_t>(k); });
    });
}

void WriteOutlines(std::string const& path, std::vector<LabelRuns const*> const& pages)
{
    WriteFile(path, pages, [&](TIFF* file, LabelRuns const& page) {
        return WritePage<std::uint8_t>(file, page, DrawOutlines(page), [](std::uint32_t k) {
            return static_cast<std::uint8_t>(k > 0 ? 255 : 0);
        });
    });
}

} // namespace measure
