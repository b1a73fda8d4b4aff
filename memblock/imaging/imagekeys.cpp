#include <memblock/imaging/image.h>

#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/imaging/indexvector.h>
#include <memblock/imaging/shape_internal.h>
#include <memblock/serial/warning.h>
#include <memblock/vector/summary.h>

#include <utility>

namespace NKelmic {

namespace {

DataItem Width(Image const& image, ThrowHandlerFunc)
{
    return image.width();
}

DataItem Height(Image const& image, ThrowHandlerFunc)
{
    return image.height();
}

/// The pixels as a list, which only a mask and a stencil really mean.
DataItem PixelList(Image const& image, ThrowHandlerFunc)
{
    bool const is_mask = image.Type() == Image::mask;
    if (!is_mask && image.Type() != Image::stencil)
        Warning(err_state,
                Text("Subkey .vector used on image of unsuitable type. Set image.type to \"mask\" "
                     "or \"stencil\" to avoid this warning: %s",
                     image));
    // Settled: without a class the width decides, as labels need more than a byte.
    bool const as_mask = is_mask || (image.Type() != Image::stencil && image.ElemSize() == 1);
    return as_mask ? DataItem(image.GetMaskVector()) : DataItem(image.GetStencilVector());
}

bool SetClass(Image& image, SafeValue const& value, ThrowHandlerFunc handler)
{
    // Settled: by a word only. A number would set any class, also that of another kind of object.
    if (!value.IsString()) {
        Report(handler, err_precondition, "Invalid type.");
        return false;
    }
    image.DoSetLgType(Image::String2Type(value.GetString()));
    image.ContentHasBeenChanged();
    return true;
}

bool SetCount(Image& image, SafeValue const& value, ThrowHandlerFunc handler)
{
    image.SetStencilCount(value.GetInt(), handler);
    return true;
}

constexpr KeyTable image_keys{std::to_array<Key<Image>>({
    {"width", Width},
    {"imagewidth", Width},
    {"height", Height},
    {"imageheight", Height},
    {"bpp", [](Image const& image, ThrowHandlerFunc) -> DataItem { return 8 * image.ElemSize(); }},
    {"layercount",
     [](Image const& image, ThrowHandlerFunc) -> DataItem {
         return image.ElemType() == Vector::Triple ? 3 : 1;
     },
     [](Image&, SafeValue const&, ThrowHandlerFunc) { return true; }}, // follows the pixel type
    {"edgewidth",
     [](Image const& image, ThrowHandlerFunc) -> DataItem { return image.GetEdgeWidth(); }},
    {"itemcount",
     [](Image const& image, ThrowHandlerFunc) -> DataItem { return image.GetStencilCount(); },
     SetCount},
    {"stencilcount", nullptr, SetCount},
    {"stencil_count", nullptr, SetCount},
    {"image", [](Image const& image, ThrowHandlerFunc) -> DataItem { return PMemBlock(&image); }},
    {"vector", PixelList},
    {"type", nullptr, SetClass},
})};

/// Store a raw pixel, whose refusal reads alike for numbers of 32 and of 64 bits.
void SetInteger(Image& image, unsigned int index, long long value)
{
    // Most writes are small numbers, whose refusal the vector words itself.
    if (value == static_cast<int>(value))
        return image.SetElem(index, static_cast<int>(value));
    try {
        image.SetElem(index, value);
    } catch (Exception const&) {
        Raise(err_kind, "Vector::SetElem(): Value (%d) out of range for data item: %s", value,
              image);
    }
}

// ---- verbs

DataItem GetRankVerb(Image& image, int, SafeValue const*)
{
    return image.GetRank();
}

/// Settled: the count of the arguments is the number of the dimension, whatever they are.
DataItem GetDimSizeVerb(Image& image, int argc, SafeValue const*)
{
    if (argc != 0 && argc != 1)
        Raise(err_kind, "No such dimension in Image: %d", argc);
    return image.GetDimSize(argc);
}

/// Settled: the height comes first.
DataItem SetDimSizesVerb(Image& image, int argc, SafeValue const* argv)
{
    unsigned int sizes[] = {image.width(), image.height()};
    if (argc > 0)
        sizes[1] = static_cast<unsigned int>(argv[0].GetInt());
    if (argc > 1)
        sizes[0] = static_cast<unsigned int>(argv[1].GetInt());
    image.ChangeDimSizes(sizes, 2);
    return 1;
}

DataItem TransposeVerb(Image& image, int, SafeValue const*)
{
    return image.Transposed();
}

/// What an image of a class can't be with pixels of another type, it stops being.
DataItem ElemTypeNotice(Image& image, int argc, SafeValue const* argv)
{
    auto const type = argc > 0 ? static_cast<DataType>(argv[0].GetInt()) : Vector::NoType;
    if (Vector::IsObject(type))
        Raise(err_precondition, "Cannot change image pixel type to: %s", TypeToString(type));
    // The vector calls this verb before it changes type, as it does not know the classes. So
    // there is never a mask of floats in between.
    bool const drops = (image.Type() == Image::mask && type != Vector::Byte) ||
                       (image.Type() == Image::stencil && type != Vector::UnsignedShort &&
                        type != Vector::UnsignedInt);
    if (argc > 0 && drops)
        image.DoSetLgType(Image::data);
    return {};
}

constexpr KeyTable image_verbs{std::to_array<Verb<Image>>({
    {"GetRank", 0, GetRankVerb},
    {"GetDimSize", 0, GetDimSizeVerb},
    {"SetDimSizes", 0, SetDimSizesVerb},
    {"Transpose", 0, TransposeVerb},
})};

bool IsFullList(safestring const& key)
{
    return key.empty() || key == "!";
}

/// The lists that an image puts ahead of those of vectors.
safestring ImageList(Image const& image, bool full)
{
    safestring list;
    if (image.Type() == Image::mask || image.Type() == Image::stencil)
        list += "vector,";
    if (image.Type() == Image::stencil)
        list += "itemcount,";
    list += full ? "width,height,bpp,layercount,type,%edgewidth," : "width,height,bpp,";
    return list;
}

} // namespace

DataItem Image::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (auto const* row = image_keys.Find(key); row && row->read)
        return ReadKey(*row, *this, handler);
    if (IsFullList(key) || key == "*")
        return ImageList(*this, key != "*") + Vector::ResolveSubItem(key, handler).GetString();
    // A leading underscore asks for the raw value. It stays ahead of the index, for the vector to
    // read.
    std::size_t const raw = key[0] == '_' ? 1 : 0;
    Coordinates const point = ReadCoordinates(key.c_str() + raw, key.size() - raw);
    // Settled: a column beyond the width runs on into the next row. A write is refused there.
    if (point.count == 2) {
        safestring index(raw, '_');
        index += IndexKey(point, width(), 0);
        return Vector::ResolveSubItem(index, handler);
    }
    return Vector::ResolveSubItem(key, handler);
}

