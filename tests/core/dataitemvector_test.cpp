#include <memblock/core/safevalue.h>

#include <memblock/base/text.h>
#include <memblock/vector/vector.h>

#include <support/raises.h>
#include <support/testblock.h>

#include <tuple>

using namespace NKelmic;

TEST(DataItemVector, AScalarBecomesANewVectorOnEachCall)
{
    std::tuple<DataItem, DataType> const cases[] = {
        {DataItem(5), Vector::Int},
        {DataItem(2.5), Vector::Double},
        {DataItem("text"), Vector::String},
        {DataItem("a text that lies on the heap"), Vector::String},
        {DataItem(1LL << 40), Vector::Int64},
    };
    for (auto const& [item, type] : cases) {
        SCOPED_TRACE(item.GetDescription().c_str());
        DerivedPointer<Vector> const vector(item.GetMemory());
        EXPECT_EQ(vector->ElemType(), type);
        EXPECT_EQ(vector->Length(), 1U);
        EXPECT_FALSE(vector == item.GetMemory());

        DataItem there(item);
        there.ScalarToVector();
        EXPECT_EQ(there.GetType(), it_memblock);
        EXPECT_EQ(there.GetString(), item.GetString());
        there.VectorToScalar();
        EXPECT_EQ(there.Compare(item), 0);
        EXPECT_NE(there.GetType(), it_memblock);
    }
    DataItem undefined;
    undefined.ScalarToVector();
    EXPECT_TRUE(undefined.IsUndefined());
    EXPECT_FALSE(undefined.GetMemory());
}

TEST(DataItemVector, VectorToScalarCooksOneElementAndLeavesMore)
{
    auto one = Vector::CreateFrom(3);
    one->SetFactor(0.5);
    DataItem item(one);
    EXPECT_EQ(item.GetDouble(), 1.5);
    EXPECT_EQ(SafeValue(item).GetFloating(), 1.5);
    item.VectorToScalar();
    EXPECT_TRUE(item == DataItem(1.5));

    DataItem two(Vector::Create(2, Vector::Int, false, 0, 1.0));
    two.VectorToScalar();
    EXPECT_EQ(two.GetType(), it_memblock);
}

TEST(DataItemVector, AStringVectorOfOneElementActsAsText)
{
    auto const vector = Vector::CreateFrom(safestring("Text"));
    DataItem const item(vector);
    EXPECT_TRUE(item.IsString());
    EXPECT_TRUE(item.IsSingleStringVector());
    EXPECT_STREQ(item.GetStringPointer(), "Text");
    EXPECT_EQ(item.SingleStringRef(), "Text");
    EXPECT_EQ(DataItem("TEXT").Compare(item), 0);
    EXPECT_EQ(DataItem("a").Compare(item), -1);
    opaquestring engine;
    item.GetString(engine);
    EXPECT_EQ(engine.Text(), "Text");

    DataItem const number(Vector::CreateFrom(5));
    EXPECT_FALSE(number.IsString());
    EXPECT_RAISES(number.GetStringPointer(), err_kind,
                  "Cannot cast data to String type: " + Describe(number.GetMemory().Pointer()));
    EXPECT_RAISES(DataItem("x").SingleStringRef(), err_kind,
                  "Cannot cast data to String type: \"x\" (string)");
}

TEST(DataItemVector, OnlyPointersForWritingDetachSharedElements)
{
    auto const vector = Vector::Create(1000, Vector::Int, false, 0, 1.0);
    DerivedPointer<Vector> const clone(vector->Clone(true));
    DataItem const item(clone);
    auto const shared = [&] { return cref(clone).Pointer() == cref(vector).Pointer(); };
    item.IsString();
    DataItem("x").Compare(item);
    EXPECT_TRUE(shared());
    void* const writable = item.GetPointer();
    EXPECT_EQ(writable, cref(clone).Pointer());
    EXPECT_FALSE(shared());
    EXPECT_EQ(SafeValue(item).GetPointer(), item.GetPrivatePointer());

    auto const text = Vector::CreateFrom(safestring("Text"));
    auto const other = Vector::Create(cref(text).Chunk(), 1.0); // a clone has texts of its own
    EXPECT_EQ(DataItem("Text").Compare(DataItem(other)), 0);
    EXPECT_EQ(cref(other).StringPointer(), cref(text).StringPointer());
    DataItem(other).GetStringPointer();
    EXPECT_NE(cref(other).StringPointer(), cref(text).StringPointer());
}

TEST(DataItemVector, ATypedAccessLooksIntoAttributeObjects)
{
    auto const vector = Vector::CreateFrom(5);
    auto const attribute = TestBlock::Create({{"vector", DataItem(vector)}});
    attribute->conforms = "attribute";
    EXPECT_TRUE(DataItem(attribute).GetMemoryOfClass("vector", false) == vector);
    EXPECT_EQ(DataItem(5).GetMemoryClass("vector", false)->Class(), safestring("vector"));
    EXPECT_FALSE(DataItem().GetMemoryOfClass("vector", true));
    EXPECT_RAISES(DataItem().GetMemoryOfClass("vector", false), err_value,
                  "Cannot convert data item to vector: {Undefined}");
    EXPECT_RAISES(DataItem("x").GetMemoryOfClass("image", true), err_value,
                  "Cannot convert data item to image: \"x\" (string)");
}

TEST(DataItemVector, MakeCopyAlwaysCopiesAVectorOfObjects)
{
    auto const child = TestBlock::Create();
    DataItem item(Vector::CreateFrom(PMemBlock(child)));
    MemBlock* const before = item.MemoryRef().Pointer();
    item.MakeCopy();
    EXPECT_NE(item.MemoryRef().Pointer(), before);

    DataItem numbers(Vector::CreateFrom(5));
    MemBlock* const held = numbers.MemoryRef().Pointer();
    numbers.MakeCopy();
    EXPECT_EQ(numbers.MemoryRef().Pointer(), held);
}
