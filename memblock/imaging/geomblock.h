#ifndef MEMBLOCK_IMAGING_GEOMBLOCK_H
#define MEMBLOCK_IMAGING_GEOMBLOCK_H

#include <memblock/vector/vector.h>

#include <array>

namespace NKelmic {

/// A vector that is read as an array of N dimensions; dimension 0 runs fastest.
///
/// The product of the sizes is the length. No size is above 0x7FFFFFFF, nor is their product; code
/// 256 refuses more before anything changes.
template <int N>
class MEMBLOCK_API GeomBlock : public Vector {
public:
    typedef std::array<unsigned int, N> Sizes;

    int GetRank() const override { return N; }
    unsigned int GetDimSize(int i) const override
    {
        return static_cast<unsigned int>(i) < N ? sizes_[static_cast<unsigned int>(i)] : 0;
    }
    DerivedPointer<Vector> GetDimSizes() const override; ///< UnsignedInt, dimension 0 first
    /// Take other sizes and the length that goes with them; elements stay in their linear order.
    ///
    /// Throws, with nothing changed: "GeomBlock::ChangeDimSizes() is called with an invalid number
    /// of dimensions %d for: %s".
    void ChangeDimSizes(unsigned int const* dims, int n) override;

protected:
    /// Settled: a plain vector. A run of elements has no shape.
    DerivedPointer<Vector> DoCloneSlice(unsigned int from, unsigned int to) const override;

public:
    virtual unsigned int const* GetDimSizeArray() const { return sizes_.data(); }

protected:
    /// The chunk must have as many elements as the sizes say, or `FitLength` must follow.
    GeomBlock(TypedChunk const& chunk, Sizes const& sizes, double factor);
    GeomBlock(GeomBlock const&) = default;
    void FitLength(); ///< resize to what the sizes say
    /// Exchange sizes and buffer, which must fit each other.
    void Reshape(Sizes const& sizes, TypedChunk const& chunk);

private:
    Sizes sizes_;
};

extern template class GeomBlock<2>;
extern template class GeomBlock<3>;

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_GEOMBLOCK_H
