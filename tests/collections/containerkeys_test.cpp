#include "container_fixture.h"

#include <memblock/core/subitem.h>
#include <memblock/serial/factory.h>
#include <memblock/vector/vector.h>
#include <support/raises.h>
#include <support/vectors.h>

#include <gtest/gtest.h>

using namespace NKelmic;

TEST(ContainerKeys, AKeyTellsThePlaceOfAnInsertion)
{
    std::pair<char const*, char const*> const cases[] = {{"x", "a=0 b=1 c=2 x=9"},
                                                         {"B", "a=0 b=9 c=2"},
                                                         {"1", "a=0 b=9 c=2"},
                                                         {"+1.6", "a=0 b=1 c=9"},
                                                         {"x:@first", "x=9 a=0 b=1 c=2"},
                                                         {"x:@LAST", "a=0 b=1 c=2 x=9"},
                                                         {"c:@first", "c=9 a=0 b=1"},
                                                         {"a:@last", "b=1 c=2 a=9"},
                                                         {"x:@before:b", "a=0 x=9 b=1 c=2"},
                                                         {"x:@before:nothing", "a=0 b=1 c=2 x=9"},
                                                         {"x:@after:nothing", "a=0 b=1 c=2 x=9"},
                                                         {"x:@after:0", "a=0 x=9 b=1 c=2"},
                                                         {"x:@after:4294967295", "a=0 b=1 c=2 x=9"},
                                                         {"a:@after:C", "b=1 c=2 a=9"},
                                                         {"c:@before:0", "c=9 a=0 b=1"},
                                                         {"x:@before:b:c", "a=0 b=1 c=2 x=9"},
                                                         {"1:@first", "1=9 a=0 b=1 c=2"},
                                                         {"", "=9 a=0 b=1 c=2"}};
    for (auto const& [key, listed] : cases) {
        for (bool const ordered : {false, true}) {
            if (ordered && *key == '\0')
                continue; // then it is the last
            SCOPED_TRACE(Text("\"%s\" %d", key, int(ordered)).c_str());
            auto const c = Cnt("a", 0, "b", 1, "c", 2);
            c->SetOrdered(ordered);
            c->Insert(key, 9);
            EXPECT_EQ(Listed(c), listed);
        }
    }
}

TEST(ContainerKeys, ABadPlaceIsRefusedAndChangesNothing)
{
    std::tuple<char const*, int, char const*> const cases[] = {
        {"x:", 32, "Invalid location specificator: x:"},
        {"x:foo", 32, "Invalid location specificator: x:foo"},
        {"x:@before", 32, "Invalid location specificator: x:@before"},
        {"x::a", 32, "Invalid location specificator: x::a"},
        {"x:@first:a", 32, "Invalid location specificator: x:@first:a"},
        {"3", 32, "Container element index 3 is out of range for: Container: 2 elements: a, b.."},
        {"-1", 512, "Cannot convert negative number into an unsigned type: -1"},
        {"1e30", 512, "Number does not fit in the destination data type range: 1e30"},
        {"x:@before:-1", 512, "Cannot convert negative number into an unsigned type: -1"}};
    for (auto const& [key, code, text] : cases) {
        SCOPED_TRACE(key);
        auto const c = Cnt("a", 0, "b", 1);
        EXPECT_RAISES(c->Insert(key, 9), code, text);
        EXPECT_RAISES(c->SetSubItem(key, 9, throw_always), code, text);
        EXPECT_FALSE(c->SetSubItem(key, 9, throw_never));
        EXPECT_FALSE(c->IsOrdered());
        EXPECT_EQ(Listed(c), "a=0 b=1");
    }
    auto const c = Cnt("b", 1, "a", 0);
    EXPECT_RAISES(c->Insert(":@first", 9), 32, "Missing item name.");
    EXPECT_TRUE(c->IsOrdered()); // that comes first
    EXPECT_EQ(Listed(c), "a=0 b=1");
}

TEST(ContainerKeys, AKeyReadsByNameByPositionAndAsksForPlaceAndSpelling)
{
    auto const c = Ordered("caB");
    c->Put(7, "5");
    std::pair<char const*, DataItem> const cases[] = {
        {"A", 1},           {"1", 1},         {"1.4", 1},     {"2:@name", "B"},   {"b:@NAME", "B"},
        {"b:@pos", 2},      {"2:@pos", 2},    {"9:@pos", -1}, {"none:@pos", -1},  {"9:@name", ""},
        {"none:@name", ""}, {"-1:@pos", -1},  {"a:bar", 1},   {"a:", 1},          {"a:@pos:x", 1},
        {"5:bar", 7},       {"none:bar", {}}, {"5", {}},      {"4294967296", {}}, {"-1", {}},
        {"1e99", {}},       {"", {}},         {":", {}},      {":@pos", -1}};
    for (auto const& [key, expected] : cases) {
        SCOPED_TRACE(key);
        SafeValue const value = c->Get(key);
        EXPECT_EQ(value.GetType(), expected.GetType());
        EXPECT_TRUE(value == expected);
    }
    EXPECT_EQ(Cnt("b", 1, "a", 2)->Get("b:@pos").GetInt(), 1) << "rank in name order";
}

