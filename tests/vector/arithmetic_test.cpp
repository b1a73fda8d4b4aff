#include <memblock/vector/arithmetic/op.h>
#include <memblock/vector/vector.h>

#include "support/raises.h"
#include "support/rounds.h"
#include "support/vectors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace NKelmic;

namespace {

DerivedPointer<Vector> Op(char op, DerivedPointer<Vector> const& x, DerivedPointer<Vector> const& y,
                          op_options const& options = op_options())
{
    return DerivedPointer<Vector>(cref(x).op(op, y, options));
}

DerivedPointer<Vector> Make(DataType type, std::vector<double> const& raw, double factor = 1.0)
{
    auto v = Vector::Create(raw.size(), type, true, 0, 1.0);
    for (unsigned i = 0; i < raw.size(); ++i)
        v->SetElem(i, raw[i]);
    v->SetFactor(factor);
    return v;
}

std::vector<double> Raw(DerivedPointer<Vector> const& v)
{
    std::vector<double> raw;
    for (unsigned i = 0; i < v->Length(); ++i)
        raw.push_back(cref(v).Elem(i));
    return raw;
}

op_options Options(std::initializer_list<std::pair<char const*, int>> values)
{
    op_options options;
    for (auto const& [name, value] : values)
        options.SetValue(name, value);
    return options;
}

} // namespace

TEST(VectorOp, TheResultIsTheSmallestTypeThatHoldsTheRange)
{
    struct Case {
        char op;
        DataType xtype;
        std::vector<double> x;
        DataType ytype;
        std::vector<double> y;
        DataType type;
        std::vector<double> result;
    };
    using V = Vector;
    Case const cases[] = {
        {'+', V::Byte, {200}, V::Byte, {55}, V::Byte, {255}},
        {'+', V::Byte, {200}, V::Byte, {100}, V::UnsignedShort, {300}},
        {'+', V::Byte, {1, 2}, V::Byte, {2, 3}, V::Byte, {3, 5}},
        {'-', V::Byte, {1}, V::Byte, {2}, V::Char, {-1}},
        {'-', V::UnsignedShort, {1, 3}, V::UnsignedShort, {2, 3}, V::Short, {-1, 0}},
        {'-', V::Triple, {1, 3}, V::Triple, {2, 3}, V::Int, {-1, 0}},
        {'-', V::UnsignedInt, {1, 3}, V::UnsignedInt, {2, 3}, V::Int, {-1, 0}},
        {'*', V::Byte, {255, 2}, V::Byte, {255, 3}, V::UnsignedShort, {65025, 6}},
        {'*', V::UnsignedShort, {65535}, V::UnsignedShort, {65535}, V::UnsignedInt, {4294836225}},
        {'*', V::Int, {100000, 1}, V::Int, {100000, 1}, V::Double, {1e10, 1}},
        {'+', V::Int, {2000000000}, V::Int, {1}, V::Double, {2000000001}},
        {'+', V::UnsignedShort, {1, 2}, V::Int, {-5}, V::Short, {-4, -3}},
        {'+', V::Triple, {70000, 2}, V::Short, {-1, -3}, V::Int, {69999, -1}},
        {'/', V::Int, {7}, V::Int, {2}, V::Double, {3.5}},
        {'~', V::Int, {7, -7}, V::Int, {3, 3}, V::Int, {1, -1}},
        {'~', V::Int, {-2147483647 - 1.0}, V::Int, {-1}, V::Int, {0}},
        {'<', V::Int, {-1, 100000}, V::Int, {0, 0}, V::Byte, {1, 0}},
        {'=', V::Char, {-1, 3}, V::Byte, {255, 3}, V::Byte, {0, 1}},
        {'!', V::UnsignedShort, {0, 300}, V::UnsignedShort, {1, 1}, V::Byte, {1, 0}},
        {'a',
         V::UnsignedInt,
         {0xFFFF0000},
         V::UnsignedInt,
         {0xFF00FF00},
         V::UnsignedInt,
         {0xFF000000}},
        {'|', V::Byte, {0, 4}, V::Byte, {9}, V::Byte, {9, 4}},
        {'&', V::Byte, {7}, V::Byte, {0, 4}, V::Byte, {0, 7}},
        {'l', V::Byte, {255, 1}, V::Byte, {1, 1}, V::Byte, {254, 2}}, // the wrap of a left shift
        {'r', V::UnsignedShort, {512, 1}, V::Byte, {1}, V::UnsignedShort, {256, 0}},
        {'+', V::Float, {1.5, 2}, V::Double, {1}, V::Double, {2.5, 3}},
        {'+', V::Float, {1.5, 2}, V::Int, {1, 2}, V::Float, {2.5, 4}},
        {'<', V::Float, {1, 3}, V::Float, {2, 2}, V::Byte, {1, 0}},
    };
    for (auto const& c : cases) {
        auto const result = Op(c.op, Make(c.xtype, c.x), Make(c.ytype, c.y));
        EXPECT_EQ(result->ElemType(), c.type) << c.op << TypeToString(c.xtype);
        EXPECT_EQ(Raw(result), c.result) << c.op << TypeToString(c.xtype);
        EXPECT_EQ(result->Factor(), 1.0);
    }
}

