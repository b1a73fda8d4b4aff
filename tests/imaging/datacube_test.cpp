#include "images.h"

#include <memblock/collections/container.h>
#include <memblock/imaging/datacube.h>

using namespace NKelmic;

namespace {

/// Planes of 2 x 1 with the elements 10 * z + x.
DerivedPointer<DataCube> Stack(int depth, DataType type = Vector::Byte, double factor = 1.0)
{
    auto cube = DataCube::Create(2, 1, depth, type, factor);
    for (unsigned int i = 0; i < cube->Length(); ++i)
        cube->SetElem(i, static_cast<int>(i / 2 * 10 + i % 2));
    return cube;
}

std::string TextOf(DerivedPointer<DataCube> const& cube)
{
    return NKelmic::TextOf(DerivedPointer<Vector>(cube));
}

constexpr char const* no_plane = "No such plane in data cube: %d";

} // namespace

TEST(DataCube, HoldsNumbersInThreeDimensions)
{
    auto const cube = DataCube::Create(2, 3, 4, Vector::Float, 0.5);
    EXPECT_EQ(cube->GetDescription(), "Datacube 2x3x4 of float's, raw factor 0.5");
    EXPECT_TRUE(cube->Conforms("DataCubeStub"));
    EXPECT_EQ(Faults(*cube) + Faults(*DataCube::Create()), "");
    for (auto [w, h, d] :
         {std::tuple{-1, 0, 0}, {65536, 65536, 65536}, {2, 0x7FFFFFFF, 0x7FFFFFFF}})
        EXPECT_THROW(DataCube::Create(w, h, d, Vector::Byte, 1.0), Exception);
    EXPECT_STREQ(cref(cube).CloneSlice(0, 2)->Class(), "vector");
}

TEST(DataCube, VerbsCreateReadAndSetItsSizes)
{
    auto const cube = DataCube::Create(2, 3, 4, Vector::Float, 0.5);
    SafeValue args[] = {DataItem(4), DataItem(3), DataItem(2), DataItem("unsigned,short")};
    EXPECT_EQ(cube->DoVerb("create", 4, args).GetMemory().GetDescription(),
              "Datacube 4x3x2 of unsigned short's, raw factor 1");
    EXPECT_THROW(cube->DoVerb("create", 3, args), Exception);
    EXPECT_EQ(cube->DoVerb("GetDimSize", 2, args).GetInt(), 4);
    cube->DoVerb("SetDimSizes", 3, args);
    EXPECT_EQ(cube->width(), 4u);
    EXPECT_EQ(cube->depth(), 2u);
}

