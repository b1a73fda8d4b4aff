#include <memblock/vector/elemtypechange_internal.h>

#include <memblock/core/memblockimpl.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/indexvector.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>
#include <memblock/vector/summary.h>

namespace NKelmic {

ElemTypeChange::ElemTypeChange(Vector& v)
    : image_(v.GetRank() == 2 ? dynamic_cast<Image*>(&v) : nullptr)
{
    // Taken out before the change, as it drops all cached values. These two are no values of the
    // pixels, though kept in the same place.
    if (!image_ || !image_->PimplIfAny())
        return;
    image_->ExistsSecondaryItem(Image::key_stencil_count, stencil_count_);
    image_->ExistsSecondaryItem(Image::key_edge_width, edge_width_);
}

void ElemTypeChange::PutBack() const
{
    if (!image_)
        return;
    if (edge_width_.IsDefined())
        image_->SetSecondaryItem(Image::key_edge_width, edge_width_);
    // The change may have ended the class, and a count without a stencil would be believed later.
    if (stencil_count_.IsDefined() && image_->Type() == Image::stencil)
        image_->SetSecondaryItem(Image::key_stencil_count, stencil_count_);
}

void ElemTypeChange::Finish()
{
    PutBack();
    if (!image_ || image_->ElemType() != Vector::Triple)
        return;
    // Colours are shown as they are.
    image_->EnsureFactor(1.0);
    image_->DoSetLgType(Image::visual);
}

void CountObjects(Vector const& v)
{
    // A pass over pixels that are not yet made would make them; such an image has no labels to
    // count.
    if (v.LgType() != Image::stencil || v.Chunk().HasDelayed())
        return;
    if (auto const* const image = dynamic_cast<Image const*>(&v))
        image->GetStencilCount(); // which records it
}

DerivedPointer<Vector> ImageAsBytes(Vector const& v)
{
    auto const* image = dynamic_cast<Image const*>(&v);
    if (!image)
        return nullptr;
    // Floating pixels are scaled by a factor elsewhere, which a visual image cannot have.
    bool const visual_floats = IsInSet<FloatTypes>(v.ElemType()) &&
                               image->Type() == Image::visual && v.Length() > 0 &&
                               v.SecondaryDouble(key_min, throw_always) >= 0;
    if (!visual_floats && !IsInSet<IntegerTypes>(v.ElemType()))
        return nullptr;
    DerivedPointer<Image> bytes(image->Clone(true));
    bytes->Depth8();
    return bytes;
}

DerivedPointer<Vector> PlainUnlessOwnType(DerivedPointer<Vector> const& v)
{
    Vector const* const object = v.Pointer();
    DataType own = Vector::NoType;
    if (dynamic_cast<IndexVector const*>(object))
        own = Vector::UnsignedInt;
    else if (dynamic_cast<Point const*>(object) || dynamic_cast<NumRange const*>(object))
        own = Vector::Int;
    if (own == Vector::NoType || (object->ElemType() == own && object->Factor() == 1.0))
        return v;
    return Vector::Create(object->Chunk(), object->Factor());
}

void CheckLengthIsFree(Vector const& v)
{
    if (dynamic_cast<Point const*>(&v))
        Raise(err_kind, Point::refusal_to_resize);
}

PMemBlock PixelListOf(DerivedPointer<Vector> const& indices, unsigned int width,
                      unsigned int height)
{
    return IndexVector::Create(indices, width, height);
}

PMemBlock RangeOfIndices(unsigned int length)
{
    return NumRange::Create(0, static_cast<int>(length), true);
}

} // namespace NKelmic
