#include <memblock/vector/vector.h>

#include <support/raises.h>
#include <support/vectors.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace NKelmic;

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();

} // namespace

TEST(VectorRead, EachTypeReadsAsIntDoubleTextAndValue)
{
    struct Case {
        DerivedPointer<Vector> v;
        int as_int;
        double as_double;
        char const* as_text;
        ItemType kind;
    };
    Case const cases[] = {
        {Bytes({255}), 255, 255, "255", it_int},
        {Chars({-128}), -128, -128, "-128", it_int},
        {UShorts({65535}), 65535, 65535, "65535", it_int},
        {Shorts({-32768}), -32768, -32768, "-32768", it_int},
        {Triples({0xFEDCBA}), 0xFEDCBA, 0xFEDCBA, "16702650", it_int},
        {Ints({-5}), -5, -5, "-5", it_int},
        {Int64s({-(1LL << 40) - 1}), -1, -1099511627777.0, "-1099511627777", it_int64},
        {UInt64s({(1ULL << 33) + 7}), 7, 8589934599.0, "8589934599", it_int64},
        {Floats({-2.5f}), -3, -2.5, "-2.5", it_double},
        {Doubles({2.5}), 3, 2.5, "2.5", it_double},
        {Doubles({1e10}), std::numeric_limits<int>::min(), 1e10, "1e+10", it_double},
        {Texts({"42"}), 42, 42, "42", it_shortstring},
        {Items({DataItem(7)}), 7, 7, "7", it_int},
        {Objects({Ints({3}, 2.0)}), 6, 6, "6", it_memblock},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.v->GetDescription().c_str());
        EXPECT_EQ((*c.v)[0], c.as_int);
        EXPECT_EQ(c.v->GetInt(0), c.as_int);
        EXPECT_EQ(c.v->Elem(0), c.as_double);
        EXPECT_STREQ(c.v->GetString(0).c_str(), c.as_text);
        EXPECT_EQ(c.v->GetDataItem(0).GetType(), c.kind);
        EXPECT_EQ(c.v->ElemUInt(0), static_cast<unsigned int>(c.as_int));
    }
    auto const big = UInts({4000000000u});
    EXPECT_EQ(big->ElemUInt(0), 4000000000u);
    EXPECT_EQ((*big)[0], -294967296);
    EXPECT_EQ(big->GetDataItem(0).GetDouble(), 4e9);
    EXPECT_EQ(Doubles({NAN})->GetString(0), "NaN");
    EXPECT_EQ(Floats({-INFINITY})->GetString(0), "-inf");
    EXPECT_EQ((*Vector::Create(1, Vector::VoidStar, true, 0, 1.0))[0], 0);
}

TEST(VectorRead, OutsideTheLengthEachReaderRaises)
{
    auto const v = Ints({1, 2, 3});
    EXPECT_RAISES((*v)[3], 128, "Vector::operator[]: index out of bounds (3): 3");
    EXPECT_RAISES(v->GetInt(-1), 128, "Vector::operator[]: index out of bounds (3): -1");
    EXPECT_RAISES(v->Elem(3), 128, "Vector index out of bounds (3): 3");
    EXPECT_RAISES(v->GetDataItem(-1), 128, "Vector index out of bounds (3): -1");
    EXPECT_RAISES(v->GetString(7), 128, "Vector index out of bounds (3): 7");
    EXPECT_RAISES(UInts({})->ElemUInt(0), 128, "Vector index out of bounds (0): 0");
    EXPECT_RAISES(Objects({})->ElemMemory(0), 128, "Vector index out of bounds (0): 0");
    EXPECT_RAISES((*Objects({PMemBlock()}))[0], 128, "Element [0] is NULL memblock pointer. ");
    EXPECT_RAISES(v->ElemMemory(0), 128,
                  "Cannot cast data to PMemory type: Vector of 3 elements of type signed int");
}

TEST(VectorRead, TheFactorCountsOnlyWhereItIsAskedFor)
{
    auto const v = Ints({3}, 0.5);
    EXPECT_EQ(v->Elem(0), 3.0);
    EXPECT_EQ(v->GetDataItem(0).GetInt(), 3);
    EXPECT_EQ(v->GetDataItemWithFactor(0).GetDouble(), 1.5);
    EXPECT_EQ(Ints({3})->GetDataItemWithFactor(0).GetType(), it_int);
    EXPECT_EQ(Texts({"3"}, 0.5)->GetDataItemWithFactor(0).GetString(), "3");
}