TEST(DataCube, ItsRefusalsHaveCodeAndText)
{
    auto const cube = Stack(3), shorts = Stack(1, Vector::UnsignedShort, 0.5);
    auto const flat = DataCube::Create(4, 3, 0, Vector::Int, 1.0);
    auto const negative = Picture<short>(2, 1, {-3, 4}), plane = Picture<char>(2, 1, {3, 4});
    auto const two = Ints({1, 2}), three = Ints({1, 2, 3});
    PMemBlock const box = Container::Create();
    std::vector<Refusal> rows = {
        {[&] { DataCube::Create(1, 1, 1, Vector::String, 1.0); }, 128,
         "Element type \"string\" not supported in datacube."},
        {[&] { cube->SetElemType(Vector::PolyType, true, true); }, 128,
         "Element type \"polytype\" not supported in datacube."},
        {[&] { cube->DoVerb("GetDimSize", 3, nullptr); }, 128, "No such dimension in DataCube: 3"},
        {[&] { flat->DoVerb("create", 0, nullptr); }, 128,
         "Incorrect parameters for DataCube creation. Syntax: create(\"datacube\", width, height, "
         "depth, \"datatype\")"},
        {[&] { cube->InsertPlane(4, plane); }, 128, Text(no_plane, 4)},
        {[&] {
             cube->ReplacePlane(0, Picture<char>(1, 2, {3, 4}));
         },
         128, "The image dimensions (1x2) differ from datacube dimensions(2x1)"},
        {[&] { cube->ReplacePlane(0, nullptr); }, 128, "Not an image: none"},
        {[&] { shorts->ReplacePlane(0, negative); }, 128,
         "While preparing image plain for inclusion in the data cube (" + shorts->GetDescription() +
             "): Cannot convert vector to unsigned representation, because it contains negative "
             "values (min=-3): " +
             negative->GetDescription()},
        {[&] { cube->GetZVector(0, 1); }, 128, "Point x,y is out of range: 0, 1"},
        {[&] { cube->ReplaceZVector(2, 0, three); }, 128, "Point x=2,y=0 is outside of datacube."},
        {[&] { cube->ReplaceZVector(0, 0, nullptr); }, 128, "Not a vector: NULL"},
        {[&] { cube->ReplaceZVector(0, 0, two); }, 128, "Wrong z-vector length 2, should be 3"},
        {[&] { Set(cube, "0", DataItem(two)); }, 128, "Not an image: " + two->GetDescription()},
        {[&] { Set(cube, "0", 5); }, 128, "Not an image: 5 (integer)"},
        {[&] { Set(cube, "0,0", DataItem(box)); }, 128, "Not a vector: " + box->GetDescription()},
        {[&] { Set(cube, "-5", DataItem(plane)); }, 128, Text(no_plane, -5)},
        {[&] { Set(cube, "0,-1", DataItem(three)); }, 128,
         "Point x=0,y=-1 is outside of datacube."}};
    for (int z : {-1, 3, INT_MAX, INT_MIN}) {
        rows.push_back({[=] { cube->GetPlane(z); }, 128, Text(no_plane, z)});
        rows.push_back({[=] { cube->DeletePlane(z); }, 128, Text(no_plane, z)});
        rows.push_back({[=] { cube->ReplacePlane(z, plane); }, 128, Text(no_plane, z)});
    }
    ExpectRefusals(rows);
    EXPECT_THROW(Get(cube, "99999999999999999999"), Exception);
    EXPECT_THROW(Set(cube, "0,-1,1", 1), Exception);
    for (char const* key :
         {"3", "9,9", "0,0,9", "1,2,3,4", "0 0,0,0", "4294967296,0,0", "0,0,18446744073709551615"})
        EXPECT_FALSE(cube->SetSubItem(key, DataItem(1), throw_never)) << key;
    EXPECT_EQ(TextOf(cube), "0 1 10 11 20 21");
}

TEST(DataCube, GivesAndTakesPlanes)
{
    auto const cube = Stack(3);
    EXPECT_EQ(TextOf(cube->GetPlane(1)), "10 11");
    cube->DeletePlane(1);
    EXPECT_EQ(TextOf(cube), "0 1 20 21");
    cube->InsertPlane(2, Picture<unsigned char>(2, 1, {7, 8}));
    cube->InsertPlane(0, cube->GetTempPlane(2)); // its pixels are in the buffer of the cube
    EXPECT_EQ(TextOf(cube), "7 8 0 1 20 21 7 8");
    cube->ReplacePlane(1, cube->GetTempPlane(2));
    EXPECT_EQ(TextOf(cube), "7 8 20 21 20 21 7 8");
    EXPECT_EQ(Faults(*cube), "");
}

TEST(DataCube, IsWrittenThroughItsOwnPlanesOnly)
{
    auto const cube = Stack(2);
    DerivedPointer<DataCube> const copy(cube->Clone(true));
    EXPECT_EQ(cube->SecondaryInt(100, throw_always), 11);
    cube->GetTempPlane(0)->SetElem(0, 99);
    EXPECT_EQ(TextOf(cube), "99 1 10 11");
    EXPECT_EQ(TextOf(copy), "0 1 10 11");
    EXPECT_EQ(cube->SecondaryInt(100, throw_always), 99);

    auto plane = cref(cube).GetTempPlane(1);
    EXPECT_EQ(cref(plane).BytePointer(), cref(cube).BytePointer() + 2);
    plane->SetElem(0, 5);
    EXPECT_EQ(TextOf(cube), "99 1 10 11");
    plane = cref(copy).GetTempPlane(1);
    copy->SetElem(2, 6);
    EXPECT_EQ(TextOf(plane), "10 11");
}

