#include <memblock/core/visitor.h>

#include <memblock/base/raise.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/vector/vector.h>

#include "support/raises.h"
#include "support/testblock.h"
#include "support/vectors.h"

#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

using namespace NKelmic;

namespace {

typedef std::vector<std::string> Lines;

/// Notes each visit by path; answers what the test asks for.
class PathVisitor : public MemBlockVisitor {
public:
    using MemBlockVisitor::Visit;
    int Visit(safestring const& path, PMemBlock&) override
    {
        paths.emplace_back(path.c_str());
        auto const answer = answers.find(path);
        return answer != answers.end() ? answer->second : int(go_on);
    }
    Lines paths;
    std::map<safestring, int> answers;
};

/// Notes each event of a traversal.
class EventVisitor : public TraverseVisitor {
public:
    void VisitStart(TraverseNode const& node, DataItem&) override { Note("item", node); }
    void VisitStart(TraverseNode const& node, MemBlock&) override { Note("block", node); }
    void VisitEnd(TraverseNode const& node, DataItem&) override { Note("/item", node); }
    void VisitEnd(TraverseNode const& node, MemBlock&) override { Note("/block", node); }
    Lines events;

private:
    void Note(char const* what, TraverseNode const& node)
    {
        events.push_back(std::string(what) + " " + node.Path().c_str());
    }
};

Lines Visits(PMemBlock const& block, MemBlock::entertainmode_t mode)
{
    PathVisitor visitor;
    block->Entertain(visitor, "", mode);
    return visitor.paths;
}

typedef std::map<safestring, DataItem> Named;

DerivedPointer<TestBlock> Block(Named const& items = {})
{
    return TestBlock::Create(items);
}

constexpr int deep = 10'000;

/// A chain of objects under the name "n"; with `held`, somebody else holds each of them.
DerivedPointer<TestBlock> Chain(int length, std::vector<PMemBlock>* held = nullptr)
{
    auto chain = Block();
    for (int i = 1; i < length; ++i) {
        if (held)
            held->push_back(chain);
        chain = Block({{"n", DataItem(chain)}});
    }
    return chain;
}

} // namespace

TEST(Entertain, ModesSelectWhatIsVisited)
{
    auto const block = Block({{"a", DataItem(Block({{"x", DataItem(Block())}}))},
                              {"b", DataItem(Block())},
                              {"c", DataItem(5)}});
    block->SetSecondaryItem(MemBlock::key_sticky, DataItem(Block({{"s", DataItem(Block())}})));
    block->SetSecondaryItem(MemBlock::key_transient, DataItem(Block()));
    Lines const attributes{"@transient", "@sticky", "@sticky.s"};
    Lines const children{"a", "a.x", "b"};
    auto const joined = [](std::initializer_list<Lines> parts) {
        Lines all;
        for (auto const& part : parts)
            all.insert(all.end(), part.begin(), part.end());
        return all;
    };
    EXPECT_EQ(Visits(block, MemBlock::em_all), joined({attributes, {""}, children}));
    EXPECT_EQ(Visits(block, MemBlock::em_no_attr), Lines{""});
    EXPECT_EQ(Visits(block, MemBlock::em_no_self), joined({attributes, children}));
}

TEST(Entertain, AnswersSteerTheWalk)
{
    auto const block = Block({{"a", DataItem(Block({{"x", DataItem(Block())}}))},
                              {"b", DataItem(Block())},
                              {"c", DataItem(Block())}});
    PathVisitor skipping;
    skipping.answers["a"] = MemBlockVisitor::skip_children;
    EXPECT_TRUE(block->Entertain(skipping, "p", MemBlock::em_all));
    skipping.answers["p.a"] = MemBlockVisitor::skip_children;
    skipping.paths.clear();
    EXPECT_TRUE(block->Entertain(skipping, "p", MemBlock::em_all));
    EXPECT_EQ(skipping.paths, (Lines{"p", "p.a", "p.b", "p.c"}));

    PathVisitor stopping;
    stopping.answers["a.x"] = MemBlockVisitor::stop;
    EXPECT_FALSE(block->Entertain(stopping, "", MemBlock::em_all));
    EXPECT_EQ(stopping.paths, (Lines{"", "a", "a.x"}));
    stopping.answers[""] = MemBlockVisitor::stop;
    stopping.paths.clear();
    EXPECT_FALSE(block->Entertain(stopping, "", MemBlock::em_all));
    EXPECT_EQ(stopping.paths, Lines{""});
}

