#include <memblock/core/memchunk.h>

#include <memblock/base/alloc.h>

#include <support/failing_alloc.h>
#include <support/raises.h>
#include <support/warnings.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace NKelmic;

namespace {

/// A caller's buffer that tells how often, and with what, it was released.
struct Lent {
    char bytes[8] = {'0', '1', '2', '3', '4', '5', '6', '7'};
    std::atomic<int> released = 0;

    static void Release(void* data, void* lent)
    {
        auto* const self = static_cast<Lent*>(lent);
        EXPECT_EQ(data, self->bytes);
        ++self->released;
    }
    MemChunk Chunk() { return MemChunk(bytes, Release, this, sizeof bytes); }
};

void throw_runtime_error(void*)
{
    throw std::runtime_error("device lost");
}

void throw_number(void*)
{
    throw 7;
}

} // namespace

TEST(MemChunk, LastOfManyReleasesTheCallersBufferOnce)
{
    Lent lent;
    {
        MemChunk first = lent.Chunk();
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([copy = first] {
                for (int i = 0; i < 2000; ++i) {
                    MemChunk a(copy), b;
                    b = a;
                }
            });
        first = MemChunk();
        for (auto& thread : threads)
            thread.join();
        threads.clear();
    }
    EXPECT_EQ(lent.released, 1);
}

TEST(MemChunk, DismissLeavesTheBufferToTheCaller)
{
    Lent lent;
    MemChunk chunk = lent.Chunk();
    chunk.SetReadOnly(true);
    chunk.Dismiss();
    EXPECT_EQ(chunk.Data(), nullptr);
    EXPECT_EQ(chunk.Size(), 0U);
    EXPECT_EQ(chunk.CloneCount(), 0);
    EXPECT_TRUE(chunk.IsReadOnly());
    MemChunk const copy(chunk); // a chunk without a block gets one, shared by both
    EXPECT_EQ(chunk.CloneCount(), 2);
    chunk = MemChunk();
    EXPECT_EQ(lent.released, 0);
}

TEST(MemChunk, ReleaseThatThrowsEndsInAWarning)
{
    char byte = 0;
    WarningLog const log;
    MemChunk(&byte, throw_runtime_error, 1);
    MemChunk(&byte, throw_number, 1);
    std::vector<WarningLog::Line> const expected = {
        {128, "Exception while releasing MemChunk memory: device lost"},
        {128, "Unknown exception while releasing MemChunk memory"}};
    EXPECT_EQ(log.Lines(), expected);
}

TEST(MemChunk, CarrierHandsItsBufferOver)
{
    Lent lent;
    Carrier carrier;
    carrier.data = lent.bytes;
    carrier.size = 8;
    carrier.release2 = Lent::Release;
    carrier.user_data = &lent;
    carrier.read_only = true;
    {
        MemChunk const chunk(carrier);
        EXPECT_EQ(chunk.Data(), lent.bytes);
        EXPECT_TRUE(chunk.IsReadOnly());
        EXPECT_EQ(carrier.data, nullptr);
        EXPECT_EQ(carrier.size, 0U);
        EXPECT_EQ(carrier.release2, nullptr);
        EXPECT_EQ(lent.released, 0);
    }
    EXPECT_EQ(lent.released, 1);
}

TEST(MemChunk, UnsharedBufferLeavesAsItIsAndASharedOneAsACopy)
{
    Lent lent;
    MemChunk chunk = lent.Chunk();
    chunk.SetReadOnly(true);
    MemChunk other(chunk);
    Carrier const copy = chunk.TransferToCarrier();
    EXPECT_STREQ(static_cast<char*>(copy.data), "01234567");
    EXPECT_TRUE(copy.copied);
    EXPECT_FALSE(copy.read_only);
    EXPECT_FALSE(chunk.IsReadOnly());
    EXPECT_EQ(copy.release, mb_free);
    EXPECT_EQ(chunk.Data(), nullptr);
    EXPECT_EQ(chunk.CloneCount(), 1);
    EXPECT_EQ(other.CloneCount(), 1);
    mb_free(copy.data);

    Carrier const whole = other.TransferToCarrier();
    EXPECT_EQ(whole.data, lent.bytes);
    EXPECT_EQ(whole.size, 8U);
    EXPECT_EQ(whole.user_data, &lent);
    EXPECT_FALSE(whole.copied);
    EXPECT_TRUE(whole.read_only);
    EXPECT_FALSE(other.IsReadOnly());
    EXPECT_EQ(other.Data(), nullptr);
    EXPECT_EQ(lent.released, 0);
}

TEST(MemChunk, ANulFollowsACopyAlsoInABlockThatWasUsedBefore)
{
    std::string text(40, 'a');
    MemChunk chunk(text.data(), MemChunk::release_t(nullptr), text.size());
    MemChunk const other(chunk);
    void* const used = mb_malloc(text.size() + 1);
    std::memset(used, 'x', text.size() + 1);
    mb_free(used);
    Carrier const copy = chunk.TransferToCarrier();
    EXPECT_STREQ(static_cast<char*>(copy.data), text.c_str());
    mb_free(copy.data);
}

TEST(MemChunk, ResizeOfALentBufferMovesItIntoMemoryOfOurOwn)
{
    Lent lent;
    MemChunk chunk = lent.Chunk();
    chunk.IncrTypeCount();
    chunk.Resize(12, true, true);
    EXPECT_EQ(lent.released, 1);
    EXPECT_EQ(std::memcmp(chunk.Data(), "01234567\0\0\0\0", 12), 0);
    EXPECT_TRUE(chunk.IsDataTyped());
    EXPECT_EQ(chunk.CloneCount(), 1);

    MemChunk const shared(chunk);
    chunk.Resize(4, true, false);
    EXPECT_EQ(std::memcmp(chunk.Data(), "0123", 4), 0);
    EXPECT_FALSE(chunk.IsDataTyped()); // the elements stay with the other
    EXPECT_TRUE(shared.IsDataTyped());
    EXPECT_EQ(shared.Size(), 12U);
    chunk.Resize(3, false, true);
    EXPECT_EQ(std::memcmp(chunk.Data(), "\0\0\0", 3), 0);
    chunk.Resize(0, true, true);
    EXPECT_EQ(chunk.Size(), 0U);
    EXPECT_EQ(lent.released, 1);
}

TEST(MemChunk, ResizeBeyondMemoryIsReportedAndChangesNothing)
{
    MemChunk chunk(4);
    static_cast<char*>(chunk.Data())[3] = 'x';
    EXPECT_RAISES(chunk.Resize(0x7FFFFFFFFFFFF000UL, true, true), 16,
                  "Cannot reallocate 9223372036854771712 bytes");
    EXPECT_EQ(chunk.Size(), 4U);
    EXPECT_EQ(static_cast<char*>(chunk.Data())[3], 'x');
    EXPECT_THROW(MemChunk(0x7FFFFFFFFFFFF000UL), std::bad_alloc);
}

TEST(MemChunk, ComparesSizesAndBytes)
{
    MemChunk a(5), b(5);
    EXPECT_TRUE(a == b);
    static_cast<char*>(b.Data())[4] = 1;
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a == MemChunk(4));
    EXPECT_TRUE(MemChunk() == MemChunk(0));
}
