#include <memblock/core/subitem.h>
#include <memblock/vector/convert.h>

#include <support/raises.h>
#include <support/vectors.h>
#include <support/warnings.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using namespace NKelmic;

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();

DerivedPointer<Vector> Convert(DerivedPointer<Vector> const& v, DataType type, bool keep = false)
{
    return cref(v).ConvertElemsToType(type, true, keep);
}

constexpr DataType number_types[] = {
#define MEMBLOCK_ID(NAME, ID, T, TEXT) Vector::NAME,
    MEMBLOCK_NUMERIC_ELEM_TYPES(MEMBLOCK_ID)
#undef MEMBLOCK_ID
};

/// A conversion whose factor follows the data: the raw elements in text form, and the factor.
struct Conversion {
    DerivedPointer<Vector> v;
    DataType type;
    char const* expected;
    double factor;
};

void ExpectConverted(std::initializer_list<Conversion> cases)
{
    for (Conversion const& c : cases) {
        SCOPED_TRACE(c.v->GetDescription().c_str());
        auto const result = Convert(c.v, c.type);
        EXPECT_EQ(TextOf(result), c.expected);
        EXPECT_DOUBLE_EQ(result->Factor(), c.factor);
    }
}

} // namespace

TEST(Convert, TheSameTypeOrNoneGivesTheObjectItself)
{
    auto const v = Ints({1});
    EXPECT_EQ(PMemBlock(Convert(v, Vector::Int)), PMemBlock(v));
    EXPECT_EQ(PMemBlock(Convert(v, Vector::NoType)), PMemBlock(v));
    EXPECT_EQ(Convert(Ints({}), Vector::String)->Length(), 0u);
    EXPECT_EQ(cref(v).ConvertElemsToType(Vector::Double, false, true)->Length(), 1u);
}

TEST(Convert, IntegersThatFitAreCopiedToAnyIntegerType)
{
    for (DataType from : number_types) {
        for (DataType to : number_types) {
            auto const source = Vector::Create(3, from, true, 0, 0.5);
            for (int i = 0; i < 3; ++i)
                source->SetElem(i, i * 60);
            auto const result = Convert(source, to, true);
            EXPECT_EQ(result->ElemType(), to);
            EXPECT_EQ(TextOf(result), "0 60 120")
                << Vector::TypeToString(from) << " to " << Vector::TypeToString(to);
            EXPECT_EQ(result->Factor(), 0.5);
            EXPECT_EQ(TextOf(source), "0 60 120");
        }
    }
}

TEST(Convert, IntegersThatDoNotFitAreShiftedAndTheFactorMakesUpForIt)
{
    ExpectConverted({
        {Ints({256, 100}), Vector::Byte, "128 50", 2},
        {Ints({-1000, 1000}), Vector::Char, "-125 125", 8},
        {UInts({4000000000u, 7}), Vector::Int, "2000000000 3", 2},
        {Triples({0xFFFFFF, 0}, 0.5), Vector::Byte, "255 0", 32768},
        {UInt64s({~0ULL, 1}), Vector::Int64, "9223372036854775807 0", 2},
        {Int64s({std::numeric_limits<long long>::min()}), Vector::Short, "-32768",
         std::ldexp(1.0, 48)},
        {UInt64s({1ULL << 53 | 1}), Vector::UnsignedInt64, "9007199254740993", 1},
        {Shorts({-129, 5}), Vector::Char, "-65 2", 2},
    });
    EXPECT_RAISES(Convert(Ints({256, -7}), Vector::Char, true), 128,
                  "Cannot insert value 256 or -7 in 1-byte destination type without altering "
                  "factor");
    for (DataType type : {Vector::UnsignedInt, Vector::Byte, Vector::UnsignedInt64})
        EXPECT_RAISES(Convert(Ints({-1}), type), 128,
                      "Cannot convert vector to unsigned representation, because it contains "
                      "negative values (min=-1): Vector of 1 elements of type signed int");
}

