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
    mask->Take(std::move(content));
    return mask;
}

void Mask::SetContent(DerivedPointer<Vector> v)
{
    Take(static_cast<PMemBlock&&>(v));
}

void Mask::Take(PMemBlock content)
{
    if (MemCast<Image>(content))
        return TakeImage(std::move(content), Image::mask);
    if (IntervalVector const* const objects = MemCast<IntervalVector>(content))
        return TakeVector(objects->MergedIndexVector());
    if (MemCast<IndexVector>(content))
        return TakeVector(std::move(content));
    Raise(err_kind, "Invalid object for Mask::SetContent(): %s", content);
}

char const* Mask::Class() const
{
    return StaticClass();
}

char const* Mask::ClassDescription() const
{
    return "Mask class encapsulates a 2D mask either in vector or image representation.";
}

DerivedPointer<RegionBase> Mask::New() const
{
    return DerivedPointer<RegionBase>(new Mask);
}

bool Mask::IsSource(PMemBlock const& source) const
{
    return MemCast<Image>(source) || MemCast<IndexVector>(source);
}

PMemBlock Mask::MakeVector(Image const& image) const
{
    return image.GetMaskVector();
}

DerivedPointer<IndexVector> Mask::PixelsOf(IndexVector const& vector) const
{
    return DerivedPointer<IndexVector>(&vector);
}

RegionBase::Words const& Mask::Told() const
{
    static constexpr Words words{"Mask for %dx%d images, in %s representation",
                                 "Mask target is not an image: %s\n",
                                 "area,image,vector,imagewidth,imageheight,x,y,"};
    return words;
}

bool Mask::ImageIsFit(Image const& image, safestring& message) const
{
    if (image.Bpp() == 1)
        return true;
    message += Text("Image representation pixeltype not 8bpp: %s\n", image);
    return false;
}

bool Mask::VectorIsFit(Vector const& vector, safestring& message) const
{
    if (SameName(vector.Class(), "indexvector"))
        return true;
    message += Text("Invalid vector representation class: %s\n", vector);
    return false;
}

} // namespace NKelmic
