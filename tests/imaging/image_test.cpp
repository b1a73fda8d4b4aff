#include "images.h"

#include <memblock/core/keytable.h>
#include <memblock/imaging/datacube.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/numrange.h>
#include <memblock/imaging/point.h>
#include <memblock/vector/convert.h>

#include <functional>

using namespace NKelmic;

namespace {

constexpr char const* illegal = "Possible illegal modification of input image: "
                                "Data image 1x1, 16bpp (unsigned short), raw factor 1";

} // namespace

TEST(Image, ShapesThatNoVectorHoldsAreRefused)
{
    for (auto [w, h] : {std::pair{65536u, 65536u}, {0xFFFFFFFFu, 0u}, {0x80000000u, 1u}})
        try {
            Image::Create(w, h, Vector::Byte, 1.0);
            ADD_FAILURE() << w << " x " << h;
        } catch (Exception const& e) {
            EXPECT_EQ(e.Code(), unsigned{err_state});
        }
    EXPECT_EQ(Faults(*Image::Create(0, 7, Vector::Byte, 1.0)), "");
    EXPECT_ANY_THROW(Image::Create(1, 1, Vector::NoType, 1.0));
}

TEST(Image, MemoryThatIsNotThereIsRefused)
{
    static int released = 0;
    released = 0;
    auto const release = [](void*) { ++released; };
    auto const release_too = [](void*, void*) { ++released; };
    TypedChunk const nothing(6, Vector::Int, MemChunk(nullptr, MemChunk::release_t(), 24), 0);
    std::function<void()> const over_null[] = {
        [&] { Vector::Create(6, Vector::Int, nullptr, release, 0, 1.0); },
        [&] { Vector::Create(6, Vector::String, nullptr, release, 0, 1.0); },
        [&] { Vector::Create(6, Vector::Byte, nullptr, release_too, nullptr, 2, 1.0); },
        [&] { Image::Create(nullptr, release, 2, 3, Vector::Triple, 1.0); },
        [&] { DataCube::Create(3, 2, 1, Vector::Byte, 1.0, nullptr, release); },
        [&] { IndexVector::Create(6, nullptr, 1, release, 4, 4); },
        [&] { IntervalVector::Create(5, 0, nullptr, release, IndexVector::Create()); },
        [&] { Ints({1})->SetTypedChunk(nothing); },
        [&] { Vector::Create(nothing, 1.0); },
        [&] { Image::Create(nothing, 2, 3, 1.0); }};
    for (auto const& make : over_null)
        EXPECT_RAISES(make(), 128, "A null buffer cannot hold 6 elements.");
    EXPECT_EQ(released, 0);
    EXPECT_EQ(Vector::Create(0, Vector::Int, nullptr, release, 0, 1.0)->Length(), 0u);
    EXPECT_EQ(Image::Create(nullptr, release, 0, 3, Vector::Byte, 1.0)->Length(), 0u);
    EXPECT_EQ(IndexVector::Create(0, nullptr, 0, release, 0, 0)->Length(), 0u);
}

TEST(Image, LengthAndSizesFollowEachOther)
{
    auto image = Picture<int>(2, 2, {1, 2, 3, 4});
    image->ResizeVector(6, true, true);
    EXPECT_EQ(image->height(), 3u);
    EXPECT_RAISES(image->ResizeVector(5, true, true), 128,
                  "Cannot set total length 5 for object: " + image->GetDescription());
    unsigned int const sizes[] = {3, 1};
    image->ChangeDimSizes(sizes, 2);
    EXPECT_EQ(TextOf(image), "1 2 3");
    EXPECT_RAISES(image->ChangeDimSizes(sizes, 1), 128,
                  "GeomBlock::ChangeDimSizes() is called with an invalid number of dimensions 1 "
                  "for: " +
                      image->GetDescription());
    unsigned int const huge[] = {0x7FFFFFFF, 0x7FFFFFFF};
    EXPECT_THROW(image->ChangeDimSizes(huge, 2), Exception);
    EXPECT_EQ(image->width(), 3u);
    EXPECT_EQ(TextOf(cref(image).GetDimSizes()), "3 1");
    EXPECT_EQ(image->GetDimSize(-1), 0u);

    auto const adapted = Image::Create(Ints({1, 2, 3})->Chunk(), 2, 2, 1.0);
    EXPECT_EQ(TextOf(adapted), "1 2 3 0");
    EXPECT_STREQ(cref(image).CloneSlice(1, 3)->Class(), "vector");
    EXPECT_EQ(cref(image).CloneSlice(1, 1)->Length(), 0u);
}

