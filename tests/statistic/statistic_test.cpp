#include <memblock/statistic/statistic.h>

#include <memblock/base/number.h>

#include <support/elemtypes.h>
#include <support/failing_alloc.h>
#include <support/raises.h>
#include <support/rounds.h>
#include <support/vectors.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <optional>
#include <random>
#include <vector>

using namespace NKelmic;

namespace {

constexpr double nan_ = std::numeric_limits<double>::quiet_NaN();
constexpr double inf_ = std::numeric_limits<double>::infinity();

double Of(DerivedPointer<Vector> const& v, char const* word, char const* nan = "include",
          char const* inf = "include", double parameter = 0)
{
    return Statistic(v, word, nan, inf, parameter).Comp(0, -1);
}

/// Equal as callers see it: NaN is NaN, and the zeros have signs.
void ExpectSame(double actual, double expected)
{
    if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(actual)) << actual;
    } else {
        EXPECT_EQ(actual, expected);
        EXPECT_EQ(std::signbit(actual), std::signbit(expected));
    }
}

/// How an element enters, once more in the plainest way; text is a policy.
template <class T>
std::optional<double> Included(T raw, safestring const& nan, safestring const& inf)
{
    auto const v = static_cast<double>(raw);
    bool const is_nan = std::isnan(v);
    safestring const& policy = is_nan ? nan : inf;
    if ((!is_nan && !std::isinf(v)) || policy == "include")
        return v;
    if (policy == "exclude")
        return std::nullopt;
    double const value = StrToDouble(policy); // whatever the locale
    double const signed_value = !is_nan && v < 0 ? -value : value;
    return std::is_same_v<T, float> ? static_cast<float>(signed_value) : signed_value;
}

/// The slow version of everything: collect, then follow the definition.
template <class T>
double Slow(std::vector<T> const& data, safestring const& word, safestring const& nan,
            safestring const& inf, double q)
{
    std::vector<double> v;
    for (T raw : data)
        if (auto const value = Included(raw, nan, inf))
            v.push_back(*value);
    auto const n = static_cast<double>(v.size());
    double sum = 0;
    for (double x : v)
        sum += x;
    if (word == "samplesize")
        return n;
    if (word == "sum")
        return sum;
    if (v.empty())
        return nan_;
    if (word == "mean")
        return sum / n;
    if (word == "min") {
        double least = static_cast<double>(std::numeric_limits<T>::max());
        for (double x : v)
            least = x < least ? x : least;
        return least;
    }
    if (word == "max") {
        double greatest = static_cast<double>(std::numeric_limits<T>::min());
        for (double x : v)
            greatest = x > greatest ? x : greatest;
        return greatest;
    }
    if (word == "quantile") {
        std::sort(v.begin(), v.end());
        auto const index = static_cast<std::size_t>(n * q + 0.5);
        return v[std::min(index, v.size() - 1)];
    }
    double s1 = 0, s2 = 0;
    for (double x : v) {
        s1 += x - sum / n;
        s2 += (x - sum / n) * (x - sum / n);
    }
    if (n <= 1)
        return nan_;
    double const variance = (s2 - s1 * s1 / n) / (n - 1);
    double const shown = 0 <= variance ? variance : 0;
    return word == "stddev" ? std::sqrt(shown) : shown;
}

template <class T>
class StatisticOf : public testing::Test {
protected:
    /// Values over the whole range of the type, or few different ones; floats with NaN and
    /// infinities in them.
    std::vector<T> Random(int n, bool few)
    {
        std::vector<T> data;
        for (int i = 0; i < n; ++i) {
            if constexpr (std::is_floating_point_v<T>) {
                auto const kind = random_() % 20;
                T const value = static_cast<T>(few ? static_cast<int>(random_() % 5) - 2
                                                   : std::normal_distribution<>(0, 1e3)(random_));
                data.push_back(kind == 0   ? static_cast<T>(nan_)
                               : kind == 1 ? static_cast<T>(inf_)
                               : kind == 2 ? static_cast<T>(-inf_)
                                           : value);
            } else {
                data.push_back(static_cast<T>(few ? random_() % 3 : Bits()));
            }
        }
        return data;
    }

private:
    unsigned long long Bits() { return random_() << 32 ^ random_(); }
    std::mt19937_64 random_{7};
};

TYPED_TEST_SUITE(StatisticOf, NumericElemTypes);

} // namespace