TEST(VectorOp, OptionsSteerSubtractionAndDivision)
{
    auto const one = Make(Vector::Byte, {1});
    auto const two = Make(Vector::Byte, {2});
    EXPECT_EQ(Raw(Op('-', one, two, Options({{"neg_zero", 1}}))), std::vector<double>{0});
    EXPECT_EQ(Raw(Op('-', one, two, Options({{"neg_abs", 1}}))), std::vector<double>{1});

    auto const x = Make(Vector::Int, {7});
    auto const y = Make(Vector::Int, {2});
    auto rounded = Op('/', x, y, Options({{"fixed_result_type", 1}, {"result_type", 0}}));
    EXPECT_EQ(rounded->ElemType(), Vector::Int);
    EXPECT_EQ(Raw(rounded), std::vector<double>{4});
    auto spread = Op(
        '/', x, y, Options({{"fixed_result_type", 1}, {"result_type", 0}, {"spread_factor", 10}}));
    EXPECT_EQ(Raw(spread), std::vector<double>{35});
    EXPECT_DOUBLE_EQ(spread->Factor(), 0.1);

    // The greatest value of a requested narrow type is stored for x/0, although it runs in a wider.
    auto const zero = Make(Vector::Byte, {0, 2});
    auto guarded = Op('/', Make(Vector::Byte, {200, 9}), zero,
                      Options({{"fixed_result_type", 1}, {"result_type", Vector::Byte}}));
    EXPECT_EQ(guarded->ElemType(), Vector::Byte);
    EXPECT_EQ(Raw(guarded), (std::vector<double>{255, 5})); // not the 32767 of Short
}

TEST(VectorOp, AResultTypeThatDoesNotExistIsRefusedByNumbersOfAnyKind)
{
    for (DataType const type : {Vector::Byte, Vector::Float, Vector::Double})
        for (int wanted : {-5, 12, 99})
            EXPECT_RAISES(Op('+', Make(type, {2}), Make(type, {3}),
                             Options({{"fixed_result_type", 1}, {"result_type", wanted}})),
                          err_kind,
                          "Conversion not supported: " + Make(type, {5})->GetDescription());
}

TEST(VectorOp, ModuloReportsZeroDivisorsInItsOptions)
{
    op_options const options;
    EXPECT_EQ(Raw(Op('~', Make(Vector::Int, {5}), Make(Vector::Int, {0}), options)),
              std::vector<double>{0});
    EXPECT_EQ(options.GetValue("nancount", -1).GetInt(), 1);
}

TEST(VectorOp, FactorsFollowTheOperator)
{
    auto const x = Make(Vector::Int, {4, 6}, 0.5);
    auto const y = Make(Vector::Int, {1, 2}, 0.25);
    auto product = Op('*', x, y);
    EXPECT_EQ(product->Factor(), 0.125);
    EXPECT_EQ(Raw(product), (std::vector<double>{4, 12}));
    EXPECT_EQ(Op('/', x, y)->Factor(), 2.0);
    auto sum = Op('+', x, y); // different factors leave the integer world
    EXPECT_EQ(sum->ElemType(), Vector::Double);
    EXPECT_EQ(sum->Factor(), 0.5);
    EXPECT_EQ(Raw(sum), (std::vector<double>{4.5, 7}));
    auto plain = Op('+', x, y, Options({{"no_factor", 1}}));
    EXPECT_EQ(plain->Factor(), 1.0);
    EXPECT_EQ(Raw(plain), (std::vector<double>{5, 8}));
    EXPECT_EQ(x->Factor(), 0.5);
    EXPECT_EQ(Raw(y), (std::vector<double>{1, 2}));
}