TEST(Image, AFactorThatColoursCannotTakeLeavesTheImageAsItWas)
{
    auto image = Picture<int>(2, 1, {1, 255}, 100000.0);
    image->SetEdgeWidth(1);
    safestring const before = image->GetDescription();
    for (bool const contents : {true, false}) {
        EXPECT_THROW(image->SetElemType(Vector::Triple, contents, true), Exception);
        EXPECT_EQ(image->GetDescription(), before);
        EXPECT_EQ(TextOf(image), "1 255");
    }
    image->SetFactor(100.0);
    image->SetElemType(Vector::Triple, true, true);
    EXPECT_EQ(image->GetDescription(), "Visual color image 2x1");
    EXPECT_EQ(image->GetEdgeWidth(), 1);
    EXPECT_EQ(cref(image).TriplePointer()[1], 25500u);

    auto colours = Picture<triple>(1, 1, {8}, 0.5); // asked for again they are colours to look at
    EXPECT_EQ(colours->Type(), Image::data);
    colours->SetElemType(Vector::Triple, true, true);
    EXPECT_EQ(colours->GetDescription(), "Visual color image 1x1");
    EXPECT_EQ(cref(colours).TriplePointer()[0], 4u);
}

TEST(Image, EachClassHasItsDescriptionAndNames)
{
    auto image = Picture<unsigned short>(3, 1, {0, 0, 0}, 0.5);
    EXPECT_EQ(image->GetDescription(), "Data image 3x1, 16bpp (unsigned short), raw factor 0.5");
    image->SetFactor(1.0);
    std::tuple<char const*, Image::logic_class_t, char const*> const cases[] = {
        {"visual", Image::visual, "Visual greyscale image 3x1, 16 bpp"},
        {"STENCIL", Image::stencil,
         "Stencil of 0 objects for 3x1 images, in image representation."},
        {"mask", Image::mask, "Mask for 3x1 images, in image representation."}};
    for (auto [word, type, text] : cases) {
        ASSERT_TRUE(image->SetSubItem("type", DataItem(word), throw_always));
        EXPECT_EQ(image->Type(), type);
        EXPECT_STREQ(image->GetDescription().c_str(), text);
        EXPECT_EQ(image->Conforms("stencil"), type == Image::stencil);
        EXPECT_EQ(image->Conforms("Mask"), type == Image::mask);
    }
    EXPECT_RAISES(image->SetSubItem("type", DataItem("photo"), throw_always), 32,
                  "Not a valid image type: \"photo\" (allowed values: \"data\", \"visual\", "
                  "\"mask\", \"stencil\")");
    EXPECT_RAISES(image->SetSubItem("type", DataItem(12), throw_always), 32, "Invalid type.");
    EXPECT_FALSE(image->SetSubItem("type", DataItem("photo"), throw_never));

    auto const colours = Image::Create(2, 2, Vector::Triple, 1.0);
    colours->SetType(Image::visual);
    EXPECT_EQ(colours->GetDescription(), "Visual color image 2x2");
    EXPECT_TRUE(colours->Conforms("color_data"));
}

TEST(Image, BecomesAMaskOfOnesAndZeros)
{
    WarningLog log;
    auto image = Picture<int>(3, 1, {0, 5, -1}, 2.0);
    image->SetEdgeWidth(0);
    image->SetType(Image::mask);
    EXPECT_EQ(image->ElemType(), Vector::Byte);
    EXPECT_EQ(TextOf(image), "0 1 1");
    EXPECT_EQ(image->Factor(), 1.0);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0].first, 128u);

    auto const colours = Picture<triple>(2, 1, {0x010000u, 0u});
    colours->SetType(Image::mask);
    EXPECT_EQ(TextOf(colours), "1 0");

    auto constant = Picture<unsigned short>(1, 1, {9});
    constant->SetConst(true);
    EXPECT_RAISES(constant->SetType(Image::mask), 128, illegal);
    EXPECT_EQ(TextOf(constant), "9");
    auto const objects = Image::Create(1, 1, Vector::PMemory, 1.0);
    EXPECT_RAISES(objects->SetType(Image::mask), 4096,
                  "Function downconvert not implemented for data type 'memblock'");
}

TEST(Image, BecomesAStencilWithAClearFrame)
{
    auto const bytes = Image::Create(4, 4, Vector::Byte, 1.0);
    EXPECT_RAISES(bytes->SetType(Image::stencil), 128,
                  "Attempt to declare a non-16, non-32 bpp image to be a stencil: " +
                      bytes->GetDescription());
    WarningLog log;
    auto image = Picture<unsigned short>(3, 3, {0, 0, 0, 0, 7, 0, 0, 0, 3}, 2.0);
    DerivedPointer<Image> const shared(image->Clone(true));
    image->SetType(Image::stencil);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0].first, 512u);
    EXPECT_EQ(TextOf(image), "0 0 0 0 7 0 0 0 0");
    EXPECT_EQ(TextOf(shared), "0 0 0 0 7 0 0 0 3");
    EXPECT_EQ(image->GetStencilCount(), 7);
    EXPECT_EQ(image->Factor(), 1.0);
    EXPECT_EQ(Faults(*image), "");

    // A stencil already is not looked at again; a constant one with a clear frame is fine.
    image->UnsignedShortPointer()[0] = 1;
    image->SetType(Image::stencil);
    EXPECT_EQ(log.Lines().size(), 1u);
    auto constant = Picture<unsigned short>(1, 1, {9});
    constant->SetConst(true);
    EXPECT_RAISES(constant->SetType(Image::stencil), 128, illegal);
    constant->UnsignedShortPointer()[0] = 0;
    constant->ContentHasBeenChanged();
    constant->SetType(Image::stencil);
    EXPECT_EQ(constant->Type(), Image::stencil);

    auto const empty = Image::Create(5, 0, Vector::UnsignedInt, 1.0);
    empty->SetType(Image::stencil);
    EXPECT_EQ(empty->GetStencilCount(), 0);
    EXPECT_RAISES(empty->SetStencilCount(-1), 512,
                  "Vector has zero length, cannot calculate subkey: max");
}

