#ifndef MEMBLOCK_STATISTIC_STATISTIC_KERNELS_H
#define MEMBLOCK_STATISTIC_STATISTIC_KERNELS_H

#include <memblock/base/multiversion.h>
#include <memblock/statistic/statistic.h>
#include <memblock/vector/select_kernels.h>
#include <memblock/vector/summary_kernels.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>
#include <vector>

namespace NKelmic {

/// What a policy needs to know: nothing, or the number that replaces.
template <class T, class Policy>
struct Replacement {
    explicit Replacement(double) {}
};
template <class T>
struct Replacement<T, InclusionPolicy_Replace> {
    explicit Replacement(double v) : value(static_cast<T>(v)) {}
    T value;
};

/// Decides for each element whether it takes part, and with which value.
template <class T, class NanPolicy, class InfPolicy>
class Filter {
public:
    explicit Filter(Statistic const& s) : nan_(s.NanValue()), inf_(s.InfValue()) {}

    static constexpr bool drops = std::is_same_v<NanPolicy, InclusionPolicy_Exclude> ||
                                  std::is_same_v<InfPolicy, InclusionPolicy_Exclude>;
    static constexpr bool changes = std::is_same_v<NanPolicy, InclusionPolicy_Replace> ||
                                    std::is_same_v<InfPolicy, InclusionPolicy_Replace>;

    bool Passes(T v) const
    {
        bool passes = true;
        if constexpr (std::is_same_v<NanPolicy, InclusionPolicy_Exclude>)
            passes &= v == v;
        if constexpr (std::is_same_v<InfPolicy, InclusionPolicy_Exclude>)
            passes &= !IsInf(v);
        return passes;
    }
    T Value(T v) const
    {
        T out = v;
        if constexpr (std::is_same_v<InfPolicy, InclusionPolicy_Replace>)
            out = !IsInf(v) ? out : v > 0 ? inf_.value : -inf_.value;
        if constexpr (std::is_same_v<NanPolicy, InclusionPolicy_Replace>)
            out = v == v ? out : nan_.value;
        return out;
    }

private:
    static bool IsInf(T v) { return std::fabs(v) > std::numeric_limits<T>::max(); }
    [[no_unique_address]] Replacement<T, NanPolicy> nan_;
    [[no_unique_address]] Replacement<T, InfPolicy> inf_;
};

/// Integers are never NaN or infinite: one filter, and with it one set of kernels, serves all nine
/// pairs of policies.
template <class T>
struct NoFilter {
    explicit NoFilter(Statistic const&) {}
    static constexpr bool drops = false, changes = false;
    static bool Passes(T) { return true; }
    static T Value(T v) { return v; }
};

template <class T, class NanPolicy, class InfPolicy>
using FilterFor =
    std::conditional_t<std::is_floating_point_v<T>, Filter<T, NanPolicy, InfPolicy>, NoFilter<T>>;

namespace kernel {

/// Lanes of an extreme value: so many that the widest registers are kept busy, as one lane waits
/// for its own last comparison. A `triple` is no machine number and has one.
template <class T>
constexpr int lanes = std::is_same_v<T, triple> ? 1 : 256 / sizeof(T);

/// Take the lesser (or the greater) of `start` and every included value. NaN never wins.
template <bool least, class T, class F>
MEMBLOCK_MULTIVERSION wide_t<T> extreme(T const* __restrict x, int n, wide_t<T> start, F filter)
{
    using V = wide_t<T>;
    auto const better = [filter](T v, V best) {
        V const value = filter.Value(v);
        bool const wins = least ? value < best : value > best;
        return wins & filter.Passes(v) ? value : best; // `&`: a branch would part the lanes
    };
    constexpr int step = lanes<T>;
    V best[step];
    for (V& lane : best)
        lane = start;
    int i = 0;
    if constexpr (step > 1)
        for (; i + step <= n; i += step)
            for (int lane = 0; lane < step; ++lane)
                best[lane] = better(x[i + lane], best[lane]);
    V result = best[0];
    for (; i < n; ++i)
        result = better(x[i], result);
    for (V const lane : best)
        result = (least ? lane < result : lane > result) ? lane : result;
    return result;
}

template <class T, class F>
MEMBLOCK_MULTIVERSION int count(T const* __restrict x, int n, F filter)
{
    if constexpr (!F::drops)
        return n;
    int passed = 0;
    for (int i = 0; i < n; ++i)
        passed += filter.Passes(x[i]);
    return passed;
}

/// Sum of up to `exact_block` integers, for which the intermediate type is wide enough.
template <class T>
constexpr int exact_block = sizeof(T) <= 2 ? 1 << 16 : 1 << 20;

template <class T>
MEMBLOCK_MULTIVERSION long long sum_block(T const* __restrict x, int n)
{
    using Narrow = std::conditional_t<std::is_signed_v<T>, int, unsigned int>;
    using Wide = std::conditional_t<sizeof(T) <= 2, Narrow, long long>;
    Wide sum = 0;
    for (int i = 0; i < n; ++i)
        sum += static_cast<wide_t<T>>(x[i]);
    return sum;
}

/// The running sum in double, element by element.
///
/// Integers of up to four bytes go in exact blocks as long as every partial sum is a whole number
/// of at most 53 bits, as then no addition rounds and the order is of no consequence.
template <class T, class F>
double sum(T const* __restrict x, int n, F filter)
{
    double total = 0;
    if constexpr (std::is_floating_point_v<T>) {
        for (int i = 0; i < n; ++i)
            total += F::drops && !filter.Passes(x[i]) ? T{0} : filter.Value(x[i]);
    } else if constexpr (sizeof(T) == 8) {
        for (int i = 0; i < n; ++i)
            total += static_cast<double>(x[i]);
    } else {
        for (int size; n > 0; x += size, n -= size) {
            size = std::min(n, exact_block<T>);
            if (std::fabs(total) <= 0x1p52) // and the block adds 2^52 at most
                total += static_cast<double>(sum_block(x, size));
            else
                for (int i = 0; i < size; ++i)
                    total += static_cast<wide_t<T>>(x[i]);
        }
    }
    return total;
}

} // namespace kernel

// The operations. `Compute` works on included values; a second pass is made from the result of the
// first one.

template <class T>
struct Op_count {
    template <class F>
    static double Compute(T const* x, int n, F const& filter)
    {
        return kernel::count(x, n, filter);
    }
};

template <class T>
struct Op_sum {
    template <class F>
    static double Compute(T const* x, int n, F const& filter)
    {
        return kernel::sum(x, n, filter);
    }
};

template <class T>
struct Op_mean {
    template <class F>
    static double Compute(T const* x, int n, F const& filter)
    {
        return kernel::sum(x, n, filter) / kernel::count(x, n, filter); // 0/0 of nothing is NaN
    }
};

/// NaN if nothing is included; otherwise the result, whatever the start value does to it.
template <class T, class F>
double unless_empty(double result, bool at_start, T const* x, int n, F const& filter)
{
    bool const empty = n < 1 || (F::drops && at_start && kernel::count(x, n, filter) == 0);
    return empty ? std::numeric_limits<double>::quiet_NaN() : result;
}

/// Settled: an infinite minimum is capped at the greatest finite value, where the search starts;
/// values that are all NaN give that start.
template <class T>
struct Op_min {
    template <class F>
    static double Compute(T const* x, int n, F const& filter)
    {
        wide_t<T> const start = std::numeric_limits<T>::max();
        wide_t<T> least = kernel::extreme<true>(x, n, start, filter);
        if (std::is_floating_point_v<T> && least == 0) // of 0.0 and -0.0 the first one counts
            least = filter.Value(*std::find_if(
                x, x + n, [&](T v) { return filter.Passes(v) && filter.Value(v) == 0; }));
        return unless_empty(static_cast<double>(least), least == start, x, n, filter);
    }
};

/// Settled: for floating types the search starts at the smallest positive normal number, so the
/// maximum of values that are all negative or zero is that tiny number. Callers rest on it.
template <class T>
struct Op_max {
    template <class F>
    static double Compute(T const* x, int n, F const& filter)
    {
        wide_t<T> const start = std::numeric_limits<T>::min();
        wide_t<T> const greatest = kernel::extreme<false>(x, n, start, filter);
        return unless_empty(static_cast<double>(greatest), greatest == start, x, n, filter);
    }
};

/// Sample variance by the corrected two-pass formula: the sum of the deviations takes out the
/// rounding error of the mean.
template <class T>
struct Op_variance {
    explicit Op_variance(double mean) : mean_(mean) {}