TEST(Convert, FloatsKeepTheirCookedValuesThroughTheFactor)
{
    ExpectConverted({
        {Doubles({1, 2, -3}), Vector::Int, "1 2 -3", 1},
        {Doubles({1, NAN, inf, -inf}), Vector::Short, "1 0 32767 -32768", 1},
        {Doubles({NAN, inf}), Vector::Byte, "0 255", 1},
        {Doubles({0.5, 0.25}), Vector::Byte, "255 128", 0.5 / 255},
        {Floats({0.5f, -0.25f}), Vector::Char, "127 -64", 0.5 / 127},
        {Doubles({-0.5, 0.25}), Vector::Int, "-1073741824 536870912", 1 / 2147483647.0},
        {Doubles({0.5}, 2), Vector::Triple, "16777215", 1 / 16777215.0},
        {Doubles({0.0, -0.0}), Vector::UnsignedInt64, "0 0", 1},
    });
    auto const wide = Convert(Doubles({0.4, 3e9}), Vector::Int);
    EXPECT_DOUBLE_EQ(wide->Factor(), 3e9 / 536870911.75);
    EXPECT_NEAR(wide->Elem(0) * wide->Factor(), 0.4, wide->Factor() / 2);
    EXPECT_NEAR(wide->Elem(1) * wide->Factor(), 3e9, wide->Factor() / 2);
    auto const tiny = Convert(Doubles({5e-324}), Vector::UnsignedInt64);
    EXPECT_TRUE(std::isfinite(tiny->Factor()));
    EXPECT_RAISES(Convert(Doubles({1, -2.5}), Vector::Byte), 128,
                  "Cannot represent negative value -2.5 in the destination type (byte)");
}

TEST(Convert, FloatsUnderAKeptFactorAreRoundedAndChecked)
{
    EXPECT_EQ(TextOf(Convert(Doubles({2.5, -2.5, 0.4}), Vector::Char, true)), "3 -3 0");
    EXPECT_EQ(TextOf(Convert(Floats({255.4f, -0.4f}), Vector::Byte, true)), "255 0");
    EXPECT_EQ(TextOf(Convert(Doubles({-9223372036854775808.0}), Vector::Int64, true)),
              "-9223372036854775808");
    std::tuple<double, DataType, char const*> const cases[] = {
        {3e9, Vector::Int,
         "Value 3e+09 does not fit in the destination type "
         "-2147483648..2147483647 without altering the factor."},
        {255.5, Vector::Byte,
         "Value 255.5 does not fit in the destination type 0..255 without "
         "altering the factor."},
        {-0.5, Vector::Triple,
         "Value -0.5 does not fit in the destination type 0..16777215 "
         "without altering the factor."},
        {9223372036854775808.0, Vector::Int64,
         "Value 9.22337e+18 does not fit in the destination type "
         "-9223372036854775808..9223372036854775807 without altering the factor."},
        {18446744073709551616.0, Vector::UnsignedInt64,
         "Value 1.84467e+19 does not fit in the destination type 0..18446744073709551615 without "
         "altering the factor."},
    };
    for (auto [value, type, text] : cases) {
        std::vector<double> values(3000, 1.0);
        values[2500] = value;
        EXPECT_RAISES(Convert(Doubles(values), type, true), 128, text);
    }
}

TEST(Convert, RandomNumbersKeepTheirCookedValuesToHalfAStep)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> exponent(-3, 12);
    for (int round = 0; round < 200; ++round) {
        std::vector<double> values(50);
        double const scale = std::pow(10, exponent(random));
        for (double& v : values)
            v = scale * (static_cast<double>(random()) / random.max() - 0.3);
        auto const source = Doubles(values, 0.75);
        for (DataType type : {Vector::Char, Vector::Short, Vector::Int, Vector::Int64}) {
            auto const result = Convert(source, type);
            for (unsigned int i = 0; i < 50; ++i)
                ASSERT_NEAR(result->Elem(i) * result->Factor(), values[i] * 0.75,
                            result->Factor() * 0.5000001 + std::fabs(values[i]) * 1e-15)
                    << Vector::TypeToString(type) << " scale " << scale;
        }
    }
}