TEST(Image, TellsTheFirstPixelOfTheFrameThatIsNotClear)
{
    for (unsigned int at = 0; at < 12; ++at) { // 4 x 3: pixels 5 and 6 are inside
        bool const inside = at == 5 || at == 6;
        auto const check = [&]<class T>(T value) {
            auto image = Picture<T>(4, 3, {});
            image->template TypedPointer<T>()[at] = value;
            EXPECT_EQ(check_image_borders_clear(image, false), inside) << at;
            EXPECT_TRUE(check_image_borders_clear(image, true));
            EXPECT_TRUE(check_image_borders_clear(image, false));
            EXPECT_EQ((*image)[at] != 0, inside);
        };
        check(static_cast<unsigned char>(1));
        check(static_cast<short>(-1));
        check(triple(0x10000u));
        check(1.0f);
        check(0.5);
    }
    EXPECT_TRUE(check_image_borders_clear(Picture<double>(1, 1, {-0.0}), false));
    EXPECT_FALSE(check_image_borders_clear(Picture<double>(1, 1, {0.0 / 0.0}), false));
    EXPECT_TRUE(check_image_borders_clear(Image::Create(4, 0, Vector::Byte, 1.0), true));
    auto const texts = Image::Create(1, 1, Vector::String, 1.0);
    EXPECT_RAISES(check_image_borders_clear(texts, false), 128,
                  "Image border clearing not supported for: " + texts->GetDescription());
}

TEST(Image, CountsNoFewerObjectsThanItsGreatestLabel)
{
    auto image = Picture<unsigned short>(3, 3, {0, 0, 0, 0, 2, 0, 0, 0, 0});
    image->SetType(Image::stencil);
    image->SetStencilCount(5);
    EXPECT_EQ(image->GetStencilCount(), 5);
    EXPECT_EQ(DerivedPointer<Image>(image->Clone(false))->GetStencilCount(), 5);
    image->UnsignedShortPointer()[4] = 9;
    image->ContentHasBeenChanged();
    EXPECT_EQ(Faults(*image),
              "Stencilcount of an image-type stencil (5) is less than the max pixel value: 9");
    EXPECT_EQ(image->GetStencilCount(), 9);

    // Writes of pixels raise it, whether the maximum goes up or down.
    for (auto [value, count] : {std::pair{4, 9}, {12, 12}, {0, 12}, {13, 13}}) {
        ASSERT_TRUE(image->SetSubItem("1,1", DataItem(value), throw_always));
        EXPECT_EQ(image->GetStencilCount(), count);
        EXPECT_EQ(image->SecondaryInt(100, throw_always), value);
        EXPECT_DOUBLE_EQ(image->GetSubItem("@mean", throw_always).GetDouble(), value / 9.0);
        EXPECT_EQ(Faults(*image), "");
    }
    // They look at no pixel but the written one: a maximum that is known is kept in step.
    image->UnsignedShortPointer()[0] = 99; // and nobody told
    ASSERT_TRUE(image->SetSubItem("1,1", DataItem(13), throw_always));
    EXPECT_EQ(image->GetStencilCount(), 13);
    image->UnsignedShortPointer()[0] = 0;
    auto const fractions = Picture<float>(3, 3, {});
    fractions->SetType(Image::stencil);
    ASSERT_TRUE(fractions->SetSubItem("1,1", DataItem(2.5), throw_always));
    EXPECT_EQ(fractions->SecondaryDouble(100, throw_always), 2.5);
    // Another label width keeps class and count, any other type ends both.
    image->SetElemType(Vector::UnsignedInt, true, true);
    EXPECT_EQ(image->Type(), Image::stencil);
    EXPECT_EQ(image->GetStencilCount(), 13);
    image->SetEdgeWidth(1);
    image->SetElemType(Vector::Int, true, true);
    EXPECT_EQ(image->Type(), Image::data);
    EXPECT_EQ(image->GetEdgeWidth(), 1);
    int count = 0;
    EXPECT_FALSE(image->ExistsSecondaryInt(Image::key_stencil_count, count));

    auto const far = Picture<unsigned int>(1, 1, {4000000000u});
    EXPECT_EQ(far->GetStencilCount(), 0x7FFFFFFF);
    EXPECT_TRUE(far->SetSubItem("0,0", DataItem(3000000000LL), throw_always));
    EXPECT_EQ(cref(far).UnsignedIntPointer()[0], 3000000000u);
}

