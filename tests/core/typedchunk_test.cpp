#include <memblock/core/typedchunk.h>

#include <memblock/base/alloc.h>
#include <memblock/core/dataitem.h>

#include <support/failing_alloc.h>
#include <support/logsink.h>
#include <support/raises.h>
#include <support/testblock.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace NKelmic;

namespace {

using Ids = DataTypeBase;

TypedChunk Made(unsigned long length, DataType type, unsigned long offset = 0)
{
    TypedChunk chunk(length, type, MemChunk(offset + length * TypedChunk::SizeOf(type)), offset);
    chunk.Init();
    return chunk;
}

template <class T>
T* In(TypedChunk const& chunk)
{
    return static_cast<T*>(chunk.Data());
}

TypedChunk Ints(std::initializer_list<int> values, unsigned long offset = 0)
{
    TypedChunk chunk = Made(values.size(), Ids::Int, offset);
    std::copy(values.begin(), values.end(), In<int>(chunk));
    return chunk;
}

TypedChunk Texts(std::initializer_list<char const*> values, unsigned long offset = 0)
{
    TypedChunk chunk = Made(values.size(), Ids::String, offset);
    std::copy(values.begin(), values.end(), In<safestring>(chunk));
    return chunk;
}

std::string TextOf(TypedChunk const& chunk)
{
    std::string out;
    for (unsigned long i = 0; i < chunk.Length(); ++i)
        out += std::string(In<safestring>(chunk)[i].c_str()) + "|";
    return out;
}

constexpr char const* long_text = "a text that is longer than any buffer inside a string";

/// Fills its chunk with ones and counts what happens to it.
struct Ones : DelayedInitializer {
    static inline int alive = 0, runs = 0;
    Ones() { ++alive; }
    Ones(Ones const&) { ++alive; }
    ~Ones() override { --alive; }
    void Initialize(TypedChunk& chunk) override
    {
        ++runs;
        chunk.DelayedInitialize(); // as the array's own access would: it must not come back here
        if (chunk.Type() == Ids::String)
            for (unsigned long i = 0; i < chunk.Length(); ++i)
                std::construct_at(In<safestring>(chunk) + i, long_text);
        else
            std::memset(chunk.Data(), 1, chunk.Length() * chunk.ElemSize());
    }
    DelayedInitializer* Clone() const override { return new Ones(*this); }
};

} // namespace

TEST(TypedChunk, ChunkThatIsTooSmallIsReportedAndTheOldOneStays)
{
    EXPECT_RAISES(TypedChunk(4, Ids::Int, MemChunk(23), 8), 128,
                  "MemChunk too small (23 bytes) to contain 4*4+8 bytes of data.");
    EXPECT_RAISES(
        TypedChunk(0x4000000000000000UL, Ids::Int, MemChunk(23), 0), 128,
        "MemChunk too small (23 bytes) to contain 4611686018427387904*4+0 bytes of data.");
    EXPECT_RAISES(TypedChunk(0, Ids::Int, MemChunk(23), 24), 128,
                  "MemChunk too small (23 bytes) to contain 0*4+24 bytes of data.");
    TypedChunk ints = Ints({1, 2, 3});
    MemChunk small(15);
    EXPECT_RAISES(ints.SetMemChunk(small, 4), 128,
                  "MemChunk too small (15 bytes) to contain 3*4+4 bytes of data.");
    EXPECT_RAISES(ints.SwapMemChunk(small, 0x100000000UL), 128,
                  "MemChunk too small (15 bytes) to contain 3*4+4294967296 bytes of data.");
    EXPECT_TRUE(ints == Ints({1, 2, 3}));
    EXPECT_FALSE(small.IsDataTyped());
    EXPECT_THROW(TypedChunk(1, Ids::NoType, MemChunk(23), 0), char const*);
}

TEST(TypedChunk, WritingDetachesAtTheSameOffset)
{
    TypedChunk mine = Ints({1, 2, 3}, 8);
    std::memset(mine.Chunk().Data(), 0x55, 8);
    TypedChunk const other(mine);
    EXPECT_EQ(mine.Data(), other.Data());
    mine.DetachSharedData();
    EXPECT_NE(mine.Data(), other.Data());
    EXPECT_EQ(mine.GetOffset(), 8U);
    EXPECT_EQ(*static_cast<long*>(mine.Chunk().Data()), 0);
    EXPECT_TRUE(mine == other);
    In<int>(mine)[0] = 9;
    EXPECT_EQ(In<int>(other)[0], 1);
    EXPECT_EQ(other.Chunk().CloneCount(), 1);
}

