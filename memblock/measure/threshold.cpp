#include <memblock/measure/threshold.h>

#include <memblock/measure/run_internal.h>
#include <memblock/vector/range_kernels.h>

#include <boost/multiprecision/cpp_int.hpp>

#include <cmath>
#include <limits>

namespace NKelmic {

using measuring::Exact;
using measuring::UnsignedExact;

namespace {

constexpr std::size_t most_values = std::size_t{1} << 20;
constexpr std::size_t many_bins = 1 << 16;

template <class Kernel>
decltype(auto) WithPixels(DataType type, Kernel&& kernel)
{
    return WithElemType<NumericTypes>(type, "Pixels of type \"%s\" have no threshold.",
                                      std::forward<Kernel>(kernel));
}

/// A split: pixels up to it and the sum of their bins, of `pixels` with `sum` in all. Its variance
/// is, but for a constant factor, (lower_sum * pixels - sum * lower)^2 / (lower * upper).
struct Split {
    std::uint64_t lower = 0;
    UnsignedExact lower_sum = 0;
};

class SplitSearch {
public:
    explicit SplitSearch(std::vector<std::uint64_t> const& counts) : counts_(counts)
    {
        for (std::size_t v = 0; v < counts.size(); ++v) {
            pixels_ += counts[v];
            sum_ += static_cast<UnsignedExact>(counts[v]) * v;
        }
    }

    std::size_t Best()
    {
        Split at, best;
        long double most = -1;
        std::size_t place = 0;
        for (std::size_t v = 0; v < counts_.size(); ++v) {
            at.lower += counts_[v];
            at.lower_sum += static_cast<UnsignedExact>(counts_[v]) * v;
            if (counts_[v] == 0 || at.lower == pixels_) // as the split before; no split
                continue;
            long double const about = Variance(at);
            constexpr long double sure = 1 - 1e-15L; // what is less is less, whatever the rounding
            if (most >= 0 && (about < most * sure || (about * sure <= most && !IsMore(at, best))))
                continue;
            most = about;
            best = at;
            place = v;
        }
        return place;
    }

private:
    using Wide = boost::multiprecision::int512_t;

    /// Fits as long as pixels times pixels times bins do: pictures of 2^50 pixels.
    Exact Distance(Split const& s) const
    {
        return static_cast<Exact>(s.lower_sum * pixels_) - static_cast<Exact>(sum_ * s.lower);
    }
    long double Variance(Split const& s) const
    {
        long double const distance = static_cast<long double>(Distance(s));
        return distance * distance / s.lower / (pixels_ - s.lower);
    }
    Wide Numerator(Split const& s) const
    {
        Wide const distance = Distance(s);
        return distance * distance;
    }
    Wide Divisor(Split const& s) const { return Wide(s.lower) * (pixels_ - s.lower); }
    bool IsMore(Split const& a, Split const& b) const
    {
        return Numerator(a) * Divisor(b) > Numerator(b) * Divisor(a);
    }

    std::vector<std::uint64_t> const& counts_;
    std::uint64_t pixels_ = 0;
    UnsignedExact sum_ = 0;
};

} // namespace

FiniteRange::FiniteRange() : least(std::numeric_limits<double>::quiet_NaN()), greatest(least) {}

void FiniteRange::Add(DataType type, void const* pixels, std::size_t count)
{
    WithPixels(type, [&]<class T>(TypeTag<T>) {
        auto const found = MinMaxOf<true>(static_cast<T const*>(pixels), count);
        if (found.IsEmpty())
            return;
        FiniteRange part;
        part.least = static_cast<double>(found.min);
        part.greatest = static_cast<double>(found.max);
        Add(part);
    });
}

void FiniteRange::Add(FiniteRange const& other)
{
    least = std::fmin(least, other.least); // a NaN gives way
    greatest = std::fmax(greatest, other.greatest);
}

PixelHistogram::PixelHistogram(DataType type) : type_(type), width_(1)
{
    WithPixels(type, [&]<class T>(TypeTag<T>) {
        if constexpr (sizeof(T) <= 2) {
            least_ = static_cast<double>(std::numeric_limits<T>::lowest());
            counts_.resize(std::size_t{1} << (8 * sizeof(T)));
        } else {
            Raise(err_kind, "A range of values is needed for pixels of type \"%s\".",
                  TypeToString(type));
        }
    });
}

PixelHistogram::PixelHistogram(DataType type, FiniteRange const& range)
    : type_(type), least_(range.least), width_(1)
{
    double const span = range.greatest - range.least;
    bool const by_value = !IsInSet<FloatTypes>(type) && span < most_values;
    if (!(span >= 0)) { // no finite value
        least_ = 0;
        counts_.resize(1);
    } else if (by_value) {
        counts_.resize(static_cast<std::size_t>(span) + 1);
    } else {
        counts_.resize(many_bins);
        width_ = range.greatest / many_bins - range.least / many_bins; // the span may be infinite
    }
}

void PixelHistogram::Add(void const* pixels, std::size_t count)
{
    WithPixels(type_, [&]<class T>(TypeTag<T>) {
        T const* const p = static_cast<T const*>(pixels);
        if constexpr (sizeof(T) <= 2) {
            int const least = static_cast<int>(least_);
            for (std::size_t i = 0; i < count; ++i)
                ++counts_[static_cast<std::size_t>(static_cast<int>(p[i]) - least)];
        } else {
            double const last = static_cast<double>(counts_.size() - 1);
            for (std::size_t i = 0; i < count; ++i) {
                wide_t<T> const v = p[i];
                if (!IsFinite(v))
                    continue;
                double const bin =
                    width_ > 0 ? std::floor((static_cast<double>(v) - least_) / width_) : 0;
                ++counts_[static_cast<std::size_t>(std::min(bin, last))];
            }
        }
    });
}

void PixelHistogram::Add(PixelHistogram const& other)
{
    if (other.type_ != type_ || other.least_ != least_ || other.width_ != width_ ||
        other.counts_.size() != counts_.size())
        Raise(err_value, "Histograms of different bins cannot be added.");
    for (std::size_t bin = 0; bin < counts_.size(); ++bin)
        counts_[bin] += other.counts_[bin];
}

double PixelHistogram::UpperBound(std::size_t bin) const
{
    return least_ + width_ * static_cast<double>(bin + 1);
}

double PixelHistogram::OtsuThreshold() const
{
    std::size_t const bin = SplitSearch(counts_).Best();
    if (!IsInSet<FloatTypes>(type_) && width_ == 1)
        return least_ + static_cast<double>(bin);
    // Values at the bound belong to the next bin, which is above the threshold.
    return std::nextafter(UpperBound(bin), least_);
}

double OtsuThreshold(Vector const& pixels)
{
    bool const narrow = pixels.ElemSize() <= 2;
    DataType const type = pixels.ElemType();
    void const* const data = pixels.Pointer();
    FiniteRange range;
    if (!narrow)
        range.Add(type, data, pixels.Length());
    PixelHistogram histogram = narrow ? PixelHistogram(type) : PixelHistogram(type, range);
    histogram.Add(data, pixels.Length());
    return histogram.OtsuThreshold();
}

} // namespace NKelmic