TEST(Image, IsHashedAsWhatItHasBecome)
{
    auto const hash = [](MemBlock const& object) {
        return std::string(object.GetSubItem("@md5", throw_always).GetString().c_str());
    };
    auto const image = Picture<unsigned short>(4, 4, {});
    auto const list = IndexVector::Create(0, 4, 4);
    std::vector<std::string> seen{hash(*image)};
    unsigned int const sizes[] = {2, 8};
    image->ChangeDimSizes(sizes, 2);
    seen.push_back(hash(*image));
    image->SetType(Image::stencil);
    seen.push_back(hash(*image));
    image->SetStencilCount(7);
    seen.push_back(hash(*image));
    seen.push_back(hash(*list));
    list->SetImageDimensions(2, 8);
    seen.push_back(hash(*list));
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end());
}

TEST(Image, SaysWhatIsWrongWithIt)
{
    auto image = Picture<unsigned short>(4, 4, {});
    image->SetEdgeWidth(3);
    EXPECT_EQ(Faults(*image), "Edgewidth 3 not valid for 4x4 image. ");
    image->SetEdgeWidth(2);
    EXPECT_EQ(Faults(*image), "");
    image->SetType(Image::stencil);
    image->SetSecondaryItem(Image::key_stencil_count, DataItem());
    EXPECT_EQ(Faults(*image),
              "Image of stencil logical type does not have stencilcount recorded.\n");
    auto const other = DerivedPointer<Image>(image->Clone(true));
    EXPECT_TRUE(*image == *other);
    other->SetEdgeWidth(0);
    EXPECT_FALSE(*image == *other);
}

TEST(Image, PixelsAreWrittenByTheirPlace)
{
    auto image = Picture<short>(2, 2, {1, 2, 3, 4}, 0.5);
    EXPECT_TRUE(image->SetSubItem(" 1 , 0 ", DataItem(7), throw_always)); // raw
    EXPECT_TRUE(image->SetSubItem("0,1", DataItem(7.0), throw_always));   // cooked
    EXPECT_EQ(TextOf(image), "1 7 14 4");
    EXPECT_RAISES(image->SetSubItem("2,0", DataItem(7), throw_always), 128,
                  "Pixel out of image borders: [2, 0]");
    EXPECT_RAISES(image->SetSubItem("0,-1", DataItem(7), throw_always), 128,
                  "Pixel out of image borders: [0, -1]");
    for (char const* key : {"9e99,0", "0,4294967296", "1,2", "x,1"})
        EXPECT_FALSE(image->SetSubItem(key, DataItem(7), throw_never)) << key;
    for (long long const value : {40000LL, 1LL << 40})
        EXPECT_RAISES(
            image->SetSubItem("0,0", DataItem(value), throw_always), 128,
            Text("Vector::SetElem(): Value (%d) out of range for data item: %s", value, image));
    auto const wide = Picture<long long>(1, 1, {0});
    EXPECT_TRUE(wide->SetSubItem("0,0", DataItem((1LL << 60) + 1), throw_always));
    EXPECT_EQ(*cref(wide).TypedPointer<long long>(), (1LL << 60) + 1);
    EXPECT_EQ(TextOf(image), "1 7 14 4");
}

TEST(Image, PixelsAreReadByTheirPlace)
{
    auto const image = Picture<short>(2, 2, {1, 2, 3, 4}, 0.5);
    std::pair<char const*, double> const cases[] = {
        {"1,1", 2.0}, {"_1,1", 4.0}, {"2,0", 1.5}}; // runs on into the next row
    for (auto [key, value] : cases)
        EXPECT_EQ(image->GetSubItem(key, throw_always).GetDouble(), value) << key;
    for (char const* key : {"0,2", "18446744073709551615,1", "1,2147483647", "1,-1", "_,1", "1,"})
        EXPECT_TRUE(image->GetSubItem(key, throw_never).IsUndefined()) << key;
    DerivedPointer<Vector> const slice(image->ResolveSubItem("1..2", throw_always).GetMemory());
    EXPECT_STREQ(slice->Class(), "vector");
    EXPECT_EQ(TextOf(slice), "2 3");
    EXPECT_EQ(image->GetSubItem("range", throw_always).GetMemory()->GetDescription(), "[0..4)");
}

/// Lists and tables must not drift apart.
TEST(Image, EveryNameOfItsListsCanBeRead)
{
    auto const mask = Picture<unsigned char>(2, 1, {0, 1});
    mask->SetType(Image::mask);
    for (PMemBlock const& object : std::vector<PMemBlock>{
             Picture<short>(1, 2, {1, 2}), mask, mask->GetMaskVector(), Point::Create(1, 2),
             NumRange::Create(1, 2), DataCube::Create(1, 1, 1, Vector::Byte, 1.0)})
        for (char const* list : {"!", "*"})
            AnyKeyOfList(object->ResolveSubItem(list, throw_always).GetString(),
                         [&](KeyListEntry const& entry) {
                             safestring const name(entry.name.data(), entry.name.size());
                             bool const plain = name[0] != '@' && name != "histogram";
                             if (plain) { // the histogram is a host's function
                                 EXPECT_NO_THROW(object->GetSubItem(name, throw_always))
                                     << object->Class() << " " << name.c_str();
                             }
                             return false;
                         });
}