TYPED_TEST(StatisticOf, AgreesWithTheDefinitionForEveryWordAndPolicy)
{
    for (int n : {0, 1, 2, 3, 30, 257, 1000, 20001})
        for (int round = 0; round < Rounds(2); ++round) {
            bool const few = round % 2 != 0;
            std::vector<TypeParam> const data = this->Random(n, few);
            auto const vector = MakeVector(data);
            for (char const* nan : {"include", "exclude", "0.5"})
                for (char const* inf : {"include", "exclude", "-3"})
                    for (char const* word : {"min", "max", "sum", "mean", "samplesize", "variance",
                                             "stddev", "quantile"}) {
                        bool const sorted = word[0] == 'q';
                        if (sorted && std::is_floating_point_v<TypeParam> && nan[0] == 'i')
                            continue; // the place of NaN in the order is open
                        SCOPED_TRACE(
                            Text("%s nan %s inf %s of %d, few %d", word, nan, inf, n, int(few))
                                .c_str());
                        for (double q : {0.0, 0.25, 0.5, 1.0}) {
                            double const expected = Slow(data, word, nan, inf, q);
                            double const actual = Of(vector, word, nan, inf, q);
                            // Which of equal zeros is at a place of the order is open, too.
                            // Long rows of small integers are squared without rounding.
                            if (word[1] == 't' || word[0] == 'v')
                                if (std::is_integral_v<TypeParam> && sizeof(TypeParam) <= 2 &&
                                    n > 64) {
                                    EXPECT_NEAR(actual, expected, 1e-12 * n * expected);
                                    break;
                                }
                            ExpectSame(sorted ? actual + 0.0 : actual,
                                       sorted ? expected + 0.0 : expected);
                            if (!sorted)
                                break;
                        }
                    }
        }
}

TEST(Statistic, NumbersThatCallersRestOn)
{
    struct {
        DerivedPointer<Vector> vector;
        char const *word, *nan, *inf;
        double parameter, expected;
    } const cases[] = {{Doubles({1, nan_, 3}), "mean", "exclude", "include", 0, 2},
                       {Doubles({1, nan_, 3}), "mean", "include", "include", 0, nan_},
                       {Doubles({1, nan_, 3}), "MEAN", "0", "include", 0, 4.0 / 3},
                       {Doubles({1, nan_, 3}), "variance", "include", "include", 0, 0},
                       {Doubles({1, inf_, -inf_}), "sum", "include", "10", 0, 1},
                       {Doubles({1, inf_, -inf_}), "sum", "include", "-inf", 0, nan_},
                       {Doubles({1, inf_, inf_}), "sum", "include", "-inf", 0, -inf_},
                       {Doubles({1, inf_}), "min", "include", "nan", 0, 1},
                       {Doubles({-1, -2}), "max", "include", "include", 0, 2.2250738585072014e-308},
                       {Floats({-1, -2}), "max", "include", "include", 0, 1.1754943508222875e-38},
                       {Ints({-1, -2}), "max", "include", "include", 0, -1},
                       {Doubles({nan_, nan_}), "min", "include", "include", 0, DBL_MAX},
                       {Doubles({nan_, nan_}), "min", "exclude", "include", 0, nan_},
                       {Doubles({inf_}), "min", "include", "include", 0, DBL_MAX},
                       {Doubles({-inf_, nan_}), "min", "include", "include", 0, -inf_},
                       {Doubles({DBL_MAX}), "min", "exclude", "exclude", 0, DBL_MAX},
                       {Doubles({1, nan_, inf_}), "samplesize", "exclude", "exclude", 0, 1},
                       {Doubles({1, nan_, inf_}), "samplesize", "7", "8", 0, 3},
                       {Bytes({5}), "variance", "include", "include", 0, nan_},
                       {Bytes({2, 2}), "stddev", "include", "include", 0, 0},
                       {Ints({5, 1, 4, 2, 3}), "quantile", "include", "include", 0.5, 4},
                       {Ints({5, 1, 4, 2, 3}), "median", "include", "include", 0, 4},
                       {Ints({4, 1, 2, 3}), "median", "include", "include", 0.9, 3},
                       {Ints({5, 1, 4, 2, 3}), "quantile", "include", "include", 0, 1},
                       {Ints({5, 1, 4, 2, 3}), "quantile", "include", "include", 1, 5},
                       {Ints({5, 1, 4, 2, 3}), "quantile", "include", "include", -7, 1},
                       {Ints({5, 1, 4, 2, 3}), "quantile", "include", "include", nan_, 1},
                       {Ints({5, 1, 4, 2, 3}), "quantile", "include", "include", inf_, 5},
                       {Floats({5, float(nan_), 4}), "quantile", "include", "include", 0, 4},
                       {Ints({1, 2}, 10.0), "sum", "include", "include", 0, 3}};
    for (auto const& c : cases) {
        SCOPED_TRACE(Text("%s of %s, nan %s inf %s", c.word, TextOf(c.vector).c_str(), c.nan, c.inf)
                         .c_str());
        ExpectSame(Of(c.vector, c.word, c.nan, c.inf, c.parameter), c.expected);
    }
}

