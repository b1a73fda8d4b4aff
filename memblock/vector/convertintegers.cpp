#include <memblock/vector/convert_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

namespace NKelmic {

namespace {

template <class S, class D>
void CopyPlain(S const* __restrict src, D* __restrict dst, unsigned int n)
{
    for (unsigned int i = 0; i < n; ++i)
        dst[i] = ToElem<D>(static_cast<wide_t<S>>(src[i]));
}

template <class S, class D>
constexpr bool always_fits = InRange<D>(elem_lowest<S>) && InRange<D>(elem_greatest<S>);

/// How far the range must move down to fit.
template <class D, class W>
int ShiftFor(MinMax<W> range)
{
    // Shifting, not scaling: the factor stays a power of two, and cooked values lose no bits but
    // the lowest.
    int shift = 0;
    while (!InRange<D>(static_cast<W>(range.min >> shift)) ||
           !InRange<D>(static_cast<W>(range.max >> shift)))
        ++shift;
    return shift;
}

/// The shift with which the elements of `v` fit into D; negative ones stay out of unsigned types.
template <class S, class D>
int ShiftOf(Vector const& v)
{
    // Known at compile time, so widening never looks for the range.
    if constexpr (always_fits<S, D>) {
        return 0;
    } else {
        auto const range = RangeOf<S>(v);
        if constexpr (std::is_signed_v<wide_t<S>> && !std::is_signed_v<wide_t<D>>) {
            if (range.min < 0)
                return 0; // CopyTo_1 refuses
        }
        return ShiftFor<D>(range);
    }
}

template <class S, class D>
void RefuseToShift(Vector const& v)
{
    auto const range = RangeOf<S>(v);
    Raise(err_kind,
          "Cannot insert value %g or %g in %d-byte destination type without altering factor",
          static_cast<double>(range.max), static_cast<double>(range.min), sizeof(D));
}

} // namespace

template <class D>
void CopyTo_1(void const* src, Vector const& source, D* dst)
{
    WithElemType<IntegerTypes>(
        source.ElemType(), "Function CopyTo_1 not implemented for data type '%s'",
        [&]<class S>(TypeTag<S>) {
            // A negative value cannot be shifted into an unsigned type: refused before anything is
            // written.
            if constexpr (std::is_signed_v<wide_t<S>> && !std::is_signed_v<wide_t<D>>) {
                auto const low = RangeOf<S>(source).min;
                if (low < 0)
                    Raise(err_kind,
                          "Cannot convert vector to unsigned representation, because it contains "
                          "negative values (min=%d): %s",
                          static_cast<long long>(low), source);
            }
            CopyPlain(static_cast<S const*>(src), dst, source.Length());
        });
}

template <class S, class D>
void AvgToShifted_tmpl2(S const* __restrict src, D* __restrict dst, unsigned int n, int shift)
{
    for (unsigned int i = 0; i < n; ++i)
        dst[i] = ToElem<D>(static_cast<wide_t<S>>(src[i]) >> shift);
}

template <class S, class D>
void divide_tmpl(S const* __restrict src, D* __restrict dst, unsigned int n, int shift)
{
    for (unsigned int i = 0; i < n; ++i)
        dst[i] = ToElem<D>(src[i] >> shift);
}

template <class S>
void CopyToShifted_tmpl1(S const* src, TypedChunk& dst, int shift)
{
    auto const n = static_cast<unsigned int>(dst.Length());
    // Both do the same, under the names that their messages have always had.
    if constexpr (std::is_signed_v<wide_t<S>>)
        WithElemType<IntegerTypes>(
            dst.Type(), "Function divide_tmpl not implemented for data type '%s'",
            [&]<class D>(TypeTag<D>) { divide_tmpl(src, static_cast<D*>(dst.Data()), n, shift); });
    else
        WithElemType<IntegerTypes>(
            dst.Type(), "Function AvgToShifted_tmpl2 not implemented for data type '%s'",
            [&]<class D>(TypeTag<D>) {
                AvgToShifted_tmpl2(src, static_cast<D*>(dst.Data()), n, shift);
            });
}

Converted IntegersToIntegers(Vector const& v, DataType type, bool keep_factor)
{
    Converted result{OpenChunk(v.Length(), type), v.Factor()};
    auto const convert = [&]<class S, class D>(TypeTag<S>, TypeTag<D>) {
        int const shift = ShiftOf<S, D>(v);
        if (shift == 0)
            return CopyTo_1(v.Pointer(), v, static_cast<D*>(result.chunk.Data()));
        if (keep_factor)
            RefuseToShift<S, D>(v);
        CopyToShifted_tmpl1(v.TypedPointer<S>(), result.chunk, shift);
        // The elements are that much smaller; the cooked values stay.
        result.factor *= static_cast<double>(1ull << shift);
    };
    char const* const miss = "Conversion not supported: %s";
    WithElemType<IntegerTypes>(v.ElemType(), miss, [&]<class S>(TypeTag<S>) {
        WithElemType<IntegerTypes>(
            type, miss, [&]<class D>(TypeTag<D>) { convert(TypeTag<S>{}, TypeTag<D>{}); });
    });
    return result;
}

} // namespace NKelmic
