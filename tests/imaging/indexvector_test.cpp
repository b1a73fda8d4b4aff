#include "images.h"

#include <memblock/imaging/datacube.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>

using namespace NKelmic;

using TargetData = IndexVector::TargetData;

namespace {

std::string DimsOf(TargetData const& target)
{
    std::string text;
    for (unsigned int size : target.dims)
        text += std::to_string(size) + " ";
    return text + target.descr.c_str();
}

} // namespace

TEST(IndexVector, ItsTargetHasTheSizesAndTheDescriptionOfWhatWasGiven)
{
    auto const cube = DataCube::Create(2, 3, 4, Vector::Byte, 1.0);
    safestring const cube_text = cube->GetDescription();
    std::pair<TargetData, std::string> const cases[] = {
        {IndexVector::Create()->GetTargetData(), "0 0 Image of 0x0 pixels."},
        {IndexVector::Create(1, DerivedPointer<Vector>())->GetTargetData(), "1 1 Image 1x1"},
        {IndexVector::Create(UInts({3}), cube)->GetTargetData(), cube_text.c_str()}, // no sizes
        {IndexVector::Create(1, cube)->GetTargetData(), std::string("2 3 4 ") + cube_text.c_str()},
        {TargetData(1, 0), "0 Vector of 0 elements"}, // no null pointer
        {TargetData(4, 1, 2, 3, 4), "1 2 3 4 4-cube 1x2x3x4"}};
    for (auto const& [target, text] : cases)
        EXPECT_EQ(DimsOf(target), text);
    for (int const rank : {-1, 2000000000})
        EXPECT_THROW(TargetData(rank, 0), Exception);
}

TEST(IndexVector, IsTheMaskOfAnImageOrOfACubeByItsTarget)
{
    auto const cube = DataCube::Create(2, 3, 4, Vector::Byte, 1.0);
    auto const voxels = IndexVector::Create(2, cube);
    EXPECT_TRUE(voxels->Conforms("datacubemask"));
    EXPECT_FALSE(voxels->Conforms("mask"));
    EXPECT_TRUE(IndexVector::Create()->Conforms("mask"));
    EXPECT_EQ(voxels->GetDescription(),
              "Indexvector of 2 indices into: Datacube 2x3x4 of byte's, raw factor 1");
    EXPECT_EQ(Pixels({1})->GetDescription(), "Mask for 5x4 images, in vector representation.");
}

TEST(IndexVector, ItsRefusalsHaveCodeAndText)
{
    auto const cube = DataCube::Create(2, 3, 4, Vector::Byte, 1.0);
    auto const voxels = IndexVector::Create(2, cube);
    auto const line = IndexVector::Create(UInts({1}), TargetData(1, 9));
    auto const region = Pixels({1}), other = Pixels({3}, 4, 5), no_width = Pixels({1}, 0, 4);
    auto const stencil = Picture<unsigned int>(1, 1, {2000000000u});
    ConvertOptions options;
    options.SetValue("representation", "words");
    unsigned int w = 7, h = 7;
    int dst[2] = {};
    ExpectRefusals({
        {[&] { voxels->GetImageDimensions(w, h, throw_always); }, 512,
         "IndexVector target is not an image, cannot return image dimensions: " +
             cube->GetDescription()},
        {[&] { line->GetMaskImage(); }, 128,
         "This is not an IndexVector into an image : Indexvector of 1 indices into: Vector of 9 "
         "elements"},
        {[&] { region->Append(other); }, 128,
         "Incompatible targets: " + region->GetDescription() + " AND " + other->GetDescription()},
        {[&] { Set(region, "target_data", 5); }, 128,
         "Setting target_data: this is not a vector: 5 (integer)"},
        {[&] { region->ConvertFrom(region, options); }, 4096,
         "Unsupported mask representation: words"},
        {[&] { stencil->GetStencilVector(); }, 256,
         "Too many objects (2000000000) for a list of the pixels of: Data image 1x1, 32bpp "
         "(unsigned int), raw factor 1"},
    });
    EXPECT_EQ(w, 0u);
    EXPECT_EQ(region->Length(), 1u);
    for (std::function<void()> const& action : std::vector<std::function<void()>>{
             [&] { IndexVector::Create(Ints({-1}), 5, 4); },
             [&] { Pixels({1}, 65536, 65536)->GetMaskImage(); }, [&] { no_width->GetXVector(); },
             [&] { indexvector_clearborders(no_width); },
             [&] { IndexVector2ShiftVector(no_width, 100); },
             [&] { index_convert_2images_const_center(dst, 2, 0, 3, 5, 5, dst); }})
        EXPECT_THROW(action(), Exception);
}

