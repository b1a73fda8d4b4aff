#ifndef MEMBLOCK_VECTOR_ARITHMETIC_ELEMENTWISE_KERNELS_H
#define MEMBLOCK_VECTOR_ARITHMETIC_ELEMENTWISE_KERNELS_H

#include <memblock/vector/arithmetic/loops_kernels.h>
#include <memblock/vector/arithmetic/operators_internal.h>

#include <cmath>
#include <functional>

/// What the operators compute for one pair of elements, and the loops of each.
namespace NKelmic::ops {

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

struct FloatModulo {
    template <class C>
    C operator()(C x, C y) const
    {
        return std::fmod(x, y);
    }
};

/// The comparisons. A scalar first operand changes places with the array, and '<' with '>'.
/// Returns false for any other operator.
template <class T, class R>
MEMBLOCK_INLINE_LOOP bool CompareLoop(char op, Operands<T> in, R* out)
{
    if (in.xscalar && Find(op).mirror != '\0') {
        std::swap(in.x, in.y);
        std::swap(in.xscalar, in.yscalar);
        op = Find(op).mirror;
    }
    // From here on x is an array, so that the two loops of a symmetric operator serve all.
    switch (op) {
    case '=':
        Loop<true>(in, out, std::equal_to<>());
        return true;
    case '#':
        Loop<true>(in, out, std::not_equal_to<>());
        return true;
    case '<':
        Loop<true>(in, out, std::less<>());
        return true;
    case '>':
        Loop<true>(in, out, std::greater<>());
        return true;
    case '(':
        Loop<true>(in, out, std::less_equal<>());
        return true;
    case ')':
        Loop<true>(in, out, std::greater_equal<>());
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
        Loop<Find('+').commutes>(in, out, Add());
        return true;
    case '-':
        if (options.neg_abs)
            Loop<true>(in, out, AbsoluteDifference());
        else if (options.neg_zero)
            Loop<false>(in, out, PositiveDifference());
        else
            Loop<Find('-').commutes>(in, out, Subtract());
        return true;
    case '*':
        Loop<Find('*').commutes>(in, out, Multiply());
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
        Loop<Find('!').commutes>(in, out, LogicalNot());
        return true;
    case '&':
        Loop<Find('&').commutes>(in, out, LogicalAnd());
        return true;
    case '|':
        Loop<Find('|').commutes>(in, out, LogicalOr());
        return true;
    case '^':
        Loop<Find('^').commutes>(in, out, LogicalXor());
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
        Loop<Find('l').commutes>(in, out, ShiftLeft());
        return true;
    case 'p':
        Loop<false>(in, out, PixelIndex{options.image_width});
        return true;
    default:
        return false;
    }
}

/// Operators whose result is of the type of their operands: one set of loops a type, widened
/// afterwards where that is asked for. Returns false for any other operator.
template <class T>
MEMBLOCK_MULTIVERSION bool KeepingKernel(char op, Operands<T> const& in, T* out)
{
    if (CompareLoop(op, in, out) || LogicalLoop(op, in, out))
        return true;
    switch (op) {
    case 'a':
        Loop<Find('a').commutes>(in, out, std::bit_and<>());
        return true;
    case 'o':
        Loop<Find('o').commutes>(in, out, std::bit_or<>());
        return true;
    case 'x':
        Loop<Find('x').commutes>(in, out, std::bit_xor<>());
        return true;
    case 'r':
        Loop<Find('r').commutes>(in, out, ShiftRight());
        return true;
    default:
        return false;
    }
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
        Loop<Find('/').commutes>(in, out, std::divides<>());
        return true;
    case '~':
        Loop<Find('~').commutes>(in, out, FloatModulo());
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

#endif // MEMBLOCK_VECTOR_ARITHMETIC_ELEMENTWISE_KERNELS_H
