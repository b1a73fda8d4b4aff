#include "images.h"

#include <memblock/collections/container.h>
#include <memblock/collections/table.h>
#include <memblock/core/visitor.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/mask.h>
#include <memblock/imaging/stencil.h>

#include <algorithm>
#include <set>

using namespace NKelmic;

namespace {

/// An object, and the objects that it holds, each as often as it does.
struct Holding {
    char const* name;
    PMemBlock holder;
    std::vector<PMemBlock> held;
    bool keeps_form = true; ///< false: a hash joins the ends to the starts, a count shows no ends

    std::set<MemBlock*> Distinct() const
    {
        std::set<MemBlock*> all;
        for (auto const& block : held)
            all.insert(block.Pointer());
        return all;
    }
};

/// Calls a function with each object that a walk visits.
class Each : public MemBlockVisitor {
public:
    explicit Each(std::function<void(safestring const&, PMemBlock&)> f) : f_(std::move(f)) {}
    using MemBlockVisitor::Visit;
    int Visit(safestring const& path, PMemBlock& block) override
    {
        f_(path, block);
        return go_on;
    }

private:
    std::function<void(safestring const&, PMemBlock&)> f_;
};

DerivedPointer<Image> Labels()
{
    auto const image = Image::Create(5, 4, Vector::UnsignedShort, 1.0);
    image->UnsignedShortPointer()[6] = 1;
    image->UnsignedShortPointer()[7] = 2;
    image->SetType(Image::stencil);
    return image;
}

/// One holding of each kind; made anew, as the tests change what they get.
std::vector<Holding> AllHoldings()
{
    std::vector<Holding> all;
    PMemBlock const x = Ints({1, 2});
    PMemBlock const y = Ints({3});
    auto const container = Container::Create();
    container->Put(DataItem(x), "x");
    container->Put(DataItem(y), "y");
    container->Put(DataItem(x), "z");
    all.push_back({"container", container, {x, y, x}});
    all.push_back({"vector of objects", Objects({x, y, x}), {x, y, x}});
    all.push_back({"vector of values", Items({DataItem(x), DataItem(5), DataItem(x)}), {x, x}});
    DerivedPointer<Vector> const column = Ints({1, 2});
    auto const table = Table::Create();
    table->SetColumn("a", column);
    all.push_back({"table", table, {column}});

    auto const sticky = Ints({7});
    auto const attributes = Container::Create();
    attributes->Put(DataItem(x), "x");
    sticky->SetSecondaryItem(MemBlock::key_sticky, DataItem(attributes));
    all.push_back({"sticky attributes", sticky, {attributes, x}});

    auto const pixels = Pixels({6, 7, 12});
    auto const objects = IntervalVector::Create(2, DerivedPointer<Vector>(pixels));
    objects->End(1)[0] = 2;
    objects->End(2)[0] = 3;
    all.push_back({"intervals", objects, {pixels}});
    DerivedPointer<IntervalVector> const ends(objects->Clone(false));
    ends->AddEndArray();
    Holding with_ends{"intervals with ends", ends, {}, false};
    Each each([&](safestring const&, PMemBlock& block) { with_ends.held.push_back(block); });
    ends->Entertain(each, safestring(), MemBlock::em_no_self);
    EXPECT_EQ(with_ends.held.size(), 2u);
    all.push_back(with_ends);

    auto const from_list = Mask::Create(PMemBlock(Pixels({6, 7})));
    all.push_back({"mask of a list", from_list, {from_list->GetVectorRepr()}});
    auto const from_image = Mask::Create(PMemBlock(Picture<unsigned char>(2, 1, {0, 1})));
    all.push_back({"mask of an image", from_image, {from_image->GetImageRepr()}});
    auto const both = Mask::Create(PMemBlock(Pixels({6, 7})));
    all.push_back({"mask", both, {both->GetVectorRepr(), both->GetImageRepr()}});
    auto const stencil = Stencil::Create(PMemBlock(Labels()));
    PMemBlock const list = stencil->GetVectorRepr();
    all.push_back({"stencil",
                   stencil,
                   {stencil->GetImageRepr(), list, MemCast<IntervalVector>(list)->Target()}});
    return all;
}

std::vector<MemBlock*> Visited(MemBlock& root,
                               MemBlock::entertainmode_t mode = MemBlock::em_no_self)
{
    std::vector<MemBlock*> all;
    Each each([&](safestring const&, PMemBlock& block) { all.push_back(block.Pointer()); });
    root.Entertain(each, safestring(), mode);
    return all;
}

DerivedPointer<Container> Box(PMemBlock const& block)
{
    auto const box = Container::Create();
    box->Put(DataItem(block), "m");
    return box;
}

safestring HashOf(MemBlock& block)
{
    block.ContentHasBeenChanged();
    return GetText(PMemBlock(&block), "@md5").c_str();
}

/// Write to an object, below all that holds it.
void Change(PMemBlock const& block)
{
    if (auto* const container = MemCast<Container>(block))
        container->Put(1, "new");
    else if (auto* const vector = MemCast<Vector>(block))
        vector->SetElem(0, vector->Elem(0) + 1);
}

} // namespace

