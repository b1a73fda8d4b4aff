#include "container_fixture.h"
#include "every_class.h"

#include <memblock/core/keytable.h>
#include <memblock/serial/warning.h>
#include <support/raises.h>
#include <support/testblock.h>
#include <support/vectors.h>
#include <support/warnings.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <set>

using namespace NKelmic;

namespace {

// ---- keys

/// Those of all tables, which the page of keys lists, and some of each form that no table holds.
std::vector<safestring> EveryKey()
{
    safestringlist const forms(
        "|!|*| |0|_0|-1|7|99999999999|1x|0..1|2..0|0,0|9,9|-1,0|0,0,0|1,1,9|,|@|@@|"
        "@@mean@@|@mean@|@factor|@length|@elemtype|@slice:0:1|@slice:2:1|@slice:x|"
        "@insert:0|@insert:9|@insert:|target_descr|target_rank|target_dimsize0|"
        "target_dimsize9|target_data|a|q r|@q r@|x:@first|x:@before|new.sub|"
        "new.sub.@nothing|a.@nothing|c.d.0|c.d.9|c.@nothing|c.new.@nothing|0.x|target.0|"
        "@sticky.x|@transient.@nothing|rawtarget.length|no such key",
        '|');
    std::vector<safestring> keys;
    for (unsigned long i = 0; i < forms.size(); ++i)
        keys.push_back(forms[i]);
    std::ifstream page(MEMBLOCK_SOURCE_ROOT "/docs/keys.md");
    for (std::string line; std::getline(page, line);)
        if (line.starts_with("| `"))
            keys.emplace_back(line.substr(3, line.find('`', 3) - 3).c_str());
    return keys;
}

// ---- values

std::vector<DataItem> OddValues()
{
    double const inf = std::numeric_limits<double>::infinity();
    std::vector<DataItem> values{{},
                                 0,
                                 -1,
                                 2,
                                 5000000000LL,
                                 std::numeric_limits<long long>::min(),
                                 1e300,
                                 -0.5,
                                 std::nan(""),
                                 inf,
                                 -inf,
                                 "",
                                 "5",
                                 "-7",
                                 "1,2",
                                 "no word of any list",
                                 safestring(3000, 'x'),
                                 "unsigned,short",
                                 static_cast<void*>(nullptr),
                                 DataItem(PMemBlock()),
                                 DataItem(ThreadSharablePointer<ThreadSharable>(new TestSharable))};
    for (int const logic : {Image::data, Image::visual, Image::mask, Image::stencil})
        values.push_back(Image::Create(1, 1, Vector::Byte, 1.0)->LgType2String(logic));
    for (int const logic : {IntervalVector::subobj, IntervalVector::subnum,
                            IntervalVector::datacubestencil, IntervalVector::vectorstencil})
        values.push_back(IntervalVector::Create()->LgType2String(logic));
    for (PMemBlock const& object :
         std::initializer_list<PMemBlock>{Bytes({}),
                                          Bytes({3, 1}),
                                          Doubles({-1, std::nan("")}, 0.5),
                                          UInts({4000000000u}),
                                          Texts({"a", "b", "c"}),
                                          Objects({Ints({1})}),
                                          Items({1, "t"}),
                                          Image::Create(4, 3, Vector::Byte, 1.0),
                                          Image::Create(2, 2, Vector::Float, 2.0),
                                          DataCube::Create(1, 1, 1, Vector::Byte, 1.0),
                                          Point::Create(1, 2),
                                          Pixels({5, 4}),
                                          Pixels({1}),
                                          Over(Pixels({5, 4})),
                                          Over(Doubles({1, 2})),
                                          Over(Over(Pixels({5, 4}))),
                                          Mask::Create(),
                                          Container::Create(),
                                          Cnt("a", Ints({7}), "z", 1),
                                          Table::Create("a", Ints({1, 2})),
                                          TestBlock::Create()})
        values.push_back(object);
    return values;
}

// ---- handlers

#define EXPECT_RAISES_TEXT(statement, text)                                                        \
    do {                                                                                           \
        try {                                                                                      \
            statement;                                                                             \
            ADD_FAILURE() << "nothing raised: " << (text);                                         \
        } catch (Exception const& raised_) {                                                       \
            EXPECT_EQ(raised_.what(), text);                                                       \
        }                                                                                          \
    } while (false)

/// Throws its own words for what it is told.
struct Answers : Reports {
    unsigned int operator()(Exception const& e) override
    {
        Reports::operator()(e);
        throw Exception(e.Code(), "answer: " + safestring(e.what()));
    }
};

/// Run with each kind of handler. It has to fail or succeed with all alike, to throw with none that
/// does not throw, and to say the same. Returns what it said, empty for a success.
std::string RunWithEachHandler(std::function<bool(ThrowHandlerFunc)> const& run)
{
    Reports reports;
    bool done = false;
    EXPECT_NO_THROW(done = run(reports));
    if (done)
        return {};
    std::string const text = reports.texts.empty() ? "nothing at all" : reports.texts[0];
    EXPECT_FALSE(reports.texts.empty()) << "it fails in silence";
    EXPECT_NO_THROW(EXPECT_FALSE(run(throw_never)));
    EXPECT_RAISES_TEXT(run(throw_always), text);
    Answers answers;
    EXPECT_RAISES_TEXT(run(answers), "answer: " + text);
    EXPECT_EQ(answers.texts.size(), 1u);
    return text;
}

/// All that can be seen of an object, and a copy to compare it with.
struct State {
    explicit State(PMemBlock const& object) : copy(object->Clone(true))
    {
        safestring consistency;
        object->Consistent(consistency, true);
        PMemBlock const fresh = object->Clone(true); // it has no hash yet
        text = Text("%s|%s|%s|%d|%s", object->GetDescription(), consistency,
                    object->GetSubItem("@type", throw_never).GetString(), object->Flags(),
                    fresh->SecondaryItem(MemBlock::key_md5, throw_never).GetString())
                   .c_str();
    }
    PMemBlock copy;
    std::string text;
};

/// Let go what an object holds, which may be itself.
void Unloop(PMemBlock const& object)
{
    object->ResetPimpl();
    if (auto* const container = MemCast<Container>(object.Pointer()))
        container->clear();
    if (auto* const vector = MemCast<Vector>(object.Pointer());
        vector && Vector::IsObject(vector->ElemType()) && vector->Length() > 0)
        vector->SetSubItem("0", 0, throw_never);
}

/// Whether a key is there, though what it gives may be undefined: a null element.
bool Succeeds(PMemBlock const& object, safestring const& key)
{
    bool ok = true;
    CheckOk check(ok);
    object->GetSubItem(key, check);
    return ok;
}

void ReadAll(PMemBlock const& object, std::vector<safestring> const& keys)
{
    for (safestring const& key : keys) {
        SCOPED_TRACE(key.c_str());
        bool const is_element = !key.empty() && (key[0] == '_' || (key[0] >= '0' && key[0] <= '9'));
        RunWithEachHandler([&](ThrowHandlerFunc handler) {
            return object->GetSubItem(key, handler).IsDefined() ||
                   (is_element && Succeeds(object, key));
        });
        EXPECT_NO_THROW(object->ResolveSubItem(key, throw_never));
    }
}

} // namespace

