#ifndef MEMBLOCK_IMAGING_INTERVALPARTS_INTERNAL_H
#define MEMBLOCK_IMAGING_INTERVALPARTS_INTERNAL_H

#include <memblock/base/multiversion.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/vector/packedlimits_internal.h>

#include <algorithm>

namespace NKelmic {

/// More layers than three mean nothing; a walk that meets more than this ends.
constexpr int most_layers = 32;

/// What a target offers to intervals: elements, or the intervals of an interval vector.
inline unsigned int ItemCount(MemBlock const* target)
{
    if (auto const* layer = MemCast<IntervalVector>(target))
        return layer->IntervalCount();
    auto const* vector = MemCast<Vector>(target);
    return vector ? vector->Length() : 0;
}

namespace limits {

/// The items of all intervals, cut to what the target has.
MEMBLOCK_MULTIVERSION inline unsigned long Total(unsigned int const* start, unsigned int const* end,
                                                 unsigned int count, unsigned int items)
{
    unsigned long total = 0;
    for (unsigned int k = 0; k < count; ++k) {
        unsigned int const from = std::min(start[k], items), to = std::min(end[k], items);
        total += to > from ? to - from : 0;
    }
    return total;
}

} // namespace limits

/// The intervals of a vector, cut to what the target has: limits may come from anywhere.
class Intervals {
public:
    explicit Intervals(IntervalVector const& v)
        : count_(v.IntervalCount()), items_(ItemCount(v.Target().Pointer())),
          start_(count_ > 0 ? v.Start(0) : nullptr), end_(count_ > 0 ? v.End(0) : nullptr)
    {
    }
    unsigned int Count() const { return count_; }
    unsigned int Items() const { return items_; }         ///< of the target
    unsigned int const* Starts() const { return start_; } ///< these are not cut
    unsigned int const* Ends() const { return end_; }
    unsigned int From(unsigned int k) const { return std::min(start_[k], items_); }
    unsigned int To(unsigned int k) const { return std::clamp(end_[k], From(k), items_); }
    unsigned int Last() const { return end_[count_ - 1]; } ///< not cut, too
    unsigned int Size(unsigned int k) const { return To(k) - From(k); }
    /// The items of all intervals together; they may overlap.
    unsigned long Total() const { return limits::Total(start_, end_, count_, items_); }
    /// Whether each interval begins where the one before it ends, so that one array can hold the
    /// limits as they are.
    bool Chain() const
    {
        for (unsigned int k = 1; k < count_; ++k)
            if (start_[k] != end_[k - 1])
                return false;
        return true;
    }
    /// Whether they also follow each other upwards: then no item belongs to two.
    bool Tile() const
    {
        for (unsigned int k = 0; k < count_; ++k)
            if (start_[k] > end_[k])
                return false;
        return Chain();
    }

private:
    unsigned int count_, items_;
    unsigned int const *start_, *end_;
};

/// An array of `base` unused cells and `n` limits, as the creating functions take it.
class LimitArray {
public:
    explicit LimitArray(unsigned long n);
    ~LimitArray();
    LimitArray(LimitArray const&) = delete;
    LimitArray& operator=(LimitArray const&) = delete;
    unsigned int& operator[](unsigned long k) { return cells_[base + k]; }
    LimitArray(LimitArray&& o) noexcept : cells_(o.Take()) {}
    unsigned int* Take() { return std::exchange(cells_, nullptr); }
    static constexpr unsigned int base = 1; // object k in cell k

private:
    unsigned int* cells_;
};

/// An index vector of `n` indices that are left open, for the target that `sample` has.
DerivedPointer<IndexVector> OpenIndexVector(unsigned long n, IndexVector::TargetData const& target);

/// Whether both point into arrays of the same sizes.
inline bool SameTarget(IndexVector const& a, IndexVector const& b)
{
    int rank = a.TargetRank();
    if (rank != b.TargetRank())
        return false;
    while (rank > 0 && a.TargetDimSize(rank - 1) == b.TargetDimSize(rank - 1))
        --rank;
    return rank == 0;
}

/// An image of zeros in which `count` pixels will be drawn.
DerivedPointer<Image> ImageToDrawIn(unsigned int w, unsigned int h, DataType type,
                                    unsigned long count);

/// The contiguous form of an interval vector, to be read: the object itself or, where that has
/// separate ends, a packed clone.
class ContiguousForm {
public:
    explicit ContiguousForm(IntervalVector const& v)
        : packed_(PackedLimits(v)), form_(packed_ ? cref(packed_) : v)
    {
    }
    IntervalVector const& operator*() const { return form_; }
    IntervalVector const* operator->() const { return &form_; }

private:
    DerivedPointer<IntervalVector> packed_;
    IntervalVector const& form_;
};

/// The inner tools that the sources of `IntervalVector` share.
struct IntervalParts {
    static PMemBlock& Target(IntervalVector& v) { return v.Target_; }
    /// Offer the array of ends as a child.
    static bool EntertainEnds(IntervalVector& v, MemBlockVisitor& visitor, safestring const& path,
                              MemBlock::entertainmode_t mode);
    /// The target, as an object that nobody else sees: writers leave the others theirs.
    static DerivedPointer<Vector> OwnTarget(IntervalVector& v);
    /// The same for the innermost layer; null if that is no index vector.
    static DerivedPointer<IndexVector> OwnFinalTarget(IntervalVector& v);
    /// Put contiguous limits and a target in place of the present ones. Can't fail.
    static void Install(IntervalVector& v, TypedChunk const& limits, PMemBlock const& target);
    /// Put separate limits in place of the present ones.
    static void InstallEnds(IntervalVector& v, TypedChunk const& starts, PMemBlock const& ends);
    /// The elements of a plain array that intervals hold, side by side.
    static TypedChunk Gather(Vector const& target, Intervals const& intervals);
    /// The ends of intervals `from` up to `to`, as `IntervalVector` keeps them.
    static PMemBlock Ends(IntervalVector const& v, unsigned int from, unsigned int to);
    static unsigned int LastEnd(IntervalVector const& v); ///< of the last interval, or 0
    /// The limit ahead of interval k, which may be the one behind the last interval.
    static unsigned int Limit(IntervalVector const& v, unsigned int k);
    /// The same with the class checked as in `SetTarget`, but whatever the limits are.
    static void ReplaceTarget(IntervalVector& v, PMemBlock const& target);
};

/// The interval vector below, or null.
inline IntervalVector* Layer(PMemBlock const& target)
{
    return MemCast<IntervalVector>(target);
}

/// The index vector below that is no further layer, or null.
inline IndexVector* PixelList(PMemBlock const& target)
{
    return Layer(target) ? nullptr : MemCast<IndexVector>(target);
}

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_INTERVALPARTS_INTERNAL_H
