#include <memblock/imaging/image.h>

#include <memblock/imaging/pixel_kernels.h>
#include <memblock/imaging/shape_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <optional>
#include <utility>

namespace NKelmic {

namespace {

/// A half-open range of pixels on one axis; 64 bits, so that corners of any int have a distance.
struct Span {
    long from, to;
    long Size() const { return to - from; }
};

Span Ordered(int a, int b, unsigned int whole)
{
    // Settled: -1 as the far corner means the border of the image, so no corner can be one left of
    // it.
    long const end = b == -1 ? static_cast<long>(whole) : b;
    return a <= end ? Span{a, end} : Span{end, a};
}

Span Within(Span s, unsigned int whole)
{
    long const from = std::clamp<long>(s.from, 0, whole);
    return {from, std::clamp<long>(s.to, from, whole)};
}

/// A size as it goes into a shape; one that is none becomes too large for any.
unsigned int SizeOfSpan(Span s)
{
    return s.Size() < 0 || s.Size() > 0xFFFFFFFFL ? 0xFFFFFFFFU
                                                  : static_cast<unsigned int>(s.Size());
}

/// A copy of a rectangle; 0 where it reaches beyond the image.
TypedChunk CopyOfRectangle(Image const& image, Span x, Span y)
{
    unsigned int const sizes[] = {SizeOfSpan(x), SizeOfSpan(y)};
    unsigned long const length = ShapeLength(sizes, 2);
    Span const columns = Within(x, image.width());
    Span const rows = Within(y, image.height());
    // Pixels outside of the image are 0. Where there are none the memory need not be cleared first.
    bool const whole = columns.Size() == x.Size() && rows.Size() == y.Size();
    TypedChunk copy =
        whole ? OpenChunk(length, image.ElemType()) : NewChunk(length, image.ElemType());
    // A rectangle beside the image: the sums below would point outside of the buffer.
    if (columns.Size() <= 0 || rows.Size() <= 0)
        return copy;
    long const size = image.ElemSize();
    char const* from = static_cast<char const*>(image.Pointer()) +
                       (rows.from * image.width() + columns.from) * size;
    char* to = static_cast<char*>(copy.Data()) +
               ((rows.from - y.from) * x.Size() + columns.from - x.from) * size;
    for (long row = rows.from; row < rows.to; ++row) {
        // Not memcpy: pixels may be texts or objects, which count their owners.
        TypedChunk::Copy_Buffer(to, from, static_cast<unsigned long>(columns.Size()),
                                image.ElemType());
        from += image.width() * size;
        to += x.Size() * size;
    }
    return copy;
}

template <class T>
bool HasLabel(T pixel, unsigned int code)
{
    if constexpr (std::is_same_v<T, triple>)
        // A colour has three bytes: the fourth one of a code says nothing.
        return pixel == (code & 0xFFFFFF);
    else if constexpr (std::is_same_v<T, float>)
        return pixel == static_cast<float>(code);
    else
        return static_cast<unsigned int>(pixel) == code;
}

struct Box {
    Span x, y;
};

/// The rectangle around all pixels of a label, if there are any.
template <class T>
std::optional<Box> BoxOfLabel(T const* pixels, unsigned int w, unsigned int h, unsigned int code)
{
    Box box{{w, 0}, {h, 0}};
    for (long y = 0; y < h; ++y, pixels += w) {
        auto const has = [code](T p) { return HasLabel(p, code); };
        T const* const first = std::find_if(pixels, pixels + w, has);
        if (first == pixels + w)
            continue;
        long last = w - 1L;
        // Ends at the first pixel found at the latest, so it needs no bound.
        while (!has(pixels[last]))
            --last;
        box.x = {std::min<long>(box.x.from, first - pixels), std::max(box.x.to, last + 1)};
        box.y = {std::min(box.y.from, y), y + 1};
    }
    if (box.y.to == 0)
        return std::nullopt;
    return box;
}

} // namespace

template <class T>
void transpose_tmpl(T const* src, T* dst, unsigned int w, unsigned int h)
{
    if constexpr (std::is_trivially_copyable_v<T>) {
        // By the width alone: the bits of a pixel are of no concern here.
        using P = std::conditional_t<
            sizeof(T) == 1, std::uint8_t,
            std::conditional_t<sizeof(T) == 2, std::uint16_t,
                               std::conditional_t<sizeof(T) == 3, triple,
                                                  std::conditional_t<sizeof(T) == 4, std::uint32_t,
                                                                     std::uint64_t>>>>;
        pixels::Transpose(reinterpret_cast<P const*>(src), reinterpret_cast<P*>(dst), w, h);
    } else {
        for (unsigned long y = 0; y < h; ++y)
            for (unsigned long x = 0; x < w; ++x)
                dst[x * h + y] = *src++;
    }
}

/// This image with other pixels, of the same element type, in another shape.
DerivedPointer<Image> Image::WithShape(unsigned int w, unsigned int h,
                                       TypedChunk const& chunk) const
{
    DerivedPointer<Image> image(Clone(true));
    image->Reshape({w, h}, chunk);
    return image;
}

DerivedPointer<Image> Image::Transposed() const
{
    TypedChunk turned = OpenChunk(Length(), ElemType());
    WithElemType<AllTypes>(ElemType(), "Function transpose_tmpl not implemented for data type '%s'",
                           [&]<class T>(TypeTag<T>) {
                               transpose_tmpl(TypedPointer<T>(), static_cast<T*>(turned.Data()),
                                              width(), height());
                           });
    return WithShape(height(), width(), turned);
}

DerivedPointer<Image> Image::Crop(int x1, int y1, int x2, int y2) const
{
    Span const x = Ordered(x1, x2, width());
    Span const y = Ordered(y1, y2, height());
    // Settled: an empty crop is a new image without class, edge or items; any other keeps those of
    // this one.
    if (x.Size() < 1 || y.Size() < 1)
        return Create(SizeOfSpan(x), SizeOfSpan(y), ElemType(), Factor());
    return WithShape(SizeOfSpan(x), SizeOfSpan(y), CopyOfRectangle(*this, x, y));
}

DerivedPointer<Image> Image::DoCrop(int x1, int y1, int x2, int y2) const
{
    Span const x{x1, x2};
    Span const y{y1, y2};
    return WithShape(SizeOfSpan(x), SizeOfSpan(y), CopyOfRectangle(*this, x, y));
}

DerivedPointer<Image> Image::ExtractCoded(unsigned int code, int* x, int* y) const
{
    using Labels = TypesUpTo<NumericTypes, 4>; // labels are unsigned int
    auto const refuse = [&]() -> DerivedPointer<Image> {
        Raise(err_request, "Image::ExtractCoded(): pixel type not supported: %s", *this);
    };
    return WithElemTypeOr<Labels>(
        ElemType(), refuse, [&]<class T>(TypeTag<T>) -> DerivedPointer<Image> {
            auto const box = BoxOfLabel(TypedPointer<T>(), width(), height(), code);
            if (!box)
                return nullptr;
            // One pixel around the object, so that the cut has the clear frame of a stencil, unless
            // the object touches the border.
            Span const columns = Within({box->x.from - 1, box->x.to + 1}, width());
            Span const rows = Within({box->y.from - 1, box->y.to + 1}, height());
            TypedChunk cut = CopyOfRectangle(*this, columns, rows);
            auto* const pixels = static_cast<T*>(cut.Data());
            // Neighbours may reach into the rectangle.
            std::replace_if(
                pixels, pixels + cut.Length(), [code](T p) { return !HasLabel(p, code); }, T(0));
            if (x)
                *x = static_cast<int>(columns.from);
            if (y)
                *y = static_cast<int>(rows.from);
            return WithShape(SizeOfSpan(columns), SizeOfSpan(rows), cut);
        });
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template MEMBLOCK_API void transpose_tmpl<T>(T const*, T*, unsigned int, unsigned int);
MEMBLOCK_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

} // namespace NKelmic