TEST(Image, AnswersItsKeysAndVerbs)
{
    auto image = Picture<unsigned short>(3, 2, {1, 2, 3, 4, 5, 6});
    std::tuple<char const*, int> const keys[] = {{"width", 3},     {"ImageHeight", 2},
                                                 {"bpp", 16},      {"layercount", 1},
                                                 {"edgewidth", 0}, {"itemcount", 6}};
    for (auto [key, value] : keys)
        EXPECT_EQ(image->GetSubItem(key, throw_always).GetInt(), value) << key;
    EXPECT_EQ(image->GetSubItem("image", throw_always).GetMemory().Pointer(), image.Pointer());
    EXPECT_TRUE(image->SetSubItem("itemcount", DataItem(8), throw_always));
    EXPECT_TRUE(image->SetSubItem("layercount", DataItem(8), throw_always));
    EXPECT_TRUE(image->ResolveSubItem("!", throw_always)
                    .GetString()
                    .starts_with("width,height,bpp,layercount,type,%edgewidth,"));

    SafeValue args[] = {DataItem(0), DataItem(6)};
    EXPECT_EQ(image->DoVerb("getrank", 0, nullptr).GetInt(), 2);
    EXPECT_EQ(image->DoVerb("GetDimSize", 0, nullptr).GetInt(), 3);
    EXPECT_EQ(image->DoVerb("GetDimSize", 1, args).GetInt(), 2); // whatever the argument is
    EXPECT_RAISES(image->DoVerb("GetDimSize", 2, args), 128, "No such dimension in Image: 2");
    DerivedPointer<Image> const turned(image->DoVerb("Transpose", 0, nullptr).GetMemory());
    EXPECT_EQ(TextOf(turned), "1 4 2 5 3 6");
    EXPECT_EQ(turned->width(), 2u);
    args[0] = DataItem(1);
    EXPECT_EQ(image->DoVerb("SetDimSizes", 2, args).GetInt(), 1); // the height comes first
    EXPECT_EQ(image->width(), 6u);
    args[0] = DataItem(-1);
    EXPECT_THROW(image->DoVerb("SetDimSizes", 1, args), Exception);
    args[0] = DataItem(static_cast<int>(Vector::String));
    EXPECT_RAISES(image->DoVerb("notif_elmtyp_chng", 1, args), 32,
                  "Cannot change image pixel type to: string");
    EXPECT_RAISES(image->SetElemType(Vector::PMemory, true, true), 128,
                  "Cannot change image element type to \"memblock\", this type is supported for "
                  "vectors only.");
}

TEST(Image, CropsKeepPlaceAndSize)
{
    auto image = Picture<unsigned char>(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 2.0);
    EXPECT_EQ(TextOf(image->Crop(1, 1)), "5 6 8 9");
    EXPECT_EQ(TextOf(image->Crop(2, 2, 0, 0)), "1 2 4 5"); // corners exchanged
    EXPECT_EQ(TextOf(image->DoCrop(-1, 1, 1, 4)), "0 4 0 7 0 0");
    EXPECT_EQ(TextOf(image->DoCrop(5, 5, 7, 6)), "0 0");
    auto const none = image->Crop(1, 0, 1, 3);
    EXPECT_EQ(none->width(), 0u);
    EXPECT_EQ(none->height(), 3u);
    EXPECT_EQ(none->Factor(), 2.0);
    EXPECT_EQ(Faults(*none), "");
    for (auto [x1, x2] : {std::pair{2, 1}, {INT_MIN, INT_MAX}})
        EXPECT_THROW(image->DoCrop(x1, 0, x2, 3), Exception);
    auto const texts = Image::Create(2, 1, Vector::String, 1.0);
    texts->SetElem(1, "a text that lies on the heap");
    EXPECT_EQ(TextOf(texts->DoCrop(1, 0, 3, 1)), "a text that lies on the heap ");
}

TEST(Image, CutsOutOneObject)
{
    auto image = Picture<unsigned short>(4, 3, {0, 0, 0, 0, 0, 2, 1, 0, 0, 0, 2, 0});
    int x = -7;
    int y = -7;
    EXPECT_FALSE(image->ExtractCoded(3, &x, &y));
    EXPECT_EQ(x, -7);
    auto const cut = image->ExtractCoded(1, &x, &y);
    EXPECT_EQ(TextOf(cut), "0 0 0 0 1 0 0 0 0");
    EXPECT_EQ(cut->width(), 3u);
    EXPECT_EQ(x, 1);
    EXPECT_EQ(y, 0);
    auto const colours = Picture<triple>(2, 1, {0x030201u, 7u});
    EXPECT_EQ(TextOf(colours->ExtractCoded(0xFF030201u, nullptr, nullptr)), "197121 0");
    auto const wide = Image::Create(1, 1, Vector::Double, 1.0);
    EXPECT_RAISES(wide->ExtractCoded(0, nullptr, nullptr), 4096,
                  "Image::ExtractCoded(): pixel type not supported: " + wide->GetDescription());
}