TEST(Convert, ObjectsHoldCookedValues)
{
    EXPECT_EQ(TextOf(Convert(Ints({3, -4}), Vector::String)), "3 -4");
    EXPECT_EQ(TextOf(Convert(Doubles({0.5, NAN, -inf}), Vector::String)), "0.5 NaN -inf");
    for (DataType type : {Vector::String, Vector::PolyType, Vector::PMemory}) {
        auto const objects = Convert(Bytes({3, 4}, 0.5), type);
        EXPECT_EQ(objects->Factor(), 1.0);
        EXPECT_EQ(objects->ElemType(), type);
        EXPECT_EQ(TextOf(Convert(objects, Vector::Double)), "1.5 2");
    }
    auto const greatest = UInt64s({~0ULL, 1ULL << 53 | 1});
    EXPECT_EQ(TextOf(Convert(Convert(greatest, Vector::PMemory), Vector::UnsignedInt64)),
              TextOf(greatest));
    EXPECT_EQ(TextOf(Convert(Texts({"12", "0x10"}), Vector::Byte)), "12 16");
    EXPECT_EQ(TextOf(Convert(Items({DataItem(2.9), DataItem("-3")}), Vector::Short)), "2 -3");
    EXPECT_RAISES(Convert(Texts({"word"}), Vector::Int), 512, "Invalid numeric: word");
    EXPECT_RAISES(Convert(Texts({"300"}), Vector::Byte), 128,
                  "Vector::SetElem(): Value (300) out of range for data item: Vector of 1 elements "
                  "of type byte");
}

TEST(Convert, WhatHasNoConversionSaysSo)
{
    auto const pointers = Vector::Create(1, Vector::VoidStar, true, 0, 1.0);
    std::tuple<DerivedPointer<Vector>, DataType, char const*> const cases[] = {
        {pointers, Vector::Float, "Conversion to float not supported: "},
        {pointers, Vector::Double, "Conversion to double type not supported: "},
        {pointers, Vector::Int, "Conversion not supported: "},
        {Floats({1}), Vector::VoidStar, "Conversion from float not supported: "},
        {Doubles({1}), Vector::VoidStar, "Conversion from double not supported: "},
        {Texts({"a"}), Vector::PolyType, "Conversion not supported: "},
        {Ints({1}), DataType(12), "Conversion not supported: "},
        {Ints({1}), DataType(99), "Conversion not supported: "},
    };
    for (auto const& [v, type, text] : cases)
        EXPECT_RAISES(Convert(v, type), 128, text + v->GetDescription());
}

TEST(Convert, InPlaceTheContentsAreConvertedOrTheBytesReadAnew)
{
    auto const v = Ints({0x3F800000, 2}, 0.5);
    v->Pimpl();
    v->SetElemType(Vector::Double, true, true);
    EXPECT_EQ(v->PimplIfAny(), nullptr);
    EXPECT_EQ(v->Factor(), 0.5);
    EXPECT_EQ(TextOf(v), "1.06535e+09 2");
    auto const bits = Ints({0x3F800000, 0x40000000});
    void const* const data = cref(bits).Pointer();
    bits->SetElemType(Vector::Float, false, false);
    EXPECT_EQ(TextOf(bits), "1 2");
    EXPECT_EQ(cref(bits).Pointer(), data);
    bits->SetElemType(Vector::Triple, false, false);
    EXPECT_EQ(bits->Length(), 2u); // two bytes are left over
    bits->SetElemType(Vector::String, false, false);
    EXPECT_EQ(TextOf(bits), " ");
    EXPECT_EQ(bits->Length(), 2u);
    auto const odd = Bytes({9, 1, 0, 0, 0, 2, 0, 0, 0});
    odd->SetFirstIndex(1);
    odd->SetElemType(Vector::Int, false, false);
    EXPECT_EQ(TextOf(odd), "1 2");
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(cref(odd).Pointer()) % alignof(int), 0u);
    auto const text = Texts({"word"});
    EXPECT_THROW(text->SetElemType(Vector::Int, true, false), Exception);
    EXPECT_EQ(TextOf(text), "word");
}

