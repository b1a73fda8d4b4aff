#include <memblock/core/options.h>

#include <support/testblock.h>

#include <gtest/gtest.h>

#include <cmath>

using namespace NKelmic;

TEST(Options, NamesIgnoreLetterCase)
{
    OptionsBase options;
    options.SetValue("Depth", 8);
    EXPECT_EQ(options.GetValue("DEPTH", 1).GetInt(), 8);
    options.SetValue("dEPTH", 16);
    EXPECT_EQ(options.GetValue("depth", 1).GetInt(), 16);
    EXPECT_EQ(options.GetValue("width", 1).GetInt(), 1);
    options.Clear();
    EXPECT_EQ(options.GetValue("depth", 1).GetInt(), 1);
}

TEST(Options, AFlagIsTrueUnlessItIsANumberEqualToZeroOrUndefined)
{
    std::pair<DataItem, bool> const cases[] = {
        {DataItem("false"), true},
        {DataItem(""), true},
        {DataItem(0), false},
        {DataItem(2), true},
        {DataItem(0.0), false},
        {DataItem(0.1), true},
        {DataItem(NAN), true},
        {DataItem(0LL), false},
        {DataItem(1LL << 32), true},
        {DataItem(), false},
        {DataItem("a text that lies on the heap"), true},
        {DataItem(TestBlock::Create()), true},
    };
    for (auto const& [value, expected] : cases) {
        op_options options;
        options.SetValue("flag", value);
        EXPECT_EQ(options.GetFlag("FLAG", !expected), expected) << value.GetDescription().c_str();
    }
    ConvertOptions options;
    EXPECT_TRUE(options.GetFlag("flag", true));
    EXPECT_FALSE(options.GetFlag("flag", false));
    options.SetFlag("flag", true);
    EXPECT_EQ(options.GetValue("flag", DataItem()).GetType(), it_int);
    EXPECT_TRUE(options.GetFlag("flag", false));
}

TEST(Options, AnOperationMayAnswerThroughItsOptions)
{
    op_options const options;
    options.SetOutput("nancount", 3);
    EXPECT_EQ(options.GetValue("nancount", 0).GetInt(), 3);
}
