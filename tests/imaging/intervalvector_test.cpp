#include "images.h"

#include <memblock/imaging/intervalvector.h>

#include <support/failing_alloc.h>
#include <support/rounds.h>

#include <numeric>
#include <random>
#include <set>

namespace {

using namespace NKelmic;
using Rows = std::vector<std::vector<unsigned int>>;

/// Limits over a target in the contiguous form.
DerivedPointer<IntervalVector> Over(std::vector<unsigned int> const& limits,
                                    DerivedPointer<Vector> const& target)
{
    auto const v = IntervalVector::Create(0, target);
    Set(v, "outer_index_array", UInts(limits));
    return v;
}

DerivedPointer<IntervalVector> StencilOf(Rows const& rows, unsigned int w = 5, unsigned int h = 4)
{
    return IntervalVector::CreateFromStdVectors(static_cast<unsigned int>(rows.size()), rows.data(),
                                                IndexVector::TargetData(2, w, h));
}

Rows RowsOf(IntervalVector const& v)
{
    Rows rows(v.IntervalCount());
    unsigned int const* const pixels = cref(v.IndexVectorTarget()).UnsignedIntPointer();
    for (unsigned int k = 0; k < v.IntervalCount(); ++k)
        rows[k].assign(pixels + v.Start(0)[k], pixels + v.End(0)[k]);
    return rows;
}
Rows RowsOf(PMemBlock const& block)
{
    return RowsOf(cref(DerivedPointer<IntervalVector>(block)));
}

bool IsSound(PMemBlock const& block)
{
    return Faults(*block).empty();
}

/// Two objects with two zones each, in an image of 5 x 4.
DerivedPointer<IntervalVector> Zones()
{
    return Over({0, 2, 4}, Over({0, 1, 2, 4, 5}, Pixels({6, 7, 11, 12, 13})));
}

TEST(IntervalVector, ItsClassAndDescriptionFollowFromTheTarget)
{
    auto const cube = IndexVector::Create(UInts({1}), IndexVector::TargetData(3, 2u, 2u, 2u));
    auto const row = IndexVector::Create(UInts({1}), IndexVector::TargetData(1, 9u));
    std::tuple<PMemBlock, int, char const*, char const*> const cases[] = {
        {Over({0, 2, 5}, Pixels({6, 7, 11, 12, 13})), 23, "stencil",
         "Stencil of 2 objects for 5x4 images, in vector representation."},
        {Zones(), 24, "subobj",
         "Subobject complex attribute for 4 subobjects of 2 objects:  for 5x4 images, in vector "
         "representation."},
        {Over({0, 1, 3}, Doubles({0.5, 0.7, 1.2})), 25, "subnum",
         "Subobject scalar attribute for 2 objects."},
        {Over({0, 1}, cube), 28, "datacubestencil",
         "Stencil of 1 objects for Datacube 2x2x2, in vector representation."},
        {Over({0, 1}, row), 29, "vectorstencil",
         "Vector-stencil of 1 element sets in vectors of type: Vector of 9 elements."},
    };
    for (auto const& [v, type, word, description] : cases) {
        EXPECT_EQ(v->LgType(), type);
        EXPECT_STREQ(Get(v, "@type").GetString().c_str(), word);
        EXPECT_STREQ(v->GetDescription().c_str(), description);
        EXPECT_EQ(v->Conforms("stencil"), type == 23);
        EXPECT_TRUE(v->Conforms("indexvector"));
        EXPECT_EQ(Faults(*v), "");
        EXPECT_TRUE(*v->Clone(false) == *v && *v->Clone(true) == *v);
    }
    EXPECT_EQ(IntervalVector::string2logic("SubNum"), IntervalVector::subnum);
}

TEST(IntervalVector, ItsRefusalsHaveCodeAndText)
{
    auto const one = StencilOf({{1}}), three = StencilOf({{7, 1, 6}, {2}, {99, 7}});
    auto const falling = StencilOf({{6}}), zones = Zones();
    falling->Start(0)[0] = 2;
    auto const numbers = Over({0, 1}, Ints({1}));
    auto const image = Image::Create(5, 4, Vector::Byte, 1.0);
    auto const rows = Objects({Bytes({1, 2}), Doubles({0.5}), Shorts({})});
    SafeValue geometric[] = {SafeValue(rows), SafeValue("geometric"), SafeValue(1)};
    op_options const options;
    std::vector<Refusal> rows_of_table = {
        {[] { IntervalVector::Create(0, nullptr); }, 128, "Created Intervalvector without target."},
        {[] { IntervalVector::logic2string(IntervalVector::logic_class_t(26)); }, 128,
         "No such IntervalVector logic class: 26"},
        {[] { IntervalVector::string2logic("cube"); }, 128,
         "Unrecognized intervalvector logic type: cube"},
        {[&] { one->SetTarget(one); }, 128,
         "Attempt to construct unsupported IntervalVector type: " + one->GetDescription()},
        {[&] { one->SetTarget(DerivedPointer<Vector>(IndexVector::Create())); }, 128,
         "Target too short (0), must be >=1: Mask for 0x0 images, in vector representation."},
        {[&] { three->op('^', one, options); }, 128,
         "Logical operation \"^\" only supported for operands with the same number of geometrical "
         "figures. These operands have 3 and 1."},
        {[&] { three->op('!', one, options); }, 128, // the operands are tested first
         "Logical operation \"!\" only supported for operands with the same number of geometrical "
         "figures. These operands have 3 and 1."},
        {[&] { one->op('!', one, options); }, 4096,
         "IntervalVector::op(): operation not supported: \"!\""},
        {[&] { one->op('|', image, options); }, 128,
         "For image second operand only the logical operation \"and\" is implemented."},
        {[&] { one->op('&', Ints({1}), options); }, 128,
         "Logical operation \"&\" is implemented only for two-layer (body-type) attributes and "
         "images, but second operand is: Vector of 1 elements of type signed int"},
        {[&] { numbers->op('|', one, options); }, 128,
         "Logical operation \"|\" is implemented only for two-layer (body-type) attributes, but "
         "first operand is: " +
             numbers->GetDescription()},
        {[&] { one->op('p', one, options); }, 128,
         "Function \"point()\" is implemented only for subobject numeric attributes."},
        {[&] { one->GetXYVector('z'); }, 128,
         "IntervalVector::GetXYVector(): invalid parameter: z"},
        {[&] { numbers->GetXYVector('x'); }, 128,
         "Cannot apply .x subkey to: " + numbers->GetDescription()},
        {[&] { falling->GetMaskImage(); }, 128,
         "IntervalVector::GetMaskImage(): Invalid interval for cell 1: [2..1]: " +
             falling->GetDescription()},
        {[&] { zones->GetMaskImage(); }, 128,
         "IntervalVector::GetMaskImage(): Unsupported data type (only 2-level arrays supported): " +
             zones->GetDescription()},
        {[&] { one->Append(zones); }, 128,
         "Cannot append " + zones->GetDescription() + " to " + one->GetDescription()},
        {[&] { one->Append(StencilOf({{1}}, 9, 9)); }, 128,
         "Incompatible targets: Mask for 5x4 images, in vector representation. AND Mask for 9x9 "
         "images, in vector representation."},
        {[&] { one->DoVerb("ConvertFrom", 3, geometric); }, 128,
         "For creating a stencil the extra parameter must be an image providing correct "
         "dimensions."},
        {[&] { one->DoVerb("ConvertFrom", 1, geometric); }, 128,
         "vector of vectors as \"numeric\" or \"geometric\" attribute"},
        {[&] {
             IntervalVector::CreateFromVectorOfVectors(Objects({image, nullptr}), Vector::Int);
         },
         128, "Element 1 of input vector is not a vector: none"},
        {[] { IntervalVector::CreateFromVectorOfVectors(Objects({Texts({"a"})}), Vector::Int); },
         128, "Type of vector element 0 not supported: Vector of 1 elements of type string"}};
    for (char const* key : {"inner_index_array", "inner_vector", "outer_index_array",
                            "medium_index_array", "target", "indexvector_target"})
        rows_of_table.push_back(
            {[&one, key] { Set(one, key, 5); }, 128,
             Text("IntervalVector::set(\"%s\"): this is not a vector: 5 (integer)", key)});
    ExpectRefusals(rows_of_table);
    EXPECT_EQ(RowsOf(one), (Rows{{1}}));
}

TEST(IntervalVector, PackingPutsItemsInTheOrderOfIntervalsOrOfStarts)
{
    unsigned int start[] = {4, 0, 1}, end[] = {5, 2, 3}; // out of order, overlapping, with a gap
    auto const v = IntervalVector::Create(3, 0, start, end, nullptr, Pixels({6, 7, 8, 9, 10}));
    DerivedPointer<IntervalVector> const in_order(v->Clone(true)), parted(v->Clone(true));
    EXPECT_EQ(in_order->Reformat(true, nullptr), 0);
    EXPECT_EQ(RowsOf(in_order), (Rows{{6, 7}, {7, 8}, {10}}));
    unsigned short* owners = nullptr;
    EXPECT_EQ(v->Reformat(false, &owners), 0);
    EXPECT_EQ(RowsOf(v), (Rows{{10}, {6, 7}, {7, 8}}));
    EXPECT_EQ(TextOf(v->IndexVectorTarget()), "10 6 7 7 8");
    EXPECT_EQ(std::vector<int>(owners, owners + 5), (std::vector<int>{1, 2, 2, 3, 3}));
    mb_free(owners);
    EXPECT_EQ(cref(parted).StartAndEnd(1, false, false, nullptr), nullptr);
    EXPECT_EQ(TextOf(parted->IndexVectorTarget()), "6 7 8 9 10"); // shared with the others before

    auto const tiles = StencilOf({{6, 7}, {8}}); // these stay where they are
    tiles->AddEndArray();
    EXPECT_NE(tiles->StartAndEnd(0, false, true, &owners), nullptr);
    EXPECT_EQ(std::vector<int>(owners, owners + 3), (std::vector<int>{1, 1, 2}));
    mb_free(owners);
}

TEST(IntervalVector, ASampleGivesItsIntervalsToAnotherTarget)
{
    unsigned int first[] = {2, 0}, behind[] = {3, 2};
    auto const sample = IntervalVector::Create(2, 0, first, behind, nullptr, Pixels({6, 7, 8}));
    auto const same = IntervalVector::CreateBySample(sample, Doubles({0.5, 0.6, 0.7}));
    EXPECT_EQ(TextOf(same->MergedVector()), "0.7 0.5 0.6");
    EXPECT_TRUE(IsSound(same) && sample->HasEndArray());
}

TEST(IntervalVector, PackingZonesMovesTheLimitsAndNotThePixels)
{
    auto const zones = Zones();
    int const order[] = {1, 0};
    zones->Rearrange(order, 2, 2, throw_always);
    EXPECT_EQ(TextOf(zones->MergedIndexVector()), "11 12 13 6 7");
    EXPECT_EQ(Get(zones, "area").GetInt(), 5);
    EXPECT_EQ(Get(zones, "@md5").GetString().size(), 32u);
    EXPECT_EQ(Faults(*zones), "");
    zones->SetTypedChunk(Doubles({0, 2, 4})->Chunk()); // what can't be limits is reported, not read
    EXPECT_NE(Faults(*zones), "");
    EXPECT_RAISES(zones->MergedTarget(), 128,
                  "Cannot cast data to UnsignedInt type: Subobject complex attribute for 0 "
                  "subobjects of 2 objects:  for 5x4 images, in vector representation.");
}

TEST(IntervalVector, MayHaveNoObjects)
{
    auto const none = StencilOf({{6}, {7}});
    none->Rearrange(nullptr, 0, 0, throw_always);
    EXPECT_TRUE(IsSound(none) && none->IntervalCount() == 0);
    none->SetSubItem("outer_index_array", SafeValue(UInts({})), throw_always);
    EXPECT_TRUE(IsSound(none) && none->IntervalCount() == 0);
}

TEST(IntervalVector, SixteenBitsNumberTheOwnersOfUpTo65533Objects)
{
    for (unsigned int const n : {65533u, 65534u}) {
        auto const v = IntervalVector::Create(n, Ints({1}));
        v->AddEndArray();
        v->Start(0)[0] = v->End(0)[0] = 1; // no tiles
        unsigned short* owners = nullptr;
        if (n == 65533u) {
            EXPECT_EQ(v->Reformat(false, &owners), 0);
            mb_free(owners);
        } else {
            EXPECT_RAISES(v->Reformat(false, &owners), 4096,
                          "Too many objects, cannot reformat data; if a cell list is involved, try "
                          "to insert CalcZone() module to recalculate zones (Subobject scalar "
                          "attribute for 65534 objects.)");
            EXPECT_TRUE(v->HasEndArray());
        }
    }
}

TEST(IntervalVector, KeysRebuildAStructureInAnyOrder)
{
    using Keys = std::vector<std::pair<char const*, SafeValue>>;
    IndexVector::TargetData const image(2, 5u, 4u), cube(3, 3u, 3u, 3u), row(1, 20u);
    auto const pixels = [](IndexVector::TargetData const& target) {
        return IndexVector::Create(UInts({6, 7, 11, 12, 13}), target);
    };
    Keys const two_layers = {{"interval_count", SafeValue(2)},
                             {"outer_index_array", SafeValue(UInts({0, 2, 5}))}};
    auto const with = [](Keys keys, Keys const& more) {
        keys.insert(keys.end(), more.begin(), more.end());
        return keys;
    };
    auto const stencil_keys = [&](char const* type, IndexVector::TargetData const& target) {
        return with(two_layers,
                    {{"type", SafeValue(type)}, {"inner_index_array", SafeValue(pixels(target))}});
    };
    std::pair<Keys, DerivedPointer<IntervalVector>> const structures[] = {
        {stencil_keys("stencil", image), Over({0, 2, 5}, pixels(image))},
        {stencil_keys("datacubestencil", cube), Over({0, 2, 5}, pixels(cube))},
        {stencil_keys("vectorstencil", row), Over({0, 2, 5}, pixels(row))},
        {with(two_layers, {{"type", SafeValue("datacubestencil")}, // what files hold: plain numbers
                           {"inner_index_array", SafeValue(UInts({6, 7, 11, 12, 13}))},
                           {"target_data", SafeValue(UInts({3, 3, 3}))}}),
         Over({0, 2, 5}, pixels(cube))},
        {with(two_layers, {{"type", SafeValue("vectorstencil")},
                           {"inner_index_array", SafeValue(UInts({6, 7, 11, 12, 13}))},
                           {"indexvector_target", SafeValue(pixels(row))}}),
         Over({0, 2, 5}, pixels(row))},
        {{{"type", SafeValue("subnum")},
          {"interval_count", SafeValue(2)},
          {"outer_index_array", SafeValue(UInts({0, 1, 3}))},
          {"inner_vector", SafeValue(Doubles({0.5, 0.7, 1.2}))}},
         Over({0, 1, 3}, Doubles({0.5, 0.7, 1.2}))},
        {{{"type", SafeValue("subobj")},
          {"interval_count", SafeValue(2)},
          {"outer_index_array", SafeValue(UInts({0, 2, 4}))},
          {"medium_index_array", SafeValue(UInts({0, 1, 2, 4, 5}))},
          {"inner_index_array", SafeValue(pixels(image))}},
         Zones()},
        {{{"@type", SafeValue("subobj")},
          {"interval_count", SafeValue(2)},
          {"outer_index_array", SafeValue(UInts({0, 1, 2}))},
          {"medium_index_array", SafeValue(UInts({0, 1, 3}))},
          {"inner_vector", SafeValue(Doubles({0.5, 0.7, 1.2}))}},
         Over({0, 1, 2}, Over({0, 1, 3}, Doubles({0.5, 0.7, 1.2})))},
    };
    for (auto const& [keys, expected] : structures) {
        std::vector<unsigned int> order(keys.size());
        std::iota(order.begin(), order.end(), 0u);
        do {
            auto const v = IntervalVector::Create();
            std::string history;
            for (unsigned int const i : order) {
                history += std::string(" ") + keys[i].first;
                EXPECT_TRUE(v->SetSubItem(keys[i].first, keys[i].second, throw_always));
            }
            ASSERT_TRUE(IsSound(v) && *v == *expected) << history;
            ASSERT_EQ(v->LgType(), expected->LgType()) << history;
        } while (std::next_permutation(order.begin(), order.end()));
    }

    auto const numbers = Over({0, 1, 3}, Doubles({0.5, 0.7, 1.2}));
    numbers->SetSubItem("interval_count", SafeValue(4), throw_always); // the last limit repeats
    EXPECT_EQ(TextOf(*numbers), "0 1 3 3 3");

    auto const stencil = StencilOf({{6}});
    stencil->SetSubItem("target_data", SafeValue(UInts({10, 2})), throw_always);
    EXPECT_EQ(Get(stencil, "imagewidth").GetInt(), 10);
    for (char const* key : {"target_data", "indexvector_target"}) // no structure has such pixels
        EXPECT_THROW(
            stencil->SetSubItem(key,
                                SafeValue(IndexVector::Create(
                                    UInts({1, 1, 1, 1}), IndexVector::TargetData(4, 1, 1, 1, 1))),
                                throw_always),
            Exception);
    EXPECT_EQ(Get(stencil, "imagewidth").GetInt(), 10);
    EXPECT_EQ(Faults(*stencil), "");
}

TEST(IntervalVector, SetOperationsFollowTheStandardAlgorithms)
{
    std::mt19937 random(7);
    for (int round = 0; round < Rounds(300); ++round) {
        unsigned int const n = random() % 4;
        Rows a(n), b(n);
        for (auto* rows : {&a, &b})
            for (auto& row : *rows) {
                unsigned int const most = random() % 3 ? 24 : 150;
                for (unsigned int size = random() % most; size > 0; --size)
                    row.push_back(random() % 9 ? random() % (2 * most)
                                               : 0x7FFFFFFFu - random() % 3);
                if (random() % 2)
                    std::sort(row.begin(), row.end());
                if (random() % 2) // lists of an object have a number once, mostly
                    row.erase(std::unique(row.begin(), row.end()), row.end());
                if (random() % 4 == 0) // a row of pixels
                    std::iota(row.begin(), row.end(), random() % 9);
            }
        auto const x = StencilOf(a), y = StencilOf(b);
        for (char const op : {'&', '|', '^'}) {
            Rows expected(n);
            for (unsigned int k = 0; k < n; ++k) {
                auto p = a[k], q = b[k];
                std::sort(p.begin(), p.end());
                std::sort(q.begin(), q.end());
                auto const out = std::back_inserter(expected[k]);
                if (op == '&')
                    std::set_intersection(p.begin(), p.end(), q.begin(), q.end(), out);
                else if (op == '|')
                    std::set_union(p.begin(), p.end(), q.begin(), q.end(), out);
                else
                    std::set_symmetric_difference(p.begin(), p.end(), q.begin(), q.end(), out);
            }
            EXPECT_EQ(RowsOf(x->op(op, y, op_options())), expected) << op;
        }
        EXPECT_EQ(RowsOf(x), a); // operands stay
    }
    // Many objects, where those that are sampled for the room have nothing in common.
    Rows many(4096, {1, 2, 3, 7}), others = many, common = many;
    for (std::size_t k = 0; k < many.size(); ++k)
        if (k % 256 < 64) {
            others[k] = {4, 5};
            common[k] = {};
        }
    EXPECT_EQ(RowsOf(StencilOf(many)->op('&', StencilOf(others), op_options())), common);

    auto const image = Image::Create(5, 4, Vector::Byte, 1.0);
    image->BytePointer()[7] = image->BytePointer()[6] = 1;
    auto const v = StencilOf({{7, 1, 6}, {2}, {99, 7}});
    EXPECT_EQ(RowsOf(v->op('&', image, op_options())), (Rows{{7, 6}, {}, {7}}));
}

TEST(IntervalVector, WhatGoesToStandardErrorNamesSourcesFromTheTreeOn)
{
    auto const late = Over({1, 2}, Pixels({6, 7}));
    EXPECT_EQ(StderrOf([&] { late->MergedIndexVector(); }).rfind("memblock/imaging/interval", 0),
              0u);
}

TEST(IntervalVector, CoordinatesBecomePixelsAgainByPoint)
{
    auto const v = StencilOf({{6, 7}, {11, 12, 13}});
    op_options options;
    options.SetValue("image_width", DataItem(5));
    options.SetValue("image_height", DataItem(4));
    PMemBlock const x = Get(v, "x").GetMemory(), y = Get(v, "y").GetMemory();
    EXPECT_EQ(TextOf(Get(x, "target").GetMemory()), "1 2 1 2 3");
    EXPECT_EQ(RowsOf(x->op('p', y, options)), RowsOf(v));
}

TEST(IntervalVector, DrawingAndListingAreEachOthersReverse)
{
    for (unsigned int const n : {0u, 1u, 32000u, 32001u, 65535u, 65536u, 70000u}) {
        Rows rows(n);
        for (unsigned int k = 0; k < n; ++k)
            rows[k] = {1001 + k + k / 998 * 2}; // not in the frame of 1000 x 100
        auto const image = StencilOf(rows, 1000, 100)->GetMaskImage();
        EXPECT_EQ(image->ElemSize(), n > 32000 ? 4u : 2u) << n;
        EXPECT_EQ(image->Type(), Image::stencil);
        EXPECT_EQ(image->GetStencilCount(), static_cast<int>(n));
        EXPECT_EQ(RowsOf(PMemBlock(image->GetStencilVector())), rows) << n;
    }
    auto const overlap = StencilOf({{6, 7}, {7, 8}, {500}})->GetMaskImage();
    EXPECT_EQ(TextOf(PMemBlock(overlap->CloneSlice(6, 9))), "1 2 2"); // later objects win
}

TEST(IntervalVector, AppendPutsObjectsBehindObjects)
{
    auto const v = StencilOf({{6, 7}});
    auto const shared = StencilOf({{8}, {}, {9, 10}});
    v->Append(shared);
    EXPECT_EQ(RowsOf(v), (Rows{{6, 7}, {8}, {}, {9, 10}}));
    v->Append(v);
    EXPECT_EQ(v->IntervalCount(), 8u);
    EXPECT_EQ(RowsOf(shared), (Rows{{8}, {}, {9, 10}}));
    auto const numbers = Over({1, 2}, Doubles({9, 0.5, 9})); // the nines belong to no object
    numbers->Append(Over({1, 3}, Bytes({4, 5, 6})));
    numbers->Append(Over({0, 1}, Doubles({2.5})));
    EXPECT_EQ(TextOf(numbers->MergedVector()), "0.5 5 6 2.5");
    EXPECT_EQ(Faults(*numbers), "");
    auto const zones = Zones();
    zones->Append(Zones());
    EXPECT_EQ(Faults(*zones), "");
    EXPECT_EQ(RowsOf(PMemBlock(zones->MergedTarget())),
              (Rows{{6, 7}, {11, 12, 13}, {6, 7}, {11, 12, 13}}));
    unsigned int const *inner = nullptr, *medium = nullptr, *outer = nullptr;
    unpack_three_layer_const(zones, inner, medium, outer);
    EXPECT_EQ(inner[medium[outer[3]]], 11u);
    auto const slice = Zones()->CloneSlice(1, 2);
    EXPECT_EQ(TextOf(DerivedPointer<IntervalVector>(PMemBlock(slice))->MergedIndexVector()),
              "11 12 13");
    EXPECT_TRUE(IsSound(slice) && IsSound(Zones()->CloneSlice(0, 0)));
}

TEST(IntervalVector, VectorsOfVectorsComeAndGo)
{
    auto const v = StencilOf({{6, 7}, {}, {13}});
    auto const objects = intervalvector_to_pmemory_vector(v);
    EXPECT_EQ(objects->Length(), 3u);
    EXPECT_EQ(RowsOf(PMemBlock(pmemory_vector_to_intervalvector(objects))), RowsOf(v));
    auto const rows = Objects({Bytes({1, 2}), Doubles({0.5}), Shorts({})});
    SafeValue numeric[] = {SafeValue(rows), SafeValue("numeric")};
    auto const numbers =
        DerivedPointer<IntervalVector>(v->DoVerb("ConvertFrom", 2, numeric).GetMemory());
    EXPECT_EQ(TextOf(numbers->MergedVector()), "1 2 0.5");
    EXPECT_EQ(TextOf(*numbers), "0 2 3 3");
    SafeValue geometric[] = {SafeValue(rows), SafeValue("geometric"),
                             SafeValue(Image::Create(7, 3, Vector::Byte, 1.0))};
    EXPECT_EQ(RowsOf(v->DoVerb("ConvertFrom", 3, geometric).GetMemory()).size(), 3u);
    EXPECT_EQ(IntervalVector::CreateFromStdVectors<safestring>(0, nullptr)->IntervalCount(), 0u);
}

TEST(IntervalVector, AResizeThatFailsLeavesBothLimitsAsTheyWere)
{
    for (unsigned int const length : {40000u, 1u}) {
        bool failed = true;
        for (unsigned int n = 1; failed; ++n) {
            auto const v = StencilOf(Rows(300, {6, 7}));
            v->AddEndArray();
            PMemBlock const copy = v->Clone(n % 2); // shares the limits, or has its own
            bool done = true;
            {
                memtest::FailAllocations const fail(n);
                try {
                    v->ResizeVector(length, true, true);
                } catch (std::exception const&) {
                    done = false;
                }
                failed = fail.Failed();
            }
            EXPECT_TRUE(done ? v->IntervalCount() == length - 1 : *v == *copy);
            EXPECT_EQ(Faults(*v), "");
        }
    }
}

/// What a walk over the limits meets, each of them cut to the items that are there.
std::string Reached(Vector const& items, unsigned int from, unsigned int to)
{
    auto const* const layer = dynamic_cast<IntervalVector const*>(&items);
    std::string text;
    to = std::min(to, layer ? layer->IntervalCount() : items.Length());
    for (unsigned int i = from; i < to; ++i)
        text +=
            layer ? Reached(*MemCast<Vector>(layer->Target()), layer->Start(0)[i], layer->End(0)[i])
                  : std::string(items.GetString(static_cast<int>(i)).c_str()) + " ";
    return text;
}

TEST(IntervalVector, NoLimitsReachBeyondTheTarget)
{
    std::mt19937 random(11);
    auto const wild = [&] {
        return static_cast<unsigned int>(random() % 3 ? random() % 8 : random());
    };
    for (int round = 0; round < Rounds(300); ++round) {
        std::vector<unsigned int> limits(random() % 5), medium(random() % 5);
        for (auto* list : {&limits, &medium})
            std::generate(list->begin(), list->end(), wild);
        auto const v = IntervalVector::Create();
        char const* const words[] = {"stencil", "subobj", "subnum", "vectorstencil",
                                     "datacubestencil"};
        auto const set = [&](char const* key, SafeValue const& value) {
            try {
                v->SetSubItem(key, value, throw_always);
            } catch (Exception const&) {
            }
        };
        set("type", SafeValue(words[random() % 5]));
        set("inner_index_array", SafeValue(Pixels({wild(), wild(), wild()})));
        if (random() % 2)
            set("medium_index_array", SafeValue(UInts(medium)));
        set("outer_index_array", SafeValue(UInts(limits)));
        if (random() % 2)
            v->AddEndArray();
        PMemBlock const other = v->Clone(random() % 2);
        std::string const reached = Reached(*v, 0, v->IntervalCount());
        EXPECT_EQ(Get(v, "area").GetInt(), std::count(reached.begin(), reached.end(), ' '));
        bool const flat = v->LgType() != IntervalVector::subobj;
        if (flat) { // otherwise an object has all between its first zone and its last
            EXPECT_EQ(TextOf(VectorOf(Get(v, "target").GetMemory())) + (reached.empty() ? "" : " "),
                      reached);
        }
        bool const pixels = flat && v->LgType() != IntervalVector::subnum;
        if (pixels) {
            EXPECT_TRUE(*Get(v, "mask").GetMemory() == *Get(v, "target").GetMemory());
            for (char const op : {'&', '|'}) // with itself: what it has, in another order
                EXPECT_EQ(Get(v->op(op, other, op_options()), "area").GetInt(),
                          Get(v, "area").GetInt());
            EXPECT_EQ(Get(v->op('^', other, op_options()), "area").GetInt(), 0);
        }
        for (char const* key : {"x", "image", "@md5", "@description", "min"})
            try {
                v->GetSubItem(key, throw_always);
            } catch (Exception const&) { // limits that fall can't be drawn
            }
        try {
            v->Append(DerivedPointer<Vector>(other));
        } catch (std::exception const&) {
        }
        safestring message;
        v->Consistent(message, true);
        v->ResizeVector(random() % 5, true, true);
        EXPECT_LE(v->IntervalCount(), 5u);
    }
}

TEST(IntervalVector, AKernelBecomesAddressOffsetsInThePicture)
{
    auto const picture = Image::Create(10, 8, Vector::Byte, 1.0);
    auto const kernel = Image::Create(3, 3, Vector::UnsignedShort, 1.0); // around pixel 4
    for (auto const& [at, object] : {std::pair{1u, 2}, {4u, 1}, {3u, 2}, {8u, 2}})
        kernel->UnsignedShortPointer()[at] = static_cast<unsigned short>(object);
    auto const shifts =
        PrepareMatrixes_f(picture, DerivedPointer<Vector>(kernel->GetStencilVector()));
    ASSERT_EQ(shifts->Length(), 2u);
    EXPECT_EQ(TextOf(cref(shifts).ElemMemory(0)), "0");
    EXPECT_EQ(TextOf(cref(shifts).ElemMemory(1)), "-10 -1 11");
    auto const all = DerivedPointer<Image>(kernel->Clone(true));
    all->SetType(Image::mask);
    EXPECT_EQ(TextOf(PrepareMatrixes_f(picture, all)), "-10 -1 0 11");
    ExpectRefusals({{[&] { PrepareMatrixes_f(Bytes({1}), all); }, 128,
                     "Unsupported image type. Function  PrepareMatrixes_f: Vector of 1 elements of "
                     "type byte"},
                    {[&] { PrepareMatrixes_f(picture, Bytes({1})); }, 128,
                     "Kernel type not supported: Vector of 1 elements of type byte"}});
}

TEST(IntervalVector, LabelsBeyondSixteenBitsAreListed)
{
    for (int const greatest : {65535, 65536}) {
        auto const labels = Image::Create(2, 1, Vector::Int, 1.0);
        labels->IntPointer()[1] = greatest;
        EXPECT_EQ(labels->GetStencilVector()->IntervalCount(), static_cast<unsigned>(greatest));
    }
}

} // namespace
