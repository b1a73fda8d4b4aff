#include <memblock/core/subitem.h>

#include <memblock/core/memblockimpl.h>
#include <memblock/vector/vector.h>

#include "support/raises.h"
#include "support/testblock.h"

#include <vector>

using namespace NKelmic;

namespace {

constexpr int computed = 100; // a cached value that a change of content drops

// root -> a -> b -> c = 1, each level with a cached value
struct Chain {
    DerivedPointer<TestBlock> b = TestBlock::Create({{"c", 1}});
    DerivedPointer<TestBlock> a = TestBlock::Create({{"b", PMemBlock(b)}});
    DerivedPointer<TestBlock> root = TestBlock::Create({{"a", PMemBlock(a)}});
    void FillCaches()
    {
        for (auto const& block : {b, a, root}) {
            block->SetSecondaryItem(computed, 1);
            block->SetSecondaryItem(MemBlock::key_md5, "hash");
        }
    }
    void LetGo() // of all but the root
    {
        b = {};
        a = {};
    }
};

DerivedPointer<TestBlock> Attribute()
{
    auto attribute = TestBlock::Create();
    attribute->conforms = "container";
    return attribute;
}
} // namespace

TEST(SetSubItem, AWriteStaysInsideTheTreeThatItIsMadeIn)
{
    for (bool const share : {true, false}) { // a clone may keep the children or copy them
        SCOPED_TRACE(share);
        Chain tree;
        tree.LetGo();
        auto const other = DerivedPointer<TestBlock>(tree.root->Clone(share));
        EXPECT_TRUE(tree.root->SetSubItem("a.b.c", 2, throw_always));
        EXPECT_EQ(tree.root->GetSubItem("a.b.c", throw_always).GetInt(), 2);
        EXPECT_EQ(other->GetSubItem("a.b.c", throw_always).GetInt(), 1);
    }
}

TEST(SetSubItem, OnlyWhatIsSharedIsCloned)
{
    Chain tree;
    auto* const a = tree.a.Pointer();
    auto* const b = tree.b.Pointer();
    tree.LetGo();
    tree.root->SetConst(true);
    EXPECT_TRUE(tree.root->SetSubItem("a.b.c", 2, throw_always));
    EXPECT_EQ(Child(tree.root, "a").Pointer(), a);
    EXPECT_EQ(Child(Child(tree.root, "a"), "b").Pointer(), b);
    EXPECT_EQ(b->Flags(), 0u) << "may be changed, as a clone could be";
    EXPECT_EQ(a->Flags(), unsigned{MemBlock::mem_const});

    auto const holder = Child(Child(tree.root, "a"), "b"); // count 2, and 3 with the walk
    EXPECT_TRUE(tree.root->SetSubItem("a.b.c", 3, throw_always));
    EXPECT_EQ(holder->items["c"].GetInt(), 2);
    EXPECT_EQ(Child(tree.root, "a").Pointer(), a);
    EXPECT_EQ(Child(Child(tree.root, "a"), "b")->clone_mode, 1);
    EXPECT_EQ(tree.root->GetSubItem("a.b.c", throw_always).GetInt(), 3);

    auto const node = Child(Child(tree.root, "a"), "b");
    node->conforms = "xmlnode";
    EXPECT_TRUE(tree.root->SetSubItem("a.b.c", 4, throw_always));
    EXPECT_EQ(node->items["c"].GetInt(), 4) << "nodes of a document are never cloned";
    EXPECT_TRUE(tree.root->SetSubItem("@self.x", 5, throw_always));
    EXPECT_EQ(tree.root->items["x"].GetInt(), 5);
}

TEST(SetSubItem, ElementsInASharedBufferAreNotWrittenForBothOwners)
{
    class Elements : public Vector { // its one element by the key "0"
    public:
        explicit Elements(Vector const& o) : Vector(o) {}
        DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const override
        {
            return key == "0" ? GetDataItem(0) : MemBlock::ResolveSubItem(key, handler);
        }
        bool DoSetSubItem(safestring const&, SafeValue const& value, safestring const&,
                          ThrowHandlerFunc) override
        {
            SetElem(0, value);
            return true;
        }
        PMemBlock DoClone(int) const override { return PMemBlock(new Elements(*this)); }
    };
    PMemBlock const vector(
        new Elements(cref(Vector::CreateFrom(PMemBlock(TestBlock::Create({{"x", 1}}))))));
    auto const root = TestBlock::Create({{"v", PMemBlock(vector)}});
    auto const other = vector->Clone(true);
    EXPECT_TRUE(root->SetSubItem("v.0.x", 2, throw_always));
    EXPECT_EQ(root->GetSubItem("v.0.x", throw_always).GetInt(), 2);
    EXPECT_EQ(other->GetSubItem("0.x", throw_always).GetInt(), 1);
}