TEST(Statistic, SumsRoundInElementOrderWhereDoubleIsTooSmall)
{
    // 2^53 and then ones: each one is lost by itself, all together they would not be.
    std::vector<unsigned int> data(3 << 20, 1U);
    std::fill_n(data.begin(), (1 << 21) + 1, 0xFFFFFFFFU);
    double expected = 0;
    for (unsigned int v : data)
        expected += v;
    EXPECT_EQ(Of(UInts(data), "sum"), expected);
    EXPECT_EQ(Of(Doubles({1, 1e100, 1, -1e100}), "sum"), 0);
}

TEST(Statistic, ZeroAtTheMinimumHasTheSignOfTheFirst)
{
    ExpectSame(Of(Doubles({5, 0.0, -0.0, 1}), "min"), 0.0);
    ExpectSame(Of(Doubles({5, -0.0, 0.0, 1}), "min"), -0.0);
}

TEST(Statistic, SlicesAreCutToTheVector)
{
    Statistic const sum(Ints({1, 2, 4, 8}), "sum", "include", "include", 0);
    Statistic const max(Ints({1, 2, 4, 8}), "max", "include", "include", 0);
    struct {
        int start, length;
        double expected;
    } const cases[] = {{0, -1, 15},     {1, 2, 6},        {-2, 5, 7},       {-2, 1, 0},
                       {3, 100, 8},     {100, 5, 0},      {2, INT_MAX, 12}, {INT_MAX, INT_MAX, 0},
                       {INT_MIN, 5, 0}, {INT_MIN, -1, 0}, {-1, -1, 15},     {1, 0, 0}};
    for (auto const& c : cases) {
        SCOPED_TRACE(Text("%d, %d", c.start, c.length).c_str());
        EXPECT_EQ(sum.Comp(c.start, c.length), c.expected);
        EXPECT_EQ(std::isnan(max.Comp(c.start, c.length)), c.expected == 0);
    }
}

TEST(Statistic, CopiesKeepEngineValuesAndVector)
{
    Statistic copy(Ints({1}), "sum", "include", "include", 0);
    {
        Statistic const original(Doubles({nan_, 1, 2}), "quantile", "9", "exclude", 1);
        Statistic const second(original);
        EXPECT_EQ(second.Comp(0, -1), 9);
        copy = second;
    }
    EXPECT_EQ(copy.Comp(0, -1), 9);
    EXPECT_EQ(copy.Comp(1, 1), 1);
    EXPECT_EQ(copy.NanValue(), 9);
    EXPECT_EQ(copy.Parameter(), 1);
    copy = *&copy;
    EXPECT_EQ(copy.Comp(0, -1), 9);
}

TEST(Statistic, BadWordsTypesAndNumbersAreReported)
{
    auto const ints = Ints({1});
    EXPECT_RAISES(Of(ints, "mode"), 128, "Statistic not implemented for: mode");
    EXPECT_RAISES(Of(Texts({"1"}), "mode"), 128,
                  "Function impl_ = MakeStatisticImpl1 not implemented for data type 'string'");
    try {
        Of(Texts({"1"}), "mode", "abc"); // the numbers are read before all else
        ADD_FAILURE();
    } catch (Exception const& e) {
        EXPECT_EQ(e.Code(), 512U);
    }
    EXPECT_THROW(Of(DerivedPointer<Vector>(), "sum"), Exception);
}

TEST(Statistic, ReadingDoesNotDetachTheVector)
{
    auto const vector = Ints({1, 2, 3});
    DerivedPointer<Vector> const copy(vector->Clone(true));
    EXPECT_EQ(Of(vector, "sum"), 6);
    EXPECT_EQ(cref(vector).Pointer(), cref(copy).Pointer());
}

TEST(Statistic, FailedAllocationLeavesNothingBehind)
{
    auto const vector = Ints({1, 2, 3});
    long const blocks = memtest::LiveBlocks(), news = memtest::LiveNews();
    for (unsigned n = 1;; ++n) {
        memtest::FailAllocations const fail(n);
        try {
            Statistic const s(vector, "quantile", "0", "exclude", 0.5);
            EXPECT_EQ(Statistic(s).Comp(0, -1), 3);
        } catch (std::bad_alloc const&) {
        }
        if (!fail.Failed())
            break;
    }
    EXPECT_EQ(memtest::LiveBlocks(), blocks);
    EXPECT_EQ(memtest::LiveNews(), news);
}