TEST(Entertain, LeavesAnObjectWithoutOwnersAlive)
{
    int destroyed = 0;
    auto* const block = new TestBlock;
    block->destroyed = &destroyed;
    PathVisitor visitor;
    EXPECT_TRUE(block->Entertain(visitor, "", MemBlock::em_all));
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(block->RefCount(), 0);
    EXPECT_EQ(block->Flags(), 0u);
    delete block;
}

TEST(Traverse, GivesStartAndEndOfEachNode)
{
    auto const block = Block({{"a", DataItem(Block())}, {"c", DataItem(5)}});
    block->SetSecondaryItem(MemBlock::key_sticky, DataItem(Block()));
    block->SetSecondaryItem(MemBlock::key_transient, DataItem(Block()));
    EventVisitor visitor;
    block->Traverse(visitor, TraverseNode("top"));
    EXPECT_EQ(
        visitor.events,
        (Lines{"block top", "block top.a", "/block top.a", "item top.c", "/item top.c",
               "item top.@sticky:10003", "block top.@sticky:10003.memblock",
               "/block top.@sticky:10003.memblock", "/item top.@sticky:10003", "/block top"}));
}

TEST(Traverse, ShowsALogicalTypeThatIsNotTheDefault)
{
    auto const block = Block();
    block->DoSetLgType(4);
    EventVisitor visitor;
    block->Traverse(visitor, TraverseNode());
    EXPECT_EQ(visitor.events, (Lines{"block ", "item @type", "/item @type", "/block "}));
    EXPECT_EQ(TraverseNode(TraverseNode("a"), "[3]").Path(), "a[3]");
}

TEST(SetConst, MarksTheTreeButNoXmlNodes)
{
    auto const node = Block();
    node->conforms = "xmlnode";
    auto const child = Block();
    auto const block = Block({{"child", DataItem(child)}, {"node", DataItem(node)}});
    child->SetSecondaryItem(MemBlock::key_readonly, DataItem(1));
    child->SetSecondaryItem(100, DataItem(1));
    block->SetConst(true);
    EXPECT_EQ(block->Flags(), unsigned(MemBlock::mem_const));
    EXPECT_EQ(child->Flags(), unsigned(MemBlock::mem_const));
    EXPECT_EQ(node->Flags(), 0u);
    EXPECT_TRUE(Cached(child, MemBlock::key_readonly));
    block->SetConst(false);
    EXPECT_EQ(block->Flags(), 0u);
    EXPECT_EQ(child->Flags(), 0u);
    EXPECT_FALSE(Cached(child, MemBlock::key_readonly));
    EXPECT_TRUE(Cached(child, 100));
    EXPECT_EQ(block->PimplIfAny(), nullptr) << "no cache is made for this";
}

