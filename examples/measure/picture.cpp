#include <measure/picture.h>

#include <memblock/core/typedchunk.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace measure {
namespace {

using namespace std::string_view_literals;

struct Kind {
    std::string_view magic;
    std::unique_ptr<Reader> (*open)(std::string const& path);
};

constexpr std::array kinds{
    Kind{"II*\0"sv, OpenTiff}, Kind{"MM\0*"sv, OpenTiff},  Kind{"II+\0"sv, OpenTiff},
    Kind{"MM\0+"sv, OpenTiff}, Kind{"\x89PNG"sv, OpenPng}, Kind{"P5"sv, OpenPnm},
    Kind{"P6"sv, OpenPnm},
};

std::string FirstBytes(std::string const& path)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                         std::fclose);
    if (!file)
        throw ReadError(std::strerror(errno));
    std::string bytes(8, '\0');
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    if (bytes.empty())
        throw ReadError(std::ferror(file.get()) ? std::strerror(errno) : "is empty");
    return bytes;
}

} // namespace

std::unique_ptr<Reader> OpenPicture(std::string const& path)
{
    std::string const bytes = FirstBytes(path);
    for (Kind const& kind : kinds)
        if (bytes.starts_with(kind.magic))
            return kind.open(path);
    throw ReadError("is no TIFF, PNG or binary PNM file");
}

unsigned long FileSize(std::string const& path)
{
    std::error_code error;
    auto const size = std::filesystem::file_size(path, error);
    if (error)
        throw ReadError(error.message());
    return size;
}

unsigned long PageHeader::RowBytes() const
{
    return width * samples * NKelmic::TypedChunk::SizeOf(type);
}

std::string PageHeader::SizeText() const
{
    return std::to_string(width) + " x " + std::to_string(height) + " pixels";
}

void CheckSize(PageHeader const& header, unsigned long file_size, unsigned long most_packing)
{
    constexpr unsigned long most_side = 0x7FFFFFFF;
    if (header.width == 0 || header.height == 0)
        throw ReadError("has no pixels");
    unsigned long size = 0;
    if (header.width > most_side || header.height > most_side ||
        __builtin_mul_overflow(header.RowBytes(), header.height, &size))
        throw ReadError("is too large: " + header.SizeText());
    if (size / most_packing > file_size)
        throw ReadError("is cut off or damaged: " + std::to_string(size) + " bytes of pixels in " +
                        std::to_string(file_size) + " bytes of file");
}

Page ReadAll(Reader& reader, PageHeader const& header)
{
    constexpr unsigned long most_elements = 0x7FFFFFFF; // of a vector
    if (header.width > most_elements / header.samples / header.height)
        throw ReadError("is too large to be in memory as a whole: " + header.SizeText());
    Page page{header, nullptr};
    try {
        page.bytes = std::make_unique_for_overwrite<unsigned char[]>(header.Bytes());
    } catch (std::bad_alloc const&) {
        throw ReadError("needs " + std::to_string(header.Bytes() / 1000000 + 1) +
                        " MB of memory for its " + header.SizeText() + ", more than there is");
    }
    reader.ReadRows(header.height, page.bytes.get());
    return page;
}

bool ReadPage(Reader& reader, Page& page)
{
    PageHeader header;
    if (!reader.NextPage(header))
        return false;
    page = ReadAll(reader, header);
    return true;
}

unsigned long CountPages(std::string const& path)
{
    auto const reader = OpenPicture(path);
    unsigned long count = 0;
    for (PageHeader header; reader->NextPage(header); header = PageHeader())
        ++count;
    return count;
}

} // namespace measure
