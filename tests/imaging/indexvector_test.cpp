#include "images.h"

#include <memblock/imaging/datacube.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>

using namespace NKelmic;

using TargetData = IndexVector::TargetData;

namespace {

DerivedPointer<IndexVector> Region(std::vector<unsigned int> const& indices, unsigned int w,
                                   unsigned int h)
{
    return IndexVector::Create(UInts(indices), w, h);
}

std::string DimsOf(TargetData const& target)
{
    std::string text;
    for (unsigned int size : target.dims)
        text += std::to_string(size) + " ";
    return text + target.descr.c_str();
}

} // namespace

TEST(IndexVector, KnowsItsTarget)
{
    auto const empty = IndexVector::Create();
    EXPECT_EQ(empty->Length(), 0u);
    EXPECT_TRUE(empty->Conforms("mask"));
    EXPECT_EQ(DimsOf(empty->GetTargetData()), "0 0 Image of 0x0 pixels.");
    EXPECT_EQ(DimsOf(IndexVector::Create(1, DerivedPointer<Vector>())->GetTargetData()),
              "1 1 Image 1x1");
    auto const cube = DataCube::Create(2, 3, 4, Vector::Byte, 1.0);
    auto const voxels = IndexVector::Create(2, cube);
    EXPECT_TRUE(voxels->Conforms("datacubemask"));
    EXPECT_FALSE(voxels->Conforms("mask"));
    EXPECT_EQ(voxels->GetDescription(),
              "Indexvector of 2 indices into: Datacube 2x3x4 of byte's, raw factor 1");
    EXPECT_EQ(DimsOf(IndexVector::Create(UInts({3}), cube)->GetTargetData()), // no image: no sizes
              cube->GetDescription().c_str());
    EXPECT_EQ(Region({1}, 5, 4)->GetDescription(),
              "Mask for 5x4 images, in vector representation.");
    EXPECT_EQ(DimsOf(TargetData(1, 0)), "0 Vector of 0 elements"); // no null pointer
    EXPECT_EQ(DimsOf(TargetData(4, 1, 2, 3, 4)), "1 2 3 4 4-cube 1x2x3x4");
    EXPECT_THROW(TargetData(-1, 0), Exception);
    EXPECT_THROW(TargetData(2000000000, 0), Exception);
    unsigned int w = 7;
    unsigned int h = 7;
    EXPECT_RAISES(voxels->GetImageDimensions(w, h, throw_always), 512,
                  "IndexVector target is not an image, cannot return image dimensions: " +
                      cube->GetDescription());
    EXPECT_EQ(w, 0u);
}

TEST(IndexVector, TakesIndicesFromAnyNumbers)
{
    auto const cooked = IndexVector::Create(Bytes({1, 2}, 3.0), 5, 4);
    EXPECT_EQ(TextOf(DerivedPointer<Vector>(cooked)), "3 6");
    EXPECT_EQ(cooked->ElemType(), Vector::UnsignedInt);
    auto const own = UInts({4, 5});
    EXPECT_EQ(cref(IndexVector::Create(own, 5, 4)).UnsignedIntPointer(),
              cref(own).UnsignedIntPointer());
    EXPECT_THROW(IndexVector::Create(Ints({-1}), 5, 4), Exception);

    auto* const block = static_cast<unsigned int*>(mb_malloc(3 * sizeof(unsigned int)));
    block[0] = 8, block[1] = 2, block[2] = 3;
    auto const adopted = IndexVector::Create(2, block, 1, mb_free, 5, 4);
    EXPECT_EQ(TextOf(DerivedPointer<Vector>(adopted)), "2 3");
    EXPECT_EQ(TextOf(VectorOf(adopted->Clone(false))), "2 3");
}