    template <class F>
    double Compute(T const* __restrict x, int n, F const& filter, double) const
    {
        if constexpr (summary::is_small_integer<T>)
            if (auto const count = static_cast<std::size_t>(n);
                count > summary::longest_sequential_sum)
                return summary::ExactVariance(summary::SumExactly<true>(x, count), count);
        double s1 = 0, s2 = 0;
        for (int i = 0; i < n; ++i) {
            double const value = static_cast<double>(static_cast<wide_t<T>>(filter.Value(x[i])));
            double const d = F::drops && !filter.Passes(x[i]) ? 0.0 : value - mean_;
            s1 += d;
            s2 += d * d;
        }
        double const count = kernel::count(x, n, filter);
        if (count <= 1)
            return std::numeric_limits<double>::quiet_NaN();
        double const variance = (s2 - s1 * s1 / count) / (count - 1);
        return 0 <= variance ? variance : 0.0; // Settled: a NaN variance is 0, too
    }

private:
    double mean_;
};

template <class T>
struct Op_stddev : Op_variance<T> {
    using Op_variance<T>::Op_variance;

    template <class F>
    double Compute(T const* x, int n, F const& filter, double unused) const
    {
        return std::sqrt(Op_variance<T>::Compute(x, n, filter, unused));
    }
};

/// Collects the included values and gives the one at a fraction of the sorted row.
template <class T>
struct Op_quantile {
    /// Room for n values, rounded half away from zero.
    explicit Op_quantile(double n) : count_(static_cast<int>(n + 0.5)) {}

    template <class F>
    double Compute(T const* x, int n, F const& filter, double fraction)
    {
        if (count_ < 1)
            return std::numeric_limits<double>::quiet_NaN();
        if constexpr (F::drops || F::changes) {
            std::vector<T> values(static_cast<std::size_t>(count_));
            int stored = 0;
            for (int i = 0; i < n; ++i)
                if (filter.Passes(x[i]))
                    values[static_cast<std::size_t>(stored++)] = filter.Value(x[i]);
            return At(values.data(), fraction);
        } else {
            return At(x, fraction);
        }
    }

private:
    /// Settled: the place is count * fraction rounded half up, so the median of five is the fourth.
    double At(T const* values, double fraction) const
    {
        double const place = count_ * fraction + 0.5;
        int const last = count_ - 1;
        int const index = !(place >= 1) ? 0 : place >= count_ ? last : static_cast<int>(place);
        auto const n = static_cast<std::size_t>(count_);
        T const value = select::Nth(values, n, static_cast<std::size_t>(index));
        return static_cast<double>(static_cast<wide_t<T>>(value));
    }
    int count_;
};

} // namespace NKelmic

#endif // MEMBLOCK_STATISTIC_STATISTIC_KERNELS_H
