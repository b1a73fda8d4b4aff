#include <memblock/vector/vector.h>

#include <support/raises.h>
#include <support/testblock.h>
#include <support/vectors.h>

#include <memblock/base/alloc.h>
#include <memblock/core/memblockimpl.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numeric>

using namespace NKelmic;

namespace {

constexpr DataType all_types[] = {
#define MEMBLOCK_ROW(NAME, ID, T, TEXT) Vector::NAME,
    MEMBLOCK_ELEM_TYPES(MEMBLOCK_ROW)
#undef MEMBLOCK_ROW
};

int released = 0;
void CountRelease(void*)
{
    ++released;
}
void CountReleaseIn(void*, void* counter)
{
    ++*static_cast<int*>(counter);
}

} // namespace

TEST(Vector, ANewOneHoldsZerosOrEmptyObjectsAndIsConsistent)
{
    for (DataType type : all_types) {
        SCOPED_TRACE(Vector::TypeToString(type));
        auto const v = Vector::Create(3, type, false, 0, 1.0);
        EXPECT_EQ(v->RefCount(), 1);
        EXPECT_EQ(v->Length(), 3u);
        EXPECT_EQ(v->ElemType(), type);
        EXPECT_EQ(v->ElemSize(), Vector::SizeOf(type));
        safestring message;
        EXPECT_EQ(v->Consistent(message, true), type != Vector::PMemory) << message.c_str();
        if (IsInSet<NumericTypes>(type)) {
            EXPECT_EQ(TextOf(v), "0 0 0");
        }
    }
    EXPECT_EQ(Vector::Create()->ElemType(), Vector::Int);
    EXPECT_EQ(Vector::Create()->Length(), 0u);
    EXPECT_RAISES(Vector::Create(0, Vector::Double, true, 0, 1.0)->Elem(0), 128,
                  "Vector index out of bounds (0): 0");
}

TEST(Vector, ALengthBeyondIntPositionsIsRefusedBeforeAnythingIsAllocated)
{
    char const* const text = "Vector length 2147483648 is above the limit of 2147483647 elements.";
    unsigned long const length = 0x80000000;
    char byte = 0;
    EXPECT_RAISES(Vector::Create(length, Vector::Byte, true, 0, 1.0), 256, text);
    EXPECT_RAISES(Vector::Create(length, Vector::String, true, 0, 1.0), 256, text);
    EXPECT_RAISES(Vector::Create(length - 5, Vector::Byte, true, 5, 1.0), 256, text);
    EXPECT_RAISES(Vector::Create(length, Vector::Byte, &byte, CountRelease, 0, 1.0), 256, text);
    auto const v = Ints({1});
    EXPECT_RAISES(v->ResizeVector(length, true, true), 256, text);
    EXPECT_RAISES(v->ShiftVector(0x7FFFFFFF), 256, text);
    EXPECT_EQ(TextOf(v), "1");
}

TEST(Vector, ElementsAheadOfIndexZeroComeBackWithoutACopy)
{
    auto const v = Vector::Create(3, Vector::Short, true, 2, 1.0);
    for (int i = 0; i < 3; ++i)
        v->SetElem(i, i + 1);
    void const* const first = cref(v).Pointer();
    v->SetFirstIndex(-2);
    EXPECT_EQ(TextOf(v), "0 0 1 2 3");
    v->SetFirstIndex(3);
    EXPECT_EQ(TextOf(v), "2 3");
    EXPECT_EQ(cref(v).Pointer(), static_cast<short const*>(first) + 1);
    EXPECT_RAISES(v->SetFirstIndex(3), 128, "Vector index out of bounds (2): 3");
    EXPECT_RAISES(v->SetFirstIndex(-4), 128, "Vector index out of bounds (2): -4");
    EXPECT_RAISES(Vector::Create(3, Vector::String, true, 1, 1.0), 4096,
                  "Operation not supported: VC139");
}