TEST(IndexVector, DrawsTheRegionAndNothingBesideIt)
{
    auto const image = Region({1, 3, 4, 0xFFFFFFFF}, 2, 2)->GetMaskImage();
    EXPECT_EQ(TextOf(image), "0 1 0 1");
    EXPECT_EQ(image->Type(), Image::mask);
    EXPECT_EQ(Region({1, 2}, 0, 4)->GetMaskImage()->Length(), 0u);
    EXPECT_THROW(Region({1}, 65536, 65536)->GetMaskImage(), Exception);
    auto const line = IndexVector::Create(UInts({1}), TargetData(1, 9));
    EXPECT_RAISES(line->GetMaskImage(), 128,
                  "This is not an IndexVector into an image : Indexvector of 1 indices into: "
                  "Vector of 9 elements");
    auto const region = Region({7, 12}, 5, 4);
    EXPECT_EQ(TextOf(region->GetXVector()), "2 2");
    EXPECT_EQ(TextOf(region->GetYVector()), "1 2");
    EXPECT_THROW(Region({1}, 0, 4)->GetXVector(), Exception);
    EXPECT_THROW(indexvector_clearborders(Region({1}, 0, 4)), Exception);
    EXPECT_EQ(indexvector_clearborders(Region({0, 1, 2, 3}, 2, 2))->Length(), 0u);
    auto const inner = indexvector_clearborders(Region({0, 6, 9, 13}, 5, 4));
    EXPECT_EQ(TextOf(DerivedPointer<Vector>(inner)), "6 13");
    EXPECT_EQ(DimsOf(inner->GetTargetData()), "5 4 Image of 5x4 pixels.");
}

TEST(IndexVector, IsAppendedToWithinOneTarget)
{
    auto const region = Region({1}, 5, 4);
    region->Append(Doubles({2.0}));
    EXPECT_EQ(region->ElemType(), Vector::UnsignedInt);
    region->Append(Region({3}, 5, 4));
    EXPECT_EQ(TextOf(DerivedPointer<Vector>(region)), "1 2 3");
    auto const other = Region({3}, 4, 5);
    EXPECT_RAISES(region->Append(other), 128,
                  "Incompatible targets: " + region->GetDescription() + " AND " +
                      other->GetDescription());
    EXPECT_EQ(region->Length(), 3u);
    EXPECT_EQ(TextOf(cref(region).CloneSlice(1, 2)), "2");
}

TEST(IndexVector, ShiftsAndMovesBetweenImages)
{
    auto const kernel = Region({0, 1, 2, 3, 4, 5, 6, 7, 8}, 3, 3);
    EXPECT_EQ(TextOf(IndexVector2ShiftVector(kernel, 100)), "-101 -100 -99 -1 0 1 99 100 101");
    EXPECT_THROW(IndexVector2ShiftVector(Region({1}, 0, 3), 100), Exception);
    int const src[] = {0, 4};
    int dst[2] = {};
    index_convert_2images_const_center(src, 2, 3, 3, 5, 5, dst);
    EXPECT_EQ(dst[0], 6);
    EXPECT_EQ(dst[1], 12);
    EXPECT_THROW(index_convert_2images_const_center(src, 2, 0, 3, 5, 5, dst), Exception);
    index_convert_2images_const_center(nullptr, 0, 0, 0, 0, 0, nullptr);
}

TEST(IndexVector, IsSetUpByKeys)
{
    auto const region = Region({1, 7}, 5, 4);
    EXPECT_EQ(region->GetSubItem("area", throw_always).GetInt(), 2);
    EXPECT_EQ(region->GetSubItem("imageheight", throw_always).GetInt(), 4);
    for (char const* key : {"factor", "@Factor"})
        EXPECT_TRUE(region->SetSubItem(key, DataItem(2.0), throw_always));
    EXPECT_EQ(region->Factor(), 1.0);
    EXPECT_TRUE(region->SetSubItem("target_descr", DataItem("here"), throw_always));
    EXPECT_TRUE(region->SetSubItem("target_rank", DataItem(3), throw_always));
    EXPECT_TRUE(region->SetSubItem("target_dimsize2", DataItem(9), throw_always));
    EXPECT_TRUE(region->SetSubItem("target_dimsize3", DataItem(9), throw_always)); // no such one
    EXPECT_TRUE(region->SetSubItem("target_dimsize-1", DataItem(9), throw_always));
    EXPECT_EQ(DimsOf(region->GetTargetData()), "0 0 9 here");
    EXPECT_TRUE(region->GetSubItem("imagewidth", throw_never).IsUndefined());
    EXPECT_TRUE(region->SetSubItem("target_data", DataItem(Bytes({2, 3}, 2.0)), throw_always));
    EXPECT_EQ(DimsOf(region->GetTargetData()), "4 6 Image 4x6");
    EXPECT_RAISES(region->SetSubItem("target_data", DataItem(5), throw_always), 128,
                  "Setting target_data: this is not a vector: 5 (integer)");
    for (int rank : {-1, 256, 2000000000})
        EXPECT_FALSE(region->SetSubItem("target_rank", DataItem(rank), throw_never));
    EXPECT_EQ(region->TargetRank(), 2);
    EXPECT_TRUE(region->ResolveSubItem("!", throw_always)
                    .GetString()
                    .starts_with("area,image,vector,imagewidth,imageheight,x,y,@class,"));
}

