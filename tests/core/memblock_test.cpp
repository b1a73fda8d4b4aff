#include <memblock/core/memblock.h>

#include <memblock/base/raise.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/serial/warning.h>

#include "support/raises.h"
#include "support/testblock.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using namespace NKelmic;

namespace {

/// A second class with no relation to `TestBlock`, to be told apart by casts.
class OtherBlock : public TestBlock {
public:
    static char const* StaticClass() { return "otherblock"; }
    OtherBlock() { class_name = StaticClass(); }
};

/// An image of an earlier version: logic class 3 was a stencil, 5 a mask.
DerivedPointer<TestBlock> OldImage(int lg_type)
{
    auto image = TestBlock::Create();
    image->conforms = "image";
    image->DoSetLgType(lg_type);
    return image;
}

/// Collects alarms through the hook of the macro engine while it lives.
class AlarmLog {
public:
    AlarmLog()
    {
        lines.clear();
        Install(Collect);
    }
    ~AlarmLog() { Install(nullptr); }
    static inline std::vector<std::string> lines;

private:
    typedef void (*Hook)(char const*, int, int, char const*);
    static void Collect(char const* text, int severity, int code, char const* source)
    {
        lines.push_back(std::string(text) + "|" + std::to_string(severity) + "|" +
                        std::to_string(code) + "|" + source);
    }
    static void Install(Hook hook)
    {
        MemBlock_DoVerb("set_sendalarmkelmicfunc",
                        SafeValue(DataItem(reinterpret_cast<void*>(hook))));
    }
};

std::string Address(void const* p)
{
    return Text("%p", p).c_str();
}

safestring IllegalCast(char const* wanted)
{
    return Text("Illegal MemBlock cast: testblock --> %s", wanted);
}

safestring NotConforming(char const* wanted, PMemBlock const& block)
{
    return Text("Data does not conform to \"%s\" class: %s", wanted, block);
}

} // namespace

TEST(PMemBlock, OwnsByCountAndDeletesOnce)
{
    int destroyed = 0;
    auto* raw = new TestBlock;
    raw->destroyed = &destroyed;
    EXPECT_EQ(raw->RefCount(), 0);
    PMemBlock a(raw);
    {
        PMemBlock b(a);
        PMemBlock c;
        c = b;
        EXPECT_EQ(raw->RefCount(), 3);
        PMemBlock d(std::move(b));
        EXPECT_FALSE(b);
        c = std::move(d);
        EXPECT_EQ(raw->RefCount(), 2);
        c = c;
        EXPECT_EQ(raw->RefCount(), 2);
        c = std::move(c);
        EXPECT_EQ(c.Pointer(), raw);
    }
    EXPECT_EQ(raw->RefCount(), 1);
    EXPECT_EQ(destroyed, 0);
    a = PMemBlock();
    EXPECT_EQ(destroyed, 1);
}

TEST(PMemBlock, AssignmentIsSafeWhereTheOldObjectOwnsTheNewOne)
{
    int destroyed = 0;
    auto const child = TestBlock::Create();
    child->destroyed = &destroyed;
    PMemBlock p = TestBlock::Create({{"child", DataItem(child)}});
    PMemBlock const& place = static_cast<TestBlock&>(*p).items["child"].MemoryRef();
    p = place;
    EXPECT_EQ(p.Pointer(), child.Pointer());
    EXPECT_EQ(child->RefCount(), 2);
    EXPECT_EQ(destroyed, 0);
}

TEST(MemBlock, UndeletableObjectSurvivesItsLastRelease)
{
    int destroyed = 0;
    TestBlock local;
    local.destroyed = &destroyed;
    local.RaiseFlags(MemBlock::mem_undeletable);
    for (int i = 0; i < 2; ++i) {
        PMemBlock owner(&local);
        owner = PMemBlock();
        EXPECT_EQ(local.RefCount(), 0);
    }
    local.Capture();
    EXPECT_EQ(local.Release(), 0);
    EXPECT_EQ(destroyed, 0);
}

TEST(MemBlock, DestructorMayTakePointersOnItsObject)
{
    int destroyed = 0;
    auto block = TestBlock::Create();
    block->destroyed = &destroyed;
    block->on_destroy = [](TestBlock& self) {
        PMemBlock const a(&self);
        PMemBlock const b(a);
    };
    block = nullptr;
    EXPECT_EQ(destroyed, 1);
}

