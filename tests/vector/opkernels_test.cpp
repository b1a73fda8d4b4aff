#include <memblock/vector/arithmetic/apply_kernels.h>
#include <memblock/vector/arithmetic/operators_internal.h>

#include "support/exact.h"
#include "support/raises.h"
#include "support/rounds.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

using namespace NKelmic;

namespace {

/// Rounded division as it runs in 32 bits.
template <class T>
long long ExpectedQuotient(T a, T b, long long spread, long long infinity, long long uncertainty)
{
    using C = ops::Computed<T>;
    C const x = static_cast<C>(a);
    C const y = static_cast<C>(b);
    if (y == 0)
        return x != 0 ? infinity : uncertainty;
    C const numerator = static_cast<C>(static_cast<unsigned>(x) * static_cast<unsigned>(spread) +
                                       static_cast<unsigned>(y >> 1));
    return static_cast<long long>(numerator) / static_cast<long long>(y);
}

/// Values that meet every edge: zeros, extremes, small and random numbers of both signs.
template <class T>
std::vector<T> Values(std::mt19937& random, unsigned n)
{
    std::vector<T> values;
    for (unsigned edge : {0U, 1U, 2U, 31U, 32U, 127U, 128U, 255U, 0x7FFFFFFFU, 0x80000000U, ~0U})
        values.push_back(static_cast<T>(edge));
    while (values.size() < n)
        values.push_back(static_cast<T>(random() >> (random() % 32)));
    std::shuffle(values.begin(), values.end(), random);
    return values;
}

template <class T, class R>
void CheckPair()
{
    SCOPED_TRACE(testing::Message()
                 << TypeToString(type_of<T>::value) << " into " << TypeToString(type_of<R>::value));
    std::mt19937 random(4711);
    unsigned const n = static_cast<unsigned>(Rounds(211)); // no multiple of any vector width
    auto const x = Values<T>(random, n);
    auto const y = Values<T>(random, n);
    std::vector<R> out(n);
    op_options options;
    options.SetValue("image_width", 7);
    options.SetValue("spread_factor", 3);
    options.SetValue("infinity", 77);
    options.SetValue("uncertainty", 5);
    struct Shape {
        unsigned xlen, ylen;
    };
    for (auto [xlen, ylen] : {Shape{n, n}, Shape{n, 1}, Shape{1, n}})
        for (ops::Operator const& row : ops::operators) {
            char const op = row.name;
            if (row.kind == ops::OpKind::text)
                continue;
            ApplyOp(op, x.data(), xlen, y.data(), ylen, out.data(), n, options);
            for (unsigned i = 0; i < n; ++i) {
                T const a = x[xlen == 1 ? 0 : i];
                T const b = y[ylen == 1 ? 0 : i];
                using C = ops::Computed<T>;
                long long const exact =
                    op == '/' ? ExpectedQuotient(a, b, 3, 77, 5)
                              : Exact<long long>(op, static_cast<C>(a), static_cast<C>(b));
                R const expected = static_cast<R>(static_cast<unsigned>(exact));
                ASSERT_EQ(out[i], expected)
                    << op << " at " << i << " of " << static_cast<ops::Computed<T>>(a) << " and "
                    << static_cast<ops::Computed<T>>(b) << ", shape " << xlen << " " << ylen;
            }
        }
}

template <class T, class... R>
void CheckPairs(TypeSet<R...>)
{
    (CheckPair<T, R>(), ...);
}

using Wide = TypeSet<int, unsigned int>;
using Middle = TypeSet<int, unsigned int, triple, short, unsigned short>;
using Narrow = TypeSet<int, unsigned int, triple, short, unsigned short, char, unsigned char>;

} // namespace

TEST(IntegerKernels, EveryPairOperatorAndShapeAgreesWithWideArithmetic)
{
    CheckPairs<int>(Wide());
    CheckPairs<unsigned int>(Wide());
    CheckPairs<triple>(TypeSet<int, unsigned int, triple>());
    CheckPairs<short>(Middle());
    CheckPairs<unsigned short>(Middle());
    CheckPairs<char>(Narrow());
    CheckPairs<unsigned char>(Narrow());
}

TEST(IntegerKernels, DifferencesWithoutSignNeverOverflow)
{
    int const x[] = {std::numeric_limits<int>::min(), 5, 7, std::numeric_limits<int>::max()};
    int const y[] = {std::numeric_limits<int>::max(), 7, 5, std::numeric_limits<int>::min()};
    unsigned int out[4];
    op_options options;
    options.SetFlag("neg_zero", true);
    ApplyOp('-', x, 4, y, 4, out, 4, options);
    EXPECT_EQ((std::vector<unsigned>(out, out + 4)), (std::vector<unsigned>{0, 0, 2, ~0U}));
    options.SetFlag("neg_abs", true); // wins where both are set
    ApplyOp('-', x, 4, y, 4, out, 4, options);
    EXPECT_EQ((std::vector<unsigned>(out, out + 4)), (std::vector<unsigned>{~0U, 2, 2, ~0U}));
}