TEST(Vector, AForeignBufferIsReadInPlaceAndReleasedOnce)
{
    released = 0;
    int in_context = 0;
    {
        unsigned short pixels[4] = {7, 8, 9, 10};
        auto const v = Vector::Create(3, Vector::UnsignedShort, pixels, CountRelease, 1, 1.0);
        EXPECT_EQ(TextOf(v), "8 9 10");
        EXPECT_EQ(cref(v).Pointer(), pixels + 1);
        auto const clone = VectorOf(v->Clone(true));
        auto const other =
            Vector::Create(4, Vector::UnsignedShort, pixels, CountReleaseIn, &in_context, 0, 1.0);
        EXPECT_EQ(cref(clone).Pointer(), pixels + 1);
        EXPECT_EQ(released + in_context, 0);
    }
    EXPECT_EQ(released, 1);
    EXPECT_EQ(in_context, 1);
}

TEST(Vector, CreateFromGivesOneElementOfTheKind)
{
    auto const text = Vector::CreateFrom("abc");
    auto const object = Vector::CreateFrom(PMemBlock(text));
    std::tuple<DerivedPointer<Vector>, DataType, char const*> const cases[] = {
        {Vector::CreateFrom(-4), Vector::Int, "-4"},
        {Vector::CreateFrom(0.5), Vector::Double, "0.5"},
        {text, Vector::String, "abc"},
        {Vector::CreateFrom(DataItem(3)), Vector::PolyType, "3"},
    };
    for (auto const& [v, type, expected] : cases) {
        EXPECT_EQ(v->ElemType(), type);
        EXPECT_EQ(TextOf(v), expected);
        EXPECT_EQ(v->Factor(), 1.0);
    }
    EXPECT_EQ(object->ElemMemory(0), PMemBlock(text));
}

TEST(Vector, TakesOverTheBytesOfATextOrACarrierWithoutACopy)
{
    safestring text(100, 'x');
    void const* const bytes = text.data();
    auto const v = Vector::CreateFromSafeString(text);
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(cref(v).Pointer(), bytes);
    EXPECT_EQ(v->Length(), 100u);
    EXPECT_EQ(v->GetInt(99), 'x');
    safestring tiny = "ab"; // lies inside the string object
    EXPECT_EQ(TextOf(Vector::CreateFromSafeString(tiny)), "97 98");

    Carrier carrier;
    carrier.data = mb_malloc(3);
    carrier.size = 3;
    carrier.release = mb_free;
    std::memcpy(carrier.data, "\1\2\3", 3);
    EXPECT_EQ(TextOf(Vector::CreateFrom(carrier)), "1 2 3");
    EXPECT_EQ(carrier.data, nullptr);
}

TEST(Vector, MakeSequenceCountsOrKeepsTheTexts)
{
    std::tuple<char const*, char const*, DataType, char const*> const cases[] = {
        {"5", "2", Vector::Int, "5 4 3 2"},     {"-1", "1", Vector::Int, "-1 0 1"},
        {"0x10", "0X11", Vector::Int, "16 17"}, {"3", "3", Vector::Int, "3"},
        {"a", "2", Vector::String, "a 2"},      {"1", "2x", Vector::String, "1 2x"},
        {"1", "", Vector::String, "1 "},
    };
    for (auto [from, to, type, expected] : cases) {
        SCOPED_TRACE(from);
        auto const v = Vector::MakeSequence(from, to);
        EXPECT_EQ(v->ElemType(), type);
        EXPECT_EQ(TextOf(v), expected);
    }
    EXPECT_RAISES(Vector::MakeSequence("-2147483648", "2147483647"), 256,
                  "Vector length 4294967296 is above the limit of 2147483647 elements.");
}

