#include <memblock/collections/container.h>
#include <memblock/collections/table.h>
#include <memblock/core/visitor.h>
#include <memblock/imaging/intervalvector.h>

#include <support/vectors.h>

#include <gtest/gtest.h>

#include <functional>
#include <vector>

using namespace NKelmic;

namespace {

using Objs = std::vector<PMemBlock>;

/// A class whose objects hold others, and what a visitor can do to such an object.
struct Kind {
    char const* name;
    std::function<PMemBlock(Objs const& children)> make;
    std::function<void(MemBlock&, unsigned i)> remove;
    std::function<void(MemBlock&, unsigned i, DataItem const&)> overwrite;
    std::function<void(MemBlock&)> clear;
    std::function<void(MemBlock&, PMemBlock const&)> append;
};

char const* const names[] = {"a", "b", "c"};
constexpr int cache_keys[] = {MemBlock::key_transient, MemBlock::key_sticky, 10500};

PMemBlock Child()
{
    return Objects({PMemBlock(Ints({1}))});
}

template <class T>
T& As(MemBlock& block)
{
    return dynamic_cast<T&>(block);
}

Kind ContainerKind(char const* name, bool ordered)
{
    return {
        name,
        [=](Objs const& children) -> PMemBlock {
            DerivedPointer<Container> const c(new Container(ordered));
            for (unsigned i = 0; i < children.size(); ++i)
                c->Put(DataItem(children[i]), names[i]);
            return c;
        },
        [](MemBlock& c, unsigned i) { As<Container>(c).Delete(names[i]); },
        [](MemBlock& c, unsigned i, DataItem const& item) { As<Container>(c).Put(item, names[i]); },
        [](MemBlock& c) { As<Container>(c).clear(); },
        [](MemBlock& c, PMemBlock const& object) { As<Container>(c).Put(DataItem(object), "d"); }};
}

template <class Make, class Overwrite>
Kind VectorKind(char const* name, Make make, Overwrite overwrite)
{
    return {name,
            make,
            [](MemBlock& v, unsigned i) { As<Vector>(v).Erase(int(i), 1); },
            overwrite,
            [](MemBlock& v) { As<Vector>(v).ResizeVector(0, false, false); },
            [](MemBlock& v, PMemBlock const&) { // far enough for the buffer to move
                As<Vector>(v).ResizeVector(As<Vector>(v).Length() + 100, true, true);
            }};
}

Kind const kinds[] = {
    ContainerKind("container", false),
    ContainerKind("ordered container", true),
    VectorKind(
        "vector of objects", [](Objs const& children) -> PMemBlock { return Objects(children); },
        [](MemBlock& v, unsigned i, DataItem const& item) {
            *As<Vector>(v).PMemoryPointer(i) =
                item.GetType() == it_memblock ? item.GetMemory() : PMemBlock();
        }),
    VectorKind(
        "vector of values",
        [](Objs const& children) -> PMemBlock {
            return Items(std::vector<DataItem>(children.begin(), children.end()));
        },
        [](MemBlock& v, unsigned i, DataItem const& item) {
            *As<Vector>(v).PolyTypePointer(i) = item;
        }),
    {"table",
     [](Objs const& children) -> PMemBlock {
         auto const table = Table::Create();
         for (unsigned i = 0; i < children.size(); ++i)
             table->SetColumn(names[i], DerivedPointer<Vector>(children[i]));
         return table;
     },
     [](MemBlock& t, unsigned i) { As<Table>(t).DeleteColumn(int(i)); },
     [](MemBlock& t, unsigned i, DataItem const& item) {
         As<Table>(t).ReplaceColumn(int(i), "new", DerivedPointer<Vector>(item.GetMemory()));
     },
     [](MemBlock& t) {
         while (As<Table>(t).ColumnCount() > 0)
             As<Table>(t).DeleteColumn(0);
     },
     [](MemBlock& t, PMemBlock const& object) {
         As<Table>(t).SetColumn("d", DerivedPointer<Vector>(object));
     }},
    {"cache",
     [](Objs const& children) -> PMemBlock {
         PMemBlock const owner = Ints({1});
         for (unsigned i = 0; i < children.size(); ++i)
             owner->SetSecondaryItem(cache_keys[i], DataItem(children[i]));
         return owner;
     },
     [](MemBlock& o, unsigned i) { o.SetSecondaryItem(cache_keys[i], {}); },
     [](MemBlock& o, unsigned i, DataItem const& item) { o.SetSecondaryItem(cache_keys[i], item); },
     [](MemBlock& o) { o.ResetPimpl(); },
     [](MemBlock& o, PMemBlock const& object) {
         o.ContentHasBeenChanged();
         o.SetSecondaryItem(10600, DataItem(object));
     }},
    {"intervals",
     [](Objs const&) -> PMemBlock {
         auto const v = IntervalVector::Create(2, Ints({1, 2}));
         v->AddEndArray();
         return v;
     },
     [](MemBlock& v, unsigned) { As<IntervalVector>(v).SetTarget(Ints({3})); },
     [](MemBlock& v, unsigned, DataItem const&) { As<IntervalVector>(v).SetTarget(Ints({4})); },
     [](MemBlock& v) { As<IntervalVector>(v).SetTarget(Ints({5})); },
     [](MemBlock& v, PMemBlock const&) { As<IntervalVector>(v).AddEndArray(); }},
};

/// Makes one change at one step of a walk. Counts the visits of each child.
class Meddler : public TraverseVisitor, public ItemVisitor {
public:
    enum change_t { nothing, remove, to_number, to_object, clear, append, let_go, changes };
    Meddler(Kind const& kind, change_t change, int when, bool traverses)
        : kind_(kind), change_(change), when_(when), traverses_(traverses)
    {
        {
            Objs const made{Child(), Child(), Child()};
            root = kind.make(made);
            for (auto const& child : made) // from here on the root's alone
                children_.push_back(child->RefCount() > 1 ? child.Pointer() : nullptr);
        }
    }

