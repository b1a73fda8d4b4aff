#ifndef MEMBLOCK_IMAGING_REGION_H
#define MEMBLOCK_IMAGING_REGION_H

#include <memblock/imaging/indexvector.h>

#include <array>

namespace NKelmic {

class RegionBase;

/// What distinguishes one class of regions from the others: a row each.
struct RegionKind {
    char const* description;       ///< of an object: width, height, the form that is current
    char const* no_image;          ///< what is wrong where the pixels are in no image
    char const* keys;              ///< the list of its own keys
    int image_type;                ///< the logical class of the image form
    std::array<int, 2> pixel_size; ///< bytes, either of them
    char const* wrong_pixels;      ///< what is wrong with pixels of another size
    char const* vector_class;      ///< the class of the vector form
    int vector_type;               ///< the logical class of the vector form, or 0 for any
    DerivedPointer<RegionBase> (*create)(); ///< an object without a form
    bool (*is_vector)(PMemBlock const& source);
    PMemBlock (*vector_of)(PMemBlock const& content); ///< the vector form; throws for no vector
    PMemBlock (*trace)(Image const& image);           ///< the vector form of an image form
    /// The list of pixels in a vector form; null where a write by key has put something else there.
    DerivedPointer<IndexVector> (*pixels_of)(IndexVector const& vector);
};

/// What `Mask` and `Stencil` share: a region of an image that does not care how it is stored.
///
/// It holds an image form, one value a pixel, or a vector form, a list of pixel numbers, or both;
/// the one that is missing is made when it is first asked for, also in a const object. While there
/// is a vector form it is the current one: what is set goes to it, and it is what is written.
/// Settled: the image form keeps what it had until the next `SetContent`, as scripts hold on to it.
class MEMBLOCK_API RegionBase : public MemBlock {
public:
    bool Conforms(char const*) const override; ///< the own class name
    /// A walk that starts here passes through to the current form. One that has
    /// visited the region already, as a child or in a traversal, gets the forms that are stored as
    /// children of it, "vector" and "image", and may replace them.
    bool Entertain(MemBlockVisitor&, safestring const& path, entertainmode_t) override;
    bool AddConvertArg(safestring const&, DataItem const&, ConvertOptions&,
                       ThrowHandlerFunc) const override;
    /// Make the object's own class of a form, in the representation that the options ask for:
    /// "vector" by default, "image", or the class name. Null for other sources.
    PMemBlock ConvertFrom(PMemBlock source, ConvertOptions const&) const override;
    PMemBlock ConvertTo(safestring const& classname) const override;
    bool Consistent(safestring& message, bool deep) const override;
    /// By the vector forms if both have one, otherwise by the images.
    bool Equals(MemBlock const&) const override;
    DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc) const override;

    /// The forms. They stay the object's own: a second call gives the same one.
    DerivedPointer<Image> GetImageRepr() const;
    DerivedPointer<IndexVector> GetVectorRepr() const;
    /// Size and description of the image that the region is in; nothing where a key has made
    /// something else of the vector form.
    IndexVector::TargetData GetTargetData() const;

protected:
    RegionBase() = default;
    RegionBase(RegionBase const&) = default;
    PMemBlock DoClone(int mode) const override;
    bool DoSetSubItem(safestring const&, SafeValue const&, safestring const&,
                      ThrowHandlerFunc) override;
    safestring DoGetDescription() const override;
    void DoSerialize(int format, SerializeVisitor&, safestring const& path, Formatter const&,
                     safestring& output) const override;

    /// Set one of the two forms; the other one goes. Throws, with nothing changed, what
    /// `RegionKind::vector_of` throws for a content that is neither.
    void SetContent_(PMemBlock content);
    /// Make an image the image form, as one of `lg_type`; the vector form goes.
    void TakeImage(PMemBlock image, int lg_type);
    /// Make a vector the vector form; the image form goes.
    void TakeVector(PMemBlock vector);
    PMemBlock const& ImageForm() const { return image_; }
    PMemBlock const& VectorForm() const { return vector_; }

private:
    virtual RegionKind const& Kind() const = 0;
    friend class DerivedPointer<RegionBase>;
    static char const* StaticClass() { return "region"; }

    /// The form that reads and writes go to: a vector form that is there comes first.
    PMemBlock const& Current() const { return vector_ ? vector_ : image_; }

    mutable PMemBlock image_, vector_;
};

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_REGION_H