TEST(VectorOp, LengthsAndMissingOperands)
{
    auto const two = Make(Vector::Int, {1, 2});
    auto const three = Make(Vector::Int, {1, 2, 3});
    auto const empty = Make(Vector::Int, {});
    EXPECT_EQ(Raw(Op('=', two, three)), std::vector<double>{0});
    EXPECT_EQ(Raw(Op('#', two, three)), std::vector<double>{1});
    EXPECT_RAISES(Op('+', two, three), 512,
                  "Cannot apply operation '+' to vectors of lengths 2 and 3 elements.");
    char const* const unequal =
        "Cannot apply operation '=' to vectors of lengths 2 and 3 elements.";
    EXPECT_RAISES(StringOp('=', two, three), 512, unequal);
    EXPECT_RAISES((PerformStringOp<false, false>('=', Texts({"a", "b"}), Texts({"", "", ""}))), 512,
                  unequal);
    EXPECT_EQ(StringOp('c', Texts({}), Texts({"a"}))->Length(), 0u);
    EXPECT_RAISES(two->op('+', PMemBlock(), op_options()), 512,
                  "Missing second operand for the operation '+'.");
    EXPECT_EQ(DerivedPointer<Vector>(two->op('#', PMemBlock(), op_options()))->GetInt(0), 1);
    EXPECT_EQ(Op('+', empty, Make(Vector::Int, {1})).Pointer(), empty.Pointer());
    EXPECT_EQ(Op('+', Make(Vector::Int, {1}), empty).Pointer(), empty.Pointer());
}

TEST(VectorOp, RefusesWhatItCannotDo)
{
    auto const i = Make(Vector::Int, {1, 2});
    EXPECT_RAISES(Op('l', i, Make(Vector::Int, {-1, 1})), 4096,
                  "Shifting by negative amount of bits (-1) not supported.");
    EXPECT_RAISES(Op('r', Make(Vector::Int, {-3, 1}), i), 4096,
                  "Righshifting of negative values (-3) not supported.");
    EXPECT_RAISES(Op('?', i, i), 4096, "Vector::op(): unsupported operator: '?'");
    EXPECT_RAISES(Op('a', Make(Vector::Float, {1}), Make(Vector::Float, {1})), 4096,
                  "Operation not implemented for floating-point data.");
    EXPECT_RAISES(Op('p', i, i), 128,
                  "Cannot determine image dimensions for point() vector operation.");
    EXPECT_THROW(Op('+', Make(Vector::Int64, {1, 2}), Make(Vector::Int64, {1, 2})), Exception);
    EXPECT_EQ(Raw(Op('/', Make(Vector::Int64, {7}), Make(Vector::Int64, {2}))),
              std::vector<double>{3.5});
}

TEST(VectorOp, StringsJoinAndCompareWithoutRegardToCase)
{
    auto const texts = Vector::Create(2, Vector::String, true, 0, 1.0);
    texts->SetElem(0, "abc");
    texts->SetElem(1, "12");
    auto const other = Vector::CreateFrom("ABC");
    auto const joined = Op('c', texts, other);
    EXPECT_STREQ(cref(joined).GetString(0).c_str(), "abcABC");
    EXPECT_STREQ(cref(joined).GetString(1).c_str(), "12ABC");
    auto const equal = Op('=', texts, other);
    EXPECT_EQ(equal->ElemType(), Vector::Byte);
    EXPECT_EQ(Raw(equal), (std::vector<double>{1, 0}));
    auto const numbers = Vector::Create(2, Vector::String, true, 0, 1.0);
    numbers->SetElem(0, "3");
    numbers->SetElem(1, "4");
    EXPECT_EQ(Raw(Op('+', numbers, Vector::CreateFrom(1))), (std::vector<double>{4, 5}));
}

namespace {

/// A random vector of a type, with values that make its neighbours in a sum interesting.
struct Random {
    std::mt19937 bits{20};

