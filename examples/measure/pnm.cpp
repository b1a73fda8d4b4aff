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

    bool NextPage(PageHeader& header) override
    {
        Seek(end_);
        SkipBlanks(); // behind a picture; also says whether there is another
        if (std::feof(file_.get()))
            return false;
        header = PageHeader();
        ReadHeader(header);
        start_ = static_cast<unsigned long>(std::ftell(file_.get()));
        CheckSize(header, size_ - std::min(start_, size_), 1);
        end_ = start_ + header.Bytes();
        header_ = header;
        return true;
    }

    void ReadRows(unsigned long count, unsigned char* bytes) override
    {
        unsigned long const size = count * header_.RowBytes();
        if (std::fread(bytes, 1, size, file_.get()) != size)
            throw ReadError("is cut off or damaged: the pixels end early");
        bool const wide = header_.type == NKelmic::DataTypeBase::UnsignedShort;
        if (wide && std::endian::native == std::endian::little) // most significant byte first
            for (unsigned long i = 0; i < size; i += 2)
                std::swap(bytes[i], bytes[i + 1]);
    }

    void Rewind() override { Seek(start_); }

private:
    void Seek(unsigned long place)
    {
        if (std::fseek(file_.get(), static_cast<long>(place), SEEK_SET) != 0)
            throw ReadError("cannot be read at byte " + std::to_string(place));
    }

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
        constexpr unsigned long limit = 0x80000000; // more than is read
        SkipBlanks();
        unsigned long n = 0;
        int c = Get();
        if (c < '0' || c > '9')
            throw ReadError("has a broken PNM header");
        for (; c >= '0' && c <= '9'; c = Get())
            n = std::min(n * 10 + static_cast<unsigned long>(c - '0'), limit);
        if (!IsBlank(c)) // just one blank is between the header and the pixels
            throw ReadError("has a broken PNM header");
        return n;
    }

    void ReadHeader(PageHeader& page)
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

    unsigned long size_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
    PageHeader header_;
    unsigned long start_ = 0, end_ = 0; // of the pixels of this picture
};

} // namespace

std::unique_ptr<Reader> OpenPnm(std::string const& path)
{
    return std::make_unique<PnmReader>(path);
}

} // namespace measure