TEST(IntegerKernels, DivisionByZeroStoresTheStatedValuesAndReportsOnRequest)
{
    int const x[] = {5, 0, -5, 0};
    int const y[] = {0, 0, 0, 2};
    int out[4];
    op_options options;
    ApplyOp('/', x, 4, y, 4, out, 4, options);
    EXPECT_EQ((std::vector<int>(out, out + 4)), (std::vector<int>{2147483647, 0, 2147483647, 0}));
    options.SetFlag("throw_if_uncertainty", true);
    EXPECT_RAISES(ApplyOp('/', x, 4, y, 4, out, 4, options), 512,
                  "Vector::op('/'): division x/0 for 2 elements; division 0/0 for 1 elements.");
    EXPECT_RAISES(ApplyOp('~', x, 4, y, 4, out, 4, options), 512,
                  "Modulos op for 4 elements; second operand zero for 3 elements.");
}

TEST(IntegerKernels, QuotientsJustBelowAWholeNumberAreNotRoundedUp)
{
    std::vector<unsigned short> y;
    for (unsigned short v = 1; v != 0; ++v)
        y.push_back(v);
    auto const n = static_cast<unsigned>(y.size());
    std::vector<int> out(n);
    op_options options;
    for (int spread : {1, 128, -128, 129, 32000}) // small factors take another way than large ones
        for (unsigned short x : {65535, 65521, 32768, 255}) {
            options.SetValue("spread_factor", spread);
            ApplyOp('/', &x, 1, y.data(), n, out.data(), n, options);
            for (unsigned i = 0; i < n; ++i)
                ASSERT_EQ(out[i], (x * spread + (y[i] >> 1)) / y[i]) << x << " " << spread;
            ApplyOp('~', &x, 1, y.data(), n, out.data(), n, options);
            for (unsigned i = 0; i < n; ++i)
                ASSERT_EQ(out[i], x % y[i]) << x;
        }
}

TEST(IntegerKernels, ModuloCountsZeroDivisorsInTheOptions)
{
    unsigned char const x[] = {5, 6, 7};
    unsigned char const y[] = {0, 4, 0};
    unsigned char out[3];
    op_options options;
    ApplyOp('~', x, 3, y, 3, out, 3, options);
    EXPECT_EQ(options.GetValue("nancount", -1).GetInt(), 2);
    ApplyOp('+', x, 3, y, 3, out, 3, options);
    EXPECT_EQ(options.GetValue("nancount", -1).GetInt(), 0);
}

TEST(FloatKernels, GiveZerosTheirSign)
{
    double const values[] = {0.0, -0.0, 1.0, -1.0, std::numeric_limits<double>::infinity()};
    op_options options;
    options.SetFlag("neg_abs", true);
    for (double const x : values)
        for (double const y : values) {
            // The difference of equal infinities is no number, whatever its sign.
            std::pair<char, double> const cases[] = {{'^', x != 0 && y == 0   ? x
                                                           : x == 0 && y != 0 ? y
                                                                              : 0.0},
                                                     {'&', x != 0 && y != 0 ? x : 0.0},
                                                     {'|', x != 0 ? x : y},
                                                     {'-', x == y  ? x - x
                                                           : x > y ? x - y
                                                                   : y - x}};
            for (auto const& [op, expected] : cases)
                for (auto const& [xlen, ylen] : {std::pair{2U, 2U}, {1U, 2U}, {2U, 1U}}) {
                    double const xs[] = {x, x}, ys[] = {y, y};
                    double out[2];
                    ApplyOpSimple(op, xs, xlen, ys, ylen, out, 2, options);
                    EXPECT_TRUE(std::isnan(expected) ? std::isnan(out[0]) : out[0] == expected);
                    EXPECT_EQ(std::isnan(expected) || std::signbit(out[0]),
                              std::isnan(expected) || std::signbit(expected))
                        << x << op << y;
                }
        }
}

TEST(FloatKernels, FollowIeee)
{
    double const nan = std::numeric_limits<double>::quiet_NaN();
    double const inf = std::numeric_limits<double>::infinity();
    double const x[] = {1, nan, 0, -5.5};
    double const y[] = {0, 2, nan, 2};
    double out[4];
    unsigned char truth[4];
    op_options options;
    ApplyOpSimple('/', x, 4, y, 4, out, 4, options);
    EXPECT_EQ(out[0], inf);
    ApplyOpSimple('~', x, 4, y, 4, out, 4, options);
    EXPECT_EQ(out[3], -1.5);
    ApplyOpSimple('#', x, 4, y, 4, truth, 4, options);
    EXPECT_EQ((std::vector<int>(truth, truth + 4)), (std::vector<int>{1, 1, 1, 1}));
    ApplyOpSimple('&', x, 4, y, 4, out, 4, options); // NaN counts as non-zero
    EXPECT_EQ(out[0], 0);
    EXPECT_TRUE(std::isnan(out[1]));
    EXPECT_RAISES(ApplyOpSimple('a', x, 4, y, 4, out, 4, options), 4096,
                  "Operation not implemented for floating-point data.");
    EXPECT_RAISES(ApplyOpSimple('?', x, 4, y, 4, out, 4, options), 4096,
                  "Vector::op(): operation not implemented: '?'");
}