TEST(Keys, WhatFailsGoesToTheHandlerAndChangesNothing)
{
    WarningLog const warnings;
    auto const keys = EveryKey();
    ASSERT_GT(keys.size(), 150u) << "the page of keys is there";
    auto const values = OddValues();
    for (PMemBlock const& sample : EveryKind()) {
        SCOPED_TRACE(sample.GetDescription().c_str());
        ReadAll(sample->Clone(false), keys);
        std::set<std::string> seen;
        PMemBlock object = sample->Clone(false);
        bool const comparable = *object == *sample; // vectors of objects are not
        for (safestring const& key : keys)
            for (std::size_t i = 0; i <= values.size(); ++i) {
                DataItem const value = i < values.size() ? values[i] : DataItem(object);
                SCOPED_TRACE(Text("\"%s\" = %s", key, value.GetDescription()).c_str());
                State const before(object);
                auto const text = RunWithEachHandler([&](ThrowHandlerFunc handler) {
                    return object->SetSubItem(key, value, handler);
                });
                if (!text.empty()) {
                    EXPECT_EQ(State(object).text, before.text);
                    EXPECT_TRUE(!comparable || *object == *before.copy);
                    if (i == 1 && (text.starts_with("Cannot set item") ||
                                   text.starts_with("Subkey not found")))
                        break; // whatever the value
                    continue;
                }
                if (i < values.size() && seen.size() < 8 && seen.insert(State(object).text).second)
                    ReadAll(object, keys);
                Unloop(object);
                object = sample->Clone(false);
            }
    }
}

