#include <memblock/imaging/region.h>

#include <memblock/base/raise.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/core/memblock_internal.h>
#include <memblock/core/options.h>
#include <memblock/core/visitor.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>

#include <algorithm>
#include <utility>

namespace NKelmic {

namespace {

constexpr char const* representation = "representation";

DataItem Dimension(RegionBase const& region, std::size_t i)
{
    auto const dims = region.GetTargetData().dims;
    return DataItem(i < dims.size() ? static_cast<int>(dims[i]) : 0);
}

constexpr KeyTable region_keys{std::to_array<Key<RegionBase>>({
    {"image", [](RegionBase const& r, ThrowHandlerFunc) { return DataItem(r.GetImageRepr()); }},
    {"vector", [](RegionBase const& r, ThrowHandlerFunc) { return DataItem(r.GetVectorRepr()); }},
    {"imagewidth", [](RegionBase const& r, ThrowHandlerFunc) { return Dimension(r, 0); }},
    {"imageheight", [](RegionBase const& r, ThrowHandlerFunc) { return Dimension(r, 1); }},
})};

} // namespace

bool RegionBase::Conforms(char const* classname) const
{
    return SameName(classname, Class()) || MemBlock::Conforms(classname);
}

// ---- Forms

DerivedPointer<Image> RegionBase::GetImageRepr() const
{
    // Kept once made, also in a const object: scripts read many keys of one region, and each may
    // need the other form.
    if (!image_)
        image_ = cref(GetVectorRepr()).GetMaskImage();
    return DerivedPointer<Image>(image_);
}

DerivedPointer<IndexVector> RegionBase::GetVectorRepr() const
{
    if (!vector_) {
        Image const* const image = MemCast<Image>(image_);
        if (!image) // a visitor has taken both forms away
            Raise(err_state, "No representation stored: %s", *this);
        vector_ = Kind().trace(*image);
    }
    return DerivedPointer<IndexVector>(vector_);
}

IndexVector::TargetData RegionBase::GetTargetData() const
{
    IndexVector::TargetData target;
    // Only from a form that is there: the other one would have to be made for it, which may fail.
    if (IndexVector const* const vector = MemCast<IndexVector>(vector_)) {
        if (auto const pixels = Kind().pixels_of(*vector))
            target = cref(pixels).GetTargetData();
    } else if (Image const* const image = MemCast<Image>(image_)) {
        target.descr = image->GetDescription();
        target.dims = {image->width(), image->height()};
    }
    return target;
}

void RegionBase::SetContent_(PMemBlock content)
{
    if (MemCast<Image>(content))
        return TakeImage(std::move(content), Kind().image_type);
    // The argument keeps the object until the end: a vector that is handed over with its last
    // pointer becomes the form as it is.
    TakeVector(Kind().vector_of(content));
}

void RegionBase::TakeImage(PMemBlock image, int lg_type)
{
    if (image->LgType() != lg_type) {
        // Other owners keep the class that the image had.
        MakeExclusive(image);
        image->DoSetLgType(lg_type);
    }
    image_ = std::move(image);
    vector_ = PMemBlock();
    ContentHasBeenChanged();
}

void RegionBase::TakeVector(PMemBlock vector)
{
    vector_ = std::move(vector);
    image_ = PMemBlock();
    ContentHasBeenChanged();
}

// ---- Walks

// Settled: a walk that starts here passes through to the current form. One that
// has visited the region itself gets the forms that are stored, each in its place.
bool RegionBase::Entertain(MemBlockVisitor& v, safestring const& path, entertainmode_t mode)
{
    if (mode != em_no_self && mode != em_traverse)
        return !Current() || Current()->Entertain(v, path, mode);
    KeepAlive const alive(*this);
    if (!MemBlock::Entertain(v, path, mode))
        return false;
    TraverseNode const node(path);
    if (vector_ && !EntertainChild(vector_, v, TraverseNode(node, "vector").Path(), mode))
        return false;
    return !image_ || EntertainChild(image_, v, TraverseNode(node, "image").Path(), mode);
}

// ---- Forwarded to the current form

void RegionBase::DoSerialize(int format, SerializeVisitor& v, safestring const& path,
                             Formatter const& formatter, safestring& output) const
{
    // Written as its current form and read back as a list or an image: files do not know regions.
    if (Current())
        Current()->Serialize(format, v, path, formatter, output);
}

bool RegionBase::DoSetSubItem(safestring const& key, SafeValue const& value, safestring const&,
                              ThrowHandlerFunc handler)
{
    if (!Current()) {
        Report(handler, err_kind, "Cannot set item \"%s\" (%s) in a %s object.", key, value,
               Class());
        return false;
    }
    MakeExclusive(Current()); // a form that was handed in may have other owners
    if (!Current()->SetSubItem(key, value, handler))
        return false;
    ContentHasBeenChanged();
    return true;
}

// ---- Conversion

bool RegionBase::AddConvertArg(safestring const& key, DataItem const& value,
                               ConvertOptions& options, ThrowHandlerFunc handler) const
{
    if (key == "image" || key == "vector") {
        options.SetValue(representation, DataItem(key));
        return true;
    }
    return MemBlock::AddConvertArg(key, value, options, handler);
}

PMemBlock RegionBase::ConvertFrom(PMemBlock source, ConvertOptions const& options) const
{
    // A region of the other class is not converted: a mask has no objects, and those of a stencil
    // may overlap.
    auto const* region = dynamic_cast<RegionBase const*>(source.Pointer());
    if (region && !SameName(region->Class(), Class()))
        region = nullptr;
    if (!region && !MemCast<Image>(source) && !Kind().is_vector(source))
        return {};
    DerivedPointer<RegionBase> made;
    if (!region) {
        made = Kind().create();
        made->SetContent_(std::move(source));
        region = made.Pointer();
    }
    safestring const form = options.GetValue(representation, DataItem("vector")).GetString();
    if (form == "vector")
        return region->GetVectorRepr();
    if (form == "image")
        return region->GetImageRepr();
    return form == Class() ? PMemBlock(region) : PMemBlock();
}

PMemBlock RegionBase::ConvertTo(safestring const& classname) const
{
    if (classname == "vector")
        return GetVectorRepr();
    if (classname == "image")
        return GetImageRepr();
    if (classname == Class())
        return PMemBlock(this);
    return MemBlock::ConvertTo(classname);
}

// ---- Keys

DataItem RegionBase::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (auto const* const row = region_keys.Find(key))
        return ReadKey(*row, *this, handler);
    // The own list says which keys of the vector form are offered, so that a key of the base class
    // is never mistaken for one of a form.
    if (key.empty() || key == "!")
        return DataItem(Kind().keys + MemBlock::ResolveSubItem(key, handler).GetString());
    bool const of_list = AnyKeyOfList(safestring(Kind().keys), [&](KeyListEntry const& entry) {
        return SameName(entry.name, {key.data(), key.size()});
    });
    if (of_list) // the rest of the own list is what the vector form answers
        return Attempt(handler, [&] { return GetVectorRepr()->ResolveSubItem(key, handler); });
    return MemBlock::ResolveSubItem(key, handler);
}

