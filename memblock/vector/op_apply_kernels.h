#ifndef MEMBLOCK_VECTOR_OP_APPLY_KERNELS_H
#define MEMBLOCK_VECTOR_OP_APPLY_KERNELS_H

#include <memblock/vector/op_kernels.h>

#include <limits>

/// Bodies of `ApplyOp` and `ApplyOpSimple`; each element type instantiates its pairs in a file of
/// its own.
namespace NKelmic {

namespace ops {

template <class T>
Operands<T> MakeOperands(T const* x, unsigned int xlen, T const* y, unsigned int ylen,
                         unsigned int destlen)
{
    Operands<T> const in{x, y, xlen == 1 && ylen != 1, ylen == 1 && xlen != 1, destlen};
    if ((xlen != destlen && !in.xscalar) || (ylen != destlen && !in.yscalar))
        ThrowAssertException(__FILE__, __LINE__, "ylen==dstlen");
    return in;
}

/// The comparisons where the result is wider than the operands. 0 and 1 have the same bits in the
/// signed and the unsigned type of a width: one set of loops serves both.
template <class T, class R>
bool CompareWider(char op, Operands<T> const& in, R* dest)
{
    if constexpr (sizeof(R) > sizeof(T) && !std::is_same_v<T, triple> && !std::is_same_v<R, triple>)
        return CompareKernel(op, in, reinterpret_cast<std::make_unsigned_t<R>*>(dest));
    else
        return false;
}

/// Modulo of a whole run, with its report.
template <class T, class R>
int Modulo(Operands<T> const& in, R* dest, op_options const& options)
{
    std::size_t met = 0;
    ByBlocks<T>(in, dest, [&met](Operands<T> const& part, T* out) {
        met += ModuloKernel(part, out);
        return true;
    });
    auto const zeros = static_cast<int>(met);
    if (zeros > 0 && options.GetFlag("throw_if_uncertainty", false))
        Raise(err_value, "Modulos op for %d elements; second operand zero for %d elements.",
              static_cast<int>(in.n), zeros);
    return zeros;
}

} // namespace ops

template <class T, class R>
void ApplyOpSimple(char op, T const* x, unsigned int xlen, T const* y, unsigned int ylen, R* dest,
                   unsigned int destlen, op_options const& options)
{
    auto const in = ops::MakeOperands(x, xlen, y, ylen, destlen);
    int nancount = 0;
    bool known = true;
    ops::KernelOptions kernel;
    if (op == '-') {
        kernel.neg_abs = options.GetFlag("neg_abs", false);
        kernel.neg_zero = options.GetFlag("neg_zero", false);
    }
    if constexpr (std::is_floating_point_v<T>) {
        if (op == 'a' || op == 'o' || op == 'x' || op == 'l' || op == 'r')
            throw_no_float_support();
        known = ops::FloatKernel(op, in, dest, kernel);
    } else {
        if (op == 'p')
            kernel.image_width =
                static_cast<unsigned int>(options.GetValue("image_width", 0).GetInt());
        if (op == '~')
            nancount = ops::Modulo(in, dest, options);
        else
            known = ops::WideningKernel(op, in, dest, kernel) || ops::CompareWider(op, in, dest) ||
                    ops::ByBlocks<T>(in, dest, [op](ops::Operands<T> const& part, T* out) {
                        return ops::KeepingKernel(op, part, out);
                    });
    }
    if (!known)
        Raise(err_request, "Vector::op(): operation not implemented: '%c'", op);
    options.SetOutput("nancount", nancount);
}

template <class T, class R>
void ApplyOp(char op, T const* x, unsigned int xlen, T const* y, unsigned int ylen, R* dest,
             unsigned int destlen, op_options const& options)
{
    if (op != '/')
        return ApplyOpSimple(op, x, xlen, y, ylen, dest, destlen, options);
    auto const in = ops::MakeOperands(x, xlen, y, ylen, destlen);
    auto const greatest = static_cast<unsigned int>(std::numeric_limits<R>::max());
    ops::DivisionGuard guard;
    guard.spread = options.GetValue("spread_factor", 1).GetInt();
    guard.infinity = static_cast<unsigned int>(options.GetValue("infinity", greatest).GetInt64());
    guard.uncertainty = static_cast<unsigned int>(options.GetValue("uncertainty", 0).GetInt64());
    ops::ByBlocks<ops::Computed<T>>(in, dest,
                                    [&guard](ops::Operands<T> const& part, ops::Computed<T>* out) {
                                        ops::DivideKernel(part, out, guard);
                                        return true;
                                    });
    options.SetOutput("nancount", 0);
    if ((guard.infinities > 0 && options.GetFlag("throw_if_infinity", false)) ||
        (guard.uncertainties > 0 && options.GetFlag("throw_if_uncertainty", false)))
        Raise(err_value,
              "Vector::op('/'): division x/0 for %d elements; division 0/0 for %d elements.",
              static_cast<int>(guard.infinities), static_cast<int>(guard.uncertainties));
}

#define MEMBLOCK_INSTANTIATE_OP_SIMPLE(T, R)                                                       \
    template void ApplyOpSimple<T, R>(char, T const*, unsigned int, T const*, unsigned int, R*,    \
                                      unsigned int, op_options const&);
#define MEMBLOCK_INSTANTIATE_OP(T, R)                                                              \
    MEMBLOCK_INSTANTIATE_OP_SIMPLE(T, R)                                                           \
    template void ApplyOp<T, R>(char, T const*, unsigned int, T const*, unsigned int, R*,          \
                                unsigned int, op_options const&);
#define MEMBLOCK_INSTANTIATE_COMPARE(T)                                                            \
    template bool ops::CompareKernel(char, ops::Operands<T> const&, unsigned char*);

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_OP_APPLY_KERNELS_H
