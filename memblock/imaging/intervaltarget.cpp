#include <memblock/imaging/intervaltarget_internal.h>

#include <memblock/base/raise.h>
#include <memblock/imaging/intervallimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <utility>

namespace NKelmic {

DerivedPointer<IndexVector> IntervalVector::IndexVectorTarget() const
{
    IndexVector* const target = MemCast<IndexVector>(Target_);
    if (target)
        return DerivedPointer<IndexVector>(target);
    Raise(err_value, "IndexVector::IndexVectorTarget(): Target of is not an indexvector: %s",
          Target_ ? Target_.GetDescription() : safestring("NULL"));
}

DerivedPointer<IndexVector> IntervalVector::IndexVectorTarget()
{
    return std::as_const(*this).IndexVectorTarget();
}

DerivedPointer<IndexVector> IntervalVector::GetFinalIndexVectorTarget() const
{
    PMemBlock target = Target_;
    // A structure may hold itself by way of its target, as keys are set in any order.
    for (int depth = 0; depth < most_layers; ++depth) {
        IntervalVector const* const layer = Layer(target);
        if (!layer)
            return DerivedPointer<IndexVector>(MemCast<IndexVector>(target));
        target = PMemBlock(layer->Target_);
    }
    return nullptr;
}

void IntervalVector::GetImageDimensions(unsigned int& w, unsigned int& h,
                                        ThrowHandlerFunc handler) const
{
    auto const final = GetFinalIndexVectorTarget();
    if (final && final->TargetRank() == 2)
        return cref(final).GetImageDimensions(w, h, handler);
    w = h = 0;
    Report(handler, err_kind,
           "Cannot find final target image dimensions for IntervalVector of type %d", LgType());
}

void IntervalVector::SetTarget(DerivedPointer<Vector> target)
{
    unsigned int const last = LastEnd(*this);
    unsigned int const items = ItemCount(target.Pointer());
    // Settled: only the last end is checked. Limits of other intervals are cut by readers, as files
    // bring them unsorted.
    if (target && last > items)
        Raise(err_kind, "Target too short (%d), must be >=%d: %s", items, last, target);
    ReplaceTarget(target);
}

DerivedPointer<Vector> IntervalVector::OwnTarget()
{
    // The clone shares its buffer: the copy of elements is made by the first write, if there is
    // one.
    if (Target_ && Target_->RefCount() > 1)
        Target_ = Target_->Clone(true);
    return DerivedPointer<Vector>(Target_);
}

DerivedPointer<IndexVector> OwnFinalTarget(IntervalVector& v)
{
    IntervalVector* layer = &v;
    for (int depth = 0; depth < most_layers; ++depth) {
        auto const target = layer->OwnTarget();
        if (IndexVector* const pixels = PixelList(target))
            return DerivedPointer<IndexVector>(pixels);
        layer = Layer(target);
        if (!layer)
            break;
    }
    return nullptr;
}

void IntervalVector::ReplaceTarget(PMemBlock const& target)
{
    // A target that contains this object would make every walk endless.
    PMemBlock below(target);
    for (int depth = 0; IntervalVector const* const layer = Layer(below); ++depth) {
        if (layer == this || depth == most_layers)
            Raise(err_kind, "Attempt to construct unsupported IntervalVector type: %s", target);
        below = PMemBlock(layer->Target());
    }
    PMemBlock const old = std::exchange(Target_, PMemBlock(target));
    try {
        UpdateType();
    } catch (...) {
        Target_ = old;
        throw;
    }
    ContentHasBeenChanged();
}

// ---- Index vectors below

DerivedPointer<IndexVector> OpenIndexVector(unsigned long n, IndexVector::TargetData const& target)
{
    auto indices = IndexVector::Create(0, target);
    indices->SetTypedChunk(OpenChunk(n, DataTypeBase::UnsignedInt));
    return indices;
}

// ---- What structures there are

int IntervalVector::DetectType() const
{
    if (!Target_)
        Raise(err_kind, "Created Intervalvector without target.");
    // The order matters: an interval vector is an index vector too, of rank 0.
    IndexVector const* const indices = MemCast<IndexVector>(Target_);
    if (indices && indices->TargetRank() == 2)
        return stencil;
    if (Layer(Target_))
        return subobj;
    if (SameName(Target_->Class(), "vector"))
        return subnum;
    if (indices && indices->TargetRank() == 3)
        return datacubestencil;
    if (indices && indices->TargetRank() == 1)
        return vectorstencil;
    Raise(err_kind, "Attempt to construct unsupported IntervalVector type: %s", Target_);
}

void IntervalVector::UpdateType()
{
    IntervalVector* layer = this;
    for (int depth = 0; layer && depth < most_layers; ++depth) {
        int const type = layer->DetectType();
        layer->DoSetLgType(type);
        // A change of the innermost pixels may change what each layer above them is.
        layer = type == subobj ? Layer(layer->Target_) : nullptr;
    }
}

bool IntervalVector::Consistent(safestring& message, bool deep) const
{
    // Limits that have to be packed are small then, and what they hold together may be too much.
    bool const packs = EndArray_ && !Intervals(*this).Chain();
    if (!IndexVector::Consistent(message, deep && !packs))
        return false;
    // Detection throws for structures that have no class, which is just what is asked here.
    bool const bad_type = [&] {
        try {
            return LgType() != DetectType();
        } catch (Exception const&) {
            return true;
        }
    }();
    if (bad_type) {
        message += Text("IntervalVector type %d (\"%s\") does not match the IntervalVector "
                        "structure: %s",
                        LgType(), LgType2String(LgType()), *this);
        return false;
    }
    if (EndArray_) {
        unsigned int const ends = std::as_const(*MemCast<Vector>(EndArray_)).Length();
        if (Length() != IntervalCount_) {
            message += Text("Length()!=IntervalCount(): %d, %d", Length(), IntervalCount_);
            return false;
        }
        if (ends != IntervalCount_) {
            message += Text("EndArray_->Length()!=IntervalCount(): %d, %d", ends, IntervalCount_);
            return false;
        }
    } else if (Length() != IntervalCount_ + 1) {
        message +=
            Text("Array length (%d) does not correspond to intervalcount (%d), should be: %d",
                 Length(), IntervalCount_, IntervalCount_ + 1);
        return false;
    }
    unsigned int const last = LastEnd(*this);
    if (last > ItemCount(Target_.Pointer())) {
        message += Text("Target too short (%d elements), should be at least %d: target=%s",
                        ItemCount(Target_.Pointer()), last, Target_);
        return false;
    }
    return true;
}

} // namespace NKelmic