    int Below(int n) { return static_cast<int>(bits() % static_cast<unsigned>(n)); }

    DerivedPointer<Vector> Of(DataType type, unsigned n, double factor, bool small)
    {
        bool const negative = !TypedChunk::IsUnsignedInteger(type);
        int const width = static_cast<int>(TypedChunk::SizeOf(type));
        int const most = std::min(8 * width - (negative ? 1 : 0), small ? 20 : 32);
        std::vector<double> raw(n);
        for (double& v : raw) {
            v = std::floor(std::ldexp(static_cast<double>(bits()) / 4294967296.0, Below(most + 1)));
            if (negative && Below(2) != 0)
                v = -v;
        }
        return Make(type, raw, factor);
    }
};

long double Exact(char op, long double x, long double y)
{
    switch (op) {
    case '+':
        return x + y;
    case '-':
        return x - y;
    case '*':
        return x * y;
    case '/':
        return x / y;
    case '=':
        return x == y;
    case '#':
        return x != y;
    case '<':
        return x < y;
    case '>':
        return x > y;
    case '(':
        return x <= y;
    case ')':
        return x >= y;
    case '~':
        return y == 0 ? 0 : std::fmod(y > 0 ? x : -x, y);
    default:
        ADD_FAILURE();
        return 0;
    }
}

} // namespace

/// The promise: whatever the types, shapes and factors, the cooked result is what exact arithmetic
/// gives, and the operands are what they were.
TEST(VectorOp, CookedResultsEqualExactArithmetic)
{
    using V = Vector;
    DataType const types[] = {V::Byte,        V::Char, V::UnsignedShort, V::Short, V::Triple,
                              V::UnsignedInt, V::Int,  V::Float,         V::Double};
    double const factors[] = {1.0, 0.5, 4.0};
    Random random;
    int checked = 0;
    for (int round = 0; round < Rounds(20000); ++round) {
        DataType const xtype = types[random.Below(9)];
        DataType const ytype = types[random.Below(9)];
        bool const small = xtype == V::Float || ytype == V::Float;
        char const op = "+-*/=#<>()~"[random.Below(11)];
        unsigned const n = 2 + static_cast<unsigned>(random.Below(12));
        int const shape = random.Below(3);
        // Scalars are rounded to the array's factor: a case of its own, left out here.
        double const xfactor = op == '~' ? 1.0 : factors[random.Below(3)];
        double const yfactor = op == '~'                                ? 1.0
                               : shape != 0 && (op == '+' || op == '-') ? xfactor
                                                                        : factors[random.Below(3)];
        auto const x = random.Of(xtype, shape == 1 ? 1 : n, xfactor, small);
        auto const y = random.Of(ytype, shape == 2 ? 1 : n, yfactor, small);
        bool const floats = small || xtype == V::Double || ytype == V::Double;
        if (op == '~' && (floats || xtype == V::UnsignedInt || ytype == V::UnsignedInt))
            continue; // IEEE remainders are the kernels' matter; some signs have no common type
        auto const xraw = Raw(x);
        auto const yraw = Raw(y);
        auto const result = Op(op, x, y);
        ASSERT_EQ(result->Length(), n);
        for (unsigned i = 0; i < n; ++i) {
            long double const a = xraw[shape == 1 ? 0 : i] * static_cast<long double>(xfactor);
            long double const b = yraw[shape == 2 ? 0 : i] * static_cast<long double>(yfactor);
            if (op == '/' && b == 0)
                continue;
            long double const expected = Exact(op, a, b);
            long double const cooked =
                static_cast<long double>(cref(result).Elem(i)) * result->Factor();
            long double const step = result->ElemType() == V::Float ? 1e-6L : 4e-16L;
            ASSERT_LE(std::fabs(cooked - expected), std::fabs(expected) * step)
                << op << ' ' << TypeToString(xtype) << ' ' << TypeToString(ytype) << " into "
                << TypeToString(result->ElemType()) << ": " << a << " with " << b;
            ++checked;
        }
        ASSERT_EQ(Raw(x), xraw);
        ASSERT_EQ(Raw(y), yraw);
        ASSERT_EQ(x->Factor(), xfactor);
        ASSERT_EQ(y->Factor(), yfactor);
    }
    EXPECT_GT(checked, 100000);
}

