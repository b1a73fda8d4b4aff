#include <memblock/vector/range_kernels.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

using namespace NKelmic;

namespace {

template <class T>
class RangeOf : public testing::Test {
};
using Types = testing::Types<char, unsigned short, triple, int, unsigned long long, float, double>;
TYPED_TEST_SUITE(RangeOf, Types);

/// Random numbers; of floating types some are NaN or infinite, from none to nearly all.
template <class T>
std::vector<T> Numbers(std::mt19937& random, std::size_t n)
{
    double const specials[] = {NAN, HUGE_VAL, -HUGE_VAL, -0.0};
    unsigned const rarity = 1U << random() % 8;
    std::vector<T> numbers;
    while (numbers.size() < n)
        if (std::is_floating_point_v<T> && random() % rarity == 0)
            numbers.push_back(static_cast<T>(specials[random() % 4]));
        else
            numbers.push_back(static_cast<T>(static_cast<wide_t<T>>(random()) / 3));
    return numbers;
}

} // namespace

TYPED_TEST(RangeOf, IsThatOfItsPartsAndOfAPlainLoop)
{
    using V = wide_t<TypeParam>;
    std::mt19937 random(3);
    for (std::size_t n = 0; n < 300; ++n) {
        SCOPED_TRACE(n);
        auto const numbers = Numbers<TypeParam>(random, n);
        MinMax<V> all, finite;
        for (V const v : numbers) {
            if (v == v && (all.IsEmpty() || v < all.min))
                all.min = v;
            if (v == v && (all.max < all.min || v > all.max))
                all.max = v;
            if (std::isfinite(static_cast<double>(v)))
                finite.Merge({v, v});
        }
        TypeParam const* const x = numbers.data();
        auto const found = MinMaxOf<false>(x, n);
        EXPECT_EQ(found.min, all.min);
        EXPECT_EQ(found.max, all.max);
        auto const found_finite = FiniteMinMaxOf(x, n, found);
        EXPECT_EQ(found_finite.min, finite.min);
        EXPECT_EQ(found_finite.max, finite.max);
        std::size_t const cut = random() % (n + 1);
        auto parts = MinMaxOfShort<false>(x, cut);
        parts.Merge(MinMaxOfShort<false>(x + cut, n - cut));
        EXPECT_EQ(parts.min, found.min);
        EXPECT_EQ(parts.max, found.max);
    }
}
