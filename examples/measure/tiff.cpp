#include <measure/picture.h>

#include <memblock/core/typedchunk.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <tiffio.h>
#include <unistd.h>
#include <vector>

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
    SampleKind{64, SAMPLEFORMAT_UINT, DataTypeBase::UnsignedInt64},
    SampleKind{64, SAMPLEFORMAT_INT, DataTypeBase::Int64},
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

/// Turn the bytes of each sample round.
void SwapSamples(unsigned char* bytes, unsigned long count, unsigned long sample)
{
    for (unsigned char* const end = bytes + count; bytes < end; bytes += sample)
        std::reverse(bytes, bytes + sample);
}

/// The pages of a TIFF file, in strips or tiles, grey or RGB with the samples side by side. No more
/// than a row of tiles or a packed strip is in memory.
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

    bool NextPage(PageHeader& header) override
    {
        if (!first_ && !TIFFReadDirectory(tiff_.get())) {
            if (message_.empty())
                return false;
            throw Damaged();
        }
        header = PageHeader();
        ReadHeader(header);
        constexpr unsigned long most_packing = 4096; // more than LZW can, pages may share bytes
        CheckSize(header, size_, most_packing);
        header_ = header;
        row_ = 0;
        band_first_ = no_band;
        tiled_ = TIFFIsTiled(tiff_.get()) != 0;
        plain_ = !tiled_ && Field<uint16_t>(TIFFTAG_COMPRESSION) == COMPRESSION_NONE;
        if (tiled_)
            PrepareTiles();
        else if (static_cast<unsigned long>(TIFFScanlineSize64(tiff_.get())) != header_.RowBytes())
            throw ReadError("has rows of an unexpected size");
        return true;
    }

    void ReadRows(unsigned long count, unsigned char* bytes) override
    {
        unsigned long const stride = header_.RowBytes();
        for (; count > 0; bytes += stride, --count, ++row_)
            if (tiled_)
                CopyFromTiles(bytes);
            else if (plain_)
                ReadPlainRow(bytes);
            else if (TIFFReadScanline(tiff_.get(), bytes, static_cast<uint32_t>(row_)) != 1)
                throw Damaged();
    }

    void Rewind() override { row_ = 0; }

