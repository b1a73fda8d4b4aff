#include <memblock/base/raise.h>
#include <memblock/core/options.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervallimits_internal.h>
#include <memblock/imaging/setops_kernels.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cstring>

namespace NKelmic {

namespace {

/// Call `work` with the parts that a set operation keeps, see setops.
template <class Work>
decltype(auto) WithSetOperation(char op, Work&& work)
{
    switch (op) {
    case '&':
        return work.template operator()<true, false>();
    case '|':
        return work.template operator()<true, true>();
    case '^':
        return work.template operator()<false, true>();
    default:
        Raise(err_request, "IntervalVector::op(): operation not supported: \"%c\"", op);
    }
}

template <bool common, bool single>
int* CombineSorted(int const* a, int na, int const* b, int nb, int* out)
{
    if constexpr (!single)
        return std::set_intersection(a, a + na, b, b + nb, out);
    else if constexpr (common)
        return std::set_union(a, a + na, b, b + nb, out);
    else
        return std::set_symmetric_difference(a, a + na, b, b + nb, out);
}

/// The list in ascending order: itself, or a copy where `room(n)` is.
template <class Room>
int const* Sorted(int const* list, int n, Room&& room)
{
    if (std::is_sorted(list, list + n))
        return list;
    int* const copy = room(n);
    std::copy(list, list + n, copy);
    std::sort(copy, copy + n);
    return copy;
}

/// blocks: whether setops::MergeBlocks is there, and finds room.
template <bool common, bool single, class RoomA, class RoomB>
int* CombineLists(int const* a, int na, int const* b, int nb, int* out, bool blocks, RoomA&& room_a,
                  RoomB&& room_b)
{
    // Lists of an object are nearly always ascending without repeats. Others are sorted, on a copy,
    // and go by the standard algorithms.
    if (setops::BothIncrease(a, na, b, nb)) {
        // Branches of long runs are predictable, and the plain merge is faster for them.
        if (blocks && !setops::HasLongRuns(a, na))
            return setops::MergeBlocks<common, single>(a, a + na, b, b + nb, out);
        return setops::Merge<common, single>(a, a + na, b, b + nb, out);
    }
    a = Sorted(a, na, room_a);
    b = Sorted(b, nb, room_b);
    return CombineSorted<common, single>(a, na, b, nb, out);
}

bool IsPixelList(PMemBlock const& target)
{
    return target && SameName(target->Class(), "indexvector");
}

int const* Pixels(PMemBlock const& target)
{
    Vector const& list = *MemCast<Vector>(target);
    return reinterpret_cast<int const*>(list.UnsignedIntPointer());
}

/// Limits and pixels of a result that is written object by object.
class StencilBuilder {
public:
    /// Room is made for `expected` pixels, and for `most` when they are more.
    StencilBuilder(IntervalVector const& model, unsigned long most, unsigned long expected)
        : limits_(model.IntervalCount() + 1UL), most_(most),
          pixels_(
              OpenIndexVector(std::min(expected, most), model.IndexVectorTarget()->GetTargetData()))
    {
        limits_[0] = 0;
        result_.limits = &limits_[0];
        UseRoom(0);
    }
    /// Where the next object goes, which has up to `most` pixels.
    int* Room(unsigned long most)
    {
        // The sample was wrong. This happens once at most, as the room is then for the largest
        // result possible.
        if (most > static_cast<unsigned long>(result_.end - result_.next)) [[unlikely]] {
            pixels_->ResizeVector(most_, true, false);
            UseRoom(result_.next - result_.begin);
        }
        return result_.next;
    }
    /// End the next object ahead of `to`.
    void Close(int* to) { result_.Close(to); }
    setops::Result& Written() { return result_; }
    DerivedPointer<IntervalVector> Finish()
    {
        pixels_->ResizeVector(static_cast<unsigned long>(result_.next - result_.begin), true, true);
        return IntervalVector::Create(result_.objects, LimitArray::base, limits_.Take(), mb_free,
                                      pixels_);
    }

private:
    void UseRoom(std::ptrdiff_t used)
    {
        result_.begin = pixels_->IntPointer();
        result_.next = result_.begin + used;
        result_.end = result_.begin + pixels_->Length();
    }

