#include <measure/picture.h>

#include <memblock/core/typedchunk.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <tiffio.h>

namespace measure {
namespace {

using NKelmic::DataTypeBase;

struct SampleKind {
    unsigned bits;
    unsigned format;
    NKelmic::DataType type;
};

constexpr std::array sample_kinds{
    SampleKind{8, SAMPLEFORMAT_UINT, DataTypeBase::Byte},
    SampleKind{8, SAMPLEFORMAT_INT, DataTypeBase::Char},
    SampleKind{16, SAMPLEFORMAT_UINT, DataTypeBase::UnsignedShort},
    SampleKind{16, SAMPLEFORMAT_INT, DataTypeBase::Short},
    SampleKind{32, SAMPLEFORMAT_UINT, DataTypeBase::UnsignedInt},
    SampleKind{32, SAMPLEFORMAT_INT, DataTypeBase::Int},
    SampleKind{32, SAMPLEFORMAT_IEEEFP, DataTypeBase::Float},
    SampleKind{64, SAMPLEFORMAT_IEEEFP, DataTypeBase::Double},
};

NKelmic::DataType SampleType(unsigned bits, unsigned format)
{
    for (SampleKind const& kind : sample_kinds)
        if (kind.bits == bits && kind.format == format)
            return kind.type;
    throw ReadError("has samples of an unsupported kind: " + std::to_string(bits) + " bits");
}

/// Keep the first message of libtiff; later ones are consequences.
int OnError(TIFF*, void* user, char const*, char const* format, va_list arguments)
{
    auto& message = *static_cast<std::string*>(user);
    std::array<char, 200> text;
    std::vsnprintf(text.data(), text.size(), format, arguments);
    if (message.empty())
        message = text.data();
    return 1;
}

int OnWarning(TIFF*, void*, char const*, char const*, va_list)
{
    return 1;
}

/// The pages of a TIFF file, in strips or tiles, grey or RGB with the samples side by side.
class TiffReader : public Reader {
public:
    explicit TiffReader(std::string const& path) : size_(FileSize(path)), tiff_(nullptr, TIFFClose)
    {
        std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> const options(
            TIFFOpenOptionsAlloc(), TIFFOpenOptionsFree);
        TIFFOpenOptionsSetErrorHandlerExtR(options.get(), OnError, &message_);
        TIFFOpenOptionsSetWarningHandlerExtR(options.get(), OnWarning, nullptr);
        tiff_.reset(TIFFOpenExt(path.c_str(), "rm", options.get()));
        if (!tiff_)
            throw Damaged();
    }

    bool Next(Page& page) override
    {
        if (!first_ && !TIFFReadDirectory(tiff_.get())) {
            if (message_.empty())
                return false;
            throw Damaged();
        }
        first_ = false;
        ReadHeader(page);
        constexpr unsigned long most_packing = 4096; // more than LZW can, pages may share bytes
        AllocatePage(page, size_, most_packing);
        if (TIFFIsTiled(tiff_.get()))
            ReadTiles(page);
        else
            ReadRows(page);
        return true;
    }

private:
    ReadError Damaged() const { return ReadError("is cut off or damaged: " + message_); }

    template <class T>
    T Field(unsigned tag) const
    {
        T value = 0;
        TIFFGetFieldDefaulted(tiff_.get(), tag, &value);
        return value;
    }

    void ReadHeader(Page& page) const
    {
        auto const photometric = Field<uint16_t>(TIFFTAG_PHOTOMETRIC);
        page.width = Field<uint32_t>(TIFFTAG_IMAGEWIDTH);
        page.height = Field<uint32_t>(TIFFTAG_IMAGELENGTH);
        page.samples = Field<uint16_t>(TIFFTAG_SAMPLESPERPIXEL);
        page.type = SampleType(Field<uint16_t>(TIFFTAG_BITSPERSAMPLE),
                               Field<uint16_t>(TIFFTAG_SAMPLEFORMAT));
        bool const grey = photometric <= PHOTOMETRIC_MINISBLACK && page.samples == 1;
        bool const rgb = photometric == PHOTOMETRIC_RGB && page.samples == 3;
        if (!grey && !rgb)
            throw ReadError("is neither grey nor RGB");
        if (rgb && Field<uint16_t>(TIFFTAG_PLANARCONFIG) != PLANARCONFIG_CONTIG)
            throw ReadError("holds its colours in separate planes");
    }

    unsigned long PixelSize(Page const& page) const
    {
        return page.samples * NKelmic::TypedChunk::SizeOf(page.type);
    }

    void ReadRows(Page& page)
    {
        unsigned long const stride = page.width * PixelSize(page);
        if (static_cast<unsigned long>(TIFFScanlineSize64(tiff_.get())) != stride)
            throw ReadError("has rows of an unexpected size");
        for (unsigned long y = 0; y < page.height; ++y)
            if (TIFFReadScanline(tiff_.get(), &page.bytes[y * stride], static_cast<uint32_t>(y)) !=
                1)
                throw Damaged();
    }

    void ReadTiles(Page& page)
    {
        auto const tile_width = Field<uint32_t>(TIFFTAG_TILEWIDTH);
        auto const tile_height = Field<uint32_t>(TIFFTAG_TILELENGTH);
        Page tile;
        tile.width = tile_width;
        tile.height = tile_height;
        tile.samples = page.samples;
        tile.type = page.type;
        AllocatePage(tile, size_, 4096);
        unsigned long const pixel = PixelSize(page);
        if (static_cast<unsigned long>(TIFFTileSize64(tiff_.get())) != tile.Pixels() * pixel)
            throw ReadError("has tiles of an unexpected size");
        for (unsigned long y = 0; y < page.height; y += tile_height)
            for (unsigned long x = 0; x < page.width; x += tile_width) {
                if (TIFFReadTile(tiff_.get(), tile.bytes.get(), static_cast<uint32_t>(x),
                                 static_cast<uint32_t>(y), 0, 0) < 0)
                    throw Damaged();
                unsigned long const columns = std::min<unsigned long>(tile_width, page.width - x);
                unsigned long const rows = std::min<unsigned long>(tile_height, page.height - y);
                for (unsigned long r = 0; r < rows; ++r)
                    std::memcpy(&page.bytes[((y + r) * page.width + x) * pixel],
                                &tile.bytes[r * tile_width * pixel], columns * pixel);
            }
    }

    unsigned long size_;
    std::string message_;
    std::unique_ptr<TIFF, void (*)(TIFF*)> tiff_;
    bool first_ = true;
};

} // namespace

std::unique_ptr<Reader> OpenTiff(std::string const& path)
{
    return std::make_unique<TiffReader>(path);
}

} // namespace measure