// ---- Whole objects

PMemBlock RegionBase::DoClone(int mode) const
{
    auto const copy = Kind().create();
    // The forms are children: the higher modes leave them to a walk over the copy.
    if (image_)
        copy->image_ = mode > 1 ? image_ : image_->Clone(mode > 0);
    if (vector_)
        copy->vector_ = mode > 1 ? vector_ : vector_->Clone(mode > 0);
    return copy;
}

bool RegionBase::Equals(MemBlock const& other) const
{
    auto const* const o = dynamic_cast<RegionBase const*>(&other);
    if (!o)
        return false;
    // Lists first: comparing them costs the pixels of the region, images cost all pixels. But two
    // lists that differ in order only are different.
    if (vector_ && o->vector_)
        return *vector_ == *o->vector_;
    return *GetImageRepr() == *o->GetImageRepr();
}

safestring RegionBase::DoGetDescription() const
{
    return Text(Kind().description, Dimension(*this, 0).GetInt(), Dimension(*this, 1).GetInt(),
                vector_ ? "vector" : "image");
}

bool RegionBase::Consistent(safestring& message, bool deep) const
{
    if (!MemBlock::Consistent(message, deep))
        return false;
    if (!image_ && !vector_) {
        message += "No representation stored.\n";
        return false;
    }
    Image const* const image = MemCast<Image>(image_);
    Vector const* const vector = MemCast<Vector>(vector_);
    auto const target = GetTargetData();
    // A key may have made a cube or a row of the vector form; no image can be made of that.
    if (target.dims.size() != 2) {
        message += Text(Kind().no_image, *this);
        return false;
    }
    auto const sizes = Kind().pixel_size;
    if (image && std::find(sizes.begin(), sizes.end(), image->Bpp()) == sizes.end()) {
        message += Text(Kind().wrong_pixels, *image);
        return false;
    }
    if (vector && !SameName(vector->Class(), Kind().vector_class)) {
        message += Text("Invalid vector representation class: %s\n", *vector);
        return false;
    }
    if (vector && Kind().vector_type && vector->LgType() != Kind().vector_type) {
        message += Text("Not a 2D stencil: %s\n", *vector);
        return false;
    }
    if (image && vector &&
        (image->width() != target.dims[0] || image->height() != target.dims[1])) {
        message +=
            Text("Image and vector representation targets do not match: %s, %s\n", *image, *vector);
        return false;
    }
    return true;
}

} // namespace NKelmic
