#include "images.h"

#include <memblock/imaging/datacube.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/vector/convert.h>

using namespace NKelmic;

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

/// One table for all that the class refuses; each row leaves its object as it was.
TEST(Image, ItsRefusalsHaveCodeAndText)
{
    auto const data = Picture<int>(2, 2, {1, 2, 3, 4}), empty = Picture<int>(5, 0, {});
    auto const shorts = Picture<short>(2, 2, {1, 2, 3, 4}, 0.5);
    auto const bytes = Image::Create(4, 4, Vector::Byte, 1.0);
    auto const objects = Image::Create(1, 1, Vector::PMemory, 1.0);
    auto const texts = Image::Create(1, 1, Vector::String, 1.0);
    auto const wide = Picture<long long>(1, 1, {1}), negative = Picture<long long>(1, 1, {-1});
    auto const doubles = Image::Create(1, 1, Vector::Double, 1.0);
    auto const labels = Image::Create(5, 0, Vector::UnsignedInt, 1.0);
    labels->SetType(Image::stencil);
    auto const constant = Picture<unsigned short>(1, 1, {9});
    constant->SetConst(true);
    safestring const illegal =
        "Possible illegal modification of input image: " + constant->GetDescription();
    auto const stale = Picture<short>(1, 1, {1});
    EXPECT_EQ(stale->SecondaryInt(101, throw_always), 1);
    *stale->ShortPointer() = -2; // no notice of a change
    auto const colours = Picture<triple>(2, 1, {14u, 600u});
    auto const uneven =
        Objects({Picture<char>(1, 1, {1}), Picture<char>(1, 1, {1}), Picture<char>(2, 1, {1, 1})});
    unsigned int const sizes[] = {3, 1};
    SafeValue args[] = {DataItem(static_cast<int>(Vector::String)), DataItem(6)};
    auto const out_of_range = [&](long long value) {
        return Refusal{
            [=] { Set(shorts, "0,0", DataItem(value)); }, 128,
            Text("Vector::SetElem(): Value (%d) out of range for data item: %s", value, shorts)};
    };
    ExpectRefusals({
        {[&] { data->ResizeVector(5, true, true); }, 128,
         "Cannot set total length 5 for object: " + data->GetDescription()},
        {[&] { data->ChangeDimSizes(sizes, 1); }, 128,
         "GeomBlock::ChangeDimSizes() is called with an invalid number of dimensions 1 for: " +
             data->GetDescription()},
        {[&] { Set(data, "type", "photo"); }, 32,
         "Not a valid image type: \"photo\" (allowed values: \"data\", \"visual\", \"mask\", "
         "\"stencil\")"},
        {[&] { Set(data, "type", 12); }, 32, "Invalid type."},
        {[&] { constant->SetType(Image::mask); }, 128, illegal},
        {[&] { constant->SetType(Image::stencil); }, 128, illegal},
        {[&] { objects->SetType(Image::mask); }, 4096,
         "Function downconvert not implemented for data type 'memblock'"},
        {[&] { bytes->SetType(Image::stencil); }, 128,
         "Attempt to declare a non-16, non-32 bpp image to be a stencil: " +
             bytes->GetDescription()},
        {[&] { labels->SetStencilCount(-1); }, 512,
         "Vector has zero length, cannot calculate subkey: max"},
        {[&] { check_image_borders_clear(texts, false); }, 128,
         "Image border clearing not supported for: " + texts->GetDescription()},
        {[&] { Set(shorts, "2,0", 7); }, 128, "Pixel out of image borders: [2, 0]"},
        {[&] { Set(shorts, "0,-1", 7); }, 128, "Pixel out of image borders: [0, -1]"},
        out_of_range(40000),
        out_of_range(1LL << 40),
        {[&] { data->DoVerb("GetDimSize", 2, args); }, 128, "No such dimension in Image: 2"},
        {[&] { data->DoVerb("notif_elmtyp_chng", 1, args); }, 32,
         "Cannot change image pixel type to: string"},
        {[&] { data->SetElemType(Vector::PMemory, true, true); }, 128,
         "Cannot change image element type to \"memblock\", this type is supported for vectors "
         "only."},
        {[&] { doubles->ExtractCoded(0, nullptr, nullptr); }, 4096,
         "Image::ExtractCoded(): pixel type not supported: " + doubles->GetDescription()},
        {[&] { negative->Depth8(); }, 128,
         "Conversion to 8bpp not supported for negative pixel values: " +
             negative->GetDescription()},
        {[&] { stale->Depth8(); }, 128,
         "Cannot convert to 8bpp: image contains negative values: -2"},
        {[&] { wide->Depth8(); }, 128,
         "Conversion to 1 Bpp not implemented for: " + wide->GetDescription()},
        {[&] { ConstructImageFromColorPlanes(uneven); }, 512,
         "Cannot convert into image: " + uneven->GetDescription()},
        {[&] { Texts({"a"})->Convert(safestringlist(), "image", throw_always); }, 512,
         "Cannot convert into image: Vector of 1 elements of type string"},
        {[&] { colours->EnsureFactor(1e-5); }, 512,
         "Data overflow: either 6e+07 or 1.4e+06 does not fit into destination data type of 3 "
         "byte, " +
             colours->GetDescription() + "."},
    });
    EXPECT_EQ(TextOf(data) + "|" + TextOf(shorts) + "|" + TextOf(constant) + "|" + TextOf(colours),
              "1 2 3 4|1 2 3 4|9|14 600");
    EXPECT_FALSE(data->SetSubItem("type", DataItem("photo"), throw_never));
    for (char const* key : {"9e99,0", "0,4294967296", "1,2", "x,1"})
        EXPECT_FALSE(shorts->SetSubItem(key, DataItem(7), throw_never)) << key;
    for (int const height : {-1, 0x7FFFFFFF}) {
        args[0] = DataItem(height);
        EXPECT_THROW(data->DoVerb("SetDimSizes", 1, args), Exception);
    }
    EXPECT_EQ(TextOf(cref(data).GetDimSizes()), "2 2");
    constant->UnsignedShortPointer()[0] = 0; // its frame is clear: nothing is to be written
    constant->ContentHasBeenChanged();
    constant->SetType(Image::stencil);
    EXPECT_EQ(constant->Type(), Image::stencil);
}

