#include <memblock/imaging/intervalvector.h>

#include <memblock/base/alloc.h>
#include <memblock/base/number.h>
#include <memblock/base/raise.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervallimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cstring>
#include <utility>

namespace NKelmic {

// ---- Creation

IntervalVector::IntervalVector(unsigned int count, unsigned int base, unsigned int* start,
                               unsigned int* end, void (*release)(void*), PMemBlock target)
    : IndexVector(count + (end ? 0UL : 1UL), start, static_cast<int>(base), release),
      IntervalCount_(count), Target_(std::move(target))
{
    if (end)
        EndArray_ = Vector::Create(count, UnsignedInt, end, release, static_cast<int>(base), 1.0);
    // The given array counts from its base. Without an interval the cells ahead of it would be
    // taken for a known limit.
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
    // One limit more than intervals, which a 32-bit sum would lose.
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
        made->Commit(v.Chunk(), v.EndsOf(0, v.IntervalCount_), made->Target_);
    } else if (!made->UseMemoryOf(DerivedPointer<Vector>(sample))) {
        made->ResizeVector(v.Length(), true, true);
    }
    return made;
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
    // Only the class with pixels of an image can be used in place of a stencil; the others are
    // interval vectors by structure.
    if (SameName(name, "stencil"))
        return LgType() == stencil && Target_.Conforms("indexvector");
    if (SameName(name, "indexvector"))
        return true;
    return Vector::Conforms(name);
}

void IntervalVector::DoSetLgType(int type)
{
    // Keys may give the class before the target: the target that is there must be replaced for the
    // class to be true.
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

/// What the description of a zone structure takes from its target: where its pixels are.
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
    // A deep copy owns ends and target. Otherwise both are shared until one side writes.
    if (mode <= 0) {
        if (EndArray_)
            copy->EndArray_ = EndsOf(0, IntervalCount_);
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
    // Copies share their target. This spares a pass over its elements.
    if (same_limits && Target_ == o->Target_)
        return true;
    // Separate ends may leave gaps and come in any order, so they are compared by what packing
    // makes of them.
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

int IntervalVector::ConvertIndex(double value, rangespec_t) const
{
    return TruncToInt(value > 0 ? value + 0.5 : value - 0.5);
}

} // namespace NKelmic