TEST(IndexVector, TellsIndicesThatNoIntHolds)
{
    auto const region = Region({1, 3000000000u}, 5, 4);
    EXPECT_TRUE(
        Faults(*region).starts_with("IndexVector contains indices outside of target: 3e+09. "));
    EXPECT_EQ(Faults(*Region({100}, 5, 4)), ""); // the size of the target does not count
}

TEST(IndexVector, TurnsIntoOtherForms)
{
    auto const region = Region({6, 9}, 5, 4);
    auto const convert = [&](char const* words) {
        return VectorOf(region->Convert(safestringlist(safestring(words), ','), "", throw_always));
    };
    EXPECT_EQ(convert("vector").Pointer(), region.Pointer());
    EXPECT_EQ(TextOf(convert("clearedborders")), "6");
    EXPECT_EQ(convert("image,clearedborders")->GetDescription(),
              "Data image 5x4, 16bpp (unsigned short), raw factor 1");
    ConvertOptions options;
    options.SetValue("representation", "words");
    EXPECT_RAISES(region->ConvertFrom(region, options), 4096,
                  "Unsupported mask representation: words");
    EXPECT_EQ(cref(VectorOf(region->ConvertTo("vector"))).Pointer(),
              static_cast<Vector const&>(cref(region)).Pointer());
}

TEST(IndexVector, IsAPlainVectorOnceItsElementsAreNoIndices)
{
    auto const region = Region({6, 9}, 5, 4);
    EXPECT_STREQ(region->op('=', UInts({6}), {})->Class(), "vector");
    EXPECT_STREQ(region->op('&', UInts({6}), {})->Class(), "indexvector");
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
    std::pair<DerivedPointer<IndexVector>, char const*> const cases[] = {
        {Region({6, 9}, 5, 4), "Mask for 5x4 images, in vector representation."},
        {IntervalVector::Create(2, Region({6, 9}, 5, 4)),
         "Stencil of 2 objects for 5x4 images, in vector representation."},
        {Region({}, 5, 4), "Mask for 5x4 images, in vector representation."}};
    for (auto const& [v, description] : cases) {
        auto const before = TextOf(*v);
        std::string const refusal = std::string("Conversion not supported: ") + description;
        for (char const* type : {"string", "double", "int", "byte", "memblock"})
            EXPECT_RAISES(v->SetSubItem("elemtype", DataItem(type), throw_always), 128,
                          refusal.c_str());
        EXPECT_RAISES(v->SetElemType(Vector::Byte, false, true), 128, refusal.c_str());
        v->SetSubItem("elemtype", DataItem("unsigned,int"), throw_always);
        EXPECT_EQ(TextOf(*v), before);
        EXPECT_EQ(Faults(*v), "");
    }
    auto const texts = Region({6}, 5, 4);
    texts->SetTypedChunk(Texts({"six"})->Chunk());
    EXPECT_EQ(
        Faults(*texts),
        "Cannot cast data to UnsignedInt type: Mask for 5x4 images, in vector representation.");
}