TEST(Image, LengthAndSizesFollowEachOther)
{
    auto image = Picture<int>(2, 2, {1, 2, 3, 4});
    image->ResizeVector(6, true, true);
    EXPECT_EQ(image->height(), 3u);
    unsigned int const sizes[] = {3, 1};
    image->ChangeDimSizes(sizes, 2);
    EXPECT_EQ(TextOf(image), "1 2 3");
    EXPECT_EQ(TextOf(cref(image).GetDimSizes()), "3 1");
    EXPECT_EQ(image->GetDimSize(-1), 0u);
    EXPECT_EQ(TextOf(Image::Create(Ints({1, 2, 3})->Chunk(), 2, 2, 1.0)), "1 2 3 0");
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
        ASSERT_TRUE(Set(image, "type", word));
        EXPECT_EQ(image->Type(), type);
        EXPECT_STREQ(image->GetDescription().c_str(), text);
        EXPECT_EQ(image->Conforms("stencil"), type == Image::stencil);
        EXPECT_EQ(image->Conforms("Mask"), type == Image::mask);
    }
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
}

TEST(Image, BecomesAStencilWithAClearFrame)
{
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
    image->UnsignedShortPointer()[0] = 1; // a stencil already is not looked at again
    image->SetType(Image::stencil);
    EXPECT_EQ(log.Lines().size(), 1u);
    auto const empty = Image::Create(5, 0, Vector::UnsignedInt, 1.0);
    empty->SetType(Image::stencil);
    EXPECT_EQ(empty->GetStencilCount(), 0);
}

TEST(Image, ItsFrameIsClearIfNoPixelOfItIsSet)
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
        ASSERT_TRUE(Set(image, "1,1", value));
        EXPECT_EQ(image->GetStencilCount(), count);
        EXPECT_EQ(image->SecondaryInt(100, throw_always), value);
        EXPECT_DOUBLE_EQ(Get(image, "@mean").GetDouble(), value / 9.0);
        EXPECT_EQ(Faults(*image), "");
    }
    // They look at no pixel but the written one: a maximum that is known is kept in step.
    image->UnsignedShortPointer()[0] = 99; // no notice of a change
    ASSERT_TRUE(Set(image, "1,1", 13));
    EXPECT_EQ(image->GetStencilCount(), 13);
    image->UnsignedShortPointer()[0] = 0;
    auto const fractions = Picture<float>(3, 3, {});
    fractions->SetType(Image::stencil);
    ASSERT_TRUE(Set(fractions, "1,1", 2.5));
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
    EXPECT_TRUE(Set(far, "0,0", DataItem(3000000000LL)));
    EXPECT_EQ(cref(far).UnsignedIntPointer()[0], 3000000000u);
}

