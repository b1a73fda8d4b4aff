#include "images.h"

#include <memblock/imaging/intervalvector.h>
#include <memblock/vector/summary.h>

#include <support/rounds.h>

#include <random>
#include <sstream>

namespace {

using namespace NKelmic;
using Numbers = std::vector<unsigned int>;
using Intervals = DerivedPointer<IntervalVector>;

/// What a call comes to, as a text: its value, or code and words of its error.
std::string Outcome(std::function<DataItem()> const& call)
{
    try {
        DataItem const item = call();
        PMemBlock const block = item.GetType() == it_memblock ? item.GetMemory() : PMemBlock();
        std::string text = item.GetDescription().c_str();
        if (!block)
            return text;
        safestring message;
        text += block->Consistent(message, true) ? ", " : ", not consistent, ";
        text += message.c_str();
        text += block->GetSubItem("@md5", throw_always).GetString().c_str();
        Vector const* const v = MemCast<Vector>(block);
        return v && SameName(v->Class(), "vector") ? text + ": " + TextOf(*v) : text;
    } catch (Exception const& e) {
        return "error " + std::to_string(e.Code()) + " " + e.what();
    }
}

/// Arguments of a step, the same for both forms.
struct Arguments {
    int a, b;
    Numbers list;
    PMemBlock object;
};

struct Step {
    std::string name;
    std::function<DataItem(Intervals const&, Arguments const&)> run;
};

template <class Edit>
Step Do(char const* name, Edit edit)
{
    return {name, [edit](Intervals const& v, Arguments const& with) {
                edit(*v, with);
                return DataItem();
            }};
}

std::vector<Step> const edits = {
    Do("Erase", [](Vector& v, auto& with) { v.Erase(with.a, with.b); }),
    Do("Insert", [](Vector& v, auto& with) { v.Insert(with.a, DataItem(with.b)); }),
    Do("ShiftVector", [](Vector& v, auto& with) { v.ShiftVector(with.a); }),
    Do("SetFirstIndex", [](Vector& v, auto& with) {
        v.SetFirstIndex(std::abs(with.a));
        if (with.a < 0) // at once: what vanished elements hold is open after other edits
            v.SetFirstIndex(with.a);
    }),
    Do("Clear", [](Vector& v, auto&) { v.Clear(); }),
    Do("Fill", [](Vector& v, auto& with) { v.Fill(DataItem(with.a)); }),
    Do("SetTypedChunk", [](Vector& v, auto& with) { v.SetTypedChunk(UInts(with.list)->Chunk()); }),
    Do("SetTypedChunk", [](Vector& v, auto&) { v.SetTypedChunk(Ints({0, 2, 3})->Chunk()); }),
    Do("UseMemoryOf", [](Vector& v, auto& with) { v.UseMemoryOf(UInts(with.list)); }),
    Do("UseMemoryOf", [](Vector& v, auto&) { v.UseMemoryOf(UInts({0, 1, 3, 4, 4, 5, 6, 9})); }),
    Do("TransferOwnerShip", [](Vector& v, auto&) { UInts({7, 8})->TransferOwnerShip(
                                DerivedPointer<Vector>(&v)); }),
    Do("ResizeVector", [](Vector& v, auto& with) { v.ResizeVector(with.b, true, true); }),
    Do("ChangeDimSizes", [](Vector& v, auto& with) { v.ChangeDimSizes(with.list.data(), 1); }),
    Do("SetIntervalCount", [](IntervalVector& v, auto& with) { v.SetIntervalCount(with.b); }),
    Do("Rearrange",
       [](Vector& v, auto& with) {
           v.Rearrange(reinterpret_cast<int const*>(with.list.data()), with.list.size(),
                       with.list.size() + with.b % 2, throw_always);
       }),
    Do("Append", [](Vector& v, auto& with) { v.Append(DerivedPointer<Vector>(with.object)); }),
    Do("Append", [](Vector& v, auto&) { v.Append(DerivedPointer<Vector>(&v)); }),
    Do("Append", [](Vector& v, auto&) { v.Append(nullptr); }),
    Do("SetElem", [](Vector& v, auto& with) { v.SetElem(with.b, with.a); }),
    Do("SetElem", [](Vector& v, auto& with) { v.SetElem(with.b, 1.5 * with.a); }),
    Do("SetElem", [](Vector& v, auto& with) { v.SetElem(with.b, unsigned(with.a)); }),
    Do("SetElem", [](Vector& v, auto& with) { v.SetElem(with.b, 1LL * with.a); }),
    Do("SetElem", [](Vector& v, auto& with) { v.SetElem(with.b, with.a + 0ULL); }),
    Do("SetElem", [](Vector& v, auto& with) { v.SetElem(with.b, with.a % 2 ? "3" : "x"); }),
    Do("SetElem", [](Vector& v, auto& with) { v.SetElem(with.b, PMemBlock(UInts(with.list))); }),
    Do("SetElem", [](Vector& v, auto& with) { v.SetElem(with.b, DataItem(with.a)); }),
    Do("EnsureFactor", [](Vector& v, auto& with) { v.EnsureFactor(with.a % 2 ? 1.0 : 2.0); }),
    Do("SetFactor", [](Vector& v, auto& with) { v.SetFactor(with.a % 2 ? 1.0 : 0.5); }),
    Do("SetElemType", [](Vector& v, auto&) { v.SetElemType(Vector::Double, true, false); }),
    Do("SetTarget",
       [](IntervalVector& v, auto& with) { v.SetTarget(DerivedPointer<Vector>(with.object)); }),
    {"SetDimSizes",
     [](Intervals const& v, Arguments const& with) {
         SafeValue n(with.a);
         return v->DoVerb("SetDimSizes", 1, &n);
     }},
};

/// The edits, and the keys with values of each kind.
std::vector<Step> Mutators()
{
    std::array<char const*, 5> const words{"stencil", "subobj", "subnum", "vectorstencil",
                                           "datacubestencil"};
    using Value = std::function<SafeValue(Arguments const&)>;
    std::pair<char const*, Value> const kinds[] = {
        {"length elemtype factor empty_dimensions @insert:0 @insert:3 1 4 interval_count",
         [](auto& with) { return SafeValue(with.a); }},
        {"size inner_index_array outer_index_array medium_index_array target_data",
         [](auto& with) { return SafeValue(UInts(with.list)); }},
        {"inner_vector outer_index_array target indexvector_target",
         [](auto& with) { return SafeValue(with.object); }},
        {"type", [words](auto& with) { return SafeValue(words[unsigned(with.a) % 5]); }}};
    std::vector<Step> all = edits;
    for (auto const& [names, value] : kinds) {
        std::istringstream keys(names);
        for (std::string key; keys >> key;)
            all.push_back({key, [key, value](auto& v, auto& with) {
                               return DataItem(int(Set(v, key.c_str(), value(with))));
                           }});
    }
    return all;
}

/// What both forms agree in: a slice shares the target of the form that it comes of.
DataItem OfSlice(PMemBlock const& slice)
{
    safestring text;
    slice->Consistent(text, true);
    for (char const* const key : {"itemcount", "area"})
        text += Text("%s %s ", key, Get(slice, key));
    return DataItem(text);
}

std::vector<Step> Readers()
{
    std::vector<Step> readers = {
        {"+", [](auto& v, auto&) { return DataItem(v->op('+', UInts({1}), op_options())); }},
        {"=", [](auto& v, auto&) { return DataItem(v->op('=', v, op_options())); }},
        {"#", [](auto& v, auto& w) { return DataItem(UInts(w.list)->op('#', v, op_options())); }},
        {"&", [](auto& v, auto&) { return DataItem(v->op('&', v, op_options())); }},
        {"!", [](auto& v, auto& w) { return DataItem(v->op('!', w.object, op_options())); }},
        {"p", [](auto& v, auto&) { return DataItem(v->op('p', v, op_options())); }},
        {"CloneSlice", [](auto& v, auto& w) { return OfSlice(v->CloneSlice(w.a, w.b)); }},
        {"CloneSlice", [](auto& v, auto&) { return OfSlice(v->CloneSlice(1, 1)); }},
        {"Clone", [](auto& v, auto&) { return DataItem(v->Clone(false)); }},
        {"ConvertTo", [](auto& v, auto&) { return DataItem(v->ConvertTo("vector")); }},
        {"ConvertElemsToType",
         [](auto& v, auto&) {
             return DataItem(cref(v).ConvertElemsToType(Vector::Double, true, false));
         }},
        {"Vector::Append",
         [](auto& v, auto&) {
             auto const other = UInts({1});
             other->Append(v);
             return DataItem(other);
         }},
        {"IntervalVector::Append",
         [](auto& v, auto& w) {
             PMemBlock const other = w.object->Clone(false);
             DerivedPointer<Vector>(other)->Append(v);
             return DataItem(other);
         }},
        {"IndexVector::Create",
         [](auto& v, auto&) { return DataItem(IndexVector::Create(v, 5, 4)); }},
        {"MergedTarget", [](auto& v, auto&) { return DataItem(cref(v).MergedTarget()); }},
        {"MergedIndexVector", [](auto& v, auto&) { return DataItem(v->MergedIndexVector()); }},
        {"SecondaryDouble",
         [](auto& v, auto&) { return DataItem(v->SecondaryDouble(key_sum, throw_always)); }},
        {"expr", [](auto& v, auto&) { return v->DoVerb("expr", 0, nullptr); }},
    };
    std::istringstream keys(
        "itemcount area mask x y target image imagewidth length range min mean maxat dims "
        "expression vectordata vector 0 _2 1..2 3 @slice:0:2 @description @md5 @__sharedbuffer__ "
        "! *");
    for (std::string key; keys >> key;)
        readers.push_back({key, [key](auto& v, auto&) { return Get(v, key.c_str()); }});
    return readers;
}

class TwoForms : public testing::Test {
protected:
    unsigned int Draw(unsigned int n) { return random_() % n; }

