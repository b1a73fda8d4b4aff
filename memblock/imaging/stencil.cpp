#include <memblock/imaging/stencil.h>

#include <memblock/base/raise.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>

namespace NKelmic {

DerivedPointer<Stencil> Stencil::Create()
{
    return Create(DerivedPointer<Vector>(IntervalVector::Create()));
}

DerivedPointer<Stencil> Stencil::Create(DerivedPointer<Vector> content)
{
    return Create(static_cast<PMemBlock&&>(content));
}

DerivedPointer<Stencil> Stencil::Create(PMemBlock content)
{
    DerivedPointer<Stencil> stencil(new Stencil);
    stencil->Take(std::move(content));
    return stencil;
}

void Stencil::SetContent(DerivedPointer<Vector> v)
{
    Take(static_cast<PMemBlock&&>(v));
}

void Stencil::Take(PMemBlock content)
{
    if (MemCast<Image>(content))
        return TakeImage(std::move(content), Image::stencil);
    IntervalVector const* const objects = MemCast<IntervalVector>(content);
    if (objects && objects->LgType() == IntervalVector::stencil)
        return TakeVector(std::move(content));
    Raise(err_kind, "Invalid representation object for Stencil::SetContent(): %s", content);
}

char const* Stencil::Class() const
{
    return StaticClass();
}

char const* Stencil::ClassDescription() const
{
    return "Stencil class encapsulates a 2D stencil either in vector or image representation.";
}

DerivedPointer<RegionBase> Stencil::New() const
{
    return DerivedPointer<RegionBase>(new Stencil);
}

bool Stencil::IsSource(PMemBlock const& source) const
{
    return MemCast<Image>(source) || MemCast<IntervalVector>(source);
}

PMemBlock Stencil::MakeVector(Image const& image) const
{
    return image.GetStencilVector();
}

DerivedPointer<IndexVector> Stencil::PixelsOf(IndexVector const& vector) const
{
    auto const* const objects = dynamic_cast<IntervalVector const*>(&vector);
    return objects ? DerivedPointer<IndexVector>(MemCast<IndexVector>(objects->Target()))
                   : DerivedPointer<IndexVector>(&vector);
}

RegionBase::Words const& Stencil::Told() const
{
    static constexpr Words words{"Stencil for %dx%d images, in %s representation",
                                 "Stencil target is not an image: %s\n",
                                 "itemcount,mask,area,image,vector,imagewidth,imageheight,x,y,"};
    return words;
}

bool Stencil::ImageIsFit(Image const& image, safestring& message) const
{
    if (image.Bpp() == 2 || image.Bpp() == 4)
        return true;
    message += Text("Image representation pixeltype not 16bpp or 32bpp: %s\n", image);
    return false;
}

bool Stencil::VectorIsFit(Vector const& vector, safestring& message) const
{
    if (!SameName(vector.Class(), "intervalvector")) {
        message += Text("Invalid vector representation class: %s\n", vector);
        return false;
    }
    if (vector.LgType() == IntervalVector::stencil)
        return true;
    message += Text("Not a 2D stencil: %s\n", vector);
    return false;
}

} // namespace NKelmic
