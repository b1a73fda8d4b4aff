#include <memblock/core/subitem.h>

#include <memblock/base/number.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/vector/vector.h>

#include "support/failing_alloc.h"
#include "support/logsink.h"
#include "support/raises.h"
#include "support/testblock.h"

using namespace NKelmic;

namespace {

safestring const base_list = "@class,@type,%@refcount,%@self,%@md5,%@subkeys,%@subobjects,"
                             "%@__address__,@description,@expression,,%@sticky,%@transient";

// root -> a (object) -> b (int 5), s (text), n (object without content)
DerivedPointer<TestBlock> Tree()
{
    return TestBlock::Create(
        {{"a", PMemBlock(TestBlock::Create({{"b", 5},
                                            {"s", "text"},
                                            {"n", PMemBlock(TestBlock::Create())},
                                            {"x[1.5]", 15},
                                            {"far", DataItem(static_cast<void*>(nullptr))}}))},
         {"@quoted@", 8}});
}

// Counts what reaches it and tells what it was asked.
class Probe : public ThrowHandlerBase {
public:
    explicit Probe(bool only_fact = false, bool no_backcompat = false)
        : only_fact_(only_fact), no_backcompat_(no_backcompat)
    {
    }
    unsigned int operator()(Exception const& e) override
    {
        ++calls;
        code = e.Code();
        if (!only_fact_)
            text += safestring(e.what()) + "|";
        last = &e;
        return code;
    }
    bool DoVerb(verb_t verb) override
    {
        return (verb == verb_only_fact && only_fact_) ||
               (verb == verb_no_backcompat && no_backcompat_);
    }
    int calls = 0;
    unsigned int code = 0;
    safestring text;
    Exception const* last = nullptr;

private:
    bool only_fact_, no_backcompat_;
};

} // namespace

TEST(SubItem, CommonKeysTellTheObject)
{
    auto const block = TestBlock::Create();
    auto const read = [&](char const* key) { return block->ResolveSubItem(key, throw_always); };
    EXPECT_EQ(read("@class").GetString(), "testblock");
    EXPECT_EQ(read("@type").GetString(), "default");
    EXPECT_EQ(read("@description").GetString(), block->GetDescription());
    EXPECT_EQ(read("@refcount").GetInt(), 1);
    EXPECT_EQ(read("@SELF").GetMemory(), block);
    EXPECT_EQ(read("@__address__").GetInt64(), reinterpret_cast<long long>(block.Pointer()));
    EXPECT_EQ(read("@expression").GetString(),
              "*" + str(reinterpret_cast<unsigned long>(block.Pointer())));
    EXPECT_EQ(read("@type").GetCreator(), -1);
    EXPECT_EQ(block->RefCount(), 1) << "no reader keeps a count";
}

TEST(SubItem, TheListNamesAttributesThatExistWithoutMark)
{
    auto const block = TestBlock::Create();
    for (char const* key : {"", "!", "@!@"}) {
        SCOPED_TRACE(key);
        EXPECT_EQ(block->GetSubItem(key, throw_always).GetString(), base_list);
    }
    EXPECT_EQ(block->PimplIfAny(), nullptr) << "a look at the list makes no cache";
    EXPECT_EQ(block->GetSubItem("*", throw_always).GetString(), "");

    auto const attribute = TestBlock::Create();
    attribute->conforms = "container";
    EXPECT_TRUE(block->SetSubItem("@sticky", PMemBlock(attribute), throw_always));
    EXPECT_EQ(block->GetSubItem("*", throw_always).GetString(), ",@sticky");
    EXPECT_TRUE(block->SetSubItem("@transient", PMemBlock(attribute), throw_always));
    EXPECT_EQ(block->GetSubItem("@*@", throw_always).GetString(), ",@sticky,@transient");
    EXPECT_EQ(block->GetSubItem("!", throw_always).GetString(),
              "@class,@type,%@refcount,%@self,%@md5,%@subkeys,%@subobjects,%@__address__,"
              "@description,@expression,,@sticky,@transient");
}

TEST(SubItem, SubKeysAreTheSortedNamesOfTheList)
{
    auto const block = TestBlock::Create();
    auto const names = block->GetSubItemVector("@subkeys", throw_always, nullptr, "");
    ASSERT_EQ(names->Length(), 12u);
    EXPECT_EQ(names->ElemType(), Vector::String);
    EXPECT_EQ(names->GetString(0), "@class");
    for (unsigned i = 1; i < names->Length(); ++i)
        EXPECT_TRUE(names->GetString(i - 1) < names->GetString(i)) << names->GetString(i).c_str();
    EXPECT_EQ(block->GetSubItemVector("@subobjects", throw_always, nullptr, "")->Length(), 0u);
}

