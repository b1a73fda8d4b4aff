#include "truth.h"

#include <measure/forms.h>
#include <measure/measures.h>
#include <support/testdata.h>

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <set>

namespace {

using namespace measure;
using namespace NKelmic;

/// The row that tells the numbers of a block: red of "retina_rgb" is "retina_rgb_r", page 4 of
/// "spheres_stack_8" is "spheres_stack_8_z03".
std::string RowName(std::string const& stem, std::string const& block, bool many, int page)
{
    static std::map<std::string, std::string> const tails = {
        {"grey", ""}, {"red", "_r"}, {"green", "_g"}, {"blue", "_b"}, {"average", "_average"}};
    return stem + tails.at(block) + (many ? "_z0" + std::to_string(page - 1) : "");
}

void ExpectTruth(TruthRow const& row, Vector const& vector, Measures const& found)
{
    std::pair<char const*, double> const exact[] = {
        {"length", vector.Length()},
        {"min", found.minimum.value},
        {"minat", static_cast<double>(found.minimum.index)},
        {"max", found.maximum.value},
        {"maxat", static_cast<double>(found.maximum.index)},
        {"sum", found.sum},
        {"q25", found.lower_quartile},
        {"q50", found.median},
        {"q75", found.upper_quartile},
    };
    for (auto const& [column, value] : exact)
        EXPECT_EQ(value, Number(row.at(column))) << column;
    double const mean = Number(row.at("mean"));
    double const stddev = Number(row.at("stddev"));
    EXPECT_NEAR(found.mean, mean, 1e-12 * mean);
    EXPECT_NEAR(found.stddev, stddev, 1e-12 * stddev);
    bool const wide = vector.ElemType() == DataTypeBase::UnsignedShort;
    EXPECT_EQ(wide ? "uint16" : "uint8", row.at("type"));
}

TEST(Measure, EveryKnownPictureHasTheNumbersOfItsTruth)
{
    NEED_TEST_DATA();
    auto const truth = ReadTruth(TestData() / "truth" / "pictures.csv");
    std::set<std::string> seen;
    int files = 0;
    for (auto const& entry : std::filesystem::directory_iterator(TestData())) {
        std::string const suffix = entry.path().extension();
        if (suffix != ".pgm" && suffix != ".ppm" && suffix != ".tif" && suffix != ".png")
            continue;
        ++files;
        std::string const stem = entry.path().stem();
        bool const many = truth.contains(stem + "_z00");
        auto const reader = OpenPicture(entry.path());
        Page page;
        for (int number = 1; ReadPage(*reader, page); ++number, page = Page())
            for (Block const& block : BlocksOf(page, 1)) {
                if (!block.measured)
                    continue;
                std::string const name = RowName(stem, block.name, many, number);
                SCOPED_TRACE(entry.path().filename().string() + ": " + name);
                ASSERT_TRUE(truth.contains(name));
                ExpectTruth(truth.at(name), cref(block.vector), Measure(block.vector, Policies()));
                seen.insert(name);
            }
    }
    EXPECT_GE(files, 10);
    for (auto const& [name, row] : truth)
        EXPECT_TRUE(seen.contains(name) || row.at("depth") != "1") << name << " was not measured";
}

TEST(Measure, PixelsAreWrappedWithoutACopyAndGivenBackOnce)
{
    Page page;
    page.width = 2;
    page.height = 1;
    page.samples = 3;
    page.bytes.reset(new unsigned char[6]{1, 2, 4, 255, 0, 1});
    void const* const pixels = page.bytes.get();
    auto const blocks = BlocksOf(page, 0.5);
    ASSERT_EQ(blocks.size(), 5u);
    Vector const& rgb = cref(blocks[0].vector);
    EXPECT_EQ(rgb.Pointer(), pixels);
    EXPECT_EQ(rgb.ElemType(), DataTypeBase::Triple);
    EXPECT_EQ(rgb.GetInt(0), 0x040201);
    EXPECT_EQ(rgb.Factor(), 0.5);
    int const channels[4][2] = {{1, 255}, {2, 0}, {4, 1}, {3, 86}}; // the average rounds
    for (int c = 0; c < 4; ++c)
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(cref(blocks[c + 1].vector).GetInt(i), channels[c][i]) << c << ", " << i;
}

TEST(Measure, PoliciesDecideAboutNanAndInfinityButNotAboutTheExtremes)
{
    double const nan = std::numeric_limits<double>::quiet_NaN();
    double const inf = std::numeric_limits<double>::infinity();
    auto const vector = Vector::Create(4, DataTypeBase::Double, false, 0, 1);
    double const values[] = {nan, 1, -inf, 5};
    std::copy(std::begin(values), std::end(values), vector->DoublePointer());

    Measures const excluded = Measure(vector, {"exclude", "exclude"});
    EXPECT_EQ(excluded.sum, 6);
    EXPECT_EQ(excluded.minimum.value, -inf);
    EXPECT_EQ(excluded.minimum.index, 2);
    EXPECT_EQ(excluded.maximum.index, 3);
    EXPECT_EQ(Measure(vector, {"10", "100"}).sum, -84);
    EXPECT_EQ(Measure(vector, {"exclude", "include"}).sum, -inf);
    EXPECT_TRUE(std::isnan(Measure(vector, {"include", "exclude"}).mean));
}

TEST(Measure, NumbersArePrintedAsTheyAre)
{
    EXPECT_EQ(NumberText(20000000), "20000000");
    EXPECT_EQ(NumberText(-0.5), "-0.5");
    EXPECT_EQ(NumberText(7.107668852175736), "7.107668852175736");
    EXPECT_EQ(NumberText(1e300), "1e+300");
    EXPECT_EQ(NumberText(-std::numeric_limits<double>::infinity()), "-inf");
}

} // namespace
