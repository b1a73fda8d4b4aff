#include <memblock/imaging/intervalvector.h>

#include <memblock/base/alloc.h>
#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalparts_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cstring>
#include <utility>

namespace NKelmic {

LimitArray::LimitArray(unsigned long n)
    : cells_(static_cast<unsigned int*>(mb_malloc((base + n) * sizeof(unsigned int))))
{
    if (!cells_)
        throw std::bad_alloc();
    cells_[0] = 0;
}

LimitArray::~LimitArray()
{
    mb_free(cells_);
}

// ---- Creation

IntervalVector::IntervalVector(unsigned int count, unsigned int base, unsigned int* start,
                               unsigned int* end, void (*release)(void*), PMemBlock target)
    : IndexVector(count + (end ? 0UL : 1UL), start, static_cast<int>(base), release),
      IntervalCount_(count), Target_(std::move(target))
{
    if (end)
        EndArray_ = Vector::Create(count, UnsignedInt, end, release, static_cast<int>(base), 1.0);
    if (end && count == 0)
        EndArray_ = Vector::Create(0, UnsignedInt, true, 0, 1.0); // without a limit ahead
    UpdateType();
}

IntervalVector::IntervalVector(IntervalVector const& o)
    : IndexVector(o), IntervalCount_(o.IntervalCount_), EndArray_(o.EndArray_), Target_(o.Target_)
{
}

DerivedPointer<IntervalVector> IntervalVector::Create(unsigned int count, unsigned int base,
                                                      unsigned int* start, unsigned int* end,
                                                      void (*release)(void*),
                                                      DerivedPointer<Vector> target)
{
    return DerivedPointer<IntervalVector>(
        new IntervalVector(count, base, start, end, release, std::move(target)));
}

DerivedPointer<IntervalVector> IntervalVector::Create(unsigned int count, unsigned int base,
                                                      unsigned int* start, void (*release)(void*),
                                                      DerivedPointer<Vector> target)
{
    return Create(count, base, start, nullptr, release, std::move(target));
}

DerivedPointer<IntervalVector> IntervalVector::Create(unsigned int count,
                                                      DerivedPointer<Vector> target)
{
    CheckLength(count + 1UL);
    void* const cells = mb_calloc(count + 2UL, sizeof(unsigned int));
    if (!cells)
        throw std::bad_alloc();
    return Create(count, 1, static_cast<unsigned int*>(cells), mb_free, std::move(target));
}

DerivedPointer<IntervalVector> IntervalVector::Create()
{
    void* const cell = mb_calloc(1, sizeof(unsigned int));
    if (!cell)
        throw std::bad_alloc();
    return Create(0, 0, static_cast<unsigned int*>(cell), mb_free, IndexVector::Create());
}

DerivedPointer<IntervalVector> IntervalVector::CreateBySample(DerivedPointer<IntervalVector> sample,
                                                              DerivedPointer<Vector> target)
{
    IntervalVector const& v = cref(sample);
    DerivedPointer<IntervalVector> made = Create(v.IntervalCount_, std::move(target));
    if (v.EndArray_) {
        v.Start(0); // the limits must be such
        IntervalParts::InstallEnds(*made, v.Chunk(), IntervalParts::Ends(v, 0, v.IntervalCount_));
    } else if (!made->UseMemoryOf(DerivedPointer<Vector>(sample))) {
        made->ResizeVector(v.Length(), true, true);
    }
    return made;
}

// ---- Limits

namespace {

/// The same buffer, seen as fewer elements. What lies ahead of them stays there.
TypedChunk FirstElements(TypedChunk const& chunk, unsigned long count)
{
    chunk.DelayedInitialize();
    return TypedChunk(count, chunk.Type(), chunk.Chunk(), chunk.GetOffset());
}

} // namespace

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

void IntervalVector::AddEndArray()
{
    if (EndArray_)
        return;
    PMemBlock const ends = IntervalParts::Ends(*this, 0, IntervalCount_);
    // The last limit is no start: without it the array has the length that this form asks for.
    IntervalParts::InstallEnds(*this, FirstElements(Chunk(), IntervalCount_), ends);
}

void IntervalVector::ResizeVector(unsigned long n, bool keep, bool init)
{
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
        return IntervalParts::InstallEnds(*this, FirstElements(Chunk(), n),
                                          IntervalParts::Ends(*this, 0, n));
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
    auto const ends = DerivedPointer<Vector>(IntervalParts::Ends(*this, 0, IntervalCount_));
    starts->Rearrange(order, n, newcount, handler);
    ends->Rearrange(order, n, newcount, handler);
    IntervalParts::InstallEnds(*this, cref(starts).Chunk(), ends);
}

DerivedPointer<Vector> IntervalVector::DoCloneSlice(unsigned int from, unsigned int to) const
{
    to = std::min(to, IntervalCount_);
    from = std::min(from, to);
    DerivedPointer<IntervalVector> slice(Clone(true));
    if (EndArray_)
        IntervalParts::InstallEnds(*slice, CopyOfRange(Chunk(), from, to - from),
                                   IntervalParts::Ends(*this, from, to));
    else
        slice->SetTypedChunk(CopyOfRange(Chunk(), from, to - from + 1UL));
    slice->IntervalCount_ = to - from;
    return slice;
}

// ---- Targets

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
    unsigned int const last = IntervalParts::LastEnd(*this);
    unsigned int const items = ItemCount(target.Pointer());
    if (target && last > items)
        Raise(err_kind, "Target too short (%d), must be >=%d: %s", items, last, target);
    IntervalParts::ReplaceTarget(*this, target);
}

