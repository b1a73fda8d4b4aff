#include <memblock/core/options.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/mask.h>
#include <memblock/imaging/stencil.h>

#include <support/raises.h>
#include <support/vectors.h>

#include <gtest/gtest.h>

namespace {

using namespace NKelmic;

DerivedPointer<IndexVector> Pixels(std::vector<unsigned int> const& list)
{
    return IndexVector::Create(UInts(list), 5, 4);
}

DerivedPointer<Image> Labels(std::vector<std::pair<unsigned int, unsigned short>> const& pixels)
{
    auto const image = Image::Create(5, 4, Vector::UnsignedShort, 1.0);
    for (auto const& [at, label] : pixels)
        image->UnsignedShortPointer()[at] = label;
    return image;
}

bool IsConsistent(PMemBlock const& block)
{
    safestring message;
    bool const ok = block->Consistent(message, true);
    EXPECT_TRUE(ok) << message.c_str();
    return ok;
}

safestring Key(PMemBlock const& block, char const* key)
{
    return block->GetSubItem(key, throw_always).GetString();
}

TEST(Regions, EachFormIsMadeFromTheOtherOneOnceAndKept)
{
    auto const mask = Mask::Create(DerivedPointer<Vector>(Pixels({6, 8})));
    EXPECT_STREQ(mask->GetDescription().c_str(), "Mask for 5x4 images, in vector representation");
    auto const image = mask->GetImageRepr();
    EXPECT_EQ(image->Type(), Image::mask);
    EXPECT_EQ(TextOf(PMemBlock(image->CloneSlice(5, 10))), "0 1 0 1 0");
    EXPECT_EQ(mask->GetImageRepr(), image);

    auto const stencil = Stencil::Create(DerivedPointer<Vector>(Labels({{6, 2}, {7, 1}, {8, 2}})));
    EXPECT_STREQ(stencil->GetDescription().c_str(),
                 "Stencil for 5x4 images, in image representation");
    auto const objects = stencil->GetVectorRepr();
    EXPECT_STREQ(objects->GetDescription().c_str(),
                 "Stencil of 2 objects for 5x4 images, in vector representation.");
    EXPECT_EQ(TextOf(PMemBlock(objects->GetSubItem("mask", throw_always).GetMemory())), "7 6 8");
    EXPECT_EQ(stencil->GetVectorRepr(), objects);
    EXPECT_EQ(cref(Mask::Create(DerivedPointer<Vector>(objects))).GetVectorRepr()->Length(), 3u);
    for (PMemBlock const& block : {PMemBlock(mask), PMemBlock(stencil), PMemBlock(Mask::Create()),
                                   PMemBlock(Stencil::Create())}) {
        EXPECT_TRUE(IsConsistent(block));
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
    EXPECT_EQ(TextOf(PMemBlock(mask->GetImageRepr())), "0 0 0 1");
    Image const* const handed_over = image.Pointer();
    mask->SetContent(std::move(image));
    EXPECT_EQ(mask->GetImageRepr().Pointer(), handed_over);

    // A write goes to the form that stands for the object, and to no other owner of it.
    auto const list = Pixels({6, 8});
    mask->SetContent(list);
    mask->GetImageRepr();
    mask->SetSubItem("target_rank", SafeValue(3), throw_always);
    EXPECT_EQ(list->TargetRank(), 2);
    EXPECT_EQ(mask->GetTargetData().dims.size(), 3u);
    EXPECT_EQ(mask->GetImageRepr()->width(), 5u);
    safestring message;
    EXPECT_FALSE(mask->Consistent(message, true));
    EXPECT_STREQ(message.c_str(), "Mask target is not an image: Mask for 0x0 images, in vector "
                                  "representation\n");

    auto const stencil = Stencil::Create(); // of numbers now, which are in no image
    stencil->SetSubItem("type", SafeValue("subnum"), throw_always);
    message.clear();
    EXPECT_FALSE(stencil->Consistent(message, true));
    EXPECT_STREQ(message.c_str(), "Stencil target is not an image: Stencil for 0x0 images, in "
                                  "vector representation\n");
    EXPECT_EQ(TextOf(mask->op('=', nullptr, op_options())), "0");

    EXPECT_RAISES(mask->SetContent(Ints({1})), 128,
                  "Invalid object for Mask::SetContent(): Vector of 1 elements of type signed int");
    EXPECT_RAISES(
        Stencil::Create(PMemBlock(Pixels({1}))), 128,
        "Invalid representation object for Stencil::SetContent(): Mask for 5x4 images, in "
        "vector representation.");
    EXPECT_RAISES(Stencil::Create(PMemBlock(Image::Create(1, 1, Vector::Byte, 1.0))), 128,
                  "Attempt to declare a non-16, non-32 bpp image to be a stencil: Data image 1x1, "
                  "8bpp (byte), raw factor 1");
}

TEST(Regions, KeysAnswerForEitherForm)
{
    auto const stencil = Stencil::Create(DerivedPointer<Vector>(Labels({{6, 1}, {7, 1}, {13, 3}})));
    std::pair<char const*, char const*> const rows[] = {
        {"itemcount", "3"}, {"area", "3"}, {"imagewidth", "5"}, {"imageheight", "4"}};
    for (auto const& [key, text] : rows)
        EXPECT_STREQ(Key(stencil, key).c_str(), text) << key;
    auto const mask = Mask::Create(DerivedPointer<Vector>(Pixels({6, 13})));
    EXPECT_EQ(TextOf(mask->GetSubItem("y", throw_always).GetMemory()), "1 2");
    for (PMemBlock const& block : {PMemBlock(mask), PMemBlock(stencil)}) {
        safestring list = Key(block, "!");
        list.resize(list.find('@')); // the common keys have their own test
        for (std::size_t from = 0, comma; (comma = list.find(',', from)) != list.npos;
             from = comma + 1)
            EXPECT_TRUE(
                block->GetSubItem(list.substr(from, comma - from), throw_always).IsDefined())
                << list.substr(from).c_str();
    }
}

TEST(Regions, ConversionsGoBetweenTheForms)
{
    auto const image = Labels({{6, 1}, {7, 2}});
    auto const convert = [](PMemBlock const& source, char const* arguments, char const* classname) {
        return source->Convert(safestringlist(safestring(arguments), ','), classname, throw_always);
    };
    EXPECT_STREQ(convert(image, "image", "stencil")->Class(), "image");
    EXPECT_STREQ(convert(image, "", "stencil")->Class(), "intervalvector");
    EXPECT_STREQ(convert(image, "representation=stencil", "stencil")->Class(), "stencil");
    auto const stencil = Stencil::Create(DerivedPointer<Vector>(image));
    EXPECT_STREQ(convert(stencil, "image", "")->Class(), "image");
    EXPECT_STREQ(convert(stencil, "vector", "stencil")->Class(), "intervalvector");
    EXPECT_STREQ(convert(Pixels({6}), "image", "mask")->Class(), "image");
    EXPECT_TRUE(*Mask::Create(PMemBlock(Pixels({6, 8}))) ==
                *Mask::Create(PMemBlock(Pixels({8, 6})->GetMaskImage())));
}

} // namespace