TEST(SetSubItem, EveryLevelLosesWhatItHadComputed)
{
    Chain tree;
    tree.FillCaches();
    tree.b->Capture(); // written through a clone: what the walk leaves behind keeps its cache
    tree.root->SetSubItem("a.q", 1, throw_always);
    EXPECT_FALSE(Cached(tree.root, computed));
    EXPECT_FALSE(Cached(Child(tree.root, "a"), computed));
    EXPECT_TRUE(Cached(tree.b, computed)) << "not on the path";
    tree.b->Release();

    tree.FillCaches();
    EXPECT_RAISES(tree.root->SetSubItem("a.@nothing", 1, throw_always), err_kind,
                  "Cannot set item \"@nothing\" (1 (integer)) in a testblock object.");
    EXPECT_TRUE(Cached(tree.root, computed)) << "a write that failed changed nothing";
}

TEST(SetSubItem, WritingAnAttributeKeepsTheTransientContainers)
{
    for (char const* name : {"@transient", "@sticky"}) {
        SCOPED_TRACE(name);
        Chain tree;
        tree.LetGo();
        auto const a = Child(tree.root, "a").Pointer();
        ASSERT_TRUE(tree.root->SetSubItem("@transient", PMemBlock(Attribute()), throw_always));
        ASSERT_TRUE(
            tree.root->SetSubItem(safestring("a.") + name, PMemBlock(Attribute()), throw_always));
        tree.root->SetSecondaryItem(computed, 1);
        a->SetSecondaryItem(computed, 1);
        a->SetSecondaryItem(MemBlock::key_md5, "hash");
        EXPECT_TRUE(tree.root->SetSubItem(safestring("a.") + name + ".x", 5, throw_always));

        EXPECT_EQ(tree.root->GetSubItem(safestring("a.") + name + ".x", throw_always).GetInt(), 5);
        EXPECT_TRUE(Cached(tree.root, MemBlock::key_transient));
        EXPECT_FALSE(Cached(tree.root, computed));
        EXPECT_TRUE(Cached(Child(tree.root, "a"), computed)) << "an attribute is no content";
        EXPECT_FALSE(Cached(Child(tree.root, "a"), MemBlock::key_md5)) << "but hashes cover it";
    }
}

TEST(SetSubItem, AFailedWriteIntoAnAttributeLeavesNoneBehind)
{
    for (char const* name : {"@transient", "@sticky"}) {
        SCOPED_TRACE(name);
        auto const root = Vector::CreateFrom(PMemBlock(Vector::CreateFrom(7)));
        MemBlock& child = *cref(root).PMemoryPointer()[0];
        auto const hash = [&] {
            root->SetSecondaryItem(MemBlock::key_md5, {});
            return root->GetSubItem("@md5", throw_always).GetString();
        };
        safestring const before = hash();
        for (safestring const& path : {Text("0.%s.@type", name), Text("0.%s.x.@type", name)})
            EXPECT_FALSE(root->SetSubItem(path, "odd", throw_never));
        EXPECT_EQ(hash(), before);
        EXPECT_EQ(child.Flags(), 0u);
        EXPECT_TRUE(root->SetSubItem(Text("0.%s.x", name), 1, throw_never));
        EXPECT_NE(hash(), before);
    }
}

TEST(SetSubItem, AttributesMustBeContainers)
{
    auto const block = TestBlock::Create();
    EXPECT_RAISES(block->SetSubItem("@transient", 5, throw_always), err_kind,
                  "The @transient attribute must be a container instead of: 5 (integer)");
    auto const vector = Vector::CreateFrom(5);
    EXPECT_RAISES(block->SetSubItem("@sticky", PMemBlock(vector), throw_always), err_kind,
                  "The @sticky attribute must be a container instead of: " +
                      vector->GetDescription());
    EXPECT_FALSE(block->SetSubItem("@sticky", DataItem(), throw_never));
    auto const attribute = Attribute();
    EXPECT_TRUE(block->SetSubItem("@TRANSIENT", PMemBlock(attribute), throw_always));
    EXPECT_EQ(block->GetSubItem("@transient", throw_always).GetMemory(), attribute);
}

TEST(SetSubItem, TheTypeIsSetByItsWord)
{
    auto const block = TestBlock::Create();
    EXPECT_TRUE(block->SetSubItem("@type", "default", throw_always));
    safestring const refusal =
        "Invalid lg_type \"odd\" for this object: " + block->GetDescription();
    CollectThrowMessage messages;
    EXPECT_FALSE(block->SetSubItem("@type", "odd", messages));
    EXPECT_EQ(messages.Messages().substr(0, 20), refusal.substr(0, 20));
}