    LimitArray limits_;
    unsigned long most_;
    DerivedPointer<IndexVector> pixels_;
    setops::Result result_{};
};

/// A set operation on the objects of two structures, one number after the other.
template <bool common, bool single>
class ObjectPairs {
public:
    ObjectPairs(IntervalVector const& a, IntervalVector const& b)
        : left_(a), right_(b), pixels_a_(Pixels(a.Target())), pixels_b_(Pixels(b.Target())),
          most_(left_.Total() + (single ? right_.Total() : 0))
    {
    }
    unsigned long Most() const { return most_; }
    /// The pixels of the whole result, some more than it has by a sample of its objects. Memory
    /// that is asked for and given back unused costs more than the operation itself.
    unsigned long Expected()
    {
        constexpr unsigned int parts = 16, part = 64; // neighbours share a page of memory
        // For few objects the sample would be half of the work.
        if (left_.Count() < 2 * parts * part)
            return most_;
        std::vector<int> out;
        unsigned long sampled = 0, written = 0;
        for (unsigned int i = 0; i < parts; ++i)
            for (unsigned int j = 0; j < part; ++j) {
                Pair const pair = At(left_.Count() / parts * i + j);
                out.resize(std::max(out.size(), pair.most + setops::lanes));
                sampled += pair.most;
                int* const end = Write(pair, out.data(), out.data() + out.size());
                written += static_cast<unsigned long>(end - out.data());
            }
        // A sixteenth more than the sample says: running out costs a copy of everything.
        double const share = sampled > 0 ? double(written) / double(sampled) : 1.0;
        return static_cast<unsigned long>(double(most_) * std::min(share * 1.0625, 1.0)) +
               out.size();
    }
    void WriteAll(StencilBuilder& result)
    {
        setops::Lists const a = Numbers(left_, pixels_a_), b = Numbers(right_, pixels_b_);
        setops::Result const& written = result.Written();
        while (written.objects < left_.Count()) {
            // Small objects go several at a time. It stops at the first one that is too large or
            // not in order, which is then done alone.
            if (setops::HasLanes())
                setops::CombineFew<common, single>(a, b, left_.Count(), result.Written());
            if (written.objects == left_.Count())
                break;
            Pair const pair = At(written.objects);
            int* const out = result.Room(pair.most);
            result.Close(Write(pair, out, written.end));
        }
    }

private:
    struct Pair {
        int const *a, *b;
        int na, nb;
        unsigned long most; ///< pixels of the result
    };
    static setops::Lists Numbers(Intervals const& intervals, int const* pixels)
    {
        return {pixels, intervals.Starts(), intervals.Ends(), intervals.Items()};
    }
    Pair At(unsigned int k) const
    {
        unsigned int const from_a = left_.From(k), from_b = right_.From(k);
        unsigned int const na = left_.To(k) - from_a, nb = right_.To(k) - from_b;
        return {pixels_a_ + from_a, pixels_b_ + from_b, static_cast<int>(na), static_cast<int>(nb),
                na + (single ? static_cast<unsigned long>(nb) : 0UL)};
    }
    int* Write(Pair const& pair, int* out, int const* room_end)
    {
        bool const blocks = setops::HasLanes() &&
                            static_cast<unsigned long>(room_end - out) >= pair.most + setops::lanes;
        auto const room = [](std::vector<int>& work) {
            return [&work](int n) {
                work.resize(std::max(work.size(), static_cast<std::size_t>(n)));
                return work.data();
            };
        };
        return CombineLists<common, single>(pair.a, pair.na, pair.b, pair.nb, out, blocks,
                                            room(work_a_), room(work_b_));
    }