private:
    ReadError Damaged() const { return ReadError("is cut off or damaged: " + message_); }

    template <class T>
    T Field(unsigned tag) const
    {
        T value = 0;
        TIFFGetFieldDefaulted(tiff_.get(), tag, &value);
        return value;
    }

    std::string Description() const
    {
        char const* text = nullptr;
        return TIFFGetField(tiff_.get(), TIFFTAG_IMAGEDESCRIPTION, &text) && text ? text : "";
    }

    /// What the first page says of a scale in its description holds for all; resolutions are those
    /// of each page.
    void ReadScale(PageHeader& page)
    {
        TiffResolution resolution;
        TIFFGetField(tiff_.get(), TIFFTAG_XRESOLUTION, &resolution.x);
        TIFFGetField(tiff_.get(), TIFFTAG_YRESOLUTION, &resolution.y);
        resolution.unit = Field<uint16_t>(TIFFTAG_RESOLUTIONUNIT);
        if (first_)
            description_ = Description();
        page.scale = ScaleOfTiff(resolution, description_);
        first_ = false;
    }

    void ReadHeader(PageHeader& page)
    {
        auto const photometric = Field<uint16_t>(TIFFTAG_PHOTOMETRIC);
        page.width = Field<uint32_t>(TIFFTAG_IMAGEWIDTH);
        page.height = Field<uint32_t>(TIFFTAG_IMAGELENGTH);
        page.samples = Field<uint16_t>(TIFFTAG_SAMPLESPERPIXEL);
        page.type = SampleType(Field<uint16_t>(TIFFTAG_BITSPERSAMPLE),
                               Field<uint16_t>(TIFFTAG_SAMPLEFORMAT));
        ReadScale(page);
        bool const grey = photometric <= PHOTOMETRIC_MINISBLACK && page.samples == 1;
        bool const rgb = photometric == PHOTOMETRIC_RGB && page.samples == 3;
        if (!grey && !rgb)
            throw ReadError("is neither grey nor RGB");
        if (rgb && Field<uint16_t>(TIFFTAG_PLANARCONFIG) != PLANARCONFIG_CONTIG)
            throw ReadError("holds its colours in separate planes");
    }

    unsigned long PixelBytes() const { return header_.RowBytes() / header_.width; }

    /// Read a row that is not packed from its place in the file: the library would hold the whole
    /// strip, which may be the whole picture.
    void ReadPlainRow(unsigned char* bytes)
    {
        unsigned long const stride = header_.RowBytes();
        unsigned long const strip_rows =
            std::max<unsigned long>(1, Field<uint32_t>(TIFFTAG_ROWSPERSTRIP));
        auto const strip = static_cast<uint32_t>(row_ / strip_rows);
        unsigned long const before = row_ % strip_rows * stride; // in the strip
        unsigned long const place = TIFFGetStrileOffset(tiff_.get(), strip) + before;
        if (TIFFGetStrileByteCount(tiff_.get(), strip) < before + stride || place > size_ ||
            pread(TIFFFileno(tiff_.get()), bytes, stride, static_cast<off_t>(place)) !=
                static_cast<ssize_t>(stride))
            throw ReadError("is cut off or damaged: row " + std::to_string(row_) +
                            " of the pixels is not there");
        if (TIFFIsByteSwapped(tiff_.get()))
            SwapSamples(bytes, stride, NKelmic::TypedChunk::SizeOf(header_.type));
    }

    void PrepareTiles()
    {
        PageHeader tile = header_;
        tile.width = Field<uint32_t>(TIFFTAG_TILEWIDTH);
        tile.height = Field<uint32_t>(TIFFTAG_TILELENGTH);
        CheckSize(tile, size_, 4096);
        if (static_cast<unsigned long>(TIFFTileSize64(tiff_.get())) != tile.Bytes())
            throw ReadError("has tiles of an unexpected size");
        tile_width_ = tile.width;
        tile_height_ = tile.height;
        tile_.resize(tile.Bytes());
    }

    void CopyFromTiles(unsigned char* bytes)
    {
        unsigned long const first = row_ - row_ % tile_height_;
        if (first != band_first_)
            ReadBand(first);
        unsigned long const stride = header_.RowBytes();
        std::memcpy(bytes, &band_[(row_ - first) * stride], stride);
    }

    /// Read a row of tiles.
    void ReadBand(unsigned long first)
    {
        unsigned long const pixel = PixelBytes(), stride = header_.RowBytes();
        unsigned long const rows = std::min(tile_height_, header_.height - first);
        band_first_ = no_band;
        band_.resize(rows * stride);
        for (unsigned long x = 0; x < header_.width; x += tile_width_) {
            if (TIFFReadTile(tiff_.get(), tile_.data(), static_cast<uint32_t>(x),
                             static_cast<uint32_t>(first), 0, 0) < 0)
                throw Damaged();
            unsigned long const columns = std::min(tile_width_, header_.width - x);
            for (unsigned long r = 0; r < rows; ++r)
                std::memcpy(&band_[r * stride + x * pixel], &tile_[r * tile_width_ * pixel],
                            columns * pixel);
        }
        band_first_ = first;
    }

    static constexpr unsigned long no_band = ~0UL;

    unsigned long size_;
    std::string message_, description_;
    std::unique_ptr<TIFF, void (*)(TIFF*)> tiff_;
    bool first_ = true;
    PageHeader header_;
    bool tiled_ = false, plain_ = false;
    unsigned long row_ = 0; // the next one
    unsigned long tile_width_ = 0, tile_height_ = 0, band_first_ = no_band;
    std::vector<unsigned char> tile_, band_;
};

} // namespace

std::unique_ptr<Reader> OpenTiff(std::string const& path)
{
    return std::make_unique<TiffReader>(path);
}

} // namespace measure