TEST(SetSubItem, FailuresAreReportedOnceAndNeverThrownPastTheHandler)
{
    class Strict : public TestBlock { // knows no key of its own
    protected:
        bool DoSetSubItem(safestring const& key, SafeValue const& value, safestring const& path,
                          ThrowHandlerFunc handler) override
        {
            return MemBlock::DoSetSubItem(key, value, path, handler);
        }
    };
    auto const root = TestBlock::Create(
        {{"strict", PMemBlock(new Strict)}, {"n", 7}, {"c", PMemBlock(Attribute())}});
    safestring const description = root->GetDescription();
    std::tuple<char const*, char const*> const cases[] = {
        {"strict.key", "Cannot set item \"key\" (1 (integer)) in a testblock object."},
        {"strict.size", "Cannot set item \"size\" (1 (integer)) in a testblock object."},
        {"strict.type", "Cannot set item \"type\" (1 (integer)) in a testblock object."},
        {"strict.", "Cannot set item \"\" (1 (integer)) in a testblock object."},
        {"n.x.y", "A scalar data item (7 (integer)) does not have subkey: x.y"},
    };
    for (auto const& [path, text] : cases) {
        SCOPED_TRACE(path);
        EXPECT_RAISES(root->SetSubItem(path, 1, throw_always), err_kind, text);
        EXPECT_FALSE(root->SetSubItem(path, 1, throw_never));
    }
    EXPECT_EQ(root->items["n"].GetInt(), 7);
    try {
        root->SetSubItem("strict.q.z", 1, throw_always);
        FAIL();
    } catch (Exception const& e) {
        EXPECT_EQ(e.Code(), unsigned{err_kind});
        EXPECT_TRUE(safestring(e.what()).starts_with("Subkey not found: q; Subitem not found: "
                                                     "\"q\": {testblock} refcount="))
            << e.what();
    }
}

TEST(SetSubItem, TheParentIsAskedBeforeAChildChanges)
{
    class Asked : public TestBlock {
    public:
        DataItem DoVerb(char const* verb, int argc, SafeValue* argv) override
        {
            if (safestring("chldchng") != verb)
                return TestBlock::DoVerb(verb, argc, argv);
            asked = Text("%d %s %s %d %d", argc, argv[0].GetString(), argv[1].GetString(),
                         argv[2].GetInt(), argv[3].GetInt());
            if (refuses)
                Raise(err_kind, "not while I hold it");
            return answer;
        }
        bool refuses = false;
        DataItem answer;
        safestring asked;
    };
    DerivedPointer<Asked> const root(new Asked);
    auto const child = TestBlock::Create({{"x", 1}});
    root->items["a"] = PMemBlock(child);
    root->answer = 0;
    EXPECT_FALSE(root->SetSubItem("a.x", 2, throw_always)) << "cancelled, and in silence";
    EXPECT_EQ(root->asked, "4 a x 0 2");
    EXPECT_EQ(root->GetSubItem("a.x", throw_always).GetInt(), 1);
    EXPECT_EQ(root->items["a"].GetMemory(), child);
    for (DataItem const& answer : {DataItem(1), DataItem()}) {
        root->answer = answer;
        EXPECT_TRUE(root->SetSubItem("@self.a.x", 3, throw_always));
        EXPECT_EQ(root->asked, "4 a x 1 3");
    }
    EXPECT_EQ(root->GetSubItem("a.x", throw_always).GetInt(), 3);
    EXPECT_EQ(child->items["x"].GetInt(), 1);
    root->refuses = true; // as a table does that holds the column
    EXPECT_RAISES(root->SetSubItem("a.x", 4, throw_always), err_kind, "not while I hold it");
    EXPECT_FALSE(root->SetSubItem("a.x", 4, throw_never));
    root->refuses = false;
    root->answer = "no number";
    EXPECT_FALSE(root->SetSubItem("a.x", 4, throw_never));
    EXPECT_EQ(root->GetSubItem("a.x", throw_always).GetInt(), 3);
    root->asked.clear();
    EXPECT_TRUE(root->SetSubItem("y", 3, throw_always));
    EXPECT_EQ(root->asked, "") << "no parent";
}

TEST(SetSubItem, LongPathsCostNoStack)
{
    auto const root = TestBlock::Create();
    safestring path;
    for (int i = 0; i < 100000; ++i)
        path += "@self.";
    EXPECT_TRUE(root->SetSubItem(path + "x", 1, throw_always));
    EXPECT_EQ(root->items["x"].GetInt(), 1);
    EXPECT_EQ(root->RefCount(), 1);
}
