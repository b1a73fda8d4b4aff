#include <memblock/vector/summary.h>

#include <memblock/serial/warning.h>
#include <memblock/vector/select_kernels.h>
#include <memblock/vector/summary_kernels.h>
#include <memblock/vector/vector.h>

#include <cstdio>
#include <numeric>
#include <vector>

namespace NKelmic {

using namespace summary;

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

template <class T>
constexpr bool is_64bit_integer = std::is_integral_v<T> && sizeof(T) == 8;

int Count(std::size_t n)
{
    return static_cast<int>(n);
}

template <class T>
DataItem ItemOf(T value)
{
    if constexpr (std::is_floating_point_v<T>)
        return DataItem(static_cast<double>(value));
    else
        return DataItem(value);
}

template <class T>
double Sum(T const* data, unsigned int n)
{
    // Integers add exactly, so their order is free and the loop can run as wide as it likes.
    if constexpr (is_small_integer<T>)
        return static_cast<double>(SumExactly<false>(data, n).first);
    else if constexpr (!std::is_floating_point_v<T> && !is_64bit_integer<T>)
        return static_cast<double>(SumWide(data, n));
    else
        return SumAbout<false>(data, n, 0).first;
}

template <class T>
double Mean(T const* data, unsigned int n)
{
    if constexpr (std::is_floating_point_v<T>) {
        Sums const sums = SumAbout<false>(data, n, 0);
        if (sums.infinities > 0)
            Warning(err_value,
                    Text("Calculating mean value of %d element vector: ignored %d infinite values.",
                         n, Count(sums.infinities)));
        // Finite values may still add up to infinity; then each is divided first, which costs a
        // second pass.
        auto const count = static_cast<double>(sums.count);
        if (std::isfinite(sums.first))
            return sums.count > 0 ? sums.first / count : nan;
        double mean = 0; // the sum is beyond double, which the mean never is
        for (unsigned int i = 0; i < n; ++i)
            mean += IsFinite(data[i]) ? static_cast<double>(data[i]) / count : 0;
        return mean;
    } else {
        return Sum(data, n) / n;
    }
}

/// Settled: a variance that is no number, as that of a single element, is 0 here.
double NotBelowZero(double variance)
{
    return variance > 0 ? variance : 0;
}

/// The corrected two-pass formula: the sum of the deviations makes up for the rounding of the mean.
/// (Chan, Golub, LeVeque: Algorithms for computing the sample variance, 1983.)
template <class T>
double Variance(T const* data, unsigned int n, double mean)
{
    Sums const sums = SumAbout<true>(data, n, mean);
    if (sums.infinities + sums.nans > 0)
        Warning(err_value,
                Text("Ignored %d infinities and %d NaN's while computing standard deviation.",
                     Count(sums.infinities), Count(sums.nans)));
    auto const count = static_cast<double>(sums.count);
    return NotBelowZero((sums.second - sums.first * sums.first / count) / (count - 1));
}

/// The variance of small integers. The mean comes with it, and stays where there is a cache.
template <class T>
double SmallVariance(T const* data, unsigned int n, MemBlockImpl* impl)
{
    ExactSums const sums = SumExactly<true>(data, n);
    if (impl)
        impl->SetSecondaryItem(key_mean, DataItem(static_cast<double>(sums.first) / n));
    return NotBelowZero(ExactVariance(sums, n));
}

/// Another key of the same vector: from the cache, or computed where there is none.
template <class T>
SafeValue OtherKey(T const* data, unsigned int n, int key, MemBlockImpl* impl,
                   ThrowHandlerFunc handler)
{
    if (impl)
        return impl->SecondaryItem(key, handler);
    bool handled = true;
    return CSINV(data, n, key, nullptr, handled, handler);
}

DataItem Histogram(MemBlockImpl* impl, ThrowHandlerFunc handler)
{
    auto const* vector = impl ? dynamic_cast<Vector const*>(impl->Owner()) : nullptr;
    PMemBlock const histogram = vector ? vector->GetHistogram(64, false) : PMemBlock();
    if (!histogram)
        Report(handler, err_kind, "Cannot calculate histogram");
    return DataItem(histogram);
}

/// A value read as an int; undefined where it is none, so that no cache keeps the stand-in for it.
DataItem AsInt(SafeValue const& value, ThrowHandlerFunc handler)
{
    bool ok = true;
    CheckOk check(ok);
    int const number = value.GetInt(check);
    if (ok)
        return DataItem(number);
    value.GetInt(handler); // reports why
    return {};
}

/// One of the values that `CalcMinMax` finds together.
template <class T>
DataItem ExtremeItem(stat_minmax<T> const& found, int key)
{
    switch (key) {
    case key_max:
        return ItemOf(found.max);
    case key_min:
        return ItemOf(found.min);
    case key_maxat:
        return DataItem(found.maxat);
    case key_minat:
        return DataItem(found.minat);
    case key_finitemin:
        return DataItem(found.finitemin);
    default:
        return DataItem(found.finitemax);
    }
}

} // namespace