TEST(Image, IsHashedAsWhatItHasBecome)
{
    auto const image = Picture<unsigned short>(4, 4, {});
    auto const list = IndexVector::Create(0, 4, 4);
    std::vector<std::string> seen{GetText(image, "@md5"), GetText(list, "@md5")};
    unsigned int const sizes[] = {2, 8};
    std::function<void()> const steps[] = {[&] { image->ChangeDimSizes(sizes, 2); },
                                           [&] { image->SetType(Image::stencil); },
                                           [&] { image->SetStencilCount(7); }};
    for (auto const& step : steps) {
        step();
        seen.push_back(GetText(image, "@md5"));
    }
    list->SetImageDimensions(2, 8);
    seen.push_back(GetText(list, "@md5"));
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end());
}

TEST(Image, AnEdgeThatLeavesNoPixelOrAStencilWithoutCountIsAFault)
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
}

TEST(Image, IsEqualWithTheSameEdgeOnly)
{
    auto const image = Picture<unsigned short>(4, 4, {});
    image->SetEdgeWidth(2);
    auto const other = DerivedPointer<Image>(image->Clone(true));
    EXPECT_TRUE(*image == *other);
    other->SetEdgeWidth(0);
    EXPECT_FALSE(*image == *other);
}

TEST(Image, PixelsAreWrittenAndReadByTheirPlace)
{
    auto image = Picture<short>(2, 2, {1, 2, 3, 4}, 0.5);
    EXPECT_TRUE(Set(image, " 1 , 0 ", 7)); // raw
    EXPECT_TRUE(Set(image, "0,1", 7.0));   // cooked
    EXPECT_EQ(TextOf(image), "1 7 14 4");
    auto const wide = Picture<long long>(1, 1, {0});
    EXPECT_TRUE(Set(wide, "0,0", DataItem((1LL << 60) + 1)));
    EXPECT_EQ(*cref(wide).TypedPointer<long long>(), (1LL << 60) + 1);
    std::pair<char const*, double> const cases[] = {
        {"1,1", 2.0}, {"_1,1", 4.0}, {"2,0", 7.0}}; // runs on into the next row
    for (auto [key, value] : cases)
        EXPECT_EQ(Get(image, key).GetDouble(), value) << key;
    for (char const* key : {"0,2", "18446744073709551615,1", "1,2147483647", "1,-1", "_,1", "1,"})
        EXPECT_TRUE(image->GetSubItem(key, throw_never).IsUndefined()) << key;
    DerivedPointer<Vector> const slice(image->ResolveSubItem("1..2", throw_always).GetMemory());
    EXPECT_STREQ(slice->Class(), "vector");
    EXPECT_EQ(TextOf(slice), "7 14");
    EXPECT_EQ(Get(image, "range").GetMemory()->GetDescription(), "[0..4)");
}

TEST(Image, KeysGiveItsSizesAndOthersAreTakenAndIgnored)
{
    auto image = Picture<unsigned short>(3, 2, {1, 2, 3, 4, 5, 6});
    std::tuple<char const*, int> const keys[] = {{"width", 3},     {"ImageHeight", 2},
                                                 {"bpp", 16},      {"layercount", 1},
                                                 {"edgewidth", 0}, {"itemcount", 6}};
    for (auto [key, value] : keys)
        EXPECT_EQ(Get(image, key).GetInt(), value) << key;
    EXPECT_EQ(Get(image, "image").GetMemory().Pointer(), image.Pointer());
    EXPECT_TRUE(Set(image, "itemcount", 8) && Set(image, "layercount", 8));
    EXPECT_TRUE(GetText(image, "!").starts_with("width,height,bpp,layercount,type,%edgewidth,"));
}

TEST(Image, VerbsReadSetAndExchangeItsSizes)
{
    auto image = Picture<unsigned short>(3, 2, {1, 2, 3, 4, 5, 6});
    SafeValue args[] = {DataItem(0), DataItem(6)};
    EXPECT_EQ(image->DoVerb("getrank", 0, nullptr).GetInt(), 2);
    EXPECT_EQ(image->DoVerb("GetDimSize", 0, nullptr).GetInt(), 3);
    EXPECT_EQ(image->DoVerb("GetDimSize", 1, args).GetInt(), 2); // whatever the argument is
    DerivedPointer<Image> const turned(image->DoVerb("Transpose", 0, nullptr).GetMemory());
    EXPECT_EQ(TextOf(turned), "1 4 2 5 3 6");
    EXPECT_EQ(turned->width(), 2u);
    args[0] = DataItem(1);
    EXPECT_EQ(image->DoVerb("SetDimSizes", 2, args).GetInt(), 1); // the height comes first
    EXPECT_EQ(image->width(), 6u);
}

