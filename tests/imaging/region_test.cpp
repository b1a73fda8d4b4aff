#include "images.h"

#include <memblock/core/options.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/mask.h>
#include <memblock/imaging/stencil.h>

namespace {

using namespace NKelmic;

DerivedPointer<Image> Labels(std::vector<std::pair<unsigned int, unsigned short>> const& pixels)
{
    auto const image = Image::Create(5, 4, Vector::UnsignedShort, 1.0);
    for (auto const& [at, label] : pixels)
        image->UnsignedShortPointer()[at] = label;
    return image;
}

TEST(Regions, EachFormIsMadeFromTheOtherOneOnceAndKept)
{
    auto const mask = Mask::Create(DerivedPointer<Vector>(Pixels({6, 8})));
    EXPECT_EQ(mask->GetDescription(), "Mask for 5x4 images, in vector representation");
    auto const image = mask->GetImageRepr();
    EXPECT_EQ(image->Type(), Image::mask);
    EXPECT_EQ(TextOf(PMemBlock(image->CloneSlice(5, 10))), "0 1 0 1 0");
    EXPECT_EQ(mask->GetImageRepr(), image);

    auto const stencil = Stencil::Create(DerivedPointer<Vector>(Labels({{6, 2}, {7, 1}, {8, 2}})));
    EXPECT_EQ(stencil->GetDescription(), "Stencil for 5x4 images, in image representation");
    auto const objects = stencil->GetVectorRepr();
    EXPECT_EQ(objects->GetDescription(),
              "Stencil of 2 objects for 5x4 images, in vector representation.");
    EXPECT_EQ(GetText(objects, "mask"), "7 6 8");
    EXPECT_EQ(stencil->GetVectorRepr(), objects);
    EXPECT_EQ(cref(Mask::Create(DerivedPointer<Vector>(objects))).GetVectorRepr()->Length(), 3u);
    for (PMemBlock const& block : {PMemBlock(mask), PMemBlock(stencil), PMemBlock(Mask::Create()),
                                   PMemBlock(Stencil::Create())}) {
        EXPECT_EQ(Faults(*block), "");
        EXPECT_TRUE(*block->Clone(true) == *block && *block->Clone(false) == *block);
    }
    EXPECT_EQ(Mask::Create()->GetImageRepr()->Length(), 0u);
    EXPECT_EQ(Stencil::Create()->GetImageRepr()->Type(), Image::stencil);
}

TEST(Regions, ContentIsTakenWithoutTouchingOtherOwners)
{
    auto image = Image::Create(2, 2, Vector::UnsignedInt, 1.0);
    image->UnsignedIntPointer()[3] = 70000;
    auto const mask = Mask::Create(DerivedPointer<Vector>(image));
    EXPECT_EQ(image->ElemType(), Vector::UnsignedInt);
    EXPECT_EQ(TextOf(mask->GetImageRepr()), "0 0 0 1");
    Image const* const handed_over = image.Pointer();
    mask->SetContent(std::move(image));
    EXPECT_EQ(mask->GetImageRepr().Pointer(), handed_over);
}

TEST(Regions, AWriteGoesToTheCurrentFormAndToNoOtherOwnerOfIt)
{
    auto const list = Pixels({6, 8});
    auto const mask = Mask::Create(DerivedPointer<Vector>(list));
    mask->GetImageRepr();
    Set(mask, "target_rank", 3);
    EXPECT_EQ(list->TargetRank(), 2);
    EXPECT_EQ(mask->GetTargetData().dims.size(), 3u);
    EXPECT_EQ(mask->GetImageRepr()->width(), 5u);
    EXPECT_EQ(Faults(*mask), "Mask target is not an image: Mask for 0x0 images, in vector "
                             "representation\n");
    auto const stencil = Stencil::Create(); // of numbers now, which are in no image
    Set(stencil, "type", "subnum");
    EXPECT_EQ(Faults(*stencil), "Stencil target is not an image: Stencil for 0x0 images, in "
                                "vector representation\n");
    EXPECT_EQ(TextOf(mask->op('=', nullptr, op_options())), "0");
}

TEST(Regions, RefuseWhatIsNoFormOfThem)
{
    ExpectRefusals(
        {{[] { Mask::Create(PMemBlock(Ints({1}))); }, 128,
          "Invalid object for Mask::SetContent(): Vector of 1 elements of type signed int"},
         {[] { Stencil::Create(PMemBlock(Pixels({1}))); }, 128,
          "Invalid representation object for Stencil::SetContent(): Mask for 5x4 images, in "
          "vector representation."},
         {[] { Stencil::Create(PMemBlock(Image::Create(1, 1, Vector::Byte, 1.0))); }, 128,
          "Attempt to declare a non-16, non-32 bpp image to be a stencil: Data image 1x1, 8bpp "
          "(byte), raw factor 1"}});
}

TEST(Regions, KeysAnswerForEitherForm)
{
    auto const stencil = Stencil::Create(DerivedPointer<Vector>(Labels({{6, 1}, {7, 1}, {13, 3}})));
    auto const mask = Mask::Create(DerivedPointer<Vector>(Pixels({6, 13})));
    std::tuple<PMemBlock, char const*, char const*> const rows[] = {
        {stencil, "itemcount", "3"},   {stencil, "area", "3"}, {stencil, "imagewidth", "5"},
        {stencil, "imageheight", "4"}, {mask, "area", "2"},    {mask, "y", "1 2"}};
    for (auto const& [region, key, text] : rows)
        EXPECT_EQ(GetText(region, key), text) << key;
}

TEST(Regions, ConversionsGoBetweenTheForms)
{
    PMemBlock const image = Labels({{6, 1}, {7, 2}});
    PMemBlock const stencil = Stencil::Create(DerivedPointer<Vector>(image));
    std::tuple<PMemBlock, char const*, char const*, char const*> const cases[] = {
        {image, "image", "stencil", "image"},
        {image, "", "stencil", "intervalvector"},
        {image, "representation=stencil", "stencil", "stencil"},
        {stencil, "image", "", "image"},
        {stencil, "vector", "stencil", "intervalvector"},
        {Pixels({6}), "image", "mask", "image"}};
    for (auto const& [source, words, wanted, expected] : cases)
        EXPECT_STREQ(
            source->Convert(safestringlist(safestring(words), ','), wanted, throw_always)->Class(),
            expected)
            << words;
    EXPECT_TRUE(*Mask::Create(PMemBlock(Pixels({6, 8}))) ==
                *Mask::Create(PMemBlock(Pixels({8, 6})->GetMaskImage())));
}

} // namespace