TEST(SubItem, PathsAreWalkedStepByStep)
{
    auto const root = Tree();
    std::pair<char const*, char const*> const cases[] = {
        {"a.b", "5"},
        {"A.S", "text"},
        {"a.s.length", "4"},
        {"a.b.", "5"},
        {"a.n.@class", "testblock"},
        {"a.@self.n.@type", "default"},
        {"a.x[1.5]", "15"},
        {"a.b.@expression", "5"},
        {"@quoted@", "8"},
    };
    for (auto const& [path, expected] : cases) {
        SCOPED_TRACE(path);
        EXPECT_EQ(root->GetSubItem(path, throw_always).GetString(), expected);
    }
    EXPECT_EQ(root->GetSubItem("a.n.", throw_always).GetString(), base_list);
    EXPECT_EQ(root->GetSubItem("a..length", throw_always).GetInt(),
              static_cast<int>(base_list.size()))
        << "an empty step is the list, a text";
}

TEST(SubItem, FailuresSpeakInTheWordsOfTheStepThatFails)
{
    auto const root = Tree();
    std::tuple<char const*, unsigned, char const*> const cases[] = {
        {"missing", err_state, "Subkey not found: missing"},
        {"@missing", err_state, "Subkey not found: @missing"},
        {"no.b", err_state, "Subkey not found: no"},
        {"size", err_state, "Subkey not found: size"},
        {"a.n.q", err_state, "Subkey not found: q"},
        {"@a long quoted name@", err_state, "Subkey not found: @a long quoted name@"},
        {"a.b.c", err_kind, "A scalar data item (5 (integer)) does not have subkey: c"},
        {"a.b.c.d", err_kind, "A scalar data item (5 (integer)) does not have subkey: c.d"},
        {"a.s.0.1.2", err_kind,
         "A scalar data item (\"text\" (string)) does not have subkey: 0.1.2"},
    };
    for (auto const& [path, code, text] : cases) {
        SCOPED_TRACE(path);
        EXPECT_RAISES(root->GetSubItem(path, throw_always), code, text);
        EXPECT_TRUE(root->GetSubItem(path, throw_never).IsUndefined());
        Probe probe;
        EXPECT_TRUE(root->GetSubItem(path, probe).IsUndefined());
        EXPECT_EQ(probe.calls, 1) << probe.text.c_str();
    }
    EXPECT_EQ(root->RefCount(), 1);
}

TEST(SubItem, SoftMissesAllocateNothing)
{
    auto const root = Tree();
    bool ok = true;
    CheckOk check(ok);
    for (safestring const key : {"missing", "@missing", "size", "@a long quoted name@",
                                 "a name too long for the string's own room", "length"}) {
        root->ResolveSubItem(key, check); // makes the log and the dummy exception at first use
        memtest::AllocationCount const count;
        EXPECT_TRUE(root->GetSubItem(key, check).IsUndefined());
        EXPECT_TRUE(root->GetSubItem(key, throw_never).IsUndefined());
        EXPECT_EQ(count.All(), 0u) << key.c_str();
        EXPECT_FALSE(std::exchange(ok, true));
    }
    Probe probe(true);
    root->GetSubItem("missing", probe);
    Exception const* const first = probe.last;
    root->GetSubItem("@other", probe);
    EXPECT_EQ(probe.last, first) << "one exception serves all who read no words";
    EXPECT_EQ(probe.code, unsigned{err_state});
}

