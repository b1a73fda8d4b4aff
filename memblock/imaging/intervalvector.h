#ifndef MEMBLOCK_IMAGING_INTERVALVECTOR_H
#define MEMBLOCK_IMAGING_INTERVALVECTOR_H

#include <memblock/imaging/indexvector.h>

#include <vector>

namespace NKelmic {

/// How a script index is meant. The words belong to the macro engine.
enum rangespec_t { rangespec_any = 0 };

/// For each of a list of objects a varying number of items: its pixels, its sub-objects, numbers.
///
/// The payload is an array of interval limits, in elements of the target: a vector of values, an
/// index vector of pixels, or another interval vector, whose intervals are then the items. Two
/// forms of the limits answer everything alike:
///
/// - contiguous: `IntervalCount() + 1` limits, interval k runs from limit k to limit k + 1;
/// - separate ends: an array of starts and one of ends. Intervals may come in any order, overlap
///   or leave gaps. Only this form can be permuted.
///
/// The payload, as `Length` and the pointers know it, is the first array of the form. What computes
/// on elements, and what scripts read as elements, are the limits of the contiguous form, into
/// which separate ends are packed aside. So an edit by elements (`Erase`, `Insert`, `SetElem`,
/// `Fill`, `ShiftVector`, `ResizeVector`, `SetTypedChunk`, `UseMemoryOf` and the like) moves limits
/// and ends in the contiguous form, while `Rearrange`, `SetIntervalCount`, `Append` and
/// `CloneSlice` go by intervals.
///
/// Limits are not checked when they are stored, as files and scripts bring them piece by piece;
/// whatever reads through them stays inside the target. Objects are numbered from 1 by base 1
/// (`Start(1)[1]` is the first limit), from 0 by base 0.
///
/// Errors raised here carry code 128 unless another is given.
class MEMBLOCK_API IntervalVector : public IndexVector {
public:
    /// What the structure means; it follows from the target, see `DetectType`.
    enum logic_class_t {
        stencil = 23,         ///< objects of pixels: over an index vector into an image
        subobj = 24,          ///< objects of zones of pixels: over an interval vector
        subnum = 25,          ///< objects of numbers: over a plain vector
        datacubestencil = 28, ///< objects of voxels: over an index vector into a cube
        vectorstencil = 29    ///< sets of elements: over an index vector into a vector
    };
    static char const* StaticClass() { return "intervalvector"; }

    // ---- Creation. `base` cells ahead of the first limit are skipped in the given arrays, so that
    // object 1 may be in cell 1; `release` gives each array back.

    /// Without objects, over an empty index vector.
    static DerivedPointer<IntervalVector> Create();
    /// Empty intervals at 0.
    static DerivedPointer<IntervalVector> Create(unsigned int count, DerivedPointer<Vector> target);
    /// Contiguous: `start` holds base + count + 1 cells.
    static DerivedPointer<IntervalVector> Create(unsigned int count, unsigned int base,
                                                 unsigned int* start, void (*release)(void*),
                                                 DerivedPointer<Vector> target);
    /// Separate ends: both arrays hold base + count cells.
    static DerivedPointer<IntervalVector> Create(unsigned int count, unsigned int base,
                                                 unsigned int* start, unsigned int* end,
                                                 void (*release)(void*),
                                                 DerivedPointer<Vector> target);
    /// The same number of intervals over another target, sharing the array of starts.
    static DerivedPointer<IntervalVector> CreateBySample(DerivedPointer<IntervalVector> sample,
                                                         DerivedPointer<Vector> target);
    /// Put the values of `n` rows side by side: a "subnum" of T elements.
    template <class T>
    static DerivedPointer<IntervalVector> CreateFromStdVectors(unsigned int n,
                                                               std::vector<T> const* rows);
    /// The same for pixel numbers of a target.
    static DerivedPointer<IntervalVector>
    CreateFromStdVectors(unsigned int n, std::vector<unsigned int> const* rows, TargetData const&);
    /// The same for a PMemory vector of vectors, whose elements are converted to `type`.
    /// Throws: "Element %d of input vector is not a vector: %s", "Type of vector element %d not
    /// supported: %s".
    static DerivedPointer<IntervalVector> CreateFromVectorOfVectors(DerivedPointer<Vector> rows,
                                                                    DataType type);
    static DerivedPointer<IntervalVector> CreateFromVectorOfVectors(DerivedPointer<Vector> rows,
                                                                    TargetData const&);
    /// A null `end` makes the contiguous form. Throws: "Created Intervalvector without target.".
    IntervalVector(unsigned int count, unsigned int base, unsigned int* start, unsigned int* end,
                   void (*release)(void*), PMemBlock target);