TEST(Image, CropsKeepPlaceAndSize)
{
    auto image = Picture<unsigned char>(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 2.0);
    EXPECT_EQ(TextOf(image->Crop(1, 1)), "5 6 8 9");
    EXPECT_EQ(TextOf(image->Crop(2, 2, 0, 0)), "1 2 4 5"); // corners exchanged
    EXPECT_EQ(TextOf(image->DoCrop(-1, 1, 1, 4)), "0 4 0 7 0 0");
    EXPECT_EQ(TextOf(image->DoCrop(5, 5, 7, 6)), "0 0");
    auto const none = image->Crop(1, 0, 1, 3);
    EXPECT_EQ(none->GetDescription(), "Data image 0x3, 8bpp (byte), raw factor 2");
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
}

TEST(Image, GoesToOneByteAPixel)
{
    auto const at_depth8 = [](DerivedPointer<Image> const& image) {
        image->Depth8();
        return TextOf(image) + Text(", factor %g", image->Factor()).c_str();
    };
    EXPECT_EQ(at_depth8(Picture<unsigned short>(3, 1, {255, 100, 0}, 3.0)), "255 100 0, factor 3");
    EXPECT_EQ(at_depth8(Picture<unsigned short>(3, 1, {256, 101, 1})), // halves go up
              "128 51 1, factor 2");
    EXPECT_EQ(at_depth8(Picture<triple>(1, 1, {0x0A0502u})), "6, factor 1");
    EXPECT_EQ(at_depth8(Picture<float>(4, 1, {510.0f, 0.0f / 0.0f, 1.0f / 0.0f, 2.0f})),
              "255 0 0 1, factor 2");
    auto const seen = Picture<int>(1, 1, {510});
    seen->SetType(Image::visual);
    EXPECT_EQ(at_depth8(seen), "255, factor 1");
    EXPECT_EQ(at_depth8(Image::Create(0, 3, Vector::Int, 1.0)), ", factor 1");

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
    using Short = unsigned short;
    EXPECT_EQ(join(Short(65535), Short(382), Short(383)), "255 1 2");
}

namespace {

DerivedPointer<Image> Seen(DerivedPointer<Image> const& image)
{
    image->SetType(Image::visual);
    return image;
}

DerivedPointer<Vector> Converted(MemBlock const& source, char const* words, char const* classname)
{
    return DerivedPointer<Vector>(
        source.Convert(safestringlist(safestring(words), ','), classname, throw_always));
}

} // namespace

TEST(Image, ComesFromVectorsByConversion)
{
    auto const numbers = Bytes({1, 2, 3}, 0.5);
    auto const line = Converted(*numbers, "", "image");
    EXPECT_EQ(line->GetDescription(), "Data image 3x1, 8bpp (byte), raw factor 0.5");
    EXPECT_EQ(cref(line).Pointer(), cref(numbers).Pointer()); // the same buffer
    auto const grey = Converted(*Bytes({7}), "24bpp,replicate", "image");
    EXPECT_EQ(*cref(grey).TriplePointer(), 0x070707u);
    // A request for bytes divides, as no shift does.
    auto const eighth =
        cref(Picture<unsigned short>(1, 1, {765})).ConvertElemsToType(Vector::Byte, true, false);
    EXPECT_EQ(TextOf(eighth), "255");
    EXPECT_EQ(eighth->Factor(), 3.0);
}

/// By the cooked values where these are bytes, otherwise by what a byte keeps.
TEST(Image, GreyShowsAsGreyInColours)
{
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
        auto const colours = Converted(*image, "24bpp,replicate", "image");
        EXPECT_EQ(colours->GetDescription(),
                  Text("Visual color image %dx%d", image->width(), image->height()));
        std::string channel;
        for (triple const pixel : ElementsOf<triple>(colours)) {
            channel += (channel.empty() ? "" : " ") + std::to_string(pixel.b[0]);
            EXPECT_TRUE(pixel.b[0] == pixel.b[1] && pixel.b[0] == pixel.b[2]);
        }
        EXPECT_EQ(channel, text) << image->GetDescription().c_str();
        if (image->Type() == Image::visual) {
            EXPECT_EQ(TextOf(Converted(*image, "8bpp", "image")), text);
        }
    }
}