TEST(DataCube, BringsPlanesToItsTerms)
{
    auto const cube = Stack(1, Vector::UnsignedShort, 0.5);
    cube->ReplacePlane(0, Picture<unsigned char>(2, 1, {3, 4}));
    EXPECT_EQ(TextOf(cube), "6 8");
    auto const mask = Picture<unsigned char>(2, 1, {0, 1});
    mask->SetType(Image::mask);
    cube->ReplacePlane(0, mask);
    EXPECT_EQ(TextOf(cube), "0 2");
    auto const close = Picture<unsigned short>(2, 1, {3, 4}, 0.5 + 1e-13);
    EXPECT_EQ(cube->ConformingPlane(close).Pointer(), close.Pointer());
}

TEST(DataCube, ReadsAndWritesAlongZ)
{
    auto const cube = Stack(3, Vector::Short, 2.0);
    EXPECT_EQ(NKelmic::TextOf(cube->GetZVector(1, 0)), "1 11 21");
    EXPECT_EQ(cube->GetZVector(1, 0)->Factor(), 2.0);
    cube->ReplaceZVector(0, 0, Doubles({1.6, 2.0, 3.0}));
    EXPECT_EQ(TextOf(cube), "2 1 2 11 3 21");
    EXPECT_THROW(cube->ReplaceZVector(0, 0, Texts({"1", "x", "3"})), Exception);
    EXPECT_EQ(TextOf(cube), "2 1 2 11 3 21");
    auto const flat = DataCube::Create(4, 3, 0, Vector::Int, 1.0);
    EXPECT_EQ(flat->GetZVector(1, 1)->Length(), 0u);
    flat->ReplaceZVector(1, 1, Ints({}));
}

TEST(DataCube, ListsElementsOfOneValue)
{
    auto const cube = Stack(3, Vector::UnsignedShort);
    auto const list = [](auto const& c, auto value) {
        return NKelmic::TextOf(DerivedPointer<Vector>(c->GetMaskVector(value)));
    };
    cube->SetElem(5, 1);
    EXPECT_EQ(list(cube, 1), "1 5");
    EXPECT_EQ(list(cube, 0.6), "1 5");
    EXPECT_EQ(list(cube, -1), "");
    EXPECT_EQ(list(cube, 1e300), "");
    EXPECT_EQ(list(cube, 0.0 / 0.0), "");
    EXPECT_TRUE(cube->GetMaskVector(1)->Conforms("datacubemask"));
    auto const floats = Stack(1, Vector::Float);
    floats->SetElem(0, 0.5);
    EXPECT_EQ(list(floats, 0.5), "0");
    EXPECT_EQ(list(Stack(1, Vector::Triple), 1.4), "1");
}

TEST(DataCube, KeysOfOneTwoAndThreeNumbersArePlanesColumnsAndElements)
{
    auto const cube = Stack(3);
    for (auto const& [key, text] :
         {std::pair{"depth", "3"}, {"2", "20 21"}, {"1,0", "1 11 21"}, {"mask", "1"}})
        EXPECT_EQ(GetText(cube, key), text) << key;
    EXPECT_TRUE(Set(cube, " 1 , 0,2", 5));
    EXPECT_TRUE(Set(cube, "0,0", DataItem(Ints({7, 8, 9}))));
    EXPECT_TRUE(Set(cube, "1", DataItem(Picture<char>(2, 1, {3, 4}))));
    EXPECT_EQ(TextOf(cube), "7 1 3 4 9 5");
}