    // ---- MemBlock and Vector

    char const* Class() const override;
    /// "intervalvector" and "indexvector"; "stencil" for logical class 23.
    bool Conforms(char const*) const override;
    bool Entertain(MemBlockVisitor&, safestring const&, entertainmode_t) override;
    DataItem DoVerb(char const*, int, SafeValue*) override;
    PMemBlock ConvertTo(safestring const&) const override;
    bool Consistent(safestring&, bool deep) const override;
    safestring LgType2String(int) const override;
    int String2LgType(safestring const&) override;
    /// '&', '|' and '^' combine the pixels of each object with those of the object of the same
    /// number, ascending; '&' with an image keeps the pixels that are not 0 there. 'p' computes on
    /// the numbers of a "subnum" and keeps the grouping. All others compute on the limits.
    PMemBlock op(char, PMemBlock, op_options const&) const override;
    /// Equal limits over equal targets. Separate ends compare as the contiguous form does.
    bool Equals(MemBlock const&) const override;
    DataItem ResolveSubItem(safestring const&, ThrowHandlerFunc) const override;
    /// Make the structure fit another logical class, see `RebuildAs`.
    void DoSetLgType(int) override;
    /// Keep `n` limits, of n - 1 intervals, in either form; 0 counts as 1. If it throws, nothing
    /// has changed.
    void ResizeVector(unsigned long n, bool keep, bool init) override;
    /// Permutes the intervals; the target is left alone, so this ends in separate ends.
    void Rearrange(int const* order, unsigned int n, unsigned int newcount,
                   ThrowHandlerFunc) override;
    /// Add the objects of another structure of the same kind behind those of this one.
    /// Throws: "Cannot append %s to %s", "Incompatible targets: %s AND %s".
    void Append(DerivedPointer<Vector>) override;
    /// Draw the objects: pixel value k for object k; where two claim a pixel the later one wins.
    ///
    /// A stencil image of 16 bits up to 32000 objects, of 32 bits above. Pixels outside of the
    /// image are left out. Throws: "IntervalVector::GetMaskImage(): Unsupported data type (only
    /// 2-level arrays supported): %s", "IndexVector target is not an image: %s",
    /// "IntervalVector::GetMaskImage(): Invalid interval for cell %d: [%d..%d]: %s".
    DerivedPointer<Image> GetMaskImage() const override;
    void GetImageDimensions(unsigned int& w, unsigned int& h, ThrowHandlerFunc) const override;

    // ---- Intervals

    unsigned int IntervalCount() const { return IntervalCount_; }
    /// Throws: "IntervalVector::SetIntervalCount(): buffer too small" for more than there are.
    void SetIntervalCount(unsigned int n);
    bool HasEndArray() const { return static_cast<bool>(EndArray_); }
    /// The limits: `Start(b)[b + k]` and `End(b)[b + k]` are those of interval k. The forms that
    /// are not const make what they point to private first.
    /// Throws: "Cannot cast data to UnsignedInt type: %s".
    unsigned int* Start(int base);
    unsigned int const* Start(int base) const;
    unsigned int* End(int base);
    unsigned int const* End(int base) const;
    /// The limits of the contiguous form, `IntervalCount() + 1` of them. With separate ends: null,
    /// or with `reformat` what `Reformat` makes of them, also in a const object: it compares and
    /// hashes as before, but has another target. No other reader changes anything. Throws: 4608
    /// "Could not reformat indexvector (code %d): %s".
    unsigned int* StartAndEnd(int base, bool sorted, bool reformat, unsigned short** shortindices);
    unsigned int const* StartAndEnd(int base, bool sorted, bool reformat,
                                    unsigned short** shortindices) const;
    void EnsureStartAndEnd() const;
    void AddEndArray(); ///< go over to separate ends
    /// Pack separate ends into the contiguous form. Where each interval begins at the end of the
    /// one before it the limits and the target stay. Otherwise the target gets a copy of what each
    /// interval holds, in interval order, or with `sorted` in order of the starts, by which the
    /// intervals are then numbered. Returns 0.
    ///
    /// shortindices: gets a block, to be freed by `mb_free`, with the number from 1 of the
    /// interval for each element of the new target; null to do without.
    /// Throws, with nothing changed: 4096 "Too many objects, cannot reformat data; ..." where 16
    /// bits can't number them; "Function return start_and_end_tmpl2 not implemented for data type
    /// '%s'".
    int Reformat(bool sorted, unsigned short** shortindices);

