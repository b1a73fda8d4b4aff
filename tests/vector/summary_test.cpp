#include <memblock/vector/summary.h>

#include <support/elemtypes.h>
#include <support/raises.h>
#include <support/rounds.h>
#include <support/vectors.h>
#include <support/warnings.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

using namespace NKelmic;

namespace {

constexpr double nan_ = std::numeric_limits<double>::quiet_NaN();
constexpr double inf_ = std::numeric_limits<double>::infinity();

double Value(DerivedPointer<Vector> const& v, int key)
{
    return v->SecondaryDouble(key, throw_always);
}

double AsDouble(triple v)
{
    return static_cast<unsigned int>(v);
}
template <class T>
double AsDouble(T v)
{
    return static_cast<double>(v);
}

/// The plain definition of what the keys mean, in long double where a sum is asked for.
template <class T>
struct Slow {
    double min = nan_, max = nan_, finitemin = 0, finitemax = 0, median = nan_, fmedian = nan_;
    int minat = -1, maxat = -1;
    long double sum = 0, mean = static_cast<long double>(nan_), variance = 0;

    explicit Slow(std::vector<T> const& data)
    {
        std::vector<double> finite;
        for (int i = 0; i < static_cast<int>(data.size()); ++i) {
            double const v = AsDouble(data[static_cast<std::size_t>(i)]);
            if (minat < 0 ? v == v : v < min)
                min = v, minat = i;
            if (maxat < 0 ? v == v : v > max)
                max = v, maxat = i;
            if (std::isfinite(v))
                finite.push_back(v);
        }
        for (double v : finite)
            sum += v;
        if (finite.empty())
            return;
        auto const n = static_cast<long double>(finite.size());
        mean = sum / n;
        for (double v : finite)
            variance += (v - mean) * (v - mean);
        variance = finite.size() > 1 ? variance / (n - 1) : 0;
        std::sort(finite.begin(), finite.end());
        finitemin = finite.front();
        finitemax = finite.back();
        median = finite[finite.size() / 2];
        fmedian = finite.size() % 2 ? median : (median + finite[finite.size() / 2 - 1]) / 2;
    }
};

template <class T>
class SummaryOf : public testing::Test {
protected:
    std::vector<T> Random(std::size_t n, int kind)
    {
        std::vector<T> data;
        while (data.size() < n) {
            if constexpr (std::is_floating_point_v<T>)
                data.push_back(static_cast<T>(kind == 0 ? static_cast<double>(random_() % 7) - 3
                                                        : normal_(random_)));
            else
                data.push_back(static_cast<T>(kind == 0 ? random_() % 5 : random_()));
        }
        if (std::is_floating_point_v<T> && kind == 2)
            for (std::size_t i = 0; i < n; i += 1 + random_() % 9)
                data[i] = static_cast<T>(i % 3 == 0 ? nan_ : i % 3 == 1 ? inf_ : -inf_);
        return data;
    }

private:
    std::mt19937_64 random_{11};
    std::normal_distribution<> normal_{10, 1e4};
};

TYPED_TEST_SUITE(SummaryOf, NumericElemTypes);

} // namespace

TYPED_TEST(SummaryOf, AgreesWithTheDefinition)
{
    WarningLog const log;
    for (std::size_t n : {1, 2, 3, 63, 64, 65, 255, 1000, 9999, 10000, 20001})
        for (int kind = 0; kind < Rounds(3); ++kind) {
            SCOPED_TRACE(Text("%d elements of kind %d", n, kind).c_str());
            std::vector<TypeParam> const data = this->Random(n, kind % 3);
            Slow<TypeParam> const slow(data);
            auto const v = MakeVector(data);
            std::pair<int, double> const exact[] = {{key_min, slow.min},
                                                    {key_max, slow.max},
                                                    {key_finitemin, slow.finitemin},
                                                    {key_minat, slow.minat},
                                                    {key_maxat, slow.maxat},
                                                    {key_finitemax, slow.finitemax},
                                                    {key_median, slow.median},
                                                    {key_fmedian, slow.fmedian}};
            for (auto [key, expected] : exact) {
                if (std::isnan(expected))
                    EXPECT_TRUE(std::isnan(Value(v, key))) << key;
                else
                    EXPECT_EQ(Value(v, key), expected) << key;
            }
            auto const near = [&](int key, long double expected, long double scale) {
                if (std::isnan(expected))
                    EXPECT_TRUE(std::isnan(Value(v, key))) << key;
                else
                    EXPECT_NEAR(Value(v, key), static_cast<double>(expected),
                                static_cast<double>(scale) * 1e-13)
                        << key;
            };
            auto const spread = std::sqrt(slow.variance);
            // Without a finite element there is no scale, and nothing to round.
            auto const size = std::isnan(slow.mean) ? 0.0L : std::fabs(slow.mean) + spread;
            near(key_sum, slow.sum, size * static_cast<long double>(n));
            near(key_mean, slow.mean, size);
            near(key_variance, slow.variance, slow.variance);
            near(key_stddev, spread, spread);
        }
}

