#ifndef MEMBLOCK_IMAGING_NUMRANGE_H
#define MEMBLOCK_IMAGING_NUMRANGE_H

#include <memblock/vector/vector.h>

namespace NKelmic {

/// A range of integers, with which scripts index: two Int elements, begin and end, and whether the
/// end itself is left out.
class MEMBLOCK_API NumRange final : public Vector {
public:
    static char const* StaticClass() { return "numrange"; }

    NumRange(int begin, int end);             ///< with the end
    static DerivedPointer<NumRange> Create(); ///< 0..0
    static DerivedPointer<NumRange> Create(int begin, int end);
    static DerivedPointer<NumRange> Create(int begin, int end, bool exclusive);

    char const* Class() const override;
    bool Conforms(char const*) const override;
    DataItem DoVerb(char const*, int argc, SafeValue* argv) override;
    char const* ClassDescription() const override;

protected:
    PMemBlock DoClone(int mode) const override;
    safestring DoGetDescription() const override;

public:
    DataItem ResolveSubItem(safestring const&, ThrowHandlerFunc) const override;

    bool Exclusive() const { return exclusive_ != 0; }
    int Begin() const { return At(0); } ///< 0 if there is no such element, here and below
    int End() const { return At(1); }
    /// All integers of the range, as Int; none if it runs backwards.
    ///
    /// Throws: 256 "Too many numbers in the range: %s" for more than 2^28.
    DerivedPointer<Vector> Exploded() const;

protected:
    DerivedPointer<Vector> DoCloneSlice(unsigned int from, unsigned int to) const override;

private:
    NumRange(NumRange const&) = default;
    int At(unsigned int i) const;
    unsigned char exclusive_ = 0;
};

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_NUMRANGE_H