template <class T>
stat_minmax<T> CalcMinMax(T const* data, unsigned int n, MemBlockImpl* impl)
{
    // Values and blocks first, places after: a loop that carried indices would not be vector code.
    auto const extremes = FindExtremes(data, n);
    stat_minmax<T> found{};
    found.any = !extremes.IsEmpty();
    if (found.any) {
        // The first of equal values is the one reported, also where zeros differ by their sign.
        std::size_t const minat = FirstAt(data, extremes.min_block, n, extremes.min);
        std::size_t const maxat = FirstAt(data, extremes.max_block, n, extremes.max);
        found.minat = Count(minat);
        found.maxat = Count(maxat);
        found.min = data[minat];
        found.max = data[maxat];
        MinMax<wide_t<T>> const all{found.min, found.max}; // with the signs of the zeros found
        if (auto const finite = FiniteMinMaxOf(data, n, all); !finite.IsEmpty()) {
            found.finitemin = static_cast<double>(finite.min);
            found.finitemax = static_cast<double>(finite.max);
        }
    } else if constexpr (std::is_floating_point_v<T>) {
        found.min = found.max = std::numeric_limits<T>::quiet_NaN();
        found.minat = found.maxat = -1;
    }
    // One pass finds all six, so all are stored: a read of the maximum mostly precedes one of the
    // minimum next.
    if (impl)
        for (int key : {key_max, key_min, key_maxat, key_minat, key_finitemin, key_finitemax})
            impl->SetSecondaryItem(key, ExtremeItem(found, key));
    return found;
}

template <class T>
double calc_median(T const* data, unsigned int n, bool average, ThrowHandlerFunc)
{
    std::vector<T> finite; // made only where something has to go
    std::size_t count = n;
    if constexpr (std::is_floating_point_v<T>) {
        Sums const sums = SumAbout<false>(data, n, 0);
        if (sums.infinities > 0)
            Warning(err_value, Text("Ignored %d infinities and %d NaN-s in vector of %d elements.",
                                    Count(sums.infinities), Count(sums.nans), n));
        count = sums.count;
        if (count < n) {
            finite.reserve(count);
            std::copy_if(data, data + n, std::back_inserter(finite), IsFinite<T>);
            data = finite.data();
        }
    }
    if (count == 0)
        return nan;
    // By selection: sorting would cost more the longer the vector, and the data must stay as it is.
    std::size_t const middle = count / 2;
    T const upper = select::Nth(data, count, middle);
    if (!average || count % 2 != 0)
        return static_cast<double>(upper);
    T const lower = select::Before(data, count, middle, upper);
    return std::midpoint(static_cast<double>(lower), static_cast<double>(upper));
}

template <class T>
DataItem CSINV(T const* data, unsigned int n, int key, MemBlockImpl* impl, bool& handled,
               ThrowHandlerFunc handler)
{
    if (key > key_last_summary) {
        handled = false;
        return {};
    }
    bool const works_when_empty =
        (key >= MemBlock::key_md5 && key <= MemBlock::key_md5_plain) || key == key_sum;
    if (n == 0 && key == key_mean)
        return DataItem(nan);
    if (n == 0 && !works_when_empty) {
        Report(handler, err_value, "Vector has zero length, cannot calculate subkey: %s",
               Vector::Key2string(key));
        return {};
    }
    switch (key) {
    case MemBlock::key_int:
    case MemBlock::key_double:
        if (n != 1)
            Report(handler, err_request, "Cannot convert vector of %d elements into a number.", n);
        else
            handled = false; // the object itself gives its scalar, factor included
        return {};
    case key_mean:
        return DataItem(Mean(data, n));
    case key_median:
    case key_fmedian:
        return DataItem(calc_median(data, n, key == key_fmedian, handler));
    case key_sum:
        return DataItem(Sum(data, n));
    case key_stddev:
        return DataItem(
            std::sqrt(OtherKey(data, n, key_variance, impl, handler).GetFloating(handler)));
    case key_histogram:
        return Histogram(impl, handler);
    case key_variance:
        if constexpr (is_small_integer<T>)
            // Up to that length the sequential sums give the bits, as for all types.
            if (n > longest_sequential_sum)
                return DataItem(SmallVariance(data, n, impl));
        return DataItem(
            Variance(data, n, OtherKey(data, n, key_mean, impl, handler).GetFloating(handler)));
    case key_rough_max:
        return AsInt(OtherKey(data, n, key_max, impl, handler), handler);
    case key_max:
    case key_min:
    case key_maxat:
    case key_minat:
    case key_finitemin:
    case key_finitemax:
        return ExtremeItem(CalcMinMax(data, n, impl), key);
    default:
        handled = false;
        return {};
    }
}

#define MEMBLOCK_INSTANTIATE(NAME, ID, T, TEXT)                                                    \
    template stat_minmax<T> CalcMinMax(T const*, unsigned int, MemBlockImpl*);                     \
    template double calc_median(T const*, unsigned int, bool, ThrowHandlerFunc);                   \
    template DataItem CSINV(T const*, unsigned int, int, MemBlockImpl*, bool&, ThrowHandlerFunc);
MEMBLOCK_NUMERIC_ELEM_TYPES(MEMBLOCK_INSTANTIATE)
#undef MEMBLOCK_INSTANTIATE

char const* Vector::Key2string(int key)
{
    if (char const* const known = SummaryKeyName(key))
        return known;
    static thread_local char number[16]; // of a thread: messages are built on workers too
    std::snprintf(number, sizeof number, "%d", key);
    return number;
}

PMemBlock Vector::GetHistogram(int bins, bool flag) const
{
    if (CallDistributionFunc const hook = g_calldistributionfunc.load())
        return hook(PMemBlock(this), bins, flag);
    std::fputs("Kelmic DLL not loaded in this process, cannot calculate the histogram.\n", stderr);
    return {};
}

} // namespace NKelmic
