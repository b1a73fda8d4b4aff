#include <measure/picture.h>

#include <bit>
#include <cstdio>
#include <cstring>
#include <png.h>
#include <vector>

namespace measure {
namespace {

/// Keep the words of libpng's error and go back to `Guarded`.
void OnError(png_structp png, png_const_charp message)
{
    *static_cast<std::string*>(png_get_error_ptr(png)) = message;
    png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

/// The one picture of a PNG file, row by row; an interlaced one is held as a whole. Palettes become
/// RGB; a transparency channel is left out.
class PngReader : public Reader {
public:
    explicit PngReader(std::string const& path)
        : size_(FileSize(path)), file_(std::fopen(path.c_str(), "rb"), std::fclose)
    {
        if (!file_)
            throw ReadError("cannot be opened");
        Start();
    }
    PngReader(PngReader const&) = delete;
    PngReader& operator=(PngReader const&) = delete;
    ~PngReader() override { png_destroy_read_struct(&png_, &info_, nullptr); }

    bool NextPage(PageHeader& header) override
    {
        if (done_)
            return false;
        done_ = true;
        Guarded([this] { ReadHeader(); });
        header = PageHeader();
        header.width = png_get_image_width(png_, info_);
        header.height = png_get_image_height(png_, info_);
        header.samples = png_get_channels(png_, info_);
        header.type = png_get_bit_depth(png_, info_) == 16 ? NKelmic::DataTypeBase::UnsignedShort
                                                           : NKelmic::DataTypeBase::Byte;
        constexpr unsigned long most_packing = 1100; // deflate reaches 1032
        CheckSize(header, size_, most_packing);
        header_ = header;
        return true;
    }

    void ReadRows(unsigned long count, unsigned char* bytes) override
    {
        unsigned long const stride = header_.RowBytes();
        if (passes_ > 1) {
            HoldAll();
            std::memcpy(bytes, &whole_[row_ * stride], count * stride);
        } else {
            Guarded([=, this] {
                for (unsigned long y = 0; y < count; ++y)
                    png_read_row(png_, bytes + y * stride, nullptr);
                if (row_ + count == header_.height)
                    png_read_end(png_, nullptr);
            });
        }
        row_ += count;
    }

    void Rewind() override
    {
        if (row_ == 0)
            return;
        row_ = 0;
        if (passes_ > 1)
            return;
        png_destroy_read_struct(&png_, &info_, nullptr);
        std::rewind(file_.get());
        Start();
        Guarded([this] { ReadHeader(); });
    }

private:
    /// Run calls of libpng, which leave by longjmp on an error: no object with a destructor may
    /// live inside `step`.
    template <class Step>
    void Guarded(Step step)
    {
        if (setjmp(png_jmpbuf(png_)))
            throw ReadError("is cut off or damaged: " + message_);
        step();
    }

    void ReadHeader()
    {
        png_init_io(png_, file_.get());
        png_read_info(png_, info_);
        if (png_get_color_type(png_, info_) == PNG_COLOR_TYPE_PALETTE)
            png_set_palette_to_rgb(png_);
        png_set_packing(png_); // 1, 2 and 4 bits: a byte each, values as they stand
        png_set_strip_alpha(png_);
        if constexpr (std::endian::native == std::endian::little)
            png_set_swap(png_);
        passes_ = png_set_interlace_handling(png_);
        png_read_update_info(png_, info_);
    }

    void Start()
    {
        png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, &message_, OnError, OnWarning);
        info_ = png_ ? png_create_info_struct(png_) : nullptr;
        if (!info_) {
            png_destroy_read_struct(&png_, nullptr, nullptr);
            throw std::bad_alloc();
        }
    }

    void HoldAll()
    {
        if (!whole_.empty())
            return;
        whole_.resize(header_.Bytes());
        Guarded([this] {
            for (int pass = 0; pass < passes_; ++pass)
                for (unsigned long y = 0; y < header_.height; ++y)
                    png_read_row(png_, &whole_[y * header_.RowBytes()], nullptr);
            png_read_end(png_, nullptr);
        });
    }

    unsigned long size_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
    std::string message_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
    int passes_ = 1;
    bool done_ = false;
    PageHeader header_;
    unsigned long row_ = 0;
    std::vector<unsigned char> whole_; // of an interlaced picture
};

} // namespace

std::unique_ptr<Reader> OpenPng(std::string const& path)
{
    return std::make_unique<PngReader>(path);
}

} // namespace measure
