// The result of an operation has the smallest type that holds what can come out: the values decide,
// not the types of the operands alone.
#include <memblock/core/safevalue.h>
#include <memblock/vector/vector.h>

#include <cstdio>

using namespace NKelmic;

namespace {

DerivedPointer<Vector> Bytes(int a, int b)
{
    auto v = Vector::Create(2, Vector::Byte, true, 0, 1.0);
    v->SetElem(0, a);
    v->SetElem(1, b);
    return v;
}

void Show(char const* text, PMemBlock const& result)
{
    DerivedPointer<Vector> const v(result);
    std::printf("%-24s %-14s %g %g\n", text, Vector::TypeToString(v->ElemType()), v->Elem(0),
                v->Elem(1));
}

} // namespace

int main()
{
    op_options const plain;
    auto const dark = Bytes(1, 100), bright = Bytes(200, 250);

    Show("dark + dark", dark->op('+', dark, plain));
    Show("dark + bright", dark->op('+', bright, plain));
    Show("dark - bright", dark->op('-', bright, plain));
    Show("bright * bright", bright->op('*', bright, plain));
    Show("dark / bright", dark->op('/', bright, plain));
    Show("dark < bright", dark->op('<', bright, plain));

    op_options fixed;
    fixed.SetFlag("fixed_result_type", true);
    fixed.SetValue("result_type", static_cast<int>(Vector::Float));
    Show("dark + bright as float", dark->op('+', bright, fixed));

    auto const metres = DerivedPointer<Vector>(bright->Clone(true));
    metres->SetFactor(0.5); // one count is half a metre
    Show("metres, raw", metres);
    Show("metres + dark, cooked", metres->op('+', dark, plain));

    auto const narrow = cref(DerivedPointer<Vector>(bright->op('*', bright, plain)))
                            .ConvertElemsToType(Vector::Byte, true, false);
    Show("product in bytes, raw", narrow);
    std::printf("%-24s factor %g: the cooked values stay as far as bytes allow\n", "",
                cref(narrow).Factor());
}
