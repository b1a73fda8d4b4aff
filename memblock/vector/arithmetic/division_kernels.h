#ifndef MEMBLOCK_VECTOR_ARITHMETIC_DIVISION_KERNELS_H
#define MEMBLOCK_VECTOR_ARITHMETIC_DIVISION_KERNELS_H

#include <memblock/vector/arithmetic/loops_kernels.h>

#include <cmath>

/// Quotients and remainders of integers, without a branch for a divisor of 0.
namespace NKelmic::ops {

/// A whole number in the range of C, from a floating one. Written so that vector units can do it:
/// they convert to signed integers only.
template <class C, class F>
MEMBLOCK_INLINE_LOOP C FromWhole(F value)
{
    if constexpr (std::is_signed_v<C>) {
        return static_cast<C>(value);
    } else {
        bool const high = value >= 2147483648.0;
        auto const low = static_cast<int>(high ? value - 2147483648.0 : value);
        return static_cast<C>(low) + (high ? 0x80000000U : 0U);
    }
}

template <class T>
MEMBLOCK_INLINE_LOOP std::size_t ModuloLoop(T const* __restrict x, std::size_t xstep,
                                            T const* __restrict y, std::size_t ystep, std::size_t n,
                                            T* __restrict out)
{
    using C = Computed<T>;
    using F = std::conditional_t<sizeof(T) <= 2, float, double>;
    unsigned int zeros = 0;
    for (std::size_t i = 0; i < n; ++i) {
        C const a = static_cast<C>(x[i * xstep]);
        C const b = static_cast<C>(y[i * ystep]);
        unsigned int const zero = b == 0;
        auto const divisor = static_cast<F>(static_cast<C>(static_cast<unsigned int>(b) + zero));
        auto const dividend = static_cast<F>(a);
        auto const rest = static_cast<unsigned int>(
            FromWhole<C>(dividend - std::trunc(dividend / divisor) * divisor));
        auto const mask = std::is_signed_v<C> ? static_cast<unsigned int>(b >> 31) : 0U;
        zeros += zero;
        out[i] = static_cast<T>(static_cast<C>((rest ^ mask) - mask)); // negated for a negative y
    }
    return zeros;
}

/// Remainders, exact in floating numbers that hold the operands: a quotient of integers that is no
/// integer is farther from one than they round. The sign is that of x for a positive y, and of -x
/// for a negative one. Returns how many elements met a zero y; these give 0.
template <class T>
MEMBLOCK_MULTIVERSION std::size_t ModuloKernel(Operands<T> const& in, T* out)
{
    if (in.yscalar)
        return ModuloLoop(in.x, 1, in.y, 0, in.n, out);
    if (in.xscalar)
        return ModuloLoop(in.x, 0, in.y, 1, in.n, out);
    return ModuloLoop(in.x, 1, in.y, 1, in.n, out);
}

/// The quotient of two integers, truncated toward zero, by way of floating numbers in which it is
/// exact: double for 32 bits, float for fewer. The lowest integer divided by -1 wraps.
template <class F, class C>
MEMBLOCK_INLINE_LOOP C Quotient(C numerator, C divisor)
{
    F const quotient = static_cast<F>(numerator) / static_cast<F>(divisor);
    if constexpr (std::is_same_v<F, float>)
        return static_cast<C>(static_cast<int>(quotient));
    else if constexpr (std::is_signed_v<C>)
        return FromWhole<C>(quotient > 2147483647.0 ? -2147483648.0 : quotient);
    else
        return FromWhole<C>(quotient);
}

/// What integer division stores where the divisor is 0, and what it counted.
struct DivisionGuard {
    int spread = 1;
    unsigned int infinity = 0; // as bits: a result type may be unsigned
    unsigned int uncertainty = 0;
    std::size_t infinities = 0;
    std::size_t uncertainties = 0;
};

template <class F, class T, class C = Computed<T>>
MEMBLOCK_INLINE_LOOP void DivideLoop(T const* __restrict x, std::size_t xstep,
                                     T const* __restrict y, std::size_t ystep, std::size_t n,
                                     C* __restrict out, DivisionGuard& guard)
{
    auto const spread = static_cast<unsigned int>(guard.spread);
    unsigned int const infinity = guard.infinity;
    unsigned int const uncertainty = guard.uncertainty;
    unsigned int infinities = 0;
    unsigned int uncertainties = 0;
    for (std::size_t i = 0; i < n; ++i) {
        C const a = static_cast<C>(x[i * xstep]);
        C const b = static_cast<C>(y[i * ystep]);
        unsigned int const guarded = b == 0;
        unsigned int const zero = a == 0;
        auto const half = static_cast<unsigned int>(b >> 1);
        auto const numerator = static_cast<C>(static_cast<unsigned int>(a) * spread + half);
        auto const divisor = static_cast<C>(static_cast<unsigned int>(b) + guarded);
        auto const quotient = static_cast<unsigned int>(Quotient<F>(numerator, divisor));
        unsigned int const replacement = zero ? uncertainty : infinity;
        unsigned int const mask = -guarded; // a choice would become a branch round the division
        out[i] = static_cast<C>((replacement & mask) | (quotient & ~mask));
        infinities += guarded & (zero ^ 1);
        uncertainties += guarded & zero;
    }
    guard.infinities += infinities;
    guard.uncertainties += uncertainties;
}

template <class F, class T>
MEMBLOCK_INLINE_LOOP void DivideShapes(Operands<T> const& in, Computed<T>* out,
                                       DivisionGuard& guard)
{
    if (in.yscalar)
        DivideLoop<F>(in.x, 1, in.y, 0, in.n, out, guard);
    else if (in.xscalar)
        DivideLoop<F>(in.x, 0, in.y, 1, in.n, out, guard);
    else
        DivideLoop<F>(in.x, 1, in.y, 1, in.n, out, guard);
}

/// Rounded, guarded integer division: (x * spread + (y >> 1)) / y in 32-bit arithmetic.
///
/// A float distinguishes a quotient n / y from the integer above it where |n| + |y| stays below
/// 2^24.
template <class T>
MEMBLOCK_MULTIVERSION void DivideKernel(Operands<T> const& in, Computed<T>* out,
                                        DivisionGuard& guard)
{
    if constexpr (sizeof(T) <= 2)
        if (guard.spread >= -128 && guard.spread <= 128)
            return DivideShapes<float>(in, out, guard);
    DivideShapes<double>(in, out, guard);
}

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_ARITHMETIC_DIVISION_KERNELS_H