TEST(Summary, OnePassFillsAllExtremes)
{
    auto const v = Ints({3, 1, 3});
    DataItem item;
    EXPECT_FALSE(v->ExistsSecondaryItem(key_max, item));
    EXPECT_EQ(v->SecondaryInt(key_maxat, throw_always), 0);
    for (auto [key, expected] :
         {std::pair{key_max, 3}, {key_min, 1}, {key_maxat, 0}, {key_minat, 1}}) {
        ASSERT_TRUE(v->ExistsSecondaryItem(key, item)) << key;
        EXPECT_EQ(item.GetType(), it_int) << key;
        EXPECT_EQ(item.GetInt(), expected) << key;
    }
    EXPECT_TRUE(v->ExistsSecondaryItem(key_finitemin, item));
    EXPECT_EQ(item.GetType(), it_double);
    v->SetElem(1, 7);
    v->ContentHasBeenChanged();
    EXPECT_EQ(v->SecondaryInt(key_rough_max, throw_always), 7);
    EXPECT_TRUE(v->ExistsSecondaryItem(key_max, item));
    auto const known = Ints({1});
    known->SetSecondaryItem(key_max, DataItem(9));
    EXPECT_EQ(known->SecondaryInt(key_rough_max, throw_always), 9); // no second pass
}

TEST(Summary, FirstOfEqualExtremesCountsAcrossBlocks)
{
    std::vector<double> data(100000, 5.0);
    data[70000] = data[30000] = 9;
    data[0] = nan_;
    data[40000] = 0.0;
    data[40001] = -0.0;
    auto const v = Doubles(data);
    EXPECT_EQ(Value(v, key_maxat), 30000);
    EXPECT_EQ(Value(v, key_minat), 40000);
    EXPECT_FALSE(std::signbit(Value(v, key_min)));
}

TEST(Summary, NumbersThatAreNotFiniteAreLeftOutAndToldOf)
{
    WarningLog const log;
    auto const v = Doubles({1, inf_, nan_, 4, -inf_});
    EXPECT_EQ(Value(v, key_max), inf_);
    EXPECT_EQ(Value(v, key_finitemax), 4);
    EXPECT_EQ(Value(v, key_sum), 5);
    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(Value(v, key_mean), 2.5);
    EXPECT_EQ(Value(v, key_variance), 4.5);
    EXPECT_EQ(Value(v, key_fmedian), 2.5);
    EXPECT_EQ(Value(Doubles({nan_, 3}), key_median), 3); // NaN alone is no warning here
    EXPECT_EQ(Value(Doubles({nan_, 3, 3}), key_stddev), 0);
    std::vector<std::string> texts;
    for (auto const& [code, text] : log.Lines())
        texts.push_back(text);
    std::vector<std::string> const expected = {
        "Calculating mean value of 5 element vector: ignored 2 infinite values.",
        "Ignored 2 infinities and 1 NaN's while computing standard deviation.",
        "Ignored 2 infinities and 1 NaN-s in vector of 5 elements.",
        "Ignored 0 infinities and 1 NaN's while computing standard deviation."};
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(log.Lines()[2].first, 512U);
}

TEST(Summary, VectorWithoutAnyNumberHasNaNsAndNoPlaces)
{
    auto const v = Floats({float(nan_), float(nan_)});
    for (int key : {key_max, key_min, key_mean, key_median, key_fmedian})
        EXPECT_TRUE(std::isnan(Value(v, key))) << key;
    for (int key : {key_sum, key_finitemin, key_finitemax, key_stddev})
        EXPECT_EQ(Value(v, key), 0) << key;
    EXPECT_EQ(Value(v, key_maxat), -1);
    EXPECT_EQ(Value(v, key_minat), -1);
    EXPECT_EQ(Value(Doubles({-inf_}), key_finitemin), 0);
    EXPECT_EQ(Value(Doubles({-inf_}), key_maxat), 0);
}

