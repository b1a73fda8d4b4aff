#ifndef MEMBLOCK_VECTOR_ARITHMETIC_LOOPS_KERNELS_H
#define MEMBLOCK_VECTOR_ARITHMETIC_LOOPS_KERNELS_H

#include <memblock/base/multiversion.h>
#include <memblock/base/number.h>
#include <memblock/core/datatype.h>

#include <algorithm>
#include <cstddef>
#include <type_traits>

/// How the operators run over arrays. A kernel is chosen by element type, result type and operator
/// before its loop starts; the loop itself holds no test of any of them.
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

/// Run `op` over all elements, one loop a shape: a scalar stays in a register.
///
/// commutes: the operator gives the same when its operands change places, so that two loops serve.
template <bool commutes, class T, class R, class Op>
MEMBLOCK_INLINE_LOOP void Loop(Operands<T> in, R* __restrict out, Op op)
{
    using C = Computed<T>;
    if (commutes && in.xscalar) {
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
    } else if (!commutes && in.xscalar) {
        C const a = static_cast<C>(x[0]);
        for (std::size_t i = 0; i < n; ++i)
            out[i] = Stored<R>(op(a, static_cast<C>(y[i])));
    } else {
        for (std::size_t i = 0; i < n; ++i)
            out[i] = Stored<R>(op(static_cast<C>(x[i]), static_cast<C>(y[i])));
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

} // namespace NKelmic::ops

#endif // MEMBLOCK_VECTOR_ARITHMETIC_LOOPS_KERNELS_H
