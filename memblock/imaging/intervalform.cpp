#include <memblock/base/alloc.h>
#include <memblock/base/raise.h>
#include <memblock/imaging/intervallimits_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cmath>
#include <memory>
#include <numeric>

namespace NKelmic {

namespace {

using TargetTypes = TypeUnion<NumericTypes, ObjectTypes>;

/// The order of intervals by their starts, then by their ends.
class IntervalSorter {
public:
    explicit IntervalSorter(Intervals const& intervals) : intervals_(intervals) {}
    bool operator()(unsigned int a, unsigned int b) const
    {
        unsigned int const from_a = intervals_.From(a), from_b = intervals_.From(b);
        return from_a != from_b ? from_a < from_b : intervals_.To(a) < intervals_.To(b);
    }

private:
    Intervals const& intervals_;
};

std::vector<unsigned int> OrderOf(Intervals const& intervals, bool sorted)
{
    std::vector<unsigned int> order(intervals.Count());
    std::iota(order.begin(), order.end(), 0u);
    // Mostly they are in order: the test costs one pass and no moves.
    if (sorted && !std::is_sorted(order.begin(), order.end(), IntervalSorter(intervals)))
        std::sort(order.begin(), order.end(), IntervalSorter(intervals));
    return order;
}

/// Copy the elements of all intervals side by side.
template <class T>
void CopyIntervals(T const* __restrict source, Intervals const& intervals,
                   std::vector<unsigned int> const& order, T* __restrict target)
{
    for (unsigned int const k : order)
        target = std::copy(source + intervals.From(k), source + intervals.To(k), target);
}

/// The new payload of a target that is a plain array.
///
/// width: bytes that the number of an interval takes, 2 or 4. Settled: the refusal names it.
TypedChunk GatherElements(Vector const& target, Intervals const& intervals,
                          std::vector<unsigned int> const& order, int width)
{
    char const* const miss =
        width == 2 ? "Function return start_and_end_tmpl2 not implemented for data type '%s'"
                   : "Function return start_and_end_tmpl4 not implemented for data type '%s'";
    return WithElemType<TargetTypes>(
        target.ElemType(), miss, [&]<class T>(TypeTag<T>) -> TypedChunk {
            TypedChunk fresh = OpenChunk(intervals.Total(), target.ElemType());
            CopyIntervals(target.TypedPointer<T>(), intervals, order,
                          static_cast<T*>(fresh.Data()));
            return fresh;
        });
}

/// The new middle layer: the limits of its intervals go side by side, what they hold stays.
PMemBlock GatherLayer(IntervalVector const& target, Intervals const& intervals,
                      std::vector<unsigned int> const& order)
{
    Intervals const medium(target);
    // Overlapping intervals repeat their items, so the sum may be more than any vector holds.
    CheckLength(intervals.Total());
    LimitArray starts(intervals.Total()), ends(intervals.Total());
    unsigned int n = 0;
    for (unsigned int const k : order)
        for (unsigned int i = intervals.From(k); i < intervals.To(k); ++i, ++n) {
            starts[n] = medium.From(i);
            ends[n] = medium.To(i);
        }
    return IntervalVector::Create(n, LimitArray::base, starts.Take(), ends.Take(), mb_free,
                                  DerivedPointer<Vector>(target.Target()));
}

/// An array for the limits of a contiguous form. The cells ahead of the first start stay, as
/// numbers of objects may be numbers of cells.
TypedChunk OpenLimits(IntervalVector const& v)
{
    unsigned long const ahead = v.Chunk().GetOffset() / sizeof(unsigned int);
    TypedChunk const cells = NewChunk(ahead + v.IntervalCount() + 1UL, v.ElemType());
    std::copy_n(static_cast<unsigned int const*>(v.Pointer()) - ahead, ahead,
                static_cast<unsigned int*>(cells.Data()));
    return TypedChunk(v.IntervalCount() + 1UL, v.ElemType(), cells.Chunk(),
                      ahead * sizeof(unsigned int));
}

/// The limits as they are, of intervals each of which begins where the one before it ends.
TypedChunk ChainedLimits(IntervalVector const& v, Intervals const& intervals, unsigned int last)
{
    TypedChunk const limits = OpenLimits(v);
    auto* const out = static_cast<unsigned int*>(limits.Data());
    unsigned int const count = intervals.Count();
    if (count > 0)
        std::copy_n(intervals.Starts(), count, out);
    out[count] = last;
    return limits;
}

/// Limits for intervals whose items are put side by side in this order.
TypedChunk GatheredLimits(IntervalVector const& v, Intervals const& intervals,
                          std::vector<unsigned int> const& order)
{
    TypedChunk const limits = OpenLimits(v);
    auto* limit = static_cast<unsigned int*>(limits.Data());
    for (unsigned int const k : order) { // the first one is 0
        limit[1] = limit[0] + intervals.Size(k);
        ++limit;
    }
    return limits;
}

struct Freed {
    void operator()(void* block) const { mb_free(block); }
};

/// The number from 1 of the interval that each element belongs to, 0 for none. Where two claim an
/// element it is the later one's.
std::unique_ptr<unsigned short, Freed> Owners(Intervals const& intervals,
                                              std::vector<unsigned int> const& order, bool in_place)
{
    unsigned long const elements = in_place ? intervals.Items() : intervals.Total();
    std::unique_ptr<unsigned short, Freed> owners(
        static_cast<unsigned short*>(mb_calloc(std::max(elements, 1UL), sizeof(unsigned short))));
    if (!owners)
        throw std::bad_alloc();
    unsigned short* place = owners.get();
    unsigned short number = 0;
    for (unsigned int const k : order) {
        if (in_place)
            place = owners.get() + intervals.From(k);
        place = std::fill_n(place, intervals.Size(k), ++number);
    }
    return owners;
}

/// The parts of the contiguous form, built aside.
struct Packed {
    TypedChunk limits;
    PMemBlock target;
    std::unique_ptr<unsigned short, Freed> owners; ///< of each element of the new target
};

/// last: the limit behind the last interval. width: see GatherElements.
Packed Pack(IntervalVector const& v, unsigned int last, bool sorted, bool with_owners, int width)
{
    Intervals const intervals(v);
    // Where each interval begins at the end of the one before it, one array can hold the limits as
    // they are. Sorting also asks that they do not fall, since that would change their order.
    bool const target_stays = sorted ? intervals.Tile() : intervals.Chain();
    auto const order = OrderOf(intervals, sorted && !target_stays);
    Packed packed{target_stays ? ChainedLimits(v, intervals, last)
                               : GatheredLimits(v, intervals, order),
                  v.Target(), nullptr};
    if (with_owners)
        packed.owners = Owners(intervals, order, target_stays);
    if (target_stays)
        return packed;
    if (IntervalVector const* const layer = Layer(v.Target())) {
        packed.target = GatherLayer(*layer, intervals, order);
    } else {
        TypedChunk const fresh =
            GatherElements(*MemCast<Vector>(v.Target()), intervals, order, width);
        packed.target = v.Target()->Clone(true); // the other owners of the target keep theirs
        MemCast<Vector>(packed.target)->SetTypedChunk(fresh);
    }
    return packed;
}

} // namespace

TypedChunk ElementsOf(Vector const& target, Intervals const& intervals)
{
    return GatherElements(target, intervals, OrderOf(intervals, false), sizeof(unsigned short));
}

int IntervalVector::Reformat(bool sorted, unsigned short** shortindices)
{
    if (!EndArray_)
        return 0;
    // The elements of other targets, such as images, have a shape that gathering would lose.
    if (!Target_ || !(MemCast<IndexVector>(Target_) || SameName(Target_->Class(), "vector")))
        return 1;
    constexpr unsigned int most_short = 65533; // 65534 and 65535 stay free for callers' marks
    bool const is_short = IntervalCount_ <= most_short;
    if (shortindices && !is_short)
        Raise(err_request,
              "Too many objects, cannot reformat data; if a cell list is involved, try to insert "
              "CalcZone() module to recalculate zones (%s)",
              *this);
    Packed packed = Pack(*this, LimitAt(IntervalCount_), sorted, shortindices,
                         is_short ? sizeof(unsigned short) : sizeof(unsigned int));
    Commit(packed.limits, PMemBlock(), packed.target);
    if (shortindices)
        *shortindices = packed.owners.release();
    return 0;
}

unsigned int* IntervalVector::StartAndEnd(int base, bool sorted, bool reformat,
                                          unsigned short** shortindices)
{
    // Callers that only want to know the form take null for an answer.
    if (EndArray_ && !reformat)
        return nullptr;
    if (EndArray_) {
        if (int const code = Reformat(sorted, shortindices))
            Raise(err_request_value, "Could not reformat indexvector (code %d): %s", code, *this);
    }
    return Start(base);
}

// The form of the limits is not what the object means, so a reader may change it.
unsigned int const* IntervalVector::StartAndEnd(int base, bool sorted, bool reformat,
                                                unsigned short** shortindices) const
{
    if (!EndArray_)
        return Start(base);
    const_cast<IntervalVector*>(this)->StartAndEnd(base, sorted, reformat, shortindices);
    return EndArray_ ? nullptr : Start(base);
}

void IntervalVector::EnsureStartAndEnd() const
{
    StartAndEnd(0, false, true, nullptr);
}

void IntervalVector::AddEndArray()
{
    if (EndArray_)
        return;
    // The last limit is no start: without it the array has the length that this form asks for.
    Commit(FirstElements(Chunk(), IntervalCount_), EndsOf(0, IntervalCount_), Target_);
}

// ---- Hooks of packedlimits_internal.h, by which vectors work on the limits of both forms

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
    // An edit may have set another factor, which the commit leaves as it was.
    double const factor = packed.Factor();
    static_cast<IntervalVector&>(v).Commit(packed.Chunk(), PMemBlock(),
                                           static_cast<IntervalVector const&>(packed).Target());
    if (v.Factor() != factor)
        v.SetFactor(factor);
}

