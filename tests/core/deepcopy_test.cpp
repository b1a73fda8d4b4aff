#include <memblock/collections/container.h>

#include <support/rounds.h>
#include <support/vectors.h>

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

using namespace NKelmic;

namespace {

using Objs = std::vector<PMemBlock>;
using Set = std::set<MemBlock const*>;

/// The objects that one holds, with the steps of a path that lead there, read without a walk.
std::vector<std::pair<std::string, MemBlock const*>> ChildrenOf(MemBlock const& block)
{
    std::vector<std::pair<std::string, MemBlock const*>> children;
    auto const add = [&](std::string const& step, DataItem const& item) {
        if (item.GetType() == it_memblock && item.GetMemory())
            children.emplace_back(step, item.GetMemory().Pointer());
    };
    DataItem sticky;
    if (block.PimplIfAny() && block.ExistsSecondaryItem(MemBlock::key_sticky, sticky))
        add(".@sticky", sticky);
    if (Container const* const container = MemCast<Container>(&block)) {
        for (auto const& [name, value] : *container)
            add('.' + std::string(name.c_str()), value);
    } else if (Vector const& v = *MemCast<Vector>(&block);
               v.ElemType() == Vector::PMemory || v.ElemType() == Vector::PolyType) {
        for (unsigned i = 0; i < v.Length(); ++i)
            add('[' + std::to_string(i) + ']', v.GetDataItem(static_cast<int>(i)));
    }
    return children;
}

std::string NumbersOf(Container const& container)
{
    std::string text;
    for (auto const& [name, value] : container)
        if (value.GetType() == it_int)
            text += name.c_str() + std::to_string(value.GetInt());
    return text;
}

/// A tree at its first sight: which object is where, what it is and what it holds, and the paths.
struct Sight {
    explicit Sight(MemBlock const& root) { Look(root, ""); }
    void Look(MemBlock const& block, std::string const& path)
    {
        auto const [known, is_new] = paths.emplace(&block, path);
        text += std::to_string(numbers.emplace(&block, numbers.size()).first->second) + ' ';
        if (!is_new)
            return;
        order.push_back(&block);
        text += block.Class();
        if (Container const* const container = MemCast<Container>(&block))
            text += (container->IsOrdered() ? " ordered " : " ") + NumbersOf(*container);
        else if (MemCast<Vector>(&block)->ElemType() == Vector::Int)
            text += ' ' + TextOf(*MemCast<Vector>(&block));
        text += '(';
        for (auto const& [step, child] : ChildrenOf(block)) {
            text += step + '=';
            Look(*child, path + step);
        }
        text += ')';
    }
    bool Has(MemBlock const* block) const { return paths.count(block) > 0; }

    std::string text; // equal for trees that cannot be told apart from inside
    std::map<MemBlock const*, std::string> paths;
    std::map<MemBlock const*, std::size_t> numbers;
    std::vector<MemBlock const*> order;
};

/// Random objects, each of which holds some of those made before; `circles` adds links back.
Objs Graph(std::mt19937& random, bool circles)
{
    auto const below = [&](std::size_t n) { return random() % n; };
    Objs made;
    for (int i = 0; i < 12; ++i) {
        Objs held;
        for (auto n = made.empty() ? 0 : below(4); n > 0; --n)
            held.push_back(made[below(made.size())]);
        auto const kind = below(5);
        if (kind == 0) {
            made.push_back(Ints({i}));
        } else if (kind == 1) {
            made.push_back(Objects(held));
        } else if (kind == 2) {
            made.push_back(Items(std::vector<DataItem>(held.begin(), held.end())));
        } else {
            DerivedPointer<Container> const c(new Container(kind == 3));
            c->Put(i, "n");
            for (auto const& object : held)
                c->Put(DataItem(object), safestring(1, static_cast<char>('z' - c->Count())));
            made.push_back(c);
        }
        if (below(5) == 0)
            made.back()->SetSecondaryItem(
                MemBlock::key_sticky,
                DataItem(Cnt("i", i, "o", DataItem(made[below(made.size())]))));
    }
    for (auto const& object : made)
        if (auto const late = below(made.size()); circles && MemCast<Container>(object))
            MemCast<Container>(object)->Put(DataItem(made[late]), "back");
    return made;
}

Set Reached(Objs const& from)
{
    Set all;
    for (auto const& object : from) {
        Sight const sight(*object);
        all.insert(sight.order.begin(), sight.order.end());
    }
    return all;
}

/// The paths of what is held from outside: by `outside` itself, or by what only that reaches.
std::string HeldPaths(Sight const& tree, Objs const& outside)
{
    Set held;
    for (auto const& object : outside)
        held.insert(object.Pointer());
    for (auto const* block : Reached(outside))
        if (!tree.Has(block))
            for (auto const& [step, child] : ChildrenOf(*block))
                held.insert(child);
    std::string paths;
    for (auto const* block : tree.order)
        if (auto const& path = tree.paths.at(block); held.count(block) && !path.empty())
            paths += (paths.empty() ? "" : ",") + path.substr(path[0] == '.');
    return paths;
}

/// Objects that hold each other in a circle are never deleted otherwise.
void Empty(Set const& blocks)
{
    Objs alive;
    for (auto const* block : blocks)
        alive.emplace_back(block);
    for (auto const& block : alive) {
        block->ResetPimpl();
        if (Container* const container = MemCast<Container>(block))
            container->clear();
        else
            MemCast<Vector>(block)->ResizeVector(0, false, false);
    }
}

} // namespace

TEST(DeepCopy, LooksTheSameFromInsideAndSharesNothingWithOutside)
{
    for (unsigned seed = 0; seed < static_cast<unsigned>(Rounds(400)); ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Objs made = Graph(random, seed % 2 != 0), outside;
        auto const root = Cnt("x", DataItem(made.back()), "y", DataItem(made[made.size() - 2]));
        for (auto const& object : made)
            if (random() % 6 == 0)
                outside.push_back(object);
        Objs kept = outside;
        kept.push_back(root);
        Set lost = Reached(made);
        for (auto const* block : Reached(kept))
            lost.erase(block);
        Empty(lost);
        made.clear();

        Set const exposed = Reached(outside);
        Sight const before(*root);
        std::string const paths = HeldPaths(before, outside);
        safestring report;
        root->MakeDeepCopy(report);
        Sight const after(*root);
        EXPECT_EQ(after.text, before.text);
        EXPECT_EQ(report.c_str(), paths);
        for (auto const* block : before.order)
            EXPECT_EQ(after.Has(block), !exposed.count(block)) << before.paths.at(block);

        DataItem copy(root); // here all is held by the original
        copy.MakeCopy();
        Sight const clone(*copy.GetMemory());
        EXPECT_EQ(clone.text, before.text);
        for (auto const* block : after.order)
            EXPECT_FALSE(clone.Has(block));
        kept.push_back(copy.GetMemory());
        Empty(Reached(kept));
    }
}