DerivedPointer<Vector> IntervalParts::OwnTarget(IntervalVector& v)
{
    if (v.Target_ && v.Target_->RefCount() > 1)
        v.Target_ = v.Target_->Clone(true);
    return DerivedPointer<Vector>(v.Target_);
}

DerivedPointer<IndexVector> IntervalParts::OwnFinalTarget(IntervalVector& v)
{
    IntervalVector* layer = &v;
    for (int depth = 0; depth < most_layers; ++depth) {
        auto const target = OwnTarget(*layer);
        if (IndexVector* const pixels = PixelList(target))
            return DerivedPointer<IndexVector>(pixels);
        layer = Layer(target);
        if (!layer)
            break;
    }
    return nullptr;
}

void IntervalParts::Install(IntervalVector& v, TypedChunk const& limits, PMemBlock const& target)
{
    PMemBlock const old_target = std::exchange(v.Target_, PMemBlock(target));
    PMemBlock const old_ends = std::exchange(v.EndArray_, PMemBlock());
    v.SetTypedChunk(limits);
    v.ResizeVector(v.Length(), true, true); // counts the intervals
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

void IntervalParts::InstallEnds(IntervalVector& v, TypedChunk const& starts, PMemBlock const& ends)
{
    unsigned long const count = starts.Length();
    TypedChunk const payload = count > 0 ? starts : OneBehind(starts);
    PMemBlock const old_ends = std::exchange(v.EndArray_, PMemBlock());
    v.SetTypedChunk(payload);
    v.IndexVector::ResizeVector(count, true, true); // in this form no intervals have no limit
    v.EndArray_ = ends;
    v.IntervalCount_ = static_cast<unsigned int>(count);
}

unsigned int IntervalParts::LastEnd(IntervalVector const& v)
{
    return v.IntervalCount_ > 0 ? v.End(0)[v.IntervalCount_ - 1] : 0;
}

unsigned int IntervalParts::Limit(IntervalVector const& v, unsigned int k)
{
    if (!v.EndArray_ || k < v.IntervalCount_)
        return v.Start(0)[k];
    if (v.IntervalCount_ > 0)
        return LastEnd(v);
    // No intervals: their one limit is kept ahead of the ends, if it is known.
    bool const known = std::as_const(*MemCast<Vector>(v.EndArray_)).Chunk().GetOffset() > 0;
    return known ? v.End(0)[-1] : 0;
}

PMemBlock IntervalParts::Ends(IntervalVector const& v, unsigned int from, unsigned int to)
{
    unsigned long const count = to - from;
    TypedChunk const cells = NewChunk(1 + count, v.ElemType());
    auto* const out = static_cast<unsigned int*>(cells.Data());
    out[0] = Limit(v, from);
    if (count > 0)
        std::copy(v.End(0) + from, v.End(0) + to, out + 1);
    return Vector::Create(TypedChunk(count, cells.Type(), cells.Chunk(), sizeof *out), 1.0);
}

static_assert(first_interval_class == IntervalVector::stencil);

bool HasSeparateEnds(Vector const& v)
{
    auto const* const intervals = dynamic_cast<IntervalVector const*>(&v);
    return intervals && intervals->HasEndArray();
}

DerivedPointer<Vector> PackedLimits(Vector const& v)
{
    if (!HoldsStartsOnly(v))
        return nullptr;
    DerivedPointer<IntervalVector> packed(v.Clone(true));
    packed->EnsureStartAndEnd();
    return packed;
}

void TakePacked(Vector& v, Vector const& packed)
{
    double const factor = packed.Factor();
    IntervalParts::Install(static_cast<IntervalVector&>(v), packed.Chunk(),
                           static_cast<IntervalVector const&>(packed).Target());
    if (v.Factor() != factor)
        v.SetFactor(factor);
}

void IntervalParts::ReplaceTarget(IntervalVector& v, PMemBlock const& target)
{
    PMemBlock below(target);
    for (int depth = 0; IntervalVector const* const layer = Layer(below); ++depth) {
        if (layer == &v || depth == most_layers)
            Raise(err_kind, "Attempt to construct unsupported IntervalVector type: %s", target);
        below = PMemBlock(layer->Target());
    }
    PMemBlock const old = std::exchange(v.Target_, PMemBlock(target));
    try {
        v.UpdateType();
    } catch (...) {
        v.Target_ = old;
        throw;
    }
    v.ContentHasBeenChanged();
}

// ---- Classes

char const* IntervalVector::Class() const
{
    return StaticClass();
}

bool IntervalVector::Conforms(char const* name) const
{
    if (SameName(name, "intervalvector"))
        return true;
    if (SameName(name, "stencil"))
        return LgType() == stencil && Target_.Conforms("indexvector");
    if (SameName(name, "indexvector"))
        return true;
    return Vector::Conforms(name);
}

int IntervalVector::DetectType() const
{
    if (!Target_)
        Raise(err_kind, "Created Intervalvector without target.");
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
        layer = type == subobj ? Layer(layer->Target_) : nullptr;
    }
}

