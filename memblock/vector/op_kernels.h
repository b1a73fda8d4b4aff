#ifndef MEMBLOCK_VECTOR_OP_KERNELS_H
#define MEMBLOCK_VECTOR_OP_KERNELS_H

#include <memblock/base/multiversion.h>
#include <memblock/base/number.h>
#include <memblock/vector/op.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <type_traits>

/// The loops of the arithmetic operators. A kernel is chosen by element type, result type and
/// operator before its loop starts; the loop itself holds no test of any of them.
namespace NKelmic::ops {

/// The type in which an element is computed: integers in 32 bits, floating types as they are.
template <class T>
using Computed = std::conditional_t<
    std::is_floating_point_v<T>, T,
    std::conditional_t<std::is_same_v<T, unsigned int> || std::is_same_v<T, triple>, unsigned int,
                       int>>;

/// Store a computed value by plain assignment. A floating value that does not fit an integer result
/// gives what the machine gives, without undefined behaviour.
template <class R, class C>
constexpr R Stored(C value)
{
    if constexpr (std::is_same_v<C, bool> && std::is_floating_point_v<R>)
        return value ? R(1) : R(0); // a choice of two numbers; a conversion would not vectorize
    else if constexpr (std::is_floating_point_v<C> && !std::is_floating_point_v<R>)
        return static_cast<R>(TruncToInt(value));
    else
        return static_cast<R>(value);
}

/// The operands of one run. Either both hold `n` elements, or one of them holds a single one.
template <class T>
struct Operands {
    T const* x;
    T const* y;
    bool xscalar;
    bool yscalar;
    std::size_t n;
};

// ---- operators -----------------------------------------------------------------------------
// Integer sums, differences and products go through unsigned, where wrapping is defined.

template <class C>
using Wrapping = std::conditional_t<std::is_floating_point_v<C>, C, unsigned int>;

struct Add {
    template <class C>
    C operator()(C x, C y) const
    {
        return static_cast<C>(static_cast<Wrapping<C>>(x) + static_cast<Wrapping<C>>(y));
    }
};

struct Subtract {
    template <class C>
    C operator()(C x, C y) const
    {
        return static_cast<C>(static_cast<Wrapping<C>>(x) - static_cast<Wrapping<C>>(y));
    }
};

/// "neg_abs": the larger minus the smaller, so that nothing overflows on the way. Of floating zeros
/// neither is the larger, and the sign of their difference has to go.
struct AbsoluteDifference {
    template <class C>
    C operator()(C x, C y) const
    {
        if constexpr (std::is_floating_point_v<C>)
            return std::fabs(x - y);
        return x >= y ? Subtract()(x, y) : Subtract()(y, x);
    }
};

/// "neg_zero": a negative difference gives 0.
struct PositiveDifference {
    template <class C>
    C operator()(C x, C y) const
    {
        return x >= y ? Subtract()(x, y) : C(0);
    }
};

struct Multiply {
    template <class C>
    C operator()(C x, C y) const
    {
        return static_cast<C>(static_cast<Wrapping<C>>(x) * static_cast<Wrapping<C>>(y));
    }
};

struct Equal {
    template <class C>
    bool operator()(C x, C y) const
    {
        return x == y;
    }
};

struct NotEqual {
    template <class C>
    bool operator()(C x, C y) const
    {
        return x != y;
    }
};

struct Less {
    template <class C>
    bool operator()(C x, C y) const
    {
        return x < y;
    }
};

struct Greater {
    template <class C>
    bool operator()(C x, C y) const
    {
        return x > y;
    }
};

struct LessOrEqual {
    template <class C>
    bool operator()(C x, C y) const
    {
        return x <= y;
    }
};

struct GreaterOrEqual {
    template <class C>
    bool operator()(C x, C y) const
    {
        return x >= y;
    }
};

struct LogicalNot {
    template <class C>
    bool operator()(C x, C) const
    {
        return x == C(0);
    }
};

struct LogicalAnd {
    template <class C>
    C operator()(C x, C y) const
    {
        return ((x != C(0)) & (y != C(0))) != 0 ? x : C(0);
    }
};

struct LogicalOr {
    template <class C>
    C operator()(C x, C y) const
    {
        return x != C(0) ? x : y;
    }
};

struct LogicalXor {
    template <class C>
    C operator()(C x, C y) const
    {
        C const only_x = y != C(0) ? C(0) : x;
        C const only_y = y != C(0) ? y : C(0); // a zero of either sign gives 0
        return x != C(0) ? only_x : only_y;
    }
};

struct BitAnd {
    template <class C>
    C operator()(C x, C y) const
    {
        return x & y;
    }
};

struct BitOr {
    template <class C>
    C operator()(C x, C y) const
    {
        return x | y;
    }
};

struct BitXor {
    template <class C>
    C operator()(C x, C y) const
    {
        return x ^ y;
    }
};

/// A count that is negative or leaves no bit gives 0: the machine would take it modulo 32.
struct ShiftLeft {
    template <class C>
    C operator()(C x, C y) const
    {
        auto const count = static_cast<unsigned int>(y);
        return count < 32 ? static_cast<C>(static_cast<unsigned int>(x) << (count & 31)) : C(0);
    }
};

struct ShiftRight {
    template <class C>
    C operator()(C x, C y) const
    {
        auto const count = static_cast<unsigned int>(y);
        return count < 32 ? static_cast<C>(x >> (count & 31)) : C(0);
    }
};

/// The index of pixel (x, y) in an image of this width.
struct PixelIndex {
    unsigned int width;
    template <class C>
    C operator()(C x, C y) const
    {
        return static_cast<C>(static_cast<unsigned int>(x) + width * static_cast<unsigned int>(y));
    }
};

struct Divide {
    template <class C>
    C operator()(C x, C y) const
    {
        return x / y;
    }
};

struct FloatModulo {
    template <class C>
    C operator()(C x, C y) const
    {
        return std::fmod(x, y);
    }
};

// ---- loops ---------------------------------------------------------------------------------

/// One loop a shape: a scalar stays in a register.
template <class T, class R, class Op>
MEMBLOCK_INLINE_LOOP void Loop(Operands<T> const& in, R* __restrict out, Op op)
{
    using C = Computed<T>;
    std::size_t const n = in.n;
    T const* __restrict x = in.x;
    T const* __restrict y = in.y;
    if (in.yscalar) {
        C const b = static_cast<C>(y[0]);
        for (std::size_t i = 0; i < n; ++i)
            out[i] = Stored<R>(op(static_cast<C>(x[i]), b));
    } else if (in.xscalar) {
        C const a = static_cast<C>(x[0]);
        for (std::size_t i = 0; i < n; ++i)
            out[i] = Stored<R>(op(a, static_cast<C>(y[i])));
    } else {
        for (std::size_t i = 0; i < n; ++i)
            out[i] = Stored<R>(op(static_cast<C>(x[i]), static_cast<C>(y[i])));
    }
}

/// For operators that give the same when their operands change places: two loops serve.
template <class T, class R, class Op>
MEMBLOCK_INLINE_LOOP void LoopEitherWay(Operands<T> in, R* __restrict out, Op op)
{
    using C = Computed<T>;
    if (in.xscalar) {
        std::swap(in.x, in.y);
        std::swap(in.xscalar, in.yscalar);
    }
    std::size_t const n = in.n;
    T const* __restrict x = in.x;
    T const* __restrict y = in.y;
    if (in.yscalar) {
        C const b = static_cast<C>(y[0]);
        for (std::size_t i = 0; i < n; ++i)
            out[i] = Stored<R>(op(static_cast<C>(x[i]), b));
    } else {
        for (std::size_t i = 0; i < n; ++i)
            out[i] = Stored<R>(op(static_cast<C>(x[i]), static_cast<C>(y[i])));
    }
}

/// The comparisons. A scalar first operand changes places with the array, and '<' with '>'.
/// Returns false for any other operator.
template <class T, class R>
MEMBLOCK_INLINE_LOOP bool CompareLoop(char op, Operands<T> in, R* out)
{
    if (in.xscalar) {
        std::swap(in.x, in.y);
        std::swap(in.xscalar, in.yscalar);
        op = op == '<' ? '>' : op == '>' ? '<' : op == '(' ? ')' : op == ')' ? '(' : op;
    }
    switch (op) {
    case '=':
        LoopEitherWay(in, out, Equal());
        return true;
    case '#':
        LoopEitherWay(in, out, NotEqual());
        return true;
    case '<':
        LoopEitherWay(in, out, Less());
        return true;
    case '>':
        LoopEitherWay(in, out, Greater());
        return true;
    case '(':
        LoopEitherWay(in, out, LessOrEqual());
        return true;
    case ')':
        LoopEitherWay(in, out, GreaterOrEqual());
        return true;
    default:
        return false;
    }
}

/// What the operators read from the options, looked up once a run.
struct KernelOptions {
    bool neg_abs = false;
    bool neg_zero = false;
    unsigned int image_width = 0;
};

/// Sums, differences and products. Returns false for any other operator.
template <class T, class R>
MEMBLOCK_INLINE_LOOP bool ArithmeticLoop(char op, Operands<T> const& in, R* out,
                                         KernelOptions const& options)
{
    switch (op) {
    case '+':
        LoopEitherWay(in, out, Add());
        return true;
    case '-':
        if (options.neg_abs)
            LoopEitherWay(in, out, AbsoluteDifference());
        else if (options.neg_zero)
            Loop(in, out, PositiveDifference());
        else
            Loop(in, out, Subtract());
        return true;
    case '*':
        LoopEitherWay(in, out, Multiply());
        return true;
    default:
        return false;
    }
}

/// The logical operators. Returns false for any other operator.
template <class T, class R>
MEMBLOCK_INLINE_LOOP bool LogicalLoop(char op, Operands<T> const& in, R* out)
{
    switch (op) {
    case '!':
        Loop(in, out, LogicalNot());
        return true;
    case '&':
        Loop(in, out, LogicalAnd());
        return true;
    case '|':
        Loop(in, out, LogicalOr());
        return true;
    case '^':
        LoopEitherWay(in, out, LogicalXor());
        return true;
    default:
        return false;
    }
}

/// Operators that may leave the type of their operands: one set of loops a result type. Returns
/// false for any other operator.
template <class T, class R>
MEMBLOCK_MULTIVERSION bool WideningKernel(char op, Operands<T> const& in, R* out,
                                          KernelOptions const& options)
{
    if (ArithmeticLoop(op, in, out, options))
        return true;
    switch (op) {
    case 'l':
        Loop(in, out, ShiftLeft());
        return true;
    case 'p':
        Loop(in, out, PixelIndex{options.image_width});
        return true;
    default:
        return false;
    }
}

/// Operators whose result lies in the type of their operands: one set of loops a type, widened
/// afterwards where that is asked for. Returns false for any other operator.
template <class T>
MEMBLOCK_MULTIVERSION bool KeepingKernel(char op, Operands<T> const& in, T* out)
{
    if (CompareLoop(op, in, out) || LogicalLoop(op, in, out))
        return true;
    switch (op) {
    case 'a':
        LoopEitherWay(in, out, BitAnd());
        return true;
    case 'o':
        LoopEitherWay(in, out, BitOr());
        return true;
    case 'x':
        LoopEitherWay(in, out, BitXor());
        return true;
    case 'r':
        Loop(in, out, ShiftRight());
        return true;
    default:
        return false;
    }
}

/// Store one integer type as another, by plain assignment.
template <class M, class R>
MEMBLOCK_MULTIVERSION void Restore(M const* __restrict from, R* __restrict out, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i)
        out[i] = static_cast<R>(static_cast<Computed<M>>(from[i]));
}

