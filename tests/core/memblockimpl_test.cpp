#include <memblock/core/memblockimpl.h>

#include <memblock/base/raise.h>
#include <memblock/threads/mutex.h>
#include <memblock/vector/summary.h>

#include "support/raises.h"
#include "support/testblock.h"
#include "support/vectors.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using namespace NKelmic;

namespace {

/// Computes a value of its own and counts how often.
class CountingImpl : public MemBlockImpl {
public:
    using MemBlockImpl::MemBlockImpl;
    DataItem CalculateSecondaryItem(int key, ThrowHandlerFunc handler) const override
    {
        ++calculations;
        return key == 100 ? DataItem(2.5) : MemBlockImpl::CalculateSecondaryItem(key, handler);
    }
    mutable int calculations = 0;
};

/// A vector that stands for a picture; colours are its pixels.
class Picture : public Vector {
public:
    explicit Picture(TypedChunk const& pixels) : Vector(pixels, 1.0) {}
    bool Conforms(char const* name) const override
    {
        return SameName(name, "image") || Vector::Conforms(name);
    }
    PMemBlock DoClone(int mode) const override
    {
        DerivedPointer<Picture> const copy(new Picture(*this));
        copy->FinishClone(mode);
        return copy;
    }
};

} // namespace

TEST(Cache, ObjectsHaveNoneUntilTheFirstAccess)
{
    auto const block = TestBlock::Create();
    block->ContentHasBeenChanged();
    EXPECT_EQ(block->PimplIfAny(), nullptr);
    EXPECT_FALSE(Cached(block, 100));
    EXPECT_NE(block->PimplIfAny(), nullptr);
    block->ResetPimpl();
    EXPECT_EQ(block->PimplIfAny(), nullptr);
}

TEST(Cache, UndefinedErases)
{
    auto const block = TestBlock::Create();
    block->SetSecondaryItem(100, DataItem());
    EXPECT_FALSE(Cached(block, 100));
    block->SetSecondaryItem(100, DataItem(5));
    int number = 0;
    EXPECT_TRUE(block->ExistsSecondaryInt(100, number));
    EXPECT_EQ(number, 5);
    block->SetSecondaryItem(100, DataItem(2.5));
    double real = 0;
    EXPECT_TRUE(block->ExistsSecondaryDouble(100, real));
    EXPECT_EQ(real, 2.5);
    block->SetSecondaryItem(100, DataItem());
    EXPECT_FALSE(block->ExistsSecondaryDouble(100, real));
}

TEST(Cache, AChangeDropsAllKeysUpTo10000)
{
    auto const block = TestBlock::Create();
    for (int key : {1, 7, 100, 10000})
        block->SetSecondaryItem(key, DataItem(key));
    EXPECT_EQ(block->Flags() & MemBlock::mem_has_sticky, 0u);
    block->ContentHasBeenChanged();
    EXPECT_FALSE(Cached(block, 10000));

    for (int key : {1, 10000, 10001, 10003})
        block->SetSecondaryItem(key, DataItem(key));
    EXPECT_NE(block->Flags() & MemBlock::mem_has_sticky, 0u);
    block->ContentHasBeenChanged();
    EXPECT_FALSE(Cached(block, 1));
    EXPECT_FALSE(Cached(block, 10000));
    EXPECT_TRUE(Cached(block, 10001));
    EXPECT_TRUE(Cached(block, 10003));
    block->SetSecondaryItem(10001, DataItem());
    block->SetSecondaryItem(10003, DataItem());
    EXPECT_NE(block->Flags() & MemBlock::mem_has_sticky, 0u) << "the flag stays raised";
}

TEST(Cache, ACloneSharesStickyItemsOnly)
{
    auto const block = TestBlock::Create();
    auto const attributes = TestBlock::Create();
    block->SetSecondaryItem(MemBlock::key_sticky, DataItem(attributes));
    block->SetSecondaryItem(MemBlock::key_transient, DataItem(attributes));
    block->SetSecondaryItem(100, DataItem(1));
    PMemBlock const clone = block->Clone(true);
    EXPECT_NE(clone->Flags() & MemBlock::mem_has_sticky, 0u);
    EXPECT_EQ(clone->SecondaryMemBlock(MemBlock::key_sticky, throw_always), PMemBlock(attributes));
    EXPECT_FALSE(Cached(clone, MemBlock::key_transient));
    EXPECT_FALSE(Cached(clone, 100));

    auto const other = TestBlock::Create();
    other->SetSecondaryItem(100, DataItem(1));
    other->CopyStickyAttributesFrom(*TestBlock::Create());
    EXPECT_EQ(other->Flags(), 0u);
    other->CopyStickyAttributesFrom(*block);
    other->ContentHasBeenChanged();
    EXPECT_TRUE(Cached(other, MemBlock::key_sticky));
    EXPECT_FALSE(Cached(other, 100));
}