TEST(SubItem, FormerKeysFindTheirSystemKeyAndAreLogged)
{
    auto const block = TestBlock::Create({{"@size", 7}, {"@other", 8}});
    KeepingSink sink;
    Logger::SetLogging("backcompatibility", 6);
    EXPECT_EQ(block->GetSubItem("Size", throw_always).GetInt(), 7);
    ASSERT_EQ(sink.lines.size(), 1u);
    EXPECT_EQ(sink.lines[0], "backcompatibility/subkey 6 testblock: resolved \"Size\" by "
                             "back-compatibility transform to \"@Size\"\n");
    EXPECT_EQ(block->GetSubItem("class", throw_always).GetString(), "testblock");
    sink.lines.clear();
    EXPECT_RAISES(block->GetSubItem("other", throw_always), err_state, "Subkey not found: other");
    EXPECT_RAISES(block->GetSubItem("columns", throw_always), err_state,
                  "Subkey not found: columns");
    EXPECT_TRUE(sink.lines.empty());

    class Modern : public TestBlock { // takes keys with their '@' only
    protected:
        bool DoSetSubItem(safestring const& key, SafeValue const& value, safestring const& path,
                          ThrowHandlerFunc handler) override
        {
            if (key[0] != '@')
                return MemBlock::DoSetSubItem(key, value, path, handler);
            items[key] = value;
            return true;
        }
    };
    DerivedPointer<Modern> const modern(new Modern);
    for (safestring const name :
         {"__address__", "attrcount", "class", "columncount", "columns", "count", "imageheight",
          "imagewidth", "keys", "length", "md5", "refcount", "rowcount", "self", "size", "subkeys",
          "subobjects", "type"}) {
        SCOPED_TRACE(name.c_str());
        sink.lines.clear();
        EXPECT_TRUE(modern->SetSubItem(name, 7, throw_always));
        EXPECT_EQ(modern->items["@" + name].GetInt(), 7);
        EXPECT_EQ(modern->GetSubItem(name, throw_always).GetInt(), 7);
        EXPECT_EQ(sink.lines.size(), 2u);
        Probe strict(false, true);
        EXPECT_TRUE(modern->GetSubItem(name, strict).IsUndefined());
        EXPECT_FALSE(modern->SetSubItem(name, 8, strict));
        EXPECT_EQ(strict.calls, 2);
    }
    EXPECT_RAISES(modern->SetSubItem("other", 7, throw_always), err_kind,
                  "Cannot set item \"other\" (7 (integer)) in a testblock object.");
    Logger::SetLogging("backcompatibility", 0);
}