TEST(HeldObjects, EachIsVisitedAsOftenAsItIsHeld)
{
    for (Holding const& h : AllHoldings()) {
        SCOPED_TRACE(h.name);
        auto const visited = Visited(*Box(h.holder));
        ASSERT_EQ(visited.size(), 1 + h.held.size());
        EXPECT_EQ(visited[0], h.holder.Pointer());
        std::vector<MemBlock*> below(visited.begin() + 1, visited.end());
        EXPECT_EQ(below, Visited(*h.holder)) << "the same below it as its own walk";
        for (auto const& block : h.held) {
            auto const place = std::find(below.begin(), below.end(), block.Pointer());
            ASSERT_NE(place, below.end());
            below.erase(place);
        }
    }
}

TEST(HeldObjects, AreMarkedAndCountedWithTheirHolder)
{
    for (bool const boxed : {true, false})
        for (Holding const& h : AllHoldings()) {
            SCOPED_TRACE(h.name);
            PMemBlock const root = boxed ? PMemBlock(Box(h.holder)) : h.holder;
            auto const marked = [&](MemBlock const* block) {
                return (block->Flags() & MemBlock::mem_const) != 0;
            };
            auto const all = Visited(*root);
            root->SetConst(true);
            EXPECT_TRUE(marked(h.holder.Pointer()) && std::all_of(all.begin(), all.end(), marked));
            root->SetConst(false);
            EXPECT_FALSE(marked(h.holder.Pointer()) || std::any_of(all.begin(), all.end(), marked));
            long long bytes = 0;
            for (MemBlock const* block : h.Distinct())
                if (auto const* vector = dynamic_cast<Vector const*>(block))
                    bytes += static_cast<long long>(vector->Length()) * vector->ElemSize();
            EXPECT_GE(root->CalcMemUsage(), h.keeps_form ? bytes : 0);
        }
}

TEST(HeldObjects, AreInTheHashOfWhatHoldsTheirHolder)
{
    auto const masks = [](unsigned int pixel) {
        return Box(Mask::Create(PMemBlock(Pixels({pixel}))));
    };
    EXPECT_EQ(HashOf(*masks(6)), HashOf(*masks(6)));
    EXPECT_NE(HashOf(*masks(6)), HashOf(*masks(7)));
    auto const box = masks(6);
    safestring const before = HashOf(*box);
    Set(box, "m.0", 8);
    EXPECT_NE(GetText(box, "@md5"), before.c_str());
    for (std::size_t i = 0; i < AllHoldings().size(); ++i)
        for (std::size_t k = 0; k < AllHoldings()[i].held.size(); ++k) {
            Holding const h = AllHoldings()[i];
            SCOPED_TRACE(h.name);
            if (!h.keeps_form)
                continue;
            auto const holder = Box(h.holder);
            safestring const hash = HashOf(*holder);
            Change(h.held[k]);
            EXPECT_NE(HashOf(*holder), hash) << k;
        }
}