TEST(IndexVector, TakesIndicesFromAnyNumbers)
{
    auto const cooked = IndexVector::Create(Bytes({1, 2}, 3.0), 5, 4);
    EXPECT_EQ(TextOf(cooked), "3 6");
    EXPECT_EQ(cooked->ElemType(), Vector::UnsignedInt);
    auto const own = UInts({4, 5});
    EXPECT_EQ(cref(IndexVector::Create(own, 5, 4)).UnsignedIntPointer(),
              cref(own).UnsignedIntPointer());
    auto* const block = static_cast<unsigned int*>(mb_malloc(3 * sizeof(unsigned int)));
    block[0] = 8, block[1] = 2, block[2] = 3;
    auto const adopted = IndexVector::Create(2, block, 1, mb_free, 5, 4);
    EXPECT_EQ(TextOf(adopted), "2 3");
    EXPECT_EQ(TextOf(VectorOf(adopted->Clone(false))), "2 3");
}

TEST(IndexVector, DrawsTheRegionAndNothingBesideIt)
{
    auto const image = Pixels({1, 3, 4, 0xFFFFFFFF}, 2, 2)->GetMaskImage();
    EXPECT_EQ(TextOf(image), "0 1 0 1");
    EXPECT_EQ(image->Type(), Image::mask);
    EXPECT_EQ(Pixels({1, 2}, 0, 4)->GetMaskImage()->Length(), 0u);
}

TEST(IndexVector, GivesColumnsAndRowsAndLeavesOutTheFrame)
{
    auto const region = Pixels({7, 12});
    EXPECT_EQ(TextOf(region->GetXVector()), "2 2");
    EXPECT_EQ(TextOf(region->GetYVector()), "1 2");
    EXPECT_EQ(indexvector_clearborders(Pixels({0, 1, 2, 3}, 2, 2))->Length(), 0u);
    auto const inner = indexvector_clearborders(Pixels({0, 6, 9, 13}));
    EXPECT_EQ(TextOf(inner), "6 13");
    EXPECT_EQ(DimsOf(inner->GetTargetData()), "5 4 Image of 5x4 pixels.");
}

TEST(IndexVector, IsAppendedToWithinOneTarget)
{
    auto const region = Pixels({1});
    region->Append(Doubles({2.0}));
    EXPECT_EQ(region->ElemType(), Vector::UnsignedInt);
    region->Append(Pixels({3}));
    EXPECT_EQ(TextOf(region), "1 2 3");
    EXPECT_EQ(TextOf(cref(region).CloneSlice(1, 2)), "2");
}

TEST(IndexVector, ShiftsAndMovesBetweenImages)
{
    auto const kernel = Pixels({0, 1, 2, 3, 4, 5, 6, 7, 8}, 3, 3);
    EXPECT_EQ(TextOf(IndexVector2ShiftVector(kernel, 100)), "-101 -100 -99 -1 0 1 99 100 101");
    int const src[] = {0, 4};
    int dst[2] = {};
    index_convert_2images_const_center(src, 2, 3, 3, 5, 5, dst);
    EXPECT_EQ(dst[0], 6);
    EXPECT_EQ(dst[1], 12);
    index_convert_2images_const_center(nullptr, 0, 0, 0, 0, 0, nullptr);
}

TEST(IndexVector, KeysSetItsTargetAndItsFactorStays)
{
    auto const region = Pixels({1, 7});
    EXPECT_EQ(GetText(region, "area") + GetText(region, "imageheight"), "24");
    std::pair<char const*, SafeValue> const keys[] = {
        {"factor", 2.0},        {"@Factor", 2.0},       {"target_descr", "here"},
        {"target_rank", 3},     {"target_dimsize2", 9}, {"target_dimsize3", 9}, // no such one
        {"target_dimsize-1", 9}};
    for (auto const& [key, value] : keys)
        EXPECT_TRUE(Set(region, key, value)) << key;
    EXPECT_EQ(region->Factor(), 1.0);
    EXPECT_EQ(DimsOf(region->GetTargetData()), "0 0 9 here");
    EXPECT_TRUE(region->GetSubItem("imagewidth", throw_never).IsUndefined());
    EXPECT_TRUE(Set(region, "target_data", DataItem(Bytes({2, 3}, 2.0))));
    EXPECT_EQ(DimsOf(region->GetTargetData()), "4 6 Image 4x6");
    for (int rank : {-1, 256, 2000000000})
        EXPECT_FALSE(region->SetSubItem("target_rank", DataItem(rank), throw_never));
    EXPECT_EQ(region->TargetRank(), 2);
    EXPECT_TRUE(
        GetText(region, "!").starts_with("area,image,vector,imagewidth,imageheight,x,y,@class,"));
}

