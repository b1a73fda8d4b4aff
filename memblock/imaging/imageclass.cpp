#include <memblock/imaging/image.h>

#include <memblock/core/subitem_internal.h>
#include <memblock/imaging/pixel_kernels.h>
#include <memblock/serial/warning.h>
#include <memblock/vector/elemtypechange_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <utility>

namespace NKelmic {

namespace {

bool BordersClear(Image& image, bool clear)
{
    void* const data = static_cast<Vector&>(image).Pointer();
    unsigned int const w = image.width();
    unsigned int const h = image.height();
    auto const check = [&]<class P>(P* pixels) {
        if (clear)
            pixels::ClearFrame(pixels, w, h);
        return clear || pixels::FrameIsClear(pixels, w, h);
    };
    bool result = false;
    // Whether a pixel is 0 is a question of its width, so one kernel serves int, unsigned and Char
    // alike. Floats are seen as bits except for doubles, whose -0.0 counts as clear. Objects are
    // pointers, which zeros would leak.
    switch (image.IsObject(image.ElemType()) ? 0 : image.ElemSize()) {
    case 1:
        result = check(static_cast<unsigned char*>(data));
        break;
    case 2:
        result = check(static_cast<unsigned short*>(data));
        break;
    case 3:
        result = check(static_cast<triple*>(data));
        break;
    case 4:
        result = check(static_cast<unsigned int*>(data));
        break;
    case 8:
        result = check(static_cast<double*>(data));
        break;
    default:
        Raise(err_kind, "Image border clearing not supported for: %s", image);
    }
    // Looking alone must not drop the cached values: this runs whenever an image becomes a stencil.
    if (clear)
        image.ContentHasBeenChanged();
    return result;
}

} // namespace

bool check_image_borders_clear(DerivedPointer<Image> image, bool clear)
{
    return BordersClear(*image, clear);
}

template <class T>
void downconvert(T const* src, unsigned char* dst, unsigned int n)
{
    pixels::NonZeroBytes(src, dst, n);
}

void Image::CheckWritable() const
{
    // Inputs of a module are marked as constant: other modules read the same image.
    if (Flags() & mem_const)
        Raise(err_kind, "Possible illegal modification of input image: %s", *this);
}

void Image::DoSetLgType(int lg_type)
{
    // What may be refused comes first. The class is set last, so that an image that throws here
    // keeps both its pixels and its class.
    if (lg_type == stencil)
        PrepareStencil();
    else if (lg_type == mask)
        PrepareMask();
    // A stencil has lost its factor in PrepareStencil, which reports nothing: labels are numbers of
    // objects and were never scaled.
    if (lg_type != data && lg_type != stencil)
        DropFactor(lg_type);
    MemBlock::DoSetLgType(lg_type);
    DropHashes(*this);
    // A count that stays behind would be believed when the image becomes a stencil again, with
    // other labels.
    if (lg_type != stencil)
        return SetStencilCount(-1);
    int count = 0;
    if (!RecordedStencilCount(count) || count < 0)
        RecordStencilCount(RawMaximum());
}

void Image::PrepareStencil()
{
    bool const fits = (ElemSize() == 2 || ElemSize() == 4) && IsInSet<NumericTypes>(ElemType());
    if (!fits)
        Raise(err_kind, "Attempt to declare a non-16, non-32 bpp image to be a stencil: %s", *this);
    // Settled: an image that is a stencil already is not looked at again. Its frame may have been
    // written to since; callers clear it when they are done.
    if (Type() == stencil)
        return;
    // The frame of one pixel is 0 in every stencil. A constant image with a clear frame needs no
    // write, so it may become one.
    if (!BordersClear(*this, false)) {
        CheckWritable();
        Warning(err_value,
                "Setting image.type to \"stencil\": image borders are not cleared, clearing. This "
                "may change other data items referring to this image. Use the ClearBorders() "
                "module to avoid this warning.");
        BordersClear(*this, true);
    }
    if (Factor() != 1.0)
        SetFactor(1.0);
}

void Image::PrepareMask()
{
    // Settled: bytes stay as they are. Values above 1 belong to the mask too, and the buffer may be
    // shared.
    if (ElemSize() == 1)
        return;
    CheckWritable();
    // Built aside: a type that cannot be converted is refused with the old pixels still there.
    TypedChunk bytes = OpenChunk(Length(), Byte);
    WithElemType<NumericTypes>(
        ElemType(), "Function downconvert not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) {
            downconvert(std::as_const(*this).TypedPointer<T>(),
                        static_cast<unsigned char*>(bytes.Data()), Length());
        },
        err_request);
    SetTypedChunk(bytes);
}

void Image::DropFactor(int lg_type)
{
    // A mask is yes or no, and a visual image is shown as it is: a scale means nothing to either.
    if (Factor() == 1.0)
        return;
    CheckWritable();
    Warning(err_kind, Text("Ignoring existing raw factor %g when converting image type to \"%s\": "
                           "%s",
                           Factor(), LgType2String(lg_type), *this));
    SetFactor(1.0);
}

void Image::SetElemType(DataType type, bool contents, bool keep_factor)
{
    if (IsObject(type))
        Raise(
            err_kind,
            "Cannot change image element type to \"%s\", this type is supported for vectors only.",
            TypeToString(type));
    if (type == NoType)
        return;
    if (type == ElemType()) {
        if (type == Triple && Type() != visual) { // colours asked for are colours to look at
            EnsureFactor(1.0);
            DoSetLgType(visual);
        }
        return;
    }
    if (type == Triple && contents && Length() > 0) {
        // Made aside: colours have no factor, and to be rid of it may be refused.
        auto const colours = std::as_const(*this).ConvertElemsToType(type, true, keep_factor);
        return InstallConverted(cref(colours).Chunk(), 1.0);
    }
    if (type == Triple && Factor() != 1.0) { // the same on a clone, which may be refused
        DerivedPointer<Image> const trial(Clone(true));
        trial->Vector::SetElemType(type, contents, keep_factor);
        ElemTypeChange(*trial).Finish();
    }
    Vector::SetElemType(type, contents, keep_factor);
    ElemTypeChange(*this).Finish(); // bytes that are read as colours, too
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template MEMBLOCK_API void downconvert<T>(T const*, unsigned char*, unsigned int);
MEMBLOCK_NUMERIC_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

} // namespace NKelmic