TEST(ConvertFactor, RawValuesFollowTheFactor)
{
    auto const v = Ints({3, -5});
    v->EnsureFactor(2.0);
    EXPECT_EQ(TextOf(v), "2 -3");
    EXPECT_EQ(v->Factor(), 2.0);
    auto const reals = Floats({3, 1}, 0.5);
    reals->EnsureFactor(1.0);
    EXPECT_EQ(TextOf(reals), "1.5 0.5");
    auto const wide = Int64s({9007199254740993LL}, 2.0);
    wide->EnsureFactor(2.0);
    EXPECT_EQ(TextOf(wide), "9007199254740993");
    auto const bytes = Bytes({200, 3});
    EXPECT_RAISES(bytes->EnsureFactor(0.5), 512,
                  "Data overflow: either 400 or 6 does not fit into destination data type of 1 "
                  "byte, Vector of 2 elements of type byte.");
    EXPECT_RAISES(bytes->EnsureFactor(-1.0), 512,
                  "Data overflow: either -200 or -3 does not fit into destination data type of 1 "
                  "byte, Vector of 2 elements of type byte.");
    EXPECT_THROW(bytes->EnsureFactor(0.0), Exception);
    EXPECT_THROW(bytes->EnsureFactor(NAN), Exception);
    EXPECT_EQ(TextOf(bytes), "200 3");
    EXPECT_EQ(bytes->Factor(), 1.0);
    auto const text = Texts({"a"});
    text->EnsureFactor(2.0);
    EXPECT_EQ(text->Factor(), 1.0);
    Bytes({})->EnsureFactor(3.0);
    EXPECT_RAISES(Objects({})->EnsureFactor(2.0), 128,
                  "Vector::EnsureFactor() not supported for vector type: memblock");
}

TEST(ConvertFactor, CachedExtremesAreCarriedOver)
{
    auto const v = Ints({9, 10});
    v->SecondaryDouble(100, throw_always);
    v->SetSecondaryItem(102, DataItem(9.5));
    v->EnsureFactor(10.0);
    double value = 0;
    EXPECT_TRUE(v->ExistsSecondaryDouble(100, value));
    EXPECT_EQ(value, 1.0);
    EXPECT_TRUE(v->ExistsSecondaryDouble(101, value));
    EXPECT_EQ(value, 1.0);
    EXPECT_FALSE(v->ExistsSecondaryDouble(102, value));
    auto const reals = Floats({1e30f, 1});
    reals->SetSecondaryItem(100, DataItem(1e30));
    reals->SetSecondaryItem(101, DataItem(1.0));
    reals->EnsureFactor(1e-10);
    EXPECT_FALSE(reals->ExistsSecondaryDouble(100, value)); // it is infinite now
    EXPECT_TRUE(reals->ExistsSecondaryDouble(101, value));
    EXPECT_EQ(value, static_cast<double>(1e10f));
}

TEST(ConvertFactor, AScalarWarnsWhenItsValueChanges)
{
    WarningLog warnings;
    auto const x = Ints({3});
    auto const y = EnsureScalarFactor(x, 2.0, throw_always);
    EXPECT_EQ(TextOf(y), "2");
    EXPECT_EQ(TextOf(x), "3");
    ASSERT_EQ(warnings.Lines().size(), 1u);
    EXPECT_EQ(warnings.Lines()[0].first, 1048576u);
    EXPECT_EQ(warnings.Lines()[0].second,
              "Loss of precision; scalar operand changed 3 -> 4 because "
              "of nontrivial raw factor of the other operand.");
    EXPECT_EQ(EnsureScalarFactor(Ints({4}), 2.0, throw_always)->GetInt(0), 2);
    EXPECT_FALSE(EnsureScalarFactor(Bytes({200}), 0.5, throw_never));
    EXPECT_FALSE(EnsureScalarFactor(Texts({"word"}), 2.0, throw_never));
    EnsureScalarFactor(Texts({"3"}), 2.0, throw_always);
    EXPECT_EQ(warnings.Lines().size(), 1u); // a text has no factor that could change it
    EXPECT_THROW(EnsureScalarFactor(Ints({1, 2}), 2.0, throw_always), Exception);
}