TEST(MemBlock, ThrowingDestructorIsToldOfAndContained)
{
    AlarmLog const alarms;
    auto const drop = [](std::function<void(TestBlock&)> const& what) {
        auto* raw = new TestBlock;
        raw->on_destroy = what;
        raw->Capture();
        return std::pair(Address(raw), StderrOf([&] { EXPECT_EQ(raw->Release(), 0); }));
    };

    auto [address, line] = drop([](TestBlock&) { throw std::runtime_error("bad end"); });
    std::string text =
        "MemBlock::Release() (" + address + "): Memblock destructor threw an exception: bad end";
    EXPECT_EQ(line, text + "\n");
    EXPECT_EQ(AlarmLog::lines, std::vector<std::string>{text + "|4|0|"});

    AlarmLog::lines.clear();
    std::tie(address, line) = drop([](TestBlock&) { throw 5; });
    EXPECT_EQ(line, "MemBlock::Release() (" + address + "): hardware-reported exception.\n");
    EXPECT_EQ(AlarmLog::lines, std::vector<std::string>{"MemBlock::Release() (" + address +
                                                        "): unknown exception: |4|0|"});
}

TEST(MemBlock, LongChainIsDeletedWithoutDeepRecursion)
{
    int destroyed = 0;
    DerivedPointer<TestBlock> chain;
    constexpr int length = 100'000;
    for (int i = 0; i < length; ++i) {
        auto const next = TestBlock::Create();
        next->destroyed = &destroyed;
        if (chain)
            next->items["next"] = DataItem(chain);
        chain = next;
    }
    chain = nullptr;
    EXPECT_EQ(destroyed, length);
}

TEST(MemBlock, CloneIsWritableDeletableAndKeepsItsType)
{
    auto const block = TestBlock::Create();
    block->DoSetLgType(7);
    block->RaiseFlags(MemBlock::mem_undeletable | MemBlock::mem_const | MemBlock::mem_clone_kept |
                      0x4000);
    PMemBlock const clone = block->Clone(true);
    EXPECT_EQ(clone->Flags(), unsigned(MemBlock::mem_clone_kept | 0x4000));
    EXPECT_EQ(clone->LgType(), 7);
    EXPECT_EQ(clone->RefCount(), 1);
    EXPECT_EQ(clone->PimplIfAny(), nullptr);
    EXPECT_EQ(MemCast<TestBlock>(clone)->clone_mode, 1);
    EXPECT_EQ(MemCast<TestBlock>(block->Clone(false))->clone_mode, 0);
    block->ClearFlags(MemBlock::mem_undeletable);
}

TEST(MemBlock, DescriptionsAreGivenForNullToo)
{
    MemBlock const* const volatile null = nullptr; // not known to the compiler
    MemBlock const* const block_of_none = null;
    EXPECT_EQ(block_of_none->GetDescription(), "none");
    EXPECT_EQ(PMemBlock().GetDescription(), "none");
    EXPECT_EQ(Describe(nullptr), "none");
    auto const block = TestBlock::Create();
    block->RaiseFlags(0x84);
    EXPECT_EQ(block->GetDescription(), "{testblock} refcount=1, flags=0x0084");
    EXPECT_EQ(Text("%s %s %s %s", block, *block, block.Pointer(), null),
              "{testblock} refcount=1, flags=0x0084 {testblock} refcount=1, flags=0x0084 "
              "{testblock} refcount=1, flags=0x0084 none");
    block->ClearFlags(MemBlock::mem_undeletable);
}

TEST(MemBlock, LogicalTypeIsSetByWord)
{
    auto const block = TestBlock::Create();
    block->DoSetLgType(9);
    EXPECT_EQ(block->LgType2String(9), "");
    block->SetSecondaryItem(100, DataItem(1));
    block->SetLgType("DEFAULT");
    EXPECT_EQ(block->LgType(), 0);
    EXPECT_EQ(block->LgType2String(0), "default");
    EXPECT_FALSE(Cached(block, 100)) << "the cache knows of the change";
    EXPECT_RAISES(block->SetLgType(""), 4096,
                  Text("Invalid lg_type \"\" for this object: %s", *block));
}

TEST(MemBlock, EqualityAsksTheContentOnlyForEqualClassNames)
{
    auto const a = TestBlock::Create();
    auto const b = TestBlock::Create();
    b->class_name = "TestBLOCK";
    EXPECT_TRUE(*a == *b);
    EXPECT_EQ(a->equals_calls, 1);
    a->equals = false;
    EXPECT_FALSE(*a == *b);
    b->class_name = "other";
    EXPECT_FALSE(*a == *b);
    EXPECT_EQ(a->equals_calls, 2);
    EXPECT_RAISES(a->op('+', b, op_options()), 4096,
                  "Operation '+' not supported for object type: other");
}

TEST(MemBlock, ConsistencyWantsAnOwner)
{
    safestring message = "before. ";
    TestBlock local;
    EXPECT_FALSE(local.Consistent(message, true));
    EXPECT_EQ(message, "before. Reference count negative. ");
    EXPECT_TRUE(TestBlock::Create()->Consistent(message, true));
}