TEST(Image, ConvertsToOneWithClearBordersOrToAList)
{
    auto const full = Picture<short>(3, 3, std::vector<short>(9, 4));
    EXPECT_EQ(TextOf(Converted(*full, "clearedborders", "image")), "0 0 0 0 4 0 0 0 0");
    EXPECT_EQ((*full)[0], 4);
    EXPECT_STREQ(Converted(*full, "vector", "image")->Class(), "vector");
    auto const mask = Picture<unsigned char>(2, 1, {0, 1});
    mask->SetType(Image::mask);
    EXPECT_EQ(TextOf(Converted(*mask, "vector", "")), "1");
}

TEST(Image, StaysWhatItIsInArithmetic)
{
    auto const image = Picture<unsigned char>(2, 1, {250, 3});
    DerivedPointer<Image> const sum(image->op('+', Bytes({10}), {}));
    EXPECT_EQ(TextOf(sum), "260 13");
    EXPECT_EQ(sum->width(), 2u);
    auto const labels = Picture<unsigned short>(3, 3, {0, 0, 0, 0, 7, 0, 0, 0, 0});
    labels->SetType(Image::stencil);
    EXPECT_TRUE(labels->op('!', Bytes({0}), {})->Conforms("mask"));
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
}

namespace {

/// A way to other pixels; null for one that changes the image itself.
struct Way {
    char const* name;
    std::function<PMemBlock(Image&, DerivedPointer<Vector> const&)> go;
};

template <class Edit>
Way InPlace(char const* name, Edit edit)
{
    return {name, [edit](Image& image, auto const& v) {
                edit(image, v);
                return PMemBlock();
            }};
}

op_options ResultOf(Vector const& v)
{
    op_options options;
    options.SetValue("fixed_result_type", static_cast<int>(v.ElemType()));
    return options;
}

Way const ways[] = {
    InPlace("Append", [](Image& image, auto& v) { image.Append(v); }),
    InPlace("SetTypedChunk", [](Image& image, auto& v) { image.SetTypedChunk(cref(v).Chunk()); }),
    InPlace("SetElemType",
            [](Image& image, auto& v) { image.SetElemType(v->ElemType(), true, false); }),
    InPlace("SetElemType, bytes",
            [](Image& image, auto& v) { image.SetElemType(v->ElemType(), false, false); }),
    InPlace("UseMemoryOf", [](Image& image, auto& v) { image.UseMemoryOf(v); }),
    InPlace("TransferOwnerShip",
            [](Image& image, auto& v) {
                VectorOf(v->Clone(true))->TransferOwnerShip(DerivedPointer<Vector>(&image));
            }),
    InPlace("Depth8", [](Image& image, auto&) { image.Depth8(); }),
    {"ConvertElemsToType",
     [](Image& image, auto& v) { return image.ConvertElemsToType(v->ElemType(), true, true); }},
    {"ConvertElemsToType, open",
     [](Image& image, auto& v) {
         auto const open = image.ConvertElemsToType(v->ElemType(), false, false);
         open->Clear();
         return open;
     }},
    {"Convert",
     [](Image& image, auto& v) {
         auto const words = Text("elemtype=%d", static_cast<int>(v->ElemType()));
         return image.Convert(safestringlist(words, ','), "image", throw_always);
     }},
    {"op", [](Image& image, auto& v) { return image.op('+', v, {}); }},
    {"op, typed", [](Image& image, auto& v) { return image.op('|', v, ResultOf(cref(v))); }},
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
    bool const labels = type == Vector::UnsignedShort || type == Vector::UnsignedInt;
    return image.Type() == Image::mask ? type == Vector::Byte
           : image.Type() == Image::stencil
               ? labels
               : image.Type() == Image::data || image.Type() == Image::visual;
}

} // namespace

TEST(Image, KeepsToItsClassOnEveryWayToOtherPixels)
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
            for (Way const& way : ways) {
                auto const target = static_cast<DataType>(to);
                if (!IsInSet<AllTypes>(target) || target == Vector::VoidStar)
                    continue;
                auto const image = OfClass(type, pixels);
                auto const before = image->Clone(false);
                SCOPED_TRACE(
                    Text("%s, %s to %s", *image, way.name, Vector::TypeToString(target)).c_str());
                auto const other = Vector::Create(64, target, true, 0, 1.0);
                if (!Vector::IsObject(target))
                    other->SetElem(9, 12); // a label above the count
                PMemBlock result;
                try {
                    result = way.go(*image, other);
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
