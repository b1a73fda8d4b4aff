#include <memblock/imaging/image.h>

#include <memblock/base/number.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/core/subitem_internal.h>
#include <memblock/imaging/shape_internal.h>
#include <memblock/vector/elemtypechange_internal.h>
#include <memblock/vector/summary.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <limits>

namespace NKelmic {

namespace {

struct ClassWord {
    char const* text;
    Image::logic_class_t type;
};

constexpr ClassWord class_words[] = {{"data", Image::data},
                                     {"visual", Image::visual},
                                     {"mask", Image::mask},
                                     {"stencil", Image::stencil}};

ClassWord const* FindClassWord(safestring const& text)
{
    for (ClassWord const& word : class_words)
        if (SameName(word.text, text.c_str()))
            return &word;
    return nullptr;
}

unsigned long PixelCount(unsigned int w, unsigned int h)
{
    unsigned int const sizes[] = {w, h};
    return ShapeLength(sizes, 2);
}

} // namespace

Image::Image(TypedChunk const& chunk, unsigned int w, unsigned int h, double factor)
    : GeomBlock(chunk, {w, h}, factor)
{
}

Image::Image(Image const& o) : GeomBlock(o)
{
    int count = 0;
    // A copied buffer has no cached values of its own. The count must go with it: the number of
    // objects may be larger than the greatest label, and no pass over the pixels finds that again.
    if (o.Type() == stencil && o.RecordedStencilCount(count))
        RecordStencilCount(count);
}

DerivedPointer<Image> Image::Create(unsigned int w, unsigned int h, DataType type, double factor)
{
    return DerivedPointer<Image>(new Image(NewChunk(PixelCount(w, h), type), w, h, factor));
}

DerivedPointer<Image> Image::Create(void* mem, void (*release)(void*), unsigned int w,
                                    unsigned int h, DataType type, double factor)
{
    TypedChunk const chunk = ForeignChunk(PixelCount(w, h), type, mem, 0, release);
    return DerivedPointer<Image>(new Image(chunk, w, h, factor));
}

DerivedPointer<Image> Image::Create(TypedChunk const& chunk, unsigned int w, unsigned int h,
                                    double factor)
{
    // Checked before the image exists: sizes whose product overflows would pass as a small length.
    PixelCount(w, h);
    DerivedPointer<Image> image(new Image(chunk, w, h, factor));
    image->FitLength();
    return image;
}

char const* Image::Class() const
{
    return StaticClass();
}

bool Image::Conforms(char const* classname) const
{
    if (SameName(classname, "image"))
        return true;
    if (SameName(classname, "color_data"))
        return ElemType() == Triple;
    // Mask and stencil are also classes of their own. An image that holds the same content may be
    // used in their place.
    if (SameName(classname, "stencil"))
        return Type() == stencil;
    if (SameName(classname, "mask"))
        return Type() == mask;
    return Vector::Conforms(classname);
}

char const* Image::ClassDescription() const
{
    return "Image - encapsulates a 2-dimensional array of pixels.\n"
           "Derived from: Vector\n"
           "Subkeys:\n"
           "\twidth - return the width of the image in pixels\n"
           "\theight - return the height of the image in pixels\n"
           "\tbpp - return the bit depth of the image\n"
           "\tlayercount - return the number of (color) layers per pixel\n"
           "\t[x,y] - return cooked pixel value by zero-based coordinates. (0,0) is top left "
           "corner.\n"
           "\t[_x,y] - return raw pixel value\n"
           "Invariants:\n"
           "\twidth*height == length\n"
           "\telemsize*8 >= bpp\n"
           "\tlayercount==1 OR layercount==elemsize\n";
}

safestring Image::DoGetDescription() const
{
    unsigned int const bits = 8 * ElemSize();
    switch (LgType()) {
    case visual:
        return ElemType() == Triple
                   ? Text("Visual color image %dx%d", width(), height())
                   : Text("Visual greyscale image %dx%d, %d bpp", width(), height(), bits);
    case mask:
        return Text("Mask for %dx%d images, in image representation.", width(), height());
    case stencil:
        // The count, not the maximum: scripts print the description to say how many objects there
        // are.
        return Text("Stencil of %d objects for %dx%d images, in image representation.",
                    GetStencilCount(), width(), height());
    default:
        return Text("Data image %dx%d, %dbpp (%s), raw factor %s", width(), height(), bits,
                    TypeToString(ElemType()), str(Factor(), 6));
    }
}

safestring Image::LgType2String(int lg_type) const
{
    for (ClassWord const& word : class_words)
        if (word.type == lg_type)
            return word.text;
    return MemBlock::LgType2String(lg_type);
}

int Image::String2LgType(safestring const& text)
{
    if (ClassWord const* word = FindClassWord(text))
        return word->type;
    return MemBlock::String2LgType(text);
}

Image::logic_class_t Image::String2Type(safestring const& text)
{
    if (ClassWord const* word = FindClassWord(text))
        return word->type;
    if (text == "default") // the word that every class of objects knows
        return data;
    Raise(err_precondition,
          "Not a valid image type: \"%s\" (allowed values: \"data\", \"visual\", \"mask\", "
          "\"stencil\")",
          text);
}

PMemBlock Image::DoClone(int mode) const
{
    DerivedPointer<Image> copy(new Image(*this));
    copy->FinishClone(mode);
    return copy;
}

bool Image::Equals(MemBlock const& other) const
{
    auto const* o = dynamic_cast<Image const*>(&other);
    // Two stencils with the same pixels differ if one of them counts more objects: empty ones at
    // the end count, too.
    return o && Vector::Equals(other) && GetEdgeWidth() == o->GetEdgeWidth() &&
           LgType() == o->LgType() &&
           (Type() != stencil || GetStencilCount() == o->GetStencilCount());
}

bool Image::Consistent(safestring& message, bool deep) const
{
    if (static_cast<unsigned long>(width()) * height() != Length()) {
        message += Text("Image dimensions %dx%d do not match base class vector length (%d).",
                        width(), height(), Length());
        return false;
    }
    if (SizeOf(ElemType()) != ElemSize()) {
        message += "bpp  and element size do not match.";
        return false;
    }
    int const edge = GetEdgeWidth();
    // An edge of more than half the size leaves no pixel inside.
    if (edge < 0 || static_cast<unsigned int>(edge) > width() / 2 ||
        static_cast<unsigned int>(edge) > height() / 2) {
        message += Text("Edgewidth %d not valid for %dx%d image. ", edge, width(), height());
        return false;
    }
    if (Type() == stencil) {
        int count = 0;
        if (!RecordedStencilCount(count)) {
            message += "Image of stencil logical type does not have stencilcount recorded.\n";
            return false;
        }
        // A label above the count would be in no list of objects.
        if (int const greatest = RawMaximum(); greatest > count) {
            message += Text("Stencilcount of an image-type stencil (%d) is less than the max pixel "
                            "value: %d",
                            count, greatest);
            return false;
        }
    }
    return Vector::Consistent(message, deep);
}

// ---- what an image records of itself -----------------------------------------------------------

int Image::GetEdgeWidth() const
{
    int width = 0;
    // Most images record nothing. Asking for the cache would make one for each of them.
    return PimplIfAny() && ExistsSecondaryInt(key_edge_width, width) ? width : 0;
}

void Image::SetEdgeWidth(int width)
{
    SetSecondaryItem(key_edge_width, DataItem(width));
}

bool Image::RecordedStencilCount(int& n) const
{
    return PimplIfAny() && ExistsSecondaryInt(key_stencil_count, n);
}

void Image::RecordStencilCount(int n)
{
    SetSecondaryItem(key_stencil_count, DataItem(n));
}

/// The greatest pixel as an int, cut to its range; 0 where there is none.
int Image::RawMaximum() const
{
    if (Length() == 0 || !IsInSet<NumericTypes>(ElemType()))
        return 0;
    using limits = std::numeric_limits<int>;
    double const greatest = SecondaryDouble(key_max, throw_always);
    // Labels above the range of int exist in images of 32 bits without sign. Cut to the range they
    // still count as too many, as a negative number would not.
    if (greatest >= limits::max())
        return limits::max();
    return greatest != greatest ? 0 : TruncToInt(greatest); // NaN: no pixel is a number
}

void Image::SetStencilCount(int n, ThrowHandlerFunc handler)
{
    // The count is part of the hash, but setting it changes no pixel: the other cached values stay.
    DropHashes(*this);
    if (n >= 0)
        return RecordStencilCount(n);
    // A negative number asks for the count to be forgotten. A stencil may not be without one, so it
    // falls back to the greatest label.
    if (Type() == stencil) {
        if (SecondaryItem(key_max, handler).IsDefined())
            RecordStencilCount(RawMaximum());
    } else if (PimplIfAny()) {
        SetSecondaryItem(key_stencil_count, DataItem());
    }
}

int Image::GetStencilCount() const
{
    int const greatest = RawMaximum();
    int count = 0;
    // Pixels may have been written since the count was recorded. A count that is too small is
    // replaced, one that is too large is right.
    bool const recorded = RecordedStencilCount(count);
    if (recorded && count >= greatest)
        return count;
    if (Type() == stencil)
        SetSecondaryItem(key_stencil_count, DataItem(greatest));
    return greatest;
}

} // namespace NKelmic