void IntervalVector::DoSetLgType(int type)
{
    if (DetectType() != type)
        RebuildAs(static_cast<logic_class_t>(type));
    MemBlock::DoSetLgType(type);
}

char const* const* IntervalVector::logic_list()
{
    static constexpr auto words = [] {
        std::array<char const*, 30> list{};
        list[stencil] = "stencil";
        list[subobj] = "subobj";
        list[subnum] = "subnum";
        list[datacubestencil] = "datacubestencil";
        list[vectorstencil] = "vectorstencil";
        return list;
    }();
    return words.data();
}

namespace {

constexpr int logic_words = 30;

char const* LogicWord(int type)
{
    return type >= 1 && type < logic_words ? IntervalVector::logic_list()[type] : nullptr;
}

/// The logical class of a word, or -1.
int LogicClass(safestring const& word)
{
    for (int type = 1; type < logic_words; ++type)
        if (char const* const own = LogicWord(type); own && word == own)
            return type;
    return -1;
}

/// What the description of a zone structure takes from its target: how its pixels lie.
safestring BehindObjects(safestring const& description)
{
    constexpr char mark[] = " objects";
    auto const at = description.find(mark);
    return at == safestring::npos ? description : description.substr(at + sizeof mark - 1);
}

} // namespace

safestring IntervalVector::logic2string(logic_class_t type)
{
    if (char const* const word = LogicWord(type))
        return word;
    Raise(err_kind, "No such IntervalVector logic class: %d", static_cast<int>(type));
}