/// The same for options that change what is asked for; `neg_abs` predicts its range from the
/// greatest x and the least y alone, and wraps where the other difference is larger.
TEST(VectorOp, CookedResultsUnderOptionsEqualExactArithmetic)
{
    using V = Vector;
    DataType const types[] = {V::Byte,        V::Char, V::UnsignedShort, V::Short, V::Triple,
                              V::UnsignedInt, V::Int,  V::Float,         V::Double};
    Random random;
    int checked = 0;
    for (int round = 0; round < Rounds(20000); ++round) {
        enum { no_factor, wide, neg_abs, neg_zero, spread };
        int const asked = random.Below(5);
        bool const subtracts = asked == neg_abs || asked == neg_zero;
        char const op = subtracts ? '-' : asked == spread ? '/' : "+-*/=<"[random.Below(6)];
        DataType const xtype = types[random.Below(asked == spread ? 7 : 9)];
        DataType const ytype = asked == spread ? V::Int : types[random.Below(9)];
        int const times = 1 + random.Below(10);
        unsigned const n = 2 + static_cast<unsigned>(random.Below(12));
        int const shape = random.Below(3);
        double const factors[] = {1.0, 0.5, 4.0};
        double const xfactor = factors[random.Below(3)];
        double const yfactor = subtracts || asked == wide ? xfactor : factors[random.Below(3)];
        bool const small = asked == spread || xtype == V::Float || ytype == V::Float;
        auto const x = random.Of(xtype, shape == 1 ? 1 : n, xfactor, small);
        auto const y = random.Of(ytype, shape == 2 ? 1 : n, yfactor, small);
        auto const xraw = Raw(x);
        auto const yraw = Raw(y);
        auto const [xmin, xmax] = std::minmax_element(xraw.begin(), xraw.end());
        auto const [ymin, ymax] = std::minmax_element(yraw.begin(), yraw.end());
        if (asked == neg_abs && *ymax - *xmin > *xmax - *ymin)
            continue;

        auto const result =
            Op(op, x, y,
               asked == no_factor  ? Options({{"no_factor", 1}})
               : asked == wide     ? Options({{"fixed_result_type", 1}, {"result_type", V::Double}})
               : asked == neg_abs  ? Options({{"neg_abs", 1}, {"neg_zero", random.Below(2)}})
               : asked == neg_zero ? Options({{"neg_zero", 1}})
                                   : Options({{"fixed_result_type", 1},
                                              {"result_type", V::Int},
                                              {"spread_factor", times}}));
        ASSERT_EQ(result->Length(), n);
        for (unsigned i = 0; i < n; ++i) {
            long double a = xraw[shape == 1 ? 0 : i];
            long double b = yraw[shape == 2 ? 0 : i];
            if (op == '/' && b == 0)
                continue;
            long double expected = 0;
            if (asked == spread) { // rounded by half the divisor, in integers
                long double const sum = a * times + std::floor(b / 2);
                expected = std::trunc(sum / b) / times * xfactor / yfactor;
            } else if (asked == no_factor) {
                expected = Exact(op, a, b);
            } else {
                expected = Exact(op, a * xfactor, b * yfactor);
            }
            if (asked == neg_abs)
                expected = std::fabs(expected);
            if (asked == neg_zero)
                expected = std::max(expected, 0.0L);
            long double const cooked =
                static_cast<long double>(cref(result).Elem(i)) * result->Factor();
            long double const step = result->ElemType() == V::Float ? 1e-6L : 4e-16L;
            ASSERT_LE(std::fabs(cooked - expected), std::fabs(expected) * step)
                << asked << op << ' ' << TypeToString(xtype) << ' ' << TypeToString(ytype)
                << " into " << TypeToString(result->ElemType()) << ": " << a << " with " << b;
            ++checked;
        }
        ASSERT_TRUE(asked != no_factor || result->Factor() == 1.0);
        ASSERT_TRUE(asked != wide || result->ElemType() == V::Double);
        ASSERT_TRUE(asked != spread || result->ElemType() == V::Int);
        ASSERT_EQ(Raw(x), xraw);
        ASSERT_EQ(Raw(y), yraw);
    }
    EXPECT_GT(checked, 100000);
}
