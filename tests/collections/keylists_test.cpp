#include "container_fixture.h"
#include "every_class.h"

#include <memblock/core/keytable.h>
#include <memblock/serial/factory.h>
#include <memblock/serial/warning.h>

#include <gtest/gtest.h>
#include <random>
#include <set>

using namespace NKelmic;

namespace {

/// What numbers have and objects have not.
bool IsSummary(std::string name)
{
    if (name[0] == '_')
        name.erase(0, 1);
    static std::set<std::string> const names{"min",    "max",       "minat",    "maxat",
                                             "mean",   "median",    "fmedian",  "sum",
                                             "stddev", "histogram", "rough_max"};
    return names.count(name) > 0;
}

/// The names of a key list, in its order.
std::vector<safestring> NamesOf(safestring const& list)
{
    std::vector<safestring> names;
    AnyKeyOfList(list, [&](KeyListEntry const& entry) {
        names.emplace_back(entry.name.data(), entry.name.size());
        return false;
    });
    return names;
}

/// A container whose items are written by one step of a path, which may hold dots.
class OpenContainer : public Container {
public:
    using Container::Container;
    using Container::DoSetSubItem;
};

/// A name that a script might mistake for a key.
safestring OddName(std::mt19937& random)
{
    static char const* const pieces[] = {
        "",        "@",        "@",      "a",     "B",           "_",        "5",  "1e1",
        " ",       ".",        ":",      "@name", "@pos",        "@length",  "\"", "%",
        "!",       "*",        "-",      "@keys", "@sticky",     "@subkeys", "=",  "\xC3\xA4",
        "@first:", "@after:5", "length", "size",  "@expression", "two words"};
    safestring name;
    for (unsigned n = random() % 4; n-- > 0;)
        name += pieces[random() % std::size(pieces)];
    return name;
}

} // namespace

TEST(KeyLists, AreReadOfEveryExportedClass)
{
    std::set<safestring> tested; // the case of class names differs
    for (PMemBlock const& object : EveryClass())
        tested.insert(object->Class());
    safestringlist const classes(ListClasses(','), ',');
    for (unsigned long i = 0; i < classes.size(); ++i)
        EXPECT_EQ(tested.count(classes[i]), 1u) << classes[i].c_str();
}

TEST(KeyLists, OfEveryClassHoldNamesThatCanBeReadAndNoOthers)
{
    MemBlock_DoVerb("set_calldistributionfunc",
                    DataItem(reinterpret_cast<void*>(
                        +[](PMemBlock, int, bool) -> PMemBlock { return Vector::Create(); })));
    for (PMemBlock const& object : EveryClass()) {
        SCOPED_TRACE(object.GetDescription().c_str());
        auto const list = [&](char const* key) {
            return object->ResolveSubItem(key, throw_always).GetString();
        };
        auto const* const vector = MemCast<Vector>(object.Pointer());
        EXPECT_TRUE(!vector || list("") == list("!"));
        bool const numbers = !vector || !Vector::IsObject(vector->ElemType());
        for (char const* key : {"", "!", "*"}) {
            auto const names = NamesOf(list(key));
            EXPECT_GT(names.size(), 1u) << key;
            for (safestring const& name : names) {
                DataItem const value = object->ResolveSubItem(name, throw_never);
                EXPECT_EQ(value.IsDefined(), numbers || !IsSummary(name.c_str())) << name.c_str();
            }
        }
    }
    MemBlock_DoVerb("set_calldistributionfunc", DataItem(static_cast<void*>(nullptr)));
}

TEST(KeyLists, OfContainersNameEachItemSoThatItIsReadAndWritten)
{
    std::mt19937 random(9);
    for (int round = 0; round < 4000; ++round) {
        DerivedPointer<OpenContainer> const c(new OpenContainer(round % 2 == 1));
        for (int i = 0; i < 6; ++i) {
            safestring const name = OddName(random);
            if (name.empty())
                c->Insert(name, i); // only so
            else
                c->Put(i, name);
        }
        safestring const list = c->ResolveSubItem("*", throw_always).GetString();
        SCOPED_TRACE(list.c_str());
        auto names = NamesOf(list);
        ASSERT_EQ(names.size(), c->Count());
        safestring expression = c->IsOrdered() ? "ocnt(" : "cnt(";
        for (unsigned i = 0; i < names.size(); ++i) {
            safestring const& key = names[i];
            int const value = c->GetAt(i).GetInt();
            ASSERT_TRUE(c->ResolveSubItem(key, throw_always) == DataItem(value)) << key.c_str();
            ASSERT_TRUE(c->DoSetSubItem(key, value + 10, key, throw_always));
            ASSERT_EQ(c->GetAt(i).GetInt(), value + 10) << key.c_str();
            ASSERT_EQ(c->Count(), names.size()) << key.c_str();
            expression += Text("%s%s=%d", i > 0 ? "," : "", key, value + 10);
        }
        EXPECT_EQ(c->GetExpression(), expression + ")");
        unsigned const gone = random() % c->Count();
        safestring const name = c->GetNameByPos(static_cast<int>(gone));
        ASSERT_TRUE(c->DoSetSubItem(names[gone], SafeValue(), names[gone], throw_always));
        EXPECT_FALSE(c->exists(name)) << name.c_str();
        EXPECT_EQ(c->Count(), names.size() - 1);
    }
    auto const comma = Cnt("b, c", 1, "word", 2, "5", 3);
    EXPECT_EQ(TextOf(comma->GetSubItemVector("@subobjects", throw_always, nullptr, "")),
              "@5@ @b, c@ word");
}

TEST(KeyLists, AQuotedKeyLeadsToTheNameInItUnlessItIsANameItself)
{
    auto const c = Ordered("ab");
    c->Put(DataItem(Cnt("x", 1)), "two words");
    c->Put(3, "a:b");
    c->Insert("new:@before:@two words@", 4);
    EXPECT_TRUE(c->SetSubItem("@a:b@:@first", 5, throw_never) == false) << "the first colon counts";
    EXPECT_TRUE(c->SetSubItem("@b@:@first", 6, throw_always));
    EXPECT_TRUE(c->SetSubItem("@two words@.x", 7, throw_always));
    EXPECT_TRUE(c->SetSubItem("@fresh@", 8, throw_always));
    EXPECT_EQ(Listed(c), "b=6 a=0 new=4 two words=Container: 1 elements: x. a:b=3 @fresh@=8");
    EXPECT_EQ(c->GetSubItem("two words.x", throw_always).GetInt(), 7);
    EXPECT_EQ(c->Get("@two words@:@pos").GetInt(), 3);
    EXPECT_EQ(c->Get("@a@:@name").GetString(), "a");
    c->Put(9, "fresh");
    EXPECT_EQ(c->Get("@fresh@").GetInt(), 8);
    EXPECT_EQ(c->Get("fresh").GetInt(), 9);
    EXPECT_TRUE(c->Get("@none@").IsUndefined());
}