TEST(Cache, AValueIsComputedOncePerContent)
{
    auto const block = TestBlock::Create();
    CountingImpl impl(block.Pointer());
    EXPECT_EQ(impl.SecondaryDouble(100, throw_always), 2.5);
    EXPECT_EQ(impl.SecondaryItem(100, throw_always).GetDouble(), 2.5);
    EXPECT_EQ(impl.calculations, 1);
    impl.FlushSecondary();
    EXPECT_EQ(impl.SecondaryDouble(100, throw_always), 2.5);
    EXPECT_EQ(impl.calculations, 2);
    impl.SecondaryItem(200, throw_never);
    impl.SecondaryItem(200, throw_never);
    EXPECT_EQ(impl.calculations, 4) << "undefined is never stored";
}

TEST(Cache, UnknownKeysAndMissingObjectsAreReported)
{
    auto const block = TestBlock::Create();
    EXPECT_RAISES(block->SecondaryItem(555, throw_always), 4096,
                  "MemBlockImpl::CalculateSecondaryItem(): key not implemented:555");
    EXPECT_TRUE(block->SecondaryItem(555, throw_never).IsUndefined());
    Reports reports;
    EXPECT_FALSE(block->SecondaryMemBlock(555, reports));
    ASSERT_EQ(reports.texts.size(), 2u);
    EXPECT_EQ(reports.texts[1], Text("Could not calculate key 555 for: %s", *block).c_str());
    EXPECT_FALSE(block->SecondaryMemBlock(555, throw_never));
}

TEST(Cache, TheScalarOfAnObjectIsItsNumber)
{
    auto const block = TestBlock::Create();
    block->scalar = DataItem("12.5");
    EXPECT_EQ(block->SecondaryDouble(MemBlock::key_double, throw_always), 12.5);
    block->scalar = DataItem(7);
    EXPECT_EQ(block->SecondaryDouble(MemBlock::key_double, throw_always), 12.5) << "cached";
    block->ContentHasBeenChanged();
    EXPECT_EQ(block->SecondaryInt(MemBlock::key_int, throw_always), 7);
}

TEST(Cache, AnObjectWithoutScalarIsToldOfByTheKeysName)
{
    auto const block = TestBlock::Create();
    EXPECT_EQ(block->SecondaryInt(MemBlock::key_int, throw_never), 0);
    EXPECT_EQ(block->SecondaryDouble(MemBlock::key_double, throw_never), 0.0);
    Reports reports;
    EXPECT_EQ(block->SecondaryInt(MemBlock::key_int, reports), 0);
    ASSERT_EQ(reports.texts.size(), 1u);
    EXPECT_EQ(reports.texts[0].substr(0, 25), "Cannot calculate subkey: ");
    EXPECT_RAISES(block->SecondaryItem(MemBlock::key_int, throw_always), 4096,
                  "MemBlockImpl::CalculateSecondaryItem(): key not implemented:2");
}

TEST(Cache, ThreadIdIsRecordedOnRequest)
{
    auto const block = TestBlock::Create();
    auto const check = [&] { return StderrOf([&] { block->CheckThreadId(); }); };
    std::string const text = block->GetDescription().c_str();
    EXPECT_EQ(check(), "No thread ID recorded for a: " + text + "\n");
    EXPECT_EQ(block->PimplIfAny(), nullptr);
    block->SecondaryItem(MemBlock::key_thread_id, throw_always);
    EXPECT_EQ(check(), "");
    block->ContentHasBeenChanged();
    EXPECT_EQ(check(), "");

    std::string const mismatch =
        "Recorded thread ID mismatch for a: " + std::string(block->GetDescription().c_str()) + "\n";
    auto const id = static_cast<int>(Mutex::GetCurrentThreadId());
    block->SetSecondaryItem(MemBlock::key_thread_id, DataItem(~id));
    EXPECT_EQ(check(), mismatch);
    block->SetSecondaryItem(MemBlock::key_thread_id, DataItem(0));
    EXPECT_EQ(check(), "") << "0 stands for any thread";
}

