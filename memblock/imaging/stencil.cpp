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
    stencil->SetContent_(std::move(content));
    return stencil;
}

void Stencil::SetContent(DerivedPointer<Vector> v)
{
    SetContent_(static_cast<PMemBlock&&>(v));
}

char const* Stencil::Class() const
{
    return StaticClass();
}

char const* Stencil::ClassDescription() const
{
    return "Stencil class encapsulates a 2D stencil either in vector or image representation.";
}

namespace {

PMemBlock ObjectsOfStencil(PMemBlock const& content)
{
    IntervalVector const* const objects = MemCast<IntervalVector>(content);
    if (objects && objects->LgType() == IntervalVector::stencil)
        return content;
    Raise(err_kind, "Invalid representation object for Stencil::SetContent(): %s", content);
}

DerivedPointer<IndexVector> PixelsOfStencil(IndexVector const& vector)
{
    auto const* const objects = dynamic_cast<IntervalVector const*>(&vector);
    return objects ? DerivedPointer<IndexVector>(MemCast<IndexVector>(objects->Target()))
                   : DerivedPointer<IndexVector>(&vector);
}

} // namespace

RegionKind const& Stencil::Kind() const
{
    static constexpr RegionKind kind{
        .description = "Stencil for %dx%d images, in %s representation",
        .no_image = "Stencil target is not an image: %s\n",
        .keys = "itemcount,mask,area,image,vector,imagewidth,imageheight,x,y,",
        .image_type = Image::stencil,
        .pixel_size = {2, 4},
        .wrong_pixels = "Image representation pixeltype not 16bpp or 32bpp: %s\n",
        .vector_class = "intervalvector",
        .vector_type = IntervalVector::stencil,
        .create = [] { return DerivedPointer<RegionBase>(new Stencil); },
        .is_vector =
            [](PMemBlock const& source) { return MemCast<IntervalVector>(source) != nullptr; },
        .vector_of = ObjectsOfStencil,
        .trace = [](Image const& image) -> PMemBlock { return image.GetStencilVector(); },
        .pixels_of = PixelsOfStencil,
    };
    return kind;
}

} // namespace NKelmic
