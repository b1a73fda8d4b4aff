#include <memblock/imaging/image.h>

#include <memblock/base/alloc.h>
#include <memblock/base/number.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/pixel_kernels.h>
#include <memblock/imaging/stencillists_internal.h>
#include <memblock/vector/summary.h>

#include <algorithm>
#include <new>

namespace NKelmic {

namespace {

/// Entries behind the last of a list that its kernel may write.
constexpr unsigned long overshoot = 8;

unsigned int* NewIndices(unsigned long count)
{
    if (void* block = mb_malloc(count * sizeof(unsigned int)))
        return static_cast<unsigned int*>(block);
    throw std::bad_alloc();
}

} // namespace

template <class T>
unsigned int getmaskvector_tmpl(T const* pixels, unsigned int n, unsigned int* indices)
{
    return pixels::ListNonZero(pixels, n, indices);
}

DerivedPointer<IndexVector> Image::GetMaskVector() const
{
    // Wide pixels become a mask first, on a clone: one kernel over bytes then serves all types.
    DerivedPointer<Image> source(this);
    if (ElemSize() != 1) {
        source = DerivedPointer<Image>(Clone(true));
        source->SetType(mask);
    }
    if (source->ElemSize() != 1)
        ThrowAssertException(__FILE__, __LINE__, "J->Bpp()==1");
    return WithElemType<TypeSet<unsigned char, char>>(
        source->ElemType(), "Function n = getmaskvector_tmpl not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) {
            T const* const data = cref(source).TypedPointer<T>();
            // Counted before it is listed: two fast passes cost less than a list that grows, and
            // the memory fits.
            unsigned long const count = pixels::CountNonZero(data, source->Length());
            unsigned int* const indices = NewIndices(count + overshoot);
            // From here on the list belongs to the vector, whatever happens.
            auto list = IndexVector::Create(count, indices, 0, mb_free, source);
            getmaskvector_tmpl(data, source->Length(), indices);
            return list;
        });
}

template <class T>
void find_point_address3(unsigned int n, T const* pixels, unsigned int k, unsigned int* counts,
                         unsigned int* start, unsigned int** indices)
{
    // Counts go two places up, so that their running sums are one place up. There they are the
    // next free positions while the list is filled, and come to rest at the starts.
    unsigned int* const next = start + 1;
    pixels::CountLabels(pixels, n, k, next + 1);
    if (counts) {
        counts[0] = 0;
        std::copy_n(start + 3, k, counts + 1);
    }
    for (unsigned long v = 1; v <= k; ++v)
        next[v + 1] += next[v];
    unsigned int const total = next[k + 1UL];
    // One cell more: an allocation of nothing may give null, which is a failure here.
    *indices = NewIndices(total + 1UL);
    pixels::FillLabels(pixels, n, k, next, *indices);
    next[k + 1UL] = 0; // behind the last limit
}

StencilLists ListStencil(Image const& image)
{
    DataType const type = image.ElemType();
    // The kernels count labels of 16 and 32 bits without sign. Others are converted to the narrower
    // one that holds their greatest value, which halves the memory to read.
    if (type != Vector::UnsignedShort && type != Vector::UnsignedInt) {
        bool const summary_holds = type != Vector::Triple && image.Length() > 0;
        double const greatest =
            summary_holds
                ? RoundHalfAway(image.SecondaryDouble(key_max, throw_always) * image.Factor())
            : type == Vector::Triple ? 65536.0
                                     : 0.0;
        DerivedPointer<Image> const labels(image.ConvertElemsToType(
            greatest < 65536 ? Vector::UnsignedShort : Vector::UnsignedInt, true, false));
        return ListStencil(cref(labels));
    }
    // A label is what a script sees, so it is the cooked value.
    if (image.Factor() != 1.0) {
        DerivedPointer<Image> const cooked(image.Clone(true));
        cooked->EnsureFactor(1.0);
        return ListStencil(cref(cooked));
    }
    int const k = image.GetStencilCount();
    if (k < 0)
        ThrowAssertException(__FILE__, __LINE__, "k>=0");
    // The starts are written for every label: a stray one must not eat the memory of the machine.
    constexpr unsigned int most_unused = 1U << 28;
    if (static_cast<unsigned int>(k) > image.Length() && static_cast<unsigned int>(k) > most_unused)
        Raise(err_state, "Too many objects (%d) for a list of the pixels of: %s", k, image);

    StencilLists lists;
    lists.count = static_cast<unsigned int>(k);
    // Zeros, as the kernel counts the labels in place.
    lists.start.reset(static_cast<unsigned int*>(
        mb_calloc(lists.count + StencilLists::spare, sizeof(unsigned int))));
    if (!lists.start)
        throw std::bad_alloc();
    unsigned int* indices = nullptr;
    auto const find = [&]<class T>(TypeTag<T>) {
        find_point_address3(image.Length(), image.TypedPointer<T>(), lists.count, nullptr,
                            lists.start.get(), &indices);
    };
    if (type == Vector::UnsignedShort)
        find(TypeTag<unsigned short>{});
    else
        find(TypeTag<unsigned int>{});
    lists.pixels = IndexVector::Create(lists.start[lists.count + 1UL], indices, 0, mb_free,
                                       DerivedPointer<Vector>(&image));
    return lists;
}

DerivedPointer<IntervalVector> Image::GetStencilVector() const
{
    StencilLists lists = ListStencil(*this);
    return IntervalVector::Create(lists.count, 1, lists.start.release(), mb_free, lists.pixels);
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template MEMBLOCK_API unsigned int getmaskvector_tmpl<T>(T const*, unsigned int, unsigned int*);
MEMBLOCK_NUMERIC_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

#define MEMBLOCK_INSTANTIATE(T)                                                                    \
    template MEMBLOCK_API void find_point_address3<T>(                                             \
        unsigned int, T const*, unsigned int, unsigned int*, unsigned int*, unsigned int**);
MEMBLOCK_INSTANTIATE(unsigned short)
MEMBLOCK_INSTANTIATE(unsigned int)
#undef MEMBLOCK_INSTANTIATE

} // namespace NKelmic
