#include <memblock/base/alloc.h>
#include <memblock/base/raise.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervallimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cstdio>

namespace NKelmic {

// ---- Flattening

DerivedPointer<IntervalVector> IntervalVector::MergedTarget() const
{
    if (!Layer(Target_))
        Raise(err_kind, "Intervalvector target not supported: %s", Target_);
    // With one array of limits in each layer, the limits of a limit are the pixels of an object.
    ContiguousForm const objects(*this);
    ContiguousForm const medium(*Layer(objects->Target_));
    unsigned int const zones = medium->IntervalCount_;
    unsigned int const* const outer = objects->Start(0);
    unsigned int const* const inner = medium->Start(0);
    LimitArray limits(IntervalCount_ + 1UL);
    for (unsigned int k = 0; k <= IntervalCount_; ++k)
        // Settled: an object gets all pixels from its first zone to its last, also those of zones
        // between that belong to no object.
        limits[k] = IntervalCount_ > 0 && zones > 0 ? inner[std::min(outer[k], zones)] : 0;
    return Create(IntervalCount_, LimitArray::base, limits.Take(), mb_free,
                  DerivedPointer<Vector>(medium->Target_->Clone(true)));
}

DerivedPointer<Vector> IntervalVector::MergedVector() const
{
    if (Layer(Target_))
        return MergedTarget()->MergedVector();
    if (!Target_ || !SameName(Target_->Class(), "vector"))
        Raise(err_kind, "IntervalVector::MergedVector(): target not supported: %s", *this);
    Intervals const intervals(*this);
    Vector const& values = *MemCast<Vector>(Target_);
    if (intervals.Count() == 0)
        return values.CloneSlice(0, 0);
    // With gaps or overlaps the values are gathered. Otherwise they are one piece of the target,
    // which can be shared or sliced.
    if (!intervals.Tile()) {
        DerivedPointer<Vector> const merged(values.Clone(true));
        merged->SetTypedChunk(ElementsOf(values, intervals));
        return merged;
    }
    unsigned int const from = intervals.From(0), to = intervals.To(intervals.Count() - 1);
    if (from == 0 && to == values.Length()) // all of them, in their order
        return DerivedPointer<Vector>(values.Clone(true));
    return from == to ? values.CloneSlice(0, 0) : values.CloneSlice(from, to);
}

DerivedPointer<IndexVector> IntervalVector::MergedIndexVector() const
{
    if (Layer(Target_))
        return MergedTarget()->MergedIndexVector();
    IndexVector const* const pixels = PixelList(Target_);
    if (!pixels)
        Raise(err_kind, "Intervalvector target not supported: %s", Target_);
    Intervals const intervals(*this);
    bool const tile = intervals.Tile();
    if (tile && intervals.Count() > 0 && intervals.From(0) > 0)
        // Settled: a line on standard error and no warning, as the list is complete all the same.
        std::fprintf(stderr,
                     "%s(%d): IntervalVector::MergedIndexVector() probably doesn't work for a=%d\n",
                     __FILE__, __LINE__, static_cast<int>(intervals.From(0)));
    if (tile && intervals.Total() == pixels->Length()) // all of them, in their order
        return DerivedPointer<IndexVector>(pixels->Clone(true));
    auto merged = OpenIndexVector(intervals.Total(), pixels->GetTargetData());
    unsigned int const* const source = pixels->UnsignedIntPointer();
    unsigned int* out = merged->UnsignedIntPointer();
    for (unsigned int k = 0; k < intervals.Count(); ++k)
        out = std::copy(source + intervals.From(k), source + intervals.To(k), out);
    return merged;
}

DerivedPointer<IntervalVector> IntervalVector::GetXYVector(char c) const
{
    if (c != 'x' && c != 'y')
        Raise(err_kind, "IntervalVector::GetXYVector(): invalid parameter: %c", c);
    if (!GetFinalIndexVectorTarget())
        Raise(err_kind, "Cannot apply .%c subkey to: %s", c, *this);
    IndexVector const* const pixels = PixelList(Target_);
    DerivedPointer<Vector> const coordinates =
        !pixels    ? DerivedPointer<Vector>(Layer(Target_)->GetXYVector(c))
        : c == 'x' ? pixels->GetXVector()
                   : pixels->GetYVector();
    DerivedPointer<IntervalVector> numbers(Clone(true)); // the limits are shared until written
    numbers->SetTarget(coordinates);
    return numbers;
}

namespace {

/// The running sums of the innermost elements that the intervals reach: element k counts those
/// ahead of interval k. Each layer is gone through once, however often its intervals are reached.
std::vector<unsigned int> AreaSums(IntervalVector const& v, int depth)
{
    Intervals const intervals(v);
    IntervalVector const* const layer = depth < most_layers ? Layer(v.Target()) : nullptr;
    auto const below = layer ? AreaSums(*layer, depth + 1) : std::vector<unsigned int>();
    std::vector<unsigned int> sums(intervals.Count() + 1UL);
    for (unsigned int k = 0; k < intervals.Count(); ++k)
        sums[k + 1UL] = sums[k] + (layer ? below[intervals.To(k)] - below[intervals.From(k)]
                                         : intervals.Size(k));
    return sums;
}

} // namespace

unsigned int find_area_rec(DerivedPointer<IndexVector> v, unsigned int first, unsigned int last)
{
    auto const* const layer = dynamic_cast<IntervalVector const*>(&cref(v));
    if (layer)
        last = std::min(last, layer->IntervalCount());
    if (first >= last)
        return 0;
    if (!layer)
        return last - first;
    auto const sums = AreaSums(*layer, 0);
    return sums[last] - sums[first];
}

void unpack_three_layer_const(DerivedPointer<IntervalVector> const& v, unsigned int const*& inner,
                              unsigned int const*& medium, unsigned int const*& outer)
{
    IntervalVector const& zones = cref(v);
    bool const three = Layer(zones.Target()) && PixelList(Layer(zones.Target())->Target());
    if (!three)
        Raise(err_kind, "Not a three-layer zone structure: %s", v);
    outer = zones.StartAndEnd(0, false, true, nullptr);
    // Packing may have put another layer there; one that others hold stays as they know it.
    if (Layer(zones.Target())->HasEndArray())
        const_cast<IntervalVector&>(zones).OwnTarget();
    IntervalVector const& middle = *Layer(zones.Target());
    medium = middle.StartAndEnd(0, false, true, nullptr);
    inner = std::as_const(*PixelList(middle.Target())).UnsignedIntPointer();
}

void unpack_three_layer_const(DerivedPointer<IntervalVector> const& v, int const*& inner,
                              int const*& medium, int const*& outer)
{
    unsigned int const *i = nullptr, *m = nullptr, *o = nullptr;
    unpack_three_layer_const(v, i, m, o);
    inner = reinterpret_cast<int const*>(i);
    medium = reinterpret_cast<int const*>(m);
    outer = reinterpret_cast<int const*>(o);
}

// ---- Appending

namespace {

/// Throw unless both have the same layers over the same kind of target.
void CheckSameStructure(IntervalVector const& a, IntervalVector const& b)
{
    IntervalVector const *mine = &a, *other = &b;
    for (int depth = 0; mine && depth < most_layers; ++depth) {
        if (!mine->Target() || !other->Target())
            Raise(err_kind, "Unsupported IntervalVector structure: IV766");
        if (!MemCast<Vector>(mine->Target()))
            Raise(err_kind, "Non-vector-type target not supported: %s", mine->Target());
        // The class alone is not enough: it follows from the outermost target, and layers below may
        // differ.
        if (mine->LgType() != other->LgType() ||
            !SameName(mine->Target()->Class(), other->Target()->Class()))
            Raise(err_kind, "Cannot append %s to %s", b, a);
        IndexVector const *const x = PixelList(mine->Target()), *const y =
                                                                    PixelList(other->Target());
        if (x && y && !SameTarget(*x, *y))
            Raise(err_kind, "Incompatible targets: %s AND %s", *x, *y);
        mine = Layer(mine->Target());
        other = Layer(other->Target());
    }
    if (mine)
        Raise(err_kind, "Unsupported IntervalVector structure: IV769");
}

/// The contiguous limits of `a`, and behind them those of `b`, whose items begin at `shift`.
TypedChunk JoinedLimits(Intervals const& a, Intervals const& b, unsigned int shift)
{
    unsigned long const count = a.Count() + static_cast<unsigned long>(b.Count());
    CheckLength(count + 1);
    TypedChunk const limits = NewChunk(count + 1, DataTypeBase::UnsignedInt);
    auto* out = static_cast<unsigned int*>(limits.Data());
    for (unsigned int k = 0; k < a.Count(); ++k)
        *out++ = a.From(k);
    for (unsigned int k = 0; k < b.Count(); ++k)
        // The objects that are added may begin anywhere in their target; only that part of it is
        // appended.
        *out++ = shift + b.From(k) - b.From(0);
    *out = shift + b.To(b.Count() - 1) - b.From(0);
    return limits;
}

/// A target of the first elements of one, up to `last`, and behind them a part of another. Drops
/// the tail after `last`: it belongs to no object.
DerivedPointer<Vector> JoinedTargets(Vector const& a, unsigned int last, Vector const& b,
                                     unsigned int from, unsigned int to)
{
    to = std::max(from, to); // limits may fall
    DerivedPointer<Vector> joined(a.Clone(true));
    // Plain numbers of one type are copied at once. Append converts, and grows the buffer by steps.
    bool const alike = a.ElemType() == b.ElemType() && a.Factor() == b.Factor();
    if (alike && !Layer(joined) && !Vector::IsObject(a.ElemType())) {
        TypedChunk const fresh = OpenChunk(last + (to - from + 0UL), a.ElemType());
        unsigned long const width = a.ElemSize(), own = last * width;
        auto* const out = static_cast<char*>(fresh.Data());
        std::copy_n(static_cast<char const*>(a.Pointer()), own, out);
        std::copy_n(static_cast<char const*>(b.Pointer()) + from * width, (to - from) * width,
                    out + own);
        joined->SetTypedChunk(fresh);
        return joined;
    }
    if (IntervalVector* const layer = Layer(joined))
        layer->SetIntervalCount(std::min(last, layer->IntervalCount()));
    else
        joined->ResizeVector(last, true, true);
    if (from < to)
        joined->Append(b.CloneSlice(from, to));
    return joined;
}

} // namespace

void IntervalVector::Append(DerivedPointer<Vector> v)
{
    if (!v)
        return Vector::Append(v);
    IntervalVector const* const added = MemCast<IntervalVector>(v);
    if (!added)
        Raise(err_kind, "Cannot append %s to %s", v, *this);
    // All checks before the first change; what follows is built aside and committed in one step.
    CheckSameStructure(*this, *added);
    if (added->IntervalCount_ == 0 ||
        EditPacked(*this, [&](Vector& objects) { objects.Append(v); }))
        return;
    ContiguousForm const behind(*added);
    Intervals const mine(*this), other(*behind);
    unsigned int const last = mine.Count() > 0 ? mine.To(mine.Count() - 1) : 0;
    auto const target =
        JoinedTargets(*MemCast<Vector>(Target_), last, *MemCast<Vector>(behind->Target()),
                      other.From(0), other.To(other.Count() - 1));
    Commit(JoinedLimits(mine, other, last), PMemBlock(), target);
}

} // namespace NKelmic