    // ---- Target and structure

    PMemBlock const& Target() const { return Target_; }
    /// Throws, with nothing changed: "Target too short (%d), must be >=%d: %s".
    void SetTarget(DerivedPointer<Vector>);
    /// The same for a target that may be too short by now: keys bring a structure piece by piece,
    /// and its limits may come first. Throws, with nothing changed, as `DetectType` does.
    void ReplaceTarget(PMemBlock const& target);
    /// The target to be written to: made private first, so that its other owners keep theirs.
    DerivedPointer<Vector> OwnTarget();
    /// Throws: 512 "IndexVector::IndexVectorTarget(): Target of is not an indexvector: " with the
    /// description. Settled: the gap in the text is part of it.
    DerivedPointer<IndexVector> IndexVectorTarget();
    DerivedPointer<IndexVector> IndexVectorTarget() const;
    /// The innermost index vector below all layers, or null.
    DerivedPointer<IndexVector> GetFinalIndexVectorTarget() const;
    /// Round a script index half away from zero.
    int ConvertIndex(double value, rangespec_t) const;
    /// The logical class that the structure has.
    /// Throws: "Created Intervalvector without target.", "Attempt to construct unsupported
    /// IntervalVector type: %s".
    int DetectType() const;
    void UpdateType(); ///< set the logical class to `DetectType`, in all layers
    /// Give the structure the target of another logical class; where the present target can't be
    /// adapted it is replaced by an empty one, or for "subnum" and "subobj" by as many zeros or
    /// empty zones as the limits ask for. Zones hold pixels: numbers go. Only the keys "type" and
    /// "@type" keep them as the innermost layer, as the layers of a file come in any order.
    /// Throws: "Cannot adapt IntervalVector structure to type %d (%s): %s".
    void RebuildAs(logic_class_t);
    /// 30 words by logical class, null where there is none.
    static char const* const* logic_list();
    static safestring logic2string(logic_class_t); ///< "No such IntervalVector logic class: %d"
    static logic_class_t
    string2logic(safestring const&); ///< "Unrecognized intervalvector logic type: %s"

    // ---- Derived structures

    /// The columns ('x') or rows ('y') of all pixels, as a "subnum".
    /// Throws: "IntervalVector::GetXYVector(): invalid parameter: %c", "Cannot apply .%c subkey
    /// to: %s".
    DerivedPointer<IntervalVector> GetXYVector(char c) const;
    /// Two layers of three: each object lists the pixels of all its zones.
    DerivedPointer<IntervalVector> MergedTarget() const;
    /// All values in interval order.
    /// Throws: "IntervalVector::MergedVector(): target not supported: %s".
    DerivedPointer<Vector> MergedVector() const;
    /// All pixels in interval order.
    /// Throws: "Intervalvector target not supported: %s".
    DerivedPointer<IndexVector> MergedIndexVector() const;

protected:
    IntervalVector(IntervalVector const&);
    PMemBlock DoClone(int mode) const override;
    bool DoSetSubItem(safestring const&, SafeValue const&, safestring const&,
                      ThrowHandlerFunc) override;
    safestring DoGetDescription() const override;
    /// Intervals `from` up to, not including, `to`, over the same target.
    DerivedPointer<Vector> DoCloneSlice(unsigned int from, unsigned int to) const override;
    /// Put limits and a target in place of the present ones: the last step of each change.
    ///
    /// starts: with null `ends` the limits of the contiguous form, otherwise a start an interval.
    /// ends: a vector of as many unsigned int. Nothing is checked. Fails only for lack of memory,
    /// with nothing changed.
    void Commit(TypedChunk const& starts, PMemBlock ends, PMemBlock target);

private:
    /// The hook by which an edit of elements, in `Vector`, commits what it did to packed limits.
    friend void TakePacked(Vector& v, Vector const& packed);

