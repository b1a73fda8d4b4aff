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

void AllocatePage(Page& page, unsigned long file_size, unsigned long most_packing)
{
    constexpr unsigned long most_elements = 0x7FFFFFFF; // of a vector
    if (page.width == 0 || page.height == 0)
        throw ReadError("has no pixels");
    if (page.width > most_elements / page.samples / page.height)
        throw ReadError("is too large: " + std::to_string(page.width) + " x " +
                        std::to_string(page.height) + " pixels");
    unsigned long const size =
        page.Pixels() * page.samples * NKelmic::TypedChunk::SizeOf(page.type);
    if (size / most_packing > file_size)
        throw ReadError("is cut off or damaged: " + std::to_string(size) + " bytes of pixels in " +
                        std::to_string(file_size) + " bytes of file");
    page.bytes = std::make_unique_for_overwrite<unsigned char[]>(size);
}

} // namespace measure
