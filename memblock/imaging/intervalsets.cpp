#include <memblock/base/raise.h>
#include <memblock/core/options.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalparts_internal.h>
#include <memblock/imaging/setops_kernels.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <cstring>

namespace NKelmic {

namespace {

/// The list in ascending order: itself, or a copy in `work`.
int const* Sorted(int const* list, int n, int* work)
{
    if (std::is_sorted(list, list + n))
        return list;
    std::copy(list, list + n, work);
    std::sort(work, work + n);
    return work;
}

/// Lists without repeated numbers.
int* CombineIncreasing(char op, int const* a, int na, int const* b, int nb, int* out)
{
    switch (op) {
    case '&':
        return setops::Merge<true, false>(a, a + na, b, b + nb, out);
    case '|':
        return setops::Merge<true, true>(a, a + na, b, b + nb, out);
    default:
        return setops::Merge<false, true>(a, a + na, b, b + nb, out);
    }
}

int* CombineSorted(char op, int const* a, int na, int const* b, int nb, int* out)
{
    switch (op) {
    case '&':
        return std::set_intersection(a, a + na, b, b + nb, out);
    case '|':
        return std::set_union(a, a + na, b, b + nb, out);
    default:
        return std::set_symmetric_difference(a, a + na, b, b + nb, out);
    }
}

bool IsPixelList(PMemBlock const& target)
{
    return target && SameName(target->Class(), "indexvector");
}

unsigned int LongestInterval(Intervals const& intervals)
{
    unsigned int longest = 0;
    for (unsigned int k = 0; k < intervals.Count(); ++k)
        longest = std::max(longest, intervals.Size(k));
    return longest;
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
        : limits_(model.IntervalCount() + 1UL), most_(most), room_(std::min(expected, most)),
          pixels_(OpenIndexVector(room_, model.IndexVectorTarget()->GetTargetData())),
          out_(pixels_->UnsignedIntPointer())
    {
        limits_[0] = 0;
    }
    /// Where the next object goes, which has up to `most` pixels.
    unsigned int* Room(unsigned long most)
    {
        if (used_ + most > room_) [[unlikely]] {
            room_ = most_;
            pixels_->ResizeVector(room_, true, false);
            out_ = pixels_->UnsignedIntPointer();
        }
        return out_ + used_;
    }
    /// End the next object behind what was written to `Room`.
    void Close(unsigned int count)
    {
        used_ += count;
        limits_[++objects_] = used_;
    }
    DerivedPointer<IntervalVector> Finish()
    {
        pixels_->ResizeVector(used_, true, true);
        return IntervalVector::Create(objects_, LimitArray::base, limits_.Take(), mb_free, pixels_);
    }

private:
    LimitArray limits_;
    unsigned long most_, room_;
    DerivedPointer<IndexVector> pixels_;
    unsigned int* out_;
    unsigned int used_ = 0, objects_ = 0;
};

/// The set operation on the objects of two structures, one number after the other.
class ObjectPairs {
public:
    ObjectPairs(char op, IntervalVector const& a, IntervalVector const& b)
        : op_(op), left_(a), right_(b), pixels_a_(Pixels(a.Target())),
          pixels_b_(Pixels(b.Target())), work_a_(LongestInterval(left_)),
          work_b_(LongestInterval(right_))
    {
    }
    unsigned int Count() const { return left_.Count(); }
    struct Pair {
        int const *a, *b;
        unsigned int na, nb;
        unsigned int most; ///< pixels of the result
    };
    Pair At(unsigned int k) const
    {
        unsigned int const from_a = left_.From(k), from_b = right_.From(k);
        unsigned int const na = left_.To(k) - from_a, nb = right_.To(k) - from_b;
        return {pixels_a_ + from_a, pixels_b_ + from_b, na, nb, op_ == '&' ? na : na + nb};
    }
    unsigned long Most() const { return left_.Total() + (op_ == '&' ? 0 : right_.Total()); }
    unsigned int Write(Pair const& pair, unsigned int* out)
    {
        return static_cast<unsigned int>(
            intvecop(op_, pair.a, static_cast<int>(pair.na), pair.b, static_cast<int>(pair.nb),
                     reinterpret_cast<int*>(out), work_a_.data(), work_b_.data()));
    }
    /// The pixels of the whole result, some more than it has by a sample of its objects. Memory
    /// that is asked for and given back unused costs more than the operation itself.
    unsigned long Expected()
    {
        constexpr unsigned int stride = 64, few = 16 * stride;
        unsigned long const most = Most();
        if (Count() < few)
            return most;
        std::vector<unsigned int> out(work_a_.size() + work_b_.size());
        unsigned long sampled = 0, written = 0;
        for (unsigned int k = 0; k < Count(); k += stride) {
            Pair const pair = At(k);
            sampled += pair.most;
            written += Write(pair, out.data());
        }
        double const share = sampled > 0 ? double(written) / double(sampled) : 1.0;
        return static_cast<unsigned long>(double(most) * std::min(share * 1.0625, 1.0)) +
               out.size();
    }

private:
    char op_;
    Intervals left_, right_;
    int const *pixels_a_, *pixels_b_;
    std::vector<int> work_a_, work_b_;
};

PMemBlock Combine(char op, IntervalVector const& a, IntervalVector const& b)
{
    if (a.IntervalCount() != b.IntervalCount())
        Raise(err_kind,
              "Logical operation \"%c\" only supported for operands with the same number of "
              "geometrical figures. These operands have %d and %d.",
              op, a.IntervalCount(), b.IntervalCount());
    ObjectPairs pairs(op, a, b);
    StencilBuilder result(a, pairs.Most(), pairs.Expected());
    for (unsigned int k = 0; k < pairs.Count(); ++k) {
        auto const pair = pairs.At(k);
        result.Close(pairs.Write(pair, result.Room(pair.most)));
    }
    return result.Finish();
}

PMemBlock LogicalOp(char op, IntervalVector const& v, PMemBlock const& rhs)
{
    if (!IsPixelList(v.Target()))
        Raise(err_kind,
              "Logical operation \"%c\" is implemented only for two-layer (body-type) attributes, "
              "but first operand is: %s",
              op, v);
    IntervalVector const* const other = MemCast<IntervalVector>(rhs);
    if (other && IsPixelList(other->Target())) {
        if (op == '!') // told here, as without objects nothing would come to it
            Raise(err_request, "IntervalVector::op(): operation not supported: \"%c\"", op);
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

DerivedPointer<IndexVector> OpenIndexVector(unsigned long n, IndexVector::TargetData const& target)
{
    auto indices = IndexVector::Create(0, target);
    indices->SetTypedChunk(OpenChunk(n, DataTypeBase::UnsignedInt));
    return indices;
}

int intvecop(char op, int const* a, int na, int const* b, int nb, int* out, int* worka, int* workb)
{
    if (op != '&' && op != '|' && op != '^')
        Raise(err_request, "IntervalVector::op(): operation not supported: \"%c\"", op);
    if (setops::Increases(a, na) && setops::Increases(b, nb))
        return static_cast<int>(CombineIncreasing(op, a, na, b, nb, out) - out);
    a = Sorted(a, na, worka);
    b = Sorted(b, nb, workb);
    return static_cast<int>(CombineSorted(op, a, na, b, nb, out) - out);
}

PMemBlock IntervalVector::op(char operation, PMemBlock rhs, op_options const& options) const
{
    if (operation != '\0' && std::strchr("&|!^", operation))
        return LogicalOp(operation, *this, rhs);
    if (operation == 'p')
        return PointOp(operation, *this, std::move(rhs), options);
    return Vector::op(operation, std::move(rhs), options);
}

template <class T>
unsigned int intvecimageand_tmpl(unsigned int const* indices, unsigned int n, T const* pixels,
                                 unsigned long npixels, unsigned int* out)
{
    unsigned int kept = 0;
    for (unsigned int i = 0; i < n; ++i) {
        unsigned int const index = indices[i];
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
        for (unsigned int k = 0; k < intervals.Count(); ++k)
            result.Close(intvecimageand_tmpl(indices + intervals.From(k), intervals.Size(k), pixels,
                                             mask.Length(), result.Room(intervals.Size(k))));
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