    Intervals left_, right_;
    int const *pixels_a_, *pixels_b_;
    unsigned long most_;
    std::vector<int> work_a_, work_b_; // for lists that have to be sorted
};

PMemBlock Combine(char op, IntervalVector const& a, IntervalVector const& b)
{
    // Settled: ahead of the operator, so that '!' passes the tests of the operands.
    if (a.IntervalCount() != b.IntervalCount())
        Raise(err_kind,
              "Logical operation \"%c\" only supported for operands with the same number of "
              "geometrical figures. These operands have %d and %d.",
              op, a.IntervalCount(), b.IntervalCount());
    return WithSetOperation(op, [&]<bool common, bool single>() -> PMemBlock {
        ObjectPairs<common, single> pairs(a, b);
        StencilBuilder result(a, pairs.Most(), pairs.Expected());
        pairs.WriteAll(result);
        return result.Finish();
    });
}

PMemBlock LogicalOp(char op, IntervalVector const& v, PMemBlock const& rhs)
{
    if (!IsPixelList(v.Target()))
        Raise(err_kind,
              "Logical operation \"%c\" is implemented only for two-layer (body-type) attributes, "
              "but first operand is: %s",
              op, v);
    IntervalVector const* const other = MemCast<IntervalVector>(rhs);
    // Stencils of another image size are not refused: pixel numbers are compared as they are.
    if (other && IsPixelList(other->Target())) {
        return Combine(op, v, *other);
    }
    if (rhs.Conforms("image")) {
        if (op != '&')
            Raise(err_kind, "For image second operand only the logical operation \"and\" is "
                            "implemented.");
        return intvecimageand(DerivedPointer<IntervalVector>(&v), DerivedPointer<Image>(rhs));
    }
    Raise(err_kind,
          "Logical operation \"%c\" is implemented only for two-layer (body-type) attributes and "
          "images, but second operand is: %s",
          op, rhs);
}

/// Arithmetic on the numbers, keeping the grouping. Of another "subnum" with the same grouping the
/// numbers count, as its payload is limits.
PMemBlock PointOp(char op, IntervalVector const& v, PMemBlock rhs, op_options const& options)
{
    if (!v.Target() || !SameName(v.Target()->Class(), "vector"))
        Raise(err_kind,
              "Function \"point()\" is implemented only for subobject numeric attributes.");
    // Of another grouping the limits are the operand, as of any vector: its numbers could not be
    // matched.
    if (IntervalVector const* const other = MemCast<IntervalVector>(rhs);
        other && other->LgType() == IntervalVector::subnum &&
        other->IntervalCount() == v.IntervalCount() &&
        (v.IntervalCount() == 0 ||
         (std::equal(v.Start(0), v.Start(0) + v.IntervalCount(), other->Start(0)) &&
          std::equal(v.End(0), v.End(0) + v.IntervalCount(), other->End(0)))))
        rhs = PMemBlock(other->Target());
    PMemBlock const numbers = v.Target()->op(op, rhs, options);
    DerivedPointer<IntervalVector> result(v.Clone(true)); // the limits are shared until written
    result->SetTarget(DerivedPointer<Vector>(numbers));
    return result;
}

} // namespace

int intvecop(char op, int const* a, int na, int const* b, int nb, int* out, int* worka, int* workb)
{
    auto const in = [](int* work) { return [work](int) { return work; }; };
    return WithSetOperation(op, [&]<bool common, bool single>() {
        return static_cast<int>(
            CombineLists<common, single>(a, na, b, nb, out, false, in(worka), in(workb)) - out);
    });
}

PMemBlock IntervalVector::op(char operation, PMemBlock rhs, op_options const& options) const
{
    if (operation != '\0' && std::strchr("&|!^", operation))
        return LogicalOp(operation, *this, rhs);
    if (operation == 'p')
        return PointOp(operation, *this, std::move(rhs), options);
    if (EndArray_)
        return ContiguousForm(*this)->Vector::op(operation, std::move(rhs), options);
    return Vector::op(operation, std::move(rhs), options);
}

template <class T>
unsigned int intvecimageand_tmpl(unsigned int const* indices, unsigned int n, T const* pixels,
                                 unsigned long npixels, unsigned int* out)
{
    unsigned int kept = 0;
    for (unsigned int i = 0; i < n; ++i) {
        unsigned int const index = indices[i];
        // Written always and kept by the sum, without a branch that depends on the pixels.
        out[kept] = index;
        kept += index < npixels && pixels[index] != 0;
    }
    return kept;
}

DerivedPointer<IntervalVector> intvecimageand(DerivedPointer<IntervalVector> v,
                                              DerivedPointer<Image> image)
{
    IntervalVector const& objects = cref(v);
    Vector const& mask = cref(image);
    Intervals const intervals(objects);
    auto const* const indices =
        reinterpret_cast<unsigned int const*>(Pixels(objects.IndexVectorTarget()));
    auto const keep = [&]<class T>(T const* pixels) {
        StencilBuilder result(objects, intervals.Total(), intervals.Total());
        for (unsigned int k = 0; k < intervals.Count(); ++k) {
            unsigned int const n = intervals.Size(k);
            auto* const out = reinterpret_cast<unsigned int*>(result.Room(n));
            unsigned int const kept =
                intvecimageand_tmpl(indices + intervals.From(k), n, pixels, mask.Length(), out);
            result.Close(reinterpret_cast<int*>(out + kept));
        }
        return result.Finish();
    };
    if (mask.ElemSize() == 1)
        return keep(static_cast<unsigned char const*>(mask.Pointer()));
    if (mask.ElemSize() == 2)
        return keep(static_cast<unsigned short const*>(mask.Pointer()));
    Raise(err_kind, "Image type not supported: %s", image);
}

template unsigned int intvecimageand_tmpl(unsigned int const*, unsigned int, unsigned char const*,
                                          unsigned long, unsigned int*);
template unsigned int intvecimageand_tmpl(unsigned int const*, unsigned int, unsigned short const*,
                                          unsigned long, unsigned int*);

} // namespace NKelmic
