#ifndef MEMBLOCK_IMAGING_INDEXVECTOR_H
#define MEMBLOCK_IMAGING_INDEXVECTOR_H

#include <memblock/vector/vector.h>

#include <concepts>
#include <vector>

namespace NKelmic {

class Image;

/// Element numbers into some other array, the target: mostly the pixels of a region of an image.
///
/// It keeps no reference to the target, only a description and its dimension sizes. Elements are
/// UnsignedInt with factor 1.0. They are not range-checked here: readers check.
///
/// Errors raised here carry code 128 unless another is given.
class MEMBLOCK_API IndexVector : public Vector {
public:
    static char const* StaticClass() { return "indexvector"; }

    /// What is known of a target: a text for people, and its sizes, the fastest running one first.
    struct MEMBLOCK_API TargetData {
        safestring descr;
        std::vector<unsigned int> dims;

        TargetData() = default;
        /// With the text of `MakeDefaultIndexVectorTargetDataDescr`. Throws for a rank above 255 or
        /// below 0: "Invalid rank of a target: %d".
        TargetData(int rank, unsigned int const* dims);
        template <std::integral... D>
        requires(sizeof...(D) > 0) TargetData(int rank, D... sizes)
            : TargetData(rank, Padded(rank, {static_cast<unsigned int>(sizes)...}).data())
        {
        }

    private:
        static std::vector<unsigned int> Padded(int rank, std::vector<unsigned int> sizes);
    };

    // ---- Creation. A null target means an image of 1 by 1, unless noted otherwise.

    static DerivedPointer<IndexVector> Create(); ///< empty, into an image of 0 by 0
    static DerivedPointer<IndexVector> Create(unsigned long n, unsigned int w, unsigned int h);
    /// Sizes and description of the target are taken down.
    static DerivedPointer<IndexVector> Create(unsigned long n, DerivedPointer<Vector> target);
    static DerivedPointer<IndexVector> Create(unsigned long n, TargetData const& target);
    /// Adopt a block whose element `offset` is the first index; `release` runs once, when its last
    /// user is gone. With a target that is null nothing is known of it.
    /// Settled: of a target that is no image its description is taken and not its sizes.
    static DerivedPointer<IndexVector> Create(unsigned long n, unsigned int* data, int offset,
                                              void (*release)(void*), unsigned int w,
                                              unsigned int h);
    static DerivedPointer<IndexVector> Create(unsigned long n, unsigned int* data, int offset,
                                              void (*release)(void*),
                                              DerivedPointer<Vector> target);
    static DerivedPointer<IndexVector> Create(unsigned long n, unsigned int* data, int offset,
                                              void (*release)(void*), TargetData const& target);
    /// Take the cooked elements of a vector as indices, sharing its buffer where they are so. What
    /// is taken of a target is what the forms that adopt a block take.
    static DerivedPointer<IndexVector> Create(DerivedPointer<Vector> indices, unsigned int w,
                                              unsigned int h);
    static DerivedPointer<IndexVector> Create(DerivedPointer<Vector> indices,
                                              DerivedPointer<Vector> target);
    static DerivedPointer<IndexVector> Create(DerivedPointer<Vector> indices,
                                              TargetData const& target);

    char const* Class() const override;
    /// "indexvector"; "mask" into two dimensions, "datacubemask" into three.
    bool Conforms(char const*) const override;
    bool Entertain(MemBlockVisitor&, safestring const& path, entertainmode_t) override;
    bool AddConvertArg(safestring const&, DataItem const&, ConvertOptions&,
                       ThrowHandlerFunc) const override;
    PMemBlock ConvertFrom(PMemBlock, ConvertOptions const&) const override;
    PMemBlock ConvertTo(safestring const& classname) const override;
    /// Settled: indices beyond the target are not looked for.
    /// Elements of another type are reported as "Cannot cast data to UnsignedInt type: %s".
    bool Consistent(safestring& message, bool deep) const override;
    char const* ClassDescription() const override;

protected:
    PMemBlock DoClone(int mode) const override;
    bool DoSetSubItem(safestring const&, SafeValue const&, safestring const&,
                      ThrowHandlerFunc) override;
    safestring DoGetDescription() const override;

public:
    DataItem ResolveSubItem(safestring const&, ThrowHandlerFunc) const override;
    /// Indices stay what they are: any other type throws "Conversion not supported: %s".
    void SetElemType(DataType, bool contents, bool keep_factor) override;
    /// Throws, with nothing changed, for an index vector into other dimensions: "Incompatible
    /// targets: %s AND %s".
    void Append(DerivedPointer<Vector>) override;

    /// Draw the region as an image of class mask; indices beyond it are passed over.
    ///
    /// Throws: "This is not an IndexVector into an image : %s".
    virtual DerivedPointer<Image> GetMaskImage() const;
    /// Reports, with both sizes 0: 512 "IndexVector target is not an image, cannot return image
    /// dimensions: %s".
    virtual void GetImageDimensions(unsigned int& w, unsigned int& h, ThrowHandlerFunc) const;

    TargetData GetTargetData() const { return target_; }
    /// Throws as `TargetData` for a bad rank.
    void SetTargetData(safestring const& descr, int rank, unsigned int const* dims);
    void SetTargetData(TargetData const& target)
    {
        target_ = target;
        ContentHasBeenChanged();
    }
    void SetImageDimensions(int w, int h);
    int TargetRank() const { return static_cast<int>(target_.dims.size()); }
    unsigned int TargetDimSize(int i) const; ///< 0 outside 0 .. rank - 1
    safestring const& TargetDescr() const { return target_.descr; }
    /// The columns, or the rows, of all indices as Int. Throws 512 as `GetImageDimensions` reports,
    /// also for an image without columns.
    DerivedPointer<Vector> GetXVector() const;
    DerivedPointer<Vector> GetYVector() const;

protected:
    IndexVector(unsigned long n, unsigned int* data, int offset, void (*release)(void*));
    explicit IndexVector(Vector const&); ///< shares the payload of UnsignedInt elements
    IndexVector(IndexVector const&) = default;

private:
    explicit IndexVector(unsigned long n);
    void TakeTarget(Vector const& target);
    void TakeImage(Vector const& target);
    DerivedPointer<Vector> Coordinates(bool rows) const;

    TargetData target_;
};

/// "Image 5x4" and the like.
MEMBLOCK_API safestring MakeDefaultIndexVectorTargetDataDescr(int rank, unsigned int const* dims);
/// The indices outside of the one-pixel frame of their image.
MEMBLOCK_API DerivedPointer<IndexVector> indexvector_clearborders(DerivedPointer<IndexVector>);
/// The distances, in an image of that width, from a pixel to those that a kernel region centred on
/// it covers.
///
/// Throws: "Function IndexVector2ShiftVector, poMatrix is not an IndexVector: %s"; 512 as
/// `GetXVector`.
MEMBLOCK_API DerivedPointer<Vector> IndexVector2ShiftVector(DerivedPointer<IndexVector> kernel,
                                                            int image_width);
/// Express `n` pixel numbers of one image in another with the same centre. Nothing is clipped.
///
/// Throws: 32 "Image width is zero."
MEMBLOCK_API void index_convert_2images_const_center(int const* src, int n, int src_w, int src_h,
                                                     int dst_w, int dst_h, int* dst);

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_INDEXVECTOR_H