TEST(Image, GoesToOneByteAPixel)
{
    auto image = Picture<unsigned short>(3, 1, {255, 100, 0}, 3.0);
    image->Depth8();
    EXPECT_EQ(TextOf(image), "255 100 0");
    EXPECT_EQ(image->Factor(), 3.0);
    image = Picture<unsigned short>(3, 1, {256, 101, 1});
    image->Depth8();
    EXPECT_EQ(TextOf(image), "128 51 1"); // halves go up
    EXPECT_EQ(image->Factor(), 2.0);
    auto const colours = Picture<triple>(1, 1, {0x0A0502u});
    colours->Depth8();
    EXPECT_EQ(TextOf(colours), "6");
    auto const floats = Picture<float>(4, 1, {510.0f, 0.0f / 0.0f, 1.0f / 0.0f, 2.0f});
    floats->Depth8();
    EXPECT_EQ(TextOf(floats), "255 0 0 1");
    auto const seen = Picture<int>(1, 1, {510});
    seen->SetType(Image::visual);
    seen->Depth8();
    EXPECT_EQ(TextOf(seen), "255");
    EXPECT_EQ(seen->Factor(), 1.0);

    auto const negative = Picture<short>(1, 1, {-1});
    EXPECT_RAISES(negative->Depth8(), 128,
                  "Conversion to 8bpp not supported for negative pixel values: " +
                      negative->GetDescription());
    auto const stale = Picture<short>(1, 1, {1});
    EXPECT_EQ(stale->SecondaryInt(101, throw_always), 1);
    *stale->ShortPointer() = -2; // and nobody told
    EXPECT_RAISES(stale->Depth8(), 128,
                  "Cannot convert to 8bpp: image contains negative values: -2");
    auto const wide = Picture<long long>(1, 1, {1});
    EXPECT_RAISES(wide->Depth8(), 128,
                  "Conversion to 1 Bpp not implemented for: " + wide->GetDescription());
    Image::Create(0, 3, Vector::Int, 1.0)->Depth8();

    // A table serves large pictures; it must not differ.
    std::vector<unsigned short> ramp(70000);
    for (unsigned int i = 0; i < ramp.size(); ++i)
        ramp[i] = static_cast<unsigned short>(i % 1021);
    std::vector<unsigned char> bytes(ramp.size());
    double divisor = 0;
    DivideTo8bpp(ramp.data(), static_cast<unsigned int>(ramp.size()), bytes.data(), &divisor);
    EXPECT_EQ(divisor, 4.0);
    for (unsigned int i = 0; i < ramp.size(); ++i)
        ASSERT_EQ(bytes[i], (ramp[i] + 2) / 4) << i;
}

TEST(Image, JoinsColourPlanes)
{
    auto const join = []<class T>(T a, T b, T c) {
        std::vector<PMemBlock> planes;
        for (T v : {a, b, c})
            planes.push_back(Picture<T>(1, 1, {v}));
        auto const image = ConstructImageFromColorPlanes(Objects(planes));
        triple const pixel = *cref(image).TriplePointer();
        return Text("%d %d %d", pixel.b[0], pixel.b[1], pixel.b[2]);
    };
    EXPECT_EQ(join(1.9, 300.0, -1.0), "1 255 0");
    EXPECT_EQ(join(0.0f / 0.0f, 1.0f, 2.0f), "0 1 2");
    EXPECT_EQ(join(INT64_MAX + 0LL, INT64_MIN + 0LL, 1LL << 55), "255 0 1");
    EXPECT_EQ(join(UINT64_MAX + 0ULL, 1ULL << 63, 0ULL), "255 128 0");
    EXPECT_EQ(join(static_cast<unsigned short>(65535), static_cast<unsigned short>(382),
                   static_cast<unsigned short>(383)),
              "255 1 2");
    auto const uneven =
        Objects({Picture<char>(1, 1, {1}), Picture<char>(1, 1, {1}), Picture<char>(2, 1, {1, 1})});
    EXPECT_RAISES(ConstructImageFromColorPlanes(uneven), 512,
                  "Cannot convert into image: " + uneven->GetDescription());
}

namespace {

DerivedPointer<Image> Seen(DerivedPointer<Image> const& image)
{
    image->SetType(Image::visual);
    return image;
}

} // namespace