TEST(VectorWrite, ADoubleIsCookedAndTruncatedForIntegers)
{
    std::tuple<DerivedPointer<Vector>, double, char const*> const cases[] = {
        {Ints({0}), 2.9, "2"},
        {Ints({0}), -2.9, "-2"},
        {Ints({0}, 0.5), 1.3, "2"},
        {Bytes({0}), -0.9, "0"},
        {Bytes({0}), 255.9, "255"},
        {Triples({0}), 16777215.5, "16777215"},
        {Doubles({0}, 0.5), 1.3, "2.6"},
        {Floats({0}), inf, "inf"},
        {Floats({0}), NAN, "NaN"},
        {Texts({""}, 0.5), 1.23456789, "1.23457"},
        {Items({{}}, 0.5), 1.5, "1.5"},
        {Int64s({0}), -9223372036854775808.0, "-9223372036854775808"},
        {Objects({{}}), 2.5, "2.5"},
    };
    for (auto const& [v, value, expected] : cases) {
        v->SetElem(0, value);
        EXPECT_EQ(TextOf(v), expected) << v->GetDescription().c_str();
    }
}

TEST(VectorWrite, WhatDoesNotFitRaisesAndLeavesTheElement)
{
    auto const out_of = [](char const* value, char const* type) {
        return Text(
            "Vector::SetElem(): Value (%s) out of range for data item: Vector of 1 elements "
            "of type %s",
            value, type);
    };
    auto const bytes = Bytes({7});
    EXPECT_RAISES(bytes->SetElem(0, 300.0), 128, out_of("300", "byte"));
    EXPECT_RAISES(bytes->SetElem(0, -1.0), 128, out_of("-1", "byte"));
    EXPECT_RAISES(bytes->SetElem(0, NAN), 128, out_of("nan", "byte"));
    EXPECT_RAISES(bytes->SetElem(0, 256), 128, out_of("256", "byte"));
    EXPECT_RAISES(bytes->SetElem(0, 4000000000u), 128, out_of("4000000000", "byte"));
    EXPECT_RAISES(bytes->SetElem(0, DataItem("-3")), 128, out_of("-3", "byte"));
    EXPECT_RAISES(Floats({0})->SetElem(0, 1e39), 128, out_of("1e+39", "float"));
    auto const scaled = Floats({2}, 1e-300);
    EXPECT_THROW(scaled->SetElem(0, 1e300), Exception); // finite, though not after the division
    EXPECT_EQ(TextOf(scaled), "2");
    scaled->SetElem(0, -inf);
    EXPECT_EQ(TextOf(scaled), "-inf");
    EXPECT_RAISES(Int64s({0})->SetElem(0, 9223372036854775808.0), 128,
                  out_of("9.22337e+18", "signed int64"));
    EXPECT_RAISES(UInt64s({0})->SetElem(0, 18446744073709551616.0), 128,
                  out_of("1.84467e+19", "unsigned int64"));
    EXPECT_RAISES(Ints({0})->SetElem(0, 2147483648u), 128, out_of("2147483648", "signed int"));
    EXPECT_RAISES(UInts({0})->SetElem(0, -1), 128, out_of("-1", "unsigned int"));
    EXPECT_RAISES(bytes->SetElem(1, 1.0), 128,
                  "Vector::SetElem() called with invalid index: 1 (must be <1)");
    EXPECT_RAISES(bytes->SetElem(0, "word"), 512, "Invalid numeric: word");
    EXPECT_EQ(TextOf(bytes), "7");
    auto const clone = VectorOf(bytes->Clone(true));
    EXPECT_RAISES(clone->SetElem(0, 300), 128, out_of("300", "byte"));
    EXPECT_EQ(cref(clone).Pointer(), cref(bytes).Pointer()); // refused before the copy
}

TEST(VectorWrite, SixtyFourBitIntegersKeepEachBitOrAreRefused)
{
    long long const low = std::numeric_limits<long long>::min();
    auto const v = Int64s({0});
    v->SetElem(0, low);
    EXPECT_EQ(ElementsOf<long long>(v)[0], low);
    v->SetElem(0, 9007199254740993L); // a long; a double has no such number
    EXPECT_EQ(ElementsOf<long long>(v)[0], 9007199254740993LL);
    auto const u = UInt64s({0});
    u->SetElem(0, ~0ULL);
    EXPECT_EQ(ElementsOf<unsigned long long>(u)[0], ~0ULL);
    u->SetElem(0, 5ul);
    EXPECT_EQ(TextOf(u), "5");
    EXPECT_RAISES(u->SetElem(0, -1LL), 128,
                  "Vector::SetElem(): Value (-1) out of range for data type: uint64");
    EXPECT_RAISES(Triples({0})->SetElem(0, 16777216LL), 128,
                  "Vector::SetElem(): Value (16777216) out of range for data type: triple");
    EXPECT_RAISES(Shorts({0})->SetElem(0, 5000000000LL), 128,
                  "Vector::SetElem(): Value (5000000000) out of range for data type: signed short");
    EXPECT_RAISES(v->SetElem(0, ~0ULL), 128,
                  "Vector::SetElem(): Value (18446744073709551615) out of range for data type: "
                  "signed int64");
    EXPECT_RAISES(Vector::Create(1, Vector::VoidStar, true, 0, 1.0)->SetElem(0, 1LL), 128,
                  "Function SetElemInt64 not implemented for data type 'voidstar'");
}