TEST(TypedChunk, ReadOnlyBufferIsNeverWritten)
{
    static int const mapped[3] = {1, 2, 3};
    MemChunk chunk(const_cast<int*>(mapped), static_cast<MemChunk::release_t>(nullptr),
                   sizeof mapped);
    chunk.SetReadOnly(true);
    TypedChunk ints(3, Ids::Int, chunk, 0), other(ints);
    chunk = MemChunk();
    KeepingSink const sink;
    other.DetachSharedData(); // nobody asked to be told
    Logger::SetLogging("conv", 4);
    ints.ResizeVector(4, true, true);
    ints.ResizeVector(3, true, true); // private by now
    ints.ResizeVector(4, true, true);
    Logger::SetLogging("conv", 0);
    EXPECT_FALSE(ints.Chunk().IsReadOnly());
    std::vector<std::string> const expected = {
        "conv/mmap 4 Performance warning: copying a mmapped memory area for mutable access: "
        "array of 3 elements of type signed int"};
    EXPECT_EQ(sink.lines, expected);
    EXPECT_TRUE(ints == Ints({1, 2, 3, 0}));
}

TEST(TypedChunk, ObjectElementsLiveAsLongAsTheLastView)
{
    long const before = memtest::LiveNews();
    MemChunk plain;
    {
        auto first = std::make_unique<TypedChunk>(Texts({long_text, "b"}));
        TypedChunk const second(*first);
        first.reset();
        EXPECT_EQ(TextOf(second), std::string(long_text) + "|b|");
        plain = second.Chunk();
    }
    EXPECT_EQ(memtest::LiveNews(), before); // the plain chunk holds no live elements any more
    EXPECT_FALSE(plain.IsDataTyped());

    TypedChunk fresh(2, Ids::String, plain, 0); // raw, and shared with `plain`
    fresh.Init();
    EXPECT_EQ(TextOf(fresh), "||");
    EXPECT_NE(fresh.Chunk().Data(), plain.Data());
}

TEST(TypedChunk, AMovedViewLeavesNothingBehindAndCanBeUsedAgain)
{
    long const news = memtest::LiveNews();
    {
        TypedChunk from = Texts({long_text, "b"});
        TypedChunk to(std::move(from));
        EXPECT_EQ(TextOf(to), std::string(long_text) + "|b|");
        EXPECT_FALSE(to.Chunk().IsShared());
        EXPECT_EQ(from.Length(), 0u);
        TypedChunk const empty(from);
        from = to;
        EXPECT_EQ(TextOf(from), TextOf(to));
        EXPECT_TRUE(to.Chunk().IsShared());
        EXPECT_TRUE(from == to);
        EXPECT_FALSE(from == Texts({long_text, "b"})) << "bit patterns: another buffer";
        MemChunk small(8);
        EXPECT_RAISES(TypedChunk(3, Ids::Int, std::move(small), 0), 128,
                      "MemChunk too small (8 bytes) to contain 3*4+0 bytes of data.");
        EXPECT_EQ(small.Size(), 8u) << "taken although refused";
    }
    EXPECT_EQ(memtest::LiveNews(), news);
}

TEST(TypedChunk, GrowthByOneOrTwoReservesHalfAsMuchAgain)
{
    struct {
        unsigned long from, to, room;
    } const cases[] = {{10, 11, 15}, {10, 12, 15}, {10, 13, 13}, {2, 3, 3}, {2, 4, 4},
                       {1, 2, 2},    {0, 1, 1},    {10, 9, 9},   {3, 5, 5}};
    for (DataType type : {Ids::Short, Ids::Triple, Ids::String, Ids::PolyType})
        for (auto const& c : cases) {
            SCOPED_TRACE(Text("%s: %d to %d", TypeToString(type), c.from, c.to).c_str());
            TypedChunk chunk = Made(c.from, type, 4 * 8);
            chunk.ResizeVector(c.to, true, true);
            EXPECT_EQ(chunk.Length(), c.to);
            EXPECT_EQ(chunk.Chunk().Size(), 32 + c.room * chunk.ElemSize());
        }
}

TEST(TypedChunk, ReservedRoomIsUsedUpBeforeTheNextGrowth)
{
    TypedChunk chunk = Made(10, Ids::Byte);
    chunk.ResizeVector(11, true, true);
    void* const place = chunk.Data();
    std::memset(place, 7, 15);
    for (unsigned long n = 12; n <= 15; ++n)
        chunk.ResizeVector(n, true, n > 12);
    EXPECT_EQ(chunk.Data(), place);
    EXPECT_EQ(std::memcmp(place, "\7\7\7\7\7\7\7\7\7\7\7\7\0\0\0", 15), 0);
    chunk.ResizeVector(16, true, true);
    EXPECT_EQ(chunk.Chunk().Size(), 22U);
}