namespace {

/// The sizes of a target of another rank with as many elements, as far as there is one.
IndexVector::TargetData OfRank(int rank, IndexVector const& target)
{
    std::vector<unsigned int> const dims = target.GetTargetData().dims;
    unsigned long total = dims.empty() ? 0 : 1;
    for (unsigned int const size : dims)
        total *= size;
    // Cut to what a size can be. Pixels beyond it stay in the list, and readers leave them out.
    auto const whole = static_cast<unsigned int>(std::min(total, 0xFFFFFFFFUL));
    unsigned int const width = dims.empty() ? 0 : dims[0];
    if (rank == 1)
        return IndexVector::TargetData(1, whole);
    if (rank == 2)
        return dims.size() == 2 ? IndexVector::TargetData(2, dims[0], dims[1])
                                : IndexVector::TargetData(2, width, width ? whole / width : 0);
    if (dims.size() == 2)
        return IndexVector::TargetData(3, dims[0], dims[1], 1u);
    // Nothing says what shape a cube had; one of equal sides has about as many voxels, and keys set
    // the sizes afterwards.
    auto const side = static_cast<unsigned int>(std::lround(std::pow(double(whole), 1.0 / 3)));
    return IndexVector::TargetData(3, side, side, side);
}

PMemBlock PixelsOfRank(int rank, PMemBlock const& present)
{
    IndexVector const* const pixels = PixelList(present);
    if (!pixels)
        return IndexVector::Create(0, rank == 1   ? IndexVector::TargetData(1, 0u)
                                      : rank == 2 ? IndexVector::TargetData(2, 0u, 0u)
                                                  : IndexVector::TargetData(3, 0u, 0u, 0u));
    DerivedPointer<IndexVector> adapted(pixels->Clone(true));
    adapted->SetTargetData(OfRank(rank, *pixels));
    return adapted;
}

/// `count` zones without pixels, over the pixels that are there.
PMemBlock EmptyZones(unsigned int count, PMemBlock const& present)
{
    DerivedPointer<IndexVector> pixels(PixelList(present));
    if (!pixels)
        pixels = IndexVector::Create(0, IndexVector::TargetData(2, 0u, 0u));
    return IntervalVector::Create(count, pixels);
}

} // namespace

void IntervalVector::RebuildAs(logic_class_t type)
{
    // Limits may be there ahead of what they point to: fresh items are as many as they ask for.
    unsigned int const items = std::max(ItemCount(Target_.Pointer()), LastEnd(*this));
    PMemBlock target;
    switch (type) {
    case stencil:
        target = PixelsOfRank(2, Target_);
        break;
    case datacubestencil:
        target = PixelsOfRank(3, Target_);
        break;
    case vectorstencil:
        target = PixelsOfRank(1, Target_);
        break;
    case subnum:
        // Values that are there stay: files bring them before or after the class.
        if (Target_ && SameName(Target_->Class(), "vector"))
            return;
        target = Vector::Create(items, Int, true, 0, 1.0);
        break;
    case subobj:
        if (Layer(Target_) && DetectType() == subobj)
            return;
        target = EmptyZones(items, Target_);
        break;
    default:
        Raise(err_kind, "Cannot adapt IntervalVector structure to type %d (%s): %s",
              static_cast<int>(type), LgType2String(type), *this);
    }
    if (PixelList(target) && PixelList(Target_)) // the same pixels: they are no fewer than before
        return ReplaceTarget(target);
    SetTarget(DerivedPointer<Vector>(target));
}

} // namespace NKelmic
