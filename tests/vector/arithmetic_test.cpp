#include <memblock/vector/arithmetic/op.h>
#include <memblock/vector/vector.h>

#include "support/exact.h"
#include "support/raises.h"
#include "support/rounds.h"
#include "support/vectors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string_view>
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

/// One pair of elements as drawn: raw values and factors. `times` is the spread factor asked for.
struct Drawn {
    long double x, y, xfactor, yfactor;
    int times;
};

long double Cooked(char op, Drawn const& d)
{
    return Exact(op, d.x * d.xfactor, d.y * d.yfactor);
}

/// What is asked of an operation, and what exact arithmetic then gives.
struct Asked {
    char const* name;
    char const* operators;
    std::vector<std::pair<char const*, int>> options;
    long double (*expected)(char op, Drawn const& d);
    bool one_factor = false;          // both operands have the same
    DataType result = Vector::NoType; // NoType: any
};

Asked const requests[] = {
    {"nothing", "+-*/=#<>()~", {}, Cooked},
    {"no_factor",
     "+-*/=<",
     {{"no_factor", 1}},
     [](char op, Drawn const& d) { return Exact(op, d.x, d.y); }},
    {"Double",
     "+-*/=<",
     {{"fixed_result_type", 1}, {"result_type", Vector::Double}},
     Cooked,
     true,
     Vector::Double},
    {"neg_abs",
     "-",
     {{"neg_abs", 1}},
     [](char op, Drawn const& d) { return std::fabs(Cooked(op, d)); },
     true},
    {"neg_abs before neg_zero",
     "-",
     {{"neg_abs", 1}, {"neg_zero", 1}},
     [](char op, Drawn const& d) { return std::fabs(Cooked(op, d)); },
     true},
    {"neg_zero",
     "-",
     {{"neg_zero", 1}},
     [](char op, Drawn const& d) { return std::max(Cooked(op, d), 0.0L); },
     true},
    {"spread_factor",
     "/",
     {{"fixed_result_type", 1}, {"result_type", Vector::Int}, {"spread_factor", 0}},
     [](char, Drawn const& d) { // rounded by half the divisor, in integers
         long double const quotient = std::trunc((d.x * d.times + std::floor(d.y / 2)) / d.y);
         return quotient / d.times * d.xfactor / d.yfactor;
     },
     false,
     Vector::Int},
};

/// `neg_abs` predicts its range from the greatest x and the least y alone, and wraps where the
/// other difference is larger.
bool Wraps(Asked const& asked, std::vector<double> const& x, std::vector<double> const& y)
{
    auto const [xmin, xmax] = std::minmax_element(x.begin(), x.end());
    auto const [ymin, ymax] = std::minmax_element(y.begin(), y.end());
    return std::string_view(asked.name).starts_with("neg_abs") && *ymax - *xmin > *xmax - *ymin;
}

/// Runs one operation on random operands. Returns how many elements were compared.
int CheckOneResult(Random& random, Asked const& asked)
{
    using V = Vector;
    DataType const types[] = {V::Byte,        V::Char, V::UnsignedShort, V::Short, V::Triple,
                              V::UnsignedInt, V::Int,  V::Float,         V::Double};
    double const factors[] = {1.0, 0.5, 4.0};
    bool const spread = asked.result == V::Int;
    char const op = asked.operators[random.Below(int(std::strlen(asked.operators)))];
    DataType const xtype = types[random.Below(spread ? 7 : 9)];
    DataType const ytype = spread ? V::Int : types[random.Below(9)];
    bool const floats = IsInSet<FloatTypes>(xtype) || IsInSet<FloatTypes>(ytype);
    if (op == '~' && (floats || xtype == V::UnsignedInt || ytype == V::UnsignedInt))
        return 0; // IEEE remainders are the kernels' matter; some signs have no common type
    unsigned const n = 2 + static_cast<unsigned>(random.Below(12));
    int const shape = random.Below(3);
    // Scalars are rounded to the array's factor: a case of its own, left out here.
    bool const rounded = shape != 0 && asked.expected == Cooked && (op == '+' || op == '-');
    double const xfactor = op == '~' ? 1.0 : factors[random.Below(3)];
    double const yfactor =
        asked.one_factor || rounded || op == '~' ? xfactor : factors[random.Below(3)];
    bool const small = spread || xtype == V::Float || ytype == V::Float;
    auto const x = random.Of(xtype, shape == 1 ? 1 : n, xfactor, small);
    auto const y = random.Of(ytype, shape == 2 ? 1 : n, yfactor, small);
    auto const xraw = Raw(x), yraw = Raw(y);
    if (Wraps(asked, xraw, yraw))
        return 0;

    Drawn d{0, 0, xfactor, yfactor, 1 + random.Below(10)};
    op_options options;
    for (auto const& [name, value] : asked.options)
        options.SetValue(name, value != 0 ? value : name[0] == 's' ? d.times : value);
    auto const result = Op(op, x, y, options);
    EXPECT_EQ(result->Length(), n);
    EXPECT_TRUE(asked.result == V::NoType || result->ElemType() == asked.result);
    EXPECT_TRUE(!options.GetFlag("no_factor", false) || result->Factor() == 1.0);
    long double const step = result->ElemType() == V::Float ? 1e-6L : 4e-16L;
    int checked = 0;
    for (unsigned i = 0; i < n; ++i) {
        d.x = xraw[shape == 1 ? 0 : i];
        d.y = yraw[shape == 2 ? 0 : i];
        if (op == '/' && d.y == 0)
            continue;
        long double const expected = asked.expected(op, d);
        long double const cooked =
            static_cast<long double>(cref(result).Elem(i)) * result->Factor();
        EXPECT_LE(std::fabs(cooked - expected), std::fabs(expected) * step)
            << asked.name << ' ' << op << ' ' << TypeToString(xtype) << ' ' << TypeToString(ytype)
            << " into " << TypeToString(result->ElemType()) << ": " << d.x << " with " << d.y;
        ++checked;
    }
    EXPECT_EQ(Raw(x), xraw);
    EXPECT_EQ(Raw(y), yraw);
    EXPECT_TRUE(x->Factor() == xfactor && y->Factor() == yfactor);
    return checked;
}

} // namespace

/// The promise: whatever the types, shapes, factors and options, the cooked result is what exact
/// arithmetic gives, and the operands are what they were.
TEST(VectorOp, CookedResultsEqualExactArithmetic)
{
    Random random;
    int checked = 0;
    for (int round = 0; round < Rounds(40000) && !HasFailure(); ++round)
        checked += CheckOneResult(random, requests[round % 2 ? 0 : random.Below(7)]);
    EXPECT_TRUE(HasFailure() || checked > 150000) << checked;
}