IntervalVector::logic_class_t IntervalVector::string2logic(safestring const& word)
{
    int const type = LogicClass(word);
    if (type < 0)
        Raise(err_kind, "Unrecognized intervalvector logic type: %s", word);
    return static_cast<logic_class_t>(type);
}

safestring IntervalVector::LgType2String(int type) const
{
    char const* const word = LogicWord(type);
    return word ? safestring(word) : MemBlock::LgType2String(type);
}

int IntervalVector::String2LgType(safestring const& word)
{
    int const type = LogicClass(word);
    return type < 0 ? MemBlock::String2LgType(word) : type;
}

// ---- Whole objects

PMemBlock IntervalVector::DoClone(int mode) const
{
    DerivedPointer<IntervalVector> copy(new IntervalVector(*this));
    copy->FinishClone(mode);
    if (mode <= 0) {
        if (EndArray_)
            copy->EndArray_ = IntervalParts::Ends(*this, 0, IntervalCount_);
        if (Target_)
            copy->Target_ = Target_->Clone(false);
    }
    copy->MemBlock::DoSetLgType(LgType());
    return copy;
}

bool IntervalVector::Equals(MemBlock const& other) const
{
    auto const* const o = dynamic_cast<IntervalVector const*>(&other);
    if (!o || IntervalCount_ != o->IntervalCount_ || Factor() != o->Factor())
        return false;
    bool const same_limits =
        IntervalCount_ == 0 || (std::equal(Start(0), Start(0) + IntervalCount_, o->Start(0)) &&
                                std::equal(End(0), End(0) + IntervalCount_, o->End(0)));
    if (same_limits && Target_ == o->Target_)
        return true;
    if (EndArray_ || o->EndArray_)
        return ContiguousForm(*this)->Equals(*ContiguousForm(*o));
    return same_limits && Target_ && o->Target_ && *Target_ == *o->Target_;
}

safestring IntervalVector::DoGetDescription() const
{
    int const count = static_cast<int>(IntervalCount_);
    bool const limits_are_fit = ElemType() == UnsignedInt; // the error for others describes this
    switch (LgType()) {
    case stencil: {
        unsigned int w = 0, h = 0;
        GetImageDimensions(w, h, throw_never);
        return Text("Stencil of %d objects for %dx%d images, in vector representation.", count, w,
                    h);
    }
    case subobj:
        return Text("Subobject complex attribute for %d subobjects of %d objects: %s",
                    limits_are_fit ? CountAccessibleSubObjects(*this) : 0, count,
                    BehindObjects(Target_.GetDescription()));
    case subnum:
        return Text("Subobject scalar attribute for %d objects.", count);
    case datacubestencil:
        if (IndexVector const* const target = PixelList(Target_))
            return Text("Stencil of %d objects for %s, in vector representation.", count,
                        target->TargetDescr());
        break;
    case vectorstencil:
        if (IndexVector const* const target = PixelList(Target_))
            return Text("Vector-stencil of %d element sets in vectors of type: %s.", count,
                        target->TargetDescr());
        break;
    }
    return Text("IntervalVector under construction, %d intervals in: %s", count, Target_);
}

bool IntervalVector::Consistent(safestring& message, bool deep) const
{
    // Limits that have to be packed are small then, and what they hold together may be too much.
    bool const packs = EndArray_ && !Intervals(*this).Chain();
    if (!IndexVector::Consistent(message, deep && !packs))
        return false;
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
    unsigned int const last = IntervalParts::LastEnd(*this);
    if (last > ItemCount(Target_.Pointer())) {
        message += Text("Target too short (%d elements), should be at least %d: target=%s",
                        ItemCount(Target_.Pointer()), last, Target_);
        return false;
    }
    return true;
}

int IntervalVector::ConvertIndex(double value, rangespec_t) const
{
    return TruncToInt(value > 0 ? value + 0.5 : value - 0.5);
}

unsigned int CountAccessibleSubObjects(IntervalVector const& v)
{
    return Layer(v.Target()) ? static_cast<unsigned int>(Intervals(v).Total()) : 0;
}

} // namespace NKelmic
