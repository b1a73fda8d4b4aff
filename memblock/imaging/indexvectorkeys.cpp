#include <memblock/imaging/indexvector.h>

#include <memblock/core/attempt_internal.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/targetdata_internal.h>

namespace NKelmic {

namespace {

struct Dimensions {
    unsigned int w = 0, h = 0;
};

/// Undefined where the target has none, which has then been reported.
template <unsigned int Dimensions::*size>
DataItem ImageSize(IndexVector const& v, ThrowHandlerFunc handler)
{
    Dimensions image;
    v.GetImageDimensions(image.w, image.h, handler);
    return v.TargetRank() == 2 ? DataItem(image.*size) : DataItem();
}

constexpr KeyTable index_keys{std::to_array<Key<IndexVector>>({
    {"area", [](IndexVector const& v, ThrowHandlerFunc) -> DataItem { return v.Length(); }},
    {"imagewidth", ImageSize<&Dimensions::w>},
    {"imageheight", ImageSize<&Dimensions::h>},
    {"vector", [](IndexVector const& v, ThrowHandlerFunc) -> DataItem { return PMemBlock(&v); }},
    {"image", [](IndexVector const& v, ThrowHandlerFunc) -> DataItem { return v.GetMaskImage(); }},
    {"x", [](IndexVector const& v, ThrowHandlerFunc) -> DataItem { return v.GetXVector(); }},
    {"y", [](IndexVector const& v, ThrowHandlerFunc) -> DataItem { return v.GetYVector(); }},
})};

} // namespace

DataItem IndexVector::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (auto const* row = index_keys.Find(key))
        return ReadKey(*row, *this, handler);
    // Settled: the list leaves out the keys of plain vectors, though they work.
    if (key.empty() || key == "!")
        return "area,image,vector,imagewidth,imageheight,x,y," +
               MemBlock::ResolveSubItem(key, handler).GetString();
    return Vector::ResolveSubItem(key, handler);
}

bool IndexVector::DoSetSubItem(safestring const& key, SafeValue const& value,
                               safestring const& full_path, ThrowHandlerFunc handler)
{
    if (auto const done = SetTargetKey(target_, key, value, handler))
        return *done;
    return Vector::DoSetSubItem(key, value, full_path, handler);
}

bool IndexVector::AddConvertArg(safestring const& key, DataItem const& value,
                                ConvertOptions& options, ThrowHandlerFunc handler) const
{
    if (key == "clearedborders") {
        options.SetFlag("clearedborders", true);
        return true;
    }
    if (key == "vector" || key == "image") {
        options.SetValue("representation", DataItem(key));
        return true;
    }
    return Vector::AddConvertArg(key, value, options, handler);
}

PMemBlock IndexVector::ConvertFrom(PMemBlock source, ConvertOptions const& options) const
{
    safestring const form = options.GetValue("representation", "vector").GetString();
    PMemBlock outcome;
    if (form == "vector") {
        // A conversion to the form it has already: the object itself, without a copy.
        if (source.Pointer() == this)
            outcome = source;
    } else if (form == "image") {
        PMemBlock const image = source ? source->ConvertTo("image") : PMemBlock();
        if (auto const* pixels = MemCast<Vector>(image)) {
            DerivedPointer<Vector> const wide =
                pixels->ConvertElemsToType(UnsignedShort, true, false);
            wide->EnsureFactor(1.0);
            outcome = wide;
        }
    } else {
        Raise(err_request, "Unsupported mask representation: %s", form);
    }
    // Null lets the caller ask another class. The flag is for whatever form came out.
    if (!outcome || !options.GetFlag("clearedborders", false))
        return outcome;
    if (outcome.Pointer() == this)
        return indexvector_clearborders(DerivedPointer<IndexVector>(this));
    return outcome->Convert(safestringlist(safestring("clearedborders"), ','), safestring(),
                            LogWarnings());
}

PMemBlock IndexVector::ConvertTo(safestring const& classname) const
{
    if (classname == "vector")
        return Vector::Create(Chunk(), Factor());
    if (classname == "image")
        return GetMaskImage();
    return MemBlock::ConvertTo(classname);
}

} // namespace NKelmic