TEST(Image, ComesFromVectorsByConversion)
{
    auto const convert = [](MemBlock const& source, char const* words, char const* classname) {
        return DerivedPointer<Vector>(
            source.Convert(safestringlist(safestring(words), ','), classname, throw_always));
    };
    auto const numbers = Bytes({1, 2, 3}, 0.5);
    auto const line = convert(*numbers, "", "image");
    EXPECT_EQ(line->GetDescription(), "Data image 3x1, 8bpp (byte), raw factor 0.5");
    EXPECT_EQ(cref(line).Pointer(), cref(numbers).Pointer()); // the same buffer
    auto const grey = convert(*Bytes({7}), "24bpp,replicate", "image");
    EXPECT_EQ(*cref(grey).TriplePointer(), 0x070707u);
    // Grey shows as grey: by its cooked values where these are bytes, otherwise by what a byte
    // keeps.
    std::tuple<DerivedPointer<Image>, char const*> const greys[] = {
        {Picture<unsigned short>(3, 1, {0, 300, 600}), "0 100 200"},
        {Picture<unsigned short>(2, 1, {300, 600}, 0.1), "30 60"},
        {Picture<unsigned char>(2, 1, {7, 100}, 2.0), "14 200"},
        {Picture<unsigned char>(2, 1, {7, 200}, 2.0), "7 200"},
        {Picture<double>(2, 1, {50.0, 100.0}), "50 100"},
        {Seen(Picture<float>(2, 1, {510.0f, 100.0f})), "255 50"}, // it can have no factor
        {Seen(Picture<double>(2, 1, {255.0, 100.0})), "255 100"},
        {Image::Create(0, 4, Vector::UnsignedShort, 2.0), ""}};
    for (auto const& [image, text] : greys) {
        auto const colours = convert(*image, "24bpp,replicate", "image");
        EXPECT_EQ(colours->GetDescription(),
                  Text("Visual color image %dx%d", image->width(), image->height()));
        std::string channel;
        for (triple const pixel : ElementsOf<triple>(colours)) {
            channel += (channel.empty() ? "" : " ") + std::to_string(pixel.b[0]);
            EXPECT_TRUE(pixel.b[0] == pixel.b[1] && pixel.b[0] == pixel.b[2]);
        }
        EXPECT_EQ(channel, text) << image->GetDescription().c_str();
        if (image->Type() == Image::visual) {
            EXPECT_EQ(TextOf(convert(*image, "8bpp", "image")), text);
        }
    }
    auto const full = Picture<short>(3, 3, std::vector<short>(9, 4));
    auto const cleared = convert(*full, "clearedborders", "image");
    EXPECT_EQ(TextOf(cleared), "0 0 0 0 4 0 0 0 0");
    EXPECT_EQ((*full)[0], 4);
    EXPECT_STREQ(convert(*full, "vector", "image")->Class(), "vector");
    auto const mask = Picture<unsigned char>(2, 1, {0, 1});
    mask->SetType(Image::mask);
    EXPECT_EQ(TextOf(convert(*mask, "vector", "")), "1");
    EXPECT_RAISES(convert(*Texts({"a"}), "", "image"), 512,
                  "Cannot convert into image: Vector of 1 elements of type string");
    // A request for bytes divides, as no shift does.
    auto const eighth =
        cref(Picture<unsigned short>(1, 1, {765})).ConvertElemsToType(Vector::Byte, true, false);
    EXPECT_EQ(TextOf(eighth), "255");
    EXPECT_EQ(eighth->Factor(), 3.0);
}

TEST(Image, StaysWhatItIsInArithmetic)
{
    auto const image = Picture<unsigned char>(2, 1, {250, 3});
    DerivedPointer<Image> const sum(image->op('+', Bytes({10}), {}));
    EXPECT_EQ(TextOf(sum), "260 13");
    EXPECT_EQ(sum->width(), 2u);
    auto const labels = Picture<unsigned short>(3, 3, {0, 0, 0, 0, 7, 0, 0, 0, 0});
    labels->SetType(Image::stencil);
    auto const inverse = labels->op('!', Bytes({0}), {});
    EXPECT_TRUE(inverse->Conforms("mask"));
}

TEST(Image, TriplesHaveTheRangeOfTheirElements)
{
    auto const image = Picture<triple>(2, 1, {7u, 300u}, 2.0);
    EXPECT_EQ(TextOf(DerivedPointer<Vector>(image->ConvertElemsToType(Vector::Short, true, true))),
              "7 300");
    EXPECT_EQ(cref(image->ConvertElemsToType(Vector::UnsignedShort, true, false)).Factor(), 2.0);
    auto const cooked = EnsureNoRawFactor(image);
    EXPECT_EQ(cooked->ElemType(), Vector::UnsignedShort);
    EXPECT_EQ(TextOf(cooked), "14 600");
    image->EnsureFactor(1.0);
    EXPECT_EQ(TextOf(image), "14 600");
    EXPECT_RAISES(image->EnsureFactor(1e-5), 512,
                  "Data overflow: either 6e+07 or 1.4e+06 does not fit into destination data type "
                  "of 3 byte, " +
                      image->GetDescription() + ".");
    EXPECT_EQ(TextOf(image), "14 600");
}