TEST(Cache, ItemsMayComeBackToTheCacheWhenTheyGo)
{
    auto const block = TestBlock::Create();
    auto const store = [&](int key, std::function<void(TestBlock&)> const& when_it_goes) {
        auto item = TestBlock::Create();
        item->on_destroy = when_it_goes;
        block->SetSecondaryItem(key, DataItem(item));
    };
    auto const refill = [&](TestBlock&) {
        DataItem out;
        EXPECT_FALSE(block->ExistsSecondaryItem(100, out) && out.GetType() == it_memblock);
        block->SetSecondaryItem(100, DataItem(1));
        block->SetSecondaryItem(101, DataItem(1));
        block->ContentHasBeenChanged();
    };
    store(100, refill);
    block->ContentHasBeenChanged();
    store(100, refill);
    block->SetSecondaryItem(100, DataItem(3));
    store(100, refill);
    block->SetSecondaryItem(100, DataItem());
    store(100, refill);
    block->ResetPimpl();
    EXPECT_FALSE(Cached(block, 100));
}

TEST(Cache, AFlushMayDropTheLastOwnerOfItsObject)
{
    int destroyed = 0;
    auto* const block = new TestBlock;
    block->destroyed = &destroyed;
    block->SetSecondaryItem(MemBlock::key_transient,
                            DataItem(TestBlock::Create({{"owner", DataItem(*block)}})));
    EXPECT_EQ(block->RefCount(), 1);
    block->ContentHasBeenChanged();
    EXPECT_EQ(destroyed, 1);
}

TEST(Cache, AnObjectOutlivesTheResetThatDropsItsLastOwner)
{
    int destroyed = 0;
    auto* const block = new TestBlock;
    block->destroyed = &destroyed;
    auto holder = TestBlock::Create({{"owner", DataItem(*block)}});
    holder->on_destroy = [&](TestBlock& self) {
        self.items.clear();
        EXPECT_EQ(destroyed, 0) << "the reset is still at work on it";
    };
    block->SetSecondaryItem(MemBlock::key_transient, DataItem(holder));
    holder = nullptr;
    block->ResetPimpl();
    EXPECT_EQ(destroyed, 1);
}

TEST(Cache, StickyItemsThatAreReplacedMayDropTheLastOwnerOfTheirObject)
{
    auto const source = TestBlock::Create();
    source->SetSecondaryItem(MemBlock::key_sticky, DataItem(1));
    int destroyed = 0;
    auto* const block = new TestBlock;
    block->destroyed = &destroyed;
    block->on_destroy = [](TestBlock& self) {
        EXPECT_NE(self.Flags() & MemBlock::mem_has_sticky, 0u) << "nothing is left to be done";
    };
    block->SetSecondaryItem(MemBlock::key_sticky,
                            DataItem(TestBlock::Create({{"owner", DataItem(*block)}})));
    block->ClearFlags(MemBlock::mem_has_sticky);
    block->CopyStickyAttributesFrom(*source);
    EXPECT_EQ(destroyed, 1);
}

TEST(Cache, ColourPicturesAreSummedUpByTheirChannels)
{
    TypedChunk const pixels = Triples({triple(0x010203), triple(0xF00080)})->Chunk();
    PMemBlock const picture(new Picture(pixels));
    EXPECT_EQ(picture->SecondaryDouble(key_max, throw_always), 0xF0);
    EXPECT_EQ(picture->SecondaryDouble(key_sum, throw_always), 1 + 2 + 3 + 0xF0 + 0x80);
    EXPECT_EQ(Vector::Create(pixels, 1.0)->SecondaryInt(key_max, throw_always), 0xF00080);
    PMemBlock const pixel(new Picture(Triples({triple(0x010203)})->Chunk()));
    EXPECT_EQ(pixel->SecondaryInt(MemBlock::key_int, throw_always), 0x010203); // one number, not 3
}

TEST(Cache, ManyPixelsAreTooManyForSummaryValuesOnly)
{
    unsigned long const length = 0x60000000;
    char memory[16]; // never looked at
    PMemBlock const picture(
        new Picture(TypedChunk(length, Vector::Triple, MemChunk(memory, nullptr, 3 * length), 0)));
    EXPECT_RAISES(picture->SecondaryItem(key_max, throw_always), 256,
                  Text("Too many pixels for summary values: %s", picture));
    EXPECT_TRUE(picture->SecondaryItem(MemBlock::key_thread_id, throw_always).IsDefined());
}

TEST(Cache, KeysHaveNamesForMessages)
{
    struct {
        int key;
        char const *of_cache, *of_summary;
    } const cases[] = {{key_histogram, "histogram", "histogram"},
                       {MemBlock::key_sticky, "@sticky", "10003"},
                       {MemBlock::key_transient, "@transient", "7"},
                       {key_fmedian, "@key110", "median"},
                       {key_variance, "@key109", "109"}, // Settled: has no name
                       {-2000000000, "@key-2000000000", "-2000000000"}};
    for (auto const& c : cases) {
        EXPECT_EQ(MemKey2String(c.key), c.of_cache);
        EXPECT_STREQ(Vector::Key2string(c.key), c.of_summary);
    }
}
