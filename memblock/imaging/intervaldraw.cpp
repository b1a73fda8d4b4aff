#include <memblock/imaging/intervaldraw_internal.h>

#include <memblock/base/raise.h>
#include <memblock/imaging/intervaltarget_internal.h>
#include <memblock/imaging/shape_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cstring>

namespace NKelmic {

template <class T>
void ComposeStencilImage_tmpl(unsigned int const* start, unsigned int const* end,
                              unsigned int count, unsigned int const* indices,
                              unsigned int nindices, T* pixels, unsigned long npixels,
                              IntervalVector const* v)
{
    // In the order of numbers: where two objects claim a pixel, the one with the higher number gets
    // it.
    for (unsigned int k = 1; k <= count; ++k) {
        if (start[k] > end[k])
            Raise(err_kind,
                  "IntervalVector::GetMaskImage(): Invalid interval for cell %d: [%d..%d]: %s", k,
                  start[k], end[k], *v);
        unsigned int const to = std::min(end[k], nindices);
        for (unsigned int i = start[k]; i < to; ++i)
            if (indices[i] < npixels)
                pixels[indices[i]] = static_cast<T>(k);
    }
}

template void ComposeStencilImage_tmpl(unsigned int const*, unsigned int const*, unsigned int,
                                       unsigned int const*, unsigned int, unsigned short*,
                                       unsigned long, IntervalVector const*);
template void ComposeStencilImage_tmpl(unsigned int const*, unsigned int const*, unsigned int,
                                       unsigned int const*, unsigned int, unsigned int*,
                                       unsigned long, IntervalVector const*);

namespace {

template <class T>
void Draw(IntervalVector const& v, IndexVector const& pixels, Image& image)
{
    // Without objects there need not be a first limit to point ahead of.
    if (v.IntervalCount() == 0)
        return;
    ComposeStencilImage_tmpl(v.Start(1), v.End(1), v.IntervalCount(), pixels.UnsignedIntPointer(),
                             pixels.Length(), image.TypedPointer<T>(), image.Length(), &v);
}

} // namespace

DerivedPointer<Image> ImageToDrawIn(unsigned int w, unsigned int h, DataType type,
                                    unsigned long count)
{
    unsigned int const sizes[] = {w, h};
    unsigned long const length = ShapeLength(sizes, 2);
    // Where much is drawn, memory that was in use before is cleared faster than the system hands
    // out zeros. A few pixels of a huge image touch a few pages only.
    constexpr unsigned long sparse = 64;
    if (count < length / sparse)
        return Image::Create(w, h, type, 1.0);
    TypedChunk const pixels = OpenChunk(length, type);
    if (length > 0)
        std::memset(pixels.Data(), 0, length * pixels.ElemSize());
    return Image::Create(pixels, w, h, 1.0);
}

DerivedPointer<Image> IntervalVector::GetMaskImage() const
{
    if (!Target_ || !SameName(Target_->Class(), "indexvector"))
        Raise(err_kind,
              "IntervalVector::GetMaskImage(): Unsupported data type (only 2-level arrays "
              "supported): %s",
              *this);
    IndexVector const& pixels = *MemCast<IndexVector>(Target_);
    if (pixels.TargetRank() != 2)
        Raise(err_kind, "IndexVector target is not an image: %s", pixels);
    constexpr unsigned int most_short = 32000;
    bool const narrow = IntervalCount_ <= most_short;
    auto image = ImageToDrawIn(pixels.TargetDimSize(0), pixels.TargetDimSize(1),
                               narrow ? UnsignedShort : UnsignedInt, pixels.Length());
    if (narrow)
        Draw<unsigned short>(*this, pixels, *image);
    else
        Draw<unsigned int>(*this, pixels, *image);
    // Recorded ahead of the class, so that no pass looks for the greatest label, and again after
    // it: where the frame has to be cleared, the change drops what was recorded.
    image->SetStencilCount(static_cast<int>(IntervalCount_));
    image->SetType(Image::stencil);
    image->SetStencilCount(static_cast<int>(IntervalCount_));
    return image;
}

namespace {

/// The address offset of a kernel's pixel from the kernel's centre, halves by integer division.
DerivedPointer<Vector> ShiftsOf(IndexVector const& kernel, int width)
{
    return IndexVector2ShiftVector(DerivedPointer<IndexVector>(&kernel), width);
}

/// The shifts of each object of a stencil.
DerivedPointer<Vector> ShiftsOfObjects(IntervalVector const& kernel, int width)
{
    auto const objects = intervalvector_to_pmemory_vector(DerivedPointer<IntervalVector>(&kernel));
    for (unsigned int k = 0; k < objects->Length(); ++k) {
        PMemBlock const object = objects->ElemMemory(k);
        objects->SetElem(k, PMemBlock(ShiftsOf(*MemCast<IndexVector>(object), width)));
    }
    return objects;
}

} // namespace

DerivedPointer<Vector> PrepareMatrixes_f(DerivedPointer<Vector> image,
                                         DerivedPointer<Vector> kernel)
{
    Image const* const picture = MemCast<Image>(image);
    if (!picture)
        Raise(err_kind, "Unsupported image type. Function  PrepareMatrixes_f: %s", image);
    int const width = static_cast<int>(picture->width());
    PMemBlock region(kernel);
    if (Image* const drawn = MemCast<Image>(kernel))
        // A kernel that was drawn: its pixels are what matters, not their values.
        region = drawn->Type() == Image::stencil ? PMemBlock(drawn->GetStencilVector())
                                                 : PMemBlock(drawn->GetMaskVector());
    if (IntervalVector const* const objects = MemCast<IntervalVector>(region))
        return ShiftsOfObjects(*objects, width);
    if (IndexVector const* const pixels = MemCast<IndexVector>(region))
        return ShiftsOf(*pixels, width);
    Raise(err_kind, "Kernel type not supported: %s", kernel);
}

} // namespace NKelmic