TEST(IndexVector, AnIndexThatNoIntHoldsIsAFaultAndOneBeyondTheTargetIsNot)
{
    EXPECT_TRUE(Faults(*Pixels({1, 3000000000u}))
                    .starts_with("IndexVector contains indices outside of target: 3e+09. "));
    EXPECT_EQ(Faults(*Pixels({100})), "");
}

TEST(IndexVector, ConvertsToAListAnImageOrAPlainVector)
{
    auto const region = Pixels({6, 9});
    auto const convert = [&](char const* words) {
        return VectorOf(region->Convert(safestringlist(safestring(words), ','), "", throw_always));
    };
    EXPECT_EQ(convert("vector").Pointer(), region.Pointer());
    EXPECT_EQ(TextOf(convert("clearedborders")), "6");
    EXPECT_EQ(convert("image,clearedborders")->GetDescription(),
              "Data image 5x4, 16bpp (unsigned short), raw factor 1");
    EXPECT_EQ(cref(VectorOf(region->ConvertTo("vector"))).Pointer(),
              static_cast<Vector const&>(cref(region)).Pointer());
}

TEST(IndexVector, IsAPlainVectorOnceItsElementsAreNoIndices)
{
    EXPECT_STREQ(Pixels({6, 9})->op('=', UInts({6}), {})->Class(), "vector");
    EXPECT_STREQ(Pixels({6, 9})->op('&', UInts({6}), {})->Class(), "indexvector");
    EXPECT_STREQ(Point::Create(3, 4)->op('>', Ints({3}), {})->Class(), "vector");
    op_options options;
    options.SetValue("image_width", 5);
    options.SetValue("image_height", 4);
    auto const points = Ints({1, 2})->op('p', Ints({1, 2}), options);
    EXPECT_EQ(TextOf(VectorOf(points)), "6 12");
    EXPECT_TRUE(points->Conforms("mask"));
}

TEST(IndexVector, KeepsItsElementType)
{
    for (DerivedPointer<IndexVector> const& v :
         {Pixels({6, 9}), DerivedPointer<IndexVector>(IntervalVector::Create(2, Pixels({6, 9}))),
          Pixels({})}) {
        auto const before = TextOf(*v);
        safestring const refusal = "Conversion not supported: " + v->GetDescription();
        for (char const* type : {"string", "double", "int", "byte", "memblock"})
            EXPECT_RAISES(Set(v, "elemtype", type), 128, refusal);
        EXPECT_RAISES(v->SetElemType(Vector::Byte, false, true), 128, refusal);
        Set(v, "elemtype", "unsigned,int");
        EXPECT_EQ(TextOf(*v), before);
        EXPECT_EQ(Faults(*v), "");
    }
    auto const texts = Pixels({6});
    texts->SetTypedChunk(Texts({"six"})->Chunk());
    EXPECT_EQ(Faults(*texts),
              "Cannot cast data to UnsignedInt type: Mask for 5x4 images, in vector "
              "representation.");
}

TEST(IndexVector, ListsPixelsOfAMaskInAscendingOrder)
{
    std::vector<unsigned char> pixels(333);
    std::vector<unsigned int> expected;
    for (unsigned int i = 0; i < pixels.size(); ++i) {
        pixels[i] = i < 128 ? 1 : i < 192 ? 0 : i * i % 7 == 2; // full, empty and mixed blocks
        if (pixels[i])
            expected.push_back(i);
    }
    auto const image = Picture<unsigned char>(37, 9, pixels);
    EXPECT_EQ(ElementsOf<unsigned int>(DerivedPointer<Vector>(image->GetMaskVector())), expected);
    std::vector<double> wide(pixels.begin(), pixels.end());
    auto const list = Picture<double>(37, 9, wide)->GetMaskVector();
    EXPECT_EQ(ElementsOf<unsigned int>(DerivedPointer<Vector>(list)), expected);
    EXPECT_EQ(list->GetDescription(), "Mask for 37x9 images, in vector representation.");
    std::vector<unsigned int> found(wide.size() + 8);
    found.resize(getmaskvector_tmpl(wide.data(), 333, found.data()));
    EXPECT_EQ(found, expected);
    EXPECT_EQ(Image::Create(0, 0, Vector::Byte, 1.0)->GetMaskVector()->Length(), 0u);
}