TEST(ContainerKeys, KeysOfTheContainerComeFirstThenItemsThenThoseOfEveryObject)
{
    auto const c = Ordered("ba");
    c->Put("shadow", "@class");
    c->Put("never", "@length");
    c->Put("quoted", "@my name@");
    auto const base = [](char const* key) {
        return Container::Create()->MemBlock::ResolveSubItem(key, throw_always).GetString();
    };
    std::pair<char const*, safestring> const cases[] = {
        {"", "@keys,@length,@isordered," + base("")},
        {"!", "@keys,@length,@isordered,b, a, @@class@, @@length@, @my name@," + base("!")},
        {"*", "b, a, @@class@, @@length@, @my name@," + base("*")},
        {"@Length", "5"},
        {"size", "5"},
        {"@isordered", "1"},
        {"@class", "shadow"},
        {"my name", "quoted"},
        {"@my name@", "quoted"},
        {"keys.@class", "vector"},
        {"_.b", "0"},
        {"@sticky.@length", "0"}};
    for (auto const& [key, text] : cases) {
        SCOPED_TRACE(key);
        EXPECT_EQ(c->GetSubItem(key, throw_always).GetString(), text);
    }
    EXPECT_EQ(TextOf(c->GetSubItemVector("@keys", throw_always, nullptr, "")),
              "b a @class @length @my name@");
    EXPECT_RAISES(c->GetSubItem("none", throw_always), 256, "Subkey not found: none");
}

TEST(ContainerKeys, SystemKeysAreWrittenAndOtherKeysAreItems)
{
    auto const c = Cnt("a", 1);
    EXPECT_FALSE(c->SetSubItem("@IsOrdered", "perhaps", throw_never));
    EXPECT_FALSE(c->IsOrdered());
    EXPECT_TRUE(c->SetSubItem("@isordered", 1, throw_always));
    EXPECT_TRUE(c->IsOrdered());
    EXPECT_TRUE(c->SetSubItem("@sticky", DataItem(Cnt("s", 2)), throw_always));
    EXPECT_EQ(c->Count(), 1u);
    EXPECT_EQ(c->GetSubItem("@sticky.s", throw_always).GetInt(), 2);
    EXPECT_RAISES(c->SetSubItem("@keys", 1, throw_always), 128,
                  "Cannot set item \"@keys\" (1 (integer)) in a container object.");
    EXPECT_TRUE(c->SetSubItem("@unknown", 3, throw_always));
    EXPECT_TRUE(c->SetSubItem("@a name@", 4, throw_always));
    EXPECT_EQ(Listed(c), "a=1 @unknown=3 @a name@=4");
    EXPECT_TRUE(c->SetSubItem("a", SafeValue(), throw_always)); // undefined deletes
    EXPECT_FALSE(c->exists("a"));
}

TEST(ContainerKeys, AWriteMakesTheMissingLevelsAndKeepsOtherOwnersOut)
{
    auto const root = DerivedPointer<Container>(MemBlock::Factory().GetInstance("CONTAINER"));
    EXPECT_TRUE(root->SetSubItem("x.y.z", 5, throw_always));
    EXPECT_TRUE(root->SetSubItem("x.first:@first.z", 6, throw_always));
    EXPECT_EQ(Listed(root->GetMemory("x", "container")),
              "first=Container: 1 elements: z. y=Container: 1 elements: z.");
    EXPECT_FALSE(root->GetMemory("x", "container")->Conforms("vector"));
    EXPECT_FALSE(root->SetSubItem("7.z", 5, throw_never)) << "no such position";

    DerivedPointer<Container> const outsider = root->GetMemory("x", nullptr);
    safestring const before = root->GetSubItem("@md5", throw_always).GetString();
    EXPECT_TRUE(root->SetSubItem("x.y.z", 8, throw_always));
    EXPECT_NE(root->GetSubItem("@md5", throw_always).GetString(), before);
    EXPECT_EQ(outsider->GetSubItem("y.z", throw_always).GetInt(), 5);
    EXPECT_EQ(root->GetSubItem("x.y.z", throw_always).GetInt(), 8);

    CollectThrowMessage handler(true); // asks to create
    EXPECT_TRUE(root->GetSubItem("fresh", handler).GetMemory().Conforms("container"));
    EXPECT_TRUE(root->exists("fresh"));
}

TEST(ContainerKeys, ACloneOnTheWayOfAWriteDoesNotEndTheTransientContainer)
{
    auto const shared = Container::Create();
    auto const root = Container::Create();
    root->Put(SafeValue(DataItem(shared)), "a");
    ASSERT_TRUE(root->SetSubItem("@transient.k", 1, throw_always));
    ASSERT_TRUE(root->SetSubItem("a.@sticky.x", 2, throw_always));
    EXPECT_EQ(root->GetSubItem("a.@sticky.x", throw_always).GetInt(), 2);
    EXPECT_TRUE(shared->GetSubItem("@sticky.x", throw_never).IsUndefined());
    EXPECT_EQ(root->GetSubItem("@transient.k", throw_always).GetInt(), 1);
    ASSERT_TRUE(root->SetSubItem("a.x", 2, throw_always));
    EXPECT_TRUE(root->GetSubItem("@transient.k", throw_never).IsUndefined()) << "content changed";
}