TEST(Vector, CanBeCastBetweenTypesOfOneWidthButNeverToFloatOrObjects)
{
    std::tuple<DataType, DataType, bool> const cases[] = {
        {Vector::Int, Vector::UnsignedInt, true},
        {Vector::Int64, Vector::Double, true},
        {Vector::Float, Vector::Float, true},
        {Vector::Float, Vector::Int, false},
        {Vector::Int, Vector::Float, false},
        {Vector::Byte, Vector::Char, true},
        {Vector::Byte, Vector::Short, false},
        {Vector::Int64, Vector::PMemory, false},
        {Vector::PMemory, Vector::PMemory, true},
        {Vector::Double, Vector::String, false},
        {Vector::String, Vector::PolyType, false},
        {Vector::Double, Vector::NoType, false},
        {Vector::UnsignedInt64, Vector::VoidStar, true}};
    for (auto [from, to, expected] : cases)
        EXPECT_EQ(Vector::Create(1, from, true, 0, 1.0)->CanBeCast(to), expected)
            << Vector::TypeToString(from) << " as " << Vector::TypeToString(to);
}

TEST(Vector, TypedPointersRefuseForeignTypesInTheirOwnWords)
{
    auto const v = Vector::Create(2, Vector::Float, true, 0, 1.0);
    char const* const tail = "Vector of 2 elements of type float";
    EXPECT_RAISES(v->IntPointer(0), 128, safestring("Cannot cast data to Int type: ") + tail);
    EXPECT_RAISES(cref(v).TriplePointer(0), 128,
                  safestring("Cannot cast data to Triple type: ") + tail);
    EXPECT_RAISES(v->VoidStarPointer(0), 128,
                  safestring("Cannot cast data array into requested type: ") + tail);
    EXPECT_RAISES(v->TypedPointer<int>(), 128,
                  safestring("Cannot cast data array into requested type: ") + tail);
    EXPECT_EQ(v->FloatPointer(1) - v->FloatPointer(), 1);
}

TEST(Vector, ADeepCloneCopiesWhatItHoldsAndAShallowOneShares)
{
    auto const inner = Ints({1});
    auto const v = Objects({inner, PMemBlock()});
    EXPECT_EQ(VectorOf(v->Clone(true))->ElemMemory(0), PMemBlock(inner));
    auto const deep = VectorOf(v->Clone(false));
    EXPECT_FALSE(deep->ElemMemory(0) == PMemBlock(inner));
    EXPECT_EQ(TextOf(VectorOf(deep->ElemMemory(0))), "1");
    EXPECT_FALSE(deep->ElemMemory(1));
    auto const plain = Ints({1});
    EXPECT_EQ(cref(plain).Pointer(), cref(VectorOf(plain->Clone(true))).Pointer());
    EXPECT_NE(cref(plain).Pointer(), cref(VectorOf(plain->Clone(false))).Pointer());

    auto const texts = Texts({"short", "a text too long to stay inside the string object"});
    auto const copy = VectorOf(texts->Clone(true));
    copy->SetElem(0, "other");
    EXPECT_EQ(texts->GetString(0), "short");
    EXPECT_EQ(copy->GetString(1), texts->GetString(1));
}

TEST(Vector, ADelayedInitializationRunsOnceAndFillsTheLengthItWasMadeFor)
{
    static int runs;
    struct Counting : DelayedInitializer {
        void Initialize(TypedChunk& chunk) override
        {
            ++runs;
            std::iota(static_cast<int*>(chunk.Data()),
                      static_cast<int*>(chunk.Data()) + chunk.Length(), 1);
        }
        DelayedInitializer* Clone() const override { return new Counting; }
    };
    auto const pending = [] {
        TypedChunk chunk(3, Vector::Int, MemChunk(12), 0);
        chunk.SetDelayed(new Counting);
        return Vector::Create(chunk, 1.0);
    };
    runs = 0;
    auto const read = pending();
    auto const clone = VectorOf(read->Clone(true));
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(TextOf(read), "1 2 3");
    EXPECT_EQ(runs, 1);
    clone->SetElem(0, 9);
    EXPECT_EQ(TextOf(clone), "9 2 3");
    EXPECT_EQ(TextOf(read), "1 2 3");

    int const order[] = {2, 0};
    std::pair<char const*, std::function<void(Vector&)>> const changes[] = {
        {"1 2 3 0 0", [](Vector& v) { v.ResizeVector(5, true, true); }},
        {"0 0 0 0 0", [](Vector& v) { v.ResizeVector(5, false, true); }},
        {"1 2", [](Vector& v) { v.ResizeVector(2, true, true); }},
        {"0 1 2 3", [](Vector& v) { v.ShiftVector(1); }},
        {"1 2 3 9", [](Vector& v) { v.Append(Ints({9})); }},
        {"3 1 0", [&](Vector& v) { v.Rearrange(order, 2, 3, throw_always); }},
        {"2 3", [](Vector& v) { v.SetFirstIndex(1); }},
        {"0 0 0", [](Vector& v) { v.Clear(); }},
    };
    for (auto const& [expected, change] : changes) {
        auto const v = pending();
        change(*v.Pointer());
        EXPECT_EQ(TextOf(v), expected);
    }
}