TEST(Keys, BelowAColumnOfATableNeverChangeItsLength)
{
    WarningLog const warnings;
    char const* const ways[] = {"w.", "_0.", "0.", "@w@.", "@self.w.", "w.@self."};
    int n = 0, refused = 0;
    for (PMemBlock const& sample : EveryKind()) {
        if (!MemCast<Vector>(sample.Pointer()))
            continue;
        auto const rows = MemCast<Vector>(sample.Pointer())->Length();
        std::vector<DataItem> values{0, 7, "3,4", "subobj"};
        for (PMemBlock const& object : std::initializer_list<PMemBlock>{
                 UInts({}), UInts({0, 1}), Pixels({5, 4}), OfType(Vector::Int, rows),
                 Over(Ints({})), Cnt("w", 1, "z", Ints({1})), sample})
            values.push_back(object);
        for (safestring const& key : EveryKey())
            for (DataItem const& value : values) {
                PMemBlock column = sample->Clone(false);
                auto const t = Table::Create("w", DerivedPointer<Vector>(column), "n",
                                             OfType(Vector::Byte, rows), "twice",
                                             DerivedPointer<Vector>(column));
                safestring const path = ways[++n % std::size(ways)] + key;
                bool const twice = n / std::size(ways) % 2, shared = n / std::size(ways) % 3 == 0;
                if (!twice)
                    t->DeleteColumn("twice");
                PMemBlock const kept = shared ? column : PMemBlock();
                column = PMemBlock();
                SCOPED_TRACE(Text("%s: %s = %s", sample, path, value.GetDescription()).c_str());
                Reports reports;
                bool const done = t->SetSubItem(path, value, reports);
                ASSERT_EQ(t->ColumnCount(), twice ? 3 : 2);
                for (int i = 0; i < t->ColumnCount(); ++i)
                    ASSERT_EQ(t->Column(i)->Length(), rows) << i;
                refused += !reports.texts.empty() &&
                           reports.texts[0] == "Cannot change the length of columns inside a "
                                               "table, change table.@rowcount instead!";
                if (done)
                    Unloop(t->Column(0));
                else
                    EXPECT_EQ(State(t->Column(0)).text, State(sample).text);
            }
    }
    EXPECT_GT(refused, 100);
}

TEST(Keys, OfABranchWriteAsThoseOfAFullCopyAndLeaveTheOriginal)
{
    WarningLog const warnings;
    int written = 0;
    for (PMemBlock const& sample : EveryKind())
        for (safestring const& key : EveryKey()) {
            auto const original = Cnt("o", DataItem(sample->Clone(false)));
            DataItem const child = original->GetSubItem("o." + key, throw_never);
            if (child.GetType() != it_memblock || !child.GetMemory() || key == "buffer")
                continue; // what is written to the bytes of a buffer is written to all its owners
            for (char const* below : {".0", ".rawtarget.0", ".image.0", ".@nothing"}) {
                safestring const path = "o." + key + below;
                SCOPED_TRACE(Text("%s: %s", sample, path).c_str());
                auto const text = [](PMemBlock const& c) {
                    return State(c->GetSubItem("o", throw_always).GetMemory()).text;
                };
                std::string const before = text(original);
                PMemBlock const branch = original->CloneToBranch(path);
                EXPECT_EQ(text(branch), before);
                PMemBlock const copy = original->Clone(false);
                bool const done = copy->SetSubItem(path, 1, throw_never);
                written += done;
                EXPECT_TRUE(done || text(copy) == before);
                EXPECT_EQ(branch->SetSubItem(path, 1, throw_never), done);
                EXPECT_EQ(text(branch), text(copy));
                EXPECT_EQ(text(original), before);
            }
        }
    EXPECT_GT(written, 100);
}
