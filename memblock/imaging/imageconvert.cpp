#include <memblock/imaging/image.h>

#include <memblock/base/number.h>
#include <memblock/imaging/indexvector.h>
#include <memblock/vector/convert.h>
#include <memblock/vector/summary.h>

#include <utility>

namespace NKelmic {

namespace {

PMemBlock AsList(Image const& image)
{
    // Only the class says what the pixels mean: 0 and 1 may be a mask, two labels, or data.
    switch (image.Type()) {
    case Image::mask:
        return image.GetMaskVector();
    case Image::stencil:
        return image.GetStencilVector();
    default:
        // Shares the buffer: a list of all values is the same numbers without a shape.
        return Vector::Create(image.Chunk(), image.Factor());
    }
}

/// Bring the grey bytes of an image to the factor 1.0, which colours must have: by their cooked
/// values where these are bytes too. Where they are not the bytes stay, and only the scale is lost.
DerivedPointer<Vector> WithoutFactor(Vector const& bytes)
{
    DerivedPointer<Vector> v(bytes.Clone(true));
    bool const fits = v->Length() == 0 ||
                      RoundHalfAway(v->SecondaryDouble(key_max, throw_always) * v->Factor()) <= 255;
    if (fits)
        v->EnsureFactor(1.0);
    else
        v->SetFactor(1.0);
    return v;
}

/// Grey values as colours: the same byte in all three channels.
DerivedPointer<Vector> AsGreyTriples(Vector const& source)
{
    DerivedPointer<Vector> v = source.ConvertElemsToType(Vector::Byte, true, false);
    // An image of colours has no factor. A plain vector keeps its own.
    if (v->Factor() != 1.0 && MemCast<Image>(v))
        v = WithoutFactor(cref(v));
    v = cref(v).ConvertElemsToType(Vector::Triple, true, false);
    // The conversion puts a grey value into the lowest channel, which would show as a shade of one
    // colour.
    triple* const pixels = v->TriplePointer();
    for (unsigned int i = 0; i < v->Length(); ++i)
        pixels[i].b[1] = pixels[i].b[2] = pixels[i].b[0];
    v->ContentHasBeenChanged();
    return v;
}

} // namespace

bool Image::AddConvertArg(safestring const& key, DataItem const& value, ConvertOptions& options,
                          ThrowHandlerFunc handler) const
{
    // The words name a width. Pixels are numbers without sign, so that is set as well.
    for (int const bits : {8, 16, 24, 32})
        if (key == Text("%dbpp", bits)) {
            options.SetValue("bpp", DataItem(bits));
            options.SetValue("sign", DataItem(0));
            return true;
        }
    for (char const* form : {"image", "vector"})
        if (SameName(form, key.c_str())) {
            options.SetValue("lgclass", DataItem(form));
            return true;
        }
    for (char const* flag : {"clearedborders", "replicate"})
        if (SameName(flag, key.c_str())) {
            options.SetFlag(flag, true);
            return true;
        }
    return Vector::AddConvertArg(key, value, options, handler);
}

PMemBlock Image::ConvertFrom(PMemBlock source, ConvertOptions const& options) const
{
    auto const* vector = MemCast<Vector>(source);
    auto const* image = MemCast<Image>(source);
    // The request is for a list: what is no image has none. Null lets the caller ask another class.
    if (options.GetValue("lgclass", "image").GetString() == "vector")
        return image ? AsList(*image) : PMemBlock();
    if (!vector)
        return nullptr;
    // A vector of objects can be an image in one way only: as three planes of colour.
    if (IsObject(vector->ElemType()))
        return ConstructImageFromColorPlanes(DerivedPointer<Vector>(vector));

    DataType const type = FindDataType(options);
    DerivedPointer<Vector> outcome(vector);
    if (type != NoType)
        outcome = options.GetFlag("replicate", false)
                      ? AsGreyTriples(*vector)
                      : vector->ConvertElemsToType(type, true, false);
    // A conversion of a vector gives a vector. It becomes an image of one row, or gets the shape of
    // the image it was made of.
    if (!MemCast<Image>(outcome))
        outcome = Create(cref(outcome).Chunk(), image ? image->width() : vector->Length(),
                         image ? image->height() : 1, outcome->Factor());
    if (options.GetFlag("clearedborders", false)) {
        // Nothing was converted, so the outcome is the source itself, which is not ours to clear.
        if (outcome.Pointer() == vector)
            outcome = DerivedPointer<Vector>(vector->Clone(true));
        check_image_borders_clear(DerivedPointer<Image>(outcome), true);
    }
    return outcome;
}

} // namespace NKelmic