TEST(CalcMemUsage, CountsSharedObjectsOnceAndLongTexts)
{
    auto const shared = Block();
    shared->memusage_self = DataItem(1000);
    auto const block = Block({{"a", DataItem(shared)},
                              {"b", DataItem(shared)},
                              {"short", DataItem(safestring(20, 'x'))},
                              {"long", DataItem(safestring(21, 'x'))}});
    block->memusage_self = DataItem(5'000'000'000LL);
    EXPECT_EQ(block->CalcMemUsage(), 5'000'001'022LL);
    EXPECT_EQ(DataItem(block).CalcMemUsage(), 5'000'001'022LL);
    EXPECT_EQ(block->RefCount(), 1);
    EXPECT_EQ(DataItem(5).CalcMemUsage(), 0);
    EXPECT_EQ(DataItem(safestring(21, 'x')).CalcMemUsage(), 22);

    auto const texts = Texts({safestring(15, 'x'), safestring(16, 'x')}); // 15 lie in their element
    constexpr long long vector = sizeof(Vector), texts_only = 2 * sizeof(safestring) + 17;
    EXPECT_EQ(texts->CalcMemUsage(), vector + texts_only);
    constexpr long long pointers = 2 * sizeof(PMemBlock);
    EXPECT_EQ(Objects({PMemBlock(texts), PMemBlock(texts)})->CalcMemUsage(),
              2 * vector + pointers + texts_only);
}

TEST(CalcMemUsage, EndsOnCycles)
{
    auto const block = Block();
    block->memusage_self = DataItem(10);
    block->items["self"] = DataItem(block);
    block->SetSecondaryItem(10500, DataItem(block));
    EXPECT_EQ(block->CalcMemUsage(), 10);
    block->SetSecondaryItem(10500, DataItem());
    block->items.clear();
}

TEST(MakeDeepCopy, ShowsNoHalfMadeCopyWhenACloneFails)
{
    class Unclonable : public TestBlock {
    protected:
        PMemBlock DoClone(int) const override { throw std::runtime_error("no copies"); }
    };
    auto const outside = Block({{"x", DataItem(PMemBlock(new Unclonable))}});
    auto const block = Block({{"a", DataItem(outside)}});
    EXPECT_THROW(block->MakeDeepCopy(), std::runtime_error);
    EXPECT_EQ(Child(block, "a"), outside);
}

namespace {

/// Counts what it visits and reads no paths, whose lengths would add up.
class DepthVisitor : public MemBlockVisitor {
public:
    DepthVisitor() { reads_paths_ = false; }
    using MemBlockVisitor::Visit;
    int Visit(safestring const& path, PMemBlock&) override
    {
        longest_path = std::max(longest_path, path.size());
        if (++visits == throw_at)
            throw std::runtime_error("far down");
        return go_on;
    }
    int visits = 0;
    int throw_at = 0;
    std::size_t longest_path = 0;
};
} // namespace

// The thread sanitizer keeps the call stack of each allocation in full, and a deep copy makes one
// at each depth: at 10,000 levels these took 14 GB.
#ifdef __SANITIZE_THREAD__
constexpr int copied = deep / 10;
#else
constexpr int copied = deep;
#endif

TEST(Walks, DeepTreesAreWalkedToTheEnd)
{
    std::vector<PMemBlock> held;
    auto const chain = Chain(copied, &held);
    DepthVisitor visitor;
    EXPECT_TRUE(chain->Entertain(visitor, "", MemBlock::em_all));
    EXPECT_EQ(visitor.visits, copied);
    EXPECT_EQ(visitor.longest_path, 1u) << "whole paths take memory with the square of the depth";
    chain->SetConst(true);
    EXPECT_EQ(held.front()->Flags(), unsigned(MemBlock::mem_const));
    static_cast<TestBlock&>(*held.front()).memusage_self = DataItem(77);
    EXPECT_EQ(chain->CalcMemUsage(), 77);
    chain->MakeDeepCopy();
    EXPECT_EQ(held.front()->RefCount(), 2) << "held by its old parent and here";
    EXPECT_EQ(chain->CalcMemUsage(), 77);
    held.clear();
}

TEST(Walks, DeepTreesAreWalkedOnSmallStacksToo)
{
    std::string caught;
    auto const walk = [&] {
        DepthVisitor visitor;
        visitor.throw_at = deep;
        try {
            Chain(deep)->Entertain(visitor, "", MemBlock::em_all);
        } catch (std::runtime_error const& e) {
            caught = e.what(); // comes up through all stacks of the walk
        }
    };
    boost::thread::attributes attributes;
    attributes.set_stack_size(512 << 10);
    boost::thread(attributes, walk).join();
    EXPECT_EQ(caught, "far down");
}

TEST(CloneToBranch, CopiesAlongThePathOnly)
{
    auto const block =
        Block({{"a", DataItem(Block({{"x", DataItem(Block())}, {"n", DataItem(3)}}))},
               {"b", DataItem(Block())}});
    block->SetSecondaryItem(10500, DataItem(1));
    block->SetSecondaryItem(100, DataItem(1));
    auto const copy = DerivedPointer<TestBlock>(block->CloneToBranch("a.x"));
    EXPECT_EQ(copy->clone_mode, 2);
    EXPECT_NE(Child(copy, "a"), Child(block, "a"));
    EXPECT_NE(Child(Child(copy, "a"), "x"), Child(Child(block, "a"), "x"));
    EXPECT_EQ(Child(copy, "b"), Child(block, "b"));
    EXPECT_TRUE(Cached(copy, 10500));
    EXPECT_FALSE(Cached(copy, 100));

    EXPECT_EQ(Child(DerivedPointer<TestBlock>(block->CloneToBranch("")), "a"), Child(block, "a"));
    auto const number = DerivedPointer<TestBlock>(block->CloneToBranch("a.n"));
    EXPECT_EQ(Child(number, "a")->items["n"].GetInt(), 3);
    auto const missing = DerivedPointer<TestBlock>(block->CloneToBranch("nothing.x"));
    EXPECT_EQ(missing->items.size(), 2u) << "a step that leads nowhere is left alone";

    auto const itself = DerivedPointer<TestBlock>(block->CloneToBranch("@self.a"));
    EXPECT_NE(Child(itself, "a"), Child(block, "a"));
    auto const list = DerivedPointer<TestBlock>(block->CloneToBranch(".."));
    EXPECT_EQ(list->items.size(), 2u) << "a key list is no branch";
    auto const vector = Vector::CreateFrom(29);
    vector->SetFactor(0.01); // 0.29 / 0.01 is less than 29
    EXPECT_EQ(MemCast<Vector>(vector->CloneToBranch("0"))->GetInt(0), 29);
}
