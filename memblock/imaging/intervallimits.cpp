#include <memblock/imaging/intervallimits_internal.h>

#include <memblock/base/alloc.h>
#include <memblock/base/raise.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cstring>
#include <utility>

namespace NKelmic {

LimitArray::LimitArray(unsigned long n)
    : cells_(static_cast<unsigned int*>(mb_malloc((base + n) * sizeof(unsigned int))))
{
    if (!cells_)
        throw std::bad_alloc();
    // Object 0 is none, but the cell is copied with the others.
    cells_[0] = 0;
}

LimitArray::~LimitArray()
{
    mb_free(cells_);
}

TypedChunk FirstElements(TypedChunk const& chunk, unsigned long count)
{
    // Delayed values would be made for the fewer elements only, and the buffer is shared.
    chunk.DelayedInitialize();
    return TypedChunk(count, chunk.Type(), chunk.Chunk(), chunk.GetOffset());
}

unsigned int* IntervalVector::Start(int base)
{
    return UnsignedIntPointer() - base;
}

unsigned int const* IntervalVector::Start(int base) const
{
    return UnsignedIntPointer() - base;
}

unsigned int const* IntervalVector::End(int base) const
{
    if (EndArray_)
        return std::as_const(*MemCast<Vector>(EndArray_)).UnsignedIntPointer() - base;
    return Start(base) + 1;
}

unsigned int* IntervalVector::End(int base)
{
    if (!EndArray_)
        return Start(base) + 1;
    if (EndArray_->RefCount() > 1) // a copy of this object holds the same array
        EndArray_ = EndArray_->Clone(true);
    return MemCast<Vector>(EndArray_)->UnsignedIntPointer() - base;
}

void IntervalVector::ResizeVector(unsigned long n, bool keep, bool init)
{
    // A length is a number of limits in both forms; starts alone would be one short.
    if (EditPacked(*this, [&](Vector& limits) { limits.ResizeVector(n, keep, init); }))
        return;
    n = std::max(n, 1UL); // no intervals have one limit, too
    IndexVector::ResizeVector(n, keep, init);
    IntervalCount_ = static_cast<unsigned int>(n - 1);
}

void IntervalVector::SetIntervalCount(unsigned int n)
{
    if (n > IntervalCount_)
        Raise(err_kind, "IntervalVector::SetIntervalCount(): buffer too small");
    if (EndArray_)
        return Commit(FirstElements(Chunk(), n), EndsOf(0, n), Target_);
    ResizeVector(n + 1UL, true, true);
}

void IntervalVector::Rearrange(int const* order, unsigned int n, unsigned int newcount,
                               ThrowHandlerFunc handler)
{
    for (unsigned int k = 0; k < n; ++k) // ahead of the first change: two arrays must go together
        if (static_cast<unsigned int>(order[k]) >= IntervalCount_)
            return Report(handler, err_kind, "Vector index out of bounds (%d): %d", IntervalCount_,
                          order[k]);
    auto const starts = Vector::Create(FirstElements(Chunk(), IntervalCount_), 1.0);
    auto const ends = DerivedPointer<Vector>(EndsOf(0, IntervalCount_));
    starts->Rearrange(order, n, newcount, handler);
    ends->Rearrange(order, n, newcount, handler);
    Commit(cref(starts).Chunk(), ends, Target_);
}

DerivedPointer<Vector> IntervalVector::DoCloneSlice(unsigned int from, unsigned int to) const
{
    // Callers cut to the length, which in separate ends is that of the starts and here is one more.
    to = std::min(to, IntervalCount_);
    from = std::min(from, to);
    DerivedPointer<IntervalVector> slice(Clone(true));
    if (EndArray_)
        slice->Commit(CopyOfRange(Chunk(), from, to - from), EndsOf(from, to), Target_);
    else
        // The limits keep their values: the slice shares the whole target, and its objects are
        // where they were.
        slice->SetTypedChunk(CopyOfRange(Chunk(), from, to - from + 1UL));
    slice->IntervalCount_ = to - from;
    return slice;
}

namespace {

/// One element, 0, with the same cells ahead of it.
TypedChunk OneBehind(TypedChunk const& chunk)
{
    unsigned long const ahead = chunk.GetOffset();
    TypedChunk const cells = NewChunk(ahead / chunk.ElemSize() + 1, chunk.Type());
    if (ahead > 0)
        std::memcpy(cells.Data(), static_cast<char const*>(chunk.Data()) - ahead, ahead);
    return TypedChunk(1, chunk.Type(), cells.Chunk(), ahead);
}

} // namespace

void IntervalVector::Commit(TypedChunk const& starts, PMemBlock ends, PMemBlock target)
{
    unsigned long const count = starts.Length();
    TypedChunk const payload = ends && count == 0 ? OneBehind(starts) : starts;
    // Without ends the object is a plain vector to the base class, which otherwise would pack the
    // limits first. The old parts are released after the change: a destructor of theirs must not
    // meet a half of it.
    PMemBlock const old_target = std::exchange(Target_, std::move(target));
    PMemBlock const old_ends = std::exchange(EndArray_, PMemBlock());
    SetTypedChunk(payload);
    if (!ends)
        return ResizeVector(count, true, true);   // counts the intervals
    IndexVector::ResizeVector(count, true, true); // in this form no intervals have no limit
    EndArray_ = std::move(ends);
    IntervalCount_ = static_cast<unsigned int>(count);
}

unsigned int IntervalVector::LimitAt(unsigned int k) const
{
    if (!EndArray_ || k < IntervalCount_)
        return Start(0)[k];
    if (IntervalCount_ > 0)
        return LastEnd(*this);
    // No intervals: their one limit is kept ahead of the ends, if it is known.
    bool const known = std::as_const(*MemCast<Vector>(EndArray_)).Chunk().GetOffset() > 0;
    return known ? End(0)[-1] : 0;
}

// The cell ahead of the ends holds the limit of the first interval. So nothing is lost where all
// intervals go: packing them again gives the contiguous form that there was.
PMemBlock IntervalVector::EndsOf(unsigned int from, unsigned int to) const
{
    unsigned long const count = to - from;
    TypedChunk const cells = NewChunk(1 + count, ElemType());
    auto* const out = static_cast<unsigned int*>(cells.Data());
    out[0] = LimitAt(from);
    if (count > 0)
        std::copy(End(0) + from, End(0) + to, out + 1);
    return Vector::Create(TypedChunk(count, cells.Type(), cells.Chunk(), sizeof *out), 1.0);
}

unsigned int CountAccessibleSubObjects(IntervalVector const& v)
{
    return Layer(v.Target()) ? static_cast<unsigned int>(Intervals(v).Total()) : 0;
}

} // namespace NKelmic