bool Image::DoSetSubItem(safestring const& key, SafeValue const& value, safestring const& full_path,
                         ThrowHandlerFunc handler)
{
    if (auto const* const row = image_keys.Find(key); row && row->write)
        return row->write(*this, value, handler);
    // Unlike a read, a write also takes blanks and fractions.
    auto const comma = key.find(',');
    if (comma != safestring::npos) {
        safestring x = key.substr(0, comma), y = key.substr(comma + 1);
        apply_trim(x);
        apply_trim(y);
        if (is_numeric(x) && is_numeric(y))
            return SetPixel(x, y, value, handler);
    }
    return Vector::DoSetSubItem(key, value, full_path, handler);
}

bool Image::SetPixel(safestring const& x, safestring const& y, SafeValue const& value,
                     ThrowHandlerFunc handler)
{
    double const column = StrToDouble(x);
    double const row = StrToDouble(y);
    // Worded as what must hold, so that NaN is refused too.
    if (!(column >= 0 && column < width() && row >= 0 && row < height())) {
        Report(handler, err_kind, "Pixel out of image borders: [%d, %d]", TruncToInt(column),
               TruncToInt(row));
        return false;
    }
    SetPixel(static_cast<unsigned int>(column) + static_cast<unsigned int>(row) * width(), value);
    return true;
}

/// Store a pixel; a stencil counts at least as many objects as its greatest pixel says.
///
/// The cached maximum stays in step, so that a row of writes does not look at all pixels each time.
void Image::SetPixel(unsigned int index, SafeValue const& value)
{
    bool const counts = Type() == stencil;
    DataItem greatest;
    double before = 0;
    if (counts) {
        GetStencilCount(); // records the maximum ahead of the write
        ExistsSecondaryItem(key_max, greatest);
        before = Elem(index);
    }
    // Settled: an integer is stored raw, a fraction is cooked and divided by the factor. A double
    // would not hold all of 64 bits either.
    if (value.GetType() == it_int || value.GetType() == it_int64)
        SetInteger(*this, index, value.GetInt64());
    else
        SetElem(index, value.GetFloating());
    if (!counts)
        return;
    double const now = Elem(index);
    if (greatest.IsDefined()) {
        bool const as_int = !IsInSet<FloatTypes>(ElemType()) && now <= 0x7FFFFFFF;
        // The write has dropped the cache. The maximum can be put back unless the pixel that had it
        // became smaller; then only a pass finds the next one.
        if (now >= greatest.GetDouble())
            SetSecondaryItem(key_max, as_int ? DataItem(TruncToInt(now)) : DataItem(now));
        else if (before < greatest.GetDouble())
            SetSecondaryItem(key_max, greatest);
    }
    // Records the count again where the new label is above it.
    GetStencilCount();
}

DataItem Image::DoVerb(char const* verb, int argc, SafeValue* argv)
{
    if (auto const* row = image_verbs.Find(verb))
        return row->run(*this, argc, argv);
    // Goes on to the vector, which has its own part in the change.
    if (SameName(verb, "notif_elmtyp_chng"))
        ElemTypeNotice(*this, argc, argv);
    return Vector::DoVerb(verb, argc, argv);
}

} // namespace NKelmic
