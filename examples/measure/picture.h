#ifndef MEMBLOCK_EXAMPLES_MEASURE_PICTURE_H
#define MEMBLOCK_EXAMPLES_MEASURE_PICTURE_H

#include <measure/pixelscale.h>
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

/// What is known of a picture before its pixels are read.
struct PageHeader {
    unsigned long width = 0;
    unsigned long height = 0;
    unsigned samples = 1; ///< a pixel: 1 is grey, 3 is red, green, blue side by side
    NKelmic::DataType type = NKelmic::DataTypeBase::Byte; ///< of one sample
    PixelScale scale;

    unsigned long Pixels() const { return width * height; }
    unsigned long RowBytes() const;
    unsigned long Bytes() const { return RowBytes() * height; }
    std::string SizeText() const; ///< "640 x 480 pixels"
};

/// One picture as a file holds it: row after row, samples in this machine's byte order.
struct Page : PageHeader {
    std::unique_ptr<unsigned char[]> bytes; ///< made with new[]
};

/// The pictures of one source, one after the other, and of each its rows from top to bottom, so
/// that only as many are in memory as the caller wants. All throw `ReadError`.
class Reader {
public:
    virtual ~Reader() = default;
    /// Go to the next picture; false if there is none left. Rows may be left unread.
    virtual bool NextPage(PageHeader& header) = 0;
    /// Read the next rows of this picture.
    virtual void ReadRows(unsigned long count, unsigned char* bytes) = 0;
    /// Go back to the first row of this picture.
    virtual void Rewind() = 0;
};

/// Open a TIFF, PNG or binary PNM file, distinguished by its first bytes. Throws `ReadError`.
std::unique_ptr<Reader> OpenPicture(std::string const& path);
std::unique_ptr<Reader> OpenTiff(std::string const& path);
std::unique_ptr<Reader> OpenPng(std::string const& path);
std::unique_ptr<Reader> OpenPnm(std::string const& path);

/// A picture made here: 16 bit grey, 256x256, bright discs on a slope of background.
std::unique_ptr<Reader> MadePicture();

/// Check that a file of `file_size` bytes can hold a picture: no file packs more than
/// `most_packing` bytes into one of its own. A few bytes may claim any size, so nothing is
/// allocated on the word of a header alone.
/// Throws: "has no pixels", "is too large: ..." or "is cut off or damaged: ...".
void CheckSize(PageHeader const& header, unsigned long file_size, unsigned long most_packing);

/// Read all pixels of the picture that a reader has come to.
/// Throws: ReadError; "is too large: ..." for more than a vector can hold, "needs ... of memory"
/// for more than there is.
Page ReadAll(Reader& reader, PageHeader const& header);
/// The next picture with all its pixels; false if there is none left.
bool ReadPage(Reader& reader, Page& page);

/// How many pictures a file has, by their headers. Throws `ReadError`.
unsigned long CountPages(std::string const& path);

/// The size of a regular file in bytes. Throws `ReadError`.
unsigned long FileSize(std::string const& path);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_PICTURE_H
