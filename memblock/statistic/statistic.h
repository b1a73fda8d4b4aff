#ifndef MEMBLOCK_STATISTIC_STATISTIC_H
#define MEMBLOCK_STATISTIC_STATISTIC_H

#include <memblock/vector/vector.h>

#include <memory>

namespace NKelmic {

class Statistic;

/// The engine behind a `Statistic`: element type, operation and both policies are settled in it.
class MEMBLOCK_API StatisticImplBase : public mb_malloced {
public:
    virtual double Calculate(void const* data, int length) const = 0;
    virtual ~StatisticImplBase() = default;
    virtual StatisticImplBase* Clone() const = 0; ///< with replacement values and parameter
};

/// What becomes of NaN, or of infinities: they take part, are left out, or are replaced by a
/// number.
struct InclusionPolicy_Include {};
struct InclusionPolicy_Exclude {};
struct InclusionPolicy_Replace {};

template <class T>
struct Op_min;
template <class T>
struct Op_max;
template <class T>
struct Op_sum;
template <class T>
struct Op_mean;
template <class T>
struct Op_count;
template <class T>
struct Op_variance;
template <class T>
struct Op_stddev;
template <class T>
struct Op_quantile;
template <class T, class Op, class NanPolicy, class InfPolicy>
class StatisticImpl;
template <class T, class Op1, class Op2, class NanPolicy, class InfPolicy>
class StatisticImplTwoPass;
template <class T, class NanPolicy, class InfPolicy>
StatisticImplBase* MakeStatisticImpl3(Statistic const& statistic, safestring const& op);

/// One named statistic over the raw values of a vector, or over slices of it.
///
/// Make it once, then call `Comp(0, -1)` for the whole vector or `Comp` for as many slices as you
/// like: a call costs its loop. The raw factor plays no part; multiply for cooked results.
///
/// The words, in any letter case:
///
///     min, max      least, greatest value
///     sum, mean     in double, floating values in element order
///     variance      with divisor n - 1; NaN of fewer than two values
///     stddev        its square root
///     samplesize    number of values that take part
///     quantile      the value at index n * parameter, rounded half up, of the sorted values
///     median        the quantile at 0.5
///
/// `nan` and `inf` are "exclude", "include", or the number that replaces; -infinity becomes the
/// negative of it. Of no values, sum and samplesize are 0 and the others NaN.
///
/// Settled: "max" of floating values that are all negative or zero is the smallest positive normal
/// number, "min" is at most the greatest finite one, a variance that is NaN by its values is 0, and
/// the median of {1, 2, 3, 4, 5} is 4. Callers' numbers rest on these.
class MEMBLOCK_API Statistic {
public:
    /// Look at a vector as it is now. A later change that moves its buffer leaves this dangling.
    ///
    /// Throws: 128 "Statistic not implemented for: %s";
    ///         128 "Function impl_ = MakeStatisticImpl1 not implemented for data type '%s'";
    ///         512 from the number parser for other texts in `nan` and `inf`, before all else.
    Statistic(DerivedPointer<Vector> vector, safestring const& statistic, safestring const& nan,
              safestring const& inf, double parameter);
    Statistic(Statistic const& o);
    Statistic& operator=(Statistic const& o);
    ~Statistic();

    /// The statistic of `length` elements from `start` on, cut to the vector; a negative length
    /// means all the rest. Reads only: threads may share the object while the vector stays.
    double Comp(int start, int length) const;

    double NanValue() const { return nan_value_; } ///< what replaces NaN
    double InfValue() const { return inf_value_; } ///< what replaces infinity
    double Parameter() const { return parameter_; }

private:
    std::unique_ptr<StatisticImplBase> impl_;
    double nan_value_, inf_value_, parameter_;
    DerivedPointer<Vector> vector_; // keeps the data alive
    void const* data_;
    unsigned int elemsize_;
    int length_;
};

} // namespace NKelmic

#endif // MEMBLOCK_STATISTIC_STATISTIC_H