TEST(IndexVector, GroupsPixelsByTheirLabels)
{
    auto const check = []<class T>(std::vector<T> const& pixels, unsigned int k) {
        std::vector<unsigned int> start(k + 12);
        std::vector<unsigned int> counts(k + 1);
        unsigned int* indices = nullptr;
        find_point_address3(static_cast<unsigned int>(pixels.size()), pixels.data(), k,
                            counts.data(), start.data(), &indices);
        std::vector<unsigned int> expected;
        for (unsigned int v = 1; v <= k; ++v) {
            ASSERT_EQ(start[v], expected.size()) << v;
            for (unsigned int i = 0; i < pixels.size(); ++i)
                if (pixels[i] == v)
                    expected.push_back(i);
            ASSERT_EQ(counts[v], expected.size() - start[v]) << v;
        }
        EXPECT_EQ(start[k + 1], expected.size());
        EXPECT_EQ(std::vector<unsigned int>(indices, indices + expected.size()), expected);
        mb_free(indices);
    };
    for (unsigned int size : {0u, 1u, 64u, 65u, 1000u}) {
        std::vector<unsigned short> narrow(size);
        std::vector<unsigned int> wide(size);
        for (unsigned int i = 0; i < size; ++i) {
            unsigned int const run = i / (1 + i / 100);
            narrow[i] = static_cast<unsigned short>(run * run % 11); // 6 and above pass over
            wide[i] = run % 9 == 0 ? 4000000000u : narrow[i];
        }
        check(narrow, 5);
        check(wide, 5);
        check(narrow, 0);
    }
}

TEST(Point, IsDescribedByCoordinatesAndTarget)
{
    int const coords[] = {1, 2, 3};
    std::pair<DerivedPointer<Point>, char const*> const cases[] = {
        {Point::Create(7u, TargetData(2, 5, 4)), "Point (2, 1) into: Image 5x4"},
        {Point::Create(59u, TargetData(3, 3, 4, 5)), "Point (2, 3, 4) into: Datacube 3x4x5"},
        {Point::Create(coords, 3), "Point (1, 2, 3) into: Array of rank 3 of unknown size"},
        {Point::Create(8, 9), "Point (8, 9) into: Image of unknown size"}};
    for (auto const& [point, text] : cases)
        EXPECT_EQ(point->GetDescription(), text);
    EXPECT_THROW(Point::Create(7u, TargetData(2, 5, 0)), Exception);
    EXPECT_RAISES(Point::Create(1, 2, TargetData(1, 5)), 128, "Target is not an image");
    auto const point = cases[0].first;
    EXPECT_EQ(GetText(point, "y"), "1");
    EXPECT_TRUE(Set(point, "target_rank", 1));
    EXPECT_EQ(GetText(point->Clone(false), "target_descr"), "Image 5x4");
}

TEST(Point, KeepsItsLength)
{
    auto const point = Point::Create(2, 1);
    point->ResizeVector(2, true, true);
    for (std::function<void()> const& edit : std::vector<std::function<void()>>{
             [&] { point->ResizeVector(3, true, true); }, [&] { point->Erase(0, 1); },
             [&] { point->Insert(0, DataItem(1)); }, [&] { point->Append(Ints({1})); },
             [&] { point->SetTypedChunk(Ints({1})->Chunk()); }})
        EXPECT_RAISES(edit(), 128, "Cannot resize a point");
    EXPECT_EQ(TextOf(DerivedPointer<Vector>(point)), "2 1");
    EXPECT_EQ(cref(point).CloneSlice(0, 1)->Length(), 1u);
}

TEST(NumRange, CountsWithOrWithoutItsEnd)
{
    auto const open = NumRange::Create(3, 5, true);
    std::pair<DerivedPointer<NumRange>, char const*> const cases[] = {
        {NumRange::Create(3, 5), "3..5|3 4 5|@slice:3:6"},
        {open, "[3..5)|3 4|@slice:3:5"},
        {NumRange::Create(5, 3), "5..3||@slice:5:4"},
        {NumRange::Create(INT_MAX - 1, INT_MAX),
         "2147483646..2147483647|2147483646 2147483647|@slice:2147483646:2147483648"}};
    for (auto const& [r, text] : cases)
        EXPECT_EQ(r->GetDescription() + "|" + TextOf(r->Exploded()).c_str() + "|" +
                      r->DoVerb("SCALAR", 0, nullptr).GetString(),
                  text);
    EXPECT_THROW(NumRange::Create(INT_MIN, INT_MAX)->Exploded(), Exception);
    EXPECT_EQ(DerivedPointer<NumRange>(open->Clone(false))->Exclusive(), true);
    EXPECT_EQ(GetText(open, "exclusive"), "1");
    EXPECT_TRUE(GetText(open, "!").starts_with("begin,end,exclusive,exploded,"));
    open->ResizeVector(1, true, true);
    open->SetElemType(Vector::String, true, true);
    EXPECT_EQ(open->GetDescription(), "[0..0)");
}