namespace {

/// A way to other pixels; null for one that changes the image itself.
struct Road {
    char const* name;
    std::function<PMemBlock(Image&, DerivedPointer<Vector> const&)> go;
};

Road const roads[] = {
    {"Append",
     [](Image& image, auto const& v) {
         image.Append(v);
         return PMemBlock();
     }},
    {"SetTypedChunk",
     [](Image& image, auto const& v) {
         image.SetTypedChunk(cref(v).Chunk());
         return PMemBlock();
     }},
    {"SetElemType",
     [](Image& image, auto const& v) {
         image.SetElemType(v->ElemType(), true, false);
         return PMemBlock();
     }},
    {"SetElemType, bytes",
     [](Image& image, auto const& v) {
         image.SetElemType(v->ElemType(), false, false);
         return PMemBlock();
     }},
    {"ConvertElemsToType",
     [](Image& image, auto const& v) {
         return PMemBlock(image.ConvertElemsToType(v->ElemType(), true, true));
     }},
    {"ConvertElemsToType, open",
     [](Image& image, auto const& v) {
         auto const open = image.ConvertElemsToType(v->ElemType(), false, false);
         open->Clear();
         return PMemBlock(open);
     }},
    {"Convert",
     [](Image& image, auto const& v) {
         auto const words = Text("elemtype=%d", static_cast<int>(v->ElemType()));
         return image.Convert(safestringlist(words, ','), "image", throw_always);
     }},
    {"UseMemoryOf",
     [](Image& image, auto const& v) {
         image.UseMemoryOf(v);
         return PMemBlock();
     }},
    {"TransferOwnerShip",
     [](Image& image, auto const& v) {
         auto const copy = VectorOf(v->Clone(true));
         copy->TransferOwnerShip(DerivedPointer<Vector>(&image));
         return PMemBlock();
     }},
    {"op", [](Image& image, auto const& v) { return image.op('+', v, {}); }},
    {"op, typed",
     [](Image& image, auto const& v) {
         op_options options;
         options.SetValue("fixed_result_type", static_cast<int>(v->ElemType()));
         return image.op('|', v, options);
     }},
    {"Depth8",
     [](Image& image, auto const&) {
         image.Depth8();
         return PMemBlock();
     }},
};

/// An image of each class, with two labels of five objects, and an edge.
DerivedPointer<Image> OfClass(Image::logic_class_t type, DataType pixels)
{
    auto const image = Image::Create(4, 16, pixels, 1.0);
    image->SetElem(5, 1);
    image->SetElem(6, type == Image::mask ? 1 : 3);
    image->SetType(type);
    if (type == Image::stencil)
        image->SetStencilCount(5);
    image->SetEdgeWidth(1);
    return image;
}

bool IsFit(Image const& image)
{
    DataType const type = image.ElemType();
    return image.Type() == Image::mask ? type == Vector::Byte
           : image.Type() == Image::stencil
               ? type == Vector::UnsignedShort || type == Vector::UnsignedInt
               : image.Type() == Image::data || image.Type() == Image::visual;
}

} // namespace

TEST(Image, KeepsToItsClassOnEveryRoadToOtherPixels)
{
    std::pair<Image::logic_class_t, DataType> const images[] = {
        {Image::data, Vector::Byte},
        {Image::data, Vector::Float},
        {Image::visual, Vector::UnsignedShort},
        {Image::visual, Vector::Triple},
        {Image::mask, Vector::Byte},
        {Image::stencil, Vector::UnsignedShort},
        {Image::stencil, Vector::UnsignedInt}};
    WarningLog log;
    int changes = 0;
    for (auto const& [type, pixels] : images)
        for (int to = Vector::Int; to <= Vector::UnsignedInt64; ++to)
            for (Road const& road : roads) {
                auto const target = static_cast<DataType>(to);
                if (!IsInSet<AllTypes>(target) || target == Vector::VoidStar)
                    continue;
                auto const image = OfClass(type, pixels);
                auto const before = image->Clone(false);
                SCOPED_TRACE(
                    Text("%s, %s to %s", *image, road.name, Vector::TypeToString(target)).c_str());
                auto const other = Vector::Create(64, target, true, 0, 1.0);
                if (!Vector::IsObject(target))
                    other->SetElem(9, 12); // a label above the count
                PMemBlock result;
                try {
                    result = road.go(*image, other);
                } catch (Exception const&) {
                    EXPECT_TRUE(*image == *before) << "a refusal leaves the image as it was";
                    EXPECT_EQ(image->GetDescription(), before->GetDescription());
                    continue;
                }
                Image const* const now = result ? MemCast<Image>(result) : image.Pointer();
                if (!now)
                    continue; // a vector of texts
                changes += now->ElemType() != pixels;
                EXPECT_EQ(Faults(*now), "");
                EXPECT_TRUE(IsFit(*now)) << now->GetDescription().c_str();
                EXPECT_EQ(now->GetEdgeWidth(), 1);
                DataItem count;
                bool const counted = now->ExistsSecondaryItem(Image::key_stencil_count, count);
                EXPECT_EQ(counted, now->Type() == Image::stencil);
                EXPECT_GE(counted ? count.GetInt() : 5, 5);
            }
    EXPECT_GT(changes, 300);
}