TEST(Vector, ConformsByContentWithoutRegardToCase)
{
    auto const v = Ints({1});
    EXPECT_TRUE(v->Conforms("VECTOR"));
    EXPECT_TRUE(v->Conforms("memblock"));
    EXPECT_FALSE(v->Conforms("image"));
    EXPECT_FALSE(v->Conforms("color_data"));
    EXPECT_FALSE(Objects({v, v, v})->Conforms("color_data"));
    EXPECT_FALSE(IsVectorOfColorPlanes(PMemBlock()));
}

TEST(Vector, EqualityTakesFactorTypeLengthAndBytes)
{
    auto const v = Ints({1, 2});
    EXPECT_TRUE(*v == *Ints({1, 2}));
    EXPECT_TRUE(*v == *Ints({1, 2}, 1.0 + 2.3e-16));
    EXPECT_FALSE(*v == *Ints({1, 2}, 1.0 + 1e-15));
    EXPECT_FALSE(*Ints({1}, NAN) == *Ints({1}, NAN));
    EXPECT_FALSE(*v == *Ints({1, 3}));
    EXPECT_FALSE(*v == *UInts({1, 2}));
    EXPECT_FALSE(*v == *Ints({1}));
}

TEST(Vector, DescriptionTellsLengthTypeAndFactor)
{
    EXPECT_STREQ(Ints({1, 2})->GetDescription().c_str(), "Vector of 2 elements of type signed int");
    EXPECT_STREQ(Bytes({}, 0.25)->GetDescription().c_str(),
                 "Vector of 0 elements of type byte, raw factor 0.25");
}

TEST(Vector, ConsistencyFindsNegativeFactorsAndMissingObjects)
{
    safestring message;
    EXPECT_TRUE(Ints({})->Consistent(message, true)) << message.c_str();
    EXPECT_FALSE(Ints({1}, -1.0)->Consistent(message, true));
    EXPECT_EQ(message, "Raw factor is negative. ");
    message.clear();
    auto const v = Objects({Ints({1}), PMemBlock(), Ints({2}, -2.0)});
    EXPECT_TRUE(v->Consistent(message, false));
    EXPECT_FALSE(v->Consistent(message, true));
    EXPECT_EQ(message, "Element [1] is NULL memblock pointer. Raw factor is negative. ");
}

TEST(Vector, AChangeDropsWhatWasDerivedAndATypeChangeDropsTheCacheObject)
{
    auto const v = Ints({1, 2});
    DataItem item;
    std::pair<char const*, std::function<void()>> const changes[] = {
        {"double", [&] { v->SetElem(0, 1.0); }},
        {"text", [&] { v->SetElem(0, "3"); }},
        {"64 bit", [&] { v->SetElem(0, 3LL); }},
        {"resize", [&] { v->ResizeVector(3, true, true); }},
        {"fill", [&] { v->Fill(DataItem(5)); }},
        {"clear", [&] { v->Clear(); }},
        {"insert", [&] { v->Insert(0, DataItem(1)); }},
        {"erase", [&] { v->Erase(0, 1); }},
        {"shift", [&] { v->ShiftVector(1); }},
        {"append", [&] { v->Append(Ints({4})); }},
        {"factor", [&] { v->SetFactor(1.0); }},
        {"chunk", [&] { v->SetTypedChunk(Ints({1})->Chunk()); }},
    };
    for (auto const& [name, change] : changes) {
        SCOPED_TRACE(name);
        v->SetSecondaryItem(100, DataItem(1));
        v->SetSecondaryItem(10500, DataItem(1));
        change();
        EXPECT_FALSE(v->ExistsSecondaryItem(100, item));
        EXPECT_TRUE(v->ExistsSecondaryItem(10500, item));
    }
    v->SetTypedChunk(Bytes({1})->Chunk());
    EXPECT_EQ(v->PimplIfAny(), nullptr);
    EXPECT_NE(dynamic_cast<VectorImpl<unsigned char>*>(v->Pimpl()), nullptr);
    v->SetElem(0, 9);
    EXPECT_EQ(Vector::Create(1, Vector::Int, true, 0, 1.0)->PimplIfAny(), nullptr);
    EXPECT_EQ(dynamic_cast<VectorImpl<int>*>(Texts({"a"})->Pimpl()), nullptr);
}