TEST(Cast, ConstructionTakesNullAndRaisesIllegalCast)
{
    PMemBlock const block = TestBlock::Create();
    EXPECT_FALSE(DerivedPointer<TestBlock>(PMemBlock()));
    EXPECT_EQ(DerivedPointer<TestBlock>(block).Pointer(), block.Pointer());
    EXPECT_RAISES(DerivedPointer<OtherBlock>{block}, 128, IllegalCast("otherblock"));
    EXPECT_RAISES(MemBlockConformsInternal(block, "vector"), 128, IllegalCast("vector"));
    EXPECT_TRUE(MemBlockConformsInternal(block, "MemBlock"));
}

TEST(Cast, AssignmentRaisesForNullAndForOtherClasses)
{
    PMemBlock const block = TestBlock::Create();
    DerivedPointer<OtherBlock> other;
    EXPECT_RAISES(other = block, 512, NotConforming("otherblock", block));
    EXPECT_RAISES(other = PMemBlock(), 512, NotConforming("otherblock", PMemBlock()));
    EXPECT_RAISES(PMemBlock(PMemBlock(), "vector"), 512,
                  "Data does not conform to \"vector\" class: none");
    EXPECT_RAISES((DerivedPointer<OtherBlock>(block, "otherblock")), 512,
                  NotConforming("otherblock", block));
    EXPECT_EQ(PMemBlock(block, "TESTBLOCK").Pointer(), block.Pointer());
    EXPECT_EQ(block->RefCount(), 1);
}

TEST(Cast, ANameIsNotEnough)
{
    auto const lookalike = TestBlock::Create();
    lookalike->conforms = "otherblock";
    PMemBlock const block = lookalike;
    EXPECT_EQ(MemCast<OtherBlock>(block), nullptr);
    EXPECT_EQ(MemCast<OtherBlock>(block.Pointer()), nullptr);
    EXPECT_RAISES(DerivedPointer<OtherBlock>{block}, 128, IllegalCast("otherblock"));
    DerivedPointer<OtherBlock> other;
    EXPECT_RAISES(other = block, 512, NotConforming("otherblock", block));
    DerivedPointer<OtherBlock> const real(new OtherBlock);
    EXPECT_EQ(MemCast<OtherBlock>(PMemBlock(real)), real.Pointer());
    EXPECT_EQ(MemCast<TestBlock>(PMemBlock(real)), nullptr) << "nor is the type";
    DerivedPointer<TestBlock> up = real; // no name test up the class tree
    up = DerivedPointer<OtherBlock>();
    EXPECT_FALSE(up);
}

TEST(BackwardCompatibility, OldImagesTurnIntoStencilsAndMasks)
{
    for (auto const& [name, old_type, new_type] :
         {std::tuple("stencil", 3, 13), {"STENCIL", 3, 13}, {"mask", 5, 12}}) {
        SCOPED_TRACE(name);
        auto const image = OldImage(old_type);
        image->RaiseFlags(MemBlock::mem_const);
        image->SetSecondaryItem(100, DataItem(1));
        PMemBlock const converted(image, name); // the count is 1 here: changed on the spot
        EXPECT_EQ(converted.Pointer(), image.Pointer());
        EXPECT_EQ(image->LgType(), new_type);
        EXPECT_EQ(image->Flags(), 0u);
        EXPECT_FALSE(Cached(image, 100));
    }
}

TEST(BackwardCompatibility, OtherOwnersKeepTheirImage)
{
    auto const image = OldImage(3);
    PMemBlock const mine = image;
    PMemBlock const converted(mine, "stencil");
    EXPECT_EQ(image->LgType(), 3);
    EXPECT_EQ(converted->LgType(), 13);
    EXPECT_EQ(mine.Pointer(), converted.Pointer()) << "the source follows";
    EXPECT_EQ(image->RefCount(), 1);
    EXPECT_EQ(MemCast<TestBlock>(converted)->clone_mode, 1);
}

TEST(BackwardCompatibility, NothingElseIsTouched)
{
    EXPECT_FALSE(OldImage(5).Conforms("stencil"));
    EXPECT_FALSE(OldImage(3).Conforms("mask"));
    EXPECT_FALSE(OldImage(3).Conforms("image2"));
    auto const block = TestBlock::Create();
    block->DoSetLgType(3);
    EXPECT_FALSE(block.Conforms("stencil"));
    EXPECT_EQ(block->LgType(), 3);
    EXPECT_FALSE(PMemBlock().MakeBackwardCompatAutoConversionsToConform("stencil"));
}

TEST(Names, DigitsAreRecognised)
{
    EXPECT_TRUE(IsNaturalInteger("0123", ','));
    EXPECT_TRUE(IsNaturalInteger("1,2", ','));
    for (char const* text : {"", "-1", "1.2", "x"})
        EXPECT_FALSE(IsNaturalInteger(text, ',')) << text;
    EXPECT_TRUE(NumericNonNegativeInteger(""));
    EXPECT_TRUE(NumericNonNegativeInteger("007"));
    EXPECT_FALSE(NumericNonNegativeInteger("7,"));
}