TEST(TypedChunk, ElementsGainedUnderInitAreZeroWhateverTheRoomHeld)
{
    for (auto const& [length, keep] :
         {std::pair(12u, true), {14, true}, {15, true}, {16, true}, {40, true}, {15, false}}) {
        SCOPED_TRACE(length);
        TypedChunk chunk = Made(10, Ids::Short, 2);
        chunk.ResizeVector(11, true, false);
        std::memset(chunk.Chunk().Data(), 7, chunk.Chunk().Size()); // what was there by chance
        chunk.ResizeVector(length, keep, true);
        for (unsigned long i = 0; i < length; ++i)
            EXPECT_EQ(In<short>(chunk)[i], keep && i < 11 ? 0x707 : 0) << i;
        EXPECT_EQ(*static_cast<short*>(chunk.Chunk().Data()), 0x707); // before the array
    }
    TypedChunk empty;
    empty.ResizeVector(0, true, true); // no buffer at all
    EXPECT_EQ(empty.Length(), 0U);
}

TEST(TypedChunk, NoDestroyLastsAsLongAsTheBuffer)
{
    long const before = memtest::LiveNews();
    {
        alignas(safestring) unsigned char bytes[4 * sizeof(safestring)];
        TypedChunk::Initialize_Buffer(bytes, 4, Ids::String);
        {
            TypedChunk lent(
                2, Ids::String,
                MemChunk(bytes, static_cast<MemChunk::release_t>(nullptr), sizeof bytes), 0);
            In<safestring>(lent)[0] = long_text;
            lent.SetNoDestroy(true);
            TypedChunk copy(lent);
            EXPECT_TRUE(copy.NoDestroy());
            copy.DetachSharedData(); // the copies are its own
            EXPECT_FALSE(copy.NoDestroy());
            lent.ResizeVector(3, true, true); // in the room that is there
            EXPECT_TRUE(lent.NoDestroy());
        }
        EXPECT_STREQ(reinterpret_cast<safestring*>(bytes)->c_str(), long_text);
        TypedChunk::Destroy_Buffer(bytes, 4, Ids::String);

        MemChunk const plain(2 * sizeof(safestring));
        TypedChunk fresh(2, Ids::String, plain, 0);
        fresh.SetNoDestroy(true);
        fresh.Init(); // leaves the shared buffer
        In<safestring>(fresh)[0] = long_text;
    }
    EXPECT_EQ(memtest::LiveNews(), before);
}

TEST(TypedChunk, ObjectElementsAreCountedOnceThroughGrowthCopiesAndShrinking)
{
    int destroyed = 0;
    auto const block = [&] {
        auto made = TestBlock::Create();
        made->destroyed = &destroyed;
        return PMemBlock(made);
    };
    {
        TypedChunk objects = Made(0, Ids::PMemory);
        for (unsigned long n = 1; n <= 20; ++n) {
            objects.ResizeVector(n, true, true);
            EXPECT_FALSE(In<PMemBlock>(objects)[n - 1]);
            In<PMemBlock>(objects)[n - 1] = block();
        }
        TypedChunk copy(objects);
        copy.DetachSharedData();
        EXPECT_EQ(In<PMemBlock>(objects)[7]->RefCount(), 2);
        objects.ResizeVector(5, true, true);
        copy.ResizeVector(10, true, true);
        EXPECT_EQ(destroyed, 10);
        copy.ResizeVector(3, false, true);
        EXPECT_FALSE(In<PMemBlock>(copy)[0]);
        EXPECT_EQ(destroyed, 15);
        EXPECT_EQ(In<PMemBlock>(objects)[4]->RefCount(), 1);
    }
    EXPECT_EQ(destroyed, 20);
}

TEST(TypedChunk, TextsMoveWithinARowInBothDirections)
{
    for (int by : {-2, 0, 2}) {
        alignas(safestring) unsigned char bytes[10 * sizeof(safestring)];
        auto* const row = reinterpret_cast<safestring*>(bytes);
        safestring const source[4] = {"one", long_text, "three", "four"};
        TypedChunk::Init_Copy_Buffer(row + 3, source, 4, Ids::String);
        TypedChunk::Init_Move_Buffer(row + 3 + by, row + 3, 4, Ids::String);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(row[3 + by + i], source[i]) << by;
        TypedChunk::Destroy_Buffer(row + 3 + by, 4, Ids::String);
    }
}

