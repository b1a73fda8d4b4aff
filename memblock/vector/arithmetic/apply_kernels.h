#ifndef MEMBLOCK_VECTOR_ARITHMETIC_APPLY_KERNELS_H
#define MEMBLOCK_VECTOR_ARITHMETIC_APPLY_KERNELS_H

#include <memblock/vector/arithmetic/division_kernels.h>
#include <memblock/vector/arithmetic/elementwise_kernels.h>
#include <memblock/vector/arithmetic/kernelpairs_internal.h>
#include <memblock/vector/arithmetic/op.h>

#include <limits>
#include <tuple>

/// Bodies of the functions that `Vector::op` calls by element types. Each element type instantiates
/// its pairs in a source of its own, which CMake makes from instances.cpp.in.
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
        if (ops::Find(op).kind == ops::OpKind::bits)
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

namespace ops {

template <class T>
void CompareToBytes(char op, T const* x, unsigned int xlen, T const* y, unsigned int ylen,
                    unsigned char* dest, unsigned int destlen)
{
    CompareKernel(op, MakeOperands(x, xlen, y, ylen, destlen), dest);
}

/// The addresses of all functions for operands T and results R: taking them instantiates them.
template <class T, class R>
consteval auto FunctionsOfPair()
{
    if constexpr (IntegerPair<T, R>)
        return std::tuple(&ApplyOp<T, R>, &ApplyOpSimple<T, R>);
    else if constexpr (FloatPair<T, R>)
        return std::tuple(&ApplyOpSimple<T, R>);
    else
        return std::tuple();
}

template <class T>
consteval auto FunctionsOfComparison()
{
    if constexpr (KernelTypes::has<T>)
        return std::tuple(&CompareToBytes<T>);
    else
        return std::tuple();
}

template <class T>
consteval auto AllFunctions()
{
#define MEMBLOCK_PAIR(NAME, ID, R, TEXT) , FunctionsOfPair<T, R>()
    return std::tuple_cat(FunctionsOfComparison<T>() MEMBLOCK_NUMERIC_ELEM_TYPES(MEMBLOCK_PAIR));
#undef MEMBLOCK_PAIR
}

} // namespace ops

} // namespace NKelmic

#endif // MEMBLOCK_VECTOR_ARITHMETIC_APPLY_KERNELS_H