TEST(HeldObjects, AreCopiedWhereOutsidersHoldThem)
{
    for (bool const boxed : {true, false})
        for (Holding& h : AllHoldings()) {
            SCOPED_TRACE(h.name);
            PMemBlock const root = boxed ? PMemBlock(Box(h.holder)) : h.holder;
            std::size_t const sights = Visited(*root).size();
            safestring const content = h.keeps_form ? HashOf(*root) : safestring();
            std::size_t const distinct = h.Distinct().size();
            h.holder = PMemBlock(); // now only the held objects have other owners
            root->MakeDeepCopy();
            auto const visited = Visited(*root);
            EXPECT_EQ(visited.size(), sights);
            EXPECT_EQ(std::set<MemBlock*>(visited.begin(), visited.end()).size(), distinct + boxed)
                << "what was one object still is one";
            for (MemBlock* const block : h.Distinct())
                EXPECT_EQ(std::count(visited.begin(), visited.end(), block), 0);
            EXPECT_EQ(h.keeps_form ? HashOf(*root) : content, content);
        }
}

TEST(HeldObjects, OfARegionHaveTheirPathsAndMayBeExchanged)
{
    auto const mask = Mask::Create(PMemBlock(Pixels({6})));
    mask->GetImageRepr();
    auto const box = Box(mask);
    std::vector<std::string> paths;
    Each exchange([&](safestring const& path, PMemBlock& block) {
        paths.emplace_back(path.c_str());
        if (path == "m.vector")
            block = Pixels({7, 8});
        else if (path == "m.image")
            block = PMemBlock();
    });
    EXPECT_TRUE(box->Entertain(exchange, safestring(), MemBlock::em_all));
    EXPECT_EQ(paths, (std::vector<std::string>{"", "m", "m.vector", "m.image"}));
    EXPECT_EQ(TextOf(mask->GetImageRepr()->CloneSlice(5, 10)), "0 0 1 1 0");
    // A walk that starts at a region goes through to its current form.
    EXPECT_EQ(Visited(*mask, MemBlock::em_all),
              std::vector<MemBlock*>{mask->GetVectorRepr().Pointer()});

    Each clear([](safestring const& path, PMemBlock& block) {
        if (path == "m.vector" || path == "m.image")
            block = PMemBlock();
    });
    box->Entertain(clear, safestring(), MemBlock::em_all);
    for (int form = 0; form < 2; ++form)
        EXPECT_RAISES(form ? PMemBlock(mask->GetImageRepr()) : PMemBlock(mask->GetVectorRepr()),
                      256,
                      "No representation stored: Mask for 0x0 images, in image representation");
    EXPECT_EQ(Faults(*mask), "No representation stored.\n");
}

TEST(HeldObjects, OfACopiedRegionStaySharedWithTheRestOfTheTree)
{
    auto const pixels = Pixels({6, 7});
    PMemBlock const mask = Mask::Create(DerivedPointer<Vector>(pixels));
    auto const root = Cnt("m", mask, "v", PMemBlock(pixels));
    root->MakeDeepCopy();
    PMemBlock const copy = root->Get("m").GetMemory();
    EXPECT_NE(copy.Pointer(), mask.Pointer());
    EXPECT_EQ(MemCast<Mask>(copy)->GetVectorRepr().Pointer(), root->Get("v").GetMemory().Pointer());
    EXPECT_NE(root->Get("v").GetMemory().Pointer(), pixels.Pointer());
}

TEST(HeldObjects, WhatCannotBeEndsIsNotTakenForThem)
{
    for (PMemBlock const& with : {PMemBlock(), PMemBlock(Cnt("a", 1)), PMemBlock(UInts({1}))}) {
        auto const v = IntervalVector::Create(2, Pixels({6, 7}));
        v->AddEndArray();
        auto const before = v->Clone(false);
        Each spoiler([&](safestring const& path, PMemBlock& block) {
            if (path.ends_with("endarray"))
                block = with;
        });
        v->Entertain(spoiler, "", MemBlock::em_all);
        EXPECT_EQ(Faults(*v), "");
        EXPECT_TRUE(*v == *before);
    }
}
