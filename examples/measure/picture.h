#ifndef MEMBLOCK_EXAMPLES_MEASURE_PICTURE_H
#define MEMBLOCK_EXAMPLES_MEASURE_PICTURE_H

#include <memblock/core/datatype.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace measure {

/// Why a file cannot be read, in one line; the file's name is put before it by the program.
class ReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One picture as a file holds it: row after row, samples in this machine's byte order.
struct Page {
    unsigned long width = 0;
    unsigned long height = 0;
    unsigned samples = 1; ///< a pixel: 1 is grey, 3 is red, green, blue side by side
    NKelmic::DataType type = NKelmic::DataTypeBase::Byte; ///< of one sample
    std::unique_ptr<unsigned char[]> bytes;               ///< made with new[]

    unsigned long Pixels() const { return width * height; }
};

/// The pictures of one source, one after the other, so that only one is in memory at a time.
class Reader {
public:
    virtual ~Reader() = default;
    /// Read the next picture into `page`; false if there is none left. Throws `ReadError`.
    virtual bool Next(Page& page) = 0;
};

/// Open a TIFF, PNG or binary PNM file, told apart by its first bytes. Throws `ReadError`.
std::unique_ptr<Reader> OpenPicture(std::string const& path);
std::unique_ptr<Reader> OpenTiff(std::string const& path);
std::unique_ptr<Reader> OpenPng(std::string const& path);
std::unique_ptr<Reader> OpenPnm(std::string const& path);

/// A picture made here: 16 bit grey, 256x256, bright discs on a slope of background.
std::unique_ptr<Reader> MadePicture();

/// Give `page` its buffer after checking that a vector can hold the picture and that a file of
/// `file_size` bytes can: no file packs more than `most_packing` bytes into one of its own.
///
/// A few bytes may claim any size, so nothing is allocated on the word of a header alone.
/// Throws: "has no pixels", "is too large: ..." or "is cut off or damaged: ...".
void AllocatePage(Page& page, unsigned long file_size, unsigned long most_packing);

/// The size of a regular file in bytes. Throws `ReadError`.
unsigned long FileSize(std::string const& path);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_PICTURE_H
