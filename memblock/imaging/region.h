#ifndef MEMBLOCK_IMAGING_REGION_H
#define MEMBLOCK_IMAGING_REGION_H

#include <memblock/imaging/indexvector.h>

namespace NKelmic {

/// What `Mask` and `Stencil` share: a region of an image that does not care how it is stored.
///
/// It holds an image form, one value a pixel, or a vector form, a list of pixel numbers, or both;
/// the one that is missing is made when it is first asked for, also in a const object. While a
/// vector form is there it stands for the object: what is set or written goes to it. The other one
/// keeps what it had until the next `SetContent`; that is settled.
class MEMBLOCK_API RegionBase : public MemBlock {
public:
    bool Conforms(char const*) const override; ///< the own class name
    /// A walk that starts here passes through to the form that stands for the object. One that has
    /// visited the region already, as a child or in a traversal, gets the forms that are stored as
    /// children of it, "vector" and "image", and may replace them.
    bool Entertain(MemBlockVisitor&, safestring const& path, entertainmode_t) override;
    bool AddConvertArg(safestring const&, DataItem const&, ConvertOptions&,
                       ThrowHandlerFunc) const override;
    /// Make the object's own class of a form, in the representation that the options ask for:
    /// "vector" unless told, "image", or the class name. Null for other sources.
    PMemBlock ConvertFrom(PMemBlock source, ConvertOptions const&) const override;
    PMemBlock ConvertTo(safestring const& classname) const override;
    bool Consistent(safestring& message, bool deep) const override;
    /// By the vector forms if both have one, otherwise by the images.
    bool Equals(MemBlock const&) const override;
    DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc) const override;

    /// The forms. They stay the object's own: a second call gives the same one.
    DerivedPointer<Image> GetImageRepr() const;
    DerivedPointer<IndexVector> GetVectorRepr() const;
    /// Size and description of the image that the region lies in; nothing where a key has made
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

    /// What is said of the objects of a class.
    struct Words {
        char const* description; ///< of width, height and the form that stands for the object
        char const* no_image;    ///< of the object whose target is none
        char const* keys;        ///< the list of its own keys
    };
    /// Take an image as image form, made one of `lg_type` first; the vector form goes.
    void TakeImage(PMemBlock image, int lg_type);
    /// Take a vector form; the image form goes.
    void TakeVector(PMemBlock vector);
    PMemBlock const& ImageForm() const { return image_; }
    PMemBlock const& VectorForm() const { return vector_; }

private:
    virtual DerivedPointer<RegionBase> New() const = 0; ///< of this class, holding nothing
    virtual void Take(PMemBlock content) = 0;           ///< `SetContent`
    virtual bool IsSource(PMemBlock const& source) const = 0;
    virtual PMemBlock MakeVector(Image const& image) const = 0;
    /// The list of pixels in a vector form; null where a write by key has put something else there.
    virtual DerivedPointer<IndexVector> PixelsOf(IndexVector const& vector) const = 0;
    virtual Words const& Told() const = 0;
    /// Tell what is wrong with the forms as this class sees it.
    virtual bool ImageIsFit(Image const& image, safestring& message) const = 0;
    virtual bool VectorIsFit(Vector const& vector, safestring& message) const = 0;
    friend class DerivedPointer<RegionBase>;
    static char const* StaticClass() { return "region"; }

    PMemBlock const& Standing() const { return vector_ ? vector_ : image_; }

    mutable PMemBlock image_, vector_;
};

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_REGION_H