TEST(Vector, MemoryOfAnotherVectorIsSeenThroughTheOwnTypeAndHandedOver)
{
    auto const source = UInts({1, 0x01020304});
    auto const bytes = Vector::Create(8, Vector::Byte, true, 0, 1.0);
    EXPECT_TRUE(bytes->UseMemoryOf(source));
    EXPECT_EQ(TextOf(bytes), "1 0 0 0 4 3 2 1");
    auto const longer = Vector::Create(9, Vector::Byte, true, 0, 1.0);
    EXPECT_RAISES(longer->UseMemoryOf(source), 128,
                  "MemChunk too small (8 bytes) to contain 9*1+0 bytes of data.");
    EXPECT_RAISES(Texts({"a"})->UseMemoryOf(source), 128,
                  "Cannot cast data array into requested type: Vector of 2 elements of type "
                  "unsigned int");
    auto const target = Vector::Create(1, Vector::UnsignedInt, true, 0, 1.0);
    void const* const data = cref(source).Pointer();
    source->TransferOwnerShip(target);
    EXPECT_EQ(TextOf(target), "1");
    EXPECT_EQ(cref(target).Pointer(), data);
    EXPECT_EQ(source->Length(), 0u);
    EXPECT_EQ(source->ElemType(), Vector::Byte);
    target->TransferOwnerShip(target);
    EXPECT_EQ(TextOf(target), "1");
}

TEST(Vector, RealToPixelRoundsAsTheModeTells)
{
    auto const v = Ints({1}, 0.5);
    EXPECT_EQ(v->RealToPixel(1.3, rounding_floor), 2);
    EXPECT_EQ(v->RealToPixel(1.3, rounding_ceil), 3);
    EXPECT_EQ(v->RealToPixel(1.25, rounding_nearest), 3);
    EXPECT_EQ(v->RealToPixel(-1.3, rounding_nearest), -2); // truncated, on purpose
    EXPECT_EQ(v->RealToPixel(1e300, rounding_floor), INT32_MIN);
    EXPECT_RAISES(v->RealToPixel(1.0, rounding_t(4)), 128,
                  "Vector::RealToPixel(): rounding mode not supported: 4");
}

TEST(Vector, AScalarIsTheCookedElementOrAllOfThemAsText)
{
    EXPECT_EQ(Ints({3})->DoVerb("Scalar", 0, nullptr).GetInt(), 3);
    EXPECT_EQ(Ints({3}, 0.5)->SecondaryDouble(3, throw_always), 1.5);
    EXPECT_EQ(Ints({3, 4}, 0.5)->DoVerb("scalar", 0, nullptr).GetString(), "1.5,2");
    EXPECT_TRUE(Ints({})->DoVerb("scalar", 0, nullptr).IsUndefined());
    auto const v = Vector::Create(1, Vector::PMemory, true, 0, 1.0);
    v->SetElem(0, PMemBlock(v));
    EXPECT_TRUE(v->DoVerb("scalar", 0, nullptr).IsUndefined());
    v->SetElem(0, PMemBlock());
}
