#ifndef MEMBLOCK_IMAGING_MASK_H
#define MEMBLOCK_IMAGING_MASK_H

#include <memblock/imaging/region.h>

namespace NKelmic {

/// Which pixels of an image belong to one region: an image of class mask with bytes 0 and 1, or an
/// index vector.
class MEMBLOCK_API Mask : public RegionBase {
public:
    static char const* StaticClass() { return "mask"; }

    static DerivedPointer<Mask> Create(); ///< without pixels, in an image of size 0
    static DerivedPointer<Mask> Create(DerivedPointer<Vector> content);
    static DerivedPointer<Mask> Create(PMemBlock content);

    /// Take one of the two forms; the other one is made from it on demand.
    ///
    /// An image becomes one of class mask, on a clone unless it is handed over with its last
    /// pointer (by std::move); an interval vector dissolves into one region. Throws, with nothing
    /// changed: 128 "Invalid object for Mask::SetContent(): %s".
    void SetContent(DerivedPointer<Vector> v);

    char const* Class() const override;
    char const* ClassDescription() const override;

private:
    Mask() = default;
    RegionKind const& Kind() const override;
};

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_MASK_H
