#include <memblock/core/md5.h>

#include <memblock/core/memblockimpl.h>

#include "support/testblock.h"
#include "support/vectors.h"

#include <gtest/gtest.h>

#include <string>

using namespace NKelmic;

namespace {

/// A block whose description does not change with its owners.
class Described : public TestBlock {
public:
    static DerivedPointer<Described> Create(safestring const& description)
    {
        DerivedPointer<Described> block(new Described);
        block->description = description;
        return block;
    }
    safestring description;

protected:
    safestring DoGetDescription() const override { return description; }
};

std::string Hash(PMemBlock const& block)
{
    return block->SecondaryItem(MemBlock::key_md5, throw_always).GetString().c_str();
}

std::string Digest(std::string const& fed)
{
    return md5_hash(fed.data(), static_cast<unsigned int>(fed.size())).c_str();
}

/// What is fed of an object: its description with the NUL.
std::string Head(PMemBlock const& block)
{
    return std::string(block.GetDescription().c_str()) + '\0';
}

DerivedPointer<Vector> BytesOf(std::string const& text)
{
    return Bytes({text.begin(), text.end()});
}

constexpr char empty_array[] = "4e1d0c7a93f2568bb0d6e3a1c97f2e48";

} // namespace

TEST(Md5, GivesTheDigestsOfTheRfc)
{
    std::string const million(1'000'000, 'a');
    std::pair<char const*, char const*> const cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        {million.c_str(), "7707d6ae4e027c70eea2a935c2296f21"}}; // as md5sum has it
    for (auto const& [text, digest] : cases)
        EXPECT_EQ(Digest(text), digest);
}

TEST(Md5, PiecesOfAnySizeGiveTheSameDigest)
{
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += static_cast<char>(i * 7);
    for (unsigned length : {55u, 56u, 63u, 64u, 65u, 119u, 120u, 128u, 1000u}) {
        std::string const whole = Digest(text.substr(0, length));
        for (unsigned piece : {1u, 3u, 63u, 64u, 65u, 130u}) {
            MD5Context context;
            MD5Init(&context);
            for (unsigned at = 0; at < length; at += piece)
                MD5Update(&context, text.data() + at, std::min(piece, length - at));
            unsigned char digest[16];
            MD5Final(digest, &context);
            EXPECT_EQ(Md5ToText(digest).c_str(), whole) << length << " by " << piece;
        }
    }
}

TEST(ContentHash, FeedsAttributesThenTheObjectThenItsChildren)
{
    auto const child = Described::Create("child");
    auto const block = Described::Create("parent");
    block->items = {{"a", DataItem(child)}};
    block->SetSecondaryItem(MemBlock::key_sticky, DataItem(Described::Create("attributes")));
    using namespace std::string_literals;
    EXPECT_EQ(Hash(block), Digest("attributes\0parent\0child\0"s));
    child->description = "other";
    EXPECT_EQ(Hash(block), Digest("attributes\0parent\0child\0"s)) << "cached";
    block->ContentHasBeenChanged();
    EXPECT_EQ(Hash(block), Digest("attributes\0parent\0other\0"s));

    MD5Context context;
    MD5Init(&context);
    md5_visitor visitor(true);
    Md5UpdateThisObject(&visitor, "", PMemBlock(), &context);
    unsigned char digest[16];
    MD5Final(digest, &context);
    EXPECT_EQ(Md5ToText(digest).c_str(), Digest("none\0"s));
}

TEST(ContentHash, FeedsTheElementsOfVectors)
{
    PMemBlock const bytes = BytesOf("some bytes");
    EXPECT_EQ(Hash(bytes), Digest(Head(bytes) + "some bytes"));
    EXPECT_EQ(Hash(BytesOf("some bytes")), Hash(bytes)) << "shared or not";
    EXPECT_EQ(Hash(bytes->Clone(true)), Hash(bytes));
    EXPECT_NE(Hash(BytesOf("some bytex")), Hash(bytes));

    PMemBlock const empty = BytesOf("");
    EXPECT_EQ(Hash(empty), Digest(Head(empty) + empty_array));

    auto const texts = Texts({"ab", "c"});
    EXPECT_EQ(Hash(texts), Digest(Head(texts) + "abc"));

    auto const items = Items({DataItem(5), DataItem()});
    std::string fed = Head(items);
    for (int i = 0; i < 2; ++i)
        fed += std::string(items->GetDataItem(i).GetDescription().c_str()) + '\0';
    EXPECT_EQ(Hash(items), Digest(fed));
}

TEST(ContentHash, ElementsThatWaitAreOnlyInitializedWhereAsked)
{
    /// Writes sevens.
    class Sevens : public DelayedInitializer {
    public:
        void Initialize(TypedChunk& chunk) override
        {
            auto* bytes = static_cast<unsigned char*>(chunk.Data());
            std::fill(bytes, bytes + chunk.Length(), 7);
        }
        DelayedInitializer* Clone() const override { return new Sevens; }
    };
    TypedChunk chunk(4, Vector::Byte, MemChunk(4), 0);
    std::fill_n(static_cast<unsigned char*>(chunk.Data()), 4, 1);
    chunk.SetDelayed(new Sevens);
    auto const vector = Vector::Create(chunk, 1.0);
    chunk = TypedChunk();
    PMemBlock const block = vector;
    auto const hash = [&](bool needs_valid_data) {
        md5_visitor visitor(needs_valid_data);
        MD5Init(&visitor.context);
        PMemBlock offered = block;
        visitor.Visit("", offered);
        unsigned char digest[16];
        MD5Final(digest, &visitor.context);
        return std::string(Md5ToText(digest).c_str());
    };
    EXPECT_EQ(hash(false), Digest(Head(block) + "\1\1\1\1"));
    auto const parent = Described::Create("parent"); // its hashes reach the vector as a child
    parent->items = {{"v", DataItem(vector)}};
    std::string const head = std::string("parent") + '\0' + Head(block);
    auto const cached = [&](int key) {
        return std::string(parent->SecondaryItem(key, throw_always).GetString().c_str());
    };
    EXPECT_EQ(cached(MemBlock::key_md5_plain), Digest(head + "\1\1\1\1"));
    EXPECT_TRUE(vector->Chunk().HasDelayed());
    EXPECT_EQ(cached(MemBlock::key_md5), Digest(head + "\7\7\7\7"));
    EXPECT_EQ(hash(true), Digest(Head(block) + "\7\7\7\7"));
}
