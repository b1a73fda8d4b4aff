// What crosses threads: the objects that one side reaches and those of the other are different
// ones, in caches too, as their counts have no lock.

#include <memblock/collections/container.h>
#include <memblock/collections/table.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/core/visitor.h>
#include <memblock/imaging/intervalvector.h>

#include <support/vectors.h>

#include <gtest/gtest.h>
#include <set>
#include <span>

#include "jobs.h"

using namespace NKelmic;

namespace {

struct OpenCache : MemBlockImpl {
    static std::map<int, DataItem>& Of(MemBlockImpl& cache) { return cache.*(&OpenCache::items_); }
};

constexpr int derived[] = {MemBlock::key_readonly, MemBlock::key_transient, 108, 10000};
constexpr int sticky[] = {10001, MemBlock::key_sticky, 10301, 20000};

/// Collects all objects below one, with whatever the caches hold.
class Reach : public MemBlockVisitor {
public:
    explicit Reach(PMemBlock const& root)
    {
        PMemBlock place(root);
        if (Visit("", place) == go_on)
            root->Entertain(*this, "", MemBlock::em_no_self);
    }
    using MemBlockVisitor::Visit;
    int Visit(safestring const&, PMemBlock& block) override
    {
        if (!block || !objects.insert(block.Pointer()).second)
            return skip_children;
        if (block->PimplIfAny())
            for (auto const& [key, item] : OpenCache::Of(*block->PimplIfAny())) {
                if (item.GetType() != it_memblock)
                    continue;
                derived_objects += key <= MemBlock::key_last_volatile;
                sticky_objects += key > MemBlock::key_last_volatile;
                PMemBlock place = item.GetMemory();
                if (Visit("", place) == go_on)
                    place->Entertain(*this, "", MemBlock::em_no_self);
            }
        return go_on;
    }
    /// Change all counts for a while: a thread that shares one shows.
    void Use() const
    {
        for (int i = 0; i < 100; ++i)
            for (MemBlock* object : objects)
                PMemBlock const copy(object);
    }

    std::set<MemBlock*> objects;
    int derived_objects = 0;
    int sticky_objects = 0;
};

/// Hang objects on an object under each kind of key, and some on these too.
PMemBlock Laden(PMemBlock object, int depth = 2)
{
    if (depth == 0)
        return object;
    for (auto const& keys : {std::span<int const>(derived), std::span<int const>(sticky)})
        for (int key : keys) {
            PMemBlock item = Bytes({1, 2});
            if (key == MemBlock::key_transient || key == MemBlock::key_sticky) {
                auto attributes = Container::Create();
                attributes->SetSubItem("a", item, throw_always);
                item = attributes;
            }
            object->SetSecondaryItem(key, DataItem(Laden(item, depth - 1)));
        }
    return object;
}

struct Sent {
    int laden; // objects
    PMemBlock (*make)();
};
Sent const sent[] = {
    {1,
     [] {
         return Laden(Bytes({1, 2, 3}));
     }},
    {3,
     [] {
         return Laden(Objects({Laden(Bytes({1})), Laden(Ints({2}))}));
     }},
    {2,
     [] {
         return Laden(Items({DataItem(Laden(Bytes({1}))), DataItem("text")}));
     }},
    {2,
     [] {
         auto table = Table::Create();
         table->SetSubItem("c", Laden(Ints({1, 2})), throw_always);
         return Laden(table);
     }},
    {2,
     [] {
         auto list = IntervalVector::Create();
         list->SetSubItem("target", Laden(Bytes({1, 2, 3})), throw_always);
         return Laden(list);
     }},
    {3,
     [] {
         auto inner = Container::Create();
         inner->SetSubItem("x", Laden(Bytes({1})), throw_always);
         auto outer = Container::Create();
         outer->SetSubItem("in", Laden(inner), throw_always);
         outer->SetSubItem("again", PMemBlock(inner), throw_always);
         return Laden(outer);
     }},
};

enum road_t { by_result, by_last_reference, by_note, by_question, by_answer, by_copy };

struct Pool : JobPool {
    void HandleNotify(int, int code, DataItem& value) override
    {
        if (code == by_note)
            Take(value);
    }
    DataItem HandleConsult(int, int code, DataItem& value) override
    {
        if (code == by_answer)
            return kept;
        Take(value);
        return {};
    }
    void Take(DataItem const& value)
    {
        received = value;
        Reach(received.GetMemory()).Use();
    }
    PMemBlock kept; // by who sends
    DataItem received;
};

DataItem Send(Task& job, Pool& pool, road_t road)
{
    DataItem value(pool.kept);
    if (road == by_last_reference)
        pool.kept = PMemBlock();
    if (road == by_result || road == by_last_reference)
        return value;
    if (road == by_answer)
        pool.Take(job.Consult(road, value = DataItem()));
    else if (road == by_note)
        job.Notify(road, value);
    else
        job.Consult(road, value);
    Reach(pool.kept).Use(); // while the other thread uses what it got
    return {};
}

DerivedPointer<Vector> CachedObjects(PMemBlock const& object)
{
    std::vector<PMemBlock> objects;
    for (auto const& [key, item] : OpenCache::Of(*object->Pimpl()))
        objects.push_back(item.GetMemory());
    return Objects(objects);
}

} // namespace

TEST(Independence, NoObjectIsReachedFromBothSides)
{
    Threads const threads(2);
    for (auto const& [laden, make] : sent)
        for (road_t road :
             {by_result, by_last_reference, by_note, by_question, by_answer, by_copy}) {
            Pool pool;
            pool.kept = make();
            SCOPED_TRACE(Text("%s, road %d", *pool.kept, int(road)).c_str());
            PMemBlock const left =
                road == by_last_reference ? PMemBlock(CachedObjects(pool.kept)) : pool.kept;
            if (road == by_copy) {
                pool.received = DataItem(pool.kept);
                pool.received.MakeCopy();
            } else {
                Add(pool, [&, road = road](Task& job) { return Send(job, pool, road); });
                pool.Wait();
                if (road <= by_last_reference)
                    pool.received = pool.GetResults()[0];
            }
            Reach const here(left), there(pool.received.GetMemory());
            for (MemBlock* object : there.objects)
                EXPECT_FALSE(here.objects.contains(object)) << object->GetDescription().c_str();
            EXPECT_EQ(there.derived_objects, 0);
            EXPECT_EQ(there.sticky_objects, laden * (4 + 4 * 4));
        }
}
