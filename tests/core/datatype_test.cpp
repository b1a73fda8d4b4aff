#include <memblock/core/typedchunk.h>

#include <support/raises.h>

#include <gtest/gtest.h>

using namespace NKelmic;

namespace {

using Ids = DataTypeBase;

} // namespace

TEST(DataType, IdsSizesTextsAndKindsAreThoseThatFilesAndScriptsRestOn)
{
    struct {
        int id;
        unsigned size;
        char const* text;
        bool object, integer, without_sign;
    } const cases[] = {
        {0, 4, "signed int", false, true, false},    {1, 4, "unsigned int", false, true, true},
        {2, 2, "signed short", false, true, false},  {3, 2, "unsigned short", false, true, true},
        {4, 1, "signed char", false, true, false},   {5, 1, "byte", false, true, true},
        {6, 4, "float", false, false, false},        {7, 8, "double", false, false, false},
        {8, 8, "voidstar", false, false, false},     {9, 8, "memblock", true, false, false},
        {10, 3, "triple", false, true, true},        {13, 32, "string", true, false, false},
        {14, 24, "polytype", true, false, false},    {15, 8, "signed int64", false, true, false},
        {16, 8, "unsigned int64", false, true, true}};
    static_assert(std::size(cases) == type_count<AllTypes>);
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        auto const type = static_cast<DataType>(c.id);
        EXPECT_EQ(TypedChunk::SizeOf(type), c.size);
        EXPECT_STREQ(TypedChunk::TypeToString(type), c.text);
        EXPECT_EQ(TypedChunk::IsObject(type), c.object);
        EXPECT_EQ(TypedChunk::IsInteger(type), c.integer);
        EXPECT_EQ(TypedChunk::IsUnsignedInteger(type), c.without_sign);
    }
}

TEST(DataType, IdsBetweenTheTypesHaveNoSize)
{
    for (int id : {-1, 11, 12, 17, 1000}) {
        auto const type = static_cast<DataType>(id);
        EXPECT_STREQ(TypedChunk::TypeToString(type), "");
        EXPECT_FALSE(TypedChunk::IsObject(type) || TypedChunk::IsInteger(type));
        try {
            TypedChunk::SizeOf(type);
            ADD_FAILURE() << id;
        } catch (char const* text) {
            EXPECT_STREQ(text, "TypedChunk::SizeOf(): unknown vector type");
        }
    }
}

TEST(DataType, TypesOutsideTheSetOfAFamilyRaiseItsText)
{
    auto const width = [](DataType type) {
        return WithElemType<FloatTypes>(
            type, "Function width not implemented for data type '%s'",
            []<class T>(TypeTag<T>) { return sizeof(T); }, err_request);
    };
    EXPECT_EQ(width(Ids::Double), 8U);
    EXPECT_RAISES(width(Ids::Triple), 4096,
                  "Function width not implemented for data type 'triple'");
    EXPECT_RAISES(width(Ids::NoType), 4096, "Function width not implemented for data type ''");
}

TEST(DataType, TripleKeepsTheLowThreeBytesLeastSignificantFirst)
{
    triple const t(0xAB123456U);
    EXPECT_EQ(t.b[0], 0x56);
    EXPECT_EQ(t.b[2], 0x12);
    EXPECT_EQ(static_cast<unsigned int>(t), 0x123456U);
    EXPECT_EQ(static_cast<unsigned int>(std::numeric_limits<triple>::max()), 16777215U);
    EXPECT_EQ(static_cast<unsigned int>(std::numeric_limits<triple>::lowest()), 0U);
}
