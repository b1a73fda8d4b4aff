#ifndef MEMBLOCK_STATISTIC_STATISTICIMPL_INTERNAL_H
#define MEMBLOCK_STATISTIC_STATISTICIMPL_INTERNAL_H

#include <memblock/statistic/statistic_kernels.h>

namespace NKelmic {

/// An engine of one pass. The nine classes of an integer type share one set of kernels.
template <class T, class Op, class NanPolicy, class InfPolicy>
class StatisticImpl final : public StatisticImplBase {
public:
    explicit StatisticImpl(Statistic const& s) : filter_(s) {}

    double Calculate(void const* data, int length) const override
    {
        return Op::Compute(static_cast<T const*>(data), std::max(length, 0), filter_);
    }
    StatisticImplBase* Clone() const override { return new StatisticImpl(*this); }

private:
    [[no_unique_address]] FilterFor<T, NanPolicy, InfPolicy> filter_;
};

/// An engine of two passes: the second operation is made from the result of the first. Nothing is
/// kept between calls.
template <class T, class Op1, class Op2, class NanPolicy, class InfPolicy>
class StatisticImplTwoPass final : public StatisticImplBase {
public:
    explicit StatisticImplTwoPass(Statistic const& s) : filter_(s), parameter_(s.Parameter()) {}

    double Calculate(void const* data, int length) const override
    {
        auto const* const x = static_cast<T const*>(data);
        int const n = std::max(length, 0);
        return Op2(Op1::Compute(x, n, filter_)).Compute(x, n, filter_, parameter_);
    }
    StatisticImplBase* Clone() const override { return new StatisticImplTwoPass(*this); }

private:
    [[no_unique_address]] FilterFor<T, NanPolicy, InfPolicy> filter_;
    double parameter_;
};

/// The engine for a word. Throws 128 "Statistic not implemented for: %s".
template <class T, class N, class I>
StatisticImplBase* MakeStatisticImpl3(Statistic const& s, safestring const& op)
{
    if (op == "min")
        return new StatisticImpl<T, Op_min<T>, N, I>(s);
    if (op == "max")
        return new StatisticImpl<T, Op_max<T>, N, I>(s);
    if (op == "sum")
        return new StatisticImpl<T, Op_sum<T>, N, I>(s);
    if (op == "mean")
        return new StatisticImpl<T, Op_mean<T>, N, I>(s);
    if (op == "samplesize")
        return new StatisticImpl<T, Op_count<T>, N, I>(s);
    if (op == "variance")
        return new StatisticImplTwoPass<T, Op_mean<T>, Op_variance<T>, N, I>(s);
    if (op == "stddev")
        return new StatisticImplTwoPass<T, Op_mean<T>, Op_stddev<T>, N, I>(s);
    if (op == "quantile")
        return new StatisticImplTwoPass<T, Op_count<T>, Op_quantile<T>, N, I>(s);
    Raise(err_kind, "Statistic not implemented for: %s", op);
}

/// The nine factories of an element type; each type has a source file of its own.
#define MEMBLOCK_STATISTIC_FACTORY(T, NAN_POLICY, INF_POLICY)                                      \
    template StatisticImplBase*                                                                    \
    MakeStatisticImpl3<T, InclusionPolicy_##NAN_POLICY, InclusionPolicy_##INF_POLICY>(             \
        Statistic const&, safestring const&);
#define MEMBLOCK_STATISTIC_FACTORIES(T)                                                            \
    MEMBLOCK_STATISTIC_FACTORY(T, Include, Include)                                                \
    MEMBLOCK_STATISTIC_FACTORY(T, Include, Exclude)                                                \
    MEMBLOCK_STATISTIC_FACTORY(T, Include, Replace)                                                \
    MEMBLOCK_STATISTIC_FACTORY(T, Exclude, Include)                                                \
    MEMBLOCK_STATISTIC_FACTORY(T, Exclude, Exclude)                                                \
    MEMBLOCK_STATISTIC_FACTORY(T, Exclude, Replace)                                                \
    MEMBLOCK_STATISTIC_FACTORY(T, Replace, Include)                                                \
    MEMBLOCK_STATISTIC_FACTORY(T, Replace, Exclude)                                                \
    MEMBLOCK_STATISTIC_FACTORY(T, Replace, Replace)

} // namespace NKelmic

#endif // MEMBLOCK_STATISTIC_STATISTICIMPL_INTERNAL_H