TEST(Summary, EmptyVectorHasASumAndAMeanOnly)
{
    auto const v = Ints({});
    EXPECT_EQ(Value(v, key_sum), 0);
    EXPECT_TRUE(std::isnan(Value(v, key_mean)));
    EXPECT_RAISES(v->SecondaryItem(key_max, throw_always), 512,
                  "Vector has zero length, cannot calculate subkey: max");
    EXPECT_RAISES(v->SecondaryItem(key_minat, throw_always), 512,
                  "Vector has zero length, cannot calculate subkey: 112");
    EXPECT_EQ(v->SecondaryInt(key_max, throw_never), 0);
    bool handled = true;
    int const* const none = nullptr;
    EXPECT_TRUE(CSINV(none, 0, MemBlock::key_sticky, nullptr, handled, throw_always).IsUndefined());
    EXPECT_FALSE(handled);
}

TEST(Summary, ScalarIsTheCookedNumberOfASingleElement)
{
    EXPECT_EQ(Value(Ints({21}, 2.0), MemBlock::key_double), 42);
    EXPECT_EQ(Value(Ints({21}, 2.0), key_max), 21);
    EXPECT_RAISES(Ints({1, 2})->SecondaryItem(MemBlock::key_int, throw_always), 4096,
                  "Cannot convert vector of 2 elements into a number.");
    EXPECT_EQ(Ints({1, 2})->SecondaryInt(MemBlock::key_int, throw_never), 0);
}

TEST(Summary, WhatNoIntCanTellStaysUnknown)
{
    for (auto const& v : {UInts({4000000000u}), Doubles({1e300}), Doubles({nan_})}) {
        EXPECT_EQ(v->SecondaryInt(key_rough_max, throw_never), 0);
        EXPECT_THROW(v->SecondaryInt(key_rough_max, throw_always), Exception);
    }
}

TEST(Summary, ExactSumsOutlastTheirFastLoops)
{
    // Extreme values only, in more elements than any block holds.
    std::vector<unsigned short> const top(200000, 65535);
    EXPECT_EQ(Value(UShorts(top), key_sum), 65535.0 * 200000);
    EXPECT_EQ(Value(UShorts(top), key_variance), 0);
    std::vector<short> low(200001, -32768);
    low.back() = 32767;
    EXPECT_EQ(Value(Shorts(low), key_sum), -32768.0 * 200000 + 32767);
    std::vector<unsigned char> bytes(100001, 255);
    bytes.back() = 0;
    EXPECT_EQ(Value(Bytes(bytes), key_mean), 255.0 * 100000 / 100001);
    EXPECT_EQ(Value(Bytes(bytes), key_variance), 65025.0 / 100001);
    std::vector<char> chars(100001, -128);
    chars.back() = 127;
    EXPECT_EQ(Value(Chars(chars), key_variance), 65025.0 / 100001);
    EXPECT_EQ(Value(Triples(std::vector<triple>(100000, 0xFFFFFFU)), key_mean), 16777215);
    EXPECT_EQ(Value(UInts(std::vector<unsigned int>(100000, 0xFFFFFFFFU)), key_mean), 4294967295.0);
    EXPECT_EQ(Value(UInt64s({~0ULL, 1}), key_max), static_cast<double>(~0ULL));
    for (int key : {key_mean, key_fmedian}) // of numbers whose sum is infinite
        EXPECT_EQ(Value(Doubles({1.7e308, 1.7e308}), key), 1.7e308) << key;
}

TEST(Summary, LargeMeansDoNotSpoilTheVariance)
{
    std::vector<double> data;
    for (int i = 0; i < 100000; ++i)
        data.push_back(1e9 + i % 2);
    EXPECT_NEAR(Value(Doubles(data), key_variance), 0.25 * 100000 / 99999, 1e-12);
    EXPECT_EQ(Value(Doubles(std::vector<double>(1000, 0.1)), key_stddev), 0);
}

TEST(Summary, HistogramComesFromTheHostsHook)
{
    auto const v = Ints({1, 2});
    testing::internal::CaptureStderr();
    EXPECT_FALSE(v->GetHistogram(64, false));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Kelmic DLL not loaded in this process, cannot calculate the histogram.\n");
    testing::internal::CaptureStderr();
    EXPECT_RAISES(v->SecondaryItem(key_histogram, throw_always), 128, "Cannot calculate histogram");
    testing::internal::GetCapturedStderr();

    auto const hook = +[](PMemBlock block, int bins, bool flag) {
        EXPECT_EQ(bins, 64);
        EXPECT_FALSE(flag);
        return PMemBlock(Ints({static_cast<int>(VectorOf(block)->Length())}));
    };
    MemBlock_DoVerb("set_calldistributionfunc", SafeValue(DataItem(reinterpret_cast<void*>(hook))));
    PMemBlock const histogram = v->SecondaryMemBlock(key_histogram, throw_always);
    MemBlock_DoVerb("set_calldistributionfunc", SafeValue(DataItem(static_cast<void*>(nullptr))));
    EXPECT_EQ(TextOf(VectorOf(histogram)), "2");
}
