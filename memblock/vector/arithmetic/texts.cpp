#include <memblock/vector/arithmetic/op.h>

#include <memblock/vector/arithmetic/operators_internal.h>
#include <memblock/vector/vector.h>

namespace NKelmic {

namespace {

/// Combine element by element; a scalar is read again and again.
template <bool xscalar, bool yscalar, class R, class Combine>
DerivedPointer<Vector> EachPair(char op, Vector const& x, Vector const& y, Combine combine)
{
    unsigned const n = xscalar ? y.Length() : x.Length();
    bool const xfits = xscalar ? x.Length() > 0 : x.Length() == n;
    bool const yfits = yscalar ? y.Length() > 0 : y.Length() == n;
    if (!xfits || !yfits)
        Raise(err_value, "Cannot apply operation '%c' to vectors of lengths %d and %d elements.",
              op, x.Length(), y.Length());
    auto result = Vector::Create(n, type_of<R>::value, true, 0, 1.0);
    safestring const* const a = x.StringPointer(0);
    safestring const* const b = y.StringPointer(0);
    R* const out = result->template TypedPointer<R>();
    for (unsigned i = 0; i < n; ++i)
        out[i] = combine(a[xscalar ? 0 : i], b[yscalar ? 0 : i]);
    return result;
}

} // namespace

bool OpImplementedForStrings(char op)
{
    return ops::Find(op).strings;
}

template <bool xscalar, bool yscalar>
DerivedPointer<Vector> PerformStringOp(char op, DerivedPointer<Vector> const& x,
                                       DerivedPointer<Vector> const& y)
{
    // One comparison gives the order; each operator asks something else of it.
    auto const compare = [&](auto test) {
        return EachPair<xscalar, yscalar, unsigned char>(
            op, cref(x), cref(y),
            [test](safestring const& a, safestring const& b) { return test(a.compare(b)); });
    };
    switch (op) {
    case 'c':
        return EachPair<xscalar, yscalar, safestring>(
            op, cref(x), cref(y), [](safestring const& a, safestring const& b) { return a + b; });
    case '=':
        return compare([](int order) { return order == 0; });
    case '#':
        return compare([](int order) { return order != 0; });
    case '<':
        return compare([](int order) { return order < 0; });
    case '>':
        return compare([](int order) { return order > 0; });
    case '(':
        return compare([](int order) { return order <= 0; });
    case ')':
        return compare([](int order) { return order >= 0; });
    default:
        Raise(err_request, "Vector::op(): operation not implemented for string vectors: '%c'", op);
    }
}

template DerivedPointer<Vector> PerformStringOp<false, false>(char, DerivedPointer<Vector> const&,
                                                              DerivedPointer<Vector> const&);
template DerivedPointer<Vector> PerformStringOp<false, true>(char, DerivedPointer<Vector> const&,
                                                             DerivedPointer<Vector> const&);
template DerivedPointer<Vector> PerformStringOp<true, false>(char, DerivedPointer<Vector> const&,
                                                             DerivedPointer<Vector> const&);
template DerivedPointer<Vector> PerformStringOp<true, true>(char, DerivedPointer<Vector> const&,
                                                            DerivedPointer<Vector> const&);

DerivedPointer<Vector> StringOp(char op, DerivedPointer<Vector> const& x,
                                DerivedPointer<Vector> const& y)
{
    // A number beside a text is compared as its text.
    auto const a = cref(x).ConvertElemsToType(DataTypeBase::String, true, true);
    auto const b = cref(y).ConvertElemsToType(DataTypeBase::String, true, true);
    bool const xscalar = a->Length() == 1;
    bool const yscalar = b->Length() == 1;
    if (xscalar)
        return yscalar ? PerformStringOp<true, true>(op, a, b)
                       : PerformStringOp<true, false>(op, a, b);
    return yscalar ? PerformStringOp<false, true>(op, a, b)
                   : PerformStringOp<false, false>(op, a, b);
}

} // namespace NKelmic