    Numbers DrawLimits(bool wild)
    {
        Numbers limits(1 + Draw(6));
        unsigned int last = Draw(2);
        for (unsigned int& limit : limits)
            limit = wild ? Draw(12) : (last += Draw(3));
        return limits;
    }

    /// A target of 12 items or so, shared by both forms.
    DerivedPointer<Vector> DrawTarget(bool may_be_layer = true)
    {
        Numbers pixels(8 + Draw(6));
        for (unsigned int& pixel : pixels)
            pixel = Draw(20);
        switch (Draw(may_be_layer ? 4 : 3)) {
        case 0:
            return Doubles({0, 0.5, 1, 1.5, 2, 2.5, 3, 3.5, 4, 4.5, 5, 5.5});
        case 1:
        case 2:
            return IndexVector::Create(UInts(pixels), 5, 4);
        default:
            auto const layer = IntervalVector::Create(0, DrawTarget(false));
            layer->SetTypedChunk(UInts({0, 1, 2, 2, 4, 5, 5, 6, 7, 8})->Chunk());
            if (Draw(2)) {
                int const order[] = {3, 2, 1, 0, 4, 5, 6, 7, 8};
                layer->Rearrange(order, 9, 9, throw_always);
            }
            return layer;
        }
    }

    Arguments DrawArguments()
    {
        Arguments with{int(Draw(9)) - 2, int(Draw(7)), DrawLimits(Draw(2)), DrawTarget()};
        if (Draw(2)) {
            auto const other = IntervalVector::Create(0, DrawTarget());
            other->SetTypedChunk(UInts(DrawLimits(false))->Chunk());
            if (Draw(2))
                other->AddEndArray();
            with.object = other;
        }
        return with;
    }