TEST(TypedChunk, FailedAllocationsLeaveWholeChunksAndNoBlocks)
{
    long const blocks = memtest::LiveBlocks(), news = memtest::LiveNews();
    auto const work = [](TypedChunk& texts, TypedChunk& ints) {
        TypedChunk const shared(texts);
        texts.ResizeVector(6, true, true);
        TypedChunk const again(ints);
        ints.ResizeVector(9, true, true);
        MemChunk lent(ints.Data(), static_cast<MemChunk::release_t>(nullptr), 4);
        lent.Resize(16, true, true);
        TypedChunk fresh(2, Ids::String, MemChunk(64), 0);
        fresh.Init();
        texts = fresh;
        ints.ResizeVector(2, true, true);
    };
    memtest::FailEach([&](auto const& attempt) {
        TypedChunk texts = Texts({"a", long_text, "c"}), ints = Ints({1, 2, 3, 4});
        attempt([&] { work(texts, ints); });
        EXPECT_EQ(In<int>(ints)[1], 2);
        safestring message;
        EXPECT_TRUE(texts.Consistent(message) && ints.Consistent(message)) << message.c_str();
        EXPECT_LE(texts.Length(), 6U);
        TextOf(texts);
    });
    EXPECT_EQ(memtest::LiveBlocks(), blocks);
    EXPECT_EQ(memtest::LiveNews(), news);
}

TEST(TypedChunk, SizesThatWrapAreRefused)
{
    TypedChunk ints = Ints({1, 2});
    EXPECT_RAISES(ints.ResizeVector(0x4000000000000000UL, true, true), 256,
                  "Cannot allocate 4611686018427387904 elements of 4 bytes");
    EXPECT_RAISES(ints.ResizeVector(0x2000000000000000UL, true, true), 16,
                  "Cannot reallocate 9223372036854775808 bytes");
    EXPECT_TRUE(ints == Ints({1, 2}));
    TypedChunk texts = Texts({"a", "b"});
    EXPECT_RAISES(texts.ResizeVector(0x200000000000000UL, true, true), 16,
                  "Cannot reallocate 4611686018427387904 bytes");
    EXPECT_EQ(TextOf(texts), "a|b|");
}

TEST(TypedChunk, PendingInitializerRunsOnceAtComparisonOrNotAtAll)
{
    Ones::runs = 0;
    {
        TypedChunk a = Made(3, Ids::Int), never = Made(3, Ids::Int);
        a.SetDelayed(new Ones);
        never.SetDelayed(new Ones);
        TypedChunk const b(a);
        EXPECT_EQ(Ones::alive, 3);
        TypedChunk const ones = Ints({0x1010101, 0x1010101, 0x1010101});
        EXPECT_FALSE(a == Made(2, Ids::Int));
        EXPECT_EQ(Ones::runs, 0);
        EXPECT_TRUE(ones == a);
        EXPECT_TRUE(ones == a);
        EXPECT_EQ(Ones::runs, 1);
        EXPECT_TRUE(b.HasDelayed());
        EXPECT_TRUE(b == ones);
        EXPECT_EQ(Ones::runs, 2);
    }
    EXPECT_EQ(Ones::alive, 0);
    EXPECT_EQ(Ones::runs, 2);
}

TEST(TypedChunk, PendingTextsAreMadeBeforeTheyAreCopiedMovedOrDestroyed)
{
    long const before = memtest::LiveNews();
    for (int what = 0; what < 3; ++what) {
        Ones::runs = 0;
        TypedChunk chunk(2, Ids::String, MemChunk(64), 0);
        chunk.SetDelayed(new Ones);
        MemChunk const shared(what == 0 ? chunk.Chunk() : MemChunk());
        if (what == 0)
            chunk.DetachSharedData();
        else if (what == 1)
            chunk.ResizeVector(1, true, true);
        if (what < 2) {
            EXPECT_STREQ(In<safestring>(chunk)->c_str(), long_text);
        }
    }
    EXPECT_EQ(Ones::runs, 1);
    EXPECT_EQ(memtest::LiveNews(), before);
}

TEST(TypedChunk, ConsistentTellsWhatIsWrong)
{
    TypedChunk chunk = Ints({1, 2, 3}, 4);
    safestring message;
    EXPECT_TRUE(chunk.Consistent(message));
    chunk.Chunk().Resize(15, true, false);
    EXPECT_FALSE(chunk.Consistent(message));
    EXPECT_STREQ(message.c_str(),
                 "Vector data size (12 bytes) is larger than MemBlock::Size() (15 bytes). ");
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(IsConsistent(chunk)); }), message.c_str());
}
