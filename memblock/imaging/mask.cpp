#include <memblock/imaging/mask.h>

#include <memblock/base/raise.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>

namespace NKelmic {

DerivedPointer<Mask> Mask::Create()
{
    return Create(DerivedPointer<Vector>(IndexVector::Create()));
}

DerivedPointer<Mask> Mask::Create(DerivedPointer<Vector> content)
{
    return Create(static_cast<PMemBlock&&>(content));
}

DerivedPointer<Mask> Mask::Create(PMemBlock content)
{
    DerivedPointer<Mask> mask(new Mask);
    mask->SetContent_(std::move(content));
    return mask;
}

void Mask::SetContent(DerivedPointer<Vector> v)
{
    SetContent_(static_cast<PMemBlock&&>(v));
}

char const* Mask::Class() const
{
    return StaticClass();
}

char const* Mask::ClassDescription() const
{
    return "Mask class encapsulates a 2D mask either in vector or image representation.";
}

namespace {

/// An interval vector is a region as a whole: its objects count for nothing.
PMemBlock PixelsOfMask(PMemBlock const& content)
{
    if (IntervalVector const* const objects = MemCast<IntervalVector>(content))
        return objects->MergedIndexVector();
    if (MemCast<IndexVector>(content))
        return content;
    Raise(err_kind, "Invalid object for Mask::SetContent(): %s", content);
}

} // namespace

RegionKind const& Mask::Kind() const
{
    static constexpr RegionKind kind{
        .description = "Mask for %dx%d images, in %s representation",
        .no_image = "Mask target is not an image: %s\n",
        .keys = "area,image,vector,imagewidth,imageheight,x,y,",
        .image_type = Image::mask,
        .pixel_size = {1, 1},
        .wrong_pixels = "Image representation pixeltype not 8bpp: %s\n",
        .vector_class = "indexvector",
        .vector_type = 0,
        .create = [] { return DerivedPointer<RegionBase>(new Mask); },
        .is_vector =
            [](PMemBlock const& source) { return MemCast<IndexVector>(source) != nullptr; },
        .vector_of = PixelsOfMask,
        .trace = [](Image const& image) -> PMemBlock { return image.GetMaskVector(); },
        .pixels_of = [](IndexVector const& v) { return DerivedPointer<IndexVector>(&v); },
    };
    return kind;
}

} // namespace NKelmic