/// Run a kernel that writes M into a result of R, by blocks that stay in the nearest cache.
template <class M, class T, class R, class Kernel>
bool ByBlocks(Operands<T> const& in, R* out, Kernel kernel)
{
    if constexpr (std::is_same_v<M, R>) {
        return kernel(in, out);
    } else {
        constexpr std::size_t block = 2048;
        M buffer[block];
        for (std::size_t start = 0; start < in.n; start += block) {
            std::size_t const n = std::min(block, in.n - start);
            Operands<T> const part{in.x + (in.xscalar ? 0 : start), in.y + (in.yscalar ? 0 : start),
                                   in.xscalar, in.yscalar, n};
            if (!kernel(part, buffer))
                return false;
            Restore(buffer, out + start, n);
        }
        return true;
    }
}

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
/// integer lies farther from one than they round. The sign is that of x for a positive y, and of -x
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
/// A float tells a quotient n / y from the integer above it where |n| + |y| stays below 2^24.
template <class T>
MEMBLOCK_MULTIVERSION void DivideKernel(Operands<T> const& in, Computed<T>* out,
                                        DivisionGuard& guard)
{
    if constexpr (sizeof(T) <= 2)
        if (guard.spread >= -128 && guard.spread <= 128)
            return DivideShapes<float>(in, out, guard);
    DivideShapes<double>(in, out, guard);
}

/// The floating operators. Returns false for an unknown operator.
template <class T, class R>
MEMBLOCK_MULTIVERSION bool FloatKernel(char op, Operands<T> const& in, R* out,
                                       KernelOptions const& options)
{
    if (CompareLoop(op, in, out) || LogicalLoop(op, in, out) ||
        ArithmeticLoop(op, in, out, options))
        return true;
    switch (op) {
    case '/':
        Loop(in, out, Divide());
        return true;
    case '~':
        Loop(in, out, FloatModulo());
        return true;
    default:
        return false;
    }
}

/// The comparisons of integers, written as another type at once. Returns false for another
/// operator.
template <class T, class R>
MEMBLOCK_MULTIVERSION bool CompareKernel(char op, Operands<T> const& in, R* out)
{
    return CompareLoop(op, in, out);
}

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_OP_KERNELS_H