TEST(SubItem, ObjectsThatNobodyOwnsSurviveTheWalk)
{
    int destroyed = 0;
    {
        TestBlock local;
        local.destroyed = &destroyed;
        EXPECT_EQ(local.GetSubItem("@self.@self.@class", throw_always).GetString(), "testblock");
        EXPECT_TRUE(local.SetSubItem("x", 5, throw_always));
        EXPECT_RAISES(local.GetSubItem("y", throw_always), err_state, "Subkey not found: y");
        EXPECT_EQ(local.RefCount(), 0);
        EXPECT_EQ(local.Flags(), 0u);
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
    auto* const fresh = new TestBlock;
    fresh->destroyed = &destroyed;
    {
        DataItem const self = fresh->GetSubItem("@self", throw_always); // owns it from here on
        EXPECT_EQ(destroyed, 1);
    }
    EXPECT_EQ(destroyed, 2);
}

TEST(SubItem, LongPathsCostNoStack)
{
    auto const root = Tree();
    safestring selves, classes = "a.b";
    for (int i = 0; i < 100000; ++i) {
        selves += "@self.";
        classes += ".@class"; // of the vector that a number or text stands as
    }
    EXPECT_EQ(root->GetSubItem(selves + "@class", throw_always).GetString(), "testblock");
    EXPECT_EQ(root->GetSubItem(classes, throw_always).GetString(), "vector");
    EXPECT_TRUE(root->GetSubItem(classes + ".q", throw_never).IsUndefined());
    EXPECT_RAISES(root->GetSubItem(safestring(100000, '['), throw_always), err_state,
                  "Subkey not found: " + safestring(100000, '['));
    EXPECT_EQ(root->RefCount(), 1);
}

TEST(SubItem, ObjectsAreFoundByPathAndClass)
{
    auto const root = Tree();
    auto const child = root->items["a"].GetMemory();
    EXPECT_EQ(root->GetSubItemMemBlock("a", throw_always, nullptr), child);
    EXPECT_EQ(root->GetSubItemMemBlock("a", throw_always, "TestBlock"), child);
    DerivedPointer<Vector> const five = root->GetSubItemMemBlock("a.b", throw_always, nullptr);
    EXPECT_EQ(five->GetInt(0), 5) << "a number stands as a vector";

    safestring held_by_walk; // the walk holds what it found as an item and as an object
    {
        PMemBlock const as_item = child;
        held_by_walk = PMemBlock(child)->GetDescription();
    }
    std::tuple<char const*, char const*, safestring> const cases[] = {
        {"a.far", nullptr, "Subitem not found: \"a.far\"|"},
        {"a", "vector",
         "Subitem (a) not found or could not be converted to \"vector\": " + held_by_walk + "|"},
        {"a.far", "vector",
         "Subitem (a.far) not found or could not be converted to \"vector\": none|"},
        {"q", nullptr,
         "Subkey not found: q|Subitem not found: \"q\": " + root->GetDescription() + "|"},
    };
    for (auto const& [path, classname, text] : cases) {
        SCOPED_TRACE(path);
        Probe probe;
        EXPECT_FALSE(root->GetSubItemMemBlock(path, probe, classname));
        EXPECT_STREQ(probe.text.c_str(), text.c_str());
        EXPECT_EQ(probe.code, unsigned{err_value});
        EXPECT_FALSE(root->GetSubItemMemBlock(path, throw_never, classname));
    }
}

TEST(SubItem, VectorsAreFoundAlsoInsideAttributesAndBehindAKey)
{
    auto const numbers = Vector::CreateFrom(5);
    auto const attribute = TestBlock::Create({{"vector", PMemBlock(numbers)}});
    attribute->conforms = "attribute";
    auto const root = TestBlock::Create({{"v", PMemBlock(numbers)},
                                         {"w", PMemBlock(attribute)},
                                         {"o", PMemBlock(TestBlock::Create())}});
    auto const find = [&](char const* path, char const* key) {
        return root->GetSubItemVector(path, throw_always, nullptr, key);
    };
    EXPECT_EQ(find("v", ""), numbers);
    EXPECT_EQ(find("w", ""), numbers);
    EXPECT_EQ(find("w", "vector"), numbers);
    EXPECT_RAISES(find("o", ""), err_kind,
                  "Not a vector: " + root->items["o"].GetMemory()->GetDescription());
    Probe probe;
    EXPECT_FALSE(root->GetSubItemVector("none", probe, nullptr, ""));
    EXPECT_TRUE(probe.text.ends_with("|Not a vector: none|")) << probe.text.c_str();

    auto const picture = TestBlock::Create();
    attribute->items["image"] = PMemBlock(picture);
    EXPECT_EQ(ResolveAttribute1(PMemBlock(attribute), throw_always), numbers);
    attribute->items.erase("vector");
    EXPECT_EQ(ResolveAttribute1(PMemBlock(attribute), throw_always), picture);
    EXPECT_EQ(ResolveAttribute1(PMemBlock(root), throw_always), root);
    EXPECT_FALSE(ResolveAttribute1(PMemBlock(), throw_always));
    attribute->items.clear();
    Probe empty;
    EXPECT_FALSE(ResolveAttribute1(PMemBlock(attribute), empty));
    EXPECT_TRUE(empty.text.starts_with("Attribute does contain neither vector nor image data: {"))
        << empty.text.c_str();
}

TEST(SubItem, SystemKeysAreThoseThatTheListsName)
{
    class Listed : public TestBlock {
    public:
        DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const override
        {
            if (key.empty())
                return "@keys, %@inner,plain," + MemBlock::ResolveSubItem(key, handler).GetString();
            if (key == "!")
                return "@keys,@stored, item,%marked,%@data," +
                       MemBlock::ResolveSubItem(key, handler).GetString();
            return TestBlock::ResolveSubItem(key, handler);
        }
    };
    PMemBlock const object(new Listed);
    std::pair<char const*, bool> const cases[] = {
        {"@keys", true},    {"@KEYS", true},   {"@inner", true},   {"@sticky", true},
        {"@self", true},    {"%@self", false}, {"@stored", false}, {"@data", true},
        {"marked", true},   {"item", false},   {"plain", false},   {"", false},
        {"@absent", false}, {"@", false},      {",", false},       {"@keys,", false},
    };
    for (auto const& [key, expected] : cases)
        EXPECT_EQ(IsSystemSubKey(*object, key), expected) << key;
}

TEST(SubItem, SoftLinksAreRelativeToTheirPlace)
{
    struct Case {
        char const *base, *tail, *link, *result;
        bool inside;
    };
    Case const cases[] = {
        {"a.b.link", "", "x", "a.b.x", true},
        {"a.b.link", ".t", "<.x", "a.x.t", true},
        {"a.b.link", "", "<.<.x.y", "x.y", true},
        {"a.b.link", "", "<", "a", true},
        {"a.b.link", ".t", "<.<.<.x", "<.x.t", false},
        {"link", "", "x", "x", true},
        {"link", ".t", "<", "<.t", false},
        {"a.link", "", "x.<.y", "a.y", true},
        {"", "t", "", "t", true},
        {"a.link", ".t", "", "a.t", true},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.link);
        safestring result = "before";
        EXPECT_EQ(CollapseSoftLink(c.base, c.tail, c.link, result), c.inside);
        EXPECT_EQ(result, c.result);
    }
}
