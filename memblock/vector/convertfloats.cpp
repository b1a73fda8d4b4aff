#include <memblock/vector/convert_internal.h>
#include <memblock/vector/vectorchunk_internal.h>

#include <algorithm>
#include <cmath>

namespace NKelmic {

namespace {

static_assert(type_count<FloatTypes> == 2, "all conversions compute in double");
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr unsigned int block_size = 1024; // small enough to stay in the first cache

/// Whether all finite elements are whole; ends in the first block with a fraction.
template <class S>
bool AllWhole(S const* src, unsigned int n)
{
    bool whole = true;
    // By blocks: a test in the loop itself would keep it from being vectorized.
    for (unsigned int from = 0; whole && from < n; from += block_size) {
        unsigned int const to = std::min(n, from + block_size);
        for (unsigned int i = from; i < to; ++i)
            whole &= !(std::fabs(src[i]) < infinity) || src[i] == std::trunc(src[i]);
    }
    return whole;
}

/// How much of the range a scaled maximum takes. Narrow types can't spare any bit.
template <class D>
constexpr double positive_room = sizeof(D) < 4 ? static_cast<double>(elem_greatest<D>)
                                               : static_cast<double>(elem_greatest<D>) / 4;

template <class D>
double ScaleFor(MinMax<double> range)
{
    double scale = infinity;
    if (range.max > 0)
        scale = positive_room<D> / range.max;
    if (range.min < 0)
        scale = std::min(scale, static_cast<double>(elem_lowest<D>) / range.min);
    return std::min(scale, std::numeric_limits<double>::max()); // tiny numbers, or none
}

/// Round half away from zero into the range; NaN gives 0.
template <class D>
D RoundSaturated(double v)
{
    double const shifted = v + std::copysign(0.5, v);
    if constexpr (std::numeric_limits<D>::digits < 53) {
        // Within 53 bits both bounds are exact doubles, so two comparisons do, without a branch.
        constexpr double low = elem_lowest<D>;
        constexpr double high = elem_greatest<D>;
        double const inside = shifted < low ? low : shifted > high ? high : shifted;
        double const number = v == v ? inside : 0.0;
        if constexpr (sizeof(D) < 4)
            return ToElem<D>(static_cast<int>(number));
        else
            return ToElem<D>(static_cast<long long>(number));
    } else {
        if (FitsElem<D>(shifted))
            return ToElem<D>(shifted);
        return v > 0 ? elem_greatest<D> : v < 0 ? elem_lowest<D> : D(0);
    }
}

template <class S, class D>
void CopyToFloats(S const* __restrict src, D* __restrict dst, unsigned int n)
{
    for (unsigned int i = 0; i < n; ++i)
        dst[i] = static_cast<D>(static_cast<wide_t<S>>(src[i]));
}

template <class D>
[[noreturn]] void RaiseDoesNotFit(double v)
{
    Raise(err_kind,
          "Value %s does not fit in the destination type %d..%u without altering the factor.",
          str(v, 6), static_cast<long long>(elem_lowest<D>),
          static_cast<unsigned long long>(elem_greatest<D>));
}

} // namespace

template <class S, class D>
double CopyToFromDouble(D* __restrict dst, S const* __restrict src, unsigned int n)
{
    auto const range = FiniteMinMaxOf(src, n, MinMaxOf<false>(src, n)).template As<double>();
    if (!std::is_signed_v<wide_t<D>> && range.min < 0)
        Raise(err_kind, "Cannot represent negative value %s in the destination type (%s)",
              str(range.min, 6), TypeToString(type_of<D>::value));
    bool const none = range.IsEmpty();
    // Whole numbers that fit keep their values; all others use the room of the type, by a factor.
    bool const fits = none || (FitsElem<D>(range.min) && FitsElem<D>(range.max));
    double const scale = none || (fits && AllWhole(src, n)) ? 1.0 : ScaleFor<D>(range);
    for (unsigned int i = 0; i < n; ++i)
        dst[i] = RoundSaturated<D>(src[i] * scale);
    return scale;
}

template <class S, class D>
void CopyToWithCheck(D* __restrict dst, S const* __restrict src, unsigned int n)
{
    for (unsigned int from = 0; from < n; from += block_size) {
        unsigned int const to = std::min(n, from + block_size);
        bool all_fit = true;
        for (unsigned int i = from; i < to; ++i) {
            double const shifted = src[i] + std::copysign(0.5, static_cast<double>(src[i]));
            // Stored first, reported behind the block: the common case has no way out of the loop.
            all_fit &= FitsElem<D>(shifted);
            dst[i] = RoundSaturated<D>(src[i]);
        }
        for (unsigned int i = from; !all_fit && i < to; ++i)
            if (!FitsElem<D>(src[i] + std::copysign(0.5, static_cast<double>(src[i]))))
                RaiseDoesNotFit<D>(src[i]);
    }
}

Converted FloatsToIntegers(Vector const& v, DataType type, bool keep_factor)
{
    Converted result{OpenChunk(v.Length(), type), v.Factor()};
    char const* const miss = "Conversion not supported: %s";
    WithElemType<FloatTypes>(v.ElemType(), miss, [&]<class S>(TypeTag<S>) {
        WithElemType<IntegerTypes>(type, miss, [&]<class D>(TypeTag<D>) {
            D* const dst = static_cast<D*>(result.chunk.Data());
            if (keep_factor)
                CopyToWithCheck(dst, v.TypedPointer<S>(), v.Length());
            else
                result.factor /= CopyToFromDouble(dst, v.TypedPointer<S>(), v.Length());
        });
    });
    return result;
}

Converted NumbersToFloats(Vector const& v, DataType type)
{
    Converted result{OpenChunk(v.Length(), type), v.Factor()};
    char const* const miss = "Conversion not supported: %s";
    WithElemType<NumericTypes>(v.ElemType(), miss, [&]<class S>(TypeTag<S>) {
        WithElemType<FloatTypes>(type, miss, [&]<class D>(TypeTag<D>) {
            CopyToFloats(v.TypedPointer<S>(), static_cast<D*>(result.chunk.Data()), v.Length());
        });
    });
    return result;
}

} // namespace NKelmic