    Intervals Make(Numbers const& limits, unsigned int base, DerivedPointer<Vector> const& target)
    {
        auto* const cells =
            static_cast<unsigned int*>(mb_calloc(base + limits.size(), sizeof(unsigned int)));
        std::copy(limits.begin(), limits.end(), cells + base);
        return IntervalVector::Create(limits.size() - 1, base, cells, mb_free, target);
    }

    static Numbers LimitsOf(IntervalVector const& v)
    {
        Numbers limits(v.Start(0), v.Start(0) + v.IntervalCount());
        limits.insert(limits.end(), v.End(0), v.End(0) + v.IntervalCount());
        return limits;
    }

    std::mt19937 random_{3};
};

TEST_F(TwoForms, AreEditedAlike)
{
    auto const mutators = Mutators();
    for (int round = 0; round < Rounds(3000); ++round) {
        auto const target = DrawTarget();
        Numbers const limits = DrawLimits(Draw(4) == 0);
        unsigned int const base = Draw(3);
        Intervals const whole = Make(limits, base, target), parted = Make(limits, base, target);
        std::string history;
        for (int n = 0; n < 8; ++n) {
            parted->AddEndArray();
            Step const& step = mutators[Draw(mutators.size())];
            Arguments const with = DrawArguments();
            history += " " + step.name + Text("(%d,%d)", with.a, with.b).c_str();
            SCOPED_TRACE(history);
            Intervals const before(parted->Clone(false));
            std::string const expected = Outcome([&] { return step.run(whole, with); });
            ASSERT_EQ(Outcome([&] { return step.run(parted, with); }), expected);
            if (expected.starts_with("error")) {
                ASSERT_TRUE(*parted == *before && parted->HasEndArray() &&
                            *parted->Target() == *before->Target());
            }
            ASSERT_EQ(whole->IntervalCount(), parted->IntervalCount());
            ASSERT_EQ(LimitsOf(cref(whole)), LimitsOf(cref(parted)));
            // Without objects one limit is left that is none's; only the contiguous form checks it.
            if (whole->IntervalCount() > 0) {
                ASSERT_EQ(Outcome([&] { return DataItem(whole); }),
                          Outcome([&] { return DataItem(parted); }));
            }
            ASSERT_EQ(whole->Factor(), parted->Factor());
            ASSERT_TRUE(*whole == *parted && *parted == *whole);
            whole->EnsureStartAndEnd(); // a permutation parts them both
            parted->EnsureStartAndEnd();
        }
    }
}

TEST_F(TwoForms, AreReadAlikeAndNotChangedByIt)
{
    auto const readers = Readers();
    for (int round = 0; round < Rounds(300); ++round) {
        auto const target = DrawTarget();
        bool const wild = Draw(4) == 0;
        Numbers const limits = DrawLimits(wild);
        Intervals const whole = Make(limits, 1, target), parted = Make(limits, 1, target);
        // Packing mends what points beyond the target, and drops what belongs to no object.
        bool const permuted = !wild && limits.size() > 2 && limits[2] > limits[0] && Draw(2);
        if (permuted) { // intervals that one array can't hold
            int const order[] = {1, 0};
            whole->Rearrange(order, 2, 2, throw_always);
            parted->Rearrange(order, 2, 2, throw_always);
            whole->EnsureStartAndEnd();
        }
        parted->AddEndArray();
        PMemBlock const items = parted->Target();
        Numbers const limits_before = LimitsOf(cref(parted));
        PMemBlock const items_before = items->Clone(false);
        Arguments const with = DrawArguments();
        for (Step const& step : readers) {
            SCOPED_TRACE(step.name);
            auto const outcome = [&](Intervals const& v) {
                std::string const text = Outcome([&] { return step.run(v, with); });
                bool const names_target = permuted && text.starts_with("error");
                return names_target ? text.substr(0, text.find(':')) : text;
            };
            EXPECT_EQ(outcome(whole), outcome(parted));
            ASSERT_TRUE(parted->HasEndArray() && parted->Target() == items);
            ASSERT_EQ(LimitsOf(cref(parted)), limits_before);
            auto const* const layer = MemCast<IntervalVector>(items);
            ASSERT_TRUE(
                !layer ||
                (layer->HasEndArray() == MemCast<IntervalVector>(items_before)->HasEndArray() &&
                 LimitsOf(*layer) == LimitsOf(*MemCast<IntervalVector>(items_before))));
        }
    }
}

} // namespace