    int Visit(safestring const& path, PMemBlock& block) override
    {
        if (traverses_)
            return TraverseVisitor::Visit(path, block);
        At(block.Pointer());
        return path == "no such path" ? int(stop) : int(go_on); // the path outlives the item
    }
    int Visit(safestring const& path, DataItem& item) override
    {
        return traverses_ ? TraverseVisitor::Visit(path, item) : int(go_on);
    }
    void Visit(safestring const& name, SafeValue const& value) override
    {
        At(value.GetMemory().Pointer());
        EXPECT_TRUE(value.GetMemory() && !name.empty());
    }
    void VisitStart(TraverseNode const&, MemBlock& block) override { At(&block); }
    void VisitStart(TraverseNode const&, DataItem&) override { At(nullptr); }
    void VisitEnd(TraverseNode const&, MemBlock& block) override { At(&block, false); }
    void VisitEnd(TraverseNode const&, DataItem&) override { At(nullptr); }

    PMemBlock root;
    std::vector<int> seen{0, 0, 0};
    int steps = 0;
    unsigned changed = 0; ///< the child that it was at, or the one before

private:
    void At(MemBlock const* visited, bool starts = true)
    {
        for (unsigned i = 0; i < children_.size(); ++i)
            if (visited && visited == children_[i]) {
                seen[i] += starts;
                last_ = i;
            }
        if (steps++ != when_)
            return;
        changed = last_;
        Change(*root);
    }

    void Change(MemBlock& object)
    {
        switch (change_) {
        case remove:
            return kind_.remove(object, last_);
        case to_number:
            return kind_.overwrite(object, last_,
                                   safestring(kind_.name) == "table" ? DataItem(replacement_)
                                                                     : DataItem(7));
        case to_object:
            return kind_.overwrite(object, last_, DataItem(replacement_));
        case clear:
            return kind_.clear(object);
        case append:
            return kind_.append(object, replacement_);
        case let_go:
            root = PMemBlock();
            return;
        default:
            return;
        }
    }

    Kind const& kind_;
    change_t change_;
    int when_;
    bool traverses_;
    PMemBlock const replacement_ = Child();
    std::vector<MemBlock const*> children_;
    unsigned last_ = 0;
};

/// The walks over an object: by mode, then the traversal, then the scans of containers.
constexpr int traversal = 5, scan = 6, value_scan = 7, walks = 8;

void Walk(Meddler& v, int walk)
{
    MemBlock& root = *v.root;
    if (walk < traversal)
        root.Entertain(v, "", static_cast<MemBlock::entertainmode_t>(walk));
    else if (walk == traversal)
        root.Traverse(v, TraverseNode());
    else if (Container* const container = MemCast<Container>(&root); walk == scan && container)
        container->ScanItems(static_cast<MemBlockVisitor&>(v), nullptr);
    else if (container)
        container->ScanItems(static_cast<ItemVisitor&>(v));
}

} // namespace

TEST(ChangingVisitor, MayChangeWhateverItIsAtInEveryWalk)
{
    for (Kind const& kind : kinds)
        for (int walk = 0; walk < walks; ++walk) {
            auto const run = [&](Meddler::change_t change, int when) {
                SCOPED_TRACE(
                    Text("%s, walk %d, change %d at step %d", kind.name, walk, int(change), when)
                        .c_str());
                Meddler v(kind, change, when, walk == traversal);
                Walk(v, walk);
                safestring message;
                EXPECT_TRUE(!v.root || v.root->Consistent(message, false)) << message.c_str();
                return std::pair(v.seen, std::pair(v.changed, v.steps));
            };
            auto const [all, end] = run(Meddler::nothing, -1);
            for (int when = 0; when < end.second; ++when)
                for (int change = 0; change < Meddler::changes; ++change) {
                    auto const [seen, at] = run(static_cast<Meddler::change_t>(change), when);
                    for (unsigned i = 0; i < all.size(); ++i) {
                        bool const may_miss = change == Meddler::clear || i == at.first;
                        EXPECT_TRUE(seen[i] == all[i] || (may_miss && seen[i] < all[i]))
                            << kind.name << ", walk " << walk << ", change " << change << " at "
                            << when << ": child " << i << " seen " << seen[i] << " times";
                    }
                }
        }
}