TEST(VectorWrite, TextsObjectsAndValuesGoByTheirKind)
{
    auto const numbers = Doubles({0}, 2.0);
    numbers->SetElem(0, "3"); // a whole number is stored as it is
    EXPECT_EQ(TextOf(numbers), "3");
    numbers->SetElem(0, "3.5"); // any other is cooked
    EXPECT_EQ(TextOf(numbers), "1.75");
    auto const scalar = Ints({4, 5});
    numbers->SetElem(0, PMemBlock(scalar));
    EXPECT_EQ(TextOf(numbers), "4");
    numbers->SetElem(0, DataItem(PMemBlock(scalar)));
    EXPECT_EQ(TextOf(numbers), "4");
    EXPECT_RAISES(numbers->SetElem(0, PMemBlock(Ints({}))), 128,
                  "Vector index out of bounds (0): 0");
    EXPECT_RAISES(numbers->SetElem(0, PMemBlock()), 512,
                  "Data does not conform to \"vector\" class: none");
    EXPECT_RAISES(numbers->SetElem(0, DataItem(static_cast<void*>(nullptr))), 128,
                  "Cannot insert into a vector: " +
                      DataItem(static_cast<void*>(nullptr)).GetExpression());

    auto const object = Objects({{}});
    object->SetElem(0, PMemBlock(scalar));
    EXPECT_EQ(object->ElemMemory(0), PMemBlock(scalar));
    object->SetElem(0, 7u);
    EXPECT_EQ(VectorOf(object->ElemMemory(0))->ElemType(), Vector::UnsignedInt);
    auto const items = Items({{}});
    items->SetElem(0, PMemBlock(scalar));
    EXPECT_EQ(items->GetDataItem(0).GetMemory(), PMemBlock(scalar));
    items->SetElem(0, DataItem());
    EXPECT_TRUE(items->GetDataItem(0).IsUndefined());
    auto const texts = Texts({""});
    texts->SetElem(0, 12);
    EXPECT_EQ(TextOf(texts), "12");
}

TEST(VectorFill, StoresOneRawValueRoundedHalfAwayFromZero)
{
    std::tuple<DerivedPointer<Vector>, DataItem, char const*> const cases[] = {
        {Shorts({1, 2}, 0.5), DataItem(-2.5), "-3 -3"},
        {Bytes({1, 2}), DataItem("7"), "7 7"},
        {Ints({1, 2}), DataItem(9), "9 9"},
        {Floats({1, 2}), DataItem(0.5), "0.5 0.5"},
        {Texts({"a", "b"}), DataItem("x"), "x x"},
        {Items({{}, {}}), DataItem(3), "3 3"},
        {Triples({0, 0}), DataItem(70000), "70000 70000"}};
    for (auto const& [v, value, expected] : cases) {
        v->Fill(value);
        EXPECT_EQ(TextOf(v), expected) << v->GetDescription().c_str();
    }
    auto const object = Ints({1});
    auto const objects = Objects({{}, {}});
    objects->Fill(DataItem(PMemBlock(object)));
    EXPECT_EQ(object->RefCount(), 3);
    objects->Clear();
    EXPECT_EQ(object->RefCount(), 1);
    auto const bytes = Bytes({5});
    EXPECT_RAISES(bytes->Fill(DataItem(255.5)), 128,
                  "The initialization value does not fit in the destination type: 256");
    EXPECT_RAISES(
        Int64s({0})->Fill(DataItem(NAN)), 128,
        Text("The initialization value does not fit in the destination type \"int64\": %d", NAN));
    EXPECT_RAISES(UInt64s({0})->Fill(DataItem(-1)), 128,
                  "The initialization value does not fit in the destination type \"uint64\": -1");
    EXPECT_RAISES(Vector::Create(1, Vector::VoidStar, true, 0, 1.0)->Fill(DataItem(0)), 128,
                  "Function fill_tmpl not implemented for data type 'voidstar'");
    EXPECT_EQ(TextOf(bytes), "5");
    bytes->Clear();
    EXPECT_EQ(TextOf(bytes), "0");
}
