#include <measure/picture.h>

#include <algorithm>
#include <bit>
#include <cstdio>

namespace measure {
namespace {

/// Binary PGM (P5) and PPM (P6), any number of pictures in a row.
class PnmReader : public Reader {
public:
    explicit PnmReader(std::string const& path)
        : size_(FileSize(path)), file_(std::fopen(path.c_str(), "rb"), std::fclose)
    {
        if (!file_)
            throw ReadError("cannot be opened");
    }

    bool Next(Page& page) override
    {
        SkipBlanks(); // behind a picture; also tells whether there is another
        if (std::feof(file_.get()))
            return false;
        ReadHeader(page);
        ReadPixels(page);
        return true;
    }

private:
    int Get() { return std::getc(file_.get()); }

    /// Go to the next byte that is neither blank nor comment.
    void SkipBlanks()
    {
        int c = Get();
        for (; c != EOF && (c == '#' || IsBlank(c)); c = Get())
            if (c == '#')
                while (c != '\n' && c != EOF)
                    c = Get();
        if (c != EOF)
            std::ungetc(c, file_.get());
    }

    static bool IsBlank(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

    unsigned long ReadNumber()
    {
        constexpr unsigned long limit = 0x7FFFFFFF;
        SkipBlanks();
        unsigned long n = 0;
        int c = Get();
        if (c < '0' || c > '9')
            throw ReadError("has a broken PNM header");
        for (; c >= '0' && c <= '9'; c = Get())
            n = std::min(n * 10 + static_cast<unsigned long>(c - '0'), limit);
        if (!IsBlank(c)) // just one blank stands between the header and the pixels
            throw ReadError("has a broken PNM header");
        return n;
    }

    void ReadHeader(Page& page)
    {
        int const magic = Get();
        int const kind = Get();
        if (magic != 'P' || (kind != '5' && kind != '6'))
            throw ReadError("has a broken PNM header");
        page.samples = kind == '5' ? 1 : 3;
        page.width = ReadNumber();
        page.height = ReadNumber();
        unsigned long const highest = ReadNumber();
        if (highest == 0 || highest > 0xFFFF)
            throw ReadError("has a broken PNM header");
        page.type =
            highest <= 0xFF ? NKelmic::DataTypeBase::Byte : NKelmic::DataTypeBase::UnsignedShort;
    }

    void ReadPixels(Page& page)
    {
        auto const at = static_cast<unsigned long>(std::ftell(file_.get()));
        AllocatePage(page, size_ - std::min(at, size_), 1);
        bool const wide = page.type == NKelmic::DataTypeBase::UnsignedShort;
        unsigned long const size = page.Pixels() * page.samples * (wide ? 2 : 1);
        if (std::fread(page.bytes.get(), 1, size, file_.get()) != size)
            throw ReadError("is cut off or damaged: the pixels end early");
        if (wide && std::endian::native == std::endian::little) // most significant byte first
            for (unsigned long i = 0; i < size; i += 2)
                std::swap(page.bytes[i], page.bytes[i + 1]);
    }

    unsigned long size_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
};

} // namespace

std::unique_ptr<Reader> OpenPnm(std::string const& path)
{
    return std::make_unique<PnmReader>(path);
}

} // namespace measure
