#ifndef MEMBLOCK_IMAGING_STENCIL_H
#define MEMBLOCK_IMAGING_STENCIL_H

#include <memblock/imaging/region.h>

namespace NKelmic {

/// Which pixels of an image belong to each of numbered objects: an image of class stencil, whose
/// pixel k marks object k, or an interval vector over an index vector, whose objects may overlap.
class MEMBLOCK_API Stencil : public RegionBase {
public:
    static char const* StaticClass() { return "stencil"; }

    static DerivedPointer<Stencil> Create(); ///< without pixels, in an image of size 0
    static DerivedPointer<Stencil> Create(DerivedPointer<Vector> content);
    static DerivedPointer<Stencil> Create(PMemBlock content);

    /// Take one of the two forms; the other one is made from it on demand.
    ///
    /// An image becomes one of class stencil, on a clone unless it is handed over with its last
    /// pointer (by std::move); an interval vector must be a "stencil". Throws, with nothing
    /// changed: 128 "Invalid representation object for Stencil::SetContent(): %s".
    void SetContent(DerivedPointer<Vector> v);

    char const* Class() const override;
    char const* ClassDescription() const override;

private:
    Stencil() = default;
    RegionKind const& Kind() const override;
};

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_STENCIL_H
