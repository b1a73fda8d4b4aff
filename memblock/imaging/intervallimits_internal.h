#ifndef MEMBLOCK_IMAGING_INTERVALLIMITS_INTERNAL_H
#define MEMBLOCK_IMAGING_INTERVALLIMITS_INTERNAL_H

#include <memblock/base/multiversion.h>
#include <memblock/imaging/intervaltarget_internal.h>
#include <memblock/vector/packedlimits_internal.h>

#include <algorithm>

namespace NKelmic {

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

/// The end of the last interval, not cut; 0 where there is none.
inline unsigned int LastEnd(IntervalVector const& v)
{
    return v.IntervalCount() > 0 ? v.End(0)[v.IntervalCount() - 1] : 0;
}

/// The same buffer, seen as fewer elements. The cells ahead of them stay.
TypedChunk FirstElements(TypedChunk const& chunk, unsigned long count);

/// The elements of a plain array that the intervals hold, side by side.
TypedChunk ElementsOf(Vector const& target, Intervals const& intervals);

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

} // namespace NKelmic

#endif // MEMBLOCK_IMAGING_INTERVALLIMITS_INTERNAL_H
