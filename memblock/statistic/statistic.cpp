#include <memblock/statistic/statistic.h>

#include <memblock/base/number.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace NKelmic {

namespace {

enum class Policy { include, exclude, replace };

/// Take a policy text apart; `itself` is NaN or infinity, and a number that says the same includes.
Policy parse_policy(safestring const& text, double itself, double& value)
{
    value = itself;
    if (text == "include")
        return Policy::include;
    if (text == "exclude")
        return Policy::exclude;
    // Any other word is a number, or raises as a bad number does.
    value = StringToDouble()(text);
    // NaN is equal to nothing, so it needs a test of its own.
    bool const same = std::isnan(itself) ? std::isnan(value) : value == itself;
    return same ? Policy::include : Policy::replace;
}

/// Turns a policy into a type, so that no kernel tests it for each element.
template <class Kernel>
StatisticImplBase* with_policy(Policy policy, Kernel&& kernel)
{
    switch (policy) {
    case Policy::include:
        return kernel(InclusionPolicy_Include());
    case Policy::exclude:
        return kernel(InclusionPolicy_Exclude());
    case Policy::replace:
        break;
    }
    return kernel(InclusionPolicy_Replace());
}

StatisticImplBase* make_impl(Statistic const& statistic, DataType type, Policy nan, Policy inf,
                             safestring const& word)
{
    return WithElemType<NumericTypes>(
        type, "Function impl_ = MakeStatisticImpl1 not implemented for data type '%s'",
        [&]<class T>(TypeTag<T>) {
            return with_policy(nan, [&]<class N>(N) {
                return with_policy(
                    inf, [&]<class I>(I) { return MakeStatisticImpl3<T, N, I>(statistic, word); });
            });
        });
}

} // namespace

Statistic::Statistic(DerivedPointer<Vector> vector, safestring const& statistic,
                     safestring const& nan, safestring const& inf, double parameter)
    : parameter_(parameter), vector_(std::move(vector))
{
    Policy const nan_policy =
        parse_policy(nan, std::numeric_limits<double>::quiet_NaN(), nan_value_);
    Policy const inf_policy =
        parse_policy(inf, std::numeric_limits<double>::infinity(), inf_value_);
    // After the policies: a text that is no number is reported first.
    if (!vector_)
        Raise(err_precondition, "Statistic: no vector");
    // A median is the quantile 0.5, whatever parameter came with it.
    bool const median = statistic == "median";
    if (median)
        parameter_ = 0.5;
    Vector const& values = cref(vector_);
    impl_.reset(make_impl(*this, values.ElemType(), nan_policy, inf_policy,
                          median ? safestring("quantile") : statistic));
    data_ = values.Pointer();
    elemsize_ = values.ElemSize();
    length_ = static_cast<int>(values.Length());
}

Statistic::Statistic(Statistic const& o)
    : impl_(o.impl_->Clone()), nan_value_(o.nan_value_), inf_value_(o.inf_value_),
      parameter_(o.parameter_), vector_(o.vector_), data_(o.data_), elemsize_(o.elemsize_),
      length_(o.length_)
{
}

Statistic& Statistic::operator=(Statistic const& o)
{
    // The only step that can fail comes first.
    impl_.reset(o.impl_->Clone());
    nan_value_ = o.nan_value_;
    inf_value_ = o.inf_value_;
    parameter_ = o.parameter_;
    vector_ = o.vector_;
    data_ = o.data_;
    elemsize_ = o.elemsize_;
    length_ = o.length_;
    return *this;
}

Statistic::~Statistic() = default;

double Statistic::Comp(int start, int length) const
{
    // Anything outside is cut off: callers slide a window over the ends of a vector.
    long long first = start; // sums of two ints fit
    long long count = length < 0 ? std::numeric_limits<int>::max() : length;
    if (first < 0) {
        count = std::max(count + first, 0LL);
        first = 0;
    }
    first = std::min<long long>(first, length_);
    count = std::min(count, length_ - first);
    return impl_->Calculate(static_cast<char const*>(data_) + first * elemsize_,
                            static_cast<int>(count));
}

} // namespace NKelmic