TEST(IndexVector, ListsPixelsOfAMaskInAscendingOrder)
{
    std::vector<unsigned char> pixels(333);
    for (unsigned int i = 0; i < pixels.size(); ++i)
        pixels[i] = i < 128 ? 1 : i < 192 ? 0 : i * i % 7 == 2; // full, empty and mixed blocks
    std::vector<unsigned int> expected;
    for (unsigned int i = 0; i < pixels.size(); ++i)
        if (pixels[i])
            expected.push_back(i);
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
    auto const stencil = Picture<unsigned int>(1, 1, {2000000000u});
    EXPECT_RAISES(
        stencil->GetStencilVector(), 256,
        "Too many objects (2000000000) for a list of the pixels of: Data image 1x1, 32bpp "
        "(unsigned int), raw factor 1");
}

TEST(Point, HasItsCoordinatesAndNoOtherLength)
{
    auto const point = Point::Create(7u, TargetData(2, 5, 4));
    EXPECT_EQ(point->GetDescription(), "Point (2, 1) into: Image 5x4");
    EXPECT_EQ(TextOf(DerivedPointer<Vector>(Point::Create(59u, TargetData(3, 3, 4, 5)))), "2 3 4");
    EXPECT_THROW(Point::Create(7u, TargetData(2, 5, 0)), Exception);
    EXPECT_RAISES(Point::Create(1, 2, TargetData(1, 5)), 128, "Target is not an image");
    int const coords[] = {1, 2, 3};
    EXPECT_EQ(Point::Create(coords, 3)->GetDescription(),
              "Point (1, 2, 3) into: Array of rank 3 of unknown size");
    EXPECT_EQ(Point::Create(8, 9)->GetDescription(), "Point (8, 9) into: Image of unknown size");
    point->ResizeVector(2, true, true);
    char const* const refusal = "Cannot resize a point";
    EXPECT_RAISES(point->ResizeVector(3, true, true), 128, refusal);
    EXPECT_RAISES(point->Erase(0, 1), 128, refusal);
    EXPECT_RAISES(point->Insert(0, DataItem(1)), 128, refusal);
    EXPECT_RAISES(point->Append(Ints({1})), 128, refusal);
    EXPECT_RAISES(point->SetTypedChunk(Ints({1})->Chunk()), 128, refusal);
    EXPECT_EQ(TextOf(DerivedPointer<Vector>(point)), "2 1");
    EXPECT_EQ(cref(point).CloneSlice(0, 1)->Length(), 1u);
    EXPECT_EQ(point->GetSubItem("y", throw_always).GetInt(), 1);
    EXPECT_TRUE(point->SetSubItem("target_rank", DataItem(1), throw_always));
    EXPECT_EQ(DerivedPointer<Point>(point->Clone(false))
                  ->GetSubItem("target_descr", throw_always)
                  .GetString(),
              "Image 5x4");
}

TEST(NumRange, CountsWithOrWithoutItsEnd)
{
    auto const range = NumRange::Create(3, 5);
    auto const open = NumRange::Create(3, 5, true);
    auto const answer = [](DerivedPointer<NumRange> const& r) {
        return r->GetDescription() + "|" + TextOf(r->Exploded()).c_str() + "|" +
               r->DoVerb("SCALAR", 0, nullptr).GetString();
    };
    EXPECT_EQ(answer(range), "3..5|3 4 5|@slice:3:6");
    EXPECT_EQ(answer(open), "[3..5)|3 4|@slice:3:5");
    EXPECT_EQ(answer(NumRange::Create(5, 3)), "5..3||@slice:5:4");
    EXPECT_EQ(NumRange::Create(1, INT_MAX)->DoVerb("scalar", 0, nullptr).GetString(),
              "@slice:1:2147483648");
    EXPECT_THROW(NumRange::Create(INT_MIN, INT_MAX)->Exploded(), Exception);
    EXPECT_EQ(TextOf(NumRange::Create(INT_MAX - 1, INT_MAX)->Exploded()), "2147483646 2147483647");
    EXPECT_EQ(DerivedPointer<NumRange>(open->Clone(false))->Exclusive(), true);
    EXPECT_EQ(open->GetSubItem("exclusive", throw_always).GetInt(), 1);
    EXPECT_TRUE(open->ResolveSubItem("!", throw_always)
                    .GetString()
                    .starts_with("begin,end,exclusive,exploded,"));
    open->ResizeVector(1, true, true);
    open->SetElemType(Vector::String, true, true);
    EXPECT_EQ(open->GetDescription(), "[0..0)");
}
