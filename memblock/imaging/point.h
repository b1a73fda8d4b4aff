#ifndef MEMBLOCK_IMAGING_POINT_H
#define MEMBLOCK_IMAGING_POINT_H

#include <memblock/imaging/indexvector.h>

namespace NKelmic {

/// A position in some array: one Int element a coordinate, x first, and what is known of the array.
/// The number of coordinates never changes.
class MEMBLOCK_API Point final : public Vector {
public:
    static char const* StaticClass() { return "point"; }
    static constexpr char const* refusal_to_resize = "Cannot resize a point";

    explicit Point(int rank);              ///< all coordinates 0, nothing known of the array
    static DerivedPointer<Point> Create(); ///< (0, 0)
    static DerivedPointer<Point> Create(int x, int y);
    static DerivedPointer<Point> Create(int const* coords, int rank);
    /// Throws: "Target is not an image" unless the target has two dimensions.
    static DerivedPointer<Point> Create(int x, int y, IndexVector::TargetData const& target);
    /// Split an element number of the target into coordinates.
    ///
    /// Throws: "Target of a point is empty: %s" if one of its sizes is 0.
    static DerivedPointer<Point> Create(unsigned int index, IndexVector::TargetData const& target);

    char const* Class() const override;
    bool Conforms(char const*) const override;
    bool Entertain(MemBlockVisitor&, safestring const& path, entertainmode_t) override;
    char const* ClassDescription() const override;

protected:
    PMemBlock DoClone(int mode) const override;
    bool DoSetSubItem(safestring const&, SafeValue const&, safestring const&,
                      ThrowHandlerFunc) override;
    safestring DoGetDescription() const override;

public:
    DataItem ResolveSubItem(safestring const&, ThrowHandlerFunc) const override;
    /// Throws "Cannot resize a point" for another length, as does each edit that needs one.
    void ResizeVector(unsigned long n, bool keep, bool init) override;

protected:
    DerivedPointer<Vector> DoCloneSlice(unsigned int from, unsigned int to) const override;

private:
    Point(Point const&) = default;
    IndexVector::TargetData target_;
};

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_POINT_H
