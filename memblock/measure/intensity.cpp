#include <memblock/measure/facts_internal.h>

#include <memblock/base/multiversion.h>
#include <memblock/vector/select_kernels.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <type_traits>

namespace NKelmic::measuring {
namespace {

/// Up to 32 bits, so that a sum over a run fits 64 bits.
template <class T>
constexpr bool is_short_integer = std::numeric_limits<T>::is_integer && sizeof(T) <= 4;

/// The type in which values are compared and multiplied.
template <class T>
using Number = std::conditional_t<
    !is_short_integer<T>, double,
    std::conditional_t<std::numeric_limits<T>::is_signed, std::int64_t, std::uint64_t>>;

constexpr Intensity no_values{0,       nothing, nothing, 0,       nothing, nothing,
                              nothing, nothing, nothing, nothing, nothing};

/// Decides which values take part. Integers all do.
struct Filter {
    Policy nan, inf;

    /// Whether a value takes part; it may be replaced.
    bool Admit(double& v) const
    {
        if (v != v)
            return Apply(nan, v, nan.value);
        if (std::isinf(v))
            return Apply(inf, v, v > 0 ? inf.value : -inf.value);
        return true;
    }

private:
    static bool Apply(Policy const& policy, double& v, double other)
    {
        if (policy.kind == Policy::replace)
            v = other;
        return policy.kind != Policy::exclude;
    }
};

/// Where the pixels of a run are: column of the first, row and plane, counted from the box.
struct Place {
    std::int64_t x, y, z;
};

Place PlaceOf(Run const& run, Geometry const& g, Frame const& frame)
{
    std::int64_t const z = frame.IsCube() ? run.row / frame.height : 0;
    return {run.x0 - g.x0, run.row - z * frame.height - g.y0, z - g.z0};
}

/// What is weighted by the values; NaN where they add up to 0.
void SetCentroid(Intensity& v, Geometry const& g, double sum, double x, double y, double z)
{
    if (sum == 0)
        return;
    v.x = static_cast<double>(g.x0) + x / sum;
    v.y = static_cast<double>(g.y0) + y / sum;
    v.z = static_cast<double>(g.z0) + z / sum;
}

/// sqrt((n * squares - sum^2) / (n * (n - 1))), with exact sums.
double Deviation(std::int64_t n, Exact sum, Exact squares)
{
    if (n < 2)
        return nothing;
    double const count = static_cast<double>(n);
    constexpr Exact fits = Exact(1) << 95;
    if (n < (std::int64_t{1} << 31) && squares < fits)
        return std::sqrt(ToDouble(n * squares - sum * sum) / (count * (count - 1)));
    long double const mean = static_cast<long double>(sum) / n;
    long double const rest = static_cast<long double>(squares) - mean * sum;
    return static_cast<double>(std::sqrt(std::max(0.0L, rest) / (n - 1)));
}

/// Integers: sums are exact, whatever the order.
template <class T>
MEMBLOCK_INLINE_LOOP Intensity OfIntegers(std::span<Run const> runs, Geometry const& g,
                                          Frame const& frame, T const* __restrict values)
{
    using V = Number<T>;
    Intensity result = no_values;
    if (runs.empty())
        return result;
    V least = values[runs.front().at], greatest = least;
    Exact sum = 0, squares = 0, x = 0, y = 0, z = 0;
    for (Run const& run : runs) {
        T const* const p = values + run.at;
        V run_sum = 0;
        std::uint64_t run_squares = 0;
        std::uint32_t const n = run.Length();
        constexpr std::uint32_t most = 1
                                       << 16; // so many squares, or values by columns, fit 64 bits
        for (std::uint32_t from = 0; from < n; from += most) {
            std::uint32_t const to = std::min(n, from + most);
            V part = 0, part_x = 0;
            std::uint64_t part_squares = 0;
            for (std::uint32_t i = from; i < to; ++i) {
                V const v = p[i];
                least = std::min(least, v);
                greatest = std::max(greatest, v);
                part += v;
                part_x += v * static_cast<V>(i - from);
                part_squares += static_cast<std::uint64_t>(v * v);
                if constexpr (sizeof(T) > 2) { // each square takes up to 64 bits
                    squares += part_squares;
                    part_squares = 0;
                }
            }
            run_sum += part;
            run_squares += part_squares;
            x += part_x + Exact(part) * from;
        }
        Place const at = PlaceOf(run, g, frame);
        sum += run_sum;
        squares += run_squares;
        x += Exact(run_sum) * at.x;
        y += Exact(run_sum) * at.y;
        z += Exact(run_sum) * at.z;
    }
    result.count = g.area;
    result.minimum = static_cast<double>(least);
    result.maximum = static_cast<double>(greatest);
    result.sum = ToDouble(sum);
    result.deviation = Deviation(g.area, sum, squares);
    SetCentroid(result, g, result.sum, ToDouble(x), ToDouble(y), ToDouble(z));
    return result;
}

/// Floats, and 64-bit integers taken as doubles: sums run in ascending order of the pixels, the
/// deviation is taken from the mean in a second pass.
template <class T>
Intensity OfDoubles(std::span<Run const> runs, Geometry const& g, Frame const& frame,
                    T const* values, Filter const& filter)
{
    Intensity result = no_values;
    double x = 0, y = 0, z = 0;
    for (Run const& run : runs) {
        Place const at = PlaceOf(run, g, frame);
        for (std::uint32_t i = 0; i < run.Length(); ++i) {
            double v = static_cast<double>(values[run.at + i]);
            if (!filter.Admit(v))
                continue;
            // Not std::min: a NaN that is included stays, and an excluded one never begins.
            if (result.count++ == 0 || v < result.minimum || v != v)
                result.minimum = v;
            if (result.count == 1 || v > result.maximum || v != v)
                result.maximum = v;
            result.sum += v;
            x += v * static_cast<double>(at.x + i);
            y += v * static_cast<double>(at.y);
            z += v * static_cast<double>(at.z);
        }
    }
    if (result.count == 0)
        return result;
    SetCentroid(result, g, result.sum, x, y, z);
    if (result.count < 2)
        return result;
    double const count = static_cast<double>(result.count), mean = result.sum / count;
    double squares = 0, rest = 0; // the rest corrects the rounding error of the mean
    for (Run const& run : runs)
        for (std::uint32_t i = 0; i < run.Length(); ++i) {
            double v = static_cast<double>(values[run.at + i]);
            if (!filter.Admit(v))
                continue;
            squares += (v - mean) * (v - mean);
            rest += v - mean;
        }
    result.deviation = std::sqrt((squares - rest * rest / count) / (count - 1));
    return result;
}

/// Puts values in order as far as ranks are asked for, in one buffer for all objects.
template <class T>
class Ranks {
    using Key = select::Key<T>;
    using K = typename Key::type;

public:
    void Find(std::span<Run const> runs, T const* values, Filter const& filter, Intensity& result)
    {
        Gather(runs, values, filter);
        std::size_t const n = keys_.size();
        if (n == 0)
            return;
        // Each selection leaves what is greater behind it, where the next one goes on.
        result.lower_quartile = Value(Select(Rank(0.25)));
        std::size_t const middle = n / 2;
        double const below = n % 2 == 0 ? Value(Select(middle - 1)) : 0;
        double const upper = Value(Select(middle));
        result.median = n % 2 == 0 ? below + (upper - below) / 2 : upper;
        result.upper_quartile = Value(Select(Rank(0.75)));
    }

private:
    void Gather(std::span<Run const> runs, T const* values, Filter const& filter)
    {
        keys_.clear();
        done_ = 0;
        counted_ = false;
        for (Run const& run : runs) {
            T const* const from = values + run.at;
            K* out = keys_.Extend(run.Length());
            for (std::uint32_t i = 0; i < run.Length(); ++i) {
                T v = from[i];
                if constexpr (std::is_floating_point_v<T>) {
                    double wide = v;
                    if (!filter.Admit(wide))
                        continue;
                    v = static_cast<T>(wide);
                }
                *out++ = Key::Of(v);
            }
            keys_.resize(static_cast<std::size_t>(out - keys_.data()));
        }
    }
    /// The rank of a quantile: values that occur are given, none between.
    std::size_t Rank(double q) const
    {
        double const rank = std::floor(static_cast<double>(keys_.size()) * q + 0.5);
        return std::min(static_cast<std::size_t>(rank), keys_.size() - 1);
    }
    /// The key of a rank, which is not below that of the call before.
    K Select(std::size_t rank)
    {
        if constexpr (sizeof(K) == 1)
            if (keys_.size() >= many_bytes)
                return SelectCounted(rank);
        if (keys_.size() >= select::few)
            return select::select_key<K>(keys_.data(), keys_.size(), rank, Key::bits,
                                         std::identity());
        std::nth_element(keys_.begin() + done_, keys_.begin() + rank, keys_.end());
        done_ = rank;
        return keys_[rank];
    }
    /// Bytes are counted, and the counts added up as far as the rank.
    K SelectCounted(std::size_t rank)
    {
        if (!counted_) {
            std::ranges::fill(counts_, 0U);
            for (K const key : keys_)
                ++counts_[key];
            bin_ = 0;
            below_ = 0;
            counted_ = true;
        }
        for (; rank >= below_ + counts_[bin_]; ++bin_)
            below_ += counts_[bin_];
        return static_cast<K>(bin_);
    }
    static double Value(K key) { return static_cast<double>(Key::Back(key)); }