TEST(ConvertFactor, WithoutAFactorIntegersTakeTheTypeOfTheirCookedRange)
{
    auto const plain = Ints({1});
    EXPECT_EQ(PMemBlock(EnsureNoRawFactor(plain)), PMemBlock(plain));
    struct Case {
        DerivedPointer<Vector> v;
        DataType type;
        char const* expected;
    };
    Case const cases[] = {
        {Ints({1000, 999, 501}, 0.01), Vector::Byte, "10 10 5"},
        {Bytes({200, 1}, 1000), Vector::UnsignedInt, "200000 1000"},
        {Bytes({200, 1}, -1), Vector::Short, "-200 -1"},
        {Bytes({200, 1}, 0.4), Vector::Byte, "80 0"},
        {Int64s({1LL << 40}, 2), Vector::Double, "2.19902e+12"},
        {Floats({1.5f}, 2), Vector::Float, "3"},
        {Ints({}, 2), Vector::Int, ""},
    };
    for (Case const& c : cases) {
        std::string const before = TextOf(c.v);
        auto const result = EnsureNoRawFactor(c.v);
        EXPECT_EQ(result->ElemType(), c.type) << c.v->GetDescription().c_str();
        EXPECT_EQ(TextOf(result), c.expected);
        EXPECT_EQ(result->Factor(), 1.0);
        EXPECT_EQ(TextOf(c.v), before);
    }
}

TEST(ConvertObjects, SimpleFormsOfObjectVectors)
{
    EXPECT_EQ(ConvertToNumericVector(Texts({"1", "-2"}))->ElemType(), Vector::Int);
    auto const reals = ConvertToNumericVector(Texts({"1", "2.5"}));
    EXPECT_EQ(reals->ElemType(), Vector::Double);
    EXPECT_EQ(TextOf(reals), "1 2.5");
    EXPECT_EQ(ConvertToNumericVector(Ints({1}))->ElemType(), Vector::Int);

    auto const flat =
        AttemptConversionToSimpleVector(Objects({Bytes({200}), Chars({-1}), Int64s({7})}));
    EXPECT_EQ(flat->ElemType(), Vector::Int64);
    EXPECT_EQ(TextOf(flat), "200 -1 7");
    auto const cooked = AttemptConversionToSimpleVector(Objects({Ints({3}, 0.5), Ints({1})}));
    EXPECT_EQ(cooked->ElemType(), Vector::Double);
    EXPECT_EQ(TextOf(cooked), "1.5 1");
    for (auto const& v : {Objects({Ints({1, 2})}), Objects({Texts({"1"})}), Objects({{}}),
                          Objects({}), Ints({1}), DerivedPointer<Vector>()})
        EXPECT_FALSE(AttemptConversionToSimpleVector(v));
}