    /// The start of interval k; for k = `IntervalCount()` the limit behind the last interval.
    unsigned int LimitAt(unsigned int k) const;
    /// The ends of intervals `from` up to `to`, as `EndArray_` holds them.
    PMemBlock EndsOf(unsigned int from, unsigned int to) const;
    /// Offer the array of ends as a child.
    bool EntertainEnds(MemBlockVisitor&, safestring const& path, entertainmode_t);

    unsigned int IntervalCount_ = 0;
    PMemBlock EndArray_; // unsigned int elements, as many as intervals; null: contiguous
    PMemBlock unused_;   // for the layout: plug-ins are built against it
    PMemBlock Target_;
};

/// The number of sub-objects that the intervals of a zone structure reach.
MEMBLOCK_API unsigned int CountAccessibleSubObjects(IntervalVector const&);
/// The set operation '&', '|' or '^' on two lists, as the standard algorithms do it on sorted
/// ranges. Returns the count in `out`, which has room for both lists together; the work buffers
/// hold na and nb numbers, and are used for a list that is not sorted.
/// Throws: 4096 "IntervalVector::op(): operation not supported: \"%c\"".
MEMBLOCK_API int intvecop(char op, int const* a, int na, int const* b, int nb, int* out, int* worka,
                          int* workb);
/// Keep of each object the pixels that are not 0 in an image of 8 or 16 bits, in their order.
/// Throws: "Image type not supported: %s".
MEMBLOCK_API DerivedPointer<IntervalVector> intvecimageand(DerivedPointer<IntervalVector>,
                                                           DerivedPointer<Image>);
/// Copy the indices whose pixel is not 0; `out` has room for n. Returns their count.
template <class T>
MEMBLOCK_API unsigned int intvecimageand_tmpl(unsigned int const* indices, unsigned int n,
                                              T const* pixels, unsigned long npixels,
                                              unsigned int* out);
/// Write k at the pixels of object k, for k from 1 to `count`; arrays are by base 1.
template <class T>
MEMBLOCK_API void ComposeStencilImage_tmpl(unsigned int const* start, unsigned int const* end,
                                           unsigned int count, unsigned int const* indices,
                                           unsigned int nindices, T* pixels, unsigned long npixels,
                                           IntervalVector const* v);
/// One interval for each element: an index vector, or an image, of which the mask is taken.
/// Throws: "Incompatible targets: %s AND %s", "Type of vector element %d not supported: %s".
MEMBLOCK_API DerivedPointer<IntervalVector>
pmemory_vector_to_intervalvector(DerivedPointer<Vector> objects);
/// One index vector for each interval.
MEMBLOCK_API DerivedPointer<Vector>
intervalvector_to_pmemory_vector(DerivedPointer<IntervalVector> v);
/// The address offsets that apply a kernel around a pixel of `image`: a signed-int vector, or for
/// a kernel of several objects a vector of such vectors.
/// Throws: "Unsupported image type. Function  PrepareMatrixes_f: %s", "Kernel type not
/// supported: %s".
MEMBLOCK_API DerivedPointer<Vector> PrepareMatrixes_f(DerivedPointer<Vector> image,
                                                      DerivedPointer<Vector> kernel);
/// The number of innermost elements that intervals `first` up to `last` reach.
MEMBLOCK_API unsigned int find_area_rec(DerivedPointer<IndexVector>, unsigned int first,
                                        unsigned int last);
/// Point to the pixels, the limits of the zones and the limits of the objects.
/// Throws: "Not a three-layer zone structure: %s".
MEMBLOCK_API void unpack_three_layer_const(DerivedPointer<IntervalVector> const& v,
                                           unsigned int const*& inner, unsigned int const*& medium,
                                           unsigned int const*& outer);
MEMBLOCK_API void unpack_three_layer_const(DerivedPointer<IntervalVector> const& v,
                                           int const*& inner, int const*& medium,
                                           int const*& outer);

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_INTERVALVECTOR_H