    static constexpr std::size_t many_bytes = 64; // below it clearing the counts costs more

    Buffer<K> keys_;
    std::size_t done_ = 0; // what is ahead of it is not greater
    bool counted_ = false;
    std::array<std::uint32_t, sizeof(K) == 1 ? 256 : 0> counts_;
    std::size_t bin_ = 0, below_ = 0; // keys below the bin
};

template <class T>
MEMBLOCK_MULTIVERSION void FindAll(RunList const& objects, Frame const& frame, T const* values,
                                   Filter const& filter, std::span<Facts> facts)
{
    for (std::size_t k = 0; k < facts.size(); ++k) {
        if constexpr (is_short_integer<T>)
            facts[k].intensity = OfIntegers(objects.Object(k), facts[k].geometry, frame, values);
        else
            facts[k].intensity =
                OfDoubles(objects.Object(k), facts[k].geometry, frame, values, filter);
    }
}

} // namespace

void FindIntensities(RunList const& objects, Frame const& frame, Plane const& plane, Policy nan,
                     Policy inf, unsigned needs, std::span<Facts> facts)
{
    Filter const filter{nan, inf};
    WithElemType<NumericTypes>(
        plane.type, "Intensities of type \"%s\" cannot be measured.", [&]<class T>(TypeTag<T>) {
            T const* const values = static_cast<T const*>(plane.values);
            FindAll(objects, frame, values, filter, facts);
            if (!(needs & need_order))
                return;
            Ranks<T> ranks;
            for (std::size_t k = 0; k < facts.size(); ++k)
                ranks.Find(objects.Object(k), values, filter, facts[k].intensity);
        });
}

} // namespace NKelmic::measuring