TEST(ConvertObjects, TransposingExchangesRowsAndColumns)
{
    std::vector<PMemBlock> rows;
    for (int r = 0; r < 40; ++r)
        rows.push_back(Shorts({static_cast<short>(r), static_cast<short>(100 + r)}, 0.5));
    auto const columns = TransposeVectorOfVectors(Objects(rows));
    ASSERT_EQ(columns->Length(), 2u);
    auto const second = VectorOf(columns->ElemMemory(1));
    ASSERT_EQ(second->Length(), 40u);
    EXPECT_EQ(second->GetInt(39), 139);
    EXPECT_EQ(second->Factor(), 0.5);
    auto const mixed = TransposeVectorOfVectors(Objects({Ints({1}), Ints({3}, 0.5)}));
    EXPECT_EQ(TextOf(VectorOf(mixed->ElemMemory(0))), "1 1.5");
    EXPECT_EQ(TransposeVectorOfVectors(Objects({}))->Length(), 0u);
    EXPECT_EQ(TransposeVectorOfVectors(Objects({Ints({})}))->Length(), 0u);
    char const* const no_vectors = "Transposing is supported only for vectors of vectors.";
    EXPECT_RAISES(TransposeVectorOfVectors(Ints({1})), 128, no_vectors);
    EXPECT_RAISES(TransposeVectorOfVectors(Objects({{}})), 128, no_vectors);
    char const* const unequal = "Transposing is supported only for vectors of vectors of the same "
                                "length and same numeric type.";
    EXPECT_RAISES(TransposeVectorOfVectors(Objects({Ints({1}), Ints({1, 2})})), 128, unequal);
    EXPECT_RAISES(TransposeVectorOfVectors(Objects({Ints({1}), Bytes({1})})), 128, unequal);
    EXPECT_RAISES(TransposeVectorOfVectors(Objects({Texts({"a"})})), 128, unequal);
}

TEST(ConvertProtocol, WordsOfARequestChooseTheType)
{
    auto const v = Ints({1, 2});
    std::pair<char const*, DataType> const cases[] = {
        {"short", Vector::Short},
        {"unsigned,short", Vector::UnsignedShort},
        {"char,unsigned", Vector::Byte},
        {"bpp=24", Vector::Triple},
        {"int", Vector::Int},
        {"unsigned", Vector::UnsignedInt},
        {"floating=1", Vector::Double},
        {"floating=1,bpp=32", Vector::Float},
        {"text", Vector::String},
        {"dataitem", Vector::PolyType},
        {"elemtype=15", Vector::Int64},
        {"elemtype=byte", Vector::Byte},
        {"grey,multilayered,stretchdynamic", Vector::Int},
        {"", Vector::Int},
    };
    for (auto [words, type] : cases) {
        SCOPED_TRACE(words);
        ConvertOptions options;
        ASSERT_TRUE(v->ConvertArgs(safestringlist(words, ','), options, throw_always));
        auto const result = VectorOf(v->ConvertFrom(v, options));
        EXPECT_EQ(result->ElemType(), type);
        EXPECT_EQ(TextOf(result), "1 2");
    }
}

TEST(ConvertProtocol, FlagsKeepTheirValue)
{
    ConvertOptions options;
    ASSERT_TRUE(
        Ints({})->ConvertArgs(safestringlist("grey=0,multilayered", ','), options, throw_always));
    EXPECT_FALSE(options.GetFlag("grey", true));
    EXPECT_TRUE(options.GetFlag("multilayered", false));
}

TEST(ConvertProtocol, WrongRequestsAreRefused)
{
    auto const v = Ints({1});
    auto const request = [&](char const* words) {
        ConvertOptions options;
        v->ConvertArgs(safestringlist(words, ','), options, throw_always);
        return v->ConvertFrom(v, options);
    };
    EXPECT_RAISES(request("clearedborders"), 128, "Unrecognized conversion option: clearedborders");
    EXPECT_RAISES(request("bpp=40"), 128, "Unsupported byte depth: 5");
    EXPECT_RAISES(request("floating=1,bpp=16"), 128, "Unsupported byte depth: 2");
    EXPECT_RAISES(request("elemtype=12"), 128, "DataType id out of range: 12");
    EXPECT_RAISES(request("elemtype=11"), 128, "DataType id out of range: 11");
    EXPECT_RAISES(request("pmemory"), 128,
                  "Cowardly refusing to convert into a vector of memblocks: Vector of 1 elements "
                  "of type signed int");
    EXPECT_FALSE(v->ConvertFrom(PMemBlock(), ConvertOptions()));
    v->ClearBorders(); // a warning, nothing else
}
